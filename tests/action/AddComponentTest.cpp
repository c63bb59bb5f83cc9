#include "action/WiringTest.h"
#include "build/BuilderTest.h"
#include "support/TraceExpect.h"

#include <qz/tavrel/AddComponent.h>
#include <qz/tavrel/Component.h>

#include <gtest/gtest.h>

#include <array>
#include <stdexcept>
#include <string>
#include <vector>

using qz::tavrel::AddComponent;
using qz::tavrel::Component;
using namespace tavrel::test;

namespace {

constexpr unsigned long typeAdded = 0x10302;
constexpr unsigned long actionFailed = 0x20114;
constexpr unsigned long attached = 0x20117;
constexpr unsigned long refused = 0x20118;

/// Three boards as parents, each with two sensors of its own.
class AddComponentTest : public WiringTest {
protected:
    const Ids boards = [] {
        const int third = addLeaf(0, board);
        return Ids{1, 4, third};
    }();
};

TEST_F(AddComponentTest, TakesFiveCells) {
    AddComponent action;

    EXPECT_EQ(5, action.setAttribute(tree.resolver, {"Board", "-1", "Fan", "1", "2"}));
    EXPECT_EQ(5, action.setAttribute(tree.resolver, {"Board", "-1", "Fan", "1", "2", "more"}));
}

TEST_F(AddComponentTest, TakesNothingOfFewerCellsAndDoesNothing) {
    addChildren(fan, 7);
    AddComponent action;

    EXPECT_EQ(0, action.setAttribute(tree.resolver, {}));
    EXPECT_EQ(0, action.setAttribute(tree.resolver, {"Board", "-1", "Fan", "1"}));
    EXPECT_EQ(0, action.setAttribute(tree.resolver, {"-", "-1", "New", "1"}));
    action.execute(root, actionId, nullptr, 0, nullptr, 0);

    EXPECT_TRUE(nothingIsAttached());
    EXPECT_EQ(-1, tree.resolver->getValue(0, "New"));
}

TEST_F(AddComponentTest, KeepsWhatItHasWhenFewerCellsFollow) {
    const Ids fans = addChildren(fan, 1);
    AddComponent action;
    action.setAttribute(tree.resolver, {"Board", "-1", "Fan", "0", "1"});

    EXPECT_EQ(0, action.setAttribute(tree.resolver, {"-", "9", "Sensor", "3"}));
    action.execute(root, actionId, nullptr, 0, nullptr, 0);

    EXPECT_EQ((std::vector<Ids>{fans, {}, {}}), attachedTo(boards));
}

TEST_F(AddComponentTest, HandsOutBatchesToAllParentsOfAType) {
    const Ids fans = addChildren(fan, 7);
    std::array<char, 2> out{'a', 'b'};
    bind<AddComponent>({"Board", "-1", "Fan", "1", "2"});

    root->doAction(actionId, "in", 2, out.data(), 2);

    EXPECT_EQ((std::vector<Ids>{{fans[1], fans[2]}, {fans[3], fans[4]}, {fans[5], fans[6]}}),
              attachedTo(boards));
    EXPECT_EQ((std::array<char, 2>{'a', 'b'}), out);
}

TEST_F(AddComponentTest, LeavesEachComponentItsNumberAndItsPlace) {
    const Ids fans = addChildren(fan, 2);

    run<AddComponent>({"Board", "-1", "Fan", "0", "2"});

    EXPECT_EQ((Ids{0, boards[0]}), parentsOf(fans[1]));
    EXPECT_EQ(root, at(fans[1])->getParent());
    EXPECT_EQ(1, at(fans[1])->getNo());
}

TEST_F(AddComponentTest, HandsOutOneBatchToTheOneParentOfANumber) {
    const Ids fans = addChildren(fan, 7);

    run<AddComponent>({"Board", "1", "Fan", "1", "2"});

    EXPECT_EQ((std::vector<Ids>{{}, {fans[1], fans[2]}, {}}), attachedTo(boards));
}

TEST_F(AddComponentTest, DoesNothingWithoutTheParentOfTheNumber) {
    addChildren(fan, 7);

    EXPECT_NO_THROW(run<AddComponent>({"Board", "3", "Fan", "0", "2"}));
    EXPECT_NO_THROW(run<AddComponent>({"Board", "-2", "Fan", "0", "2"}));

    EXPECT_TRUE(nothingIsAttached());
}

TEST_F(AddComponentTest, HandsOutOneBatchToTheTargetItself) {
    run<AddComponent>({"-", "9", "Sensor", "1", "2"});

    EXPECT_EQ((std::vector<Ids>{{3, 5}}), attachedTo({0})) << "of 2, 3, 5, 6 and those of the third board";
    EXPECT_EQ((std::vector<Ids>{{}, {}, {}}), attachedTo(boards));
    EXPECT_EQ(-1, tree.resolver->getValue(0, "-")) << "no name of a type";
}

TEST_F(AddComponentTest, IsTheTargetsOrATypesByTheLatestCells) {
    const Ids fans = addChildren(fan, 1);
    AddComponent action;
    action.setAttribute(tree.resolver, {"-", "", "Sensor", "0", "1"});
    action.setAttribute(tree.resolver, {"Board", "2", "Fan", "0", "1"});

    action.execute(root, actionId, nullptr, 0, nullptr, 0);

    EXPECT_EQ((std::vector<Ids>{{}}), attachedTo({0}));
    EXPECT_EQ((std::vector<Ids>{{}, {}, fans}), attachedTo(boards));
}

TEST_F(AddComponentTest, GivesParentsNothingOnceTheComponentsHaveRunOut) {
    const Ids fans = addChildren(fan, 4);
    Texts operations;
    config->before = [&](const std::string& operation) {
        if (operation.starts_with("add")) {
            operations.push_back(operation);
        }
    };

    run<AddComponent>({"Board", "-1", "Fan", "0", "2"});

    EXPECT_EQ((std::vector<Ids>{{fans[0], fans[1]}, {fans[2], fans[3]}, {}}), attachedTo(boards));
    EXPECT_EQ((Texts{"add list of 2", "add list of 2"}), operations) << "the third is left alone";
}

TEST_F(AddComponentTest, EndsTheLastBatchWithTheComponents) {
    const Ids fans = addChildren(fan, 3);

    run<AddComponent>({"Board", "-1", "Fan", "0", "2"});

    EXPECT_EQ((std::vector<Ids>{{fans[0], fans[1]}, {fans[2]}, {}}), attachedTo(boards));
}

TEST_F(AddComponentTest, GivesAllTheRestForACountThatIsTooLarge) {
    const Ids fans = addChildren(fan, 3);

    run<AddComponent>({"Board", "-1", "Fan", "1", "99999999999"});

    EXPECT_EQ((std::vector<Ids>{{fans[1], fans[2]}, {}, {}}), attachedTo(boards));
}

TEST_F(AddComponentTest, LeavesComponentsWhereTheyAreWhenTheParentsHaveRunOut) {
    const Ids fans = addChildren(fan, 7);

    run<AddComponent>({"Board", "-1", "Fan", "0", "1"});

    EXPECT_EQ((std::vector<Ids>{{fans[0]}, {fans[1]}, {fans[2]}}), attachedTo(boards));
    EXPECT_EQ(Ids{0}, parentsOf(fans[3]));
}

TEST_F(AddComponentTest, LinksNothingForANumberThatFitsNoComponent) {
    addChildren(fan, 3);

    for (const char* const first : {"3", "4", "99999999999", "-1", "-99999999999"}) {
        run<AddComponent>({"Board", "-1", "Fan", first, "1"});
        EXPECT_TRUE(nothingIsAttached()) << first;
    }
    run<AddComponent>({"Board", "-1", "Fan", "2", "-1"});
    EXPECT_TRUE(nothingIsAttached());
}

TEST_F(AddComponentTest, GivesEachParentAnEmptyBatchForACountOfNone) {
    addChildren(fan, 3);
    Texts operations;
    config->before = [&](const std::string& operation) {
        if (operation.starts_with("add")) {
            operations.push_back(operation);
        }
    };

    run<AddComponent>({"Board", "-1", "Fan", "0", "0"});

    EXPECT_TRUE(nothingIsAttached());
    EXPECT_EQ(Texts(3, "add list of 0"), operations);
}

TEST_F(AddComponentTest, FindsComponentsWhereASecondRunMeetsThemFirst) {
    const Ids fans = addChildren(fan, 3);
    run<AddComponent>({"Board", "-1", "Fan", "2", "1"});

    run<AddComponent>({"Board", "1", "Fan", "1", "1"}); // fan 2 beneath board 0, fan 0, fan 1

    EXPECT_EQ((std::vector<Ids>{{fans[2]}, {fans[0]}, {}}), attachedTo(boards));
}

TEST_F(AddComponentTest, DoesNothingWithoutParentsOrComponents) {
    EXPECT_NO_THROW(run<AddComponent>({"Board", "-1", "Fan", "0", "1"}));
    EXPECT_NO_THROW(run<AddComponent>({"Fan", "-1", "Board", "0", "1"}));

    EXPECT_TRUE(nothingIsAttached());
}

TEST_F(AddComponentTest, NeverHandsOutTheTarget) {
    run<AddComponent>({"Board", "-1", "Chassis", "0", "1"});

    EXPECT_TRUE(nothingIsAttached());
}

TEST_F(AddComponentTest, TakesATextThatIsNoNumberAsNone) {
    const Ids fans = addChildren(fan, 2);

    run<AddComponent>({"Board", "all", "Fan", "first", "1 each"});

    EXPECT_EQ((std::vector<Ids>{{fans[0]}, {}, {}}), attachedTo(boards)) << "number 0, first 0, count 1";
}

TEST_F(AddComponentTest, FindsNothingForANameThatNobodyKnows) {
    addChildren(fan, 2);
    const TraceCapture capture;

    EXPECT_NO_THROW(run<AddComponent>({"Board", "-1", "Fna", "0", "1"}));

    EXPECT_TRUE(nothingIsAttached());
    EXPECT_EQ(1U, capture.count(typeAdded));
}

TEST_F(AddComponentTest, LeavesARefusedLinkToItsTrace) {
    const int fanUnderBoard = addLeaf(boards[0], fan);
    const Ids fans = addChildren(fan, 1);
    const TraceCapture capture;

    run<AddComponent>({"Board", "-1", "Fan", "0", "1"});

    expectWords(capture, refused, errorFlags, {boards[0], fanUnderBoard});
    expectWords(capture, attached, infoFlags, {boards[1], fans[0]});
    EXPECT_EQ((std::vector<Ids>{{}, fans, {}}), attachedTo(boards));
}

TEST_F(AddComponentTest, PassesOnWhatTheTreeRaises) {
    const Ids fans = addChildren(fan, 3);
    bind<AddComponent>({"Board", "-1", "Fan", "0", "1"});
    int batches = 0;
    config->before = [&](const std::string& operation) {
        if (operation.starts_with("add") && ++batches == 2) {
            throw std::runtime_error("no second batch");
        }
    };
    const TraceCapture capture;

    try {
        root->doAction(actionId);
        FAIL() << "the failure did not come out";
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ("no second batch", failure.what());
    }

    expectWords(capture, actionFailed, errorFlags, {0, actionId, chassis, 0, 0, 0});
    EXPECT_EQ((std::vector<Ids>{{fans[0]}, {}, {}}), attachedTo(boards));
}

TEST_F(AddComponentTest, HasItsNameAsText) {
    EXPECT_EQ("AddComponent", AddComponent().toString());
}

using AddComponentBySpecification = BuilderTest;

TEST_F(AddComponentBySpecification, RunsAsItsRowSays) {
    specify("Chassis\ncomponent,Board,3\n,Fan,7\naction,Reset\n\nBoard\naction,Stop\n\nFan\naction,Stop\n",
            "tavrel.spec.action = actions\n");
    makeFile(actions, "Chassis::Reset\naction,AddComponent,Board,-1,Fan,1,2\n");
    ASSERT_EQ("nothing raised", start());

    Component::getRoot()->doAction(1);

    std::vector<std::vector<int>> numbers;
    for (int i = 0; i < 3; ++i) {
        std::vector<Component*> fans;
        Component::getRoot()->getComponent(3, i)->getComponent(4, fans);
        numbers.emplace_back();
        for (Component* const each : fans) {
            numbers.back().push_back(each->getNo());
        }
    }
    EXPECT_EQ((std::vector<std::vector<int>>{{1, 2}, {3, 4}, {5, 6}}), numbers);
}

} // namespace
