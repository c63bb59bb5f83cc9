#include "build/CacheBytes.h"
#include "build/Files.h"
#include "support/FaultText.h"
#include "support/MemoryDatabase.h"
#include "support/TraceCapture.h"

#include <qz/tavrel/Action.h>
#include <qz/tavrel/Builder.h>
#include <qz/tavrel/Component.h>
#include <qz/tavrel/ComponentCSVCache.h>
#include <qz/tavrel/ComponentClass.h>
#include <qz/tavrel/Factory.h>
#include <qz/tavrel/NameResolver.h>
#include <qz/tavrel/PropertyLocator.h>
#include <qz/tavrel/ResourceManager.h>
#include <qz/tavrel/Specification.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

using namespace qz::tavrel;
using namespace tavrel::test;

namespace {

constexpr unsigned long buildEntered = 0x80000;
constexpr unsigned long buildFinished = 0x80007;
constexpr unsigned long badName = 0x9010a;
constexpr const char* cacheFile = "/tmp/cache";

using Names = std::vector<std::string>;

class NamedAction : public Action {
public:
    explicit NamedAction(const std::string& itsName) : name(itsName) {}
    void execute(Component*, int, const void*, unsigned int, void*, unsigned int) override {}
    std::string toString() override { return name; }

private:
    std::string name;
};

/// Knows stores in memory and two actions, and writes down what it is asked for.
class TestFactory : public Factory {
public:
    Names asked;

    void* createInstance(const std::string& name) override {
        asked.push_back(name);
        if (name == "VolatileDB") {
            return static_cast<Resource*>(new MemoryDatabase);
        }
        if (name == "Stop" || name == "Start") {
            return static_cast<Action*>(new NamedAction(name));
        }
        if (name == "Failing") {
            throw std::runtime_error("no such action");
        }
        return Factory::createInstance(name);
    }
};

/// A builder on an action specification; all classes and stores go at the end.
class ComponentCSVCacheTest : public testing::Test {
protected:
    ComponentCSVCacheTest() { builder.setFactory(&factory); }
    void TearDown() override {
        Component::setNameResolver(builder.getResolver()); // these builders hand it on to nobody
        Component::deleteAll();
    }

    void specifyActions(const std::string& content) {
        makeFile("/tmp/actions", content);
        makeFile("/tmp/properties", "tavrel.spec.action = /tmp/actions\n");
        builder.loadConfig("/tmp/properties");
    }

    /// Loads the content of a cache file and makes its classes.
    bool build(const CacheBytes& content) {
        makeFile(cacheFile, content.bytes());
        ComponentCSVCache cache;
        return cache.load(cacheFile) && cache.build(builder.getActionSpec(), &factory, &builder);
    }

    static int resource(const std::string& name) {
        return ResourceManager::getInstance()->getResourceId(name);
    }

    TestFactory factory;
    Builder builder;
};

std::vector<int> keysOf(ComponentClass& built) {
    std::vector<int> keys;
    built.getPropertyLocator()->getPropertyKeys(keys);
    return keys;
}

std::vector<int> actionsOf(ComponentClass& built) {
    std::vector<int> ids;
    built.getActionIds(ids);
    return ids;
}

TEST_F(ComponentCSVCacheTest, MakesNoClassOfAFileWithoutTypes) {
    const TraceCapture capture;

    EXPECT_TRUE(build(CacheBytes().header().end().names({})));

    EXPECT_EQ(nullptr, ComponentClass::get());
    EXPECT_EQ(1U, capture.count(buildEntered));
    EXPECT_EQ(1U, capture.count(buildFinished));
    EXPECT_EQ(debugFlags, capture.of(buildEntered).front().flags);
    EXPECT_EQ(debugFlags, capture.of(buildFinished).front().flags);
}

TEST_F(ComponentCSVCacheTest, MakesTheClassesInTheOrderOfTheFile) {
    EXPECT_TRUE(
        build(CacheBytes().header().compo(0, 2).compo(1, 5).compo(2, 0).end().names({"A", "B", "C"})));

    ASSERT_NE(nullptr, ComponentClass::get(2));
    ASSERT_NE(nullptr, ComponentClass::get(5));
    ASSERT_NE(nullptr, ComponentClass::get(0));
    EXPECT_EQ(ComponentClass::get(0), ComponentClass::get()); // the last one is the first of the list
    EXPECT_EQ(nullptr, ComponentClass::get(1));
}

TEST_F(ComponentCSVCacheTest, BindsPropertiesToTheirResources) {
    EXPECT_TRUE(build(CacheBytes()
                          .header()
                          .compo(0, 2, 3)
                          .property(1, 300, 4)
                          .property(2, 20, 16)
                          .property(1, -1, 0xffffffff)
                          .end()
                          .names({"Chassis", "SETUP", "RUN"})));

    PropertyLocator& locator = *ComponentClass::get(2)->getPropertyLocator();
    EXPECT_EQ((std::vector<int>{300, 20, -1}), keysOf(*ComponentClass::get(2)));
    EXPECT_EQ(4U, locator.getPropertySize(300));
    EXPECT_EQ(16U, locator.getPropertySize(20));
    EXPECT_EQ(0xffffffffU, locator.getPropertySize(-1));
    ASSERT_NE(-1, resource("SETUP"));
    ASSERT_NE(-1, resource("RUN"));
    EXPECT_EQ(resource("SETUP"), locator.getAccessor(300).getResourceId());
    EXPECT_EQ(resource("RUN"), locator.getAccessor(20).getResourceId());
    EXPECT_EQ(resource("SETUP"), locator.getAccessor(-1).getResourceId());
    EXPECT_EQ((Names{"Specification", "PropertyLocator", "VolatileDB", "VolatileDB"}), factory.asked);
}

TEST_F(ComponentCSVCacheTest, AsksAgainForTheResourcesOfAnotherFile) {
    makeFile("/tmp/first",
             CacheBytes().header().compo(0, 2, 1).property(1, 300, 4).end().names({"A", "R"}).bytes());
    makeFile("/tmp/second",
             CacheBytes().header().compo(0, 3, 1).property(1, 300, 4).end().names({"B", "S"}).bytes());
    ComponentCSVCache cache;
    ASSERT_TRUE(cache.load("/tmp/first"));
    cache.build(nullptr, &factory, &builder);

    ASSERT_TRUE(cache.load("/tmp/second"));
    cache.build(nullptr, &factory, &builder);

    EXPECT_NE(resource("R"), resource("S"));
    EXPECT_EQ(resource("R"), ComponentClass::get(2)->getPropertyLocator()->getAccessor(300).getResourceId());
    EXPECT_EQ(resource("S"), ComponentClass::get(3)->getPropertyLocator()->getAccessor(300).getResourceId());
}

TEST_F(ComponentCSVCacheTest, GivesAClassWithoutPropertiesAnEmptyLocator) {
    EXPECT_TRUE(build(CacheBytes().header().compo(0, 2).end().names({"Fan"})));

    ASSERT_NE(nullptr, ComponentClass::get(2)->getPropertyLocator());
    EXPECT_TRUE(keysOf(*ComponentClass::get(2)).empty());
}

TEST_F(ComponentCSVCacheTest, CountsTheChildrenOfAClass) {
    EXPECT_TRUE(build(CacheBytes()
                          .header()
                          .compo(0, 2, 0, 3)
                          .subcompo(1, 3, 4)
                          .subcompo(99, 4, 65535)
                          .subcompo(-7, 5, 0)
                          .end()
                          .names({"Chassis", "Fan"})));

    ComponentClass& chassis = *ComponentClass::get(2);
    EXPECT_EQ(4, chassis.getComponentCount(3));
    EXPECT_EQ(65535, chassis.getComponentCount(4));
    EXPECT_EQ(0, chassis.getComponentCount(5));
}

TEST_F(ComponentCSVCacheTest, GivesAClassItsFeatures) {
    EXPECT_TRUE(build(
        CacheBytes().header().compo(0, 2, 0, 0, 0, 2).feature(99, 5).feature(-7, 6).end().names({"Fan"})));

    ComponentClass& fan = *ComponentClass::get(2);
    EXPECT_TRUE(fan.hasFeature(5));
    EXPECT_TRUE(fan.hasFeature(6));
    EXPECT_TRUE(fan.hasFeature(2));
    EXPECT_FALSE(fan.hasFeature(7));
}

TEST_F(ComponentCSVCacheTest, BindsTheActionsThatHaveADefinition) {
    specifyActions("Fan::Halt\naction,Stop\n\n::Begin\naction,Start\n");

    EXPECT_TRUE(build(CacheBytes()
                          .header()
                          .compo(0, 2, 0, 0, 3)
                          .action(1, 7)
                          .action(2, 8)
                          .action(3, 9)
                          .compo(4, 3, 0, 0, 2)
                          .action(1, 7)
                          .action(2, 8)
                          .end()
                          .names({"Fan", "Halt", "Begin", "Missing", "Board"})));

    EXPECT_EQ((std::vector<int>{7, 8}), actionsOf(*ComponentClass::get(2)));
    EXPECT_EQ("Stop", ComponentClass::get(2)->getAction(7)->toString());
    EXPECT_EQ("Start", ComponentClass::get(2)->getAction(8)->toString());
    EXPECT_EQ(std::vector<int>{8}, actionsOf(*ComponentClass::get(3)));
    EXPECT_NE(ComponentClass::get(2)->getAction(8), ComponentClass::get(3)->getAction(8));
}

TEST_F(ComponentCSVCacheTest, LetsOutWhatTheFactoryRaises) {
    specifyActions("Fan::Halt\naction,Failing\n");
    const TraceCapture capture;

    EXPECT_THROW(build(CacheBytes().header().compo(0, 2, 0, 0, 1).action(1, 7).end().names({"Fan", "Halt"})),
                 std::runtime_error);

    EXPECT_NE(nullptr, ComponentClass::get(2));
    EXPECT_EQ(1U, capture.count(buildEntered));
    EXPECT_EQ(0U, capture.count(buildFinished));
}

TEST_F(ComponentCSVCacheTest, NeedsNoResolver) {
    EXPECT_TRUE(build(CacheBytes()
                          .header()
                          .compo(0, 2, 1, 0, 0, 1)
                          .property(1, 300, 4)
                          .feature(0, 9)
                          .end()
                          .names({"Fan", "SETUP"})));

    for (const std::string& name : factory.asked) {
        EXPECT_NE("NameResolver", name);
    }
}

TEST_F(ComponentCSVCacheTest, BuildsWhatTheWriterHasWritten) {
    makeFile("/tmp/spec",
             "Chassis\nproperty,SETUP,PowerPolicy,4\ncomponent,Fan,4\naction,Halt\nfeature,Hot\n");
    Specification specification;
    specification.load("/tmp/spec");
    NameResolver resolver;
    resolver.setPropertyKey("PowerPolicy", 300);
    resolver.setActionId("Halt", 7);
    ASSERT_TRUE(ComponentCSVCacheSave(&specification, &resolver).save(cacheFile));
    specifyActions("::Halt\naction,Stop\n");
    {
        ComponentCSVCache cache;
        ASSERT_TRUE(cache.load(cacheFile));
        cache.build(builder.getActionSpec(), &factory, &builder);
    }

    // The mapping has gone: what was built does without it.
    ComponentClass& chassis = *ComponentClass::get(resolver.getComponentType("Chassis"));
    EXPECT_EQ(4U, chassis.getPropertyLocator()->getPropertySize(300));
    EXPECT_EQ(4, chassis.getComponentCount(resolver.getComponentType("Fan")));
    EXPECT_EQ("Stop", chassis.getAction(7)->toString());
    EXPECT_TRUE(chassis.hasFeature(resolver.getComponentType("Hot")));
    EXPECT_NE(nullptr, ComponentClass::get(resolver.getComponentType("Fan")));
    EXPECT_EQ(ComponentClass::get(0), ComponentClass::get());
}

/// A file of one type with one property, whose resource has this name index, and this name table.
CacheBytes withResource(int index, const std::string& table) {
    return CacheBytes().header().compo(0, 2, 1).property(index, 300, 4).end().raw(table);
}

std::string badIndexText(const TraceCapture& capture, int index) {
    const auto records = capture.of(badName);
    if (records.size() != 1 || records[0].flags != errorFlags ||
        records[0].arguments() != std::vector<int>{index, 0}) {
        return "not one record of the index";
    }
    return "";
}

TEST_F(ComponentCSVCacheTest, RefusesANameIndexOutsideTheTable) {
    const std::string table = CacheBytes().names({"Fan", "SETUP"}).bytes();

    for (const int index : {-1, 2, 0x7fffffff, -0x7fffffff - 1}) {
        const TraceCapture capture;
        const std::string text = faultText([&] { build(withResource(index, table)); });
        EXPECT_EQ("FAULT at Builder(LINE): operator[]() out of range", text) << index;
        EXPECT_EQ("", badIndexText(capture, index));
    }
    EXPECT_EQ(-1, resource("SETUP"));
}

TEST_F(ComponentCSVCacheTest, RefusesANameThatBeginsOutsideTheFile) {
    for (const std::uint32_t offset : {10U, 11U, 0x7fffffffU, 0xffffffffU}) {
        const std::string table = CacheBytes().word(2).word(0).word(offset).raw({"Fan\0SETUP\0", 10}).bytes();
        const TraceCapture capture;
        const std::string text = faultText([&] { build(withResource(1, table)); });
        EXPECT_EQ("FAULT at Builder(LINE): operator[]() out of range", text) << offset;
        EXPECT_EQ("", badIndexText(capture, 1));
    }
}

TEST_F(ComponentCSVCacheTest, RefusesANameThatEndsOutsideTheFile) {
    const std::string table = CacheBytes().word(2).word(0).word(4).raw({"Fan\0SETUP", 9}).bytes();
    const TraceCapture capture;

    const std::string text = faultText([&] { build(withResource(1, table)); });

    EXPECT_EQ("FAULT at Builder(LINE): operator[]() out of range", text);
    EXPECT_EQ("", badIndexText(capture, 1));
}

TEST_F(ComponentCSVCacheTest, RefusesANameThatEndsOutsideAFileOfWholePages) {
    // Nothing is mapped behind the last byte, so that a read past it ends the process.
    std::string content =
        withResource(1, CacheBytes().word(2).word(0).word(4).raw({"Fan\0", 4}).bytes()).bytes();
    const auto page = static_cast<std::size_t>(getpagesize());
    content.resize(page, 'x');

    const std::string text = faultText([&] { build(CacheBytes().raw(content)); });

    EXPECT_EQ("FAULT at Builder(LINE): operator[]() out of range", text);
}

TEST_F(ComponentCSVCacheTest, TakesANameThatEndsWithTheFile) {
    const std::string table = CacheBytes().word(2).word(0).word(4).raw({"Fan\0SETUP\0", 10}).bytes();

    EXPECT_TRUE(build(withResource(1, table)));

    EXPECT_NE(-1, resource("SETUP"));
}

/// A file of one type whose one action has a bad name: built only when nobody looks at the action.
CacheBytes withBadAction() {
    return CacheBytes().header().compo(0, 2, 0, 0, 1).action(5, 7).end().names({"Fan"});
}

class ComponentCSVCacheQuickStart : public ComponentCSVCacheTest {
protected:
    void TearDown() override {
        unsetenv("PERFORMANCE_1S");
        ComponentCSVCacheTest::TearDown();
    }

    bool buildWith(Specification* actionSpec) {
        makeFile(cacheFile, withBadAction().bytes());
        ComponentCSVCache cache;
        return cache.load(cacheFile) && cache.build(actionSpec, &factory, &builder);
    }
};

TEST_F(ComponentCSVCacheQuickStart, LooksAtActionsWithoutTheVariable) {
    unsetenv("PERFORMANCE_1S");
    Specification empty;

    EXPECT_THROW(buildWith(nullptr), TavrelException);
    EXPECT_THROW(buildWith(&empty), TavrelException);
}

TEST_F(ComponentCSVCacheQuickStart, LeavesActionsOutWhenThereAreNone) {
    setenv("PERFORMANCE_1S", "", 1);
    Specification empty;

    EXPECT_TRUE(buildWith(nullptr));
    EXPECT_TRUE(buildWith(&empty));

    EXPECT_TRUE(actionsOf(*ComponentClass::get(2)).empty());
}

TEST_F(ComponentCSVCacheQuickStart, LooksAtActionsWhenThereAreSome) {
    setenv("PERFORMANCE_1S", "1", 1);
    specifyActions("::Halt\naction,Stop\n");

    EXPECT_THROW(buildWith(builder.getActionSpec()), TavrelException);
}

TEST_F(ComponentCSVCacheTest, SurvivesAnyDamage) {
    CacheBytes good;
    good.header();
    good.compo(0, 2, 2, 2, 2, 2).property(1, 300, 4).property(2, 20, 16).subcompo(3, 3, 4).subcompo(0, 4, 1);
    good.action(4, 7).action(5, 8).feature(6, 5).feature(0, 6);
    good.compo(3, 3, 1, 0, 1, 0).property(1, 21, 2).action(4, 7).compo(7, 0);
    good.end().names({"Chassis", "SETUP", "RUN", "Fan", "Halt", "Begin", "Hot", "NullComponent"});
    specifyActions("::Halt\naction,Stop\n");
    std::mt19937 random(7); // the same damage in each run
    int loaded = 0;
    int built = 0;

    for (int round = 0; round < 3000; ++round) {
        std::string content = good.bytes();
        const auto hits = 1 + random() % 3;
        for (std::size_t hit = 0; hit < hits; ++hit) {
            content[random() % content.size()] = static_cast<char>(random());
        }
        if (random() % 4 == 0) {
            content.resize(random() % content.size());
        }
        makeFile(cacheFile, content);
        ComponentCSVCache cache;
        if (cache.load(cacheFile)) {
            ++loaded;
            try {
                cache.build(builder.getActionSpec(), &factory, &builder);
                ++built;
            } catch (const TavrelException& fault) {
                EXPECT_NE(std::string::npos, std::string(fault.what()).find("out of range"));
            }
        }
    }

    EXPECT_GT(loaded, built);
    EXPECT_GT(built, 0);
    EXPECT_LT(loaded, 3000);
    delete builder.getResource("VolatileDB", ""); // nobody takes a store without a name
}

} // namespace
