#include "TreeTest.h"

using namespace tavrel::test;
using namespace qz::tavrel;

namespace {

constexpr int cooling = 90;

class ComponentSearch : public TreeTest {
protected:
    ComponentSearch() { tree.define(fan, "Fan").addFeature(cooling); }

    static Ids find(int from, int type, bool includeSelf) {
        Components out;
        at(from)->findComponent(type, out, includeSelf);
        return idsOf(out);
    }

    static Ids findFeatured(int from, int feature, bool includeSelf) {
        Components out;
        at(from)->findFeatured(feature, out, includeSelf);
        return idsOf(out);
    }

    static int add(int parent, int type) { return TreeFixture::add(at(parent), type)->getComponentId(); }
};

} // namespace

// --- by type ---

TEST_F(ComponentSearch, FindsATypeDepthFirst) {
    EXPECT_EQ((Ids{2, 3, 5, 6}), find(0, sensor, true));
    EXPECT_EQ((Ids{5, 6}), find(4, sensor, true));
    EXPECT_EQ((Ids{}), find(4, fan, true));
}

TEST_F(ComponentSearch, DoesNotLookBelowAMatchOfTheType) {
    const int inner = add(4, undefined);
    TreeFixture::add(at(inner), undefined);

    EXPECT_EQ((Ids{inner}), find(0, undefined, true));
    EXPECT_EQ((Ids{4}), find(4, board, true));
}

TEST_F(ComponentSearch, LeavesOutTheStartButNotWhatIsBelowIt) {
    const int inner = add(4, undefined);
    const int innermost = add(inner, undefined);

    EXPECT_EQ((Ids{innermost}), find(inner, undefined, false));
    EXPECT_EQ((Ids{inner}), find(inner, undefined, true));
    EXPECT_EQ((Ids{1, 4}), find(0, board, false));
}

TEST_F(ComponentSearch, LooksAtOwnedChildrenBeforeSharedOnes) {
    const int lone = add(4, fan);
    at(1)->addComponent(at(lone));
    const int own = add(1, fan);

    EXPECT_EQ((Ids{own, lone}), find(1, fan, false));
}

TEST_F(ComponentSearch, ReportsAComponentOnceAtItsFirstArrival) {
    const int lone = add(4, fan);
    at(1)->addComponent(at(lone));
    const int other = add(1, fan);

    EXPECT_EQ((Ids{other, lone}), find(0, fan, true));
}

TEST_F(ComponentSearch, EndsOnACircleOfBothRelations) {
    at(6)->addComponent(root); // shared back to the top

    EXPECT_EQ((Ids{1, 4}), find(0, board, false));
    EXPECT_EQ((Ids{6}), find(6, sensor, true));
    EXPECT_EQ((Ids{2, 3, 5}), find(6, sensor, false));
}

TEST_F(ComponentSearch, FindsNothingForATypeBelowOneEvenAmongFreeNodes) {
    const int lone = add(4, fan);
    at(1)->addComponent(at(lone));
    at(lone)->deleteComponent();

    EXPECT_EQ((Ids{}), find(0, 0, true));
    EXPECT_EQ((Ids{}), find(0, -1, true));
}

TEST_F(ComponentSearch, AppendsToWhatTheListHolds) {
    Components out{root};

    at(4)->findComponent(sensor, out, true);
    at(4)->findFeatured(board, out, true);

    EXPECT_EQ((Ids{0, 5, 6, 4}), idsOf(out));
}

TEST_F(ComponentSearch, SkipsWhatOneStepHasVisited) {
    std::set<Component*> visited{at(5)};
    Components out;
    config->readLock();

    at(4)->findComponent(visited, sensor, out, true);

    config->readUnlock();
    EXPECT_EQ((Ids{6}), idsOf(out));
    EXPECT_EQ((std::set<Component*>{at(4), at(5), at(6)}), visited);
    EXPECT_EQ(0, taken([&] {
                  visited.clear();
                  at(4)->findComponent(visited, sensor, out, true);
                  at(4)->findFeatured(visited, sensor, out, true);
              }))
        << "a step refreshes nothing";
}

// --- by feature ---

TEST_F(ComponentSearch, FindsAFeatureDepthFirst) {
    const int first = add(1, fan);
    const int second = add(0, fan);

    EXPECT_EQ((Ids{first, second}), findFeatured(0, cooling, true));
    EXPECT_EQ((Ids{first, second}), findFeatured(0, fan, true));
    EXPECT_EQ((Ids{}), findFeatured(0, 12345, true));
}

TEST_F(ComponentSearch, LooksBelowAMatchOfTheFeature) {
    tree.define(undefined, "Rack");
    const int outer = add(0, undefined);
    const int inner = add(outer, undefined);

    EXPECT_EQ((Ids{outer, inner}), findFeatured(0, undefined, true));
    EXPECT_EQ((Ids{outer}), find(0, undefined, true));
}

TEST_F(ComponentSearch, LeavesOutTheStartOfASearchForAFeature) {
    EXPECT_EQ((Ids{}), findFeatured(4, board, false));
    EXPECT_EQ((Ids{4}), findFeatured(4, board, true));
    EXPECT_EQ((Ids{1, 4}), findFeatured(0, board, false));
}

TEST_F(ComponentSearch, LeavesOutTheStartThatACircleLeadsBackTo) {
    at(6)->addComponent(root); // shared back to the top

    EXPECT_EQ((Ids{}), findFeatured(0, chassis, false));
    EXPECT_EQ((Ids{2, 3, 5}), findFeatured(6, sensor, false));
    EXPECT_EQ((Ids{6, 2, 3, 5}), findFeatured(6, sensor, true));
}

TEST_F(ComponentSearch, TakesAnyNumberForAFeature) {
    tree.define(fan, "Fan").addFeature(0);
    tree.define(sensor, "Sensor").addFeature(-7);
    const int lone = add(4, fan);

    EXPECT_EQ((Ids{lone}), findFeatured(0, 0, true));
    EXPECT_EQ((Ids{2, 3, 5, 6}), findFeatured(0, -7, true));
}

TEST_F(ComponentSearch, ReportsAFeaturedComponentOnce) {
    const int lone = add(4, fan);
    at(1)->addComponent(at(lone));
    at(6)->addComponent(root);

    EXPECT_EQ((Ids{lone}), findFeatured(0, cooling, true));
}

TEST_F(ComponentSearch, PassesOverComponentsWithoutAClass) {
    const int lone = add(4, undefined);
    const int below = add(lone, fan);

    EXPECT_EQ((Ids{}), findFeatured(0, undefined, true));
    EXPECT_EQ((Ids{below}), findFeatured(0, cooling, true));
}

// --- children by feature ---

TEST_F(ComponentSearch, ListsTheChildrenWithAFeature) {
    const int lone = add(4, fan);
    at(1)->addComponent(at(lone));
    const int own = add(1, fan);
    add(1, undefined);
    Components out{root};

    at(1)->getFeatured(cooling, out);
    EXPECT_EQ((Ids{0, own, lone}), idsOf(out));

    Components none;
    root->getFeatured(cooling, none);
    at(1)->getFeatured(undefined, none);
    EXPECT_EQ((Ids{}), idsOf(none));
}

TEST_F(ComponentSearch, TellsWhetherTheClassHasAFeature) {
    const int own = add(1, fan);
    const int lone = add(1, undefined);
    const TraceCapture trace;

    EXPECT_TRUE(at(own)->hasFeature(cooling));
    EXPECT_TRUE(at(own)->hasFeature(fan));
    EXPECT_FALSE(at(own)->hasFeature(sensor));
    EXPECT_FALSE(at(lone)->hasFeature(undefined));
    EXPECT_TRUE(trace.all().empty());
}
