#include "lock/SemLocks.h"
#include "lock/SharedPage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <utility>

using namespace tavrel::test;

namespace {

class SemLockStepsTest : public testing::Test {
protected:
    /// What `call` does, without the kernel.
    template <typename Call>
    Operations operationsOf(Call call) {
        OperationLog log([](Operation) { return KernelStandIn::succeed; });
        call();
        EXPECT_EQ(std::vector<long>(log.limits.size(), 200), log.limits);
        return log.take();
    }

    SemLockedTree tree;
    SemLockProvider& provider = tree.provider;
};

TEST_F(SemLockStepsTest, NumbersFourSemaphoresForEachLockId) {
    EXPECT_EQ(0, provider.getSemNum(0, SemLockProvider::thisNode));
    EXPECT_EQ(3, provider.getSemNum(0, SemLockProvider::announcement));
    EXPECT_EQ(1997, provider.getSemNum(499, SemLockProvider::subtreeReaders));
    EXPECT_EQ(1998, provider.getSemNum(499, SemLockProvider::gate));
}

TEST_F(SemLockStepsTest, DoesOneOperationWithUndo) {
    const Operations done =
        operationsOf([&] { EXPECT_TRUE(provider.operate(2, SemLockProvider::gate, -7)); });
    EXPECT_EQ((Operations{{10, -7}}), done);

    ChildProcess killed([&](Talk& talk) {
        EXPECT_TRUE(provider.operate(2, SemLockProvider::gate, -7));
        talk.tell('h');
        talk.waitFor('g');
        return 0;
    });
    killed.talk().waitFor('h');
    EXPECT_EQ((std::vector<int>{100, 100, 93, 0}), valuesOf(2));
    killed.kill();
    EXPECT_EQ(startValues(), semaphoreValues());
}

TEST_F(SemLockStepsTest, AnswersFalseForAnOperationThatTheKernelRefuses) {
    const KernelStandIn operations("semop", failing(EIDRM));

    EXPECT_FALSE(provider.operate(0, SemLockProvider::gate, 1));
}

TEST_F(SemLockStepsTest, ReadLocksInTheOrderOfTheProtocol) {
    const Operations expected{{11, 0}, {7, 0},  {3, 0},  {10, -100}, {4, -1}, {0, -1},  {8, -1},
                              {9, -1}, {5, -1}, {1, -1}, {0, 1},     {4, 1},  {10, 100}};

    EXPECT_EQ(expected, operationsOf([&] { provider.readLock(tree.leaf); }));
}

TEST_F(SemLockStepsTest, ReadUnlocksFromTheRoot) {
    provider.readLock(tree.leaf);

    EXPECT_EQ((Operations{{1, 1}, {5, 1}, {9, 1}, {8, 1}}),
              operationsOf([&] { provider.readUnlock(tree.leaf); }));
}

TEST_F(SemLockStepsTest, WriteLocksInTheOrderOfTheProtocol) {
    const Operations expected{{11, 1},   {7, 1},    {3, 1},  {10, -100}, {9, -100}, {4, -100},
                              {0, -100}, {8, -100}, {6, -1}, {2, -1},    {9, 100},  {10, 99},
                              {0, 100},  {4, 100},  {3, -1}, {7, -1},    {11, -1}};

    EXPECT_EQ(expected, operationsOf([&] { provider.writeLock(tree.leaf); }));
}

TEST_F(SemLockStepsTest, WriteUnlocksFromTheRoot) {
    provider.writeLock(tree.leaf);

    EXPECT_EQ((Operations{{2, 1}, {6, 1}, {10, 1}, {8, 100}}),
              operationsOf([&] { provider.writeUnlock(tree.leaf); }));
}

TEST_F(SemLockStepsTest, LeavesTheStepsOfAncestorsOutAtTheRoot) {
    EXPECT_EQ((Operations{{3, 0}, {2, -100}, {0, -1}, {1, -1}, {2, 100}}),
              operationsOf([&] { provider.readLock(tree.root); }));
    EXPECT_EQ((Operations{{1, 1}, {0, 1}}), operationsOf([&] { provider.readUnlock(tree.root); }));
    EXPECT_EQ((Operations{{3, 1}, {2, -100}, {1, -100}, {0, -100}, {1, 100}, {2, 99}, {3, -1}}),
              operationsOf([&] { provider.writeLock(tree.root); }));
    EXPECT_EQ((Operations{{2, 1}, {0, 100}}), operationsOf([&] { provider.writeUnlock(tree.root); }));
}

TEST_F(SemLockStepsTest, LocksAComponentWithNoSemaphoresThroughTheNearestAbove) {
    const Operations ofPlain = operationsOf([&] { provider.readLock(tree.plain); });
    const Operations ofBelow = operationsOf([&] { provider.writeLock(tree.below); });
    const Operations ofMiddle = operationsOf([&] { provider.readLock(tree.middle); });

    EXPECT_EQ(operationsOf([&] { provider.readLock(tree.root); }), ofPlain);
    EXPECT_EQ(operationsOf([&] { provider.writeLock(tree.leaf); }), ofBelow);
    EXPECT_EQ(operationsOf([&] { provider.readLock(tree.upper); }), ofMiddle);
}

TEST_F(SemLockStepsTest, HoldsAPlaceHereAndTheReadersPlacesOfTheWayToRead) {
    provider.readLock(tree.leaf);

    EXPECT_EQ((std::vector<int>{99, 99, 100, 0}), valuesOf(2));
    EXPECT_EQ((std::vector<int>{100, 99, 100, 0}), valuesOf(1));
    EXPECT_EQ((std::vector<int>{100, 99, 100, 0}), valuesOf(0));
    EXPECT_EQ((std::vector<int>{100, 100, 100, 0}), valuesOf(3));
    provider.readUnlock(tree.leaf);
    EXPECT_EQ(startValues(), semaphoreValues());
}

TEST_F(SemLockStepsTest, HoldsThisNodeAndAGatePlaceOfTheWayToWrite) {
    provider.writeLock(tree.leaf);

    EXPECT_EQ((std::vector<int>{0, 100, 99, 0}), valuesOf(2));
    EXPECT_EQ((std::vector<int>{100, 100, 99, 0}), valuesOf(1));
    EXPECT_EQ((std::vector<int>{100, 100, 99, 0}), valuesOf(0));
    EXPECT_EQ((std::vector<int>{100, 100, 100, 0}), valuesOf(3));
    provider.writeUnlock(tree.leaf);
    EXPECT_EQ(startValues(), semaphoreValues());
}

// --- waiting too long ---

/// Answers that the wait at `late` has been too long, the first time.
std::function<int(Operation)> tooLateOnce(Operation late) {
    return [late, first = true](Operation operation) mutable {
        return operation == late && std::exchange(first, false) ? EAGAIN : KernelStandIn::succeed;
    };
}

TEST_F(SemLockStepsTest, AWriterThatHasWaitedTooLongGivesAllBackButItsAnnouncement) {
    OperationLog log(tooLateOnce({0, -100}));
    const TraceCapture capture;

    provider.writeLock(tree.leaf);

    const Operations expected{{11, 1},    {7, 1},    {3, 1},                          // announced
                              {10, -100}, {9, -100}, {4, -100}, {0, -100},            // too late
                              {4, 100},   {9, 100},  {10, 100},                       // given back
                              {10, -100}, {9, -100}, {4, -100}, {0, -100}, {8, -100}, // again
                              {6, -1},    {2, -1},   {9, 100},  {10, 99},  {0, 100},
                              {4, 100},   {3, -1},   {7, -1},   {11, -1}};
    EXPECT_EQ(expected, log.done);
    EXPECT_EQ(1U, log.pauses.size());
    EXPECT_EQ(0U, capture.count(0x40410)) << "to wait is no failure";
}

TEST_F(SemLockStepsTest, AReaderThatHasWaitedTooLongGivesAllBackAndWaitsForWritersAgain) {
    OperationLog log(tooLateOnce({0, -1}));

    provider.readLock(tree.leaf);

    const Operations expected{{11, 0}, {7, 0},    {3, 0},  {10, -100}, {4, -1}, {0, -1}, // too late
                              {4, 1},  {10, 100},                                        // given back
                              {11, 0}, {7, 0},    {3, 0},  {10, -100}, {4, -1}, {0, -1}, // again
                              {8, -1}, {9, -1},   {5, -1}, {1, -1},    {0, 1},  {4, 1},  {10, 100}};
    EXPECT_EQ(expected, log.done);
    EXPECT_EQ(1U, log.pauses.size());
}

TEST_F(SemLockStepsTest, EveryStepThatCanWaitDoesSoOnlyForATime) {
    for (const LockKind kind : {LockKind::read, LockKind::write}) {
        Operations plain;
        {
            OperationLog log([](Operation) { return KernelStandIn::succeed; });
            tree.lock(kind, tree.leaf);
            plain = log.take();
        }
        const std::size_t announced = kind == LockKind::read ? 0 : 3;
        const std::size_t taken = announced + (kind == LockKind::read ? 10 : 7);
        for (std::size_t late = announced; late < taken; ++late) {
            OperationLog log(tooLateOnce(plain[late]));

            tree.lock(kind, tree.leaf);

            Operations expected(plain.begin(), plain.begin() + static_cast<std::ptrdiff_t>(late) + 1);
            for (std::size_t step = late; step-- > announced;) {
                if (plain[step].second != 0) {
                    expected.emplace_back(plain[step].first, -plain[step].second);
                }
            }
            expected.insert(expected.end(), plain.begin() + static_cast<std::ptrdiff_t>(announced),
                            plain.end());
            EXPECT_EQ(expected, log.done) << "late at step " << late;
            EXPECT_EQ(1U, log.pauses.size());
        }
    }
}

TEST_F(SemLockStepsTest, PausesForARandomMomentOfAtMostTwentyMilliseconds) {
    int late = 0;
    OperationLog log([&late](Operation operation) {
        return operation == Operation{2, -100} && ++late <= 100 ? EAGAIN : KernelStandIn::succeed;
    });

    provider.readLock(tree.root);

    ASSERT_EQ(100U, log.pauses.size());
    long least = 20001;
    long most = -1;
    for (const long pause : log.pauses) {
        least = std::min(least, pause);
        most = std::max(most, pause);
    }
    EXPECT_GE(least, 0);
    EXPECT_LE(most, 20000);
    EXPECT_LT(least, most);
}

TEST_F(SemLockStepsTest, AStepThatASignalCutsGoesOnForTheRestOfItsTime) {
    int cuts = 0;
    OperationLog log([&cuts](Operation operation) {
        return operation == Operation{2, -100} && cuts++ < 3 ? EINTR : KernelStandIn::succeed;
    });
    const TraceCapture capture;

    provider.readLock(tree.root);

    EXPECT_EQ((Operations{{3, 0}, {2, -100}, {2, -100}, {2, -100}, {2, -100}, {0, -1}, {1, -1}, {2, 100}}),
              log.done);
    ASSERT_EQ(7U, log.limits.size());
    EXPECT_EQ(200, log.limits[1]);
    EXPECT_LE(log.limits[4], 199);
    EXPECT_TRUE(log.pauses.empty());
    EXPECT_EQ(0U, capture.count(0x40410)) << "a signal is no failure";
}

TEST_F(SemLockStepsTest, WaitsAsLongAsAConflictingHolderStays) {
    const WaitLimit shortWaits(2);
    provider.writeLock(tree.leaf);
    SharedPage<std::atomic<int>> pauses;
    ChildProcess waiting([&](Talk& talk) {
        const KernelStandIn sleeps("usleep", [&](const KernelCall&) {
            ++*pauses;
            return 0;
        });
        provider.readLock(tree.root);
        talk.tell('h');
        provider.readUnlock(tree.root);
        return 0;
    });

    waitUntil([&] { return *pauses == 5; });
    EXPECT_FALSE(waiting.talk().hasMark(0));
    provider.writeUnlock(tree.leaf);

    EXPECT_TRUE(waiting.talk().waitFor('h'));
    EXPECT_EQ(0, waiting.wait());
    EXPECT_EQ(startValues(), semaphoreValues());
}

// --- refused operations ---

TEST_F(SemLockStepsTest, GoesOnWhenTheKernelRefusesEveryOperation) {
    OperationLog log([](Operation) { return EIDRM; });
    const TraceCapture capture;

    provider.readLock(tree.leaf);
    provider.readUnlock(tree.leaf);
    provider.writeLock(tree.leaf);
    provider.writeUnlock(tree.leaf);

    EXPECT_EQ(13U + 4U + 17U + 4U, log.done.size());
    EXPECT_EQ(log.done.size(), capture.count(0x40410));
    EXPECT_EQ(log.done.size(), capture.count(0x40411));
    EXPECT_TRUE(log.pauses.empty());
}

TEST_F(SemLockStepsTest, GivesBackOnlyWhatTheKernelHasDone) {
    int late = 0;
    OperationLog log([&late](Operation operation) {
        if (operation == Operation{4, -1} && late == 0) {
            return EIDRM;
        }
        return operation == Operation{0, -1} && late++ == 0 ? EAGAIN : KernelStandIn::succeed;
    });

    provider.readLock(tree.leaf);

    EXPECT_EQ((Operation{0, -1}), log.done[5]);
    EXPECT_EQ((Operation{10, 100}), log.done[6]);
    EXPECT_EQ((Operation{11, 0}), log.done[7]);
}

} // namespace
