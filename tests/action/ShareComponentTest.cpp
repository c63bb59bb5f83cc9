#include "action/WiringTest.h"
#include "build/BuilderTest.h"
#include "support/TraceExpect.h"

#include <qz/tavrel/Component.h>
#include <qz/tavrel/ShareComponent.h>

#include <gtest/gtest.h>

#include <array>
#include <stdexcept>
#include <string>
#include <vector>

using qz::tavrel::Component;
using qz::tavrel::ShareComponent;
using namespace tavrel::test;

namespace {

constexpr unsigned long actionFailed = 0x20114;
constexpr unsigned long refused = 0x20115;
constexpr unsigned long attached = 0x20116;
constexpr unsigned long reachableAlready = 0x20306;

/// Boards as holders, as many as a test asks for.
class ShareComponentTest : public WiringTest {
protected:
    /// Lets the root have this many boards, at least the two of the sample. @return all of them
    Ids boards(int count) {
        Ids all{1, 4};
        const Ids more = addChildren(board, count - 2);
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }
};

TEST_F(ShareComponentTest, TakesFiveCells) {
    ShareComponent action;

    EXPECT_EQ(5, action.setAttribute(tree.resolver, {"Fan", "-1", "Board", "0", "2"}));
    EXPECT_EQ(5, action.setAttribute(tree.resolver, {"Fan", "-1", "Board", "0", "2", "more"}));
}

TEST_F(ShareComponentTest, TakesNothingOfFewerCellsAndDoesNothing) {
    boards(5);
    addChildren(fan, 2);
    ShareComponent action;

    EXPECT_EQ(0, action.setAttribute(tree.resolver, {}));
    EXPECT_EQ(0, action.setAttribute(tree.resolver, {"Fan", "-1", "New", "0"}));
    action.execute(root, actionId, nullptr, 0, nullptr, 0);

    EXPECT_TRUE(nothingIsAttached());
    EXPECT_EQ(-1, tree.resolver->getValue(0, "New"));
}

TEST_F(ShareComponentTest, KeepsWhatItHasWhenFewerCellsFollow) {
    const Ids holders = boards(2);
    const Ids fans = addChildren(fan, 1);
    ShareComponent action;
    action.setAttribute(tree.resolver, {"Fan", "-1", "Board", "0", "1"});

    EXPECT_EQ(0, action.setAttribute(tree.resolver, {"Board", "-1", "Fan", "1"}));
    action.execute(root, actionId, nullptr, 0, nullptr, 0);

    EXPECT_EQ((std::vector<Ids>{fans, {}}), attachedTo(holders));
}

TEST_F(ShareComponentTest, PutsEachComponentUnderItsHolders) {
    const Ids holders = boards(5);
    const Ids fans = addChildren(fan, 2);
    std::array<char, 2> out{'a', 'b'};
    bind<ShareComponent>({"Fan", "-1", "Board", "0", "2"});

    root->doAction(actionId, "in", 2, out.data(), 2);

    EXPECT_EQ((std::vector<Ids>{{fans[0]}, {fans[0]}, {fans[1]}, {fans[1]}, {}}), attachedTo(holders));
    EXPECT_EQ((std::array<char, 2>{'a', 'b'}), out);
}

TEST_F(ShareComponentTest, DoesNothingWhenTheHoldersWouldBeUsedUpExactly) {
    boards(4);
    addChildren(fan, 2);

    run<ShareComponent>({"Fan", "-1", "Board", "0", "2"});

    EXPECT_TRUE(nothingIsAttached());
}

TEST_F(ShareComponentTest, DoesNothingWhenTheHoldersAreTooFew) {
    boards(3);
    addChildren(fan, 2);

    run<ShareComponent>({"Fan", "-1", "Board", "0", "2"});

    EXPECT_TRUE(nothingIsAttached());
}

TEST_F(ShareComponentTest, BeginsAtTheFirstHolder) {
    const Ids holders = boards(6);
    const Ids fans = addChildren(fan, 2);

    run<ShareComponent>({"Fan", "-1", "Board", "1", "2"});

    EXPECT_EQ((std::vector<Ids>{{}, {fans[0]}, {fans[0]}, {fans[1]}, {fans[1]}, {}}), attachedTo(holders));
}

TEST_F(ShareComponentTest, CountsTheHoldersFromTheFirstOne) {
    boards(5);
    addChildren(fan, 2);

    run<ShareComponent>({"Fan", "-1", "Board", "1", "2"});

    EXPECT_TRUE(nothingIsAttached()) << "four are used up exactly";
}

TEST_F(ShareComponentTest, BeginsAtTheSameHolderInEachRun) {
    const Ids holders = boards(3);
    const Ids fans = addChildren(fan, 1);
    ShareComponent action;
    action.setAttribute(tree.resolver, {"Fan", "-1", "Board", "1", "1"});
    action.execute(root, actionId, nullptr, 0, nullptr, 0);
    at(holders[1])->removeComponent(at(fans[0]));

    action.execute(root, actionId, nullptr, 0, nullptr, 0);

    EXPECT_EQ((std::vector<Ids>{{}, fans, {}}), attachedTo(holders));
}

TEST_F(ShareComponentTest, ChangesNothingInASecondRun) {
    const Ids holders = boards(3);
    const Ids fans = addChildren(fan, 1);
    run<ShareComponent>({"Fan", "-1", "Board", "0", "2"});
    const TraceCapture capture;

    run<ShareComponent>({"Fan", "-1", "Board", "0", "2"});

    EXPECT_EQ((std::vector<Ids>{fans, fans, {}}), attachedTo(holders));
    EXPECT_EQ(2U, capture.count(reachableAlready));
}

TEST_F(ShareComponentTest, LeavesEachComponentItsNumberAndItsPlace) {
    const Ids holders = boards(5);
    const Ids fans = addChildren(fan, 2);

    run<ShareComponent>({"Fan", "-1", "Board", "0", "2"});

    EXPECT_EQ((Ids{0, holders[2], holders[3]}), parentsOf(fans[1]));
    EXPECT_EQ(root, at(fans[1])->getParent());
    EXPECT_EQ(1, at(fans[1])->getNo());
}

TEST_F(ShareComponentTest, SharesAllOfTheTypeWhateverTheNumberSays) {
    const Ids holders = boards(3);
    const Ids fans = addChildren(fan, 2);

    run<ShareComponent>({"Fan", "1", "Board", "0", "1"});

    EXPECT_EQ((std::vector<Ids>{{fans[0]}, {fans[1]}, {}}), attachedTo(holders));
}

TEST_F(ShareComponentTest, LinksNothingForACountOfNone) {
    boards(2);
    addChildren(fan, 2);
    const TraceCapture capture;

    run<ShareComponent>({"Fan", "-1", "Board", "0", "0"});

    EXPECT_TRUE(nothingIsAttached());
    EXPECT_EQ(0U, capture.count(attached));
}

TEST_F(ShareComponentTest, LinksNothingForANumberThatFitsNoHolder) {
    boards(5);
    addChildren(fan, 2);

    for (const char* const first : {"5", "6", "99999999999", "-1", "-99999999999"}) {
        run<ShareComponent>({"Fan", "-1", "Board", first, "1"});
        EXPECT_TRUE(nothingIsAttached()) << first;
    }
}

TEST_F(ShareComponentTest, LinksNothingForANegativeCount) {
    boards(5);
    addChildren(fan, 2);

    // The second makes a product that 32 bits do not hold.
    for (const char* const count : {"-1", "-2147483648"}) {
        run<ShareComponent>({"Fan", "-1", "Board", "0", count});
        EXPECT_TRUE(nothingIsAttached()) << count;
    }
}

TEST_F(ShareComponentTest, EndsWithTheHoldersWhenTheProductWraps) {
    const Ids holders = boards(3);
    const Ids fans = addChildren(fan, 4);

    run<ShareComponent>({"Fan", "-1", "Board", "1", "1073741824"}); // four times that is 0 in 32 bits

    EXPECT_EQ((std::vector<Ids>{{}, {fans[0]}, {fans[0]}}), attachedTo(holders));
}

TEST_F(ShareComponentTest, DoesNothingWithoutHoldersOrComponents) {
    EXPECT_NO_THROW(run<ShareComponent>({"Fan", "-1", "Board", "0", "1"}));
    EXPECT_NO_THROW(run<ShareComponent>({"Board", "-1", "Fan", "0", "1"}));
    EXPECT_NO_THROW(run<ShareComponent>({"Board", "-1", "Fan", "0", "0"}));

    EXPECT_TRUE(nothingIsAttached());
}

TEST_F(ShareComponentTest, LooksAtTheTargetsChildrenAlone) {
    boards(2);

    run<ShareComponent>({"Sensor", "-1", "Board", "0", "1"}); // sensors stand beneath the boards

    EXPECT_TRUE(nothingIsAttached());
}

TEST_F(ShareComponentTest, TakesATextThatIsNoNumberAsNone) {
    const Ids holders = boards(2);
    const Ids fans = addChildren(fan, 1);

    run<ShareComponent>({"Fan", "all", "Board", "first", "1 each"});

    EXPECT_EQ((std::vector<Ids>{fans, {}}), attachedTo(holders)) << "first 0, count 1";
}

TEST_F(ShareComponentTest, LeavesARefusedLinkToItsTrace) {
    const Ids holders = boards(3);
    const int fanUnderBoard = addLeaf(holders[0], fan);
    const Ids fans = addChildren(fan, 1);
    const TraceCapture capture;

    run<ShareComponent>({"Fan", "-1", "Board", "0", "2"});

    EXPECT_EQ(Ids{holders[0]}, parentsOf(fanUnderBoard));
    expectWords(capture, refused, errorFlags, {holders[0], fans[0]});
    expectWords(capture, attached, infoFlags, {holders[1], fans[0]});
    EXPECT_EQ((std::vector<Ids>{{}, fans, {}}), attachedTo(holders));
}

TEST_F(ShareComponentTest, PassesOnWhatTheTreeRaises) {
    const Ids holders = boards(5);
    const Ids fans = addChildren(fan, 2);
    bind<ShareComponent>({"Fan", "-1", "Board", "0", "2"});
    int links = 0;
    config->before = [&](const std::string& operation) {
        if (operation == "add" && ++links == 3) {
            throw std::runtime_error("no third link");
        }
    };
    const TraceCapture capture;

    try {
        root->doAction(actionId);
        FAIL() << "the failure did not come out";
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ("no third link", failure.what());
    }

    expectWords(capture, actionFailed, errorFlags, {0, actionId, chassis, 0, 0, 0});
    EXPECT_EQ((std::vector<Ids>{{fans[0]}, {fans[0]}, {}, {}, {}}), attachedTo(holders));
}

TEST_F(ShareComponentTest, HasItsNameAsText) {
    EXPECT_EQ("ShareComponent", ShareComponent().toString());
}

using ShareComponentBySpecification = BuilderTest;

TEST_F(ShareComponentBySpecification, RunsAsItsRowSays) {
    specify("Chassis\ncomponent,Board,5\n,Fan,2\naction,Reset\n\nBoard\naction,Stop\n\nFan\naction,Stop\n",
            "tavrel.spec.action = actions\n");
    makeFile(actions, "Chassis::Reset\naction,ShareComponent,Fan,-1,Board,0,2\n");
    ASSERT_EQ("nothing raised", start());

    Component::getRoot()->doAction(1);

    std::vector<std::vector<int>> numbers;
    for (int i = 0; i < 5; ++i) {
        std::vector<Component*> fans;
        Component::getRoot()->getComponent(3, i)->getComponent(4, fans);
        numbers.emplace_back();
        for (Component* const each : fans) {
            numbers.back().push_back(each->getNo());
        }
    }
    EXPECT_EQ((std::vector<std::vector<int>>{{0}, {0}, {1}, {1}, {}}), numbers);
}

} // namespace
