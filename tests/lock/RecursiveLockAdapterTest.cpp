#include "lock/Expect.h"
#include "lock/SharedPage.h"

#include <qz/tavrel/LockObject.h>
#include <qz/tavrel/QZException.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

using qz::tavrel::LockObject;
using qz::tavrel::PthreadRWLock;
using qz::tavrel::RecursiveLockAdapter;
using qz::tavrel::TavrelException;
using namespace tavrel::test;

namespace {

/// Allocations of this thread that still succeed; -1 for all.
thread_local int allocationsLeft = -1;

} // namespace

void* operator new(std::size_t size) {
    if (allocationsLeft == 0) {
        throw std::bad_alloc();
    }
    if (allocationsLeft > 0) {
        --allocationsLeft;
    }
    void* const memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

namespace {

/// Notes each call by a letter: r and R for read lock and unlock, w and W for write lock and unlock. Raises
/// afterwards while `broken`.
class NotingLock : public LockObject {
public:
    void readLock() override { note('r'); }
    void readUnlock() override { note('R'); }
    void writeLock() override { note('w'); }
    void writeUnlock() override { note('W'); }

    std::string calls;
    bool broken = false;

private:
    void note(char call) {
        calls += call;
        if (broken) {
            throw TavrelException("broken");
        }
    }
};

class RecursiveLockAdapterTest : public testing::Test {
protected:
    NotingLock noting;
    RecursiveLockAdapter adapter{&noting};
};

TEST_F(RecursiveLockAdapterTest, PassesOnlyTheOutermostReadLockOn) {
    adapter.readLock();
    adapter.readLock();
    adapter.readLock();
    EXPECT_EQ("r", noting.calls);

    adapter.readUnlock();
    adapter.readUnlock();
    EXPECT_EQ("r", noting.calls);
    adapter.readUnlock();
    EXPECT_EQ("rR", noting.calls);

    adapter.readLock();
    EXPECT_EQ("rRr", noting.calls);
}

TEST_F(RecursiveLockAdapterTest, PassesOnlyTheOutermostWriteLockOn) {
    adapter.writeLock();
    adapter.writeLock();
    adapter.writeUnlock();
    EXPECT_EQ("w", noting.calls);

    adapter.writeUnlock();
    EXPECT_EQ("wW", noting.calls);
}

TEST_F(RecursiveLockAdapterTest, CountsAReadLockWithinAWriteLock) {
    adapter.writeLock();
    adapter.readLock();
    adapter.readUnlock();
    adapter.writeUnlock();
    EXPECT_EQ("wW", noting.calls);

    adapter.readLock();
    EXPECT_EQ("wWr", noting.calls) << "the write lock has left no read depth behind";
}

TEST_F(RecursiveLockAdapterTest, AsksForAWriteLockWithinAReadLock) {
    adapter.readLock();
    adapter.writeLock();

    EXPECT_EQ("rw", noting.calls) << "there is no upgrade";
}

TEST_F(RecursiveLockAdapterTest, TakesTheDepthBelowZeroForAnUnlockWithoutLock) {
    adapter.readUnlock();
    EXPECT_EQ("", noting.calls);
    adapter.readLock();
    EXPECT_EQ("", noting.calls) << "from -1 to 0";
    adapter.readLock();
    EXPECT_EQ("r", noting.calls);

    adapter.writeUnlock();
    adapter.writeLock();
    EXPECT_EQ("r", noting.calls);
}

TEST_F(RecursiveLockAdapterTest, PassesAFailedReadLockOnAndCountsNothing) {
    noting.broken = true;
    EXPECT_THROW(adapter.readLock(), TavrelException);

    noting.broken = false;
    adapter.readLock();

    EXPECT_EQ("rr", noting.calls);
}

TEST_F(RecursiveLockAdapterTest, PassesAFailedWriteLockOnAndCountsNothing) {
    noting.broken = true;
    EXPECT_THROW(adapter.writeLock(), TavrelException);

    noting.broken = false;
    adapter.readLock();
    adapter.readUnlock();
    adapter.writeLock();

    EXPECT_EQ("wrRw", noting.calls);
}

TEST_F(RecursiveLockAdapterTest, SwallowsAFailedReadUnlockAndKeepsTheLockCounted) {
    adapter.readLock();
    noting.broken = true;

    EXPECT_NO_THROW(adapter.readUnlock());

    noting.broken = false;
    adapter.readLock();
    EXPECT_EQ("rR", noting.calls) << "still locked";
    adapter.readUnlock();
    adapter.readUnlock();
    EXPECT_EQ("rRR", noting.calls);
}

TEST_F(RecursiveLockAdapterTest, SwallowsAFailedWriteUnlockAndKeepsTheLockCounted) {
    adapter.writeLock();
    noting.broken = true;

    EXPECT_NO_THROW(adapter.writeUnlock());

    noting.broken = false;
    adapter.readLock();
    adapter.readUnlock();
    adapter.writeLock();
    EXPECT_EQ("wW", noting.calls) << "still locked, for reading too";
    adapter.writeUnlock();
    adapter.writeUnlock();
    EXPECT_EQ("wWW", noting.calls);
}

TEST_F(RecursiveLockAdapterTest, CountsEachThreadForItself) {
    adapter.readLock();

    std::thread([&] {
        adapter.readLock();
        adapter.readUnlock();
    }).join();

    EXPECT_EQ("rrR", noting.calls);
}

TEST_F(RecursiveLockAdapterTest, KeepsItsCountsWhenTheLockIsSwapped) {
    NotingLock other;
    adapter.readLock();

    adapter.setLockObject(&other);
    adapter.readUnlock();

    EXPECT_EQ(&other, adapter.getLockObject());
    EXPECT_EQ("r", noting.calls);
    EXPECT_EQ("R", other.calls);
}

TEST(RecursiveLockAdapter, LosesNoThreadOfThoseThatMeetItAtTheSameMoment) {
    struct CountingLock : LockObject {
        void readLock() override { ++locks; }
        void readUnlock() override {}
        void writeLock() override {}
        void writeUnlock() override {}
        std::atomic<int> locks{0};
    } counting;
    constexpr int rounds = 2000;
    constexpr int threadCount = 2;
    std::vector<std::unique_ptr<RecursiveLockAdapter>> adapters(rounds);
    for (auto& adapter : adapters) {
        adapter = std::make_unique<RecursiveLockAdapter>(&counting);
    }
    std::atomic<int> arrived{0};
    std::vector<std::thread> threads(threadCount);

    for (std::thread& thread : threads) {
        thread = std::thread([&] {
            for (int round = 0; round < rounds; ++round) {
                ++arrived;
                waitUntil([&] { return arrived >= threadCount * (round + 1); });
                adapters[static_cast<std::size_t>(round)]->readLock();
                adapters[static_cast<std::size_t>(round)]->readLock();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(rounds * threadCount, counting.locks);
}

TEST(RecursiveLockAdapter, KeepsWritingThreadsApartThatMeetItAtTheSameTime) {
    SharedPage<pthread_rwlock_t> memory;
    PthreadRWLock::setupInitialValues(&*memory);
    PthreadRWLock lock(&*memory);
    RecursiveLockAdapter adapter(&lock);
    Pair pair{};
    int torn = 0;
    std::vector<std::thread> threads(8);

    for (std::thread& thread : threads) {
        thread = std::thread([&] {
            for (int n = 0; n < 2000; ++n) {
                adapter.writeLock();
                adapter.readLock();
                pair.raise();
                adapter.readUnlock();
                torn += pair.isWhole() ? 0 : 1;
                adapter.writeUnlock();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(8 * 2000, pair.first);
    EXPECT_EQ(0, torn);
}

TEST(RecursiveLockAdapter, TakesNoWriteLockThatItHasNoMemoryToCount) {
    for (int allocations = 0;; ++allocations) {
        NotingLock inner;
        RecursiveLockAdapter adapter(&inner);
        inner.calls.reserve(8);
        bool raised = false;

        allocationsLeft = allocations;
        try {
            adapter.writeLock();
        } catch (const std::bad_alloc&) {
            raised = true;
        }
        allocationsLeft = -1;

        EXPECT_EQ(raised ? "" : "w", inner.calls);
        adapter.writeLock();
        EXPECT_EQ("w", inner.calls) << "counted from the start again";
        if (!raised) {
            ASSERT_LT(0, allocations);
            break;
        }
    }
}

} // namespace
