#include "Running.h"

#include <gtest/gtest.h>

using namespace tavrel::test;

TEST(ToolAction, RunsAnActionOfTheMachine) {
    const Sample sample;

    const Result result = tool({"do", "/Chassis#0", "PowerOn"});

    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_EQ(result.out, "/Chassis#0 PowerOn done\n");
    EXPECT_EQ(tool({"get", "/Chassis#0", "PowerState"}).out, "0x00000001 1\n");
}

TEST(ToolAction, ShowsWhatTheActionAnswers) {
    const Sample sample;
    ASSERT_EQ(tool({"set", "/Chassis#0/SystemBoard#1", "SerialNumber", "text:SB-9"}).code, 0);

    const Result result = tool({"do", "/Chassis#0/SystemBoard#1", "Identify", "--out", "64"});

    EXPECT_EQ(result.out,
              "/Chassis#0/SystemBoard#1 Identify done\n\"/Chassis#0/SystemBoard#1 serial number 'SB-9'\"\n");
}

TEST(ToolAction, CutsTheAnswerToTheRoomForIt) {
    const Sample sample;

    EXPECT_EQ(tool({"do", "/Chassis#0", "Identify", "--out", "5"}).out,
              "/Chassis#0 Identify done\n\"/Cha\"\n");
}

TEST(ToolAction, RunsTheGenericActionOfEveryType) {
    const Sample sample;
    const std::string module = "/Chassis#0/SystemBoard#0/Processor#0/MemoryModule#2";
    ASSERT_EQ(tool({"set", module, "ErrorCount", "12"}).code, 0);

    ASSERT_EQ(tool({"do", module, "ClearErrors"}).code, 0);

    EXPECT_EQ(tool({"get", module, "ErrorCount"}).out, "0x00000000 0\n");
}

TEST(ToolAction, RunsAControlOfTheLibrary) {
    const Sample sample;
    sample.edit("chassis-actions.csv", "action,LinkShared,SystemBoard,PowerSupply",
                "action,ControlTarget,Identify,Redundant");

    const Result result = tool({"do", "/Chassis#0", "Connect", "--out", "64"});

    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_EQ(result.out,
              "/Chassis#0 Connect done\n\"/Chassis#0/PowerSupply#1 serial number ''\"\n"); // the last one's
}

TEST(ToolAction, RunsTheGeneralActionsOfTheLibrary) {
    const Sample sample;
    sample.edit("chassis-actions.csv", "action,SetProperty,PowerState,1",
                "action,PrintMessage,linked\n,Sleep,1\n,ShareComponent,FanTray,-1,SystemBoard,0,1\n"
                ",AddComponent,SystemBoard,1,PowerSupply,0,1");

    const Result result = tool({"do", "/Chassis#0", "PowerOn"});

    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_EQ(result.out, "linked,\n/Chassis#0 PowerOn done\n");
    const std::string tree = tool({"tree"}).out;
    EXPECT_NE(tree.find("shares /Chassis#0/FanTray#0"), std::string::npos) << tree;
    EXPECT_NE(tree.find("shares /Chassis#0/PowerSupply#0"), std::string::npos) << tree;
}

TEST(ToolAction, LinksSharedComponentsOnce) {
    const Sample sample;

    ASSERT_EQ(tool({"do", "/", "Connect"}).code, 0);
    const std::string once = tool({"tree"}).out;
    ASSERT_EQ(tool({"do", "/", "Connect"}).code, 0);

    EXPECT_NE(once.find("shares /Chassis#0/FanTray#0"), std::string::npos);
    EXPECT_EQ(tool({"tree"}).out, once);
}

TEST(ToolAction, NamesTheNearestActionOfTheComponent) {
    const StartedSample sample;

    const Result result = tool({"do", "/Chassis#0", "PowerOf"});

    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.err,
              "tavrel: /Chassis#0 has no such action: unknown action 'PowerOf'; the nearest known name is "
              "'PowerOff'\n");
    EXPECT_EQ(tool({"do", "/Chassis#0/FanTray#0", "PowerOn"}).err,
              "tavrel: /Chassis#0/FanTray#0: FanTray has no PowerOn\n");
}

TEST(ToolAction, TellsWhyAnActionFailed) {
    const StartedSample sample;
    sample.edit("chassis-actions.csv", "SetProperty,PowerState,1", "SetProperty,BootMode,1");

    const Result result = tool({"do", "/Chassis#0", "PowerOn"});

    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.err, "tavrel: PowerOn of /Chassis#0: SetProperty: BootMode was not stored\n");
}

TEST(ToolAction, RefusesARowThatItsClassCannotUse) {
    const struct {
        const char* before;
        const char* after;
        const char* reason;
    } rows[] = {
        {"SetProperty,PowerState,1", "SetProperty,PowrState,1", "SetProperty: unknown property 'PowrState'"},
        {"SetProperty,PowerState,1", "SetProperty,PowerState", "SetProperty: the number is missing"},
        {"SetProperty,PowerState,1", "SetProperty,,1", "SetProperty: the property is missing"},
        {"SetProperty,PowerState,1", "SetProperty,PowerState,on", "SetProperty: 'on' is no number"},
        {"LinkShared,SystemBoard,FanTray", "LinkShared,SystemBord,FanTray",
         "LinkShared: unknown type 'SystemBord'"},
        {"LinkShared,SystemBoard,FanTray", "LinkShared,SystemBoard",
         "LinkShared: the type to share is missing"},
        {"Identify,SerialNumber", "Identify,SerialNumbr", "Identify: unknown property 'SerialNumbr'"},
        {"Identify,SerialNumber", "Identify,", "Identify: the property is missing"}};
    for (const auto& row : rows) {
        const Sample sample;
        sample.edit("chassis-actions.csv", row.before, row.after);

        const Result result = tool({"start"});

        EXPECT_EQ(result.code, 1) << row.after;
        EXPECT_EQ(result.err, std::string("tavrel: the tree cannot be started: ") + row.reason + '\n');
    }
}

TEST(ToolAction, WorksWithoutTheMachinesClassesButForTheirActions) {
    const StartedSample sample;
    const Words start = {TAVREL_TOOL, "-c", "chassis.properties"};
    auto plain = [&](const Words& more) {
        Words words = start;
        words.insert(words.end(), more.begin(), more.end());
        return run(words);
    };

    const Result action = plain({"do", "/Chassis#0", "PowerOn"});

    EXPECT_EQ(action.code, 1);
    EXPECT_EQ(action.err,
              "tavrel: PowerOn of /Chassis#0: the action is of class 'SetProperty', which this tool does not "
              "have; name the library that has it with --classes\n");
    EXPECT_EQ(plain({"get", "/Chassis#0", "PowerState"}).out, "0x00000000 0\n");
}

TEST(ToolAction, AnswersInputThatIsNotHexWithTwo) {
    const StartedSample sample;

    const Result result = tool({"do", "/Chassis#0", "PowerOn", "--in", "on"});

    EXPECT_EQ(result.code, 2);
    EXPECT_EQ(result.err, "tavrel: 'on' is not hexadecimal: it must be 0x and digits\n");
    EXPECT_EQ(tool({"get", "/Chassis#0", "PowerState"}).out, "0x00000000 0\n");
}

TEST(ToolAction, RefusesALibraryWithoutClasses) {
    const Sample sample;

    const Result missing = run({TAVREL_TOOL, "-c", "chassis.properties", "--classes", "nothing.so", "start"});
    const Result other = run({TAVREL_TOOL, "-c", "chassis.properties", "--classes", "libc.so.6", "start"});

    EXPECT_EQ(missing.code, 1);
    EXPECT_EQ(missing.err.rfind("tavrel: the classes cannot be loaded: ", 0), 0U) << missing.err;
    EXPECT_EQ(other.code, 1);
    EXPECT_EQ(other.err.rfind("tavrel: the classes cannot be loaded: ", 0), 0U)
        << "not one of the system's libraries";
}
