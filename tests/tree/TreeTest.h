#pragma once

#include "support/FaultText.h"
#include "support/MemoryDatabase.h"
#include "support/RecordingLock.h"
#include "support/RecordingProvider.h"
#include "support/TestClock.h"
#include "support/TraceCapture.h"
#include "support/TreeFixture.h"

#include <qz/tavrel/TreePath.h>

#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace tavrel::test {

using Ids = std::vector<int>;
using Components = std::vector<qz::tavrel::Component*>;
using Steps = std::vector<std::pair<int, int>>;
using Words = std::vector<int>; ///< of a trace record, behind process and thread

constexpr int owned = 0;
constexpr int shared = 1;

inline const std::string invalidId = "FAULT at Component(LINE): getComponent() invalid id in getComponent.";
inline const std::string revisionChanged = "FAULT at Component(LINE): update() rev changed.";

inline Steps stepsOf(qz::tavrel::TreePath& path) {
    Steps steps;
    for (int i = 0; i < path.getPathCount(); ++i) {
        const auto index = static_cast<unsigned int>(i);
        steps.emplace_back(path.getTypeAt(index), path.getNumberAt(index));
    }
    return steps;
}

/// A tree that tells what it is asked for, and can be told to raise.
class RecordingTree : public qz::tavrel::TreeConfig {
public:
    /// Called first in each operation below, with its name: let it throw to make the operation fail.
    std::function<void(const std::string& operation)> before;

    int loads = 0;
    int saves = 0;

    unsigned int load() override {
        ++loads;
        tell("load");
        return TreeConfig::load();
    }
    unsigned int save() override {
        ++saves;
        tell("save");
        return TreeConfig::save();
    }
    void get(int src, std::vector<int>& out, int relation) override {
        tell("get");
        TreeConfig::get(src, out, relation);
    }
    void getSrcs(int id, std::vector<int>& out) override {
        tell("getSrcs");
        TreeConfig::getSrcs(id, out);
    }
    int getSrc(int id) override {
        tell("getSrc");
        return TreeConfig::getSrc(id);
    }
    void add(int src, int dst, int relation) override {
        tell("add");
        TreeConfig::add(src, dst, relation);
    }
    void add(int src, std::vector<int>& dsts, int relation) override {
        tell("add list of " + std::to_string(dsts.size()));
        TreeConfig::add(src, dsts, relation);
    }
    void remove(int src, int dst, int relation) override {
        tell("remove");
        TreeConfig::remove(src, dst, relation);
    }
    void removeAll(int id) override {
        tell("removeAll");
        TreeConfig::removeAll(id);
    }

    /// How deep the calling thread is in the in-process lock. No other thread may hold it.
    int accessDepth() {
        const int depth = writeLock() - 1;
        writeUnlock();
        return depth;
    }

private:
    void tell(const std::string& operation) {
        if (before) {
            before(operation);
        }
    }
};

/// The sample tree on recording parts: chassis 0 with boards 1 and 4, of which each has two sensors: 2 and 3,
/// 5 and 6.
class TreeTest : public testing::Test {
protected:
    MemoryDatabase* const store = new MemoryDatabase;
    RecordingLock* const lock = new RecordingLock;
    RecordingTree* const config = new RecordingTree;
    RecordingProvider* const provider = new RecordingProvider;
    TreeFixture tree{{store, lock, config, provider}};
    qz::tavrel::Component* const root = tree.root();

    static constexpr int sampleSize = 7;

    static qz::tavrel::Component* at(int id) { return qz::tavrel::Component::getComponent(id); }

    static Ids idsOf(const Components& components) {
        Ids ids;
        for (qz::tavrel::Component* const each : components) {
            ids.push_back(each->getComponentId());
        }
        return ids;
    }

    static Ids childrenOf(int id) { return TreeFixture::children(at(id)); }
    static Ids allChildrenOf(int id) { return TreeFixture::children(at(id), false); }

    static Ids parentsOf(int id) {
        Components out;
        at(id)->getParents(out);
        return idsOf(out);
    }

    /// Adds a child of a type whose class makes no children, or of no class.
    static int addLeaf(int parent, int type) { return TreeFixture::add(at(parent), type)->getComponentId(); }

    /// Changes a node behind the back of its component, as another process would.
    int changeElsewhere(int id, int type, int number) {
        config->writeLock();
        config->lock();
        const int stamped = config->setNodeInfo(id, type, number);
        config->unlock();
        config->writeUnlock();
        return stamped;
    }

    int revisionOf(int id) { return config->getNodeRevision(id); }

    /// Ends what the refresh guard knows: the next call of any thread refreshes.
    void forgetRefresh() { root->readUnlock(); }

    /// How often `call` takes the lock between processes.
    template <typename Call>
    int taken(Call call) {
        const int before = lock->taken;
        call();
        return lock->taken - before;
    }
};

} // namespace tavrel::test
