#include "Running.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

using namespace tavrel::test;

namespace {

/// The specification cache of the sample machine.
std::string cachePath() {
    for (const auto& entry : std::filesystem::directory_iterator("/tmp")) {
        if (entry.path().string().find("cache.of.") != std::string::npos) {
            return entry.path();
        }
    }
    ADD_FAILURE() << "no cache";
    return "";
}

} // namespace

/// A machine whose cache was written with `chassis.names`, and "other.names" beside it.
class ToolOtherNumbers : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(tool({"start"}).code, 0);
        std::filesystem::copy_file("chassis.names", "other.names");
    }

    static void expectRefusal(const Words& command, const std::string& difference) {
        Words words = {"-n", "other.names"};
        words.insert(words.end(), command.begin(), command.end());

        const Result result = tool(words);

        EXPECT_EQ(result.code, 1);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err,
                  "tavrel: the specification cache '" + cachePath() + "' has " + difference +
                      ": it was written with other numbers or from other rows; use the names file of "
                      "the other processes, or remove the cache\n");
    }

    const Sample sample;
};

TEST_F(ToolOtherNumbers, OfPropertiesAreRefused) {
    sample.edit("other.names", "PartNumber\n16\nSerialNumber\n17\n", "PartNumber\n17\nSerialNumber\n16\n");

    const std::string difference = "16 for the property 'PartNumber' of 'Chassis' where 'other.names' has 17";
    expectRefusal({"set", "/Chassis#0", "SerialNumber", "text:wrong"}, difference);
    expectRefusal({"get", "/Chassis#0", "SerialNumber"}, difference);
    expectRefusal({"start"}, difference);

    EXPECT_EQ(tool({"get", "/Chassis#0", "PartNumber"}).out.find("wrong"), std::string::npos);
}

TEST_F(ToolOtherNumbers, OfTypesAreRefused) {
    sample.edit("other.names", "Fan\n7\n", "Fan\n70\n");

    expectRefusal({"tree"}, "7 for the type 'Fan' where 'other.names' has 70");
}

TEST_F(ToolOtherNumbers, OfActionsAreRefused) {
    sample.edit("other.names", "PowerOn\n1\nPowerOff\n2\n", "PowerOff\n1\nPowerOn\n2\n");

    expectRefusal({"do", "/Chassis#0", "PowerOn"}, "1 for the action 'PowerOn' where 'other.names' has 2");
}

TEST_F(ToolOtherNumbers, OfFeaturesAreRefused) {
    sample.edit("other.names", "Removable\n102\n", "Removable\n105\n");

    expectRefusal({"tree"}, "102 for the feature 'Removable' where 'other.names' has 105");
}

TEST_F(ToolOtherNumbers, AreThoseOfTheNextCacheWhenThisOneIsGone) {
    sample.edit("other.names", "Reading\n270\n", "Reading\n271\n");
    std::filesystem::remove(cachePath());

    const Result result = tool({"-n", "other.names", "start"});
    const Result usual = tool({"start"});

    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_EQ(usual.code, 1) << "the cache has the other numbers now";
}

TEST_F(ToolOtherNumbers, AreNoneInTheSameNamesElsewhere) {
    const Result result = tool({"-n", "other.names", "tree"});

    EXPECT_EQ(result.code, 0) << result.err;
}
