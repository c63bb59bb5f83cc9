#include "TreeTest.h"

using namespace tavrel::test;
using namespace qz::tavrel;

namespace {

using ComponentLife = TreeTest;

} // namespace

// --- creating ---

TEST_F(ComponentLife, CreatesAnOwnedChildBehindTheOthers) {
    const TraceCapture trace;

    root->createComponent(fan);

    EXPECT_EQ((Ids{1, 4, 7}), childrenOf(0));
    EXPECT_EQ(fan, at(7)->getType());
    EXPECT_EQ(0, at(7)->getNo());
    EXPECT_EQ(root, at(7)->getParent());
    const auto records = trace.of(0x2010d);
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ(infoFlags, records[0].flags);
    EXPECT_EQ((std::vector<int>{0, 7, fan, 0, 0, 0}), records[0].arguments());
}

TEST_F(ComponentLife, CreatesAChildWithItsDefaultSubtree) {
    root->createComponent(board);

    EXPECT_EQ((Ids{1, 4, 7}), childrenOf(0));
    EXPECT_EQ(2, at(7)->getNo());
    EXPECT_EQ((Ids{8, 9}), childrenOf(7));
    EXPECT_EQ(sensor, at(8)->getType());
    EXPECT_EQ(0, at(8)->getNo());
    EXPECT_EQ(1, at(9)->getNo());
}

TEST_F(ComponentLife, LinksAChildBeforeItStampsIt) {
    root->createComponent(board);

    // The node record takes its parent from the link.
    TreePath path;
    ASSERT_TRUE(config->getTreePath(config->getNodeRevision(8), 8, path));
    EXPECT_EQ("/Chassis#0/Board#2/Sensor#0", path.toString());
}

TEST_F(ComponentLife, LeavesTheRevisionOfTheParentAlone) {
    const int before = revisionOf(0);

    root->createComponent(fan);

    EXPECT_EQ(before, revisionOf(0));
}

TEST_F(ComponentLife, LeavesAFullTreeAsItWas) {
    Component::setMaxCount(sampleSize);
    const auto stored = store->values;

    EXPECT_EQ(invalidId, faultText([&] { root->createComponent(fan); }));

    EXPECT_EQ((Ids{1, 4}), childrenOf(0));
    EXPECT_EQ(sampleSize, config->getNodeCount());
    EXPECT_EQ(stored, store->values);
    EXPECT_FALSE(lock->isHeld());
    EXPECT_EQ(0, config->accessDepth());
}

TEST_F(ComponentLife, KeepsWhatWasBuiltWhenTheTreeFillsUpInTheMiddle) {
    Component::setMaxCount(sampleSize + 2);
    const TraceCapture trace;

    EXPECT_EQ(invalidId, faultText([&] { root->createComponent(board); }));

    EXPECT_EQ((Ids{1, 4, 7}), childrenOf(0));
    EXPECT_EQ((Ids{8}), childrenOf(7));
    EXPECT_EQ(1U, trace.count(0x20100));
    EXPECT_EQ(0U, trace.count(0x2010d));
    EXPECT_EQ(0, config->accessDepth());
    EXPECT_FALSE(lock->isHeld());
}

// --- numbering ---

TEST_F(ComponentLife, NumbersBehindTheLastSiblingOfTheTypeAndNotBehindTheHighest) {
    at(1)->setNo(20);
    at(4)->setNo(6);

    root->createComponent(board);

    EXPECT_EQ(7, at(7)->getNo());
}

TEST_F(ComponentLife, NumbersFromZeroWithoutASiblingOfTheType) {
    at(1)->setNo(20);

    root->createComponent(sensor);

    EXPECT_EQ(0, at(7)->getNo());
}

TEST_F(ComponentLife, NumbersAsIfSharedChildrenWereNotThere) {
    const int lone = addLeaf(1, fan);
    at(lone)->setNo(30);
    root->addComponent(at(lone));

    root->createComponent(fan);

    EXPECT_EQ(0, at(lone + 1)->getNo());
}

TEST_F(ComponentLife, CountsItselfAsASiblingWhenItKeepsItsType) {
    at(4)->setType(board);
    EXPECT_EQ(2, at(4)->getNo());

    at(4)->setType(board);
    EXPECT_EQ(3, at(4)->getNo());

    // Not the last of its type in the list: numbered behind the one that is.
    at(1)->setType(board);
    EXPECT_EQ(4, at(1)->getNo());
    at(1)->setType(board);
    EXPECT_EQ(4, at(1)->getNo());
}

TEST_F(ComponentLife, NumbersTheRootZero) {
    root->setNo(5);

    root->setType(chassis);

    EXPECT_EQ(0, root->getNo());
}

// --- another type ---

TEST_F(ComponentLife, BecomesAFreshNodeOfAnotherType) {
    root->getComponent(board, 1)->setProperty(speedKey, 77);
    const int before = revisionOf(4);

    at(4)->setType(fan);

    EXPECT_EQ(fan, at(4)->getType());
    EXPECT_EQ(0, at(4)->getNo());
    EXPECT_EQ((Ids{}), childrenOf(4));
    EXPECT_EQ(0, at(5)->getType());
    EXPECT_EQ(0, at(6)->getType());
    EXPECT_EQ((Ids{1, 4}), childrenOf(0));
    EXPECT_LT(before, revisionOf(4));
    EXPECT_EQ(0, at(4)->getProperty(speedKey));
}

TEST_F(ComponentLife, GetsANewSubtreeWithItsType) {
    at(4)->setType(board);

    EXPECT_EQ((Ids{7, 8}), childrenOf(4));
    EXPECT_EQ(0, at(5)->getType());
}

// --- deleting ---

TEST_F(ComponentLife, FreesANodeWithItsOwnedSubtree) {
    const TraceCapture trace;

    at(4)->deleteComponent();

    EXPECT_EQ((Ids{1}), childrenOf(0));
    for (const int id : {4, 5, 6}) {
        EXPECT_EQ(0, at(id)->getType()) << id;
        EXPECT_EQ(-1, at(id)->getNo()) << id;
        EXPECT_EQ(nullptr, at(id)->getParent()) << id;
    }
    EXPECT_EQ((Ids{}), childrenOf(4));
    const auto records = trace.of(0x2010e);
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ(infoFlags, records[0].flags);
    EXPECT_EQ((std::vector<int>{4, 0}), records[0].arguments());
}

TEST_F(ComponentLife, ChangesTheRevisionOfEveryFreedNode) {
    const int before = revisionOf(0);

    at(4)->deleteComponent();

    for (const int id : {4, 5, 6}) {
        EXPECT_EQ(before + 1, revisionOf(id)) << id;
    }
    EXPECT_EQ(before, revisionOf(1));
}

TEST_F(ComponentLife, ClearsThePropertiesOfFreedNodesButNotTheBoundOnes) {
    for (const int id : {4, 6}) {
        at(id)->setProperty(speedKey, 7);
        at(id)->setProperty(boundKey, 8);
    }

    at(4)->deleteComponent();

    EXPECT_EQ(0U, store->values.count("tavrel7.300"));
    EXPECT_EQ(0U, store->values.count("tavrel9.300"));
    EXPECT_EQ(1U, store->values.count("tavrel7.10"));
    EXPECT_EQ(1U, store->values.count("tavrel9.10"));
}

TEST_F(ComponentLife, UnlinksSharedChildrenOfADeletedNodeWithoutFreeingThem) {
    const int lone = addLeaf(1, fan);
    at(4)->addComponent(at(lone));

    at(4)->deleteComponent();

    EXPECT_EQ(fan, at(lone)->getType());
    EXPECT_EQ((Ids{1}), parentsOf(lone));
}

TEST_F(ComponentLife, LeavesADeletedNodeUnderTheParentsThatShareIt) {
    const int lone = addLeaf(1, fan);
    at(4)->addComponent(at(lone));

    at(lone)->deleteComponent();

    EXPECT_EQ((Ids{5, 6, lone}), allChildrenOf(4));
    EXPECT_EQ((Ids{4}), parentsOf(lone));
}

TEST_F(ComponentLife, DeletesTheRoot) {
    root->deleteComponent();

    for (int id = 0; id < sampleSize; ++id) {
        EXPECT_EQ(0, at(id)->getType()) << id;
    }
    EXPECT_EQ((Ids{}), childrenOf(0));
}

TEST_F(ComponentLife, ClearsTheSubtreeAndKeepsTheNode) {
    const int lone = addLeaf(1, fan);
    at(4)->addComponent(at(lone));
    at(4)->setProperty(speedKey, 7);
    const int before = revisionOf(4);
    config->writeLock();
    config->lock();

    at(4)->clear();

    config->unlock();
    config->writeUnlock();
    EXPECT_EQ(board, at(4)->getType());
    EXPECT_EQ(1, at(4)->getNo());
    EXPECT_EQ(before, revisionOf(4));
    EXPECT_EQ((Ids{}), allChildrenOf(4));
    EXPECT_EQ(0, at(5)->getType());
    EXPECT_EQ(fan, at(lone)->getType());
    EXPECT_EQ(0, at(4)->getProperty(speedKey));
    EXPECT_EQ((Ids{1, 4}), childrenOf(0));
}

TEST_F(ComponentLife, ClearsTheDeepestNodesFirst) {
    std::vector<std::string> order;
    config->before = [&](const std::string& operation) {
        if (operation == "removeAll") {
            // Still typed: a node is freed only after what lies beneath it has been cleared.
            order.push_back(std::to_string(config->getNodeType(4)) + std::to_string(config->getNodeType(5)) +
                            std::to_string(config->getNodeType(6)));
        }
    };

    at(4)->deleteComponent();

    config->before = nullptr;
    EXPECT_EQ((std::vector<std::string>{"355", "305", "300"}), order);
}

TEST_F(ComponentLife, EndsOnStoredLinksThatFormACircle) {
    // Relation 0, which this process finds stored: 0 -> 1 -> 2 -> 1.
    const std::string links(
        "\0\0\0\3\0\0\0\0\0\0\0\1\0\0\0\1\0\0\0\1\0\0\0\1\0\0\0\2\0\0\0\2\0\0\0\1\0\0\0\1", 40);
    const std::string length("\0\0\0\50", 4);
    std::string revision = store->values["tavrel1"].substr(0, 4);
    ++revision[3];
    store->values["tavrel1"] = revision + length + links;
    ++store->values["tavrel4"][3];
    root->getRevision();
    ASSERT_EQ((Ids{1}), childrenOf(2));

    root->deleteComponent();

    EXPECT_EQ((Ids{}), childrenOf(0));
    EXPECT_EQ((Ids{}), childrenOf(1));
    EXPECT_EQ((Ids{}), childrenOf(2));
}
