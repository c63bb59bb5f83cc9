#include "TreeTest.h"

#include <qz/tavrel/ComponentVisitor.h>

using namespace tavrel::test;
using namespace qz::tavrel;

namespace {

using ComponentLinks = TreeTest;

} // namespace

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

TEST_F(ComponentLinks, TracesEachCandidateOfAListInTurnBeforeItLinksThem) {
    const int first = addLeaf(1, fan);
    const int second = addLeaf(1, fan);
    const TraceCapture trace;
    std::size_t tracedBefore = 0;
    config->before = [&](const std::string& operation) {
        if (operation == "add list of 2") {
            tracedBefore = trace.all().size();
        }
    };

    at(4)->addComponent(Components{at(first), at(2), at(second), at(3)});

    config->before = nullptr;
    constexpr unsigned long associationSaved = 0x20308;
    std::vector<std::pair<unsigned long, Words>> records;
    for (const TraceRecord& record : trace.all()) {
        if (record.id != associationSaved) {
            records.emplace_back(record.id, record.arguments());
        }
    }
    EXPECT_EQ((std::vector<std::pair<unsigned long, Words>>{
                  {0x20117, {4, first}}, {0x20118, {4, 2}}, {0x20117, {4, second}}, {0x20118, {4, 3}}}),
              records);
    EXPECT_EQ(4U, tracedBefore);
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
