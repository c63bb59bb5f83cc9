#include "Running.h"

#include <gtest/gtest.h>

#include <csignal>

using namespace tavrel::test;

namespace {

const std::string tray = "/Chassis#0/FanTray#0";
const std::string slot = "/Chassis#0/SystemBoard#0/Slot#1";

/// What a line says behind its time.
std::string said(const std::string& line) {
    const std::size_t blank = line.find(' ');
    return blank == std::string::npos ? line : line.substr(blank + 1);
}

} // namespace

TEST(ToolWatch, SeesWhatAnotherProcessSets) {
    const Sample sample;
    Running watch(toolWords({"watch", tray, "--interval", "10"}));
    EXPECT_EQ(watch.hear("watching"), "watching 9 components from " + tray + "; interrupt to end");

    ASSERT_EQ(tool({"set", tray + "/Fan#1", "Speed", "4321"}).code, 0);

    EXPECT_EQ(said(watch.hear("Speed")), "= " + tray + "/Fan#1 Speed 0x0000 0 -> 0x10e1 4321");
    watch.signal(SIGINT);
    EXPECT_EQ(watch.wait().code, 0);
}

TEST(ToolWatch, SeesWhatComesAndGoes) {
    const Sample sample;
    Running watch(toolWords({"watch", "--interval", "10"}));
    watch.hear("watching 54 components from /;");

    ASSERT_EQ(tool({"add", slot, "Card"}).code, 0);
    EXPECT_EQ(said(watch.hear("Card")), "+ " + slot + "/Card#0 (id 54)");
    ASSERT_EQ(tool({"remove", slot + "/Card#0"}).code, 0);
    EXPECT_EQ(said(watch.hear("Card")), "- " + slot + "/Card#0 (id 54)");
    ASSERT_EQ(tool({"do", "/", "Connect"}).code, 0);
    EXPECT_EQ(said(watch.hear("SystemBoard#1 shares " + tray)), "+ /Chassis#0/SystemBoard#1 shares " + tray);

    watch.signal(SIGTERM);
    EXPECT_EQ(watch.wait().code, 0);
}

TEST(ToolWatch, GoesOnWhenWhatItWatchesGoesAndComesBack) {
    const Sample sample;
    ASSERT_EQ(tool({"add", slot, "Card"}).code, 0);
    Running watch(toolWords({"watch", slot + "/Card#0", "--interval", "10"}));
    watch.hear("watching 1 component from");

    ASSERT_EQ(tool({"remove", slot + "/Card#0"}).code, 0);
    EXPECT_EQ(said(watch.hear("- ")), "- " + slot + "/Card#0 (id 54)");
    ASSERT_EQ(tool({"add", slot, "Card"}).code, 0);
    EXPECT_EQ(said(watch.hear("+ ")).rfind("+ " + slot + "/Card#0 (id ", 0), 0U);

    watch.signal(SIGINT);
    EXPECT_EQ(watch.wait().code, 0);
}

TEST(ToolWatch, RefusesWhatIsNotThere) {
    const StartedSample sample;

    const Result result = tool({"watch", "/Chassis#1"});

    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.err, "tavrel: '/Chassis#1' is not in the tree: the root is /Chassis#0\n");
}
