#include "action/ControlTest.h"

#include <limits>
#include <set>

using namespace tavrel::test;
using namespace qz::tavrel;

namespace {

/// Controls all but the components of some ids, and writes down which it was asked about.
class Choosing : public SteppedControl<ControlComponents> {
public:
    std::set<int> refused;
    int failingAt = -1;
    Ids asked;

    bool isTarget(Component* component) override {
        const int id = component->getComponentId();
        if (id == failingAt) {
            throw std::runtime_error("not known");
        }
        asked.push_back(id);
        return refused.count(id) == 0;
    }
};

class ControlComponentsTest : public ControlTest {
protected:
    /// What `sort` makes of the components 1 to 6, and what it adds to `others`.
    std::pair<Ids, Ids> sortAll(Choosing& control) {
        Components targets{at(1), at(2), at(3), at(4), at(5), at(6)};
        Components others{at(0)};
        control.ControlComponents::sort(targets, others, nullptr, 0, nullptr, 0);
        return {idsOf(targets), idsOf(others)};
    }
};

// --- the row ---

TEST_F(ControlComponentsTest, HasNoRedundantNumberAtFirst) {
    ControlComponents control;

    EXPECT_EQ(-1, control.getRedundant());
    EXPECT_EQ(0, control.getActionId());
    EXPECT_EQ(0, control.getTargetType());
}

TEST_F(ControlComponentsTest, HasItsNameAsText) {
    ControlComponents control;

    EXPECT_EQ("ControlComponents", control.toString());
}

TEST_F(ControlComponentsTest, ReadsTheRedundantNumberBehindActionAndTarget) {
    ControlComponents control;

    EXPECT_EQ(3, control.setAttribute(&names, {"Reset", "Hotplug", "2"}));

    EXPECT_EQ(resetId, control.getActionId());
    EXPECT_EQ(hotplug, control.getTargetType());
    EXPECT_EQ(2, control.getRedundant());
}

TEST_F(ControlComponentsTest, LeavesFurtherCellsUnread) {
    ControlComponents control;

    EXPECT_EQ(3, control.setAttribute(&names, {"Reset", "Hotplug", "2", "5"}));

    EXPECT_EQ(2, control.getRedundant());
}

TEST_F(ControlComponentsTest, DoesWithoutARedundantNumber) {
    ControlComponents control;

    EXPECT_EQ(2, control.setAttribute(&names, {"Reset", "Hotplug"}));

    EXPECT_EQ(resetId, control.getActionId());
    EXPECT_EQ(hotplug, control.getTargetType());
    EXPECT_EQ(-1, control.getRedundant());
}

TEST_F(ControlComponentsTest, TakesTheOnlyCellOfARowForTheRedundantNumber) {
    ControlComponents number;
    ControlComponents name;

    EXPECT_EQ(1, number.setAttribute(nullptr, {"4"}));
    EXPECT_EQ(1, name.setAttribute(nullptr, {"Reset"}));

    EXPECT_EQ(4, number.getRedundant());
    EXPECT_EQ(0, number.getActionId());
    EXPECT_EQ(0, number.getTargetType());
    EXPECT_EQ(0, name.getRedundant());
    EXPECT_EQ(0, name.getActionId());
}

TEST_F(ControlComponentsTest, TakesNothingOfAnEmptyRow) {
    ControlComponents control;

    EXPECT_EQ(0, control.setAttribute(nullptr, {}));

    EXPECT_EQ(-1, control.getRedundant());
}

TEST_F(ControlComponentsTest, ReadsAsMuchOfANumberAsThereIs) {
    const std::vector<std::pair<std::string, int>> cells{{"", 0},
                                                         {"two", 0},
                                                         {"3 of 4", 3},
                                                         {"-2", -2},
                                                         {"010", 10},
                                                         {"0x10", 0},
                                                         {"99999999999", std::numeric_limits<int>::max()},
                                                         {"-99999999999", std::numeric_limits<int>::min()}};

    for (const auto& [cell, value] : cells) {
        ControlComponents control;
        EXPECT_EQ(3, control.setAttribute(&names, {"Reset", "Hotplug", cell})) << cell;
        EXPECT_EQ(value, control.getRedundant()) << cell;
    }
}

// --- the choice ---

TEST_F(ControlComponentsTest, ControlsEveryFeaturedChildByItself) {
    ControlComponents control;
    control.setAttribute(&names, {"Reset", "Hotplug", "1"});

    run(control, root);

    EXPECT_TRUE(control.isTarget(at(1)));
    EXPECT_TRUE(control.isTarget(nullptr));
    EXPECT_EQ((Ids{1, 4}), reset());
}

TEST_F(ControlComponentsTest, LeavesOutWhatASubclassDoesNotWant) {
    Choosing control;
    control.setAttribute(&names, {"Reset", "Hotplug"});
    const int third = addLeaf(0, board);
    control.refused = {4};

    run(control, root);

    EXPECT_EQ((Ids{1, third}), reset());
    EXPECT_EQ(Ids{4}, control.left);
    EXPECT_EQ((Ids{1, third}), control.evaluated);
}

TEST_F(ControlComponentsTest, KeepsTheOrderOfBothListsAndAppendsToTheOthers) {
    Choosing control;
    control.refused = {1, 2, 5};

    EXPECT_EQ((std::pair{Ids{3, 4, 6}, Ids{0, 1, 2, 5}}), sortAll(control));
    EXPECT_EQ((Ids{1, 2, 3, 4, 5, 6}), control.asked); // each once
}

TEST_F(ControlComponentsTest, CanLeaveOutTheLastOrAll) {
    Choosing last;
    last.refused = {6};
    Choosing all;
    all.refused = {1, 2, 3, 4, 5, 6};

    EXPECT_EQ((std::pair{Ids{1, 2, 3, 4, 5}, Ids{0, 6}}), sortAll(last));
    EXPECT_EQ((std::pair{Ids{}, Ids{0, 1, 2, 3, 4, 5, 6}}), sortAll(all));
}

TEST_F(ControlComponentsTest, LeavesOutEachOccurrenceOfAComponent) {
    Choosing control;
    control.refused = {2};
    Components targets{at(2), at(1), at(2)};
    Components others;

    control.ControlComponents::sort(targets, others, nullptr, 0, nullptr, 0);

    EXPECT_EQ(Ids{1}, idsOf(targets));
    EXPECT_EQ((Ids{2, 2}), idsOf(others));
}

TEST_F(ControlComponentsTest, SplitsNoTargets) {
    Choosing control;
    Components targets;
    Components others;

    control.ControlComponents::sort(targets, others, nullptr, 0, nullptr, 0);

    EXPECT_TRUE(targets.empty());
    EXPECT_TRUE(others.empty());
}

TEST_F(ControlComponentsTest, ControlsNothingWhenTheChoiceFails) {
    Choosing control;
    control.setAttribute(&names, {"Reset", "Hotplug"});
    control.failingAt = 4;

    EXPECT_THROW(run(control, root), std::runtime_error);

    EXPECT_EQ(Ids{}, reset());
    EXPECT_EQ((Row{"get 0", "sort"}), control.steps);
}

TEST_F(ControlComponentsTest, LeavesTheTargetsFromAFailureOnWhereTheyAre) {
    Choosing control;
    control.refused = {1, 5};
    control.failingAt = 4;
    Components targets{at(1), at(2), at(4), at(5)};
    Components others;

    EXPECT_THROW(control.ControlComponents::sort(targets, others, nullptr, 0, nullptr, 0),
                 std::runtime_error);

    EXPECT_EQ((Ids{2, 4, 5}), idsOf(targets));
    EXPECT_EQ(Ids{1}, idsOf(others));
}

} // namespace
