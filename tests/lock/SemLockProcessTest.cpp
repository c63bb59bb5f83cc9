#include "lock/Children.h"
#include "lock/SemLocks.h"
#include "lock/SharedPage.h"

#include <gtest/gtest.h>

#include <sched.h>

#include <array>
#include <atomic>
#include <random>
#include <thread>

using namespace tavrel::test;

namespace {

constexpr LockKind bothKinds[] = {LockKind::read, LockKind::write};

/// Stops this process before its semaphore operation `place`, counted from 0: says 's' and waits for 'g'.
class StopBefore {
public:
    StopBefore(Talk& itsTalk, int itsPlace)
        : talk(itsTalk),
          place(itsPlace),
          plain("semop", [this](const KernelCall&) { return pass(); }),
          timed("semtimedop", [this](const KernelCall&) { return pass(); }) {}

private:
    int pass() {
        if (seen++ == place) {
            talk.tell('s');
            talk.waitFor('g');
        }
        return 0;
    }

    Talk& talk;
    int place;
    int seen = 0;
    KernelStandIn plain;
    KernelStandIn timed;
};

class SemLockProcessTest : public testing::Test {
protected:
    SemLockProcessTest() { tree.switchAssignment(); }

    /// How many operations it takes to lock `component`.
    int operationsToLock(LockKind kind, Component* component) {
        OperationLog log;
        tree.lock(kind, component);
        const auto count = log.done.size();
        tree.unlock(kind, component);
        return static_cast<int>(count);
    }

    SemLockedTree tree;
};

// --- death ---

TEST_F(SemLockProcessTest, LeavesNothingBehindWhereverItIsKilled) {
    for (const LockKind kind : bothKinds) {
        const int operations = operationsToLock(kind, tree.leaf) + 4;
        int changed = 0;
        for (int place = 0; place <= operations; ++place) {
            ChildProcess killed([&](Talk& talk) {
                const StopBefore stop(talk, place);
                tree.lock(kind, tree.leaf);
                tree.unlock(kind, tree.leaf);
                talk.tell('s');
                talk.waitFor('g');
                return 0;
            });
            ASSERT_TRUE(killed.talk().waitFor('s'));
            changed += semaphoreValues() != startValues() ? 1 : 0;

            killed.kill();

            ASSERT_EQ(startValues(), semaphoreValues()) << "before operation " << place;
        }
        // A reader only waits in its first three operations; the last one ends what either has begun.
        EXPECT_EQ(kind == LockKind::read ? operations - 4 : operations - 1, changed);
    }
}

TEST_F(SemLockProcessTest, LeavesNothingBehindWhereverItIsKilledAtTheRoot) {
    for (const LockKind kind : bothKinds) {
        const int operations = operationsToLock(kind, tree.root) + 2;
        for (int place = 0; place <= operations; ++place) {
            ChildProcess killed([&](Talk& talk) {
                const StopBefore stop(talk, place);
                tree.lock(kind, tree.root);
                tree.unlock(kind, tree.root);
                talk.tell('s');
                talk.waitFor('g');
                return 0;
            });
            ASSERT_TRUE(killed.talk().waitFor('s'));

            killed.kill();

            ASSERT_EQ(startValues(), semaphoreValues()) << "before operation " << place;
        }
    }
}

TEST_F(SemLockProcessTest, LeavesNothingBehindWhenItIsKilledWhileItMakesRoom) {
    const WaitLimit shortWaits(1);
    change(0, -100); // a direct user of the root, whom both kinds wait for
    auto inTheWay = startValues();
    inTheWay[0] = 0;
    for (const LockKind kind : bothKinds) {
        for (int place = 0; place < 25; ++place) { // more than two rounds
            ChildProcess killed([&](Talk& talk) {
                const StopBefore stop(talk, place);
                tree.lock(kind, tree.leaf);
                return 0;
            });
            ASSERT_TRUE(killed.talk().waitFor('s'));

            killed.kill();

            ASSERT_EQ(inTheWay, semaphoreValues()) << "before operation " << place;
        }
    }
}

TEST_F(SemLockProcessTest, LeavesNothingBehindWhenItIsKilledWhileItWaits) {
    for (const LockKind kind : bothKinds) {
        tree.lock(LockKind::write, tree.upper);
        const auto before = semaphoreValues();
        Holder waiting(tree.provider, kind, tree.leaf);
        waitUntil([] { return sleepers() == 1; });

        waiting.kill();

        EXPECT_EQ(before, semaphoreValues());
        tree.unlock(LockKind::write, tree.upper);
    }
}

TEST_F(SemLockProcessTest, LetsAWaitingProcessInWhenTheHolderIsKilled) {
    for (const LockKind kind : bothKinds) {
        Holder killed(tree.provider, LockKind::write, tree.leaf);
        killed.expectHeld();
        Holder next(tree.provider, kind, tree.upper);
        waitUntil([] { return sleepers() == 1; });

        killed.kill();

        next.expectHeld();
        next.release();
        EXPECT_EQ(startValues(), semaphoreValues());
    }
}

// --- who excludes whom ---

TEST_F(SemLockProcessTest, ExcludesWritersFromAllAboveAndBeneathAndReadersFromWriters) {
    struct Place {
        Component* component;
        bool isOnTheWay; ///< of upper
    };
    const Place places[] = {{tree.root, true}, {tree.upper, true}, {tree.middle, true},
                            {tree.leaf, true}, {tree.below, true}, {tree.beside, false}};
    for (const LockKind heldKind : bothKinds) {
        for (const LockKind kind : bothKinds) {
            for (const Place& place : places) {
                tree.lock(heldKind, tree.upper);
                Holder other(tree.provider, kind, place.component);
                const bool excludes =
                    place.isOnTheWay && (heldKind == LockKind::write || kind == LockKind::write);

                if (excludes) {
                    waitUntil([] { return sleepers() == 1; });
                } else {
                    other.expectHeld();
                }

                tree.unlock(heldKind, tree.upper);
                if (excludes) {
                    other.expectHeld();
                }
                other.release();
                ASSERT_EQ(startValues(), semaphoreValues());
            }
        }
    }
}

TEST_F(SemLockProcessTest, HoldsNewReadersBackWhileAWriterIsOnItsWayBeneath) {
    tree.lock(LockKind::read, tree.leaf);
    Holder writer(tree.provider, LockKind::write, tree.leaf);
    waitUntil([] { return sleepersAt(9) == 1; });
    Holder reader(tree.provider, LockKind::read, tree.upper);
    waitUntil([] { return sleepersAt(7) == 1; });

    tree.unlock(LockKind::read, tree.leaf);

    writer.expectHeld();
    writer.release();
    reader.expectHeld();
    reader.release();
    EXPECT_EQ(startValues(), semaphoreValues());
}

// --- one above the other ---

/// A call that stops before each of its operations in turn, and one that comes meanwhile.
class SemLockMeetingTest : public SemLockProcessTest {
protected:
    void meet(LockKind firstKind, Component* first, LockKind secondKind, Component* second) {
        const int operations = operationsToLock(firstKind, first);
        for (int place = 0; place <= operations; ++place) {
            ChildProcess stopped([&](Talk& talk) {
                const StopBefore stop(talk, place);
                tree.lock(firstKind, first);
                tree.unlock(firstKind, first);
                return 0;
            });
            ASSERT_TRUE(stopped.talk().waitFor('s'));
            ChildProcess coming([&](Talk& talk) {
                tree.lock(secondKind, second);
                tree.unlock(secondKind, second);
                talk.tell('d');
                return 0;
            });
            waitUntil([&] { return sleepers() == 1 || coming.talk().hasMark(0); });

            stopped.talk().tell('g');

            ASSERT_EQ(0, stopped.wait()) << "stopped before operation " << place;
            ASSERT_EQ(0, coming.wait()) << "met one that stopped before operation " << place;
            ASSERT_EQ(startValues(), semaphoreValues());
        }
    }

    const WaitLimit shortWaits{2};
};

TEST_F(SemLockMeetingTest, BothComeThroughWhereverTheOneAboveIsMet) {
    for (const LockKind above : bothKinds) {
        for (const LockKind beneath : bothKinds) {
            meet(above, tree.upper, beneath, tree.leaf);
        }
    }
}

TEST_F(SemLockMeetingTest, BothComeThroughWhereverTheOneBeneathIsMet) {
    for (const LockKind above : bothKinds) {
        for (const LockKind beneath : bothKinds) {
            meet(beneath, tree.leaf, above, tree.root);
        }
    }
}

/// Lets two processes start their locks at the same moment, again and again.
class SemLockStartTest : public SemLockProcessTest {
protected:
    struct Shared {
        std::atomic<int> arrived;
        Pair pair;
    };

    /// What both locks guard is a pair: a writer raises it, a reader finds it whole.
    void startTogether(LockKind above, LockKind beneath, int starts) {
        SharedPage<Shared> shared;
        Children both(2, [&](int index) {
            const LockKind kind = index == 0 ? above : beneath;
            Component* const component = index == 0 ? tree.upper : tree.leaf;
            int torn = 0;
            for (int start = 1; start <= starts; ++start) {
                ++shared->arrived;
                waitUntil([&] { return shared->arrived >= 2 * start; });
                tree.lock(kind, component);
                if (kind == LockKind::write) {
                    shared->pair.raise();
                } else {
                    torn += shared->pair.isWhole() ? 0 : 1;
                }
                tree.unlock(kind, component);
            }
            return torn;
        });

        both.go();

        both.expectSuccess();
        const int writers = (above == LockKind::write ? 1 : 0) + (beneath == LockKind::write ? 1 : 0);
        EXPECT_EQ(writers * starts, shared->pair.first);
        EXPECT_TRUE(shared->pair.isWhole());
        EXPECT_EQ(startValues(), semaphoreValues());
    }
};

TEST_F(SemLockStartTest, BothComeThroughInEveryCombination) {
    for (const LockKind above : bothKinds) {
        for (const LockKind beneath : bothKinds) {
            startTogether(above, beneath, 200);
        }
    }
}

TEST_F(SemLockStartTest, BothComeThroughThousandsOfTimes) {
    const WaitLimit shortWaits(2); // the time that each meeting costs
    for (const LockKind above : bothKinds) {
        for (const LockKind beneath : bothKinds) {
            startTogether(above, beneath, 1000);
        }
    }
}

// --- many ---

struct Guarded {
    std::array<Pair, 2> pairs; ///< of what is beneath leaf, and of beside
    std::atomic<int> writes[2];
};

/// Locks components at random and proves with the pairs beneath each that nobody interferes.
class Worker {
public:
    Worker(SemLockedTree& lockedTree, Guarded& guardedPairs, unsigned int seed)
        : tree(lockedTree), guarded(guardedPairs), random(seed) {}

    void run(int rounds) {
        const Place places[] = {
            {tree.root, {0, 1}}, {tree.upper, {0}}, {tree.leaf, {0}}, {tree.below, {0}}, {tree.beside, {1}}};
        for (int n = 0; n < rounds; ++n) {
            const Place& place = places[random() % std::size(places)];
            const LockKind kind = random() % 3 == 0 ? LockKind::write : LockKind::read;
            tree.lock(kind, place.component);
            for (const std::size_t i : place.pairs) {
                if (kind == LockKind::write) {
                    guarded.pairs[i].raise();
                    ++guarded.writes[i];
                } else {
                    torn += guarded.pairs[i].isWhole() ? 0 : 1;
                }
            }
            tree.unlock(kind, place.component);
        }
    }

    int torn = 0;

private:
    struct Place {
        Component* component;
        std::vector<std::size_t> pairs;
    };

    SemLockedTree& tree;
    Guarded& guarded;
    std::minstd_rand random;
};

TEST_F(SemLockProcessTest, KeepsManyThreadsOfManyProcessesApartWhileHoldersAreKilled) {
    const WaitLimit shortWaits(2);
    SharedPage<Guarded> guarded;
    Children processes(3, [&](int index) {
        std::atomic<int> torn{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 2; ++i) {
            threads.emplace_back([&, i] {
                Worker worker(tree, *guarded, static_cast<unsigned int>(10 * index + i + 1));
                worker.run(150);
                torn += worker.torn;
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        return torn.load();
    });

    processes.go();
    for (int n = 0; n < 20; ++n) {
        Holder killed(tree.provider, n % 2 == 0 ? LockKind::write : LockKind::read,
                      n % 3 == 0 ? tree.upper : tree.leaf);
        killed.expectHeld();
        killed.kill();
    }

    processes.expectSuccess();
    for (std::size_t i = 0; i < guarded->pairs.size(); ++i) {
        EXPECT_EQ(guarded->writes[i], guarded->pairs[i].first);
        EXPECT_TRUE(guarded->pairs[i].isWhole());
    }
    EXPECT_EQ(startValues(), semaphoreValues());
}

} // namespace
