#include "build/BuilderTest.h"

#include <qz/tavrel/ComponentClass.h>
#include <qz/tavrel/Initializer.h>
#include <qz/tavrel/ResourceManager.h>
#include <qz/tavrel/Specification.h>
#include <qz/tavrel/TreeConfig.h>

#include <sys/sem.h>

using namespace qz::tavrel;
using namespace tavrel::test;

namespace {

constexpr key_t treeLockSet = 5600000;
constexpr int places = 0;
constexpr int allPlaces = 100;

int treeLock() {
    return semget(treeLockSet, 0, 0);
}

void removeTreeLock() {
    semctl(treeLock(), 0, IPC_RMID);
}

/// What `Component` has been given, and how many ids it takes.
struct Wired {
    bool resolver = Component::getNameResolver() != nullptr;
    bool config = Component::getTreeConfig() != nullptr;
    bool provider = Component::getLockProvider() != nullptr;
    bool takesSixIds = faultText([] { Component::getComponent(5); }) == "nothing raised" &&
                       faultText([] { Component::getComponent(6); }) != "nothing raised";

    bool operator==(const Wired&) const = default;
};

/// Handing everything over, and what is made on the way.
class BuilderWiringTest : public BuilderTest {
protected:
    std::string load() {
        return faultText([this] { builder->load(properties); });
    }
};

TEST_F(BuilderWiringTest, GivesEverythingToTheComponents) {
    specify("Chassis\n", "tavrel.compo.max = 6\n");

    EXPECT_EQ("nothing raised", load());

    EXPECT_TRUE(Wired{}.takesSixIds);
    EXPECT_EQ(names, Component::getNameResolver());
    EXPECT_EQ(builder->getTreeConfig(), Component::getTreeConfig());
    EXPECT_EQ(provider, Component::getLockProvider());
    EXPECT_EQ(1, provider->initialized);
}

TEST_F(BuilderWiringTest, HandsThePartsOverInTheirOrder) {
    removeTreeLock();
    specify("Chassis\n", "tavrel.compo.max = 6\ntavrel.spec.res = redirections\n");
    makeFile(redirections, "/Chassis#0.first = second\n");
    std::map<std::string, Wired> seen;
    const auto make = factory.makers["VolatileDB"];
    factory.makers["VolatileDB"] = [&] {
        seen[std::to_string(stores.size())] = Wired{};
        return make();
    };
    const auto makeProvider = factory.makers["TreePathLockProvider"];
    factory.makers["TreePathLockProvider"] = [&] {
        seen["provider"] = Wired{};
        EXPECT_EQ(-1, treeLock());
        return makeProvider();
    };

    EXPECT_EQ("nothing raised", load());

    EXPECT_EQ((Texts{"NameResolver", "Specification", "Specification", "PropertyLocator", "PropertyLocator",
                     "VolatileDB", "VolatileDB", "VolatileDB", "TreePathLockProvider"}),
              factory.asked);
    EXPECT_EQ("first", stores[0]->name);
    EXPECT_EQ("second", stores[1]->name);
    EXPECT_EQ(defaultStore, stores[2]->name);
    Wired expected{false, false, false, true}; // the limit comes first
    EXPECT_EQ(expected, seen["0"]);
    EXPECT_EQ(expected, seen["1"]);
    expected.resolver = true; // the tree is made on the default store
    EXPECT_EQ(expected, seen["2"]);
    expected.config = true;
    EXPECT_EQ(expected, seen["provider"]);
}

TEST_F(BuilderWiringTest, LoadsTheStoredTreeAndTellsTheProviderThenTheStores) {
    specify("Chassis\ncomponent,Board,1\n", "tavrel.spec.res = redirections\ntavrel.res.name = main\n");
    makeFile(redirections, "/Chassis#0/Board#0.main = other\n/Chassis#0/Fan#0.main = other\n");
    ASSERT_EQ("nothing raised", start());
    restart();
    ResourceManager* const resources = ResourceManager::getInstance();
    const auto answersOther = [&](const std::string& path) {
        return resources->getResource(path, resources->getResourceId("main")) == store("other");
    };
    int updates = 0;
    const auto make = factory.makers["TreePathLockProvider"];
    factory.makers["TreePathLockProvider"] = [&] {
        void* const made = make();
        provider->beforeUpdate = [&] {
            ++updates;
            EXPECT_TRUE(answersOther("/Chassis#0/Fan#0")); // not looked at yet
            EXPECT_EQ(0, semctl(treeLock(), places, GETVAL));
        };
        return made;
    };

    EXPECT_EQ("nothing raised", load());

    EXPECT_EQ(1, updates);
    EXPECT_TRUE(answersOther("/Chassis#0/Board#0"));
    EXPECT_FALSE(answersOther("/Chassis#0/Fan#0")); // there is none
    EXPECT_EQ(2, Component::getTreeConfig()->getNodeCount());
    EXPECT_EQ(allPlaces, semctl(treeLock(), places, GETVAL));
}

TEST_F(BuilderWiringTest, LeavesTheTreeFreeWhenItsLoadFails) {
    specify("Chassis\n");
    ASSERT_EQ("nothing raised", start());
    restart();
    const auto make = factory.makers["TreePathLockProvider"];
    factory.makers["TreePathLockProvider"] = [&] {
        void* const made = make();
        provider->beforeUpdate = [] { throw std::runtime_error("no update"); };
        return made;
    };
    const TraceCapture capture;

    EXPECT_THROW(builder->load(properties), std::runtime_error);

    EXPECT_EQ(0U, capture.count(0x10104));
    EXPECT_EQ(allPlaces, semctl(treeLock(), places, GETVAL));
}

TEST_F(BuilderWiringTest, MakesOneLockForTheTree) {
    removeTreeLock();
    specify("Chassis\n");

    EXPECT_EQ("nothing raised", load());

    semid_ds state{};
    ASSERT_EQ(0, semctl(treeLock(), 0, IPC_STAT, &state));
    EXPECT_EQ(2U, state.sem_nsems);
}

TEST_F(BuilderWiringTest, LetsThePartsOutliveTheBuilder) {
    specify("Chassis\nproperty,tavrel.db,Speed,4\n", "tavrel.compo.ver = 1\n");
    ASSERT_EQ("nothing raised", start());

    builder.reset();

    Component* const root = Component::getRoot();
    EXPECT_EQ(2, root->getType());
    EXPECT_EQ(4, root->setProperty(300, 17));
    EXPECT_EQ(17, root->getProperty(300));
}

// --- what is made once ---

TEST_F(BuilderWiringTest, MakesTheResolverOnce) {
    NameResolver* const first = builder->getResolver();

    EXPECT_EQ(first, builder->getResolver());

    EXPECT_EQ((Texts{"NameResolver"}), factory.asked);
    delete first;
}

TEST_F(BuilderWiringTest, ConfiguresTheLockProviderAndInitializesItOnce) {
    std::string seen;
    const auto make = factory.makers["TreePathLockProvider"];
    factory.makers["TreePathLockProvider"] = [&] {
        void* const made = make();
        provider->beforeInitialize = [&] { seen = provider->value("tavrel.compo.max"); };
        return made;
    };

    ComponentLockProvider* const first = builder->getLockProvider();

    EXPECT_EQ(first, builder->getLockProvider());
    EXPECT_EQ("4096", seen);
    EXPECT_EQ(1, provider->initialized);
    EXPECT_EQ((Texts{"TreePathLockProvider"}), factory.asked);
    delete first;
}

TEST_F(BuilderWiringTest, MakesTheConfiguredLockProvider) {
    makeFile(properties, "tavrel.lock.provider = Mine\n");
    factory.makers["Mine"] = factory.makers["TreePathLockProvider"];
    builder->loadConfig(properties);

    const std::unique_ptr<ComponentLockProvider> made(builder->getLockProvider());

    EXPECT_EQ((Texts{"Mine"}), factory.asked);
}

TEST_F(BuilderWiringTest, LocksTheTreeThroughSemaphoresWhenConfigured) {
    specify("Chassis\ncomponent,Board,2\n\nBoard\nfeature,Lockable\n",
            "tavrel.lock.provider = SemLockProvider\n");
    builder->getResolver();
    names->setComponentType("Lockable", 1);
    const TraceCapture capture;
    ASSERT_EQ("nothing raised", start());
    const auto value = [](int semaphore) { return semctl(semget(5610000, 0, 0), semaphore, GETVAL); };
    Component* const board = Component::getComponent(1);

    board->writeLock();

    EXPECT_EQ(0, value(4)) << "a board has semaphores of its own";
    EXPECT_EQ(99, value(2)) << "and the root's gate knows";
    board->writeUnlock();
    EXPECT_EQ(100, value(4));
    EXPECT_EQ(100, value(2));
    EXPECT_EQ(0U, capture.count(0x40410)) << "no semaphore is used before it is there";
}

TEST_F(BuilderWiringTest, KeepsNoLockProviderThatDoesNotInitialize) {
    const auto make = factory.makers["TreePathLockProvider"];
    factory.makers["TreePathLockProvider"] = [&] {
        void* const made = make();
        provider->beforeInitialize = [] { throw std::runtime_error("no table"); };
        return made;
    };
    EXPECT_THROW(builder->getLockProvider(), std::runtime_error);
    factory.makers["TreePathLockProvider"] = make;

    const std::unique_ptr<ComponentLockProvider> made(builder->getLockProvider());

    EXPECT_EQ(provider, made.get());
    EXPECT_EQ(2, factory.timesAsked("TreePathLockProvider"));
}

TEST_F(BuilderWiringTest, PassesOnThatTheLockProviderIsUnknown) {
    makeFile(properties, "tavrel.lock.provider = treepathlockprovider\n");
    builder->loadConfig(properties);

    EXPECT_EQ("FAULT at Factory(LINE): createInstance() invalid args",
              faultText([this] { builder->getLockProvider(); }));
}

TEST_F(BuilderWiringTest, MakesTheTreeOnceOnTheDefaultStore) {
    makeFile(properties, "tavrel.res.name = main\n");
    builder->loadConfig(properties);

    const std::unique_ptr<TreeConfig> tree(builder->getTreeConfig());

    EXPECT_EQ(tree.get(), builder->getTreeConfig());
    ASSERT_NE(nullptr, store("main"));
    tree->setNodeInfo(0, 2, 0);
    tree->save();
    EXPECT_EQ(1U, store("main")->values.count("tavrel4"));
    EXPECT_EQ(1U, stores.size());
}

TEST_F(BuilderWiringTest, GivesTheTreeItsHistory) {
    specify("Chassis\n", "tavrel.history = /tmp/machine/history\n");

    EXPECT_EQ("nothing raised", start());

    EXPECT_TRUE(std::filesystem::exists("/tmp/machine/history"));
}

TEST_F(BuilderWiringTest, GivesTheTreeNoHistoryUnlessItIsConfigured) {
    specify("Chassis\n");

    EXPECT_EQ("nothing raised", start());

    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        EXPECT_TRUE(entry.path() == components || entry.path() == properties) << entry.path();
    }
}

TEST_F(BuilderWiringTest, MakesAnInitializerForEachCallerIfItIsEnabled) {
    makeFile(properties, "tavrel.initializer = enable\n");
    builder->loadConfig(properties);

    const std::unique_ptr<Initializer> first(builder->getInitializer());
    const std::unique_ptr<Initializer> second(builder->getInitializer());

    EXPECT_NE(nullptr, first);
    EXPECT_NE(first, second);
    EXPECT_EQ((Texts{"Initializer", "Initializer"}), factory.asked);
}

TEST_F(BuilderWiringTest, MakesNoInitializerUnlessItIsExactlyEnabled) {
    for (const char* const value : {"disable", "Enable", "enabled", "true", "1"}) {
        makeFile(properties, std::string("tavrel.initializer = ") + value + "\n");
        builder->loadConfig(properties);

        EXPECT_EQ(nullptr, builder->getInitializer()) << value;
    }
    EXPECT_TRUE(factory.asked.empty());
}

// --- the specifications ---

TEST_F(BuilderWiringTest, LoadsTheComponentSpecificationOnce) {
    specify("Chassis\n");
    builder->loadConfig(properties);

    Specification* const first = builder->getCompoSpec();

    EXPECT_EQ(first, builder->getCompoSpec());
    EXPECT_FALSE(first->empty());
    EXPECT_EQ((Texts{"Specification"}), factory.asked);
}

TEST_F(BuilderWiringTest, LoadsTheActionsOnce) {
    makeFile(properties, "tavrel.spec.action = actions\n");
    makeFile(actions, "::Reset\naction,Reset\n");
    builder->loadConfig(properties);

    Specification* const first = builder->getActionSpec();

    EXPECT_EQ(first, builder->getActionSpec());
    EXPECT_FALSE(first->empty());
    EXPECT_EQ((Texts{"Specification"}), factory.asked);
}

TEST_F(BuilderWiringTest, TakesNoActionsFromAnUnsetPath) {
    const TraceCapture capture;

    EXPECT_TRUE(builder->getActionSpec()->empty());

    EXPECT_EQ(0U, capture.count(0x1010c));
}

/// A specification that counts itself.
class CountedSpecification : public Specification {
public:
    explicit CountedSpecification(int& itsCount) : count(itsCount) { ++count; }
    ~CountedSpecification() override { --count; }

private:
    int& count;
};

TEST_F(BuilderWiringTest, DeletesItsSpecifications) {
    int alive = 0;
    specify("Chassis\n");
    factory.makers["Specification"] = [&] {
        return static_cast<Specification*>(new CountedSpecification(alive));
    };
    ASSERT_EQ("nothing raised", load());
    ASSERT_EQ(2, alive);

    builder.reset();

    EXPECT_EQ(0, alive);
}

TEST_F(BuilderWiringTest, KeepsNoComponentSpecificationThatDoesNotLoad) {
    int alive = 0;
    configure();
    builder->loadConfig(properties);
    factory.makers["Specification"] = [&] {
        return static_cast<Specification*>(new CountedSpecification(alive));
    };
    const TraceCapture capture;

    EXPECT_EQ("FAULT at Specification(LINE): load() invalid args",
              faultText([this] { builder->getCompoSpec(); }));

    EXPECT_EQ(0, alive);
    ASSERT_EQ(1U, capture.count(0x1010b));
    EXPECT_EQ(errorFlags, capture.of(0x1010b).front().flags);
    EXPECT_EQ((std::vector<int>{0, 0}), capture.of(0x1010b).front().arguments());
    makeFile(components, "Chassis\n");
    EXPECT_FALSE(builder->getCompoSpec()->empty()); // the next call tries again
}

TEST_F(BuilderWiringTest, KeepsNoActionsThatDoNotLoad) {
    int alive = 0;
    makeFile(properties, "tavrel.spec.action = actions\n");
    builder->loadConfig(properties);
    factory.makers["Specification"] = [&] {
        return static_cast<Specification*>(new CountedSpecification(alive));
    };
    const TraceCapture capture;

    EXPECT_EQ("FAULT at Specification(LINE): load() invalid args",
              faultText([this] { builder->getActionSpec(); }));

    EXPECT_EQ(0, alive);
    ASSERT_EQ(1U, capture.count(0x1010c));
    EXPECT_EQ(errorFlags, capture.of(0x1010c).front().flags);
    EXPECT_EQ((std::vector<int>{0, 0}), capture.of(0x1010c).front().arguments());
    makeFile(actions, "::Reset\naction,Reset\n");
    EXPECT_FALSE(builder->getActionSpec()->empty());
}

TEST_F(BuilderWiringTest, TracesThatAFactoryGivesNoSpecification) {
    factory.makers["Specification"] = []() -> void* { throw std::runtime_error("none"); };
    const TraceCapture capture;

    EXPECT_THROW(builder->getCompoSpec(), std::runtime_error);
    EXPECT_THROW(builder->getActionSpec(), std::runtime_error);

    EXPECT_EQ((std::vector<unsigned long>{0x1010b, 0x1010c}), builderTraces(capture));
}

// --- the names of all types ---

TEST_F(BuilderWiringTest, ListsTheSectionsThenTheTypesThatAreOnlyNamed) {
    specify(
        "Chassis\ncomponent,Fan,4\n,Sensor,16\n\nBoard\ncomponent,Sensor,1\n,Chip,2\n,Board2,3\n\nBoard2\n");
    builder->loadConfig(properties);
    Texts found{"Chip"}; // what is there already stays and counts

    builder->getComponentNames(found);

    EXPECT_EQ((Texts{"Chip", "Chassis", "Board", "Board2", "Fan", "Sensor"}), found);
}

TEST_F(BuilderWiringTest, LeavesOutTypesWithoutANameOrACount) {
    specify("Chassis\ncomponent,,4\n,Fan,0\n,Board,-1\n,Chip,many\n,Sensor\n,Lamp,1\n");
    builder->loadConfig(properties);
    Texts found;
    const TraceCapture capture;

    builder->getComponentNames(found);

    EXPECT_EQ((Texts{"Chassis", "Lamp"}), found);
    Texts skipped;
    for (const TraceRecord& record : capture.of(0x10100)) {
        EXPECT_EQ(debugFlags, record.flags);
        skipped.push_back(record.text());
    }
    EXPECT_EQ((Texts{"", "Fan", "Board", "Chip", "Sensor"}), skipped);
}

TEST_F(BuilderWiringTest, ListsNoNamesOfAnEmptySpecification) {
    specify("");
    builder->loadConfig(properties);
    Texts found;

    builder->getComponentNames(found);

    EXPECT_TRUE(found.empty());
}

} // namespace
