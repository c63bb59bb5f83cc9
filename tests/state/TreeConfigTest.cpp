#include "Clock.h"
#include "Stores.h"
#include "support/TraceCapture.h"

#include <qz/tavrel/LockObject.h>
#include <qz/tavrel/TreeConfig.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <fstream>
#include <future>
#include <locale>
#include <mutex>
#include <sstream>
#include <thread>

using qz::tavrel::TreeConfig;
using namespace tavrel::test;

namespace {

using Ids = std::vector<int>;
using Calls = std::vector<std::string>;

constexpr int owned = 0;
constexpr int shared = 1;

constexpr char historyPath[] = "/tmp/history";
const std::string marker = "11325013\n";

/// A lock of this process that writes its calls down among those of a store.
class RecordingLock : public qz::tavrel::LockObject {
public:
    explicit RecordingLock(Calls& list, bool* flag = nullptr) : calls(list), deleted(flag) {}
    ~RecordingLock() override {
        if (deleted != nullptr) {
            *deleted = true;
        }
    }

    std::function<void()> beforeLock;
    std::function<void()> beforeUnlock;

    void writeLock() override {
        if (beforeLock) {
            beforeLock();
        }
        mutex.lock();
        calls.emplace_back("writeLock");
    }
    void writeUnlock() override {
        calls.emplace_back("writeUnlock");
        mutex.unlock();
        if (beforeUnlock) {
            beforeUnlock();
        }
    }
    void readLock() override { calls.emplace_back("readLock"); }
    void readUnlock() override { calls.emplace_back("readUnlock"); }

private:
    Calls& calls;
    bool* deleted;
    std::mutex mutex;
};

[[noreturn]] void fail() {
    throw std::runtime_error("reason");
}

[[noreturn]] void failStrangely() {
    throw 5; // NOLINT(misc-throw-by-value-catch-by-reference)
}

/// Two views on one store; `lock` is the lock of the first one.
class Tree : public testing::Test {
protected:
    Tree() : lock(new RecordingLock(store.calls)) {
        tree.assign(&store, lock);
        other.assign(&store, new RecordingLock(store.calls));
    }

    static Ids targetsOf(TreeConfig& from, int src, int relation) {
        Ids out;
        from.get(src, out, relation);
        return out;
    }

    static Ids sourcesOf(TreeConfig& from, int dst) {
        Ids out;
        from.getSrcs(dst, out);
        return out;
    }

    static void refresh(TreeConfig& view) {
        view.lock();
        view.unlock();
    }

    /// Under the lock of `tree`.
    void change(const std::function<void()>& body) {
        tree.lock();
        body();
        tree.unlock();
    }

    RecordingStore store;
    RecordingLock* lock;
    TreeConfig tree;
    TreeConfig other;
};

TEST_F(Tree, AnswersNeutralValuesForUnknownIds) {
    EXPECT_EQ(0, tree.getNodeCount());
    for (const int id : {-1, 0, 5}) {
        EXPECT_EQ(-1, tree.getNodeRevision(id));
        EXPECT_EQ(0, tree.getNodeType(id));
        EXPECT_EQ(-1, tree.getNodeNumber(id));
        EXPECT_EQ(-1, tree.getSrc(id));
    }
    EXPECT_EQ(-1, tree.getUnusedNodeId());
}

TEST_F(Tree, StampsANodeWithTheRevisionOfTheNextSave) {
    tree.lock();
    EXPECT_EQ(0, tree.setNodeInfo(0, 5, 20));
    EXPECT_EQ(0, tree.setNodeInfo(1, 6, 30)) << "all nodes changed under one lock share it";
    EXPECT_TRUE(tree.isModified());
    tree.unlock();
    EXPECT_FALSE(tree.isModified());

    change([&] { EXPECT_EQ(1, tree.setNodeInfo(1, 7, 31)); });

    EXPECT_EQ(2, tree.getNodeCount());
    EXPECT_EQ(0, tree.getNodeRevision(0));
    EXPECT_EQ(5, tree.getNodeType(0));
    EXPECT_EQ(20, tree.getNodeNumber(0));
    EXPECT_EQ(1, tree.getNodeRevision(1));
    EXPECT_EQ(7, tree.getNodeType(1));
    EXPECT_EQ(31, tree.getNodeNumber(1));
}

TEST_F(Tree, TakesTheParentOfANodeFromTheOwnedRelation) {
    change([&] {
        tree.add(3, 1, shared);
        tree.add(0, 1, owned);
        tree.setNodeInfo(1, 6, 30);
        tree.setNodeInfo(0, 5, 20);
    });

    EXPECT_EQ(framed(0, bigEndian({2, 0, 0, 5, 20, -1, 1, 0, 6, 30, 0})), store.values[5]);
}

TEST_F(Tree, StoresItsPartsUnderTheirKeys) {
    change([&] {
        tree.setNodeInfo(0, 5, 20);
        tree.add(0, 1, owned);
        tree.add(3, 1, shared);
    });

    EXPECT_EQ(4U, store.values.size());
    EXPECT_EQ(framed(0, bigEndian({1, 0, 1, 1})), store.values[1]);
    EXPECT_EQ(framed(0, bigEndian({1, 3, 1, 1})), store.values[2]);
    EXPECT_EQ(framed(0, marker), store.values[4]);
    EXPECT_EQ(framed(0, bigEndian({1, 0, 0, 5, 20, -1})), store.values[5]);
}

TEST_F(Tree, WritesItsMarkerWhateverTheLocale) {
    struct Grouping : std::numpunct<char> {
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };
    const std::locale before = std::locale::global(std::locale(std::locale(), new Grouping));

    change([&] { tree.setNodeInfo(0, 5, 20); });
    refresh(other);

    std::locale::global(before);
    EXPECT_EQ(framed(0, marker), store.values[4]);
    EXPECT_EQ(5, other.getNodeType(0));
}

TEST_F(Tree, StoresThePartsBeforeItsOwnRevision) {
    tree.lock();
    tree.setNodeInfo(0, 5, 20);
    tree.add(0, 1, owned);
    tree.add(3, 1, shared);
    store.calls.clear();

    EXPECT_EQ(17, tree.unlock());

    EXPECT_EQ((Calls{"lock", "write 5 32", "unlock", "lock", "write 1 24", "unlock", "lock", "write 2 24",
                     "unlock", "lock", "write 4 17", "unlock", "writeUnlock"}),
              store.calls);
}

TEST_F(Tree, StoresOnlyThePartsThatWereChanged) {
    change([&] { tree.setNodeInfo(0, 5, 20); });
    tree.lock();
    tree.add(0, 1, owned);
    store.calls.clear();

    tree.unlock();

    EXPECT_EQ((Calls{"lock", "read 1 8", "unlock", "lock", "write 1 24", "unlock", "lock", "write 4 17",
                     "unlock", "writeUnlock"}),
              store.calls);
    EXPECT_EQ(framed(1, marker), store.values[4]);
    EXPECT_EQ(framed(0, bigEndian({1, 0, 1, 1})), store.values[1]);
}

TEST_F(Tree, SavesAPartPastTheRevisionThatADeadProcessHasLeft) {
    change([&] { tree.setNodeInfo(0, 5, 20); });
    for (const int left : {1, 3}) {
        store.values[5] = framed(left, bigEndian({1, 0, left, 6, 0, -1}));

        tree.lock();
        EXPECT_EQ(left, tree.setNodeInfo(0, 7, left));
        tree.unlock();

        EXPECT_EQ(framed(left + 1, bigEndian({1, 0, left, 7, left, -1})), store.values[5]);
    }

    store.values[5] = framed(6, bigEndian({1, 0, 6, 6, 0, -1}));
    change([&] { EXPECT_EQ(5, tree.setNodeInfo(0, 7, 5)); });
    EXPECT_EQ(framed(7, bigEndian({1, 0, 5, 7, 5, -1})), store.values[5])
        << "two have died, one after the other";
}

TEST_F(Tree, LeavesAnUnchangedPartOfADeadProcessToItsNextChange) {
    change([&] { tree.setNodeInfo(0, 5, 20); });
    const std::string left = framed(1, bigEndian({1, 0, 1, 6, 0, -1}));
    store.values[5] = left;

    change([&] { tree.add(0, 1, owned); });

    EXPECT_EQ(left, store.values[5]);
}

TEST_F(Tree, SavesThePartsOfAFirstTreeUnderTheirFirstRevision) {
    store.values[5] = framed(0, bigEndian({1, 0, 0, 6, 0, -1}));

    change([&] { tree.setNodeInfo(0, 7, 5); });

    EXPECT_EQ(framed(0, bigEndian({1, 0, 0, 7, 5, -1})), store.values[5])
        << "without key 4 nobody has loaded it";
}

TEST_F(Tree, ReadsSeventeenBytesWhenNothingIsNewAndWritesNothing) {
    change([&] { tree.setNodeInfo(0, 5, 20); });
    store.calls.clear();

    EXPECT_EQ(0, tree.lock());
    EXPECT_EQ(0, tree.unlock());

    EXPECT_EQ((Calls{"writeLock", "lock", "read 4 17", "unlock", "writeUnlock"}), store.calls);
}

TEST_F(Tree, LoadsEachPartThatIsNew) {
    refresh(other);
    change([&] {
        tree.setNodeInfo(0, 5, 20);
        tree.add(0, 1, owned);
        tree.add(3, 1, shared);
    });
    store.calls.clear();

    EXPECT_EQ(17, other.lock());

    EXPECT_EQ((Calls{"writeLock", "lock", "read 4 8", "read 4 17", "lock", "read 5 8", "read 5 32", "unlock",
                     "lock", "read 1 8", "read 1 24", "unlock", "lock", "read 2 8", "read 2 24", "unlock",
                     "unlock"}),
              store.calls);
    other.unlock();
    EXPECT_EQ(5, other.getNodeType(0));
    EXPECT_EQ(0, other.getSrc(1));
    EXPECT_EQ((Ids{0, 3}), sourcesOf(other, 1));
}

TEST_F(Tree, ReadsAPartThatIsNotNewOnceAndLeavesItAsItIs) {
    change([&] {
        tree.setNodeInfo(0, 5, 20);
        tree.add(0, 1, owned);
        tree.add(3, 1, shared);
    });
    refresh(other);
    change([&] { tree.add(0, 2, owned); });
    store.calls.clear();

    other.lock();
    other.unlock();

    EXPECT_EQ((Calls{"writeLock", "lock", "read 4 17", "lock", "read 5 32", "unlock", "lock", "read 1 24",
                     "read 1 28", "unlock", "lock", "read 2 24", "unlock", "unlock", "writeUnlock"}),
              store.calls);
    EXPECT_EQ((Ids{1, 2}), targetsOf(other, 0, owned));
}

TEST_F(Tree, TellsItsListenersAfterItsPartsAreLoadedAndSaved) {
    RecordingListener listener;
    other.addListener(&listener);
    listener.also = [&] { EXPECT_EQ(5, other.getNodeType(0)); };
    change([&] { tree.setNodeInfo(0, 5, 20); });

    refresh(other);
    ASSERT_EQ(1U, listener.events.size());
    EXPECT_EQ(&other, listener.events[0].first);
    EXPECT_EQ(0, listener.events[0].second);

    refresh(other);
    EXPECT_EQ(1U, listener.events.size()) << "nothing is new";

    other.lock();
    other.setNodeInfo(1, 6, 0);
    other.unlock();
    EXPECT_EQ(2U, listener.events.size());
}

TEST_F(Tree, PassesLinksToTheirRelation) {
    Ids dsts{4, 5};
    tree.add(1, 2, owned);
    tree.add(1, dsts, owned);
    tree.add(9, 2, shared);
    tree.add(8, dsts, shared);

    EXPECT_EQ((Ids{2, 4, 5}), targetsOf(tree, 1, owned));
    EXPECT_EQ((Ids{4, 5}), targetsOf(tree, 8, shared));
    EXPECT_EQ(1, tree.getSrc(4));
    EXPECT_EQ((Ids{1, 8}), sourcesOf(tree, 4)) << "owned sources first";
    std::set<int> all;
    tree.getAll(all);
    EXPECT_EQ((std::set<int>{1, 2, 4, 5}), all) << "of the owned relation alone";
}

TEST_F(Tree, IsModifiedWhenARelationIs) {
    Ids dsts{4, 5};
    const std::vector<std::function<void()>> changes = {
        [&] { tree.add(1, 2, owned); },
        [&] { tree.add(1, dsts, shared); },
        [&] { tree.remove(1, 2, owned); },
        [&] { tree.remove(1, 4, shared); },
        [&] { tree.removeAll(1); },
        [&] { tree.add(1, 2, shared); },
        [&] { tree.clear(); },
    };

    for (std::size_t i = 0; i < changes.size(); ++i) {
        tree.lock();
        EXPECT_FALSE(tree.isModified());
        changes[i]();
        EXPECT_TRUE(tree.isModified()) << i;
        tree.unlock();
    }
}

TEST_F(Tree, IsNotModifiedByALinkThatIsRefused) {
    Ids dsts{1};
    tree.add(1, 1, owned);
    tree.add(1, dsts, shared);
    tree.remove(1, 2, owned);
    tree.removeAll(1);
    tree.clear();

    EXPECT_FALSE(tree.isModified());
}

TEST_F(Tree, CutsOutgoingLinksOfBothRelations) {
    tree.add(0, 1, owned);
    tree.add(1, 2, owned);
    tree.add(1, 3, shared);

    tree.removeAll(1);

    EXPECT_EQ(Ids{}, targetsOf(tree, 1, owned));
    EXPECT_EQ(Ids{}, targetsOf(tree, 1, shared));
    EXPECT_EQ(0, tree.getSrc(1));
}

TEST_F(Tree, ClearsBothRelationsAndKeepsTheNodes) {
    tree.setNodeInfo(0, 5, 20);
    tree.add(0, 1, owned);
    tree.add(1, 3, shared);

    tree.clear();

    EXPECT_EQ(Ids{}, targetsOf(tree, 0, owned));
    EXPECT_EQ(Ids{}, targetsOf(tree, 1, shared));
    EXPECT_EQ(1, tree.getNodeCount());
}

TEST_F(Tree, HasNoLinksInAnyOtherRelation) {
    Ids dsts{4, 5};
    tree.add(1, 2, owned);
    tree.setModified(false);

    for (const int relation : {-1, 2, 1000000}) {
        tree.add(1, 3, relation);
        tree.add(1, dsts, relation);
        tree.remove(1, 2, relation);
        EXPECT_EQ(Ids{}, targetsOf(tree, 1, relation));
    }

    EXPECT_FALSE(tree.isModified());
    EXPECT_EQ(Ids{2}, targetsOf(tree, 1, owned));
}

TEST_F(Tree, OffersTheIdThatHasBeenFreeLongestInAnyProcess) {
    change([&] {
        for (int id = 0; id < 3; ++id) {
            tree.setNodeInfo(id, 5, id);
        }
    });
    change([&] { tree.setNodeInfo(2, 0, -1); });
    change([&] { tree.setNodeInfo(1, 0, -1); });
    refresh(other);

    EXPECT_EQ(2, other.getUnusedNodeId());
    EXPECT_EQ(1, other.getUnusedNodeId());
}

TEST_F(Tree, WritesARepairBackWithItsNextSave) {
    store.values[5] = framed(0, bigEndian({1, 1, 0, 5, 0, -1}));
    store.values[4] = framed(0, marker);

    refresh(tree);
    EXPECT_EQ(framed(0, bigEndian({1, 1, 0, 5, 0, -1})), store.values[5]) << "alone it is no change";
    change([&] { tree.add(0, 1, owned); });

    EXPECT_EQ(framed(1, bigEndian({2, 0, 0, 0, -1, -1, 1, 0, 5, 0, -1})), store.values[5]);
}

TEST_F(Tree, LocksAndLoadsOnceForNestedLocks) {
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

TEST_F(Tree, DoesNothingForAnUnlockWithoutALock) {
    tree.setNodeInfo(0, 5, 20);

    EXPECT_EQ(0, tree.unlock());
    EXPECT_EQ(0, tree.unlock());
    EXPECT_TRUE(store.calls.empty());

    EXPECT_EQ(0, tree.lock());
    EXPECT_EQ("writeLock", store.calls.front()) << "the next lock is a real one";
    tree.unlock();
}

TEST_F(Tree, WorksWithoutALockObject) {
    TreeConfig single;
    single.assign(&store, nullptr);

    single.lock();
    single.setNodeInfo(0, 5, 20);
    single.unlock();
    refresh(tree);

    EXPECT_EQ(5, tree.getNodeType(0));
}

TEST_F(Tree, BlocksASecondThreadInTheLockObject) {
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

TEST_F(Tree, IsNotLockedWhenTheLockObjectRaises) {
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
class FailingTree : public Tree {
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

TEST(TreeConfig, UnlocksAndSavesWhenItIsDestroyed) {
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

TEST(TreeConfig, IsDestroyedQuietlyWhenNothingIsLocked) {
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

TEST(TreeConfig, IsDestroyedAlsoWhenItsLastSaveRaises) {
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

TEST(TreeConfig, DeletesALockObjectThatAnotherReplaces) {
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

TEST(TreeConfig, IsAConfigurationUnderAnyKey) {
    RecordingStore store;
    TreeConfig tree;

    tree.assign(&store, 77);

    EXPECT_EQ(77, tree.getKey());
    EXPECT_EQ(-1, tree.getRevision());
}

TEST(TreeConfig, CountsItsInProcessLock) {
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

TEST(TreeConfig, DoesNothingForAnInProcessUnlockWithoutALock) {
    TreeConfig tree;

    EXPECT_EQ(0, tree.readUnlock());
    EXPECT_EQ(0, tree.writeUnlock());

    EXPECT_EQ(1, tree.writeLock()) << "the next lock is a real one";
    tree.writeUnlock();
}

TEST(TreeConfig, LetsThreadsReadTogether) {
    TreeConfig tree;
    tree.readLock();

    std::thread([&] {
        EXPECT_EQ(1, tree.readLock());
        tree.readUnlock();
    }).join();

    tree.readUnlock();
}

TEST(TreeConfig, GivesAReaderThatAsksForWritingNoExclusiveAccess) {
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

TEST(TreeConfig, KeepsReadersOutWhileAThreadWrites) {
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

TEST(TreeConfig, GuardsItsTablesBetweenThreads) {
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

/// Two views on one store and one history file.
class RecordedTree : public Tree {
protected:
    RecordedTree() {
        unlink(historyPath);
        tree.assign(historyPath);
        other.assign(historyPath);
    }
    void TearDown() override { scriptedTimes.clear(); }

    static int revisionAt(TreeConfig& view, timeval when) { return view.getRevision(when); }
};

TEST_F(RecordedTree, RecordsTheNodesThatItChanges) {
    scriptedTimes = {{100, 0}, {200, 0}};
    change([&] {
        tree.setNodeInfo(0, 5, 20);
        tree.setNodeInfo(1, 6, 30);
    });
    change([&] { tree.setNodeInfo(1, 7, 30); });

    EXPECT_EQ(-1, revisionAt(tree, {100, 0}));
    EXPECT_EQ(0, revisionAt(tree, {200, 0}));
    EXPECT_EQ(1, revisionAt(tree, {200, 1}));
}

TEST_F(RecordedTree, ShowsOthersItsHistory) {
    scriptedTimes = {{100, 0}};
    change([&] { tree.setNodeInfo(0, 5, 20); });
    EXPECT_EQ(-1, revisionAt(other, {200, 0}));

    refresh(other);

    EXPECT_EQ(0, revisionAt(other, {200, 0}));
}

TEST_F(RecordedTree, WritesItsHistoryBeforeItsOwnRevision) {
    std::string history = "none";
    store.beforeWrite = [&](int key) {
        if (key == 4) {
            history = std::to_string(std::ifstream(historyPath, std::ios::ate).tellg());
        }
    };

    change([&] { tree.setNodeInfo(0, 5, 20); });

    EXPECT_EQ("40", history);
}

TEST_F(Tree, RecordsNothingWithoutAHistory) {
    unlink(historyPath);

    change([&] { tree.setNodeInfo(0, 5, 20); });

    timeval late{2000000000, 0};
    EXPECT_EQ(-1, tree.getRevision(late));
    EXPECT_FALSE(std::ifstream(historyPath).is_open());
}

} // namespace
