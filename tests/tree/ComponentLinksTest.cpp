#include "TreeTest.h"

#include <qz/tavrel/ComponentVisitor.h>
#include <qz/tavrel/TreePath.h>

using namespace tavrel::test;
using namespace qz::tavrel;

namespace {

class ComponentLinks : public TreeTest {
protected:
    static Ids childrenOf(int id) { return TreeFixture::children(at(id)); }
    static Ids allChildrenOf(int id) { return TreeFixture::children(at(id), false); }

    Ids parentsOf(int id) {
        Components out;
        at(id)->getParents(out);
        return idsOf(out);
    }

    /// A child of no class, so that it brings no subtree.
    int addLeaf(int parent, int type) { return TreeFixture::add(at(parent), type)->getComponentId(); }
};

const std::string invalidId = "FAULT at Component(LINE): getComponent() invalid id in getComponent.";

} // namespace

// --- creating ---

TEST_F(ComponentLinks, CreatesAnOwnedChildBehindTheOthers) {
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

TEST_F(ComponentLinks, CreatesAChildWithItsDefaultSubtree) {
    root->createComponent(board);

    EXPECT_EQ((Ids{1, 4, 7}), childrenOf(0));
    EXPECT_EQ(2, at(7)->getNo());
    EXPECT_EQ((Ids{8, 9}), childrenOf(7));
    EXPECT_EQ(sensor, at(8)->getType());
    EXPECT_EQ(0, at(8)->getNo());
    EXPECT_EQ(1, at(9)->getNo());
}

TEST_F(ComponentLinks, LinksAChildBeforeItStampsIt) {
    root->createComponent(board);

    // The node record takes its parent from the link.
    TreePath path;
    ASSERT_TRUE(config->getTreePath(config->getNodeRevision(8), 8, path));
    EXPECT_EQ("/Chassis#0/Board#2/Sensor#0", path.toString());
}

TEST_F(ComponentLinks, LeavesTheRevisionOfTheParentAlone) {
    const int before = revisionOf(0);

    root->createComponent(fan);

    EXPECT_EQ(before, revisionOf(0));
}

TEST_F(ComponentLinks, LeavesAFullTreeAsItWas) {
    Component::setMaxCount(sampleSize);
    const auto stored = store->values;

    EXPECT_EQ(invalidId, faultText([&] { root->createComponent(fan); }));

    EXPECT_EQ((Ids{1, 4}), childrenOf(0));
    EXPECT_EQ(sampleSize, config->getNodeCount());
    EXPECT_EQ(stored, store->values);
    EXPECT_FALSE(lock->isHeld());
    EXPECT_EQ(0, config->accessDepth());
}

TEST_F(ComponentLinks, KeepsWhatWasBuiltWhenTheTreeFillsUpInTheMiddle) {
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

TEST_F(ComponentLinks, NumbersBehindTheLastSiblingOfTheTypeAndNotBehindTheHighest) {
    at(1)->setNo(20);
    at(4)->setNo(6);

    root->createComponent(board);

    EXPECT_EQ(7, at(7)->getNo());
}

TEST_F(ComponentLinks, NumbersFromZeroWithoutASiblingOfTheType) {
    at(1)->setNo(20);

    root->createComponent(sensor);

    EXPECT_EQ(0, at(7)->getNo());
}

TEST_F(ComponentLinks, NumbersAsIfSharedChildrenWereNotThere) {
    const int lone = addLeaf(1, fan);
    at(lone)->setNo(30);
    root->addComponent(at(lone));

    root->createComponent(fan);

    EXPECT_EQ(0, at(lone + 1)->getNo());
}

TEST_F(ComponentLinks, CountsItselfAsASiblingWhenItKeepsItsType) {
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

TEST_F(ComponentLinks, NumbersTheRootZero) {
    root->setNo(5);

    root->setType(chassis);

    EXPECT_EQ(0, root->getNo());
}

// --- another type ---

TEST_F(ComponentLinks, BecomesAFreshNodeOfAnotherType) {
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

TEST_F(ComponentLinks, GetsANewSubtreeWithItsType) {
    at(4)->setType(board);

    EXPECT_EQ((Ids{7, 8}), childrenOf(4));
    EXPECT_EQ(0, at(5)->getType());
}

// --- deleting ---

TEST_F(ComponentLinks, FreesANodeWithItsOwnedSubtree) {
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

TEST_F(ComponentLinks, ChangesTheRevisionOfEveryFreedNode) {
    const int before = revisionOf(0);

    at(4)->deleteComponent();

    for (const int id : {4, 5, 6}) {
        EXPECT_EQ(before + 1, revisionOf(id)) << id;
    }
    EXPECT_EQ(before, revisionOf(1));
}

TEST_F(ComponentLinks, ClearsThePropertiesOfFreedNodesButNotTheBoundOnes) {
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

TEST_F(ComponentLinks, UnlinksSharedChildrenOfADeletedNodeWithoutFreeingThem) {
    const int lone = addLeaf(1, fan);
    at(4)->addComponent(at(lone));

    at(4)->deleteComponent();

    EXPECT_EQ(fan, at(lone)->getType());
    EXPECT_EQ((Ids{1}), parentsOf(lone));
}

TEST_F(ComponentLinks, LeavesADeletedNodeUnderTheParentsThatShareIt) {
    const int lone = addLeaf(1, fan);
    at(4)->addComponent(at(lone));

    at(lone)->deleteComponent();

    EXPECT_EQ((Ids{5, 6, lone}), allChildrenOf(4));
    EXPECT_EQ((Ids{4}), parentsOf(lone));
}

TEST_F(ComponentLinks, DeletesTheRoot) {
    root->deleteComponent();

    for (int id = 0; id < sampleSize; ++id) {
        EXPECT_EQ(0, at(id)->getType()) << id;
    }
    EXPECT_EQ((Ids{}), childrenOf(0));
}

TEST_F(ComponentLinks, ClearsTheSubtreeAndKeepsTheNode) {
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

TEST_F(ComponentLinks, ClearsTheDeepestNodesFirst) {
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

TEST_F(ComponentLinks, EndsOnStoredLinksThatFormACircle) {
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

// --- sharing ---

TEST_F(ComponentLinks, AttachesASharedChild) {
    const int lone = addLeaf(1, fan);
    const TraceCapture trace;

    at(4)->addComponent(at(lone));

    EXPECT_EQ((Ids{5, 6}), childrenOf(4));
    EXPECT_EQ((Ids{5, 6, lone}), allChildrenOf(4));
    EXPECT_EQ((Ids{1, 4}), parentsOf(lone));
    const auto records = trace.of(0x20116);
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ(infoFlags, records[0].flags);
    EXPECT_EQ((std::vector<int>{4, lone}), records[0].arguments());
}

TEST_F(ComponentLinks, RefusesASharedChildBesideAnOwnedOneOfItsType) {
    const int revision = config->getRevision();
    const TraceCapture trace;

    at(4)->addComponent(at(2));

    EXPECT_EQ((Ids{5, 6}), allChildrenOf(4));
    EXPECT_EQ(revision, config->getRevision());
    EXPECT_EQ(0U, trace.count(0x20116));
    const auto records = trace.of(0x20115);
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ(errorFlags, records[0].flags);
    EXPECT_EQ((std::vector<int>{4, 2}), records[0].arguments());
    EXPECT_EQ(0, config->accessDepth());
    EXPECT_FALSE(lock->isHeld());
}

TEST_F(ComponentLinks, AllowsTwoSharedChildrenOfOneType) {
    const int first = addLeaf(1, fan);
    const int second = addLeaf(1, fan);

    at(4)->addComponent(at(first));
    at(4)->addComponent(at(second));

    EXPECT_EQ((Ids{5, 6, first, second}), allChildrenOf(4));
}

TEST_F(ComponentLinks, AllowsAnOwnedChildBesideASharedOneOfItsType) {
    const int lone = addLeaf(1, fan);
    at(4)->addComponent(at(lone));

    at(4)->createComponent(fan);

    EXPECT_EQ((Ids{5, 6, lone + 1, lone}), allChildrenOf(4));
}

TEST_F(ComponentLinks, DoesNothingForANullChild) {
    forgetRefresh();

    EXPECT_EQ(0, taken([&] {
                  root->addComponent(nullptr);
                  root->removeComponent(nullptr);
              }));

    EXPECT_EQ((Ids{1, 4}), allChildrenOf(0));
}

TEST_F(ComponentLinks, AttachesAListButForTypesThatAreOwned) {
    const int first = addLeaf(1, fan);
    const int second = addLeaf(1, fan);
    const TraceCapture trace;

    at(4)->addComponent(Components{at(first), at(2), at(second), at(3)});

    EXPECT_EQ((Ids{5, 6, first, second}), allChildrenOf(4));
    const auto taken = trace.of(0x20117);
    ASSERT_EQ(2U, taken.size());
    EXPECT_EQ(infoFlags, taken[0].flags);
    EXPECT_EQ((std::vector<int>{4, first}), taken[0].arguments());
    EXPECT_EQ((std::vector<int>{4, second}), taken[1].arguments());
    const auto refused = trace.of(0x20118);
    ASSERT_EQ(2U, refused.size());
    EXPECT_EQ(errorFlags, refused[0].flags);
    EXPECT_EQ((std::vector<int>{4, 2}), refused[0].arguments());
    EXPECT_EQ((std::vector<int>{4, 3}), refused[1].arguments());
}

TEST_F(ComponentLinks, LinksAListInOneCall) {
    const int first = addLeaf(1, fan);
    const int second = addLeaf(1, fan);
    std::vector<std::string> adds;
    config->before = [&](const std::string& operation) {
        if (operation.rfind("add", 0) == 0) {
            adds.push_back(operation);
        }
    };

    at(4)->addComponent(Components{at(first), at(2), at(second)});
    at(4)->addComponent(Components{});
    at(4)->addComponent(Components{at(3)});

    config->before = nullptr;
    EXPECT_EQ((std::vector<std::string>{"add list of 2", "add list of 0", "add list of 0"}), adds);
}

TEST_F(ComponentLinks, TakesTheSharedLockOnceForAList) {
    const int first = addLeaf(1, fan);
    const int second = addLeaf(1, fan);

    EXPECT_EQ(1, taken([&] { at(4)->addComponent(Components{at(first), at(second)}); }));
    EXPECT_EQ(1, taken([&] { at(4)->addComponent(Components{}); }));
}

TEST_F(ComponentLinks, DetachesASharedChild) {
    const int lone = addLeaf(1, fan);
    at(4)->addComponent(at(lone));
    const TraceCapture trace;

    at(4)->removeComponent(at(lone));

    EXPECT_EQ((Ids{5, 6}), allChildrenOf(4));
    EXPECT_EQ((Ids{1}), parentsOf(lone));
    const auto records = trace.of(0x20119);
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ(infoFlags, records[0].flags);
    EXPECT_EQ((std::vector<int>{4, lone}), records[0].arguments());
}

TEST_F(ComponentLinks, NeverDetachesAnOwnedChild) {
    const TraceCapture trace;

    root->removeComponent(at(4));

    EXPECT_EQ((Ids{1, 4}), childrenOf(0));
    EXPECT_EQ(1U, trace.count(0x20119));
}

// --- looking around ---

TEST_F(ComponentLinks, ContainsChildrenOfBothRelations) {
    const int lone = addLeaf(1, fan);
    at(4)->addComponent(at(lone));

    EXPECT_TRUE(at(4)->contains(at(5)));
    EXPECT_TRUE(at(4)->contains(at(lone)));
    EXPECT_FALSE(at(4)->contains(at(2)));
    EXPECT_FALSE(root->contains(at(5)));
    EXPECT_FALSE(at(4)->contains(at(4)));
    EXPECT_FALSE(at(4)->contains(nullptr));
}

TEST_F(ComponentLinks, HasItsOwnerAsParent) {
    EXPECT_EQ(root, at(4)->getParent());
    EXPECT_EQ(at(4), at(6)->getParent());
}

TEST_F(ComponentLinks, HasNoParentAboveTheRootOrByASharedLinkAlone) {
    const int lone = addLeaf(1, fan);
    at(4)->addComponent(at(lone));
    config->remove(1, lone, owned);

    EXPECT_EQ(nullptr, root->getParent());
    EXPECT_EQ(nullptr, at(lone)->getParent());
    EXPECT_EQ((Ids{4}), parentsOf(lone));
}

TEST_F(ComponentLinks, ListsTheOwnerBeforeThoseWhoShare) {
    const int lone = addLeaf(4, fan);
    root->addComponent(at(lone));
    at(1)->addComponent(at(lone));
    Components out{at(6)};

    at(lone)->getParents(out);

    EXPECT_EQ((Ids{6, 4, 0, 1}), idsOf(out));
}

TEST_F(ComponentLinks, ListsParentsOfOneType) {
    const int lone = addLeaf(4, fan);
    root->addComponent(at(lone));
    at(1)->addComponent(at(lone));
    Components boards{at(6)};
    Components fans;
    Components chassises;

    at(lone)->getParents(board, boards);
    at(lone)->getParents(fan, fans);
    at(lone)->getParents(chassis, chassises);

    EXPECT_EQ((Ids{6, 4, 1}), idsOf(boards));
    EXPECT_EQ((Ids{}), idsOf(fans));
    EXPECT_EQ((Ids{0}), idsOf(chassises));
}

TEST_F(ComponentLinks, FindsAnOwnedChildByTypeAndNumber) {
    at(4)->setNo(12);

    EXPECT_EQ(at(1), root->getComponent(board, 0));
    EXPECT_EQ(at(4), root->getComponent(board, 12));
    EXPECT_EQ(nullptr, root->getComponent(board, 1));
    EXPECT_EQ(nullptr, root->getComponent(fan, 0));
}

TEST_F(ComponentLinks, FindsTheFirstOfOwnedChildrenThatLookAlike) {
    at(4)->setNo(0);

    EXPECT_EQ(at(1), root->getComponent(board, 0));
}

TEST_F(ComponentLinks, FindsASharedChildByItsPosition) {
    const int first = addLeaf(1, fan);
    const int other = addLeaf(1, undefined);
    const int second = addLeaf(1, fan);
    at(first)->setNo(70);
    at(second)->setNo(0);
    root->addComponent(Components{at(first), at(other), at(second)});

    EXPECT_EQ(at(first), root->getComponent(fan, 0));
    EXPECT_EQ(at(second), root->getComponent(fan, 1));
    EXPECT_EQ(nullptr, root->getComponent(fan, 2));
    EXPECT_EQ(nullptr, root->getComponent(fan, 70));
    EXPECT_EQ(nullptr, root->getComponent(fan, -1));
    EXPECT_EQ(at(other), root->getComponent(undefined, 0));
}

TEST_F(ComponentLinks, PrefersAnOwnedChildToASharedOne) {
    const int lone = addLeaf(1, fan);
    root->addComponent(at(lone));
    const int ownFan = addLeaf(0, fan);
    at(ownFan)->setNo(0);

    EXPECT_EQ(at(ownFan), root->getComponent(fan, 0));
    // Position 1 among the shared ones does not exist; the owned one has another number.
    EXPECT_EQ(nullptr, root->getComponent(fan, 1));
    at(ownFan)->setNo(3);
    EXPECT_EQ(at(lone), root->getComponent(fan, 0));
}

TEST_F(ComponentLinks, ListsOwnedChildrenBeforeSharedOnes) {
    const int lone = addLeaf(1, fan);
    at(4)->addComponent(at(lone));
    at(4)->createComponent(fan);
    Components ownedOnes{at(0)};
    Components all{at(0)};

    at(4)->getComponent(ownedOnes, true);
    at(4)->getComponent(all, false);

    EXPECT_EQ((Ids{0, 5, 6, lone + 1}), idsOf(ownedOnes));
    EXPECT_EQ((Ids{0, 5, 6, lone + 1, lone}), idsOf(all));
}

TEST_F(ComponentLinks, ListsChildrenOfOneTypeInBothRelations) {
    const int lone = addLeaf(1, fan);
    at(4)->addComponent(at(lone));
    at(4)->createComponent(fan);
    Components out{at(0)};

    at(4)->getComponent(fan, out);

    EXPECT_EQ((Ids{0, lone + 1, lone}), idsOf(out));
}

TEST_F(ComponentLinks, ListsNothingForATypeBelowOne) {
    const int lone = addLeaf(1, fan);
    root->addComponent(at(lone));
    at(lone)->deleteComponent(); // type 0, and still shared
    Components out;

    root->getComponent(0, out);
    root->getComponent(-1, out);

    EXPECT_EQ((Ids{}), idsOf(out));
}

TEST_F(ComponentLinks, RefusesToPassAStoredIdThatTheProcessDoesNotTake) {
    Component::setMaxCount(5);
    Components out;

    EXPECT_EQ(invalidId, faultText([&] { at(4)->getComponent(out, true); }));

    EXPECT_EQ(0, config->accessDepth());
}

TEST_F(ComponentLinks, LetsAVisitorIn) {
    struct Visitor : ComponentVisitor {
        Component* visited = nullptr;
        void visit(Component* component) override { visited = component; }
    } visitor;

    at(4)->accept(&visitor);

    EXPECT_EQ(at(4), visitor.visited);
}
