#include "Running.h"

#include <gtest/gtest.h>

using namespace tavrel::test;

TEST(Tool, TellsHowItIsUsed) {
    const Result result = run({TAVREL_TOOL, "--help"});

    EXPECT_EQ(result.code, 0);
    for (const char* command : {"start", "tree", "get", "set", "do", "watch", "add", "remove", "trace"}) {
        EXPECT_NE(result.out.find(std::string("\n  ") + command + " "), std::string::npos) << command;
    }
}

TEST(Tool, AnswersWrongUsageWithTwo) {
    const Sample sample;

    for (const Words& words : std::vector<Words>{{},
                                                 {"strat"},
                                                 {"get", "/Chassis#0"},
                                                 {"tree", "--json", "--dot"},
                                                 {"tree", "--colour"},
                                                 {"watch", "--interval", "0"},
                                                 {"do", "/Chassis#0", "PowerOn", "--out", "-1"},
                                                 {"start", "extra"}}) {
        const Result result = tool(words);

        EXPECT_EQ(result.code, 2) << (words.empty() ? "nothing" : words[0]);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err.rfind("tavrel: ", 0), 0U) << result.err;
        EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << "one line: " << result.err;
    }
}

TEST(Tool, NamesTheNearestCommand) {
    const Sample sample;

    for (const Words& words : std::vector<Words>{{"geT", "/Chassis#0", "PowerState"},
                                                 {"-n", "chassis.names", "geT"},
                                                 {"geT", "-n", "chassis.names"}}) {
        const Result result = tool(words);

        EXPECT_EQ(result.code, 2);
        EXPECT_EQ(result.err,
                  "tavrel: unknown command 'geT'; the nearest known name is 'get'; see tavrel --help\n");
    }
}

TEST(Tool, CutsAPathOfAnyLength) {
    const Result result = run({TAVREL_TOOL, "-c", std::string(100000, 'x'), "start"});

    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.err.rfind("tavrel: the properties file 'xxx", 0), 0U);
    EXPECT_LT(result.err.size(), 1020U);
}

TEST(Tool, ShowsWhatWasTypedOnALineOfATerminal) {
    const StartedSample sample;
    const std::string bell = "a\a\n\x1B[31m";
    const std::string flood(5000, 'x');

    for (const Words& words : std::vector<Words>{{"get", "/Chassis#0", "NAME"},
                                                 {"get", "/NAME#0", "PowerState"},
                                                 {"get", "NAME", "PowerState"},
                                                 {"set", "/Chassis#0", "PowerState", "NAME"},
                                                 {"set", "/Chassis#0", "PowerState", "0xNAME"},
                                                 {"do", "/Chassis#0", "NAME"},
                                                 {"do", "/Chassis#0", "PowerOn", "--in", "NAME"},
                                                 {"add", "/Chassis#0", "NAME"},
                                                 {"NAME"},
                                                 {"tree", "/", "NAME"}}) {
        for (const std::string& name : {bell, flood}) {
            Words typed;
            for (std::string word : words) {
                const std::size_t place = word.find("NAME");
                typed.push_back(place == std::string::npos ? word : word.replace(place, 4, name));
            }

            const Result result = tool(typed);

            EXPECT_NE(result.code, 0);
            EXPECT_EQ(result.err.rfind("tavrel: ", 0), 0U) << result.err;
            EXPECT_LT(result.err.size(), 400U) << result.err;
            EXPECT_EQ(result.err.find_first_of("\a\x1B"), std::string::npos);
            EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << "one line: " << result.err;
        }
    }
}

TEST(Tool, AnswersAPathOfAnotherFormWithTwo) {
    const StartedSample sample;

    for (const char* path : {"", "Chassis#0", "/Chassis", "/Chassis#", "/#0", "/Chassis#x", "/Chassis#0/",
                             "/Chassis#0x", "/Chassis#-1", "//Chassis#0"}) {
        const Result result = tool({"tree", path});

        EXPECT_EQ(result.code, 2) << path;
        EXPECT_EQ(result.err, "tavrel: '" + std::string(path) +
                                  "' is no path: a path is '/', a type, '#' and a number, for each step\n");
    }
}

TEST(Tool, NeedsAPropertiesFile) {
    const Result result = run({TAVREL_TOOL, "start"});

    EXPECT_EQ(result.code, 2);
    EXPECT_EQ(result.err, "tavrel: no properties file: name one with -c\n");
}

TEST(Tool, NeedsANamesFile) {
    const Sample sample;
    sample.edit("chassis.properties", "tavrel.resolver = chassis.names", "");

    const Result result = tool({"start"});

    EXPECT_EQ(result.code, 2);
    EXPECT_EQ(result.err,
              "tavrel: no names file: name one with -n, or with tavrel.resolver in the properties file\n");
}

TEST(Tool, TakesItsFilesFromTheEnvironment) {
    const Sample sample;
    sample.edit("chassis.properties", "tavrel.resolver = chassis.names", "");

    const Result result =
        run({TAVREL_TOOL, "start"}, {"TAVREL_CONFIG=chassis.properties", "TAVREL_NAMES=chassis.names"});

    EXPECT_EQ(result.code, 0) << result.err;
}

TEST(Tool, TakesItsOptionsBehindTheCommandToo) {
    const Sample sample;

    const Result result = run({TAVREL_TOOL, "start", "-c", "chassis.properties", "-n", "chassis.names"});

    EXPECT_EQ(result.code, 0) << result.err;
}

TEST(Tool, FailsWhenItsOutputCannotBeWritten) {
    const Sample sample;

    const Result result =
        run({"/bin/sh", "-c", std::string(TAVREL_TOOL) + " -c chassis.properties start > /dev/full"});

    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.err, "tavrel: the output cannot be written\n");
}
