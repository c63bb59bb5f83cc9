#include "build/CacheBytes.h"
#include "build/Files.h"
#include "support/ChildProcess.h"
#include "support/TraceCapture.h"

#include <qz/tavrel/ComponentCSVCache.h>
#include <qz/tavrel/NameResolver.h>
#include <qz/tavrel/Specification.h>

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>
#include <string>
#include <vector>

using namespace qz::tavrel;
using namespace tavrel::test;

namespace {

constexpr unsigned long rowSkipped = 0x60000;
constexpr const char* cacheFile = "/tmp/cache";

using Names = std::vector<std::string>;

/// A specification, a resolver that knows two properties and one action, and the writer on both.
class ComponentCSVCacheSaveTest : public testing::Test {
protected:
    ComponentCSVCacheSaveTest() : writer(&specification, &resolver) {
        resolver.setPropertyKey("PowerPolicy", 300);
        resolver.setPropertyKey("Speed", 20);
        resolver.setActionId("Reset", 7);
    }

    void specify(const std::string& content) {
        makeFile("/tmp/spec", content);
        specification.load("/tmp/spec");
    }

    /// The bytes of the file that the writer makes.
    std::string saved() {
        EXPECT_TRUE(writer.save(cacheFile));
        return contentOf(cacheFile);
    }

    Specification specification;
    NameResolver resolver;
    ComponentCSVCacheSave writer;
};

TEST_F(ComponentCSVCacheSaveTest, WritesNullComponentAloneForNoSections) {
    specify("");

    EXPECT_EQ(CacheBytes().header().compo(0, 0).end().names({"NullComponent"}).bytes(), saved());
}

TEST_F(ComponentCSVCacheSaveTest, WritesEveryRecordToTheByte) {
    specify("Chassis\n"
            "property,SETUP,PowerPolicy,4\n"
            ",RUN,Speed,16\n"
            "component,Fan,4\n"
            ",Sensor,16\n"
            "action,Reset\n"
            "feature,Hotplug,Redundant\n"
            "\n"
            "Fan\n"
            "property,RUN,Speed,2\n"
            "action,Reset\n"
            "feature,Hotplug\n");

    const std::string bytes = saved();

    // Types in order of first mention: Chassis 2, Fan 3, Sensor 4, and the features Hotplug 5, Redundant 6.
    CacheBytes expected;
    expected.header();
    expected.compo(0, 2, 2, 2, 1, 2);
    expected.property(1, 300, 4).property(2, 20, 16);
    expected.subcompo(3, 3, 4).subcompo(4, 4, 16);
    expected.action(5, 7);
    expected.feature(6, 5).feature(7, 6);
    expected.compo(3, 3, 1, 0, 1, 1).property(2, 20, 2).action(5, 7).feature(6, 5);
    expected.compo(4, 4);
    expected.compo(8, 0);
    expected.end();
    expected.names(
        {"Chassis", "SETUP", "RUN", "Fan", "Sensor", "Reset", "Hotplug", "Redundant", "NullComponent"});
    EXPECT_EQ(expected.bytes(), bytes);
}

TEST_F(ComponentCSVCacheSaveTest, WritesASectionOfNullComponentASecondTime) {
    specify("NullComponent\nproperty,SETUP,Speed,2\n");

    EXPECT_EQ(CacheBytes()
                  .header()
                  .compo(0, 0, 1)
                  .property(1, 20, 2)
                  .compo(0, 0, 1)
                  .property(1, 20, 2)
                  .end()
                  .names({"NullComponent", "SETUP"})
                  .bytes(),
              saved());
}

TEST_F(ComponentCSVCacheSaveTest, WritesMinusOneForUnknownPropertiesAndActions) {
    specify("Fan\nproperty,SETUP,Unknown,2\naction,Unknown\n");

    EXPECT_EQ(CacheBytes()
                  .header()
                  .compo(0, 2, 1, 0, 1, 0)
                  .property(1, -1, 2)
                  .action(2, -1)
                  .compo(3, 0)
                  .end()
                  .names({"Fan", "SETUP", "Unknown", "NullComponent"})
                  .bytes(),
              saved());
}

TEST_F(ComponentCSVCacheSaveTest, GivesNoRecordsOfATypeWithoutASection) {
    specify("Fan\naction,Reset\n");
    std::vector<property_spec_t> properties;
    std::vector<subcompo_spec_t> subcompos;
    std::vector<action_spec_t> actions;
    std::vector<feature_spec_t> features;

    writer.buildProperties("Board", properties);
    writer.buildComposition("Board", subcompos);
    writer.buildAction("Board", actions);
    writer.buildFeature("Board", features);

    EXPECT_TRUE(properties.empty());
    EXPECT_TRUE(subcompos.empty());
    EXPECT_TRUE(actions.empty());
    EXPECT_TRUE(features.empty());
}

TEST_F(ComponentCSVCacheSaveTest, SkipsPropertyRowsOfLessThanThreeCells) {
    specify("Fan\nproperty,SETUP,Speed\n,SETUP\n,RUN,Speed,2,more\n");
    std::vector<property_spec_t> properties;

    writer.buildProperties("Fan", properties);

    ASSERT_EQ(1U, properties.size());
    EXPECT_EQ(writer.getNameId("RUN"), properties[0].name);
    EXPECT_EQ(20, properties[0].key);
    EXPECT_EQ(2U, properties[0].size);
}

TEST_F(ComponentCSVCacheSaveTest, ReadsSizesAsDecimalNumbers) {
    specify("Fan\nproperty,S,Speed,0x10\n,S,Speed,none\n,S,Speed,-1\n,S,Speed,99999999999\n");
    std::vector<property_spec_t> properties;

    writer.buildProperties("Fan", properties);

    ASSERT_EQ(4U, properties.size());
    EXPECT_EQ(0U, properties[0].size);
    EXPECT_EQ(0U, properties[1].size);
    EXPECT_EQ(0xffffffffU, properties[2].size);
    EXPECT_EQ(0x7fffffffU, properties[3].size);
}

TEST_F(ComponentCSVCacheSaveTest, SkipsComponentRowsOfOneCell) {
    specify("Fan\ncomponent,Blade\n,Motor,1\n");
    std::vector<subcompo_spec_t> subcompos;

    writer.buildComposition("Fan", subcompos);

    ASSERT_EQ(1U, subcompos.size());
    EXPECT_EQ(0, subcompos[0].name);
    EXPECT_EQ(resolver.getComponentType("Motor"), subcompos[0].type);
    EXPECT_EQ(1, subcompos[0].count);
    EXPECT_EQ(0, subcompos[0].reserved);
}

TEST_F(ComponentCSVCacheSaveTest, CutsCountsTo16BitsAndKeepsZero) {
    specify("Fan\ncomponent,Blade,65536\n,Motor,65537\n,Cap,0\n,Bolt,-1\n");
    std::vector<subcompo_spec_t> subcompos;

    writer.buildComposition("Fan", subcompos);

    ASSERT_EQ(4U, subcompos.size());
    EXPECT_EQ(0, subcompos[0].count);
    EXPECT_EQ(1, subcompos[1].count);
    EXPECT_EQ(0, subcompos[2].count);
    EXPECT_EQ(65535, subcompos[3].count);
}

TEST_F(ComponentCSVCacheSaveTest, TakesEachActionRowOnce) {
    specify("Fan\naction,Reset,ignored\n,Unknown\n,\n");
    std::vector<action_spec_t> actions;

    writer.buildAction("Fan", actions);

    ASSERT_EQ(3U, actions.size());
    EXPECT_EQ(7, actions[0].id);
    EXPECT_EQ(-1, actions[1].id);
    EXPECT_EQ(writer.getNameId(""), actions[2].name);
}

TEST_F(ComponentCSVCacheSaveTest, TakesEveryCellOfAFeatureRow) {
    specify("Fan\nfeature,Hot,Exclusive,\n,Cold\n");
    std::vector<feature_spec_t> features;

    writer.buildFeature("Fan", features);

    ASSERT_EQ(4U, features.size());
    EXPECT_EQ(resolver.getComponentType("Hot"), features[0].id);
    EXPECT_EQ(1, features[1].id);
    EXPECT_EQ(writer.getNameId(""), features[2].name);
    EXPECT_EQ(resolver.getComponentType(""), features[2].id);
    EXPECT_EQ(resolver.getComponentType("Cold"), features[3].id);
}

TEST_F(ComponentCSVCacheSaveTest, FillsNameAndTypeOfAComponentAlone) {
    specify("");
    compo_spec_t compo{9, 9, 1, 2, 3, 4};

    writer.buildClass("Fan", compo);

    EXPECT_EQ(0, compo.name);
    EXPECT_EQ(2, compo.type);
    EXPECT_EQ(1, compo.propertyCount);
    EXPECT_EQ(4, compo.featureCount);
}

TEST_F(ComponentCSVCacheSaveTest, NumbersNamesAsTheyCome) {
    EXPECT_EQ(0, writer.getNameId("Fan"));
    EXPECT_EQ(1, writer.getNameId(""));
    EXPECT_EQ(0, writer.getNameId("Fan"));
    EXPECT_EQ(2, writer.getNameId("Board"));
}

TEST_F(ComponentCSVCacheSaveTest, ListsSectionsThenTypesThatAreOnlyNamed) {
    specify("Chassis\ncomponent,Sensor,2\n,Fan,4\n\nFan\ncomponent,Sensor,1\n,Blade,3\n\nChassis\n");
    Names names{"First"};

    writer.getComponentNames(names);

    EXPECT_EQ((Names{"First", "Chassis", "Fan", "Chassis", "Sensor", "Blade"}), names);
}

TEST_F(ComponentCSVCacheSaveTest, TracesComponentRowsThatNameNoType) {
    specify("Chassis\ncomponent,Sensor,0\n,,4\n,Blade,-1\n,Motor,many\n,Short\n,Fan,1\n");
    const TraceCapture capture;
    Names names;

    writer.getComponentNames(names);

    EXPECT_EQ((Names{"Chassis", "Fan"}), names);
    Names texts;
    for (const TraceRecord& record : capture.of(rowSkipped)) {
        EXPECT_EQ(debugFlags, record.flags);
        texts.push_back(record.text());
    }
    EXPECT_EQ((Names{"Sensor", "", "Blade", "Motor", "Short"}), texts);
}

TEST_F(ComponentCSVCacheSaveTest, CutsACountOfRecordsButWritesThemAll) {
    std::string row = "Fan\nfeature";
    for (int i = 0; i < 65537; ++i) {
        row += ",Hot";
    }
    specify(row + "\n");

    const std::string bytes = saved();

    CacheBytes expected;
    expected.header().compo(0, 2, 0, 0, 0, 1);
    for (int i = 0; i < 65537; ++i) {
        expected.feature(1, 3);
    }
    EXPECT_EQ(expected.compo(2, 0).end().names({"Fan", "Hot", "NullComponent"}).bytes(), bytes);
}

TEST_F(ComponentCSVCacheSaveTest, ReplacesALongerFile) {
    specify("");
    makeFile(cacheFile, std::string(10000, 'x'));

    EXPECT_EQ(CacheBytes().header().compo(0, 0).end().names({"NullComponent"}).bytes(), saved());
}

TEST_F(ComponentCSVCacheSaveTest, RefusesAPathThatCannotBeOpened) {
    specify("");

    EXPECT_FALSE(writer.save("/tmp/missing/cache"));
    EXPECT_FALSE(writer.save(""));
}

TEST_F(ComponentCSVCacheSaveTest, TellsThatTheDeviceIsFull) {
    specify("");

    EXPECT_FALSE(writer.save("/dev/full"));
}

TEST_F(ComponentCSVCacheSaveTest, FollowsNoPlantedLink) {
    specify("");
    makeFile("/tmp/victim", "precious");
    ASSERT_EQ(0, symlink("/tmp/victim", "/tmp/planted"));

    EXPECT_FALSE(writer.save("/tmp/planted"));

    EXPECT_EQ("precious", contentOf("/tmp/victim"));
}

TEST_F(ComponentCSVCacheSaveTest, LeavesAPartOfTheFileWhenTheResolverRaises) {
    class Failing : public NameResolver {
    public:
        int getActionId(const std::string&) override { throw std::runtime_error("no actions"); }
    };
    specify("Board\n\nFan\naction,Reset\n");
    Failing failing;
    ComponentCSVCacheSave failingWriter(&specification, &failing);
    makeFile(cacheFile, std::string(10000, 'x'));

    EXPECT_FALSE(failingWriter.save(cacheFile));

    const std::string unfinished = std::string(4, '\0') + CacheBytes().header().compo(0, 2).bytes().substr(4);
    EXPECT_EQ(unfinished, contentOf(cacheFile));
}

TEST_F(ComponentCSVCacheSaveTest, LeavesAFileThatDoesNotLoadWhenItsWriterIsKilled) {
    specify("Chassis\nproperty,RUN,Speed,2\n\nFan\naction,Reset\n");
    const std::string whole = saved();
    for (std::size_t length = 1; length < whole.size(); ++length) {
        ChildProcess victim([&](Talk&) {
            const rlimit none{0, 0};
            const rlimit limit{length, length};
            setrlimit(RLIMIT_CORE, &none);
            setrlimit(RLIMIT_FSIZE, &limit); // a write beyond it kills the process
            writer.save(cacheFile);
            return 0;
        });
        ASSERT_EQ(-SIGXFSZ, victim.wait());
        ASSERT_EQ(length, contentOf(cacheFile).size());
        EXPECT_FALSE(ComponentCSVCache().load(cacheFile)) << length;
    }
}

TEST_F(ComponentCSVCacheSaveTest, MakesAFileWholeAfterAWriterThatWasKilled) {
    specify("Chassis\nproperty,RUN,Speed,2\n\nFan\naction,Reset\n");
    const std::string whole = saved();
    makeFile(cacheFile, std::string(4, '\0') + whole.substr(4, whole.size() - 5));
    ComponentCSVCacheSave next(&specification, &resolver);

    EXPECT_TRUE(next.save(cacheFile));

    EXPECT_EQ(whole, contentOf(cacheFile));
    EXPECT_TRUE(ComponentCSVCache().load(cacheFile));
}

} // namespace
