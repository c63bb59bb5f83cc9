#include "process/Machine.h"

#include "support/TraceCapture.h"

#include <qz/tavrel/BMCRelationalDB.h>
#include <qz/tavrel/Initializer.h>
#include <qz/tavrel/NameResolver.h>
#include <qz/tavrel/TreeConfig.h>
#include <qz/tavrel/TreePathLockProvider.h>

#include <gtest/gtest.h>

#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace tavrel::test {

using namespace qz::tavrel;

namespace {

constexpr const char* componentFile = "/tmp/machine.csv";
constexpr const char* propertiesFile = "/tmp/machine.properties";
constexpr key_t treeLockKey = 5600000;
constexpr key_t lockTableKey = 0x540000;

template <typename... Arguments>
void tell(const std::function<void(Arguments...)>& hook, Arguments... arguments) {
    if (hook) {
        hook(arguments...);
    }
}

/// Names with the same numbers in all processes.
class Names : public NameResolver {
public:
    explicit Names(Watch& itsWatch) : watch(itsWatch) {
        setComponentType("Chassis", chassis);
        setComponentType("Board", board);
        setComponentType("Sensor", sensor);
        setComponentType("Fan", fan);
        setPropertyKey("Serial", serialKey);
        setPropertyKey("Value", valueKey);
    }

    int getComponentType(const std::string& name) override {
        tell<const std::string&>(watch.beforeType, name);
        return NameResolver::getComponentType(name);
    }

private:
    Watch& watch;
};

class WatchedStore : public BMCRelationalDB {
public:
    explicit WatchedStore(Watch& itsWatch) : watch(itsWatch) {}

    void getValue(const std::string& key, std::string& value) override {
        BMCRelationalDB::getValue(key, value);
        tell<const std::string&>(watch.afterGet, key);
    }

    void setValue(const std::string& key, const std::string& value) override {
        tell<const std::string&>(watch.beforeSet, key);
        BMCRelationalDB::setValue(key, value);
        tell<const std::string&>(watch.afterSet, key);
    }

private:
    Watch& watch;
};

class WatchedInitializer : public Initializer {
public:
    explicit WatchedInitializer(Watch& itsWatch) : watch(itsWatch) {}

    bool doBottomUp(Component* component) override {
        tell(watch.beforeVisit, component->getComponentId());
        return Initializer::doBottomUp(component);
    }

    bool modifyProperty(int type, int key, unsigned int size, std::vector<unsigned char>& data) override {
        const bool fitted = Initializer::modifyProperty(type, key, size, data);
        if (!watch.migration || key != serialKey) {
            return fitted;
        }
        watch.migration(data);
        return true;
    }

private:
    Watch& watch;
};

void removeCaches() {
    for (const auto& entry : std::filesystem::directory_iterator("/tmp")) {
        if (entry.path().filename().string().starts_with("cache.of.")) {
            std::filesystem::remove(entry.path());
        }
    }
}

void removeAllIn(const char* folder) {
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        std::filesystem::remove_all(entry.path());
    }
}

} // namespace

// --- the machine ---

void specify(const std::string& version, const std::string& more, int serialSize) {
    std::ofstream(componentFile) << "Chassis\n"
                                 << "property,SETUP,Serial," << serialSize << "\n,tavrel.db,Value,8\n"
                                 << "component,Board," << boardCount << "\n\n"
                                 << "Board\nproperty,tavrel.db,Value,8\ncomponent,Sensor,2\n\n"
                                 << "Sensor\nproperty,tavrel.db,Value,8\n\n"
                                 << "Fan\nproperty,tavrel.db,Value,8\n";
    std::ofstream(propertiesFile) << "tavrel.compo.ver = " << version << '\n'
                                  << "tavrel.compo.max = 64\n"
                                  << "tavrel.compo.shared = enable\n"
                                  << "tavrel.spec.compo = machine.csv\n"
                                  << "tavrel.res.type = BMCRelationalDB\n"
                                  << more;
}

void restartMachine() {
    removeCaches();
    removeAllIn("/dev/shm");
    semctl(semget(treeLockKey, 0, 0), 0, IPC_RMID);
    shmctl(shmget(lockTableKey, 0, 0), IPC_RMID, nullptr);
}

void emptyMachine() {
    restartMachine();
    removeAllIn("/var/nvrdisk/current/db");
    removeAllIn("/conf/qz/db");
}

void die() {
    kill(getpid(), SIGKILL);
    std::abort();
}

// --- a process ---

void* Process::Maker::createInstance(const std::string& name) {
    if (name == "NameResolver") {
        return static_cast<NameResolver*>(new Names(process.watch));
    }
    if (name == "BMCRelationalDB") {
        return static_cast<Resource*>(new WatchedStore(process.watch));
    }
    if (name == "Initializer") {
        return static_cast<Initializer*>(new WatchedInitializer(process.watch));
    }
    return Factory::createInstance(name);
}

Process::Process(Watch itsWatch) : watch(std::move(itsWatch)) {}

Process::~Process() {
    Component::deleteAll();
}

Work Process::start() {
    const TraceCapture capture;
    Builder builder;
    builder.setFactory(&factory);
    builder.load(propertiesFile);
    builder.build();
    const bool builtTree = capture.count(0x10108) != 0;
    return {capture.count(0x90103) != 0, builtTree, !builtTree && capture.count(0x10109) != 0};
}

// --- values ---

void setValue(Component* component, std::uint32_t value) {
    const Doubled stored = Doubled::of(value);
    component->setProperty(valueKey, &stored, sizeof stored);
}

Doubled valueOf(Component* component) {
    Doubled stored;
    EXPECT_EQ(8, component->getProperty(valueKey, &stored, sizeof stored));
    return stored;
}

std::vector<Component*> all(int type) {
    std::vector<Component*> found;
    Component::getRoot()->findComponent(type, found, true);
    return found;
}

// --- what holds at all times ---

namespace {

enum Relation { owned = 0, shared = 1 };

std::vector<int> targets(int id, Relation relation) {
    std::vector<int> ids;
    Component::getTreeConfig()->get(id, ids, relation);
    return ids;
}

std::string about(int id, const std::string& what) {
    return "node " + std::to_string(id) + " " + what;
}

std::string damageOfNode(int id) {
    TreeConfig& tree = *Component::getTreeConfig();
    std::vector<int> sources;
    tree.getSrcs(id, sources);
    int owners = 0;
    for (const int source : sources) {
        const std::vector<int> ownedIds = targets(source, owned);
        const std::vector<int> sharedIds = targets(source, shared);
        const auto links = std::count(ownedIds.begin(), ownedIds.end(), id);
        owners += static_cast<int>(links);
        if (links + std::count(sharedIds.begin(), sharedIds.end(), id) != 1) {
            return about(id, "is not linked once by its source " + std::to_string(source));
        }
        if (tree.getNodeType(source) == 0) {
            return about(id, "belongs to a free node");
        }
    }
    for (const Relation relation : {owned, shared}) {
        for (const int target : targets(id, relation)) {
            std::vector<int> back;
            tree.getSrcs(target, back);
            if (std::count(back.begin(), back.end(), id) != 1) {
                return about(id, "is not known as a source of " + std::to_string(target));
            }
        }
    }
    const bool isFree = tree.getNodeType(id) == 0;
    if (isFree && (owners != 0 || !targets(id, owned).empty() || !targets(id, shared).empty())) {
        return about(id, "is free and linked");
    }
    if (!isFree && owners != (id == 0 ? 0 : 1)) {
        return about(id, "has " + std::to_string(owners) + " owners");
    }
    if (!isFree && !valueOf(Component::getComponent(id)).isWhole()) {
        return about(id, "has half a value");
    }
    return {};
}

std::string damageOfLocks() {
    auto* const provider = dynamic_cast<TreePathLockProvider*>(Component::getLockProvider());
    Component* const root = Component::getRoot();
    root->writeLock();
    root->writeUnlock();
    for (int id = 0; id < Component::getTreeConfig()->getNodeCount(); ++id) {
        const TreePathLockProvider::LockRecord& record = *provider->treeLock(Component::getComponent(id));
        const int marks = record.readers + record.writers + record.readersBeneath + record.writersBeneath +
                          record.waitingBeneath;
        if (marks != 0 || record.holders[0].pid != 0) {
            return about(id, "is marked as locked");
        }
    }
    testing::internal::CaptureStdout();
    provider->write(std::cout);
    return testing::internal::GetCapturedStdout();
}

} // namespace

std::string damage() {
    Component::getRoot()->getRevision(); // loads what others have saved
    for (int id = 0; id < Component::getTreeConfig()->getNodeCount(); ++id) {
        const std::string found = damageOfNode(id);
        if (!found.empty()) {
            return found;
        }
    }
    return damageOfLocks();
}

} // namespace tavrel::test
