#include "Running.h"

#include <gtest/gtest.h>

#include <sys/sem.h>

#include <filesystem>
#include <memory>

using namespace tavrel::test;

namespace {

const char cacheSuffix[] = ".resolved.by.chassis::NamesFile";

bool holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

} // namespace

TEST(ToolStart, BuildsTheTreeAndThenJoinsIt) {
    const Sample sample;

    const Result first = tool({"start"});
    const Result second = tool({"start"});

    EXPECT_EQ(first.code, 0) << first.err;
    EXPECT_TRUE(
        holds(first.out,
              "built the tree: version '1.0'\n  54 components\n  specification read and cached in /tmp/"))
        << first.out;
    EXPECT_EQ(second.code, 0) << second.err;
    EXPECT_TRUE(holds(second.out, "joined the tree: version '1.0', nothing changed\n  54 components\n"
                                  "  specification from the cache /tmp/"))
        << second.out;
    EXPECT_EQ(first.err + second.err, "");
}

TEST(ToolStart, LocksTheTreeWithTheServiceThatTheMachineHas) {
    const Sample sample;
    sample.edit("chassis.properties", "tavrel.res.name = tavrel.db",
                "tavrel.res.name = tavrel.db\ntavrel.lock.provider = SemLockProvider");

    const Result start = tool({"start"});
    const Result set = tool({"set", "/Chassis#0/FanTray#0/Fan#3", "Speed", "900"});

    EXPECT_EQ(start.code, 0) << start.err;
    EXPECT_EQ(set.code, 0) << set.err;
    EXPECT_NE(semget(5610000, 0, 0), -1);
}

TEST(ToolStart, SharesTheCacheWithEveryPathToTheSameFile) {
    const Sample sample;
    std::filesystem::create_symlink(sample.path("chassis.properties"), "/tmp/link.properties");

    const Result first = tool({"start"});
    const Result second = run({TAVREL_TOOL, "-c", "/tmp/link.properties", "start"});

    EXPECT_EQ(first.code, 0) << first.err;
    EXPECT_TRUE(holds(second.out, "from the cache")) << second.out << second.err;
}

TEST(ToolStart, SharesTheCacheWithTheClient) {
    const Sample sample;

    const Result client = run({CHASSIS_CLIENT, "chassis.properties", "chassis.names", "power-on"});
    const Result joined = tool({"start"});

    EXPECT_EQ(client.code, 0) << client.err;
    EXPECT_TRUE(holds(joined.out, "joined the tree")) << joined.out << joined.err;
    EXPECT_TRUE(holds(joined.out, "from the cache")) << joined.out;
}

TEST(ToolStart, ReplacesABadCache) {
    const Sample sample;
    ASSERT_EQ(tool({"start"}).code, 0);
    std::string cache;
    for (const auto& entry : std::filesystem::directory_iterator("/tmp")) {
        if (holds(entry.path().string(), cacheSuffix)) {
            cache = entry.path();
        }
    }
    std::filesystem::resize_file(cache, 20);

    const Result result = tool({"start"});

    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_TRUE(holds(result.out, "joined the tree")) << result.out;
    EXPECT_TRUE(holds(result.out, "read and cached in " + cache)) << result.out;
}

TEST(ToolStart, SaysThatAChangedSpecificationWaitsForTheCacheToGo) {
    const Sample sample;
    ASSERT_EQ(tool({"start"}).code, 0);
    sample.edit("parts.csv", "OutputPower,4", "OutputPower,8");

    const Result result = tool({"start"});

    EXPECT_EQ(result.code, 0);
    EXPECT_TRUE(holds(result.err, "tavrel: note: 'parts.csv' is newer than the specification cache"))
        << result.err;
}

TEST(ToolStart, MigratesTheStoredValuesToAnotherVersion) {
    const Sample sample;
    const std::string fan = "/Chassis#0/FanTray#0/Fan#1";
    ASSERT_EQ(tool({"set", fan, "Speed", "4321"}).code, 0);

    const Result start =
        run({TAVREL_TOOL, "-c", "chassis-2.properties", "--classes", CHASSIS_CLASSES, "start"});
    const Result speed = run({TAVREL_TOOL, "-c", "chassis-2.properties", "get", fan, "Speed"});

    EXPECT_EQ(start.code, 0) << start.err;
    EXPECT_TRUE(holds(start.out, "migrated the tree: version '1.0' -> version '2.0'\n")) << start.out;
    EXPECT_TRUE(holds(start.out, "  Fan.Speed: 4 values, 0x10e1 -> 0x000010e1\n")) << start.out;
    EXPECT_TRUE(holds(start.out, "  48 values that had not been written: stored as zeros\n")) << start.out;
    EXPECT_EQ(speed.out, "0x000010e1 4321\n");
}

TEST(ToolStart, FitsValuesAsTheLibraryDoesWithoutTheMachinesClasses) {
    const Sample sample;
    const std::string fan = "/Chassis#0/FanTray#0/Fan#1";
    ASSERT_EQ(tool({"set", fan, "Speed", "4321"}).code, 0);

    const Result start = run({TAVREL_TOOL, "-c", "chassis-2.properties", "start"});

    EXPECT_TRUE(holds(start.out, "  Fan.Speed: 4 values, 0x10e1 -> 0x10e10000\n")) << start.out << start.err;
}

TEST(ToolStart, BuildsAtEachStartWithoutAVersion) {
    const Sample sample;
    sample.edit("chassis.properties", "tavrel.compo.ver = 1.0", "");

    for (int i = 0; i < 2; ++i) {
        const Result result = tool({"start"});

        EXPECT_EQ(result.code, 0) << result.err;
        EXPECT_TRUE(holds(result.out, "built the tree: no version\n  54 components\n")) << result.out;
        EXPECT_EQ(result.err,
                  "tavrel: note: '" + sample.path("chassis.properties") +
                      "' names no version (tavrel.compo.ver): each process that starts builds the "
                      "tree anew\n");
    }
}

TEST(ToolStart, AloneBuildsWithoutAVersion) {
    const StartedSample sample;
    const std::string fan = "/Chassis#0/FanTray#0/Fan#1";
    ASSERT_EQ(tool({"set", fan, "Speed", "4321"}).code, 0);
    sample.edit("chassis.properties", "tavrel.compo.ver = 1.0", "tavrel.compo.vers = 1.0");

    for (const Words& words : std::vector<Words>{{"get", fan, "Speed"},
                                                 {"set", fan, "Speed", "1"},
                                                 {"tree"},
                                                 {"watch"},
                                                 {"do", "/", "PowerOn"}}) {
        const Result result = tool(words);

        EXPECT_EQ(result.code, 1) << words[0];
        EXPECT_TRUE(
            holds(result.err, "tavrel: '" + sample.path("chassis.properties") +
                                  "' names no version (tavrel.compo.ver), so that each start builds the "
                                  "tree anew: run `tavrel start` if that is wanted\n"))
            << result.err;
    }
    sample.edit("chassis.properties", "tavrel.compo.vers = 1.0", "tavrel.compo.ver = 1.0");
    EXPECT_EQ(tool({"get", fan, "Speed"}).out, "0x10e1 4321\n");
}

TEST(ToolStart, AloneMigrates) {
    const StartedSample sample;
    const std::string fan = "/Chassis#0/FanTray#0/Fan#1";
    ASSERT_EQ(tool({"set", fan, "Speed", "4321"}).code, 0);

    for (const Words& words : std::vector<Words>{{"get", fan, "Speed"},
                                                 {"set", fan, "Speed", "1"},
                                                 {"tree"},
                                                 {"watch"},
                                                 {"do", "/", "PowerOn"}}) {
        Words all = {TAVREL_TOOL, "-c", "chassis-2.properties", "--classes", CHASSIS_CLASSES};
        all.insert(all.end(), words.begin(), words.end());
        const Result result = run(all);

        EXPECT_EQ(result.code, 1) << words[0];
        EXPECT_EQ(result.err,
                  "tavrel: the tree in '/var/nvrdisk/current/db/current.db' has version '1.0', '" +
                      sample.path("chassis-2.properties") +
                      "' names '2.0': run `tavrel start` to migrate it\n");
    }
    EXPECT_EQ(tool({"get", fan, "Speed"}).out, "0x10e1 4321\n");
}

TEST(ToolStart, IsNotNeededWhereThereIsNoTreeYet) {
    const Sample sample;

    const Result first = tool({"get", "/Chassis#0", "PowerState"});
    const Result second = tool({"get", "/Chassis#0", "PowerState"});

    EXPECT_EQ(first.code, 0);
    EXPECT_EQ(first.err,
              "tavrel: note: there was no tree in '/var/nvrdisk/current/db/current.db': it was built\n");
    EXPECT_EQ(second.code, 0);
    EXPECT_EQ(second.err, "");
}

TEST(ToolStart, ShowsWhatAnOlderVersionMakesOfTheValues) {
    const Sample sample;
    const std::string fan = "/Chassis#0/FanTray#0/Fan#1";
    const Words newer = {TAVREL_TOOL, "-c", "chassis-2.properties", "--classes", CHASSIS_CLASSES};
    Words start = newer;
    start.push_back("start");
    Words set = newer;
    set.insert(set.end(), {"set", fan, "Speed", "0x12345678"});
    ASSERT_EQ(run(start).code, 0);
    ASSERT_EQ(run(set).code, 0);

    const Result back = tool({"start"});

    EXPECT_TRUE(holds(back.out, "migrated the tree: version '2.0' -> version '1.0'\n"))
        << back.out << back.err;
    EXPECT_TRUE(holds(back.out, "  Fan.Speed: 4 values, 0x12345678 -> 0x1234\n")) << back.out;
    EXPECT_EQ(tool({"get", fan, "Speed"}).out, "0x1234 4660\n");
}

TEST(ToolStart, SaysThatAMigrationKeepsTheStoredTree) {
    const StartedSample sample;
    sample.edit("chassis-2.csv", "\nFan\n", "\nFanTray\ncomponent,Fan,6\nfeature,Hotplug\n\nFan\n");

    const Result start =
        run({TAVREL_TOOL, "-c", "chassis-2.properties", "--classes", CHASSIS_CLASSES, "start"});

    EXPECT_EQ(start.code, 0) << start.err;
    EXPECT_TRUE(holds(start.out,
                      "\n  54 components\n  a fresh tree would have Fan: 6 in place of 4, Sensor: 20 in "
                      "place of 18: a migration keeps the stored tree and fits only the values\n"))
        << start.out;
}

TEST(ToolStart, KeepsATreeInTheMemoryOfOneProcess) {
    const Sample sample;
    const Words words = {TAVREL_TOOL, "-c", "chassis-volatile.properties", "start"};

    for (int i = 0; i < 2; ++i) {
        const Result result = run(words);

        EXPECT_EQ(result.code, 0) << result.err;
        EXPECT_TRUE(holds(result.out, "built the tree: version '1.0'\n  54 components\n")) << result.out;
    }
    EXPECT_FALSE(std::filesystem::exists("/var/nvrdisk/current/db/current.db"));
}

TEST(ToolStart, GivesOneTreeToManyProcessesThatStartTogether) {
    const Sample sample;
    std::vector<std::unique_ptr<Running>> starting;
    starting.reserve(6);
    for (int i = 0; i < 6; ++i) {
        starting.push_back(std::make_unique<Running>(toolWords({"start"})));
    }

    for (auto& process : starting) {
        const Result result = process->wait();

        EXPECT_EQ(result.code, 0) << result.err;
        EXPECT_TRUE(holds(result.out, "\n  54 components\n")) << result.out;
    }
    EXPECT_TRUE(
        holds(tool({"start"}).out, "joined the tree: version '1.0', nothing changed\n  54 components"));
}
