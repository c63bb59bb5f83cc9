#include "lock/Children.h"
#include "lock/SemLocks.h"
#include "lock/SharedPage.h"
#include "support/FaultText.h"

#include <qz/tavrel/Semaphore.h>

#include <gtest/gtest.h>

#include <sys/sem.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <sstream>
#include <thread>

using qz::tavrel::ComponentLockProvider;
using qz::tavrel::Semaphore;
using qz::tavrel::TavrelException;
using namespace tavrel::test;

namespace {

using Ids = std::vector<int>;

/// Size of the set of a key; 0 when there is none.
std::size_t sizeOf(int key) {
    semid_ds state{};
    return semctl(semget(key, 0, 0), 0, IPC_STAT, &state) == -1 ? 0 : state.sem_nsems;
}

/// Runs `body` in a thread of its own, to its end.
template <typename Body>
void inAnotherThread(Body body) {
    std::thread(body).join();
}

// --- the semaphores ---

TEST(SemLockProviderSet, HasFourSemaphoresForEachOfFiveHundredLocks) {
    std::vector<long> flags;
    const KernelStandIn semgets("semget", [&](const KernelCall& call) {
        if (call.arguments[0] == semLockKey && call.arguments[2] != 0) {
            flags.push_back(call.arguments[2]);
        }
        return 0;
    });
    SemLockProvider provider;

    provider.initialize();

    EXPECT_EQ(startValues(), semaphoreValues());
    EXPECT_EQ((std::vector<long>{1974}), flags);
}

TEST(SemLockProviderSet, IsSpreadOverSetsAsTheSystemsLimitAsks) {
    Semaphore::getInfo()->semmsl = 250;
    SemLockProvider provider;

    provider.initialize();

    for (int key = 5610000; key <= 5680000; key += 10000) {
        EXPECT_EQ(250U, sizeOf(key)) << key;
    }
    EXPECT_EQ(0U, sizeOf(5690000));
    EXPECT_TRUE(provider.operate(62, SemLockProvider::gate, -3));
    EXPECT_EQ(97, semctl(semget(5620000, 0, 0), 0, GETVAL)) << "62 * 4 + 2 is the first of the second set";
}

TEST(SemLockProviderSet, IsJoinedWithTheValuesThatItHas) {
    SemLockProvider first;
    first.initialize();
    first.operate(7, SemLockProvider::subtreeReaders, -5);
    ChildProcess second([](Talk&) {
        SemLockProvider joined;
        joined.initialize();
        EXPECT_EQ(95, valuesOf(7)[1]);
        EXPECT_TRUE(joined.operate(7, SemLockProvider::subtreeReaders, -5));
        EXPECT_EQ(90, valuesOf(7)[1]);
        return 0;
    });

    EXPECT_EQ(0, second.wait());

    EXPECT_EQ(95, valuesOf(7)[1]);
}

TEST(SemLockProviderSet, IsJoinedWhenAnotherProcessCreatesItAtTheSameMoment) {
    bool late = false;
    const KernelStandIn semgets("semget", [&](const KernelCall& call) {
        // Between the look for a set and its creation.
        if (call.arguments[0] == semLockKey && call.arguments[2] == 1974 && !late) {
            late = true;
            ChildProcess other([](Talk&) {
                SemLockProvider faster;
                faster.initialize();
                return 0;
            });
            EXPECT_EQ(0, other.wait());
        }
        return 0;
    });
    const TraceCapture capture;
    SemLockProvider provider;

    provider.initialize();

    EXPECT_TRUE(provider.operate(0, SemLockProvider::gate, -1));
    EXPECT_EQ((std::vector<int>{100, 100, 99, 0}), valuesOf(0));
    EXPECT_TRUE(capture.all().empty()) << "nothing has failed";
}

TEST(SemLockProviderSet, IsOneForAnyNumberOfProcessesThatStartAtTheSameMoment) {
    for (int round = 0; round < 5; ++round) {
        Children starters(8, [&](int) {
            SemLockProvider provider;
            provider.initialize();
            return provider.operate(0, SemLockProvider::gate, -1) ? 0 : 1;
        });

        starters.go();

        starters.expectSuccess();
        EXPECT_EQ(startValues(), semaphoreValues());
        semctl(semget(semLockKey, 0, 0), 0, IPC_RMID);
    }
}

TEST(SemLockProviderSet, RaisesWhatItsCreationRaises) {
    const KernelStandIn semgets("semget", [](const KernelCall& call) {
        return call.arguments[0] == semLockKey && call.arguments[2] != 0 ? ENOSPC : 0;
    });
    SemLockProvider provider;

    EXPECT_EQ("FAULT at Semaphore(LINE): initialize() semget failed.",
              faultText([&] { provider.initialize(); }));
}

TEST(SemLockProviderSet, StaysInTheSystemWhenTheProviderGoes) {
    {
        SemLockProvider provider;
        provider.initialize();
    }

    EXPECT_EQ(startValues(), semaphoreValues());
}

// --- which semaphores a component has ---

class SemLockProviderTest : public testing::Test {
protected:
    /// True if the assignment has been switched since `capture`.
    static bool hasSwitched(const TraceCapture& capture) { return capture.count(0x40502) != 0; }

    SemLockedTree tree;
    SemLockProvider& provider = tree.provider;
};

TEST_F(SemLockProviderTest, LocksTheRootAloneBeforeItIsConfigured) {
    SemLockProvider fresh;
    fresh.initialize();

    for (Component* const component : {tree.root, tree.upper, tree.below, tree.plain}) {
        Ids ids;
        fresh.getLockIdList(component, ids);
        EXPECT_EQ((Ids{0}), ids);
    }
}

TEST_F(SemLockProviderTest, HasNoLockIdBeforeItIsInitialized) {
    SemLockProvider fresh;
    Ids ids;

    fresh.getLockIdList(tree.leaf, ids);

    EXPECT_TRUE(ids.empty());
}

TEST_F(SemLockProviderTest, NumbersTheMarkedComponentsAndTheRootInTheOrderOfTheirIds) {
    tree.switchAssignment();

    EXPECT_EQ((Ids{0}), tree.lockIds(tree.root));
    EXPECT_EQ((Ids{1, 0}), tree.lockIds(tree.upper));
    EXPECT_EQ((Ids{2, 1, 0}), tree.lockIds(tree.leaf));
    EXPECT_EQ((Ids{3, 0}), tree.lockIds(tree.beside));
}

TEST_F(SemLockProviderTest, GivesAnUnmarkedComponentTheIdsOfTheNearestAbove) {
    tree.switchAssignment();

    EXPECT_EQ((Ids{1, 0}), tree.lockIds(tree.middle));
    EXPECT_EQ((Ids{2, 1, 0}), tree.lockIds(tree.below));
    EXPECT_EQ((Ids{0}), tree.lockIds(tree.plain));
}

TEST_F(SemLockProviderTest, AppendsLockIdsToWhatIsThere) {
    tree.switchAssignment();
    Ids ids{9};

    provider.getLockIdList(tree.upper, ids);
    provider.getLockIdList(nullptr, ids);

    EXPECT_EQ((Ids{9, 1, 0}), ids);
}

TEST_F(SemLockProviderTest, EndsTheWayWhereStoredLinksFormACircle) {
    class Ring : public qz::tavrel::TreeConfig {
    public:
        int getSrc(int component) override { return component == 0 ? 1 : 0; }
    } ring;
    ring.assign(tree.machine.store, nullptr);
    provider.readLock(tree.root);
    provider.readUnlock(tree.root);
    qz::tavrel::TreeConfig* const own = Component::getTreeConfig();
    Component::setTreeConfig(&ring);

    Ids ids;
    provider.getLockIdList(tree.root, ids);

    Component::setTreeConfig(own);
    EXPECT_EQ((Ids{0, 1}), ids);
}

TEST_F(SemLockProviderTest, CountsAMarkedRootOnce) {
    tree.machine.define(fan, "Fan").addFeature(1);

    provider.update(nullptr, 0);
    tree.switchAssignment();

    EXPECT_EQ((Ids{0}), tree.lockIds(tree.root));
    EXPECT_EQ((Ids{1, 0}), tree.lockIds(tree.upper));
    EXPECT_EQ((Ids{2, 1, 0}), tree.lockIds(tree.middle));
    EXPECT_EQ((Ids{4, 3, 2, 1, 0}), tree.lockIds(tree.below));
}

TEST_F(SemLockProviderTest, CountsASharedComponentOnce) {
    tree.plain->addComponent(tree.leaf);

    tree.switchAssignment();

    EXPECT_EQ((Ids{2, 1, 0}), tree.lockIds(tree.leaf)) << "through its owner";
    EXPECT_EQ((Ids{3, 0}), tree.lockIds(tree.beside));
}

TEST_F(SemLockProviderTest, ListensToNothingButTheTree) {
    tree.switchAssignment();
    const TraceCapture capture;

    provider.update(nullptr, 1);
    tree.switchAssignment();

    EXPECT_TRUE(capture.all().empty());
}

TEST_F(SemLockProviderTest, KeepsWhatTheBaseClassDoesNot) {
    std::ostringstream out;

    provider.write(out);
    provider.setup();

    EXPECT_EQ("", out.str());
    EXPECT_EQ(startValues(), semaphoreValues());
}

// --- how many ---

class SemLockLimitTest : public testing::Test {
protected:
    SemLockLimitTest() {
        qz::tavrel::Component::setMaxCount(600);
        machine.define(marked, "Marked").addFeature(1);
        Component* const root = machine.root(fan);
        machine.config->writeLock();
        machine.config->lock();
        for (int i = 0; i < 499; ++i) {
            root->createComponent(marked);
        }
        machine.config->unlock();
        machine.config->writeUnlock();
        provider.initialize();
        provider.update(nullptr, 0);
    }

    Ids lockIdsOf(int componentId) {
        Ids ids;
        provider.getLockIdList(Component::getComponent(componentId), ids);
        return ids;
    }

    TreeFixture machine;
    SemLockProvider provider;
};

TEST_F(SemLockLimitTest, HasSemaphoresForFiveHundredComponents) {
    provider.startLock();
    provider.endUnlock();

    EXPECT_EQ((Ids{499, 0}), lockIdsOf(499));
    provider.writeLock(Component::getComponent(499));
    EXPECT_EQ((std::vector<int>{0, 100, 99, 0}), valuesOf(499));
    provider.writeUnlock(Component::getComponent(499));
    EXPECT_EQ(startValues(), semaphoreValues());
}

TEST_F(SemLockLimitTest, RefusesOneMoreAndKeepsTheAssignment) {
    provider.startLock();
    provider.endUnlock();
    TreeFixture::add(Component::getComponent(0), marked);
    const TraceCapture capture;

    EXPECT_EQ("FAULT at SemLockProvider(LINE): configure() lack of semaphore.",
              faultText([&] { provider.update(nullptr, 0); }));

    expectWords(capture, 0x40500, errorFlags, {501, 500});
    provider.startLock();
    provider.endUnlock();
    EXPECT_EQ(0U, capture.count(0x40501));
    EXPECT_EQ(0U, capture.count(0x40502));
    EXPECT_EQ((Ids{499, 0}), lockIdsOf(499));
    EXPECT_EQ((Ids{0}), lockIdsOf(500));
}

TEST_F(SemLockLimitTest, KeepsAPreparedAssignmentWhenTheNextIsRefused) {
    TreeFixture::add(Component::getComponent(0), marked);
    EXPECT_THROW(provider.update(nullptr, 0), TavrelException);

    provider.startLock();
    provider.endUnlock();

    EXPECT_EQ((Ids{499, 0}), lockIdsOf(499));
}

// --- the switch of assignments ---

TEST_F(SemLockProviderTest, SwitchesAtTheMomentOfNoLockBeforeItLooksForTheWay) {
    const TraceCapture capture;

    provider.readLock(tree.leaf);

    expectWords(capture, 0x40502, infoFlags, {1, 0});
    EXPECT_EQ((std::vector<int>{99, 99, 100, 0}), valuesOf(2));
}

TEST_F(SemLockProviderTest, FillsTheOtherMapAndSaysWhich) {
    tree.switchAssignment();
    const TraceCapture capture;

    provider.update(nullptr, 0);

    expectWords(capture, 0x40501, infoFlags, {0, 0});
    EXPECT_EQ(0U, capture.count(0x40502));
    tree.switchAssignment();
    expectWords(capture, 0x40502, infoFlags, {0, 0});
    EXPECT_EQ((Ids{2, 1, 0}), tree.lockIds(tree.leaf));
}

TEST_F(SemLockProviderTest, PreparesTheSameMapAgainUntilItIsUsed) {
    tree.switchAssignment();
    const TraceCapture capture;

    TreeFixture::add(tree.plain, fan);
    Component* const late = TreeFixture::add(tree.plain, marked);

    for (const TraceRecord& record : capture.of(0x40501)) {
        EXPECT_EQ((std::vector<int>{0, 0}), record.arguments());
    }
    EXPECT_EQ((Ids{0}), tree.lockIds(late));
    tree.switchAssignment();
    EXPECT_EQ((Ids{4, 0}), tree.lockIds(late));
}

TEST_F(SemLockProviderTest, SwitchesOnceForOneAssignment) {
    tree.switchAssignment();
    const TraceCapture capture;

    tree.switchAssignment();

    EXPECT_TRUE(capture.all().empty());
}

TEST_F(SemLockProviderTest, DoesNotSwitchUntilEveryThreadHasUnlocked) {
    provider.readLock(tree.upper);
    provider.update(nullptr, 0);
    const TraceCapture capture;

    inAnotherThread([&] {
        provider.readLock(tree.leaf);
        provider.readUnlock(tree.leaf);
        provider.readLock(tree.leaf);
        provider.readUnlock(tree.leaf);
    });
    EXPECT_FALSE(hasSwitched(capture));
    provider.readUnlock(tree.upper);
    EXPECT_FALSE(hasSwitched(capture)) << "an unlock does not switch";

    provider.readLock(tree.upper);

    EXPECT_TRUE(hasSwitched(capture));
}

TEST_F(SemLockProviderTest, UnlocksWhatItHasLockedWhateverHasBeenPreparedMeanwhile) {
    provider.writeLock(tree.beside);
    tree.upper->deleteComponent();
    EXPECT_EQ((Ids{3, 0}), tree.lockIds(tree.beside));

    provider.writeUnlock(tree.beside);

    EXPECT_EQ(startValues(), semaphoreValues());
    tree.switchAssignment();
    EXPECT_EQ((Ids{1, 0}), tree.lockIds(tree.beside));
}

TEST_F(SemLockProviderTest, ForgetsAllLocksOfAThreadAtItsFirstUnlock) {
    provider.readLock(tree.upper);
    provider.readLock(tree.leaf);
    provider.update(nullptr, 0);
    const TraceCapture capture;
    provider.readUnlock(tree.leaf);

    inAnotherThread([&] { provider.startLock(); });

    EXPECT_TRUE(hasSwitched(capture));
    provider.readUnlock(tree.upper);
    EXPECT_EQ(startValues(), semaphoreValues());
}

TEST_F(SemLockProviderTest, ForgetsNoLockOfAnotherThread) {
    inAnotherThread([&] { provider.startLock(); });
    provider.update(nullptr, 0);
    const TraceCapture capture;
    provider.readLock(tree.leaf);
    provider.readUnlock(tree.leaf);

    provider.readLock(tree.leaf);

    EXPECT_FALSE(hasSwitched(capture));
}

TEST_F(SemLockProviderTest, LetsAForkedChildBeginWithNoLocks) {
    provider.readLock(tree.upper);
    provider.update(nullptr, 0);
    ChildProcess child([&](Talk&) {
        const TraceCapture capture;
        provider.readLock(tree.leaf);
        EXPECT_TRUE(hasSwitched(capture));
        return 0;
    });

    EXPECT_EQ(0, child.wait());

    const TraceCapture capture;
    tree.switchAssignment();
    EXPECT_FALSE(hasSwitched(capture));
}

// --- what cannot be locked ---

constexpr const char* refused = "FAULT at SemLockProvider(LINE): begin() invalid component id.";

TEST_F(SemLockProviderTest, RefusesToLockNothing) {
    for (const LockKind kind : {LockKind::read, LockKind::write}) {
        EXPECT_EQ(refused, faultText([&] { tree.lock(kind, nullptr); }));
        tree.unlock(kind, nullptr);
    }

    EXPECT_EQ(startValues(), semaphoreValues());
}

TEST_F(SemLockProviderTest, RefusesToLockAComponentOutsideTheTree) {
    tree.below->deleteComponent();

    EXPECT_EQ(refused, faultText([&] { provider.writeLock(tree.below); }));

    EXPECT_EQ(startValues(), semaphoreValues());
}

TEST_F(SemLockProviderTest, RefusesToLockBeforeItIsInitialized) {
    SemLockProvider fresh;
    EXPECT_EQ(refused, faultText([&] { fresh.readLock(tree.leaf); }));

    fresh.update(nullptr, 0);
    EXPECT_EQ(refused, faultText([&] { fresh.readLock(tree.leaf); }));
}

TEST_F(SemLockProviderTest, CountsARefusedLockNotAsUnderWay) {
    EXPECT_THROW(provider.readLock(nullptr), TavrelException);
    provider.update(nullptr, 0);
    const TraceCapture capture;

    provider.readLock(tree.leaf);

    EXPECT_TRUE(hasSwitched(capture));
}

TEST_F(SemLockProviderTest, KeepsOtherLocksOfAThreadWhenOneIsRefused) {
    provider.readLock(tree.leaf);
    EXPECT_THROW(provider.readLock(nullptr), TavrelException);
    provider.update(nullptr, 0);
    const TraceCapture capture;

    inAnotherThread([&] { provider.startLock(); });

    EXPECT_FALSE(hasSwitched(capture));
}

TEST_F(SemLockProviderTest, GivesAllBackForAComponentThatHasBeenDeletedMeanwhile) {
    for (const LockKind kind : {LockKind::read, LockKind::write}) {
        Component* const victim = TreeFixture::add(tree.middle, marked);
        tree.lock(kind, victim);
        victim->deleteComponent();

        tree.unlock(kind, victim);

        EXPECT_EQ(startValues(), semaphoreValues());
    }
}

TEST_F(SemLockProviderTest, UnlocksAlongTheWayWhatItHasNotLocked) {
    tree.switchAssignment();
    inAnotherThread([&] { provider.writeLock(tree.leaf); });

    provider.writeUnlock(tree.leaf);

    EXPECT_EQ(startValues(), semaphoreValues());
}

TEST_F(SemLockProviderTest, BlocksAThreadThatWritesTwiceAtItsOwnGate) {
    ChildProcess child([&](Talk& talk) {
        provider.writeLock(tree.leaf);
        talk.tell('h');
        provider.writeLock(tree.leaf);
        return 0;
    });
    child.talk().waitFor('h');

    waitUntil([] { return sleepersAt(10) == 1; });

    child.kill();
    EXPECT_EQ(startValues(), semaphoreValues());
}

TEST_F(SemLockProviderTest, LetsAHundredReadersInAndTheNextWait) {
    for (int i = 0; i < 100; ++i) {
        provider.readLock(tree.beside);
    }
    Holder next(provider, LockKind::read, tree.beside);
    waitUntil([] { return sleepersAt(12) == 1; });

    provider.readUnlock(tree.beside);

    next.expectHeld();
    next.release();
}

} // namespace
