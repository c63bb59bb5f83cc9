#include "TreeTest.h"

#include <qz/tavrel/ComponentVisitor.h>

using namespace tavrel::test;
using namespace qz::tavrel;

namespace {

/// Writes the way down as "+id" and the way up as "-id".
template <typename Base = AbstractVisitor>
class Recorder : public Base {
public:
    using Base::Base;

    std::string way;
    int pruneAt = -1;

    bool doTopDown(Component* component) override {
        way += "+" + std::to_string(component->getComponentId());
        return component->getComponentId() != pruneAt;
    }
    bool doBottomUp(Component* component) override {
        way += "-" + std::to_string(component->getComponentId());
        return false; // which nobody looks at
    }
};

using Visitor = TreeTest;

} // namespace

TEST_F(Visitor, GoesDownBeforeTheChildrenAndUpBehindThem) {
    Recorder<> recorder;

    root->accept(&recorder);

    EXPECT_EQ("+0+1+2-2+3-3-1+4+5-5+6-6-4-0", recorder.way);
}

TEST_F(Visitor, StartsAnywhere) {
    Recorder<> recorder;

    recorder.visit(at(4));

    EXPECT_EQ("+4+5-5+6-6-4", recorder.way);
}

TEST_F(Visitor, LeavesASubtreeOutWhenTheWayDownSaysSo) {
    Recorder<> recorder;
    recorder.pruneAt = 1;

    root->accept(&recorder);

    EXPECT_EQ("+0+1+4+5-5+6-6-4-0", recorder.way);
}

TEST_F(Visitor, WalksOwnedChildrenAloneByDefault) {
    Component* const lone = TreeFixture::add(at(4), fan);
    at(1)->addComponent(lone);
    Recorder<> byDefault;
    Recorder<> ownedOnly(true);

    at(1)->accept(&byDefault);
    at(1)->accept(&ownedOnly);

    EXPECT_EQ("+1+2-2+3-3-1", byDefault.way);
    EXPECT_EQ(byDefault.way, ownedOnly.way);
}

TEST_F(Visitor, WalksSharedChildrenBehindOwnedOnesWhenAsked) {
    Component* const lone = TreeFixture::add(at(4), fan);
    at(1)->addComponent(lone);
    Recorder<> recorder(false);

    root->accept(&recorder);

    EXPECT_EQ("+0+1+2-2+3-3+7-7-1+4+5-5+6-6+7-7-4-0", recorder.way);
}

TEST_F(Visitor, HasHooksThatDoNothingByDefault) {
    AbstractVisitor visitor;

    EXPECT_TRUE(visitor.doTopDown(root));
    EXPECT_TRUE(visitor.doBottomUp(root));
    EXPECT_NO_THROW(root->accept(&visitor));
}

TEST_F(Visitor, HoldsNoLockBetweenItsSteps) {
    class Prober : public AbstractVisitor {
    public:
        explicit Prober(RecordingTree* config) : tree(config) {}
        std::set<int> depths;
        bool doTopDown(Component*) override { return note(); }
        bool doBottomUp(Component*) override { return note(); }

    private:
        bool note() {
            depths.insert(tree->accessDepth());
            return true;
        }
        RecordingTree* tree;
    } prober(config);

    root->accept(&prober);

    EXPECT_EQ((std::set<int>{0}), prober.depths);
}
