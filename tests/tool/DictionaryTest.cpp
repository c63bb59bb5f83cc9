#include "Running.h"

#include <gtest/gtest.h>

using namespace tavrel::test;

namespace {

const Words tracingAll = {"QZ_TRACE_LEVEL=debug2"};

/// True if any process has added a name to its dictionary.
bool nameWasAdded() {
    return run({TAVREL_TOOL, "trace"}).out.find("component type added") != std::string::npos;
}

} // namespace

TEST(ToolDictionary, GetsNothingFromATypo) {
    const Sample sample;

    for (const Words& words : std::vector<Words>{{"tree", "/Chassis#0/FanTry#0"},
                                                 {"get", "/Chasis#0", "PowerState"},
                                                 {"get", "/Chassis#0", "PowerStat"},
                                                 {"set", "/Chassis#0/Fann#0", "Speed", "1"},
                                                 {"do", "/Chassis#0", "PowerUp"},
                                                 {"add", "/Chassis#0", "Bord"},
                                                 {"remove", "/Chassis#0/Bord#0"},
                                                 {"watch", "/Chassis#0/Bord#0"}}) {
        const Result result = tool(words, tracingAll);

        EXPECT_EQ(result.code, 1) << words[0];
        EXPECT_NE(result.err.find("; the nearest known name is '"), std::string::npos) << result.err;
    }
    EXPECT_FALSE(nameWasAdded());
}

// What the test above looks for can be seen: a client that hands any text to `TreePath` does add a name.
TEST(ToolDictionary, WouldShowAnAddedName) {
    const Sample sample;

    const Result client =
        run({CHASSIS_CLIENT, "chassis.properties", "chassis.names", "keep", "/Chassis#0/Bord#0"}, tracingAll);

    EXPECT_EQ(client.code, 1);
    EXPECT_TRUE(nameWasAdded());
}

TEST(ToolDictionary, GetsNothingFromATypoInTheSpecification) {
    const Sample sample;
    sample.edit("chassis.csv", ",FanTray,1", ",FanTry,1");

    const Result result = tool({"start"}, tracingAll);

    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(run({TAVREL_TOOL, "trace"}).code, 1) << "nothing was started, so nothing was traced";
}
