#include "lock/Children.h"
#include "lock/Expect.h"
#include "lock/KernelStandIn.h"
#include "lock/SharedPage.h"
#include "support/FaultText.h"

#include <qz/tavrel/LockObject.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <ctime>

using qz::tavrel::LockObject;
using qz::tavrel::PthreadRWLock;
using namespace tavrel::test;

namespace {

class PthreadRWLockTest : public testing::Test {
protected:
    PthreadRWLockTest() : lock(&*memory) { EXPECT_EQ(0, PthreadRWLock::setupInitialValues(&*memory)); }

    SharedPage<pthread_rwlock_t> memory;
    PthreadRWLock lock;
};

std::string fault(const char* function, int errnum) {
    return std::string("FAULT at PthreadRWLock(LINE): ") + function + "() " + std::strerror(errnum);
}

void setDeadlineFromNow(int seconds) {
    timespec deadline{};
    clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_sec += seconds;
    LockObject::setTimeoutValue(&deadline);
}

/// Takes the write lock, says so and gives it back at the mark 'g'.
int writer(PthreadRWLock& lock, Talk& talk) {
    lock.writeLock();
    talk.tell('h');
    talk.waitFor('g');
    lock.writeUnlock();
    return 0;
}

TEST_F(PthreadRWLockTest, NeedsTheMemoryOfTheSystemsLock) {
    EXPECT_EQ(sizeof(pthread_rwlock_t), PthreadRWLock::getSize());
}

TEST_F(PthreadRWLockTest, StandsOnTheMemoryThatItIsGiven) {
    EXPECT_EQ(&*memory, lock.rwlock());
    EXPECT_EQ(nullptr, PthreadRWLock().rwlock());
}

TEST_F(PthreadRWLockTest, ReachesItsLockThroughRwlockAlone) {
    struct Placed : PthreadRWLock {
        explicit Placed(pthread_rwlock_t& place) : memory(place) {}
        pthread_rwlock_t* rwlock() override {
            ++asked;
            return &memory;
        }
        pthread_rwlock_t& memory;
        int asked = 0;
    } placed(*memory);

    placed.readLock();
    placed.readUnlock();
    placed.writeLock();
    placed.writeUnlock();
    placed.timedReadLock();
    placed.readUnlock();
    placed.timedWriteLock();
    placed.writeUnlock();

    EXPECT_EQ(8, placed.asked);
}

TEST_F(PthreadRWLockTest, LetsReadersOfTwoProcessesInTogether) {
    lock.readLock();
    ChildProcess other([&](Talk&) {
        lock.readLock();
        lock.readUnlock();
        return 0;
    });

    EXPECT_EQ(0, other.wait());
    lock.readUnlock();
}

TEST_F(PthreadRWLockTest, LetsAWriterOfAnotherProcessWaitForTheReader) {
    ChildProcess other([&](Talk& talk) {
        talk.waitFor('g');
        talk.tell('w');
        lock.writeLock();
        talk.tell('h');
        lock.writeUnlock();
        return 0;
    });
    lock.readLock();
    other.talk().tell('g');
    other.talk().waitFor('w');
    waitUntil([&] { return isAsleep(other.pid()); });
    EXPECT_FALSE(other.talk().hasMark(0));

    lock.readUnlock();

    EXPECT_TRUE(other.talk().waitFor('h'));
    EXPECT_EQ(0, other.wait());
}

TEST_F(PthreadRWLockTest, LetsAReaderOfAnotherProcessWaitForTheWriter) {
    ChildProcess other([&](Talk& talk) {
        talk.waitFor('g');
        talk.tell('w');
        lock.readLock();
        talk.tell('h');
        lock.readUnlock();
        return 0;
    });
    lock.writeLock();
    other.talk().tell('g');
    other.talk().waitFor('w');
    waitUntil([&] { return isAsleep(other.pid()); });
    EXPECT_FALSE(other.talk().hasMark(0));

    lock.writeUnlock();

    EXPECT_TRUE(other.talk().waitFor('h'));
    EXPECT_EQ(0, other.wait());
}

TEST_F(PthreadRWLockTest, RaisesTheSystemsTextForADeadlock) {
    lock.writeLock();
    const TraceCapture capture;

    EXPECT_EQ(fault("readLock", EDEADLK), faultText([&] { lock.readLock(); }));
    EXPECT_EQ(fault("writeLock", EDEADLK), faultText([&] { lock.writeLock(); }));

    expectWords(capture, 0x40301, errorFlags, {EDEADLK, 0});
    expectWords(capture, 0x40303, errorFlags, {EDEADLK, 0});
    EXPECT_EQ(2U, capture.all().size());
}

TEST_F(PthreadRWLockTest, OnlyTracesAnUnlockThatFails) {
    const KernelStandIn unlocks("pthread_rwlock_unlock", failing(EPERM));
    const TraceCapture capture;

    lock.readUnlock();
    lock.writeUnlock();

    expectWords(capture, 0x40302, errorFlags, {EPERM, 0});
    expectWords(capture, 0x40304, errorFlags, {EPERM, 0});
    EXPECT_EQ(2U, capture.all().size());
}

TEST_F(PthreadRWLockTest, TakesAFreeLockInTimeAlsoWithoutADeadline) {
    lock.timedWriteLock();
    lock.writeUnlock();
    lock.timedReadLock();
    lock.timedReadLock();
    lock.readUnlock();
    lock.readUnlock();
}

TEST_F(PthreadRWLockTest, RaisesAtOnceForATakenLockWithoutADeadline) {
    ChildProcess other([&](Talk& talk) { return writer(lock, talk); });
    other.talk().waitFor('h');
    const TraceCapture capture;

    EXPECT_EQ(fault("timedWriteLock", ETIMEDOUT), faultText([&] { lock.timedWriteLock(); }));
    EXPECT_EQ(fault("timedReadLock", ETIMEDOUT), faultText([&] { lock.timedReadLock(); }));

    expectWords(capture, 0x40306, errorFlags, {ETIMEDOUT, 0});
    expectWords(capture, 0x40305, errorFlags, {ETIMEDOUT, 0});
    other.talk().tell('g');
    EXPECT_EQ(0, other.wait());
}

TEST_F(PthreadRWLockTest, TakesTheDeadlineForAPointOfTime) {
    ChildProcess other([&](Talk& talk) { return writer(lock, talk); });
    other.talk().waitFor('h');
    const timespec longAgo{3600, 0};

    LockObject::setTimeoutValue(&longAgo);

    EXPECT_EQ(fault("timedReadLock", ETIMEDOUT), faultText([&] { lock.timedReadLock(); }));
    setDeadlineFromNow(-1);
    EXPECT_EQ(fault("timedWriteLock", ETIMEDOUT), faultText([&] { lock.timedWriteLock(); }));
}

TEST_F(PthreadRWLockTest, WaitsUntilTheDeadline) {
    setDeadlineFromNow(3600);
    Children others(2, [&](int index) {
        if (index == 0) {
            lock.timedReadLock();
            lock.readUnlock();
        } else {
            lock.timedWriteLock();
            lock.writeUnlock();
        }
        return 0;
    });
    lock.writeLock();
    others.go();
    waitUntil([&] { return isAsleep(others[0].pid()) && isAsleep(others[1].pid()); });

    lock.writeUnlock();

    others.expectSuccess();
}

TEST_F(PthreadRWLockTest, KeepsWritersOfManyProcessesApart) {
    SharedPage<Pair> pair;
    Children writers(4, [&](int) {
        for (int n = 0; n < 5000; ++n) {
            lock.writeLock();
            pair->raise();
            lock.writeUnlock();
            lock.readLock();
            EXPECT_TRUE(pair->isWhole());
            lock.readUnlock();
        }
        return 0;
    });

    writers.go();

    writers.expectSuccess();
    EXPECT_EQ(4 * 5000, pair->first);
    EXPECT_TRUE(pair->isWhole());
}

} // namespace
