#include "Running.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace tavrel::test;

TEST(ToolTree, ShowsTypesNumbersIdsAndFeatures) {
    const Sample sample;

    const Result result = tool({"tree", "/Chassis#0/PowerSupply#1"});

    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_EQ(result.out, "PowerSupply#1  id 49  type 8  [Hotplug, Redundant]\n"
                          "├── Sensor#0  id 50  type 11\n"
                          "└── Sensor#1  id 51  type 11\n");
}

TEST(ToolTree, BeginsAtTheRootByDefault) {
    const Sample sample;

    const Result whole = tool({"tree"});

    EXPECT_EQ(whole.out, tool({"tree", "/"}).out);
    EXPECT_EQ(whole.out, tool({"tree", "/Chassis#0"}).out);
    EXPECT_EQ(whole.out.rfind("Chassis#0  id 0  type 2\n", 0), 0U) << whole.out;
    EXPECT_EQ(std::count(whole.out.begin(), whole.out.end(), '\n'), 54);
}

TEST(ToolTree, ShowsValuesInHexAndAsIntegerWithTheirStores) {
    const Sample sample;
    ASSERT_EQ(tool({"set", "/Chassis#0", "PartNumber", "text:CH-1"}).code, 0);
    ASSERT_EQ(tool({"set", "/Chassis#0", "PowerPolicy", "258"}).code, 0);

    const Result result = tool({"tree", "--properties"});

    EXPECT_NE(result.out.find("\n│   PartNumber = 0x43482d31000000000000000000000000 \"CH-1\"  (FRU)\n"),
              std::string::npos)
        << result.out;
    EXPECT_NE(result.out.find("\n│   PowerPolicy = 0x00000102 258  (SETUP)\n"), std::string::npos);
    EXPECT_NE(result.out.find("\n│   PowerState = 0x00000000 0  (tavrel.db)\n"), std::string::npos);
}

TEST(ToolTree, ShowsWhereARedirectionLeads) {
    const Sample sample;

    const Result first = tool({"tree", "/Chassis#0/SystemBoard#0", "--properties"});
    const Result second = tool({"tree", "/Chassis#0/SystemBoard#1", "--properties"});

    EXPECT_NE(first.out.find("BootMode = 0x00000000 0  (SETUP)"), std::string::npos) << first.out;
    EXPECT_NE(second.out.find("BootMode = 0x00000000 0  (FRU)"), std::string::npos) << second.out;
}

TEST(ToolTree, PrintsJson) {
    const Sample sample;
    ASSERT_EQ(tool({"do", "/", "Connect"}).code, 0);
    ASSERT_EQ(tool({"set", "/Chassis#0/SystemBoard#1", "BootCount", "7"}).code, 0);

    const Result result = tool({"tree", "--json", "--properties"});

    const auto tree = nlohmann::json::parse(result.out);
    EXPECT_EQ(tree["path"], "/Chassis#0");
    EXPECT_EQ(tree["id"], 0);
    EXPECT_EQ(tree["typeNumber"], 2);
    const auto& board = tree["children"][1];
    EXPECT_EQ(board["type"], "SystemBoard");
    EXPECT_EQ(board["number"], 1);
    EXPECT_EQ(board["features"], nlohmann::json::array({"Removable"}));
    EXPECT_EQ(board["shared"], nlohmann::json::array({"/Chassis#0/PowerSupply#0", "/Chassis#0/PowerSupply#1",
                                                      "/Chassis#0/FanTray#0"}));
    const auto& count = board["properties"][3];
    EXPECT_EQ(count["name"], "BootCount");
    EXPECT_EQ(count["key"], 259);
    EXPECT_EQ(count["size"], 4);
    EXPECT_EQ(count["store"], "tavrel.db");
    EXPECT_EQ(count["hex"], "0x00000007");
    EXPECT_EQ(count["integer"], 7);
    EXPECT_FALSE(board["properties"][0].contains("integer")) << "16 bytes are no integer";
}

TEST(ToolTree, PrintsJsonWithoutPropertiesUnlessAskedFor) {
    const Sample sample;

    const auto tree = nlohmann::json::parse(tool({"tree", "/Chassis#0/FanTray#0", "--json"}).out);

    EXPECT_FALSE(tree.contains("properties"));
    EXPECT_EQ(tree["children"].size(), 4U);
}

TEST(ToolTree, PrintsAGraph) {
    const Sample sample;
    ASSERT_EQ(tool({"do", "/", "Connect"}).code, 0);

    const Result result = tool({"tree", "/Chassis#0/SystemBoard#0", "--dot"});

    EXPECT_EQ(result.out.rfind("digraph tavrel {\n", 0), 0U);
    for (const char* line :
         {"  \"/Chassis#0/SystemBoard#0\" [label=\"SystemBoard#0 (id 1)\\nRemovable\"];\n",
          "  \"/Chassis#0/SystemBoard#0\" -> \"/Chassis#0/SystemBoard#0/Slot#2\";\n",
          "  \"/Chassis#0/SystemBoard#0\" -> \"/Chassis#0/FanTray#0\" [style=dashed];\n"}) {
        EXPECT_NE(result.out.find(line), std::string::npos) << line << result.out;
    }
    EXPECT_EQ(result.out.substr(result.out.size() - 2), "}\n");
}

TEST(ToolTree, ShowsSharedChildrenWithTheirOwnPaths) {
    const Sample sample;
    ASSERT_EQ(tool({"do", "/", "Connect"}).code, 0);

    const Result result = tool({"tree", "/Chassis#0/SystemBoard#0"});

    EXPECT_NE(result.out.find("\n├┄┄ shares /Chassis#0/PowerSupply#0\n"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("\n└┄┄ shares /Chassis#0/FanTray#0\n"), std::string::npos) << result.out;
}

TEST(ToolTree, FindsASharedComponentByItsPlaceAmongThem) {
    const Sample sample;
    ASSERT_EQ(tool({"do", "/", "Connect"}).code, 0);

    const Result result = tool({"tree", "/Chassis#0/SystemBoard#0/PowerSupply#1", "--json"});

    EXPECT_EQ(nlohmann::json::parse(result.out)["path"], "/Chassis#0/PowerSupply#1");
}

TEST(ToolTree, SaysWhereAPathEnds) {
    const StartedSample sample;

    const Result result = tool({"tree", "/Chassis#0/PowerSupply#1/Sensor#7"});

    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.err,
              "tavrel: '/Chassis#0/PowerSupply#1/Sensor#7' is not in the tree: /Chassis#0/PowerSupply#1 has "
              "Sensor#0, Sensor#1\n");
    EXPECT_EQ(tool({"tree", "/Fan#0"}).err, "tavrel: '/Fan#0' is not in the tree: the root is /Chassis#0\n");
    EXPECT_EQ(tool({"tree", "/Chassis#99999999999"}).err,
              "tavrel: '/Chassis#99999999999' is not in the tree: no component has the number 99999999999\n");
}
