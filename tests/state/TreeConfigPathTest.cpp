#include "Stores.h"

#include <qz/tavrel/TreeConfig.h>
#include <qz/tavrel/TreePath.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <limits>

using qz::tavrel::TreeConfig;
using qz::tavrel::TreePath;
using namespace tavrel::test;

namespace {

using Steps = std::vector<std::pair<int, int>>;

constexpr int owned = 0;
constexpr char historyPath[] = "/tmp/history";
const Steps none = {{-1, -1}};

/// A root (type 1), a child (type 2) and a grandchild (type 3), each stored under a revision of its own.
class TreeConfigPath : public testing::Test {
protected:
    TreeConfigPath() {
        unlink(historyPath);
        tree.assign(&store, nullptr);
    }

    void build() {
        rootRevision = set(0, 1, 0);
        childRevision = set(1, 2, 20);
        leafRevision = set(2, 3, 30);
    }

    /// Links a node to the one before it and sets it, under one revision.
    int set(int id, int type, int number) {
        tree.lock();
        if (id > 0) {
            tree.add(id - 1, id, owned);
        }
        const int revision = tree.setNodeInfo(id, type, number);
        tree.unlock();
        return revision;
    }

    /// The steps of the path, or `none`.
    Steps pathOf(int revision, int id) {
        TreePath path;
        if (!tree.getTreePath(revision, id, path)) {
            EXPECT_EQ(0, path.getPathCount()) << "untouched on failure";
            return none;
        }
        Steps steps;
        for (int i = 0; i < path.getPathCount(); ++i) {
            const auto index = static_cast<unsigned>(i);
            steps.emplace_back(path.getTypeAt(index), path.getNumberAt(index));
        }
        return steps;
    }

    /// A table that is stored as it stands.
    void storeTable(const std::vector<int>& values) {
        store.values[4] = framed(0, "11325013\n");
        store.values[5] = framed(7, bigEndian(values));
        tree.lock();
        tree.unlock();
    }

    RecordingStore store;
    TreeConfig tree;
    int rootRevision = -1;
    int childRevision = -1;
    int leafRevision = -1;
};

TEST_F(TreeConfigPath, RunsFromTheRootDown) {
    build();

    EXPECT_EQ((Steps{{1, 0}, {2, 20}, {3, 30}}), pathOf(leafRevision, 2));
    EXPECT_EQ((Steps{{1, 0}, {2, 20}}), pathOf(leafRevision, 1));
    EXPECT_EQ((Steps{{1, 0}}), pathOf(leafRevision, 0));
}

TEST_F(TreeConfigPath, IsAppendedToWhatThePathHolds) {
    build();
    TreePath path;
    path.add(9, 9);

    EXPECT_TRUE(tree.getTreePath(leafRevision, 0, path));

    EXPECT_EQ(2, path.getPathCount());
    EXPECT_EQ(9, path.getTypeAt(0));
    EXPECT_EQ(1, path.getTypeAt(1));
}

TEST_F(TreeConfigPath, IsUnknownForAnUnknownId) {
    build();

    EXPECT_EQ(none, pathOf(leafRevision, 3));
    EXPECT_EQ(none, pathOf(leafRevision, -1));
}

TEST_F(TreeConfigPath, HoldsAtARevisionFromWhichNothingOnItHasChanged) {
    build();
    set(2, 4, 31);

    EXPECT_EQ((Steps{{1, 0}, {2, 20}}), pathOf(childRevision, 1));
    EXPECT_EQ(none, pathOf(rootRevision, 1)) << "the node has changed since and there is no history";
    EXPECT_EQ(none, pathOf(leafRevision, 2));
}

TEST_F(TreeConfigPath, IsUnknownWhenANodeAboveHasChanged) {
    build();
    set(1, 5, 50);

    EXPECT_EQ(none, pathOf(leafRevision, 2));
}

TEST_F(TreeConfigPath, IsTheOldOneWhereTheHistoryHasIt) {
    tree.assign(historyPath);
    build();
    set(1, 5, 50);

    EXPECT_EQ((Steps{{1, 0}, {2, 20}, {3, 30}}), pathOf(leafRevision, 2));
    EXPECT_EQ((Steps{{1, 0}, {5, 50}, {3, 30}}), pathOf(leafRevision + 1, 2));
}

TEST_F(TreeConfigPath, IsUnknownAtARevisionOlderThanTheHistory) {
    build();
    tree.assign(historyPath);
    set(1, 5, 50);

    EXPECT_EQ(none, pathOf(leafRevision, 1));
    EXPECT_EQ((Steps{{1, 0}, {5, 50}}), pathOf(leafRevision + 1, 1));
}

TEST_F(TreeConfigPath, FollowsTheParentThatANodeHad) {
    tree.assign(historyPath);
    build();
    tree.lock();
    tree.remove(1, 2, owned);
    tree.add(0, 2, owned);
    const int moved = tree.setNodeInfo(2, 3, 30);
    tree.unlock();

    EXPECT_EQ((Steps{{1, 0}, {2, 20}, {3, 30}}), pathOf(leafRevision, 2));
    EXPECT_EQ((Steps{{1, 0}, {3, 30}}), pathOf(moved, 2));
}

TEST_F(TreeConfigPath, EndsOnStoredParentsThatFormARing) {
    storeTable({3, 0, 1, 1, 0, 2, 1, 1, 1, 0, 0, 2, 1, 1, 0, 1});

    EXPECT_EQ(none, pathOf(7, 0));
    EXPECT_EQ(none, pathOf(7, 1));
}

TEST_F(TreeConfigPath, IsUnknownWhenAStoredParentIs) {
    storeTable({1, 0, 1, 1, 0, 44});

    EXPECT_EQ(none, pathOf(7, 0));
}

TEST_F(TreeConfigPath, RunsThroughAnyDepth) {
    constexpr int depth = 100000;
    std::vector<int> values{depth};
    for (int id = 0; id < depth; ++id) {
        values.insert(values.end(), {id, 1, 1, id, id - 1});
    }
    storeTable(values);
    TreePath path;

    EXPECT_TRUE(tree.getTreePath(7, depth - 1, path));

    EXPECT_EQ(depth, path.getPathCount());
    EXPECT_EQ(5, path.getNumberAt(5));
}

TEST_F(TreeConfigPath, HoldsAcrossTheWrapOfRevisions) {
    constexpr int last = std::numeric_limits<int>::max();
    store.values[4] = framed(0, "11325013\n");
    store.values[5] = framed(1, bigEndian({2, 0, last, 1, 0, -1, 1, 0, 2, 0, 0}));
    tree.lock();
    tree.unlock();

    EXPECT_EQ((Steps{{1, 0}}), pathOf(last, 0));
    EXPECT_EQ((Steps{{1, 0}, {2, 0}}), pathOf(1, 1));
    EXPECT_EQ(none, pathOf(last, 1)) << "changed at 0, which is later";
}

} // namespace
