#include "lock/KernelStandIn.h"
#include "lock/TreePathLocks.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

using namespace tavrel::test;

namespace {

using Kinds = std::vector<int>;
using Counters = std::vector<int>;

/// Where the kernel says below what all thread ids are.
constexpr const char* idLimitFile = "/proc/sys/kernel/pid_max";

class TreePathRecoveryTest : public testing::Test {
protected:
    int id(Component* component) { return component->getComponentId(); }

    /// Leaves a lock behind whose holder has gone. @return the process id of the holder
    pid_t leaveLock(LockKind kind, Component* component) {
        Holder killed(provider, kind, component);
        killed.expectHeld();
        const pid_t pid = killed.pid();
        killed.kill();
        return pid;
    }

    /// Any lock call recovers.
    void lockElsewhere() {
        provider.readLock(tree.beside);
        provider.readUnlock(tree.beside);
    }

    void expectUnlocked() {
        EXPECT_TRUE(table.journal().empty());
        EXPECT_TRUE(table.isUnmarked(TreeFixture::maxCount));
    }

    // As on a kernel whose ids all fit into the journal; the sandbox has small ids only.
    FileStandIn smallIds{idLimitFile, "32768\n"};
    LockedTree tree;
    TreePathLockProvider& provider = tree.provider;
    TableView table;
};

TEST_F(TreePathRecoveryTest, TakesTheReadLockOfAKilledProcessOffTheWholePath) {
    const pid_t dead = leaveLock(LockKind::read, tree.leaf);
    EXPECT_EQ((Counters{0, 0, 1, 0, 0}), table.counters(0));
    const TraceCapture capture;

    lockElsewhere();

    expectUnlocked();
    expectWords(capture, 0x40201, errorFlags, {id(tree.leaf), 1, dead, dead, 0, 0});
    expectWords(capture, 0x40202, infoFlags, {id(tree.leaf), 1});
}

TEST_F(TreePathRecoveryTest, TakesTheWriteLockOfAKilledProcessOffTheWholePath) {
    const pid_t dead = leaveLock(LockKind::write, tree.middle);
    const TraceCapture capture;

    provider.writeLock(tree.leaf);

    EXPECT_EQ((Counters{0, 0, 0, 1, 0}), table.counters(id(tree.middle)));
    expectWords(capture, 0x40201, errorFlags, {id(tree.middle), 2, dead, dead, 0, 0});
    expectWords(capture, 0x40202, infoFlags, {id(tree.middle), 2});
    provider.writeUnlock(tree.leaf);
    expectUnlocked();
}

TEST_F(TreePathRecoveryTest, TakesTheLockOfAThreadOffThatHasEndedInALivingProcess) {
    std::thread([&] { provider.writeLock(tree.leaf); }).join();
    EXPECT_EQ(1U, table.journal().size());

    provider.readLock(tree.root);

    EXPECT_EQ((Counters{1, 0, 1, 0, 0}), table.counters(0));
    provider.readUnlock(tree.root);
    expectUnlocked();
}

TEST_F(TreePathRecoveryTest, LeavesTheLocksOfTheLivingAlone) {
    Holder living(provider, LockKind::read, tree.leaf);
    living.expectHeld();
    leaveLock(LockKind::read, tree.leaf);
    leaveLock(LockKind::read, tree.middle);

    lockElsewhere();

    EXPECT_EQ(1U, table.journal().size());
    EXPECT_EQ((Counters{1, 0, 1, 0, 0}), table.counters(id(tree.leaf)));
    EXPECT_EQ((Kinds{1, 3}), table.kinds(id(tree.leaf)));
    EXPECT_EQ(living.pid(), table.record(0).holders[0].pid);
    living.release();
    expectUnlocked();
}

TEST_F(TreePathRecoveryTest, WakesSleepersWhenTheLastHolderOfAComponentIsTakenOff) {
    Holder killed(provider, LockKind::write, tree.leaf);
    killed.expectHeld();
    Holder sleeper(provider, LockKind::read, tree.leaf);
    sleeper.expectWaiting();
    killed.kill();
    sleeper.expectWaiting();

    lockElsewhere();

    sleeper.expectHeld();
    sleeper.release();
    expectUnlocked();
}

TEST_F(TreePathRecoveryTest, WakesNobodyWhileOtherReadersOfTheComponentRemain) {
    provider.readLock(tree.leaf);
    leaveLock(LockKind::read, tree.leaf);
    Holder writer(provider, LockKind::write, tree.middle);
    writer.expectWaiting();
    // The writer's own call has recovered already; another one is left behind for the next.
    Holder last(provider, LockKind::read, tree.leaf);
    last.expectHeld();
    last.kill();
    const KernelStandIn futexes("futex", failing(0));

    provider.readLock(tree.leaf);

    EXPECT_EQ(0, futexes.calls());
    EXPECT_EQ((Counters{2, 0, 2, 0, 0}), table.counters(id(tree.leaf)));
    provider.readUnlock(tree.leaf);
    provider.readUnlock(tree.leaf);
    writer.expectHeld();
    writer.release();
    expectUnlocked();
}

TEST_F(TreePathRecoveryTest, TakesOffManyInTheOrderOfTheJournal) {
    leaveLock(LockKind::read, tree.leaf);
    // Each takes its lock without a look at the one before it.
    const KernelStandIn answers("tkill", failing(KernelStandIn::succeed));
    leaveLock(LockKind::read, tree.otherLeaf);
    leaveLock(LockKind::read, tree.middle);
    EXPECT_EQ(3U, table.journal().size());
    const KernelStandIn truth("tkill", failing(ESRCH));
    const TraceCapture capture;

    lockElsewhere();

    const auto records = capture.of(0x40202);
    ASSERT_EQ(3U, records.size());
    EXPECT_EQ(id(tree.leaf), records[0].arguments()[0]);
    EXPECT_EQ(id(tree.otherLeaf), records[1].arguments()[0]);
    EXPECT_EQ(id(tree.middle), records[2].arguments()[0]);
    std::vector<unsigned long> points;
    for (const TraceRecord& record : capture.all()) {
        if (record.id == 0x40201 || record.id == 0x40202) {
            points.push_back(record.id);
        }
    }
    EXPECT_EQ((std::vector<unsigned long>{0x40201, 0x40201, 0x40201, 0x40202, 0x40202, 0x40202}), points)
        << "all are looked for before the first is taken off";
    expectUnlocked();
}

TEST_F(TreePathRecoveryTest, DoesNotLetASleeperThatIsKilledHoldUpTheOthers) {
    provider.writeLock(tree.leaf);
    for (int n = 0; n < 8; ++n) {
        Holder sleeper(provider, LockKind::read, tree.leaf);
        sleeper.expectWaiting();
        sleeper.kill();
    }
    Holder living(provider, LockKind::read, tree.leaf);
    living.expectWaiting();

    provider.writeUnlock(tree.leaf);

    living.expectHeld();
    living.release();
    provider.writeLock(tree.leaf);
    provider.writeUnlock(tree.leaf);
    expectUnlocked();
}

TEST_F(TreePathRecoveryTest, DoesNotStrandThoseWhoQueueForTheMutexWhenTheOneThatWasWokenIsKilled) {
    pthread_mutex_lock(&table->mutex);
    Holder woken(provider, LockKind::write, tree.leaf);
    Holder next(provider, LockKind::write, tree.beside);
    woken.expectWaiting();
    next.expectWaiting();

    woken.kill();
    // What the unlock leaves behind whose wake-up the killed process has taken along.
    const pthread_mutex_t unlocked = PTHREAD_MUTEX_INITIALIZER;
    std::memcpy(&table->mutex, &unlocked, sizeof unlocked);

    next.expectHeld();
    next.release();
    expectUnlocked();
}

TEST_F(TreePathRecoveryTest, KeepsTheMarksOfAWriterKilledWhileItWaits) {
    provider.readLock(tree.leaf);
    Holder writer(provider, LockKind::write, tree.middle);
    writer.expectWaiting();

    writer.kill();
    provider.readUnlock(tree.leaf);

    Holder reader(provider, LockKind::read, tree.middle);
    reader.expectWaiting();
    provider.readLock(tree.leaf);
    EXPECT_EQ(1, table.record(id(tree.middle)).waitingBeneath) << "no journal entry tells of a wait";
    provider.readUnlock(tree.leaf);
    reader.expectWaiting();
}

TEST_F(TreePathRecoveryTest, CountsAThreadIdThatAnotherThreadHasByNowAsAlive) {
    const pid_t dead = leaveLock(LockKind::read, tree.leaf);
    ASSERT_EQ(dead, table.journal()[0].pid);
    table->journal[0].tid = static_cast<std::int16_t>(gettid());

    lockElsewhere();

    EXPECT_EQ(1U, table.journal().size());
}

TEST_F(TreePathRecoveryTest, TakesEveryAnswerButMinusOneForALivingHolder) {
    leaveLock(LockKind::read, tree.leaf);
    {
        const KernelStandIn questions("tkill", failing(KernelStandIn::succeed));
        lockElsewhere();
        EXPECT_EQ(1, questions.calls());
        EXPECT_EQ(1U, table.journal().size());
    }

    const KernelStandIn questions("tkill", failing(EPERM));
    lockElsewhere();

    EXPECT_EQ(1, questions.calls());
    expectUnlocked();
}

TEST_F(TreePathRecoveryTest, FreesAnEntryOfAnUnknownKindAndTouchesNoMarks) {
    provider.readLock(tree.leaf);
    Holder writer(provider, LockKind::write, tree.middle);
    writer.expectWaiting();
    const pid_t dead = leaveLock(LockKind::read, tree.beside);
    ASSERT_EQ(2U, table.journal().size());
    table->journal[1].kind = 9;
    const TraceCapture capture;
    const KernelStandIn futexes("futex", failing(0));

    provider.readLock(tree.leaf);

    EXPECT_EQ(1, table.record(id(tree.beside)).readers);
    EXPECT_EQ(0, futexes.calls()) << "nobody is woken";
    expectWords(capture, 0x40201, errorFlags, {id(tree.beside), 9, dead, dead, 0, 0});
    expectWords(capture, 0x40202, infoFlags, {id(tree.beside), 9});
    EXPECT_EQ(2U, table.journal().size());
    provider.readUnlock(tree.leaf);
    provider.readUnlock(tree.leaf);
    writer.expectHeld();
    writer.release();
}

TEST_F(TreePathRecoveryTest, FreesAnEntryWhoseComponentTheTableDoesNotHave) {
    const pid_t dead = leaveLock(LockKind::read, tree.beside);
    const auto tid = static_cast<std::int16_t>(dead);
    table->journal[1] = {1, 1, tid, dead, TreeFixture::maxCount};
    table->journal[2] = {1, 2, tid, dead, -1};
    table->journal[3] = {1, 2, tid, dead, 0x7FFFFFFF};

    lockElsewhere();

    expectUnlocked();
}

TEST_F(TreePathRecoveryTest, LeavesAnEntryToOthersWhoseComponentThisProcessCannotHave) {
    const pid_t dead = leaveLock(LockKind::read, tree.beside);
    table->journal[1] = {1, 1, static_cast<std::int16_t>(dead), dead, 60};
    Component::setMaxCount(60);

    lockElsewhere();

    ASSERT_EQ(1U, table.journal().size());
    EXPECT_EQ(60, table.journal()[0].componentId);
    Component::setMaxCount(TreeFixture::maxCount);
    lockElsewhere();
    EXPECT_TRUE(table.journal().empty());
}

TEST_F(TreePathRecoveryTest, FindsNothingToTakeOffAfterSetup) {
    leaveLock(LockKind::read, tree.leaf);
    provider.setup();
    const TraceCapture capture;

    lockElsewhere();

    const auto records = capture.of(0x40204);
    ASSERT_EQ(5U, records.size()) << "read-beneath of four components, and the leaf's own";
    EXPECT_EQ(errorFlags, records[0].flags);
    expectUnlocked();
}

TEST_F(TreePathRecoveryTest, LooksForTheWholeIdOfAHolderWhereIdsAreLarge) {
    const FileStandIn limit(idLimitFile, "200000\n");
    provider.initialize();
    constexpr std::int32_t pid = 70000;
    constexpr std::int32_t tid = 150000;
    // Of this table, so that there are marks to take off.
    provider.rd_lock(tree.leaf);
    table->journal[0] = {1, 1, static_cast<std::int16_t>(tid), pid, id(tree.leaf)};
    bool ended = false;
    const KernelStandIn foreign("tkill", failing(KernelStandIn::succeed));
    std::vector<long> asked;
    const KernelStandIn threads("tgkill", [&](const KernelCall& call) {
        EXPECT_EQ(pid, call.arguments[0]);
        EXPECT_EQ(tid & 0xFFFF, call.arguments[1] & 0xFFFF);
        asked.push_back(call.arguments[1]);
        return call.arguments[1] == tid && !ended ? KernelStandIn::succeed : ESRCH;
    });

    lockElsewhere();
    EXPECT_EQ(1U, table.journal().size()) << "its process has a thread whose id has these 16 bits";
    EXPECT_EQ(tid, asked.back());

    asked.clear();
    ended = true;
    lockElsewhere();
    EXPECT_TRUE(table.journal().empty()) << "a thread of another process does not stand in for it";
    EXPECT_EQ((std::vector<long>{(tid & 0xFFFF) + 0x10000, tid & 0xFFFF, (tid & 0xFFFF) + 0x10000, tid}),
              asked);
    EXPECT_EQ(0, foreign.calls());
}

TEST_F(TreePathRecoveryTest, FindsAThreadOfALargeIdInAProcessOfASmallOne) {
    const FileStandIn limit(idLimitFile, "4194304\n");
    provider.initialize();
    constexpr std::int32_t pid = 300;
    constexpr std::int32_t tid = 0x200000 + 301;
    table->journal[0] = {1, 1, 301, pid, id(tree.leaf)};
    const KernelStandIn unknown("tkill", failing(ESRCH));
    const KernelStandIn threads("tgkill", [&](const KernelCall& call) {
        return call.arguments[1] == tid ? KernelStandIn::succeed : ESRCH;
    });

    lockElsewhere();

    EXPECT_EQ(1U, table.journal().size());
    table->journal[0].inUse = 0;
}

TEST_F(TreePathRecoveryTest, CountsAThreadOfAnotherUserAsAliveWhereIdsAreLarge) {
    const FileStandIn limit(idLimitFile, "4194304\n");
    provider.initialize();
    table->journal[0] = {1, 1, -5, 70000, id(tree.leaf)};
    const KernelStandIn threads("tgkill", failing(EPERM));

    lockElsewhere();

    EXPECT_EQ(1U, table.journal().size());
    table->journal[0].inUse = 0;
}

TEST_F(TreePathRecoveryTest, DoesNotTakeAThreadOfAnotherProcessForAHolderWhereIdsAreLarge) {
    const FileStandIn limit(idLimitFile, "4194304\n");
    provider.initialize();
    provider.rd_lock(tree.leaf);
    table->journal[0] = {1, 1, 301, 300, id(tree.leaf)};
    const KernelStandIn foreign("tkill", failing(KernelStandIn::succeed));
    const KernelStandIn threads("tgkill", failing(ESRCH));

    lockElsewhere();

    EXPECT_TRUE(table.journal().empty());
    EXPECT_EQ(0, foreign.calls());
}

TEST_F(TreePathRecoveryTest, ReadsTheLimitOfIdsAnewBeforeItCallsAHolderDead) {
    constexpr std::int32_t pid = 70000;
    constexpr std::int32_t tid = 70001;
    table->journal[0] = {1, 1, static_cast<std::int16_t>(tid), pid, id(tree.leaf)};
    const KernelStandIn unknown("tkill", failing(ESRCH));
    const KernelStandIn threads("tgkill", [&](const KernelCall& call) {
        return call.arguments[1] == tid ? KernelStandIn::succeed : ESRCH;
    });
    const FileStandIn raised(idLimitFile, "4194304\n");

    lockElsewhere();

    EXPECT_EQ(1U, table.journal().size());
    table->journal[0].inUse = 0;
}

} // namespace
