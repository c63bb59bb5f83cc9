#include "Running.h"

#include <gtest/gtest.h>

#include <csignal>

using namespace tavrel::test;

namespace {

Words clientWords(const Words& words) {
    Words all = {CHASSIS_CLIENT, "chassis.properties", "chassis.names"};
    all.insert(all.end(), words.begin(), words.end());
    return all;
}

} // namespace

TEST(SampleClient, PowersTheMachineOn) {
    const Sample sample;
    ASSERT_EQ(tool({"set", "/Chassis#0/FanTray#0/Fan#3", "Speed", "900"}).code, 0);

    const Result result = run(clientWords({"power-on"}));

    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_NE(result.out.find("/Chassis#0/FanTray#0/Fan#3 turns at 900 rpm\n"), std::string::npos)
        << result.out;
    EXPECT_EQ(tool({"get", "/Chassis#0", "PowerState"}).out, "0x00000001 1\n");
}

TEST(SampleClient, FindsOutThatItsComponentIsGone) {
    const Sample sample;
    const std::string processor = "/Chassis#0/SystemBoard#0/Processor#1";
    Running client(clientWords({"keep", processor + "/MemoryModule#3"}));
    client.hear("keeps");
    client.tell("");
    client.hear("still there: " + processor + "/MemoryModule#3, number 3");

    ASSERT_EQ(tool({"remove", processor + "/MemoryModule#3"}).code, 0);
    ASSERT_EQ(tool({"add", processor, "MemoryModule"}).code, 0);

    client.tell("");
    EXPECT_NE(client.hear("refused").find("evaluate() revision mismatched."), std::string::npos);
    EXPECT_EQ(client.hear("nearest"), "nearest living ancestor: " + processor);
    client.tell("");
    EXPECT_NE(client.hear("refused").find("evaluate() unavailable accessor."), std::string::npos);
    EXPECT_EQ(client.wait().code, 0);
}

TEST(SampleClient, StopsNobodyWhenItIsKilledWithALock) {
    const StartedSample sample; // so that the watching process does not wait for the root to build a tree
    Running holder(clientWords({"hold", "/Chassis#0/SystemBoard#0"}));
    Running watch(toolWords({"watch", "--interval", "10"})); // keeps the table of locks in use
    holder.hear("holds");
    watch.hear("watching");

    holder.signal(SIGKILL);
    EXPECT_EQ(holder.wait().code, -SIGKILL);

    EXPECT_EQ(tool({"set", "/Chassis#0/SystemBoard#0", "BootCount", "7"}).code, 0);
    watch.hear("BootCount 0x00000000 0 -> 0x00000007 7");
}

TEST(SampleClient, SaysHowItIsUsed) {
    for (const Words& words : std::vector<Words>{{}, {"dance"}, {"hold"}, {"power-on", "/Chassis#0"}}) {
        const Result result = run(clientWords(words));

        EXPECT_EQ(result.code, 2);
        EXPECT_EQ(result.err.rfind("usage: chassis-client", 0), 0U);
    }
}

TEST(SampleClient, SaysWhyItFails) {
    const Sample sample;

    EXPECT_EQ(run({CHASSIS_CLIENT, "missing", "chassis.names", "power-on"}).err,
              "chassis-client: 'missing' cannot be read\n");
    EXPECT_EQ(run({CHASSIS_CLIENT, "chassis.properties", "chassis.csv", "power-on"}).err,
              "chassis-client: the names file '" + sample.path("chassis.csv") +
                  "' cannot be read or ends early\n");
    const Result missing = run(clientWords({"hold", "/Chassis#0/Fan#9"}));
    EXPECT_EQ(missing.code, 1);
    EXPECT_EQ(missing.err, "chassis-client: '/Chassis#0/Fan#9' is not in the tree\n");
}
