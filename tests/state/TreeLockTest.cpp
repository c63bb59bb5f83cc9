#include "TreeFixture.h"
#include "support/TraceCapture.h"

#include <qz/tavrel/TreeConfig.h>

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <stdexcept>
#include <thread>

using qz::tavrel::TreeConfig;
using namespace tavrel::test;

namespace {

using LockedTree = TreeFixture;

[[noreturn]] void fail() {
    throw std::runtime_error("reason");
}

[[noreturn]] void failStrangely() {
    throw 5; // NOLINT(misc-throw-by-value-catch-by-reference)
}

TEST_F(LockedTree, LocksAndLoadsOnceForNestedLocks) {
    EXPECT_EQ(0, tree.lock());
    EXPECT_EQ(2, tree.lock());
    EXPECT_EQ(3, tree.lock());
    tree.setNodeInfo(0, 5, 20);
    EXPECT_EQ((Calls{"writeLock", "lock", "read 4 8", "unlock"}), store.calls);
    store.calls.clear();

    EXPECT_EQ(2, tree.unlock());
    EXPECT_EQ(1, tree.unlock());
    EXPECT_TRUE(store.calls.empty());
    EXPECT_EQ(17, tree.unlock());

    EXPECT_EQ((Calls{"lock", "write 5 32", "unlock", "lock", "write 4 17", "unlock", "writeUnlock"}),
              store.calls);
}

TEST_F(LockedTree, DoesNothingForAnUnlockWithoutALock) {
    tree.setNodeInfo(0, 5, 20);

    EXPECT_EQ(0, tree.unlock());
    EXPECT_EQ(0, tree.unlock());
    EXPECT_TRUE(store.calls.empty());

    EXPECT_EQ(0, tree.lock());
    EXPECT_EQ("writeLock", store.calls.front()) << "the next lock is a real one";
    tree.unlock();
}

TEST_F(LockedTree, WorksWithoutALockObject) {
    TreeConfig single;
    single.assign(&store, nullptr);

    single.lock();
    single.setNodeInfo(0, 5, 20);
    single.unlock();
    refresh(tree);

    EXPECT_EQ(5, tree.getNodeType(0));
}

TEST_F(LockedTree, BlocksASecondThreadInTheLockObject) {
    std::promise<void> arrived;
    tree.lock();
    lock->beforeLock = [&] { arrived.set_value(); };

    std::future<int> second = std::async(std::launch::async, [&] {
        const int result = tree.lock();
        EXPECT_EQ(1, tree.getNodeCount()) << "what the first thread did";
        tree.unlock();
        return result;
    });
    arrived.get_future().wait();
    EXPECT_EQ(std::future_status::timeout, second.wait_for(std::chrono::milliseconds(20)));
    tree.setNodeInfo(0, 5, 20);
    tree.unlock();

    EXPECT_EQ(0, second.get()) << "bytes loaded, no depth";
}

TEST_F(LockedTree, IsNotLockedWhenTheLockObjectRaises) {
    lock->beforeLock = fail;
    EXPECT_THROW(tree.lock(), std::runtime_error);
    EXPECT_TRUE(store.calls.empty());
    EXPECT_EQ(0, tree.unlock());
    EXPECT_TRUE(store.calls.empty()) << "there is nothing to unlock";

    lock->beforeLock = nullptr;
    EXPECT_EQ(0, tree.lock());
    EXPECT_EQ("writeLock", store.calls.front());
    tree.unlock();
}

/// What a failed load or save must leave: the records, the lock given back, and a tree that works.
class FailingTree : public TreeFixture {
protected:
    FailingTree() {
        tree.addListener(&listener);
        other.lock();
        other.setNodeInfo(0, 5, 20);
        other.unlock();
        store.calls.clear();
    }

    void expectRecords(const TraceCapture& capture, unsigned long id, const char* text) {
        const auto records = capture.all();
        ASSERT_EQ(text == nullptr ? 1U : 2U, records.size());
        EXPECT_EQ(id, records[0].id);
        EXPECT_EQ(debugFlags, records[0].flags);
        EXPECT_EQ((Ids{0, 0}), records[0].arguments());
        if (text != nullptr) {
            EXPECT_EQ(id + 1, records[1].id);
            EXPECT_EQ(debugFlags, records[1].flags);
            EXPECT_EQ(text, records[1].text());
        }
    }

    void expectUnlocked() {
        EXPECT_EQ("writeUnlock", store.calls.back());
        EXPECT_EQ(0, store.depth);
        store.calls.clear();
        listener.also = nullptr;
        lock->beforeUnlock = nullptr;
        tree.lock();
        EXPECT_EQ("writeLock", store.calls.front()) << "the depth is 0 again";
        tree.unlock();
    }

    RecordingListener listener;
};

TEST_F(FailingTree, IsNotLockedWhenLoadingRaises) {
    listener.also = fail;
    const TraceCapture capture;

    EXPECT_THROW(tree.lock(), std::runtime_error);

    expectRecords(capture, 0x20382, "reason");
    expectUnlocked();
}

TEST_F(FailingTree, IsNotLockedWhenLoadingRaisesAnythingElse) {
    listener.also = failStrangely;
    const TraceCapture capture;

    EXPECT_THROW(tree.lock(), int);

    expectRecords(capture, 0x20384, nullptr);
    expectUnlocked();
}

TEST_F(FailingTree, ReportsTheFirstFailureWhenUnlockingRaisesToo) {
    listener.also = fail;
    lock->beforeUnlock = failStrangely;

    EXPECT_THROW(tree.lock(), std::runtime_error);

    expectUnlocked();
}

TEST_F(FailingTree, LoadsAgainWhatItCouldNotLoad) {
    store.beforeLock = [&] {
        if (store.depth == 1) {
            fail(); // within a part
        }
    };
    EXPECT_THROW(tree.lock(), std::runtime_error);
    EXPECT_EQ(-1, tree.getRevision());

    store.beforeLock = nullptr;
    refresh(tree);

    EXPECT_EQ(5, tree.getNodeType(0));
    EXPECT_EQ(0, tree.getRevision());
}

TEST_F(FailingTree, IsUnlockedWhenSavingRaises) {
    tree.lock();
    tree.setNodeInfo(1, 6, 0);
    listener.also = fail;
    const TraceCapture capture;

    EXPECT_THROW(tree.unlock(), std::runtime_error);

    expectRecords(capture, 0x20385, "reason");
    expectUnlocked();
}

TEST_F(FailingTree, IsUnlockedWhenSavingRaisesAnythingElse) {
    tree.lock();
    tree.setNodeInfo(1, 6, 0);
    listener.also = failStrangely;
    const TraceCapture capture;

    EXPECT_THROW(tree.unlock(), int);

    expectRecords(capture, 0x20387, nullptr);
    expectUnlocked();
}

TEST_F(FailingTree, IsUnlockedWhenOnlyTheLockObjectRaises) {
    tree.lock();
    lock->beforeUnlock = fail;

    EXPECT_THROW(tree.unlock(), std::runtime_error);

    expectUnlocked();
}

TEST_F(FailingTree, SavesAtTheNextUnlockWhatItCouldNotSave) {
    tree.lock();
    tree.setNodeInfo(1, 6, 0);
    store.beforeLock = fail;
    EXPECT_THROW(tree.unlock(), std::runtime_error);
    EXPECT_TRUE(tree.isModified());

    store.beforeLock = nullptr;
    refresh(tree);
    refresh(other);

    EXPECT_EQ(6, other.getNodeType(1));
}

TEST_F(FailingTree, CountsALockThatAListenerTakesDuringASave) {
    tree.lock();
    tree.setNodeInfo(1, 6, 0);
    listener.also = [&] {
        EXPECT_EQ(2, tree.lock());
        EXPECT_EQ(1, tree.unlock());
    };

    tree.unlock();

    EXPECT_EQ(2U, listener.events.size()) << "of the load and of the save";
    expectUnlocked();
}

TEST(TreeLock, UnlocksAndSavesWhenItIsDestroyed) {
    RecordingStore store;
    bool deleted = false;
    const TraceCapture capture;
    {
        TreeConfig tree;
        tree.assign(&store, new RecordingLock(store.calls, &deleted));
        tree.lock();
        tree.lock();
        tree.setNodeInfo(0, 5, 20);
    }

    EXPECT_TRUE(deleted);
    EXPECT_EQ("writeUnlock", store.calls.back());
    EXPECT_EQ(framed(0, marker), store.values[4]);
    ASSERT_EQ(2U, capture.count(0x20381));
    EXPECT_EQ(errorFlags, capture.of(0x20381)[0].flags);
    EXPECT_EQ((Ids{0, 0}), capture.of(0x20381)[0].arguments());
}

TEST(TreeLock, IsDestroyedQuietlyWhenNothingIsLocked) {
    RecordingStore store;
    bool deleted = false;
    const TraceCapture capture;
    {
        TreeConfig tree;
        tree.assign(&store, new RecordingLock(store.calls, &deleted));
        tree.setNodeInfo(0, 5, 20);
    }

    EXPECT_TRUE(deleted);
    EXPECT_TRUE(store.calls.empty());
    EXPECT_TRUE(capture.all().empty());
}

TEST(TreeLock, IsDestroyedAlsoWhenItsLastSaveRaises) {
    RecordingStore store;
    bool deleted = false;
    const TraceCapture capture;
    {
        TreeConfig tree;
        tree.assign(&store, new RecordingLock(store.calls, &deleted));
        tree.lock();
        tree.setNodeInfo(0, 5, 20);
        store.beforeLock = fail;
    }

    EXPECT_TRUE(deleted);
    EXPECT_EQ("writeUnlock", store.calls.back());
    EXPECT_EQ(1U, capture.count(0x20381));
    EXPECT_EQ(1U, capture.count(0x20385));
}

TEST(TreeLock, DeletesALockObjectThatAnotherReplaces) {
    RecordingStore store;
    bool firstDeleted = false;
    bool secondDeleted = false;
    {
        TreeConfig tree;
        auto* second = new RecordingLock(store.calls, &secondDeleted);
        tree.assign(&store, new RecordingLock(store.calls, &firstDeleted));
        tree.assign(&store, second);
        EXPECT_TRUE(firstDeleted);
        tree.assign(&store, second);
        EXPECT_FALSE(secondDeleted);
    }
    EXPECT_TRUE(secondDeleted);
}

TEST(TreeLock, CountsItsInProcessLock) {
    TreeConfig tree;

    EXPECT_EQ(1, tree.readLock());
    EXPECT_EQ(2, tree.readLock());
    EXPECT_EQ(3, tree.writeLock());
    EXPECT_EQ(2, tree.writeUnlock());
    EXPECT_EQ(1, tree.readUnlock());
    EXPECT_EQ(0, tree.readUnlock());
    EXPECT_EQ(1, tree.writeLock());
    EXPECT_EQ(0, tree.writeUnlock());
}

TEST(TreeLock, DoesNothingForAnInProcessUnlockWithoutALock) {
    TreeConfig tree;

    EXPECT_EQ(0, tree.readUnlock());
    EXPECT_EQ(0, tree.writeUnlock());

    EXPECT_EQ(1, tree.writeLock()) << "the next lock is a real one";
    tree.writeUnlock();
}

TEST(TreeLock, LetsThreadsReadTogether) {
    TreeConfig tree;
    tree.readLock();

    std::thread([&] {
        EXPECT_EQ(1, tree.readLock());
        tree.readUnlock();
    }).join();

    tree.readUnlock();
}

TEST(TreeLock, GivesAReaderThatAsksForWritingNoExclusiveAccess) {
    TreeConfig tree;
    std::promise<void> reading;
    std::promise<void> asked;
    std::thread reader([&] {
        tree.readLock();
        reading.set_value();
        asked.get_future().wait();
        tree.readUnlock();
    });
    reading.get_future().wait();

    tree.readLock();
    EXPECT_EQ(2, tree.writeLock()) << "returns although the other thread reads";

    tree.writeUnlock();
    tree.readUnlock();
    asked.set_value();
    reader.join();
}

TEST(TreeLock, KeepsReadersOutWhileAThreadWrites) {
    TreeConfig tree;
    tree.writeLock();
    std::promise<void> started;
    std::future<void> reader = std::async(std::launch::async, [&] {
        started.set_value();
        tree.readLock();
        tree.readUnlock();
    });
    started.get_future().wait();

    EXPECT_EQ(std::future_status::timeout, reader.wait_for(std::chrono::milliseconds(20)));

    tree.writeUnlock();
    reader.get();
}

TEST(TreeLock, GuardsItsTablesBetweenThreads) {
    constexpr int rounds = 2000;
    RecordingStore store;
    TreeConfig tree;
    tree.assign(&store, nullptr);

    // Each writer moves type and number together; no reader may see one without the other.
    const auto write = [&] {
        for (int i = 1; i <= rounds; ++i) {
            tree.writeLock();
            tree.setNodeInfo(0, tree.getNodeType(0) + 1, tree.getNodeType(0) + 1);
            tree.writeUnlock();
        }
    };
    const auto read = [&] {
        for (int i = 1; i <= rounds; ++i) {
            tree.readLock();
            if (tree.getNodeCount() != 0) {
                EXPECT_EQ(tree.getNodeType(0), tree.getNodeNumber(0));
            }
            tree.readUnlock();
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back(write);
        threads.emplace_back(read);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(2 * rounds, tree.getNodeType(0));
}

} // namespace
