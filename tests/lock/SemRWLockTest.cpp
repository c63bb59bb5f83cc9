#include "lock/Children.h"
#include "lock/Expect.h"
#include "lock/KernelStandIn.h"
#include "lock/SharedPage.h"
#include "support/FaultText.h"

#include <qz/tavrel/LockObject.h>
#include <qz/tavrel/Semaphore.h>

#include <gtest/gtest.h>

#include <sys/sem.h>

#include <cerrno>
#include <csignal>

using qz::tavrel::Semaphore;
using qz::tavrel::SemRWLock;
using namespace tavrel::test;

namespace {

constexpr int key = 5600000;

int set() {
    return semget(key, 0, 0);
}

int places() {
    return semctl(set(), 0, GETVAL);
}

int announcements() {
    return semctl(set(), 1, GETVAL);
}

int sleepersForAPlace() {
    return semctl(set(), 0, GETNCNT);
}

int sleepersForNoWriter() {
    return semctl(set(), 1, GETZCNT);
}

/// A set as another process has made it, but for the first operation.
int makeUnreadySet() {
    return semget(key, 2, 1974);
}

class SemRWLockTest : public testing::Test {
protected:
    SemRWLockTest() : lock(0) { SemRWLock::initialize(1); }

    SemRWLock lock;
};

/// Takes the write lock, says so and gives it back at the mark 'g'.
int writer(Talk& talk) {
    SemRWLock lock(0);
    lock.writeLock();
    talk.tell('h');
    talk.waitFor('g');
    lock.writeUnlock();
    return 0;
}

/// As `writer`, with a read lock.
int reader(Talk& talk) {
    SemRWLock lock(0);
    lock.readLock();
    talk.tell('h');
    talk.waitFor('g');
    lock.readUnlock();
    return 0;
}

TEST(SemRWLockSet, HasAPairOfSemaphoresForEachLock) {
    SemRWLock::initialize(3);

    semid_ds state{};
    semctl(set(), 0, IPC_STAT, &state);
    EXPECT_EQ(6U, state.sem_nsems);
    for (int i = 0; i < 6; i += 2) {
        EXPECT_EQ(100, semctl(set(), i, GETVAL));
        EXPECT_EQ(0, semctl(set(), i + 1, GETVAL));
    }
}

TEST(SemRWLockSet, IsJoinedByASecondProcessWhateverItsCount) {
    ChildProcess first([](Talk&) {
        SemRWLock::initialize(1);
        return 0;
    });
    EXPECT_EQ(0, first.wait());

    SemRWLock::initialize(7);

    semid_ds state{};
    semctl(set(), 0, IPC_STAT, &state);
    EXPECT_EQ(2U, state.sem_nsems);
    SemRWLock(0).readLock();
    EXPECT_EQ(99, places());
}

TEST(SemRWLockSet, IsRefusedBeforeAnyCallWhenItIsTooLarge) {
    Semaphore::getInfo()->semmsl = 7;
    const KernelStandIn semgets("semget", failing(0));
    const TraceCapture capture;

    EXPECT_EQ("FAULT at SemRWLock(LINE): initialize() lack of semaphore.",
              faultText([] { SemRWLock::initialize(4); }));

    EXPECT_EQ(0, semgets.calls());
    expectWords(capture, 0x40600, errorFlags, {8, 7});
}

TEST(SemRWLockSet, MayBeAsLargeAsASetCanBe) {
    Semaphore::getInfo()->semmsl = 8;

    SemRWLock::initialize(4);

    EXPECT_NE(-1, set());
}

TEST(SemRWLockSet, IsRefusedAlsoWhenTheNumberOfSemaphoresWraps) {
    EXPECT_EQ("FAULT at SemRWLock(LINE): initialize() lack of semaphore.",
              faultText([] { SemRWLock::initialize(0x80000001U); }));

    EXPECT_EQ(-1, set());
}

TEST(SemRWLockSet, IsJoinedWhenAnotherProcessCreatesItAtTheSameMoment) {
    bool late = false;
    const KernelStandIn semgets("semget", [&](const KernelCall& call) {
        // Between the look for a set and its creation.
        if (call.arguments[0] == key && call.arguments[2] == 1974 && !late) {
            late = true;
            makeUnreadySet();
        }
        return 0;
    });
    const KernelStandIn sleeps("usleep", [](const KernelCall&) {
        sembuf values{0, 100, 0};
        semop(set(), &values, 1);
        return KernelStandIn::succeed;
    });
    const TraceCapture capture;

    SemRWLock::initialize(1);

    SemRWLock(0).writeLock();
    EXPECT_EQ(0, places());
    EXPECT_TRUE(capture.all().empty()) << "nothing has failed";
}

TEST(SemRWLockSet, IsCreatedAfterAllWhenTheFasterProcessHasRemovedIt) {
    int other = 0;
    const KernelStandIn semgets("semget", [&](const KernelCall& call) {
        if (call.arguments[0] == key && call.arguments[2] == 1974) {
            return other++ == 0 ? EEXIST : 0;
        }
        return 0;
    });

    SemRWLock::initialize(1);

    EXPECT_EQ(2, other);
    EXPECT_EQ(100, places());
}

TEST(SemRWLockSet, RaisesWhenItCannotBeCreated) {
    const KernelStandIn semgets("semget", [](const KernelCall& call) {
        return call.arguments[0] == key && call.arguments[2] == 1974 ? EEXIST : 0;
    });

    EXPECT_EQ("FAULT at Semaphore(LINE): initialize() semget failed.",
              faultText([] { SemRWLock::initialize(1); }));
}

TEST(SemRWLockSet, IsOneForAnyNumberOfProcessesThatStartAtTheSameMoment) {
    for (int round = 0; round < 10; ++round) {
        SharedPage<Pair> pair;
        Children starters(8, [&](int) {
            SemRWLock::initialize(1);
            SemRWLock lock(0);
            lock.writeLock();
            pair->raise();
            lock.writeUnlock();
            return 0;
        });

        starters.go();

        starters.expectSuccess();
        EXPECT_EQ(8, pair->first);
        EXPECT_EQ(100, places());
        EXPECT_EQ(0, announcements());
        semctl(set(), 0, IPC_RMID);
    }
}

TEST_F(SemRWLockTest, TakesOnePlaceToReadAndAllToWrite) {
    lock.readLock();
    EXPECT_EQ(99, places());
    lock.readUnlock();
    EXPECT_EQ(100, places());

    lock.writeLock();
    EXPECT_EQ(0, places());
    EXPECT_EQ(0, announcements()) << "no longer on its way";
    lock.writeUnlock();
    EXPECT_EQ(100, places());
}

TEST_F(SemRWLockTest, DoesItsStepsInTheOrderOfTheProtocolWithUndo) {
    std::vector<std::vector<int>> steps;
    const KernelStandIn operations("semop", [&](const KernelCall& call) {
        const auto* const record = static_cast<const sembuf*>(call.data);
        EXPECT_EQ(1, call.arguments[2]);
        EXPECT_EQ(4096, record->sem_flg);
        steps.push_back({record->sem_num, record->sem_op});
        return KernelStandIn::succeed;
    });
    SemRWLock third(4);

    third.readLock();
    third.readUnlock();
    third.writeLock();
    third.writeUnlock();

    const std::vector<std::vector<int>> expected{{5, 0}, {4, -1},   {4, 1}, // read
                                                 {5, 1}, {4, -100}, {5, -1}, {4, 100}};
    EXPECT_EQ(expected, steps);
}

TEST_F(SemRWLockTest, KeepsTheLocksOfASetApart) {
    semctl(set(), 0, IPC_RMID);
    SemRWLock::initialize(2);
    SemRWLock other(2);

    lock.writeLock();
    other.readLock();

    EXPECT_EQ(0, places());
    EXPECT_EQ(99, semctl(set(), 2, GETVAL));
}

TEST_F(SemRWLockTest, AnswersWhetherTheKernelHasDoneAnOperation) {
    EXPECT_TRUE(lock.operate(SemRWLock::announcement, 1));
    EXPECT_EQ(1, announcements());
    EXPECT_TRUE(lock.operate(SemRWLock::places, -100));
    EXPECT_EQ(0, places());

    const KernelStandIn operations("semop", failing(EINVAL));
    EXPECT_FALSE(lock.operate(SemRWLock::places, 1));
}

TEST_F(SemRWLockTest, GoesOnWhenTheKernelRefusesAnOperation) {
    const KernelStandIn operations("semop", failing(EIDRM));
    const TraceCapture capture;

    lock.readLock();
    lock.readUnlock();
    lock.writeLock();
    lock.writeUnlock();

    EXPECT_EQ(7U, capture.count(0x40410));
    EXPECT_EQ(7U, capture.count(0x40411));
}

TEST_F(SemRWLockTest, LetsAHundredReadersInAndTheNextWait) {
    for (int i = 0; i < 100; ++i) {
        lock.readLock();
    }
    ChildProcess next(reader);
    waitUntil([] { return sleepersForAPlace() == 1; });
    EXPECT_FALSE(next.talk().hasMark(0));

    lock.readUnlock();

    EXPECT_TRUE(next.talk().waitFor('h'));
    EXPECT_EQ(0, places());
    next.talk().tell('g');
    EXPECT_EQ(0, next.wait());
    EXPECT_EQ(1, places());
}

TEST_F(SemRWLockTest, LetsAWriterWaitForTheReaders) {
    lock.readLock();
    lock.readLock();
    ChildProcess other(writer);
    waitUntil([] { return sleepersForAPlace() == 1; });
    lock.readUnlock();
    EXPECT_EQ(1, sleepersForAPlace());
    EXPECT_FALSE(other.talk().hasMark(0));

    lock.readUnlock();

    EXPECT_TRUE(other.talk().waitFor('h'));
}

TEST_F(SemRWLockTest, HoldsNewReadersBackWhileAWriterWaits) {
    lock.readLock();
    ChildProcess waiting(writer);
    waitUntil([] { return sleepersForAPlace() == 1; });
    EXPECT_EQ(1, announcements());
    ChildProcess late(reader);
    waitUntil([] { return sleepersForNoWriter() == 1; });

    lock.readUnlock();

    EXPECT_TRUE(waiting.talk().waitFor('h'));
    waiting.talk().tell('g');
    EXPECT_TRUE(late.talk().waitFor('h'));
}

TEST_F(SemRWLockTest, GetsAllPlacesBackFromAKilledWriter) {
    ChildProcess killed(writer);
    killed.talk().waitFor('h');
    ChildProcess next(writer);
    waitUntil([] { return sleepersForAPlace() == 1; });
    EXPECT_EQ(0, places());

    killed.kill();

    EXPECT_TRUE(next.talk().waitFor('h'));
    next.talk().tell('g');
    EXPECT_EQ(0, next.wait());
    EXPECT_EQ(100, places());
}

TEST_F(SemRWLockTest, GetsItsPlaceBackFromAKilledReader) {
    ChildProcess killed(reader);
    killed.talk().waitFor('h');
    EXPECT_EQ(99, places());

    killed.kill();

    EXPECT_EQ(100, places());
}

TEST_F(SemRWLockTest, ForgetsTheAnnouncementOfAWriterKilledWhileItWaits) {
    lock.readLock();
    ChildProcess killed(writer);
    waitUntil([] { return sleepersForAPlace() == 1; });
    EXPECT_EQ(1, announcements());

    killed.kill();

    EXPECT_EQ(0, announcements());
    ChildProcess next(reader);
    EXPECT_TRUE(next.talk().waitFor('h'));
}

TEST_F(SemRWLockTest, KeepsWritersOfManyProcessesApartWhileOthersAreKilled) {
    SharedPage<Pair> pair;
    Children workers(4, [&](int) {
        for (int n = 0; n < 2000; ++n) {
            lock.writeLock();
            pair->raise();
            lock.writeUnlock();
            lock.readLock();
            EXPECT_TRUE(pair->isWhole());
            lock.readUnlock();
        }
        return 0;
    });

    workers.go();
    for (int i = 0; i < 20; ++i) {
        ChildProcess killed(i % 2 == 0 ? writer : reader);
        EXPECT_TRUE(killed.talk().waitFor('h'));
        killed.kill();
    }

    workers.expectSuccess();
    EXPECT_EQ(4 * 2000, pair->first);
    EXPECT_TRUE(pair->isWhole());
    EXPECT_EQ(100, places());
    EXPECT_EQ(0, announcements());
}

} // namespace
