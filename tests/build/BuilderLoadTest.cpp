#include "build/BuilderTest.h"
#include "support/ChildProcess.h"

#include <qz/tavrel/Action.h>
#include <qz/tavrel/ComponentClass.h>
#include <qz/tavrel/PropertyLocator.h>
#include <qz/tavrel/Specification.h>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <csignal>

using namespace qz::tavrel;
using namespace tavrel::test;

namespace {

using Ids = std::vector<unsigned long>;

constexpr const char* oneBoard = "Chassis\nproperty,tavrel.db,Speed,4\ncomponent,Board,1\naction,Reset\n";

/// Loading the classes: cache, classes, limits.
class BuilderLoadTest : public BuilderTest {
protected:
    std::string load() {
        return faultText([this] { builder->load(properties); });
    }

    /// True if no process holds the lock of the component specification.
    static bool specificationIsFree() {
        const int file = open(components, O_RDONLY);
        const bool free = flock(file, LOCK_EX | LOCK_NB) == 0;
        close(file);
        return free;
    }
};

std::vector<int> shortRecord() {
    return {0, 0};
}

TEST_F(BuilderLoadTest, WritesTheCacheAndBuildsFromItWhereThereIsNone) {
    specify(oneBoard);
    const TraceCapture capture;

    EXPECT_EQ("nothing raised", load());

    EXPECT_EQ((Ids{0x10101, 0x90101, 0x90102, 0x90103, 0x1010f, 0x10104}), builderTraces(capture));
    EXPECT_TRUE(std::filesystem::exists(cache));
    ASSERT_NE(nullptr, ComponentClass::get(2));
    EXPECT_EQ(1, ComponentClass::get(2)->getComponentCount(3));
    EXPECT_EQ(4U, ComponentClass::get(2)->getPropertyLocator()->getPropertySize(300));
}

TEST_F(BuilderLoadTest, ParsesNothingWhereThereIsACache) {
    specify(oneBoard);
    load();
    restart();
    makeFile(components, "Garbage\ncomponent,Garbage,1\n"); // would not load any more
    const TraceCapture capture;

    EXPECT_EQ("nothing raised", load());

    EXPECT_EQ((Ids{0x10101, 0x90101, 0x90104, 0x1010f, 0x10104}), builderTraces(capture));
    EXPECT_EQ(1, factory.timesAsked("Specification")); // that of the actions
    EXPECT_EQ(0, names->typeQuestions);
    ASSERT_NE(nullptr, ComponentClass::get(2));
    EXPECT_EQ(1, ComponentClass::get(2)->getComponentCount(3));
    EXPECT_EQ(4U, ComponentClass::get(2)->getPropertyLocator()->getPropertySize(300));
}

/// Counts the questions of every kind.
class AskedNames : public FixedNames {
public:
    int questions = 0;

    int getComponentType(const std::string& name) override {
        ++questions;
        return FixedNames::getComponentType(name);
    }
    std::string getComponentName(int type) override {
        ++questions;
        return FixedNames::getComponentName(type);
    }
    int getActionId(const std::string& name) override {
        ++questions;
        return FixedNames::getActionId(name);
    }
    std::string getActionName(int id) override {
        ++questions;
        return FixedNames::getActionName(id);
    }
    int getPropertyKey(const std::string& name) override {
        ++questions;
        return FixedNames::getPropertyKey(name);
    }
    std::string getPropertyName(int key) override {
        ++questions;
        return FixedNames::getPropertyName(key);
    }
    int getValue(int dictionary, const std::string& name) override {
        ++questions;
        return FixedNames::getValue(dictionary, name);
    }
    std::string getName(int dictionary, int value) override {
        ++questions;
        return FixedNames::getName(dictionary, value);
    }
};

TEST_F(BuilderLoadTest, AsksItsResolverNothingWhereThereIsACache) {
    AskedNames* asked = nullptr;
    factory.makers["NameResolver"] = [&] {
        asked = new AskedNames;
        return static_cast<NameResolver*>(asked);
    };
    specify("Chassis\nproperty,main,Speed,4\ncomponent,Board,1\naction,Reset\nfeature,Fan\n");
    load();
    EXPECT_LT(0, asked->questions);
    restart();

    EXPECT_EQ("nothing raised", load());

    EXPECT_EQ(0, asked->questions);
    EXPECT_TRUE(ComponentClass::get(2)->hasFeature(4));
}

TEST_F(BuilderLoadTest, LeavesThePlainResolverWithoutTheNamesOfTheCache) {
    factory.makers.erase("NameResolver");
    specify("Chassis\ncomponent,Board,1\n");
    load();
    const int type = builder->getResolver()->getComponentType("Board");
    EXPECT_EQ("Board", builder->getResolver()->getComponentName(type));
    restart();

    EXPECT_EQ("nothing raised", load());

    EXPECT_NE(nullptr, ComponentClass::get(type));
    EXPECT_EQ("", builder->getResolver()->getComponentName(type));
}

TEST_F(BuilderLoadTest, TracesEachStepWithTwoZerosAtLevelDebug) {
    specify(oneBoard);
    const TraceCapture capture;

    load();
    restart();
    load();

    for (const unsigned long id : Ids{0x10101, 0x90101, 0x90102, 0x90103, 0x90104, 0x1010f, 0x10104}) {
        ASSERT_LT(0U, capture.count(id)) << std::hex << id;
        EXPECT_EQ(debugFlags, capture.of(id).front().flags) << std::hex << id;
        EXPECT_EQ(shortRecord(), capture.of(id).front().arguments()) << std::hex << id;
    }
}

TEST_F(BuilderLoadTest, NamesTheCacheOfThePlainResolver) {
    specify("Chassis\n");
    factory.makers.erase("NameResolver");

    EXPECT_EQ("nothing raised", load());

    EXPECT_TRUE(std::filesystem::exists(
        "/tmp/cache.of..tmp.machine.components.resolved.by.qz::tavrel::NameResolver"));
}

TEST_F(BuilderLoadTest, WritesAnotherCacheForAnotherClassOfResolver) {
    class OtherNames : public FixedNames {};
    specify("Chassis\n");
    load();
    restart();
    factory.makers["NameResolver"] = [] { return static_cast<NameResolver*>(new OtherNames); };
    const TraceCapture capture;

    EXPECT_EQ("nothing raised", load());

    EXPECT_EQ(1U, capture.count(0x90103));
    int caches = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/tmp")) {
        caches += entry.path().filename().string().starts_with("cache.of..tmp.machine.components.") ? 1 : 0;
    }
    EXPECT_EQ(2, caches);
}

TEST_F(BuilderLoadTest, KeepsTheDotsOfASpecificationsNameInThatOfTheCache) {
    std::filesystem::create_directories("/tmp/a/b");
    makeFile("/tmp/a/b/c.d.csv", "Chassis\n");
    makeFile(properties, "tavrel.spec.compo = /tmp/a/b/c.d.csv\n");

    EXPECT_EQ("nothing raised", load());

    EXPECT_TRUE(
        std::filesystem::exists("/tmp/cache.of..tmp.a.b.c.d.csv.resolved.by.tavrel::test::FixedNames"));
}

TEST_F(BuilderLoadTest, WritesABadCacheAnew) {
    specify(oneBoard);
    load();
    const std::string good = contentOf(cache);
    const Texts damaged{"", "PMOC", "other file", good.substr(0, good.size() / 2), "PMOC" + good.substr(8)};
    for (const std::string& bad : damaged) {
        restart();
        makeFile(cache, bad);
        const TraceCapture capture;

        EXPECT_EQ("nothing raised", load());

        EXPECT_EQ((Ids{0x10101, 0x90101, 0x90102, 0x90103, 0x1010f, 0x10104}), builderTraces(capture));
        EXPECT_EQ(good, contentOf(cache));
    }
}

TEST_F(BuilderLoadTest, EndsTheProcessWhenTheCacheCannotBeReadBack) {
    specify(oneBoard);
    std::filesystem::create_directories(cache); // neither to be mapped nor to be written

    ChildProcess child([](Talk&) {
        ClientFactory plain;
        plain.makers["NameResolver"] = [] { return static_cast<NameResolver*>(new FixedNames); };
        Builder own;
        own.setFactory(&plain);
        own.load(properties);
        return 0;
    });

    EXPECT_EQ(-SIGABRT, child.wait());
    EXPECT_TRUE(specificationIsFree());
}

TEST_F(BuilderLoadTest, TracesThatTheCacheCannotBeReadBack) {
    specify(oneBoard);
    std::filesystem::create_directories(cache);

    ChildProcess child([this](Talk&) {
        static const TraceCapture capture;
        std::signal(SIGABRT, [](int) {
            const std::vector<TraceRecord> last = capture.of(0x90106);
            const bool traced = last.size() == 1 && last.front().flags == errorFlags &&
                                last.front().arguments() == shortRecord();
            _exit(traced && capture.count(0x90102) == 1 && capture.count(0x90103) == 0 ? 42 : 1);
        });
        load();
        return 0;
    });

    EXPECT_EQ(42, child.wait());
}

TEST_F(BuilderLoadTest, RefusesASpecificationThatCannotBeOpened) {
    configure();
    const TraceCapture capture;

    EXPECT_EQ("FAULT at Builder(LINE): FileLocker() invalid args", load());

    EXPECT_EQ((Ids{0x10101, 0x90105}), builderTraces(capture));
    EXPECT_EQ(errorFlags, capture.of(0x90105).front().flags);
    EXPECT_EQ(components, capture.of(0x90105).front().text());
    EXPECT_EQ(nullptr, ComponentClass::get());
    EXPECT_EQ((Texts{"NameResolver"}), factory.asked);
    EXPECT_EQ(nullptr, Component::getNameResolver());
    delete names;
}

TEST_F(BuilderLoadTest, RefusesAnUnsetSpecification) {
    makeFile(properties, "");
    const TraceCapture capture;

    EXPECT_EQ("FAULT at Builder(LINE): FileLocker() invalid args", load());

    EXPECT_EQ("", capture.of(0x90105).front().text());
    delete names;
}

TEST_F(BuilderLoadTest, WaitsForAnotherProcessThatHasTheSpecification) {
    specify(oneBoard);
    const int held = open(components, O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(0, flock(held, LOCK_EX));

    ChildProcess child([this, held](Talk& talk) {
        close(held); // the parent's alone
        talk.tell('b');
        EXPECT_EQ("nothing raised", load());
        talk.tell('d');
        return 0;
    });
    child.talk().waitFor('b');
    EXPECT_FALSE(child.talk().hasMark(100));
    EXPECT_FALSE(std::filesystem::exists(cache));
    close(held);

    EXPECT_TRUE(child.talk().waitFor('d'));
    EXPECT_EQ(0, child.wait());
}

TEST_F(BuilderLoadTest, LeavesTheSpecificationBeforeItMakesTheClasses) {
    specify(oneBoard);
    bool free = false;
    const auto make = factory.makers["VolatileDB"];
    factory.makers["VolatileDB"] = [&] {
        free = specificationIsFree();
        return make();
    };

    EXPECT_EQ("nothing raised", load());

    EXPECT_TRUE(free);
}

TEST_F(BuilderLoadTest, HoldsTheSpecificationWhileItWritesTheCache) {
    specify(oneBoard);
    bool free = true;
    factory.makers["Specification"] = [&] {
        if (factory.timesAsked("Specification") == 1) {
            free = specificationIsFree();
        }
        return new Specification;
    };

    EXPECT_EQ("nothing raised", load());

    EXPECT_FALSE(free);
}

TEST_F(BuilderLoadTest, LeavesTheSpecificationWhenItCannotBeParsed) {
    specify("include,/tmp/machine/absent\n");
    const TraceCapture capture;

    EXPECT_EQ("FAULT at Specification(LINE): load() invalid args", load());

    EXPECT_TRUE(specificationIsFree());
    EXPECT_EQ((Ids{0x10101, 0x90101, 0x90102, 0x1010b}), builderTraces(capture));
    EXPECT_EQ(nullptr, ComponentClass::get());
    delete names;
}

TEST_F(BuilderLoadTest, DeletesTheClassesWhenMakingThemFails) {
    specify("Fan\nproperty,other.db,Speed,4\naction,Stop\n\n" + std::string(oneBoard),
            "tavrel.spec.action = actions\n");
    int deleted = 0;
    class Stop : public Action {
    public:
        explicit Stop(int& itsDeleted) : deleted(itsDeleted) {}
        ~Stop() override { ++deleted; }
        void execute(Component*, int, const void*, unsigned int, void*, unsigned int) override {}

    private:
        int& deleted;
    };
    factory.makers["Stop"] = [&] { return static_cast<Action*>(new Stop(deleted)); };
    makeFile(actions, "Fan::Stop\naction,Stop\n\n::Reset\naction,Unknown\n");
    const TraceCapture capture;

    EXPECT_EQ("FAULT at Factory(LINE): createInstance() invalid args", load());

    EXPECT_EQ((Ids{0x10101, 0x90101, 0x90102, 0x90103, 0x1010a, 0x10112, 0x10102}), builderTraces(capture));
    EXPECT_EQ(errorFlags, capture.of(0x10102).front().flags);
    EXPECT_EQ(shortRecord(), capture.of(0x10102).front().arguments());
    EXPECT_EQ(nullptr, ComponentClass::get());
    EXPECT_EQ(1, deleted);
    EXPECT_EQ(nullptr, Component::getNameResolver());
    EXPECT_EQ(nullptr, Component::getTreeConfig());

    // Both tables are empty: whatever is asked for again is made again.
    factory.asked.clear();
    Action* const again = builder->getAction("Fan", "Stop");
    Resource* const store = builder->getResource("VolatileDB", "other.db");
    EXPECT_EQ((Texts{"Stop", "VolatileDB"}), factory.asked);
    delete again;
    delete store;
    delete names;
}

TEST_F(BuilderLoadTest, DeletesTheClassesWhenTheActionsDoNotLoad) {
    specify(oneBoard, "tavrel.spec.action = absent\n");
    const TraceCapture capture;

    EXPECT_EQ("FAULT at Specification(LINE): load() invalid args", load());

    EXPECT_EQ((Ids{0x10101, 0x90101, 0x90102, 0x90103, 0x1010c, 0x10102}), builderTraces(capture));
    EXPECT_EQ(nullptr, ComponentClass::get());
    delete names;
}

TEST_F(BuilderLoadTest, NeedsAFactoryThatKnowsTheDefaultClassOfResources) {
    specify(oneBoard);
    factory.makers.erase("VolatileDB");
    const TraceCapture capture;

    EXPECT_EQ("FAULT at Factory(LINE): createInstance() invalid args", load());

    EXPECT_EQ("VolatileDB", capture.of(0x10001).front().text());
    EXPECT_EQ(1U, capture.count(0x10102));
    EXPECT_EQ(nullptr, ComponentClass::get());
    delete names;
}

TEST_F(BuilderLoadTest, IsAProgrammingErrorWithoutAFactory) {
    specify(oneBoard);
    Builder bare;

    EXPECT_DEATH(bare.load(properties), "");
}

TEST_F(BuilderLoadTest, LoadsWithoutActions) {
    specify(oneBoard);

    EXPECT_EQ("nothing raised", load());

    std::vector<int> ids;
    ComponentClass::get(2)->getActionIds(ids);
    EXPECT_TRUE(ids.empty());
    EXPECT_TRUE(builder->getActionSpec()->empty());
}

// --- the limit of components ---

constexpr const char* five = "Chassis\ncomponent,Board,2\n\nBoard\ncomponent,Fan,1\n"; // 1 + 2 * (1 + 1)

TEST_F(BuilderLoadTest, AcceptsASpecificationThatNeedsAllThatIsAllowed) {
    specify(five, "tavrel.compo.max = 5\n");

    EXPECT_EQ("nothing raised", load());

    EXPECT_NE(nullptr, Component::getComponent(4));
    EXPECT_EQ("FAULT at Component(LINE): getComponent() invalid id in getComponent.",
              faultText([] { Component::getComponent(5); }));
}

TEST_F(BuilderLoadTest, RefusesASpecificationThatNeedsMoreThanIsAllowed) {
    specify(five, "tavrel.compo.max = 4\ntavrel.spec.res = redirections\n");
    makeFile(redirections, "/Chassis#0.first = second\n");
    const TraceCapture capture;

    EXPECT_EQ("FAULT at Builder(LINE): loadClass() spec error", load());

    EXPECT_EQ((Ids{0x10101, 0x90101, 0x90102, 0x90103, 0x10113}), builderTraces(capture));
    EXPECT_EQ(errorFlags, capture.of(0x10113).front().flags);
    EXPECT_EQ((std::vector<int>{5, 4}), capture.of(0x10113).front().arguments());
    EXPECT_NE(nullptr, ComponentClass::get(2)); // the classes stay
    EXPECT_EQ(nullptr, Component::getNameResolver());
    EXPECT_EQ(nullptr, Component::getTreeConfig());
    EXPECT_EQ(nullptr, Component::getLockProvider());
    EXPECT_TRUE(stores.empty());
    delete names;
}

TEST_F(BuilderLoadTest, ReadsALimitThatIsNoNumberAsNone) {
    specify("Chassis\n", "tavrel.compo.max = many\n");
    const TraceCapture capture;

    EXPECT_EQ("FAULT at Builder(LINE): loadClass() spec error", load());

    EXPECT_EQ((std::vector<int>{1, 0}), capture.of(0x10113).front().arguments());
    delete names;
}

TEST_F(BuilderLoadTest, RefusesATypeThatContainsItself) {
    specify("Chassis\ncomponent,Chassis,1\n");
    const TraceCapture capture;

    EXPECT_EQ("FAULT at Builder(LINE): loadClass() spec error", load());

    EXPECT_EQ(1U, capture.count(0x10113));
    EXPECT_EQ(4096, capture.of(0x10113).front().arguments()[1]);
    delete names;
}

TEST_F(BuilderLoadTest, RefusesTypesThatContainEachOther) {
    specify("Fan\n\nChassis\ncomponent,Board,1\n\nBoard\ncomponent,Chassis,1\n");

    EXPECT_EQ("FAULT at Builder(LINE): loadClass() spec error", load());
    delete names;
}

} // namespace
