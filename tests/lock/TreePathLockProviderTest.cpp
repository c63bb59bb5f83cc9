#include "lock/KernelStandIn.h"
#include "lock/TreePathLocks.h"
#include "support/FaultText.h"
#include "support/RecordingLock.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <memory>
#include <thread>
#include <vector>

using namespace tavrel::test;

namespace {

using Kinds = std::vector<int>;
using Counters = std::vector<int>;

class TreePathLockProviderTest : public testing::Test {
protected:
    int id(Component* component) { return component->getComponentId(); }

    void expectUnlocked() {
        EXPECT_TRUE(table.journal().empty());
        EXPECT_TRUE(table.isUnmarked(TreeFixture::maxCount));
    }

    LockedTree tree;
    TreePathLockProvider& provider = tree.provider;
    TableView table;
};

// --- what a lock leaves in the table ---

TEST_F(TreePathLockProviderTest, MarksTheWholePathOfAReadLock) {
    provider.readLock(tree.leaf);

    EXPECT_EQ((Counters{1, 0, 1, 0, 0}), table.counters(id(tree.leaf)));
    EXPECT_EQ((Kinds{1, 3}), table.kinds(id(tree.leaf)));
    for (Component* const above : {tree.middle, tree.upper, tree.root}) {
        EXPECT_EQ((Counters{0, 0, 1, 0, 0}), table.counters(id(above)));
        EXPECT_EQ((Kinds{3}), table.kinds(id(above)));
    }
    EXPECT_EQ((Counters{0, 0, 0, 0, 0}), table.counters(id(tree.otherLeaf)));
    ASSERT_EQ(1U, table.journal().size());
    EXPECT_EQ(1, table.journal()[0].kind);
    EXPECT_EQ(gettid(), table.journal()[0].tid);
    EXPECT_EQ(getpid(), table.journal()[0].pid);
    EXPECT_EQ(id(tree.leaf), table.journal()[0].componentId);

    provider.readUnlock(tree.leaf);

    expectUnlocked();
}

TEST_F(TreePathLockProviderTest, MarksTheWholePathOfAWriteLockAndTakesItsWaitMarksBack) {
    provider.writeLock(tree.leaf);

    EXPECT_EQ((Counters{0, 1, 0, 1, 0}), table.counters(id(tree.leaf)));
    EXPECT_EQ((Kinds{2, 4}), table.kinds(id(tree.leaf)));
    for (Component* const above : {tree.middle, tree.upper, tree.root}) {
        EXPECT_EQ((Counters{0, 0, 0, 1, 0}), table.counters(id(above)));
        EXPECT_EQ((Kinds{4}), table.kinds(id(above)));
    }
    ASSERT_EQ(1U, table.journal().size());
    EXPECT_EQ(2, table.journal()[0].kind);

    provider.writeUnlock(tree.leaf);

    expectUnlocked();
}

TEST_F(TreePathLockProviderTest, ShowsEveryLockOfTheTreeAtTheRoot) {
    provider.readLock(tree.leaf);
    provider.readLock(tree.leaf);
    provider.writeLock(tree.beside);
    provider.readLock(tree.middle);

    EXPECT_EQ((Counters{0, 0, 3, 1, 0}), table.counters(id(tree.root)));
    EXPECT_EQ((Kinds{3, 3, 4, 3}), table.kinds(id(tree.root)));
    EXPECT_EQ(4U, table.journal().size());

    provider.writeUnlock(tree.beside);
    EXPECT_EQ((Kinds{3, 3, 3}), table.kinds(id(tree.root))) << "order stays, no hole";
    provider.readUnlock(tree.leaf);
    EXPECT_EQ((Counters{1, 0, 1, 0, 0}), table.counters(id(tree.leaf)));
    provider.readUnlock(tree.middle);
    provider.readUnlock(tree.leaf);
    expectUnlocked();
}

TEST_F(TreePathLockProviderTest, MarksAComponentOfNoTreeAlone) {
    Component* const free = Component::getComponent(50);

    provider.writeLock(free);

    EXPECT_EQ((Counters{0, 1, 0, 1, 0}), table.counters(50));
    EXPECT_EQ((Counters{0, 0, 0, 0, 0}), table.counters(id(tree.root)));
    provider.writeUnlock(free);
    expectUnlocked();
}

// --- which locks exclude each other ---

TEST_F(TreePathLockProviderTest, LetsReadersOfALeafAndOfTheRootInTogether) {
    provider.readLock(tree.leaf);
    Holder above(provider, LockKind::read, tree.root);
    above.expectHeld();

    Holder writer(provider, LockKind::write, tree.leaf);
    writer.expectWaiting();
    above.release();
    writer.expectWaiting();
    provider.readUnlock(tree.leaf);

    writer.expectHeld();
    writer.release();
    expectUnlocked();
}

TEST_F(TreePathLockProviderTest, ExcludesReadersAboveAndBeneathAWriter) {
    provider.writeLock(tree.upper);

    Holder grandchild(provider, LockKind::read, tree.leaf);
    Holder grandparent(provider, LockKind::read, tree.root);
    Holder same(provider, LockKind::read, tree.upper);
    Holder sibling(provider, LockKind::read, tree.beside);

    grandchild.expectWaiting();
    grandparent.expectWaiting();
    same.expectWaiting();
    sibling.expectHeld();
    provider.writeUnlock(tree.upper);
    grandchild.expectHeld();
    grandparent.expectHeld();
    same.expectHeld();
    for (Holder* const holder : {&grandchild, &grandparent, &same, &sibling}) {
        holder->release();
    }
    expectUnlocked();
}

TEST_F(TreePathLockProviderTest, ExcludesWritersAboveAndBeneathAReader) {
    provider.readLock(tree.middle);

    Holder above(provider, LockKind::write, tree.root);
    Holder beneath(provider, LockKind::write, tree.leaf);
    Holder sibling(provider, LockKind::write, tree.beside);

    above.expectWaiting();
    beneath.expectWaiting();
    sibling.expectHeld();
    sibling.release();
    provider.readUnlock(tree.middle);
    // The two exclude each other as well: either may come first.
    waitUntil([&] { return table.record(id(tree.root)).writersBeneath == 1; });
    if (table.record(id(tree.root)).writers == 1) {
        above.expectHeld();
        above.release();
        beneath.expectHeld();
        beneath.release();
    } else {
        beneath.expectHeld();
        beneath.release();
        above.expectHeld();
        above.release();
    }
    expectUnlocked();
}

TEST_F(TreePathLockProviderTest, ExcludesWritersAboveAndBeneathAWriter) {
    for (Component* const other : {tree.root, tree.upper, tree.middle, tree.leaf}) {
        provider.writeLock(tree.middle);
        Holder writer(provider, LockKind::write, other);
        writer.expectWaiting();

        provider.writeUnlock(tree.middle);

        writer.expectHeld();
        writer.release();
    }
    expectUnlocked();
}

TEST_F(TreePathLockProviderTest, KeepsUnrelatedSubtreesApart) {
    provider.writeLock(tree.leaf);
    Holder sibling(provider, LockKind::write, tree.otherLeaf);
    Holder elsewhere(provider, LockKind::write, tree.beside);

    sibling.expectHeld();
    elsewhere.expectHeld();

    sibling.release();
    elsewhere.release();
    provider.writeUnlock(tree.leaf);
    expectUnlocked();
}

TEST_F(TreePathLockProviderTest, HoldsNewReadersBackOnThePathOfAWaitingWriter) {
    provider.readLock(tree.leaf);
    Holder writer(provider, LockKind::write, tree.middle);
    writer.expectWaiting();
    for (Component* const marked : {tree.middle, tree.upper, tree.root}) {
        EXPECT_EQ(1, table.record(id(marked)).waitingBeneath);
        EXPECT_EQ(5, table.kinds(id(marked)).back());
    }
    EXPECT_EQ(0, table.record(id(tree.leaf)).waitingBeneath);

    Holder above(provider, LockKind::read, tree.upper);
    Holder same(provider, LockKind::read, tree.middle);
    Holder beneath(provider, LockKind::read, tree.otherLeaf);

    above.expectWaiting();
    same.expectWaiting();
    beneath.expectHeld();
    beneath.release();
    provider.readUnlock(tree.leaf);
    writer.expectHeld();
    EXPECT_EQ(0, table.record(id(tree.root)).waitingBeneath);
    writer.release();
    above.expectHeld();
    same.expectHeld();
    above.release();
    same.release();
    expectUnlocked();
}

TEST_F(TreePathLockProviderTest, LetsOneThreadReadTwiceWhileNoWriterWaits) {
    provider.readLock(tree.leaf);
    provider.readLock(tree.leaf);
    provider.readLock(tree.middle);

    EXPECT_EQ((Counters{2, 0, 2, 0, 0}), table.counters(id(tree.leaf)));
    EXPECT_EQ((Counters{1, 0, 3, 0, 0}), table.counters(id(tree.middle)));

    provider.readUnlock(tree.middle);
    provider.readUnlock(tree.leaf);
    provider.readUnlock(tree.leaf);
    expectUnlocked();
}

TEST_F(TreePathLockProviderTest, SharesOnePathBetweenTheThreadsOfAProcess) {
    provider.readLock(tree.leaf);
    // The leaf moves to another parent: a path that is under way stays as it was.
    tree.machine.config->remove(id(tree.middle), id(tree.leaf), 0);
    tree.machine.config->add(id(tree.beside), id(tree.leaf), 0);

    std::thread([&] {
        provider.readLock(tree.leaf);
        EXPECT_EQ((Counters{0, 0, 2, 0, 0}), table.counters(id(tree.middle)));
        EXPECT_EQ((Counters{0, 0, 0, 0, 0}), table.counters(id(tree.beside)));
        provider.readUnlock(tree.leaf);
    }).join();
    EXPECT_EQ((Counters{0, 0, 1, 0, 0}), table.counters(id(tree.middle)));
    provider.readUnlock(tree.leaf);

    expectUnlocked();
    provider.readLock(tree.leaf);
    EXPECT_EQ((Counters{0, 0, 1, 0, 0}), table.counters(id(tree.beside))) << "worked out afresh";
    EXPECT_EQ((Counters{0, 0, 0, 0, 0}), table.counters(id(tree.middle)));
    provider.readUnlock(tree.leaf);
}

TEST_F(TreePathLockProviderTest, KnowsNothingOfTheLocksOfItsParentInAForkedProcess) {
    provider.readLock(tree.leaf);
    const pid_t parent = getpid();

    ChildProcess forked([&](Talk&) {
        provider.readLock(tree.beside);
        provider.readUnlock(tree.beside);
        provider.rd_unlock(tree.leaf, static_cast<short>(parent), static_cast<short>(parent));
        return 0;
    });

    EXPECT_EQ(0, forked.wait());
    EXPECT_EQ((Counters{0, 0, 1, 0, 0}), table.counters(id(tree.leaf))) << "no path was known for it";
    EXPECT_EQ((Counters{0, 0, 1, 0, 0}), table.counters(0));
}

TEST_F(TreePathLockProviderTest, EndsThePathWhereStoredLinksFormACircle) {
    class Ring : public qz::tavrel::TreeConfig {
    public:
        int getSrc(int component) override { return component == 0 ? 1 : 0; }
    } ring;
    ring.assign(tree.machine.store, new RecordingLock);
    qz::tavrel::TreeConfig* const own = Component::getTreeConfig();
    Component::setTreeConfig(&ring);

    provider.writeLock(tree.root);

    EXPECT_EQ((Counters{0, 1, 0, 1, 0}), table.counters(0));
    EXPECT_EQ((Counters{0, 0, 0, 1, 0}), table.counters(1));
    provider.writeUnlock(tree.root);
    expectUnlocked();
    Component::setTreeConfig(own);
}

// --- single steps ---

TEST_F(TreePathLockProviderTest, TriesWithoutWaiting) {
    EXPECT_TRUE(provider.rd_lock(tree.leaf));
    EXPECT_EQ((Counters{0, 0, 1, 0, 0}), table.counters(0));
    EXPECT_FALSE(provider.wr_lock(tree.leaf));
    EXPECT_FALSE(provider.wr_lock(tree.root));
    EXPECT_FALSE(provider.is_wait(tree.leaf));
    EXPECT_EQ(0, provider.rd_unlock(tree.leaf));
    expectUnlocked();

    EXPECT_TRUE(provider.wr_lock(tree.leaf));
    EXPECT_EQ((Counters{0, 0, 0, 1, 0}), table.counters(0));
    EXPECT_FALSE(provider.rd_lock(tree.leaf));
    EXPECT_FALSE(provider.rd_lock(tree.root));
    EXPECT_EQ(0, provider.wr_unlock(tree.leaf));
    expectUnlocked();
}

TEST_F(TreePathLockProviderTest, MarksAWaitingWriterAlongItsPath) {
    provider.set_wait(tree.leaf, true);

    for (Component* const marked : {tree.leaf, tree.middle, tree.upper, tree.root}) {
        EXPECT_TRUE(provider.is_wait(marked));
        EXPECT_EQ((Counters{0, 0, 0, 0, 1}), table.counters(id(marked)));
    }
    EXPECT_FALSE(provider.is_wait(tree.beside));

    provider.set_wait(tree.leaf, false);

    EXPECT_FALSE(provider.is_wait(tree.root));
    expectUnlocked();
}

TEST_F(TreePathLockProviderTest, TakesALockOfNoKnownPathOffTheComponentAlone) {
    for (Component* const each : {tree.leaf, tree.middle}) {
        table.record(id(each)).readers = 2;
        table.record(id(each)).readersBeneath = 2;
    }

    EXPECT_EQ(1, provider.rd_unlock(tree.leaf));

    EXPECT_EQ((Counters{1, 0, 2, 0, 0}), table.counters(id(tree.leaf)));
    EXPECT_EQ((Counters{2, 0, 2, 0, 0}), table.counters(id(tree.middle)));
}

TEST_F(TreePathLockProviderTest, GivesTheRecordOfAComponent) {
    TreePathLockProvider::LockRecord* const first = provider.treeLock(tree.root);

    EXPECT_EQ(first + id(tree.leaf), provider.treeLock(tree.leaf));
}

TEST_F(TreePathLockProviderTest, RemovesTheLastHolderThatMatchesAndKeepsTheOrder) {
    LockRecord& record = table.record(id(tree.leaf));
    record.holders[0] = {7, 8, 1};
    record.holders[1] = {7, 9, 1};
    record.holders[2] = {7, 8, 1};
    record.holders[3] = {7, 10, 1};
    record.readers = 4;

    EXPECT_EQ(3, provider.rd_unlock(tree.leaf, 7, 8));

    EXPECT_EQ(8, record.holders[0].tid);
    EXPECT_EQ(9, record.holders[1].tid);
    EXPECT_EQ(10, record.holders[2].tid);
    EXPECT_EQ(0, record.holders[3].pid);
    EXPECT_EQ(0, record.holders[3].tid);
    EXPECT_EQ(0, record.holders[3].kind);
    EXPECT_EQ(2, provider.rd_unlock(tree.leaf, 7, 99)) << "nobody matches: only the counter falls";
    EXPECT_EQ((Kinds{1, 1, 1}), table.kinds(id(tree.leaf)));
}

TEST_F(TreePathLockProviderTest, SetsTheWriteCounterToZeroOutright) {
    table.record(id(tree.leaf)).writers = 3;

    EXPECT_EQ(0, provider.wr_unlock(tree.leaf, 1, 1));

    EXPECT_EQ(0, table.record(id(tree.leaf)).writers);
}

TEST_F(TreePathLockProviderTest, ListsTheWaitingWriters) {
    const TraceCapture capture;
    provider.set_wait(tree.leaf, true);
    table.record(id(tree.leaf)).holders[1] = {5, 6, 5};

    EXPECT_TRUE(provider.is_wait(tree.leaf));

    const auto records = capture.of(0x40206);
    ASSERT_EQ(2U, records.size());
    EXPECT_EQ(infoFlags, records[0].flags);
    EXPECT_EQ((std::vector<int>{id(tree.leaf), 0, static_cast<short>(getpid()), gettid(), 0, 0}),
              records[0].arguments());
    EXPECT_EQ((std::vector<int>{id(tree.leaf), 1, 5, 6, 0, 0}), records[1].arguments());
}

TEST_F(TreePathLockProviderTest, CountsOnlyTheListedOnesOfAComponent) {
    const TraceCapture capture;
    LockRecord& record = table.record(id(tree.leaf));
    record.waitingBeneath = 1;
    record.holders[0] = {1, 2, 1};
    record.holders[1] = {3, 4, 3};
    record.holders[2] = {5, 6, 5};
    record.holders[3] = {7, 8, 1};
    record.holders[4] = {9, 10, 5};

    EXPECT_TRUE(provider.is_wait(tree.leaf));

    const auto records = capture.of(0x40206);
    ASSERT_EQ(2U, records.size());
    EXPECT_EQ((std::vector<int>{id(tree.leaf), 0, 5, 6, 0, 0}), records[0].arguments()) << "in place 2";
    EXPECT_EQ((std::vector<int>{id(tree.leaf), 1, 9, 10, 0, 0}), records[1].arguments()) << "in place 4";
}

TEST_F(TreePathLockProviderTest, ListsTheReadersBeforeTheWritersOfAComponent) {
    const TraceCapture capture;
    LockRecord& record = table.record(id(tree.leaf));
    record.readers = 1;
    record.writers = 1;
    record.holders[0] = {5, 6, 2};
    record.holders[1] = {7, 8, 1};

    EXPECT_FALSE(provider.wr_lock(tree.leaf));

    ASSERT_EQ(2U, capture.all().size());
    EXPECT_EQ(0x40209U, capture.all()[0].id);
    EXPECT_EQ((std::vector<int>{id(tree.leaf), 0, 7, 8, 0, 0}), capture.all()[0].arguments());
    EXPECT_EQ(0x4020AU, capture.all()[1].id);
    EXPECT_EQ((std::vector<int>{id(tree.leaf), 0, 5, 6, 0, 0}), capture.all()[1].arguments());
}

TEST_F(TreePathLockProviderTest, ListsWhoRefusesALock) {
    const std::vector<int> here{id(tree.leaf), 0, static_cast<short>(getpid()), gettid(), 0, 0};
    const TraceCapture capture;

    provider.writeLock(tree.leaf);
    EXPECT_FALSE(provider.rd_lock(tree.leaf));
    EXPECT_FALSE(provider.wr_lock(tree.leaf));
    EXPECT_FALSE(provider.rd_lock(tree.root));
    EXPECT_FALSE(provider.wr_lock(tree.root));
    provider.writeUnlock(tree.leaf);
    provider.readLock(tree.leaf);
    EXPECT_FALSE(provider.wr_lock(tree.leaf));
    EXPECT_FALSE(provider.wr_lock(tree.root));
    provider.readUnlock(tree.leaf);

    std::vector<int> atRoot = here;
    atRoot[0] = 0;
    expectWords(capture, 0x40207, infoFlags, here);
    expectWords(capture, 0x40208, infoFlags, atRoot);
    expectWords(capture, 0x40209, infoFlags, here);
    expectWords(capture, 0x4020A, infoFlags, here);
    expectWords(capture, 0x4020B, infoFlags, atRoot);
    expectWords(capture, 0x4020C, infoFlags, atRoot);
}

// --- waking ---

TEST_F(TreePathLockProviderTest, TracesEachWaking) {
    provider.writeLock(tree.leaf);
    ChildProcess reader([&](Talk& talk) {
        const TraceCapture capture;
        talk.tell('w');
        provider.readLock(tree.leaf);
        EXPECT_EQ(1U, capture.count(0x4020F));
        EXPECT_EQ(infoFlags, capture.of(0x4020F)[0].flags);
        talk.tell('h');
        talk.waitFor('g');
        provider.readUnlock(tree.leaf);
        return 0;
    });
    reader.talk().waitFor('w');
    waitUntil([&] { return isAsleep(reader.pid()); });
    const TraceCapture capture;

    provider.writeUnlock(tree.leaf);

    EXPECT_EQ(1U, capture.count(0x40212));
    EXPECT_EQ(debugFlags, capture.of(0x40212)[0].flags);
    EXPECT_TRUE(reader.talk().waitFor('h'));
    ChildProcess writer([&](Talk& talk) {
        const TraceCapture own;
        talk.tell('w');
        provider.writeLock(tree.leaf);
        EXPECT_EQ(1U, own.count(0x40210));
        EXPECT_EQ(debugFlags, own.of(0x40210)[0].flags);
        return 0;
    });
    writer.talk().waitFor('w');
    waitUntil([&] { return isAsleep(writer.pid()); });
    reader.talk().tell('g');
    EXPECT_EQ(0, reader.wait());
    EXPECT_EQ(0, writer.wait());
}

TEST_F(TreePathLockProviderTest, WakesWhenTheLastReaderOfAComponentLeaves) {
    provider.readLock(tree.leaf);
    provider.readLock(tree.leaf);
    const TraceCapture capture;

    provider.readUnlock(tree.leaf);
    EXPECT_EQ(0U, capture.count(0x40211));
    provider.readUnlock(tree.leaf);

    ASSERT_EQ(1U, capture.count(0x40211));
    EXPECT_EQ(infoFlags, capture.of(0x40211)[0].flags);
}

TEST_F(TreePathLockProviderTest, NeedsNoSystemCallWhileNobodyHoldsOrSleeps) {
    const KernelStandIn futexes("futex", failing(0));
    const KernelStandIn questions("tkill", failing(0));

    for (int n = 0; n < 3; ++n) {
        provider.readLock(tree.leaf);
        provider.readUnlock(tree.leaf);
        provider.writeLock(tree.root);
        provider.writeUnlock(tree.root);
    }

    EXPECT_EQ(0, futexes.calls());
    EXPECT_EQ(0, questions.calls());
}

TEST_F(TreePathLockProviderTest, WakesNobodyAgainAfterTheSleepersHaveGone) {
    provider.writeLock(tree.leaf);
    Holder reader(provider, LockKind::read, tree.leaf);
    reader.expectWaiting();
    const KernelStandIn futexes("futex", failing(0));
    provider.writeUnlock(tree.leaf);
    EXPECT_EQ(1, futexes.calls());
    reader.expectHeld();
    reader.release();

    provider.writeLock(tree.leaf);
    provider.writeUnlock(tree.leaf);

    EXPECT_EQ(1, futexes.calls());
}

TEST_F(TreePathLockProviderTest, SleepsOnAfterASignal) {
    provider.writeLock(tree.leaf);
    ChildProcess reader([&](Talk& talk) {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        sigaction(SIGUSR1, &action, nullptr);
        const KernelStandIn sleeps("futex", [&](const KernelCall&) {
            talk.tell('s');
            return 0;
        });
        provider.readLock(tree.leaf);
        talk.tell('h');
        return 0;
    });
    reader.talk().waitFor('s');
    waitUntil([&] { return isAsleep(reader.pid()); });

    kill(reader.pid(), SIGUSR1);

    EXPECT_TRUE(reader.talk().waitFor('s')) << "asleep again";
    EXPECT_FALSE(reader.talk().hasMark(0));
    provider.writeUnlock(tree.leaf);
    EXPECT_TRUE(reader.talk().waitFor('h'));
}

// --- failures ---

TEST_F(TreePathLockProviderTest, RaisesWhenTheJournalIsFull) {
    for (JournalEntry& entry : table->journal) {
        entry = {1, 1, static_cast<std::int16_t>(gettid()), getpid(), 60};
    }
    const TraceCapture capture;
    constexpr const char* fault = "FAULT at ComponentLockProvider(LINE): write() Lack of journal area";

    EXPECT_EQ(fault, faultText([&] { provider.readLock(tree.leaf); }));
    EXPECT_EQ(fault, faultText([&] { provider.writeLock(tree.beside); }));

    EXPECT_EQ(2U, capture.count(0x40200));
    EXPECT_EQ(errorFlags, capture.of(0x40200)[0].flags);
    EXPECT_EQ((Counters{1, 0, 1, 0, 0}), table.counters(id(tree.leaf))) << "the marks stay";
    EXPECT_EQ((Counters{0, 1, 0, 1, 0}), table.counters(id(tree.beside))) << "but for the wait marks";
    EXPECT_EQ(0, pthread_mutex_trylock(&table->mutex)) << "the mutex is free";
    pthread_mutex_unlock(&table->mutex);
}

TEST_F(TreePathLockProviderTest, KeepsThePathOfALockThatFoundTheJournalFull) {
    for (JournalEntry& entry : table->journal) {
        entry = {1, 1, static_cast<std::int16_t>(gettid()), getpid(), 60};
    }
    faultText([&] { provider.readLock(tree.leaf); });
    for (JournalEntry& entry : table->journal) {
        entry.inUse = 0;
    }
    provider.readLock(tree.leaf);
    provider.readUnlock(tree.leaf);
    EXPECT_EQ((Counters{0, 0, 1, 0, 0}), table.counters(id(tree.root)));

    provider.rd_unlock(tree.leaf); // knows the way up as long as the count is raised

    expectUnlocked();
}

TEST_F(TreePathLockProviderTest, EndsTheProcessThatTakesTheHundredAndTwentyNinthLock) {
    const int leafId = id(tree.leaf);
    ChildProcess many([&](Talk&) {
        for (int n = 0; n < 128; ++n) {
            provider.readLock(tree.leaf);
            // The leaf itself would be full sooner: two entries for each of its own locks.
            LockRecord& own = table.record(leafId);
            std::fill(std::begin(own.holders), std::end(own.holders), LockContext{});
        }
        EXPECT_EQ(128U, table.journal().size());
        EXPECT_EQ(128U, table.kinds(0).size());
        std::fflush(nullptr);
        provider.readLock(tree.beside);
        return 0;
    });

    EXPECT_EQ(-SIGABRT, many.wait());
}

TEST_F(TreePathLockProviderTest, ListsTheHoldersOfAFullComponentBeforeItEnds) {
    ChildProcess full([&](Talk& talk) {
        static Talk* told;
        static TraceCapture* capture;
        told = &talk;
        LockRecord& root = table.record(0);
        for (int i = 0; i < TreePathLockProvider::holderCount; ++i) {
            root.holders[i] = {1, static_cast<std::int16_t>(i), 3};
        }
        capture = new TraceCapture;
        std::signal(SIGABRT, [](int) {
            EXPECT_EQ(128U, capture->count(0x4020E));
            EXPECT_EQ(infoFlags, capture->of(0x4020E)[0].flags);
            EXPECT_EQ(1U, capture->count(0x4020D));
            EXPECT_EQ(errorFlags, capture->of(0x4020D)[0].flags);
            EXPECT_EQ(0x4020DU, capture->all().back().id);
            EXPECT_EQ(EBUSY, pthread_mutex_trylock(&TableView()->mutex)) << "it ends with the mutex held";
            told->tell(HasFailure() ? 'x' : 'a');
        });
        provider.readLock(tree.beside);
        return 0;
    });

    EXPECT_TRUE(full.talk().waitFor('a'));
    EXPECT_EQ(-SIGABRT, full.wait());
}

TEST_F(TreePathLockProviderTest, TracesAnUnlockWithoutALockAndGoesOn) {
    const TraceCapture capture;

    provider.readUnlock(tree.leaf);

    expectWords(capture, 0x40205, errorFlags, {id(tree.leaf), 0});
    EXPECT_EQ(1U, capture.count(0x40204)) << "the read counter of the leaf; it has no path here";
    EXPECT_EQ(errorFlags, capture.of(0x40204)[0].flags);
    provider.writeUnlock(tree.leaf);
    EXPECT_EQ(2U, capture.count(0x40205));
    expectUnlocked();
    provider.writeLock(tree.leaf);
    provider.writeUnlock(tree.leaf);
    expectUnlocked();
}

TEST_F(TreePathLockProviderTest, TracesAForkedProcessByItsOwnIds) {
    provider.readUnlock(tree.leaf);

    ChildProcess forked([&](Talk&) {
        const TraceCapture capture;
        provider.readUnlock(tree.leaf);
        expectWords(capture, 0x40205, errorFlags, {id(tree.leaf), 0});
        return 0;
    });

    EXPECT_EQ(0, forked.wait());
}

TEST_F(TreePathLockProviderTest, DoesNotCompareTheKindOfAnUnlock) {
    provider.readLock(tree.leaf);
    const TraceCapture capture;

    provider.writeUnlock(tree.leaf);

    EXPECT_EQ(0U, capture.count(0x40205));
    EXPECT_TRUE(table.journal().empty());
    EXPECT_EQ(1, table.record(id(tree.leaf)).readers) << "a client's mistake that the table keeps";
}

TEST_F(TreePathLockProviderTest, ErasesTheJournalEntryOfTheCallersProcess) {
    // Where the 16 bits are taken for the whole id.
    const FileStandIn smallIds("/proc/sys/kernel/pid_max", "32768\n");
    provider.initialize();
    const auto tid = static_cast<std::int16_t>(gettid());
    // A thread of another process whose id has the same low 16 bits.
    table->journal[0] = {1, 1, tid, 1, id(tree.leaf)};
    provider.readLock(tree.leaf);
    ASSERT_EQ(2U, table.journal().size());

    provider.readUnlock(tree.leaf);

    ASSERT_EQ(1U, table.journal().size());
    EXPECT_EQ(1, table.journal()[0].pid);
}

TEST_F(TreePathLockProviderTest, LocksThroughComponent) {
    tree.leaf->readLock();
    EXPECT_EQ(1U, table.journal().size());
    tree.leaf->readUnlock();
    tree.root->writeLock();
    EXPECT_EQ((Counters{0, 1, 0, 1, 0}), table.counters(0));
    tree.root->writeUnlock();

    expectUnlocked();
}

TEST_F(TreePathLockProviderTest, DoesNothingWhenTheTreeHasChanged) {
    provider.writeLock(tree.leaf);

    provider.update(tree.machine.config, 0);
    provider.update(tree.machine.config, 1);

    EXPECT_EQ((Counters{0, 1, 0, 1, 0}), table.counters(id(tree.leaf)));
    provider.writeUnlock(tree.leaf);
    expectUnlocked();
}

} // namespace
