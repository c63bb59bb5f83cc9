#include "action/ControlTest.h"

using namespace tavrel::test;
using namespace qz::tavrel;

namespace {

class ControlOnComponentsTest : public ControlTest {
protected:
    /// The sensors of the boards.
    const Row sensorsOnBoards{"Reset", "Sensor", "Board"};

    Ids targetsOf(ControlTarget& control, Component* self) {
        Components targets;
        control.get(self, targets, nullptr, 0, nullptr, 0);
        return idsOf(targets);
    }
};

// --- the row ---

TEST_F(ControlOnComponentsTest, HasNeitherActionNorTargetAtFirst) {
    ControlOnComponents control;

    EXPECT_EQ(0, control.getActionId());
    EXPECT_EQ(0, control.getTargetType());
    EXPECT_EQ(Ids{}, targetsOf(control, root));
}

TEST_F(ControlOnComponentsTest, HasItsNameAsText) {
    ControlOnComponents control;

    EXPECT_EQ("ControlOnComponents", control.toString());
}

TEST_F(ControlOnComponentsTest, ReadsTheOnTypeBehindActionAndTarget) {
    ControlOnComponents control;

    EXPECT_EQ(3, control.setAttribute(&names, sensorsOnBoards));

    EXPECT_EQ(resetId, control.getActionId());
    EXPECT_EQ(sensor, control.getTargetType());
    EXPECT_EQ((Ids{2, 3, 5, 6}), targetsOf(control, root));
}

TEST_F(ControlOnComponentsTest, LeavesFurtherCellsUnread) {
    ControlOnComponents control;

    EXPECT_EQ(3, control.setAttribute(&names, {"Reset", "Sensor", "Board", "Fan"}));

    EXPECT_EQ((Ids{2, 3, 5, 6}), targetsOf(control, root));
}

TEST_F(ControlOnComponentsTest, FindsNothingWithoutAnOnType) {
    SteppedControl<ControlOnComponents> control;

    EXPECT_EQ(2, control.setAttribute(&names, {"Reset", "Sensor"}));

    addLeaf(0, sensor);
    run(control, root);
    EXPECT_EQ(Ids{}, reset());
    EXPECT_EQ((Row{"get 0", "sort", "control", "evaluate"}), control.steps);
}

TEST_F(ControlOnComponentsTest, TakesTheOnlyCellOfARowForTheOnType) {
    ControlOnComponents control;

    EXPECT_EQ(1, control.setAttribute(&names, {"Board"}));

    EXPECT_EQ(0, control.getActionId());
    EXPECT_EQ(0, control.getTargetType());
    EXPECT_EQ(Ids{}, targetsOf(control, root)); // no component has type 0
    control.ControlTarget::setAttribute(&names, {"Reset", "Sensor"});
    EXPECT_EQ((Ids{2, 3, 5, 6}), targetsOf(control, root));
}

TEST_F(ControlOnComponentsTest, TakesNothingOfAnEmptyRow) {
    ControlOnComponents control;

    EXPECT_EQ(0, control.setAttribute(nullptr, {}));
}

TEST_F(ControlOnComponentsTest, LeavesUnknownNamesToTheResolver) {
    ControlOnComponents control;

    EXPECT_EQ(3, control.setAttribute(&names, {"Reset", "Sensor", "Unheard"}));

    EXPECT_LT(hotplug, names.getValue(0, "Unheard")); // numbered on the fly
    EXPECT_EQ(Ids{}, targetsOf(control, root));
}

// --- the targets ---

TEST_F(ControlOnComponentsTest, RunsTheActionOneLevelFurtherDown) {
    ControlOnComponents control;
    control.setAttribute(&names, sensorsOnBoards);
    addLeaf(0, sensor); // beneath the component itself
    addLeaf(2, sensor); // two levels beneath a board
    addLeaf(TreeFixture::add(root, fan)->getComponentId(), sensor);
    addLeaf(1, fan);
    char in[2];
    char out[3];

    control.execute(root, 99, in, 2, out, 3);

    EXPECT_EQ((std::vector<Call>{{at(2), resetId, in, 2, out, 3},
                                 {at(3), resetId, in, 2, out, 3},
                                 {at(5), resetId, in, 2, out, 3},
                                 {at(6), resetId, in, 2, out, 3}}),
              log.calls);
}

TEST_F(ControlOnComponentsTest, TakesItsTargetForATypeAndNotForAFeature) {
    ControlOnComponents control;

    control.setAttribute(&names, {"Reset", "Hotplug", "Board"}); // which the sensors have

    EXPECT_EQ(Ids{}, targetsOf(control, root));
}

TEST_F(ControlOnComponentsTest, LooksBelowSharedComponentsToo) {
    ControlOnComponents control;
    control.setAttribute(&names, sensorsOnBoards);
    Component* const holder = TreeFixture::add(root, fan);
    holder->addComponent(at(4));

    run(control, holder);

    EXPECT_EQ((Ids{5, 6}), reset());
}

TEST_F(ControlOnComponentsTest, ControlsATargetOnceForEachThatSharesIt) {
    ControlOnComponents control;
    control.setAttribute(&names, {"Reset", "Fan", "Board"});
    Component* const common = TreeFixture::add(root, fan);
    at(1)->addComponent(common);
    at(4)->addComponent(common);

    run(control, root);

    EXPECT_EQ((Ids{common->getComponentId(), common->getComponentId()}), reset());
}

TEST_F(ControlOnComponentsTest, AppendsItsTargetsToWhatIsThere) {
    ControlOnComponents control;
    control.setAttribute(&names, sensorsOnBoards);
    Components targets{at(1)};

    control.get(root, targets, nullptr, 0, nullptr, 0);

    EXPECT_EQ((Ids{1, 2, 3, 5, 6}), idsOf(targets));
}

TEST_F(ControlOnComponentsTest, GoesOnBehindATargetWithoutAClass) {
    ControlOnComponents control;
    names.setComponentType("Undefined", undefined);
    control.setAttribute(&names, {"Reset", "Undefined", "Board"});
    const int first = addLeaf(1, undefined);
    const int second = addLeaf(4, undefined);
    const TraceCapture trace;

    run(control, root);

    const auto records = trace.of(0x2011f);
    ASSERT_EQ(2U, records.size());
    EXPECT_EQ((Words{first, resetId, undefined, 0, 0, 0}), records[0].arguments());
    EXPECT_EQ((Words{second, resetId, undefined, 0, 0, 0}), records[1].arguments());
}

} // namespace
