#include "Clock.h"
#include "TreeFixture.h"

#include <qz/tavrel/TreeConfig.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <fstream>
#include <locale>

using qz::tavrel::TreeConfig;
using namespace tavrel::test;

namespace {

constexpr char historyPath[] = "/tmp/history";

using Tree = TreeFixture;

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

TEST_F(Tree, GivesNoStampTwiceWhenTheStoreRefusesASave) {
    change([&] { tree.setNodeInfo(1, 5, 0); });
    store.beforeWrite = [](int key) {
        if (key == 5) {
            throw std::runtime_error("refused");
        }
    };
    change([&] { EXPECT_EQ(1, tree.setNodeInfo(1, 6, 0)); });
    store.beforeWrite = nullptr;

    change([&] { EXPECT_EQ(2, tree.setNodeInfo(1, 7, 0)); });

    EXPECT_EQ(framed(2, bigEndian({1, 1, 2, 7, 0, -1})), store.values[5]);
}

TEST_F(Tree, StampsBehindWhatADeadProcessHasStoredAlsoAfterARepair) {
    store.values[5] = framed(0, bigEndian({1, 1, 0, 5, 0, -1})); // node 0 is missing
    store.values[4] = framed(0, marker);
    change([] {});
    store.values[5] = framed(1, bigEndian({1, 1, 1, 6, 0, -1})); // key 4 was not stored

    int stamp = 0;
    change([&] { stamp = tree.setNodeInfo(1, 7, 0); });

    EXPECT_EQ(2, stamp);
    EXPECT_EQ(bigEndian({stamp}), store.values[5].substr(0, 4)) << "the stamp is the revision that was saved";
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
        EXPECT_EQ(left + 1, tree.setNodeInfo(0, 7, left));
        EXPECT_EQ(left + 1, tree.setNodeInfo(1, 8, left)) << "all of one change share it";
        tree.unlock();

        EXPECT_EQ(framed(left + 1, bigEndian({2, 0, left + 1, 7, left, -1, 1, left + 1, 8, left, -1})),
                  store.values[5]);
    }

    store.values[5] = framed(6, bigEndian({1, 0, 6, 6, 0, -1}));
    change([&] { EXPECT_EQ(7, tree.setNodeInfo(0, 7, 5)); });
    EXPECT_EQ(framed(7, bigEndian({2, 0, 7, 7, 5, -1, 1, 4, 8, 3, -1})), store.values[5])
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

TEST(TreeConfig, IsAConfigurationUnderAnyKey) {
    RecordingStore store;
    TreeConfig tree;

    tree.assign(&store, 77);

    EXPECT_EQ(77, tree.getKey());
    EXPECT_EQ(-1, tree.getRevision());
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
