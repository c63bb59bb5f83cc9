#include "Running.h"

#include <gtest/gtest.h>

using namespace tavrel::test;

namespace {

const std::string fan = "/Chassis#0/FanTray#0/Fan#2";

} // namespace

TEST(ToolProperty, StoresAndShowsNumbers) {
    const Sample sample;

    const Result set = tool({"set", fan, "Speed", "4321"});
    const Result get = tool({"get", fan, "Speed"});

    EXPECT_EQ(set.code, 0) << set.err;
    EXPECT_EQ(set.out, fan + " Speed 0x0000 0 -> 0x10e1 4321\n");
    EXPECT_EQ(get.code, 0);
    EXPECT_EQ(get.out, "0x10e1 4321\n");
}

TEST(ToolProperty, TakesValuesInEachForm) {
    const Sample sample;
    const struct {
        const char* typed;
        const char* shown;
    } cases[] = {{"0x10", "0x0010 16\n"},     {"0xABC", "0x0abc 2748\n"},  {"0x0000FFFF", "0xffff 65535\n"},
                 {"65535", "0xffff 65535\n"}, {"-1", "0xffff 65535\n"},    {"-32768", "0x8000 32768\n"},
                 {"0", "0x0000 0\n"},         {"text:A", "0x4100 16640\n"}};

    for (const auto& [typed, shown] : cases) {
        EXPECT_EQ(tool({"set", fan, "Speed", typed}).code, 0) << typed;
        EXPECT_EQ(tool({"get", fan, "Speed"}).out, shown) << typed;
    }
}

TEST(ToolProperty, RefusesAValueThatDoesNotFit) {
    const Sample sample;
    ASSERT_EQ(tool({"set", fan, "Speed", "5"}).code, 0);

    for (const char* value : {"65536", "0x10000", "-32769", "text:abc", "99999999999999999999999999",
                              "-99999999999999999999", "0xFFFFFFFFFFFFFFFFFFFFFFFFFF"}) {
        const Result result = tool({"set", fan, "Speed", value});

        EXPECT_EQ(result.code, 1) << value;
        EXPECT_NE(result.err.find("does not fit into 2 bytes"), std::string::npos) << result.err;
    }
    EXPECT_EQ(tool({"get", fan, "Speed"}).out, "0x0005 5\n");
}

TEST(ToolProperty, AnswersWhatIsNoValueWithTwo) {
    const Sample sample;

    for (const char* value : {"fast", "12rpm", "0x", "0xZZ", "", "1.5"}) {
        EXPECT_EQ(tool({"set", fan, "Speed", value}).code, 2) << value;
    }
}

TEST(ToolProperty, ReachesKeysThatAreHidden) {
    const Sample sample;

    EXPECT_EQ(tool({"set", "/Chassis#0", "SerialNumber", "text:SN-7"}).code, 0);
    EXPECT_EQ(tool({"get", "/Chassis#0", "SerialNumber"}).out,
              "0x534e2d37000000000000000000000000 \"SN-7\"\n");
}

TEST(ToolProperty, NamesTheNearestPropertyOfTheComponent) {
    const StartedSample sample;

    const Result misspelled = tool({"get", fan, "speed"});
    const Result elsewhere = tool({"set", fan, "BootMode", "1"});

    EXPECT_EQ(misspelled.code, 1);
    EXPECT_EQ(misspelled.err, "tavrel: " + fan +
                                  " has no such property: unknown property 'speed'; the nearest known name "
                                  "is 'Speed'\n");
    EXPECT_EQ(elsewhere.code, 1);
    EXPECT_EQ(elsewhere.err, "tavrel: " + fan + ": Fan has no BootMode\n");
}

TEST(ToolProperty, WritesTheStoreThatTheRedirectionNames) {
    const Sample sample;
    ASSERT_EQ(tool({"start"}).code, 0);
    const std::string before = content("/conf/qz/db/setup.db");

    ASSERT_EQ(tool({"set", "/Chassis#0/SystemBoard#1", "BootMode", "9"}).code, 0);

    EXPECT_EQ(content("/conf/qz/db/setup.db"), before);
    EXPECT_EQ(tool({"get", "/Chassis#0/SystemBoard#1", "BootMode"}).out, "0x00000009 9\n");
    EXPECT_EQ(tool({"get", "/Chassis#0/SystemBoard#0", "BootMode"}).out, "0x00000000 0\n");
}

TEST(ToolProperty, WaitsForTheWriteLockOfAnother) {
    const Sample sample;
    Running holder({CHASSIS_CLIENT, "chassis.properties", "chassis.names", "hold", "/Chassis#0/FanTray#0"});
    holder.hear("holds");

    Running setting(toolWords({"set", fan, "Speed", "77"}));
    const std::string elsewhere = tool({"set", "/Chassis#0/SystemBoard#0", "BootCount", "1"}).out;
    const std::string meanwhile = tool({"get", fan, "Speed"}).out;
    holder.wait();

    EXPECT_NE(elsewhere, "") << "another subtree is free";
    EXPECT_EQ(meanwhile, "0x0000 0\n");
    EXPECT_EQ(setting.wait().code, 0);
    EXPECT_EQ(tool({"get", fan, "Speed"}).out, "0x004d 77\n");
}
