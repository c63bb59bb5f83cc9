#include "build/BuilderTest.h"

#include <qz/tavrel/Initializer.h>
#include <qz/tavrel/TreeConfig.h>

#include <sys/sem.h>

using namespace qz::tavrel;
using namespace tavrel::test;

namespace {

using Ids = std::vector<unsigned long>;

constexpr const char* versionRecord = "tavrel0";
constexpr const char* machine = "Chassis\nproperty,tavrel.db,Speed,4\ncomponent,Board,2\n\n"
                                "Board\nproperty,other.db,Speed,4\n";

/// A version as it is stored.
std::string record(const std::string& version) {
    std::string bytes = version;
    bytes.resize(16);
    return bytes;
}

/// Counts itself and its runs, and can be told to raise.
class LoggedInitializer : public Initializer {
public:
    struct Log {
        int alive = 0;
        std::vector<int> visited;
        std::vector<int> modified;
        std::function<void()> before;
        std::function<void()> atEnd;
    };

    explicit LoggedInitializer(Log& itsLog) : log(itsLog) { ++log.alive; }
    ~LoggedInitializer() override {
        if (log.atEnd) {
            log.atEnd();
        }
        --log.alive;
    }
    LoggedInitializer(const LoggedInitializer&) = delete;
    LoggedInitializer& operator=(const LoggedInitializer&) = delete;

    bool doBottomUp(Component* component) override {
        if (log.before) {
            log.before();
        }
        log.visited.push_back(component->getComponentId());
        return Initializer::doBottomUp(component);
    }

    bool modifyProperty(int type, int key, unsigned int size, std::vector<unsigned char>& data) override {
        log.modified.push_back(getComponent()->getComponentId());
        return Initializer::modifyProperty(type, key, size, data);
    }

private:
    Log& log;
};

/// Bringing the tree to the configured version.
class BuilderBuildTest : public BuilderTest {
protected:
    BuilderBuildTest() {
        factory.makers["Initializer"] = [this] {
            return static_cast<Initializer*>(new LoggedInitializer(initializer));
        };
    }

    ~BuilderBuildTest() override { EXPECT_EQ(0, initializer.alive); }

    /// Writes the files of the machine in a version.
    static void release(const std::string& version, const std::string& more = "") {
        specify(machine, (version.empty() ? "" : "tavrel.compo.ver = " + version + "\n") + more);
    }

    /// Plays a whole process before the one of the test.
    void startBefore(const std::string& version) {
        release(version);
        ASSERT_EQ("nothing raised", start());
        restart();
    }

    void load() { builder->load(properties); }
    std::string build() {
        return faultText([this] { builder->build(); });
    }

    std::string version() const { return store()->values[versionRecord]; }

    static int depth(const MemoryDatabase* each) { return each->lockCalls - each->unlockCalls; }

    bool allIsFree() const {
        semid_ds state{};
        const int set = semget(5600000, 0, 0);
        return depth(store()) == 0 && depth(store("other.db")) == 0 &&
               semctl(set, 0, IPC_STAT, &state) == 0 && semctl(set, 0, GETVAL) == 100;
    }

    static int nodes() { return Component::getTreeConfig()->getNodeCount(); }

    LoggedInitializer::Log initializer;
};

TEST_F(BuilderBuildTest, BuildsTheTreeWhereNoVersionIsStored) {
    release("1.0");
    load();
    const TraceCapture capture;

    EXPECT_EQ("nothing raised", build());

    EXPECT_EQ((Ids{0x10105, 0x10106, 0x10107, 0x10108, 0x10109}), builderTraces(capture));
    EXPECT_EQ("1.0", capture.of(0x10106).front().text());
    EXPECT_EQ("Chassis", capture.of(0x10107).front().text());
    for (const unsigned long id : Ids{0x10105, 0x10106, 0x10107, 0x10108, 0x10109}) {
        EXPECT_EQ(debugFlags, capture.of(id).front().flags) << std::hex << id;
    }
    for (const unsigned long id : Ids{0x10105, 0x10108, 0x10109}) {
        EXPECT_EQ((std::vector<int>{0, 0}), capture.of(id).front().arguments()) << std::hex << id;
    }
    EXPECT_EQ(3, nodes());
    EXPECT_EQ(2, Component::getRoot()->getType());
    EXPECT_EQ(record("1.0"), version());
    EXPECT_TRUE(initializer.visited.empty()); // it is not enabled
    EXPECT_TRUE(allIsFree());
}

TEST_F(BuilderBuildTest, DoesNothingWhereTheVersionIsStored) {
    startBefore("1.0");
    release("1.0", "tavrel.initializer = enable\n");
    load();
    const int revision = Component::getRoot()->getRevision();
    const TraceCapture capture;

    EXPECT_EQ("nothing raised", build());

    EXPECT_EQ((Ids{0x10105, 0x10114}), builderTraces(capture));
    EXPECT_EQ(debugFlags, capture.of(0x10114).front().flags);
    EXPECT_EQ((std::vector<int>{0, 0}), capture.of(0x10114).front().arguments());
    EXPECT_EQ(revision, Component::getRoot()->getRevision());
    EXPECT_TRUE(provider->calls.empty());
    EXPECT_EQ(0, factory.timesAsked("Initializer"));
    EXPECT_EQ(0, store()->setCalls);
    EXPECT_TRUE(allIsFree());
}

TEST_F(BuilderBuildTest, DoesNothingAtItsSecondCall) {
    release("1.0");
    ASSERT_EQ("nothing raised", start());
    const TraceCapture capture;

    EXPECT_EQ("nothing raised", build());

    EXPECT_EQ((Ids{0x10105, 0x10114}), builderTraces(capture));
}

TEST_F(BuilderBuildTest, LeavesTheTreeAloneWhenTheVersionIsRaised) {
    startBefore("1.0");
    release("1.1", "tavrel.compo.type = Board\n");
    load();
    const int revision = Component::getRoot()->getRevision();
    const TraceCapture capture;

    EXPECT_EQ("nothing raised", build());

    EXPECT_EQ((Ids{0x10105, 0x10109}), builderTraces(capture));
    EXPECT_EQ(2, Component::getRoot()->getType());
    EXPECT_EQ(revision, Component::getRoot()->getRevision());
    EXPECT_EQ(3, nodes());
    EXPECT_EQ(record("1.1"), version()); // also without an initializer
    EXPECT_TRUE(allIsFree());
}

TEST_F(BuilderBuildTest, StoresALowerVersionLikeAHigherOne) {
    startBefore("1.1");
    release("1.0");

    EXPECT_EQ("nothing raised", start());

    EXPECT_EQ(record("1.0"), version());
}

TEST_F(BuilderBuildTest, ZeroesThePropertiesOfAFreshTree) {
    release("1.0", "tavrel.initializer = enable\n");

    EXPECT_EQ("nothing raised", start());

    EXPECT_EQ((std::vector<int>{1, 2, 0}), initializer.visited);
    EXPECT_TRUE(initializer.modified.empty());
    EXPECT_EQ(std::string(4, '\0'), store()->values["tavrel3.300"]);
    EXPECT_EQ(std::string(4, '\0'), store("other.db")->values["tavrel4.300"]);
    EXPECT_EQ(std::string(4, '\0'), store("other.db")->values["tavrel5.300"]);
    EXPECT_EQ(0, initializer.alive);
}

TEST_F(BuilderBuildTest, FitsThePropertiesWhenTheVersionIsRaised) {
    release("1.0");
    ASSERT_EQ("nothing raised", start());
    Component::getRoot()->setProperty(300, 0x01020304);
    restart();
    std::filesystem::remove(cache);
    specify("Chassis\nproperty,tavrel.db,Speed,6\ncomponent,Board,2\n\nBoard\nproperty,other.db,Speed,4\n",
            "tavrel.compo.ver = 1.1\ntavrel.initializer = enable\n");

    EXPECT_EQ("nothing raised", start());

    EXPECT_EQ((std::vector<int>{1, 2, 0}), initializer.modified);
    EXPECT_EQ(std::string("\1\2\3\4\0\0", 6), store()->values["tavrel3.300"]);
    EXPECT_EQ(record("1.1"), version());
}

// --- the version ---

TEST_F(BuilderBuildTest, RecognizesAVersionOf15Characters) {
    startBefore("123456789.12345");
    EXPECT_EQ(record("123456789.12345"), disks[defaultStore][versionRecord]);
    release("123456789.12345");
    const TraceCapture capture;

    EXPECT_EQ("nothing raised", start());

    EXPECT_EQ(1U, capture.count(0x10114));
}

TEST_F(BuilderBuildTest, NeverRecognizesAVersionOf16Characters) {
    startBefore("123456789.123456");
    EXPECT_EQ("123456789.123456", disks[defaultStore][versionRecord]);
    release("123456789.123456", "tavrel.initializer = enable\n");
    const TraceCapture capture;

    EXPECT_EQ("nothing raised", start());

    EXPECT_EQ(0U, capture.count(0x10114));
    EXPECT_EQ(0U, capture.count(0x10108));
    EXPECT_FALSE(initializer.modified.empty());
    EXPECT_EQ("123456789.123456", version());
}

TEST_F(BuilderBuildTest, CutsAVersionOf17Characters) {
    startBefore("123456789.1234567");
    EXPECT_EQ("123456789.123456", disks[defaultStore][versionRecord]);
    release("123456789.1234567", "tavrel.initializer = enable\n");
    const TraceCapture capture;

    EXPECT_EQ("nothing raised", start());

    EXPECT_EQ(0U, capture.count(0x10114));
    EXPECT_FALSE(initializer.modified.empty());
    EXPECT_EQ("123456789.123456", version());
}

TEST_F(BuilderBuildTest, TracesTheWholeOfALongVersion) {
    release("123456789.1234567");
    const TraceCapture capture;

    EXPECT_EQ("nothing raised", start());

    EXPECT_EQ("123456789.1234567", capture.of(0x10106).front().text());
}

TEST_F(BuilderBuildTest, RecognizesAVersionThatIsStoredWithoutItsZeros) {
    startBefore("1.0");
    disks[defaultStore][versionRecord] = "1.0";
    release("1.0");
    const TraceCapture capture;

    EXPECT_EQ("nothing raised", start());

    EXPECT_EQ(1U, capture.count(0x10114));
}

TEST_F(BuilderBuildTest, RebuildsTheTreeAtEachStartWithoutAVersion) {
    release("");
    ASSERT_EQ("nothing raised", start());
    EXPECT_EQ(record(""), version());
    Component::getRoot()->createComponent(4);
    ASSERT_EQ(4, nodes());
    restart();
    const TraceCapture capture;

    EXPECT_EQ("nothing raised", start());

    EXPECT_EQ("non", capture.of(0x10106).front().text());
    EXPECT_EQ(debugFlags, capture.of(0x10106).front().flags);
    EXPECT_EQ(1U, capture.count(0x10108));
    std::vector<Component*> children;
    Component::getRoot()->getComponent(children, true);
    EXPECT_EQ(2U, children.size()); // the two boards; what was added is gone
    std::vector<Component*> fans;
    Component::getRoot()->getComponent(4, fans);
    EXPECT_TRUE(fans.empty());
}

TEST_F(BuilderBuildTest, RebuildsAStoredTreeOnceTheVersionIsLeftUnset) {
    startBefore("1.0");
    release("", "tavrel.initializer = enable\n");
    const TraceCapture capture;

    EXPECT_EQ("nothing raised", start());

    EXPECT_EQ(1U, capture.count(0x10108));
    EXPECT_TRUE(initializer.modified.empty());
    EXPECT_EQ(record(""), version());
}

TEST_F(BuilderBuildTest, TakesATreeOfNoVersionForAnOlderOne) {
    startBefore("");
    release("1.0", "tavrel.initializer = enable\n");
    const TraceCapture capture;

    EXPECT_EQ("nothing raised", start());

    EXPECT_EQ(0U, capture.count(0x10108));
    EXPECT_FALSE(initializer.modified.empty());
    EXPECT_EQ(record("1.0"), version());
}

// --- the root's type ---

TEST_F(BuilderBuildTest, TakesTheConfiguredRootType) {
    release("1.0", "tavrel.compo.type = Board\n");

    EXPECT_EQ("nothing raised", start());

    EXPECT_EQ(3, Component::getRoot()->getType());
}

TEST_F(BuilderBuildTest, TakesTheFirstTypeOfTheSpecificationOtherwise) {
    release("1.0");
    load();
    restart();
    load(); // with the cache, so that the specification has not been read yet
    ASSERT_EQ(1, factory.timesAsked("Specification"));

    EXPECT_EQ("nothing raised", build());

    EXPECT_EQ(2, factory.timesAsked("Specification"));
    EXPECT_EQ(2, Component::getRoot()->getType());
}

TEST_F(BuilderBuildTest, TakesTheTypeOfItsCaller) {
    release("1.0", "tavrel.compo.type = Chassis\n");
    load();

    builder->build("Board");

    EXPECT_EQ(3, Component::getRoot()->getType());
}

TEST_F(BuilderBuildTest, RefusesASpecificationWithoutTypes) {
    specify("");
    load();
    const TraceCapture capture;

    EXPECT_EQ("FAULT at Builder(LINE): build() root compo type is not found.", build());

    EXPECT_TRUE(builderTraces(capture).empty());
    EXPECT_TRUE(provider->calls.empty());
    EXPECT_EQ(0, store()->setCalls);
}

// --- locks ---

TEST_F(BuilderBuildTest, TakesItsLocksInTheirOrderAndGivesThemBackInReverse) {
    release("1.0", "tavrel.initializer = enable\n");
    load();
    MemoryDatabase* const main = store();
    MemoryDatabase* const other = store("other.db");
    Texts seen;
    const auto note = [&](const std::string& what) {
        const auto held = [&](const char* call) {
            return std::count(provider->calls.begin(), provider->calls.end(), call);
        };
        const auto root = held("writeLock 0") - held("writeUnlock 0");
        seen.push_back(what + ": " + std::to_string(depth(main)) + std::to_string(root) +
                       std::to_string(depth(other)));
    };
    bool asked = false;
    main->beforeGet = [&] {
        if (!asked) {
            note("first read");
        }
        asked = true;
    };
    provider->before = note;
    initializer.before = [&] {
        if (initializer.visited.empty()) {
            note("initializer");
        }
    };
    initializer.atEnd = [&] { note("initializer's end"); };
    main->beforeSet = [&] {
        if (main->values.count("tavrel4") != 0) {
            note("write");
        }
    };

    EXPECT_EQ("nothing raised", build());

    // Depths of the default store, the root and the other store; the manager holds both stores.
    EXPECT_EQ("first read: 100", seen.at(0));
    EXPECT_EQ("writeLock 0: 100", seen.at(1));
    EXPECT_EQ("initializer: 211", seen.at(2));
    EXPECT_EQ("write: 211", seen.at(3));
    EXPECT_EQ("initializer's end: 211", seen.at(4));
    EXPECT_EQ("writeUnlock 0: 110", seen.at(5));
    EXPECT_EQ(6U, seen.size());
    EXPECT_TRUE(allIsFree());
}

TEST_F(BuilderBuildTest, StoresTheVersionBehindEverythingElse) {
    release("1.0", "tavrel.initializer = enable\n");
    load();
    MemoryDatabase* const main = store();
    std::map<std::string, std::string> atVersion;
    main->beforeSet = [&] { atVersion = main->values; };

    EXPECT_EQ("nothing raised", build());

    // The last value that was written is the version: the tree was complete by then.
    EXPECT_EQ(0U, atVersion.count(versionRecord));
    for (const char* const key : {"tavrel1", "tavrel4", "tavrel5", "tavrel3.300"}) {
        EXPECT_EQ(main->values[key], atVersion[key]) << key;
        EXPECT_FALSE(main->values[key].empty()) << key;
    }
}

TEST_F(BuilderBuildTest, FindsWhatAnotherProcessHasDoneWhileItWaitedForTheRoot) {
    release("1.0", "tavrel.initializer = enable\n");
    load();
    provider->before = [this](const std::string& call) {
        if (call == "writeLock 0") {
            store()->values[versionRecord] = record("1.0");
        }
    };
    const TraceCapture capture;

    EXPECT_EQ("nothing raised", build());

    EXPECT_EQ((Ids{0x10105, 0x10114}), builderTraces(capture));
    EXPECT_EQ(0, nodes());
    EXPECT_EQ(0, factory.timesAsked("Initializer"));
    EXPECT_EQ((Texts{"writeLock 0", "writeUnlock 0"}), provider->calls);
    EXPECT_TRUE(allIsFree());
}

TEST_F(BuilderBuildTest, FitsATreeThatAnotherProcessHasMadeInAnotherVersionMeanwhile) {
    release("1.1", "tavrel.initializer = enable\n");
    load();
    provider->before = [this](const std::string& call) {
        if (call == "writeLock 0") {
            store()->values[versionRecord] = record("1.0");
        }
    };
    const TraceCapture capture;

    EXPECT_EQ("nothing raised", build());

    EXPECT_EQ((Ids{0x10105, 0x10109}), builderTraces(capture));
    EXPECT_EQ((std::vector<int>{0}), initializer.visited);
    EXPECT_EQ(record("1.1"), version());
}

// --- failures ---

TEST_F(BuilderBuildTest, LeavesTheWorkToTheNextProcessWhenTheInitializerFails) {
    startBefore("1.0");
    release("1.1", "tavrel.initializer = enable\n");
    load();
    initializer.before = [] { throw std::runtime_error("no migration"); };
    const TraceCapture capture;

    EXPECT_THROW(builder->build(), std::runtime_error);

    EXPECT_EQ((Ids{0x10105}), builderTraces(capture));
    EXPECT_EQ(record("1.0"), version());
    EXPECT_EQ(0, initializer.alive);
    EXPECT_EQ((Texts{"writeLock 0", "writeUnlock 0"}), provider->calls);
    EXPECT_TRUE(allIsFree());
    initializer.before = nullptr;
    EXPECT_EQ("nothing raised", build());
    EXPECT_EQ(record("1.1"), version());
}

TEST_F(BuilderBuildTest, LeavesTheWorkToTheNextProcessWhenTheTreeCannotBeMade) {
    release("1.0", "tavrel.compo.max = 3\n");
    load();
    Component::setMaxCount(2); // the second board finds no id
    const TraceCapture capture;

    EXPECT_EQ("FAULT at Component(LINE): getComponent() invalid id in getComponent.", build());

    EXPECT_EQ((Ids{0x10105, 0x10106, 0x10107}), builderTraces(capture));
    EXPECT_EQ(0U, store()->values.count(versionRecord));
    EXPECT_TRUE(allIsFree());
    Component::setMaxCount(4096);
    EXPECT_EQ("nothing raised", build());
    EXPECT_EQ(record("1.0"), version());
    std::vector<Component*> boards;
    Component::getRoot()->getComponent(3, boards);
    EXPECT_EQ(2U, boards.size()); // none is left of the first attempt
}

TEST_F(BuilderBuildTest, StoresNoVersionWhenTheTreeCannotBeSaved) {
    release("1.0");
    load();
    provider->beforeUpdate = [] { throw std::runtime_error("no update"); };

    EXPECT_THROW(builder->build(), std::runtime_error);

    EXPECT_EQ(0U, store()->values.count(versionRecord));
    EXPECT_TRUE(allIsFree());
}

TEST_F(BuilderBuildTest, PassesOnThatTheRootCannotBeLocked) {
    release("1.0");
    load();
    provider->before = [](const std::string&) { throw TavrelException("no lock"); };

    EXPECT_THROW(builder->build(), TavrelException);

    EXPECT_EQ(0U, store()->values.count(versionRecord));
    EXPECT_TRUE(allIsFree());
    provider->before = nullptr;
    EXPECT_EQ("nothing raised", build());
}

TEST_F(BuilderBuildTest, PassesOnThatTheTreeCannotBeLoadedBeforeItLocksTheRoot) {
    startBefore("1.0");
    release("1.1");
    load();
    store()->values["tavrel4"][3] ^= 1; // another revision: there is something to load
    provider->beforeUpdate = [] { throw std::runtime_error("no update"); };

    EXPECT_THROW(builder->build(), std::runtime_error);

    EXPECT_TRUE(provider->calls.empty());
    EXPECT_EQ(record("1.0"), version());
    EXPECT_TRUE(allIsFree());
}

TEST_F(BuilderBuildTest, PassesOnThatTheDefaultStoreCannotBeMade) {
    specify("Chassis\n");
    builder->loadConfig(properties);
    factory.makers.erase("VolatileDB");

    EXPECT_EQ("FAULT at Factory(LINE): createInstance() invalid args", build());
}

} // namespace
