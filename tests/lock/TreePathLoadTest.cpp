#include "lock/Children.h"
#include "lock/SharedPage.h"
#include "lock/TreePathLocks.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <random>
#include <thread>
#include <vector>

using namespace tavrel::test;

namespace {

/// What the components' locks guard: a pair for each of the two leaves and the component beside them.
struct Guarded {
    std::array<Pair, 3> pairs;
    std::atomic<int> writes[3];
};

/// Locks components at random and proves with the pairs beneath each that nobody interferes.
class Worker {
public:
    Worker(LockedTree& lockedTree, Guarded& guardedPairs, unsigned int seed)
        : tree(lockedTree), guarded(guardedPairs), random(seed) {}

    void run(int rounds) {
        for (int n = 0; n < rounds; ++n) {
            random() % 3 == 0 ? write() : read();
        }
    }

    int torn = 0;

private:
    struct Place {
        Component* component;
        std::vector<std::size_t> pairs;
    };

    Place anyPlace() {
        const Place places[] = {{tree.root, {0, 1, 2}}, {tree.upper, {0, 1}},  {tree.middle, {0, 1}},
                                {tree.leaf, {0}},       {tree.otherLeaf, {1}}, {tree.beside, {2}}};
        return places[random() % std::size(places)];
    }

    void write() {
        const Place place = anyPlace();
        tree.provider.writeLock(place.component);
        for (const std::size_t i : place.pairs) {
            guarded.pairs[i].raise();
            ++guarded.writes[i];
        }
        tree.provider.writeUnlock(place.component);
    }

    void read() {
        const Place place = anyPlace();
        tree.provider.readLock(place.component);
        for (const std::size_t i : place.pairs) {
            torn += guarded.pairs[i].isWhole() ? 0 : 1;
        }
        tree.provider.readUnlock(place.component);
    }

    LockedTree& tree;
    Guarded& guarded;
    std::minstd_rand random;
};

class TreePathLoadTest : public testing::Test {
protected:
    void expectEveryWriteCounted() {
        for (std::size_t i = 0; i < guarded->pairs.size(); ++i) {
            EXPECT_EQ(guarded->writes[i], guarded->pairs[i].first);
            EXPECT_TRUE(guarded->pairs[i].isWhole());
        }
    }

    LockedTree tree;
    SharedPage<Guarded> guarded;
};

TEST_F(TreePathLoadTest, KeepsManyProcessesApart) {
    Children workers(4, [&](int index) {
        Worker worker(tree, *guarded, static_cast<unsigned int>(index + 1));
        worker.run(3000);
        return worker.torn;
    });

    workers.go();

    workers.expectSuccess();
    expectEveryWriteCounted();
    TableView table;
    EXPECT_TRUE(table.journal().empty());
    EXPECT_TRUE(table.isUnmarked(TreeFixture::maxCount));
}

TEST_F(TreePathLoadTest, KeepsManyThreadsOfManyProcessesApart) {
    Children processes(2, [&](int index) {
        std::atomic<int> torn{0};
        std::vector<std::thread> threads;
        threads.reserve(3);
        for (int i = 0; i < 3; ++i) {
            threads.emplace_back([&, i] {
                Worker worker(tree, *guarded, static_cast<unsigned int>(10 * index + i + 1));
                worker.run(1500);
                torn += worker.torn;
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        return torn.load();
    });

    processes.go();

    processes.expectSuccess();
    expectEveryWriteCounted();
    TableView table;
    EXPECT_TRUE(table.journal().empty());
    EXPECT_TRUE(table.isUnmarked(TreeFixture::maxCount));
}

TEST_F(TreePathLoadTest, KeepsManyProcessesApartWhileHoldersAreKilled) {
    SharedPage<std::atomic<bool>> stop;
    Children workers(3, [&](int index) {
        Worker worker(tree, *guarded, static_cast<unsigned int>(index + 1));
        while (!*stop) {
            worker.run(50);
        }
        return worker.torn;
    });

    workers.go();
    for (int n = 0; n < 30; ++n) {
        Holder killed(tree.provider, n % 2 == 0 ? LockKind::write : LockKind::read,
                      n % 3 == 0 ? tree.middle : tree.leaf);
        killed.expectHeld();
        killed.kill();
    }
    *stop = true;
    // Sleepers do not look for the dead: only a call does.
    tree.provider.readLock(tree.root);
    tree.provider.readUnlock(tree.root);

    workers.expectSuccess();
    expectEveryWriteCounted();
    TableView table;
    EXPECT_TRUE(table.journal().empty());
    EXPECT_TRUE(table.isUnmarked(TreeFixture::maxCount));
}

} // namespace
