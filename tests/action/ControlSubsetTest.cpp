#include "action/ControlTest.h"

#include <type_traits>

using namespace tavrel::test;
using namespace qz::tavrel;

namespace {

static_assert(std::is_base_of_v<ControlTarget, ControlSubset>);
static_assert(!std::is_base_of_v<ControlComponents, ControlSubset>, "a subset's sort leaves out nothing");

class ControlSubsetTest : public ControlTest {
protected:
    /// The numbers of -2 to 9 that a row of this range has as targets.
    Ids targetsOf(const std::string& first, const std::string& count) {
        ControlSubset control;
        control.setAttribute(&names, {"Reset", "Hotplug", first, count});
        return targetsOf(control);
    }

    Ids targetsOf(ControlSubset& control) {
        Ids numbers;
        for (int number = -2; number < 10; ++number) {
            at(2)->setNo(number);
            if (control.isTarget(at(2))) {
                numbers.push_back(number);
            }
        }
        return numbers;
    }
};

// --- the row ---

TEST_F(ControlSubsetTest, IsEmptyAtFirst) {
    ControlSubset control;

    EXPECT_EQ(Ids{}, targetsOf(control));
    EXPECT_EQ(0, control.getActionId());
    EXPECT_EQ(0, control.getTargetType());
}

TEST_F(ControlSubsetTest, HasItsNameAsText) {
    ControlSubset control;

    EXPECT_EQ("ControlSubset", control.toString());
}

TEST_F(ControlSubsetTest, ReadsItsRangeBehindActionAndTarget) {
    ControlSubset control;

    EXPECT_EQ(4, control.setAttribute(&names, {"Reset", "Hotplug", "2", "3"}));

    EXPECT_EQ(resetId, control.getActionId());
    EXPECT_EQ(hotplug, control.getTargetType());
    EXPECT_EQ((Ids{2, 3, 4}), targetsOf(control));
}

TEST_F(ControlSubsetTest, LeavesFurtherCellsUnread) {
    ControlSubset control;

    EXPECT_EQ(4, control.setAttribute(&names, {"Reset", "Hotplug", "2", "3", "9"}));

    EXPECT_EQ((Ids{2, 3, 4}), targetsOf(control));
}

TEST_F(ControlSubsetTest, ReadsNoFirstNumberWithoutACount) {
    ControlSubset fresh;
    ControlSubset used;
    used.setAttribute(&names, {"Fail", "Sensor", "2", "3"});

    EXPECT_EQ(2, fresh.setAttribute(&names, {"Reset", "Hotplug", "2"}));
    EXPECT_EQ(2, used.setAttribute(&names, {"Reset", "Hotplug", "5"}));

    EXPECT_EQ(Ids{}, targetsOf(fresh));
    EXPECT_EQ((Ids{2, 3, 4}), targetsOf(used));
    EXPECT_EQ(resetId, used.getActionId());
    EXPECT_EQ(hotplug, used.getTargetType());
}

TEST_F(ControlSubsetTest, DoesWithoutARange) {
    ControlSubset control;

    EXPECT_EQ(2, control.setAttribute(&names, {"Reset", "Hotplug"}));

    EXPECT_EQ(Ids{}, targetsOf(control));
}

TEST_F(ControlSubsetTest, TakesNothingOfARowThatIsTooShort) {
    ControlSubset control;

    EXPECT_EQ(0, control.setAttribute(nullptr, {}));
    EXPECT_EQ(0, control.setAttribute(nullptr, {"5"}));

    EXPECT_EQ(Ids{}, targetsOf(control));
    EXPECT_EQ(0, control.getActionId());
}

// --- the range ---

TEST_F(ControlSubsetTest, ReadsTextThatIsNoNumberAsZero) {
    EXPECT_EQ((Ids{0, 1}), targetsOf("first", "2"));
    EXPECT_EQ(Ids{}, targetsOf("2", "some"));
    EXPECT_EQ(Ids{}, targetsOf("2", ""));
}

TEST_F(ControlSubsetTest, HasNoTargetsWithACountBelowOne) {
    EXPECT_EQ(Ids{}, targetsOf("2", "0"));
    EXPECT_EQ(Ids{}, targetsOf("2", "-3"));
}

TEST_F(ControlSubsetTest, CanBeginBelowZero) {
    EXPECT_EQ((Ids{-1, 0, 1}), targetsOf("-1", "3"));
}

TEST_F(ControlSubsetTest, HoldsAgainstNumbersAtTheirLimits) {
    EXPECT_EQ((Ids{3, 4, 5, 6, 7, 8, 9}), targetsOf("3", "2147483647"));
    EXPECT_EQ(Ids{-2}, targetsOf("-2147483648", "2147483647"));
    EXPECT_EQ(Ids{}, targetsOf("2147483647", "2147483647"));
    EXPECT_EQ((Ids{-2, -1, 0, 1}), targetsOf("-2147483645", "2147483647"));
}

TEST_F(ControlSubsetTest, DoesNotBeginAgainBeyondTheSmallestNumber) {
    ControlSubset control;
    control.setAttribute(&names, {"Reset", "Hotplug", "2147483647", "2147483647"});

    at(2)->setNo(-10);

    EXPECT_FALSE(control.isTarget(at(2)));
}

TEST_F(ControlSubsetTest, ControlsAllFeaturedChildrenWithoutAskingWhetherTheyAreTargets) {
    class Asked : public SteppedControl<ControlSubset> {
    public:
        int questions = 0;
        bool isTarget(Component* component) override {
            ++questions;
            return ControlSubset::isTarget(component);
        }
    };
    Asked control;
    control.setAttribute(&names, {"Reset", "Hotplug", "1", "1"}); // the second board

    run(control, root);

    EXPECT_EQ((Ids{1, 4}), reset());
    EXPECT_EQ(Ids{}, control.left);
    EXPECT_EQ(0, control.questions);
    EXPECT_FALSE(control.isTarget(at(1)));
    EXPECT_TRUE(control.isTarget(at(4)));
}

TEST_F(ControlSubsetTest, ServesTheSortOfASubclass) {
    class Own : public SteppedControl<ControlSubset> {
    public:
        void sort(Components& targets, Components& others, const void*, unsigned int, void*,
                  unsigned int) override {
            Components kept;
            for (Component* const each : targets) {
                (isTarget(each) ? kept : others).push_back(each);
            }
            targets = kept;
        }
    };
    Own control;
    control.setAttribute(&names, {"Reset", "Hotplug", "1", "1"});

    run(control, root);

    EXPECT_EQ(Ids{4}, reset());
}

} // namespace
