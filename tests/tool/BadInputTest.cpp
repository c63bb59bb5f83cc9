#include "Running.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

using namespace tavrel::test;

namespace {

struct Slip {
    const char* file;
    const char* before;
    const char* after;
    const char* reason;
    int line;
};

void PrintTo(const Slip& slip, std::ostream* out) {
    *out << slip.file << ':' << slip.line;
}

} // namespace

class ToolBadInput : public testing::TestWithParam<Slip> {};

TEST_P(ToolBadInput, IsRefusedWithFileAndLine) {
    const Slip& slip = GetParam();
    const Sample sample;
    sample.edit(slip.file, slip.before, slip.after);

    const Result result = tool({"start"});

    EXPECT_EQ(result.code, 1) << slip.after;
    EXPECT_EQ(result.err, "tavrel: " + sample.path(slip.file) + ":" + std::to_string(slip.line) + ": " +
                              slip.reason + "\n");
    EXPECT_FALSE(std::filesystem::exists("/var/nvrdisk/current/db/current.db")) << "nothing was started";
}

INSTANTIATE_TEST_SUITE_P(
    Names, ToolBadInput,
    testing::Values(
        Slip{"chassis.names", "Chassis\n2\n", "Chassis\ntwo\n",
             "'two' stands where the number of 'Chassis' is expected", 9},
        Slip{"chassis.names", "Chassis\n2\n", "System Chassis\n2\n",
             "'Chassis' stands where the number of 'System' is expected", 8},
        Slip{"chassis.names", "Chassis\n2\n", "Chassis\n0\n", "the type 'Chassis' needs a number above 0", 9},
        Slip{"chassis.names", "Chassis\n2\n", "Chas#is\n2\n",
             "the name 'Chas#is' cannot stand in a path: it holds '/' or '#'", 9},
        Slip{"chassis.names", "Card\n10\n", "Slot\n10\n", "'Slot' stands twice, with 9 and 10", 25},
        Slip{"chassis.names", "PowerOn\n1\n", "PowerOn\n-1\n", "'PowerOn' has a negative number", 39},
        Slip{"chassis.names", "PartNumber\n16\n", "PartNumber\n0\n",
             "the property 'PartNumber' needs a number above 0", 51},
        Slip{"chassis.names", "MemoryModule\n5\n", "MemoryModule\n4\n",
             "'MemoryModule' has the number 4, which is that of 'Processor'", 15},
        Slip{"chassis.names", "Hotplug\n100\n", "Hotplug\n7\n",
             "'Hotplug' has the number 7, which is that of 'Fan'", 29},
        Slip{"chassis.names", "Connect\n3\n", "Connect\n2\n",
             "'Connect' has the number 2, which is that of 'PowerOff'", 43},
        Slip{"chassis.names", "Reading\n270\n", "Reading\n16\n",
             "'Reading' has the number 16, which is that of 'PartNumber'", 83},
        Slip{"chassis.names", "0\n15\n", "0\n14\n",
             "'Removable' stands where the number of a dictionary is expected", 32},
        Slip{"chassis.names", "2\n17\n", "2\n18\n", "the file ends where a name of dictionary 2 is expected",
             83},
        Slip{"chassis.names", "2\n17\n", "2\n16\n",
             "'Reading' stands behind the last name: one of the counts is too small", 82},
        Slip{"chassis.names", "3\n0\n", "three\n0\n",
             "'three' stands where the number of dictionaries is expected", 1}));

INSTANTIATE_TEST_SUITE_P(
    Configuration, ToolBadInput,
    testing::Values(Slip{"chassis.properties", "tavrel.compo.max = 256", "tavrel.compo.max = many",
                         "tavrel.compo.max is 'many': it must be a number above 0", 6},
                    Slip{"chassis.properties", "tavrel.compo.ver = 1.0",
                         "tavrel.compo.ver = 1.0-with-a-long-tail",
                         "the version '1.0-with-a-long-tail' is too long: at most 15 characters are stored",
                         5},
                    Slip{"chassis.properties", "shared = enable", "shared = yes",
                         "tavrel.compo.shared is 'yes': it must be 'enable' or 'disable'", 10},
                    Slip{"chassis.properties", "tavrel.compo.type = Chassis", "tavrel.compo.type Chassis",
                         "'tavrel.compo.type Chassis' has no key with a '=' behind it", 7}));

TEST(ToolBadInput, IsNotedWhereItOnlyHasNoEffect) {
    const Sample sample;
    sample.edit("chassis.properties", "tavrel.compo.max = 256", "tavrel.compo.maxi = 256");

    const Result result = tool({"start"});

    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(
        result.err,
        "tavrel: note: " + sample.path("chassis.properties") +
            ":6: unknown key 'tavrel.compo.maxi'; the nearest known name is 'tavrel.compo.max': the line "
            "has no effect\n");
}

TEST(ToolBadInput, IsNotedTwentyTimesAtMost) {
    const Sample sample;
    std::string lines = "tavrel.history =\n";
    for (int i = 0; i < 25; ++i) {
        lines += "key" + std::to_string(i) + " = 1\n";
    }
    sample.edit("chassis.properties", "tavrel.initializer", lines + "tavrel.initializer");

    const Result result = tool({"start"});

    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 21) << result.err;
    EXPECT_NE(result.err.find("tavrel: note: and 5 more notes\n"), std::string::npos) << result.err;
}

TEST(ToolBadInput, IsAnEmptyNamesFile) {
    const Sample sample;
    std::ofstream("empty.names").close();

    const Result result = run({TAVREL_TOOL, "-c", "chassis.properties", "-n", "empty.names", "start"});

    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.err,
              "tavrel: empty.names:1: the file ends where the number of dictionaries is expected\n");
}

TEST(ToolBadInput, MayShareNumbersInADictionaryOfTheClient) {
    const Sample sample;
    sample.edit("chassis.names", "3\n0\n", "4\n7\n2\nOne\n5\nOther\n5\n0\n");

    EXPECT_EQ(tool({"start"}).code, 0);
}

TEST(ToolBadInput, IsAFileThatCannotBeRead) {
    const Sample sample;

    EXPECT_EQ(run({TAVREL_TOOL, "-c", "missing", "start"}).err,
              "tavrel: the properties file 'missing' cannot be read\n");
    EXPECT_EQ(run({TAVREL_TOOL, "-c", "/tmp", "start"}).err,
              "tavrel: the properties file '/tmp' cannot be read\n");
    EXPECT_EQ(run({TAVREL_TOOL, "-c", "chassis.properties", "-n", "missing", "start"}).err,
              "tavrel: the names file 'missing' cannot be read\n");
    EXPECT_EQ(run({TAVREL_TOOL, "-c", "chassis.properties", "-n", "missing", "start"}).code, 1);
}

TEST(ToolBadInput, IsASpecificationThatCannotBeRead) {
    const Sample sample;
    for (const std::string file : {"chassis.csv", "chassis-actions.csv", "chassis-stores.properties"}) {
        std::filesystem::rename(sample.path(file), sample.path("away"));

        const Result result = tool({"start"});

        EXPECT_EQ(result.code, 1);
        EXPECT_EQ(result.err.rfind("tavrel: " + sample.path("chassis.properties") + ":" +
                                       std::to_string(sample.lineOf("chassis.properties", "= " + file)) +
                                       ": the ",
                                   0),
                  0U)
            << result.err;
        EXPECT_NE(result.err.find("'" + sample.path(file) + "' cannot be read\n"), std::string::npos)
            << result.err;
        std::filesystem::rename(sample.path("away"), sample.path(file));
    }
}

TEST(ToolBadInput, IsAMissingSpecification) {
    const Sample sample;
    sample.edit("chassis.properties", "tavrel.spec.compo = chassis.csv", "");

    const Result result = tool({"start"});

    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.err, "tavrel: '" + sample.path("chassis.properties") +
                              "' names no component specification: the key is tavrel.spec.compo\n");
}

TEST(ToolBadInput, IsAnUnknownRootType) {
    const Sample sample;
    for (const char* type : {"Chasis", "Hotplug"}) {
        sample.edit("chassis.properties",
                    "tavrel.compo.type = ", "tavrel.compo.type = " + std::string(type) + "\n#");

        const Result result = tool({"start"});

        EXPECT_EQ(result.code, 1);
        EXPECT_EQ(result.err.rfind("tavrel: unknown root type '" + std::string(type) +
                                       "'; the nearest known name is '",
                                   0),
                  0U)
            << result.err;
    }
}

TEST(ToolBadInput, IsAnUnknownClassOfStoresOrLocks) {
    const struct {
        const char* before;
        const char* after;
        int line;
        const char* reason;
    } slips[] = {
        {"tavrel.res.type = BMCRelationalDB", "tavrel.res.type = Bmc", 17,
         "tavrel.res.type: unknown class 'Bmc'; the nearest known name is 'BMCRelationalDB'"},
        {"tavrel.res.type = BMCRelationalDB", "tavrel.res.type = NameResolver", 17,
         "tavrel.res.type: unknown class 'NameResolver'; the nearest known name is 'VolatileDB'"},
        {"tavrel.res.name = tavrel.db", "tavrel.lock.provider = Foo", 18,
         "tavrel.lock.provider: unknown class 'Foo'; the nearest known name is 'SemLockProvider'"},
        {"tavrel.res.name = tavrel.db", "tavrel.lock.provider = TreePathProvider", 18,
         "tavrel.lock.provider: unknown class 'TreePathProvider'; the nearest known name is "
         "'TreePathLockProvider'"},
        {"tavrel.res.type = BMCRelationalDB", "tavrel.res.type = SemLockProvider", 17,
         "tavrel.res.type: unknown class 'SemLockProvider'; the nearest known name is 'VolatileDB'"}};
    for (const auto& slip : slips) {
        const Sample sample;
        sample.edit("chassis.properties", slip.before, slip.after);

        const Result result = tool({"start"});

        EXPECT_EQ(result.code, 1) << slip.after;
        EXPECT_EQ(result.err, "tavrel: " + sample.path("chassis.properties") + ":" +
                                  std::to_string(slip.line) + ": " + slip.reason + "\n");
    }
}

TEST(ToolBadInput, IsACacheThatCannotBeWritten) {
    const Sample sample;
    ASSERT_EQ(tool({"start"}).code, 0);
    std::string cache;
    for (const auto& entry : std::filesystem::directory_iterator("/tmp")) {
        if (entry.path().string().find("cache.of.") != std::string::npos) {
            cache = entry.path();
        }
    }
    std::filesystem::remove(cache);
    std::filesystem::create_directory(cache);

    const Result result = tool({"start"});

    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.err, "tavrel: the specification cache in /tmp cannot be written and read back\n");
}
