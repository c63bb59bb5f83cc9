#include "SlotStore.h"
#include "support/ChildProcess.h"

#include <qz/tavrel/BMCRelationalDB.h>
#include <qz/tavrel/LockObject.h>
#include <qz/tavrel/TreeConfig.h>

#include <gtest/gtest.h>

#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <new>
#include <random>
#include <thread>
#include <vector>

using qz::tavrel::SemRWLock;
using qz::tavrel::TreeConfig;
using namespace tavrel::test;

namespace {

using Ids = std::vector<int>;

constexpr int owned = 0;

/// Counts the sections that processes have finished; lies in memory that forked processes share.
class SharedCount {
public:
    SharedCount()
        : page(mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1,
                    0)),
          value(new (page) std::atomic<int>(0)) {}
    ~SharedCount() { munmap(page, sizeof(std::atomic<int>)); }
    SharedCount(const SharedCount&) = delete;
    SharedCount& operator=(const SharedCount&) = delete;

    std::atomic<int>& operator*() const { return *value; }

private:
    void* page;
    std::atomic<int>* value;
};

using Open = std::function<std::shared_ptr<qz::tavrel::Resource>()>;

/// What a process has: a store, and the tree on it under the lock of all processes.
class View {
public:
    explicit View(const Open& open) : store(open()) {
        SemRWLock::initialize(1);
        tree.assign(store.get(), new SemRWLock(0));
    }

    void refresh() {
        change([] {});
    }

    void change(const std::function<void()>& body) {
        tree.writeLock();
        tree.lock();
        body();
        tree.unlock();
        tree.writeUnlock();
    }

    Ids targetsOf(int src) {
        Ids out;
        tree.get(src, out, owned);
        return out;
    }

    Ids sourcesOf(int dst) {
        Ids out;
        tree.getSrcs(dst, out);
        return out;
    }

private:
    std::shared_ptr<qz::tavrel::Resource> store;

public:
    TreeConfig tree;
};

/// Each link is known once at both of its ends.
void expectMirror(View& view) {
    for (int id = 0; id < view.tree.getNodeCount(); ++id) {
        for (const int child : view.targetsOf(id)) {
            const Ids sources = view.sourcesOf(child);
            ASSERT_EQ(1, std::count(sources.begin(), sources.end(), id)) << id << " -> " << child;
        }
        for (const int parent : view.sourcesOf(id)) {
            const Ids targets = view.targetsOf(parent);
            ASSERT_EQ(1, std::count(targets.begin(), targets.end(), id)) << parent << " -> " << id;
        }
    }
}

/// Nodes in use besides the root hang under exactly one node in use, and free ones have no links.
void expectWholeTree(View& view) {
    expectMirror(view);
    for (int id = 0; id < view.tree.getNodeCount(); ++id) {
        const Ids sources = view.sourcesOf(id);
        const bool isInUse = view.tree.getNodeType(id) != 0;
        ASSERT_EQ(isInUse && id != 0 ? 1U : 0U, sources.size()) << "node " << id;
        ASSERT_TRUE(sources.empty() || view.tree.getNodeType(sources[0]) != 0) << "node " << id;
        ASSERT_TRUE(isInUse || view.targetsOf(id).empty()) << "node " << id;
    }
}

/// Attaches a new node under a random one, or frees a random leaf, and counts the section in the root's
/// number.
void changeAtRandom(View& view, std::minstd_rand& random) {
    constexpr int most = 200;
    TreeConfig& tree = view.tree;
    const int count = tree.getNodeCount();
    const int chosen = static_cast<int>(random() % static_cast<unsigned>(count));
    const bool isInUse = tree.getNodeType(chosen) != 0;
    const int unused = tree.getUnusedNodeId();
    if (isInUse && chosen != 0 && view.targetsOf(chosen).empty() && random() % 2 == 0) {
        tree.remove(tree.getSrc(chosen), chosen, owned);
        tree.setNodeInfo(chosen, 0, -1);
    } else if (unused != -1 || count < most) {
        const int id = unused != -1 ? unused : count;
        tree.add(isInUse ? chosen : 0, id, owned);
        tree.setNodeInfo(id, 7, 0);
    }
    tree.setNodeInfo(0, 1, tree.getNodeNumber(0) + 1);
}

std::shared_ptr<qz::tavrel::Resource> openFile() {
    auto store = std::make_shared<qz::tavrel::BMCRelationalDB>();
    store->initialize("state");
    return store;
}

class TreeConfigUnderLoad : public testing::Test {
protected:
    void build() {
        View view(open);
        view.change([&] { view.tree.setNodeInfo(0, 1, 0); });
    }

    /// Starts a process that changes the tree `sections` times and looks at it each time. It has loaded the
    /// tree when this returns, and begins when it is told.
    ChildProcess& start(int sections) {
        const auto seed = static_cast<unsigned>(processes.size()) + 1;
        processes.push_back(std::make_unique<ChildProcess>([this, sections, seed](Talk& talk) {
            View view(open);
            std::minstd_rand random(seed);
            view.refresh();
            talk.tell('r');
            talk.waitFor('g');
            for (int i = 0; i < sections && !HasFailure(); ++i) {
                view.change([&] {
                    expectGood(view);
                    changeAtRandom(view, random);
                });
                ++*finished;
            }
            return 0;
        }));
        EXPECT_TRUE(processes.back()->talk().waitFor('r'));
        return *processes.back();
    }

    void go() {
        for (const auto& process : processes) {
            process->talk().tell('g');
        }
    }

    /// Waits until the processes have finished `more` sections; false, and a failed test, when they stand
    /// still.
    bool letThemFinish(int more) {
        const int goal = *finished + more;
        const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (*finished < goal) {
            if (std::chrono::steady_clock::now() > patience) {
                ADD_FAILURE() << "no process goes on";
                return false;
            }
            std::this_thread::yield();
        }
        return true;
    }

    Open open = openFile;
    void (*expectGood)(View&) = expectWholeTree;
    SharedCount finished;
    std::vector<std::unique_ptr<ChildProcess>> processes;
};

TEST_F(TreeConfigUnderLoad, LosesNoChangeOfAnyProcess) {
    constexpr int workers = 4;
    constexpr int sections = 100;
    build();
    for (int i = 0; i < workers; ++i) {
        start(sections);
    }

    go();
    for (const auto& process : processes) {
        EXPECT_EQ(0, process->wait());
    }

    View view(open);
    view.refresh();
    expectWholeTree(view);
    EXPECT_EQ(workers * sections, view.tree.getNodeNumber(0));
}

// A process that is killed between the parts leaves a half change, so nodes and links need not agree. But
// every finished section stays, and each link is known at both ends.
TEST_F(TreeConfigUnderLoad, LosesNoFinishedChangeWhenProcessesAreKilledAndStartedAnew) {
    constexpr int endless = 1000000;
    constexpr std::size_t workers = 3;
    constexpr std::size_t kills = 40;
    open = [store = std::make_shared<SlotStore>()]() -> std::shared_ptr<qz::tavrel::Resource> {
        return store;
    };
    expectGood = expectMirror;
    build();
    ChildProcess& survivor = start(600);
    std::array<ChildProcess*, workers> victims{};
    for (ChildProcess*& victim : victims) {
        victim = &start(endless);
    }

    go();
    for (std::size_t i = 0; i < kills; ++i) {
        ASSERT_TRUE(letThemFinish(9));
        ChildProcess*& victim = victims[i % workers];
        victim->kill();
        victim = &start(endless);
        victim->talk().tell('g');
    }
    for (ChildProcess* victim : victims) {
        victim->kill();
    }
    EXPECT_EQ(0, survivor.wait());

    View view(open);
    view.refresh();
    expectMirror(view);
    EXPECT_GE(view.tree.getNodeNumber(0), *finished);
    EXPECT_LE(view.tree.getNodeNumber(0), *finished + static_cast<int>(kills + workers))
        << "each may have died before it counted its last";
}

} // namespace
