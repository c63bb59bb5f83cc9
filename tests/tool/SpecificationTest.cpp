#include "Running.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

using namespace tavrel::test;

namespace {

struct Slip {
    const char* file;
    const char* before;
    const char* after;
    const char* marker; ///< text of the line that the reason names
    const char* reason;
};

void PrintTo(const Slip& slip, std::ostream* out) {
    *out << slip.file;
}

void expectRefusal(const Slip& slip) {
    const Sample sample;
    sample.edit(slip.file, slip.before, slip.after);
    const bool beside = std::string(slip.file) != "parts.csv"; // an include is named as the row has it
    const std::string place = (beside ? sample.path(slip.file) : slip.file) + ":" +
                              std::to_string(sample.lineOf(slip.file, slip.marker)) + ": ";

    const Result result = tool({"start"});

    EXPECT_EQ(result.code, 1) << slip.after;
    EXPECT_EQ(result.err, "tavrel: " + place + slip.reason + "\n");
    EXPECT_EQ(result.out, "");
    EXPECT_FALSE(std::filesystem::exists("/var/nvrdisk/current/db/current.db")) << "nothing was started";
}

} // namespace

class ToolSpecification : public testing::TestWithParam<Slip> {};

TEST_P(ToolSpecification, IsRefusedWithFileAndLine) {
    expectRefusal(GetParam());
}

INSTANTIATE_TEST_SUITE_P(
    Components, ToolSpecification,
    testing::Values(
        Slip{"chassis.csv", ",FanTray,1", ",FanTry,1", "FanTry",
             "unknown type 'FanTry'; the nearest known name is 'FanTray' in the names file"},
        Slip{"chassis.csv", "\nProcessor\n", "\nProcesor\n", "Procesor",
             "unknown type 'Procesor'; the nearest known name is 'Processor' in the names file"},
        Slip{"chassis.csv", "PowerPolicy,4", "PowerPolcy,4", "PowerPolcy",
             "unknown property 'PowerPolcy'; the nearest known name is 'PowerPolicy' in the names file"},
        Slip{"chassis.csv", ",Connect\n", ",Conect\n", "Conect",
             "unknown action 'Conect'; the nearest known name is 'Connect' in the names file"},
        Slip{"parts.csv", "feature,Hotplug\n", "feature,Hotplug,\n", "feature,Hotplug,",
             "an empty feature name"},
        Slip{"parts.csv", "feature,Hotplug\n", "feature,Hotplg\n", "Hotplg",
             "unknown feature 'Hotplg'; the nearest known name is 'Hotplug' in the names file"},
        Slip{"chassis.csv", "property,FRU,PartNumber,16\n,FRU", "property,FRU,PartNumber\n,FRU",
             "property,FRU,PartNumber", "a property needs a store, a name and a size"},
        Slip{"chassis.csv", "BootMode,4", "BootMode,four", "four",
             "the size of 'BootMode' is 'four': it must be a number above 0"},
        Slip{"chassis.csv", ",SETUP,BootMode,4", ",SETUP,BootMode,32768", "BootMode,32768",
             "the size of 'BootMode' is 32768: at most 32704 bytes can be stored in 'SETUP'"},
        Slip{"chassis.csv", ",tavrel.db,BootCount,4", ",tavrel.db,BootCount,2000000000",
             "BootCount,2000000000",
             "the size of 'BootCount' is 2000000000: at most 1048576 bytes can be stored in 'tavrel.db'"},
        Slip{"chassis.csv", ",SETUP,BootMode", ",,BootMode", ",,BootMode",
             "the property 'BootMode' names no store"},
        Slip{"chassis.csv", "SystemBoard,2", "SystemBoard,two", "two",
             "the count of 'SystemBoard' is 'two': it must be a number from 0 to 65535"},
        Slip{"chassis.csv", "SystemBoard,2", "SystemBoard", "component,SystemBoard",
             "a component needs a type and a count"},
        Slip{"chassis.csv", "component,Card,0", "componet,Card,0", "componet",
             "unknown subsection 'componet'; the nearest known name is 'component'; a new section needs a "
             "blank row before "
             "it"},
        Slip{"chassis.csv", "component,Card,0", "property,tavrel.db,Capacity,4",
             "property,tavrel.db,Capacity", "'Slot' has 'property' a second time: only the first one counts"},
        Slip{"chassis.csv", ",PowerSupply,2", "# one, two\n,PowerSupply,2", ",PowerSupply,2",
             "the row is cut off from 'component' by a comment that holds a comma (and 1 more problem)"},
        Slip{"chassis.csv", "include,parts.csv", "include,parts.csv\n,SETUP,BootMode,4", ",SETUP,BootMode",
             "the row stands behind an include and belongs to nothing"},
        Slip{"chassis.csv", "include,parts.csv", "include,part.csv", "part.csv",
             "the include 'part.csv' cannot be read; a relative path is taken from the working directory"}));

INSTANTIATE_TEST_SUITE_P(
    ActionsAndStores, ToolSpecification,
    testing::Values(
        Slip{"chassis-actions.csv", "Chassis::PowerOn", "Chasis::PowerOn",
             "Chasis::", "unknown type 'Chasis'; the nearest known name is 'Chassis' in the names file"},
        Slip{"chassis-actions.csv", "::Identify", "::Identfy", "::Identfy",
             "unknown action 'Identfy'; the nearest known name is 'Identify' in the names file"},
        Slip{"chassis-actions.csv", "::Identify", "Identify:", "Identify:",
             "'Identify:' is no section: it must be a type, '::' and an action, or '::' and an action"},
        Slip{"chassis-actions.csv", "action,Identify", "action,,Identify", "action,,",
             "the row names no class"},
        Slip{"chassis-actions.csv", "SetProperty,PowerState,0", "SetPropety,PowerState,0", "SetPropety",
             "unknown action class 'SetPropety'; the nearest known name is 'SetProperty' in the library of "
             "--classes"},
        Slip{"chassis-actions.csv", "SetProperty,PowerState,0", "Initializer,PowerState,0", "Initializer",
             "unknown action class 'Initializer'; the nearest known name is 'LinkShared' in the library of "
             "--classes"},
        Slip{"chassis-stores.properties", "SystemBoard#1", "SystemBord#1", "SystemBord",
             "unknown type 'SystemBord'; the nearest known name is 'SystemBoard'"},
        Slip{"chassis-stores.properties", "#1.SETUP", "#1", "#1",
             "'/Chassis#0/SystemBoard#1' is no redirection: it must be a path, '.', a store, '=', a store"},
        Slip{"chassis-stores.properties", "= FRU", "", "#1.SETUP",
             "'/Chassis#0/SystemBoard#1.SETUP' has no key with a '=' "
             "behind it"}));

TEST(ToolSpecification, CountsWhatElseIsWrong) {
    const Sample sample;
    sample.edit("chassis.csv", ",FanTray,1", ",FanTry,1");
    sample.edit("chassis.csv", ",PowerSupply,2", ",PowrSupply,2");
    sample.edit("parts.csv", "Reading,4", "Reding,4");

    const Result result = tool({"start"});

    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.err.find(" in the names file (and 2 more problems)\n"), std::string::npos) << result.err;
}

TEST(ToolSpecification, MayComeFromASpreadsheet) {
    const Sample sample;
    sample.edit("chassis.csv", "\nSlot\n", "\r\nSlot,,,\r\n");
    sample.edit("chassis.csv", "component,Card,0\n", "component,Card,0,,\r\n");
    sample.edit("chassis.csv", "\n\nCard\n", "\n,,,\nCard,,,\n");

    const Result result = tool({"start"});

    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_NE(result.out.find("\n  54 components\n"), std::string::npos) << result.out;
}

TEST(ToolSpecification, MayIncludeItselfWithANote) {
    const Sample sample;
    sample.edit("parts.csv", "\nFanTray\n", "\ninclude,parts.csv\n\nFanTray\n");

    const Result result = tool({"start"});

    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(
        result.err,
        "tavrel: note: parts.csv:3: the include 'parts.csv' leads in a circle: the file is read once\n");
}

TEST(ToolSpecification, IsNotedWhereATypeHasNoSection) {
    const Sample sample;
    sample.edit("chassis.csv", "\nCard\n", "\nReserve\n");
    sample.edit("chassis.names", "0\n15\n", "0\n16\nReserve\n50\n");
    sample.edit("chassis.csv", "component,Card,0", "component,Card,1");

    const Result result = tool({"start"});

    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.err, "tavrel: note: " + sample.path("chassis.csv") + ":" +
                              std::to_string(sample.lineOf("chassis.csv", "Card,1")) +
                              ": the type 'Card' has no section: it has neither properties nor actions\n");
}

TEST(ToolSpecification, IsNotedWhereAStoreIsInDoubt) {
    const Sample sample;
    sample.edit("chassis.csv", ",SETUP,PowerPolicy", ",SETPU,PowerPolicy");
    sample.edit("chassis-stores.properties", "#1.SETUP = FRU", "#1.SETUPS = FRUU");
    const std::string redirection = sample.path("chassis-stores.properties") + ":" +
                                    std::to_string(sample.lineOf("chassis-stores.properties", "SETUPS")) +
                                    ": ";

    const Result result = tool({"start"});

    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(
        result.err,
        "tavrel: note: " + sample.path("chassis.csv") + ":" +
            std::to_string(sample.lineOf("chassis.csv", "SETPU")) +
            ": unknown store 'SETPU'; the nearest known name is 'SETUP': its values share the file of "
            "'tavrel.db'\ntavrel: note: " +
            redirection +
            "unknown store 'SETUPS'; the nearest known name is 'SETUP': no property is in it, so that the "
            "line has no effect\ntavrel: note: " +
            redirection +
            "unknown store 'FRUU'; the nearest known name is 'FRU': its values share the file of "
            "'tavrel.db'\n");
}

// The time is in the finding of nearest names: it is made for the problem that is shown, and only there.
TEST(ToolSpecification, IsRefusedAtOnceHoweverMuchIsWrong) {
    const Sample sample;
    std::string rows = "Chassis\n";
    for (int i = 0; i < 200000; ++i) {
        rows += "aLongNameOfASubsectionThatIsNone\n";
    }
    std::ofstream("chassis.csv") << rows;

    const Result result = tool({"start"});

    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.err.find("chassis.csv:2: unknown subsection 'aLongNameOfASubsectionThatIsNone'"),
              std::string::npos)
        << result.err;
    EXPECT_NE(result.err.find("(and 199999 more problems)\n"), std::string::npos) << result.err;
}

TEST(ToolSpecification, IsRefusedWhenATypeContainsItself) {
    const Sample sample;
    sample.edit("chassis.csv", "component,Card,0", "component,SystemBoard,1");

    const Result result = tool({"start"});

    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(
        result.err,
        "tavrel: the specification needs more than tavrel.compo.max = 256 components, or a type contains "
        "itself\n");
}

TEST(ToolSpecification, IsRefusedWhenItNeedsTooManyComponents) {
    const Sample sample;
    sample.edit("chassis.properties", "tavrel.compo.max = 256", "tavrel.compo.max = 53");

    const Result result = tool({"start"});

    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(
        result.err,
        "tavrel: the specification needs more than tavrel.compo.max = 53 components, or a type contains "
        "itself\n");
}
