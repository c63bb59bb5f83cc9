#include "Running.h"

#include <gtest/gtest.h>

using namespace tavrel::test;

namespace {

const std::string slot = "/Chassis#0/SystemBoard#1/Slot#2";

/// Waits until a process has asked for the write lock of a component.
void awaitLockAsked(pid_t process) {
    const std::string record = std::to_string(process) + " debug  Component: writeLock asked";
    for (int tries = 0; tries < 3000; ++tries) {
        if (run({TAVREL_TOOL, "trace"}).out.find(record) != std::string::npos) {
            return;
        }
    }
    ADD_FAILURE() << "process " << process << " asks for no lock";
}

} // namespace

TEST(ToolShape, AddsAComponentAndRemovesIt) {
    const Sample sample;

    const Result added = tool({"add", slot, "Card"});
    const Result tree = tool({"tree", slot});
    const Result removed = tool({"remove", slot + "/Card#0"});

    EXPECT_EQ(added.code, 0) << added.err;
    EXPECT_EQ(added.out, "added " + slot + "/Card#0 (id 54)\n");
    EXPECT_NE(tree.out.find("└── Card#0  id 54  type 10  [Hotplug, Removable]"), std::string::npos)
        << tree.out;
    EXPECT_EQ(removed.code, 0) << removed.err;
    EXPECT_EQ(removed.out, "removed " + slot + "/Card#0, 1 component\n");
    EXPECT_EQ(tool({"tree", slot}).out.find("Card"), std::string::npos);
}

TEST(ToolShape, AddsAndRemovesWholeSubtrees) {
    const Sample sample;

    const Result added = tool({"add", "/Chassis#0", "SystemBoard"});
    const Result removed = tool({"remove", "/Chassis#0/SystemBoard#2"});

    EXPECT_EQ(added.out, "added /Chassis#0/SystemBoard#2 (id 54)\n") << added.err;
    EXPECT_EQ(removed.out, "removed /Chassis#0/SystemBoard#2, 18 components\n") << removed.err;
    EXPECT_NE(tool({"start"}).out.find("\n  54 components\n"), std::string::npos);
}

TEST(ToolShape, RefusesTheRoot) {
    const StartedSample sample;

    const Result result = tool({"remove", "/"});

    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.err, "tavrel: the root cannot be removed\n");
}

TEST(ToolShape, RefusesToRemoveWhereAComponentIsOnlyShared) {
    const Sample sample;
    ASSERT_EQ(tool({"do", "/", "Connect"}).code, 0);

    const Result result = tool({"remove", "/Chassis#0/SystemBoard#0/FanTray#0"});

    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.err,
              "tavrel: '/Chassis#0/SystemBoard#0/FanTray#0' is only shared there; its own path is "
              "/Chassis#0/FanTray#0\n");
    EXPECT_EQ(tool({"tree", "/Chassis#0/FanTray#0"}).code, 0);
}

TEST(ToolShape, CutsTheLinksOfThoseWhoShareWhatGoes) {
    const Sample sample;
    ASSERT_EQ(tool({"do", "/", "Connect"}).code, 0);

    const Result result = tool({"remove", "/Chassis#0/FanTray#0"});

    EXPECT_EQ(result.out, "removed /Chassis#0/FanTray#0, 9 components; 2 shared links cut\n") << result.err;
    EXPECT_EQ(tool({"tree"}).out.find("FanTray"), std::string::npos);
    EXPECT_NE(tool({"tree"}).out.find("shares /Chassis#0/PowerSupply#0"), std::string::npos);
}

TEST(ToolShape, AddsNothingWhenThereIsNoRoomForAll) {
    const StartedSample sample;
    sample.edit("chassis.properties", "tavrel.compo.max = 256", "tavrel.compo.max = 60");

    const Result tooMany = tool({"add", "/Chassis#0", "SystemBoard"});
    const Result enough = tool({"add", "/Chassis#0/SystemBoard#0", "Processor"});

    EXPECT_EQ(tooMany.code, 1);
    EXPECT_EQ(tooMany.err,
              "tavrel: the tree is full: 18 components are needed, 6 of tavrel.compo.max = 60 are free\n");
    EXPECT_EQ(enough.code, 0) << "6 components are needed: " << enough.err;
    EXPECT_NE(tool({"start"}).out.find("\n  60 components\n"), std::string::npos);
    EXPECT_NE(tool({"add", slot, "Card"}).err.find("0 of tavrel.compo.max"), std::string::npos);
    EXPECT_EQ(tool({"remove", "/Chassis#0/SystemBoard#0/Processor#2"}).code, 0);
    EXPECT_EQ(tool({"add", slot, "Card"}).code, 0) << "what has become free is used again";
}

TEST(ToolShape, NamesTheNearestType) {
    const StartedSample sample;

    const Result result = tool({"add", slot, "card"});

    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.err, "tavrel: unknown type 'card'; the nearest known name is 'Card'\n");
    EXPECT_EQ(tool({"remove", "/Chassis#0/FanTry#0"}).err,
              "tavrel: unknown type 'FanTry'; the nearest known name is 'FanTray'\n");
}

TEST(ToolShape, TakesNoFeatureForAType) {
    const Sample sample;

    EXPECT_EQ(tool({"add", slot, "Hotplug"}).code, 1);
    EXPECT_EQ(tool({"add", slot, "NullComponent"}).code, 1);
}

TEST(ToolShape, SaysThatAComponentWasRemovedMeanwhile) {
    const StartedSample sample;
    ASSERT_EQ(tool({"add", slot, "Card"}).code, 0);
    Running holder({CHASSIS_CLIENT, "chassis.properties", "chassis.names", "hold", slot});
    holder.hear("holds");
    const Words remove = toolWords({"remove", slot + "/Card#0"});
    Running one(remove, {"QZ_TRACE_LEVEL=debug"});
    Running other(remove, {"QZ_TRACE_LEVEL=debug"});
    awaitLockAsked(one.pid());
    awaitLockAsked(other.pid());

    holder.wait();
    const Result results[] = {one.wait(), other.wait()};

    EXPECT_EQ(results[0].code + results[1].code, 1) << "one of them is too late";
    EXPECT_EQ(results[0].err + results[1].err, "tavrel: '" + slot + "/Card#0' was removed meanwhile\n");
}
