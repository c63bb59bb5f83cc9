#include "action/RecordingAction.h"

#include <qz/tavrel/Action.h>
#include <qz/tavrel/Component.h>
#include <qz/tavrel/ComponentClass.h>
#include <qz/tavrel/TreeConfig.h>

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

using qz::tavrel::Action;
using qz::tavrel::ActionList;
using qz::tavrel::Component;
using qz::tavrel::ComponentClass;
using qz::tavrel::TreeConfig;
using namespace tavrel::test;

namespace {

using Names = std::vector<std::string>;

class FailingAction : public Action {
public:
    void execute(Component*, int, const void*, unsigned int, void*, unsigned int) override {
        throw std::runtime_error("second failed");
    }
};

void run(Action& action) {
    action.execute(nullptr, 7, nullptr, 0, nullptr, 0);
}

TEST(ActionList, TakesNoAttribute) {
    ActionList list;

    EXPECT_EQ(0, list.setAttribute(nullptr, {"1", "2"}));
}

TEST(ActionList, DoesNothingWhileItIsEmpty) {
    ActionList list;

    EXPECT_NO_THROW(run(list));
}

TEST(ActionList, RunsItsActionsInOrder) {
    ActionLog log;
    ActionList list;
    list.addAction(new RecordingAction(log, "First"));
    std::vector<Action*> more{new RecordingAction(log, "Second"), new RecordingAction(log, "Third")};
    list.addAction(more);
    list.addAction(new RecordingAction(log, "Fourth"));

    run(list);

    EXPECT_EQ((Names{"First", "Second", "Third", "Fourth"}), log.ran);
}

TEST(ActionList, HandsTheVerySameArgumentsToEach) {
    ActionLog log;
    ActionList list;
    list.addAction(new RecordingAction(log, "First"));
    list.addAction(new RecordingAction(log, "Second"));
    std::array<char, 3> in{};
    std::array<char, 5> out{};
    int place = 0; // never looked at: the list only hands it on
    auto* const target = static_cast<Component*>(static_cast<void*>(&place));

    list.execute(target, 7, in.data(), 3, out.data(), 5);

    const Call expected{target, 7, in.data(), 3, out.data(), 5};
    EXPECT_EQ((std::vector<Call>{expected, expected}), log.calls);
}

TEST(ActionList, EndsItsRunAtAnActionThatFails) {
    ActionLog log;
    ActionList list;
    list.addAction(new RecordingAction(log, "First"));
    list.addAction(new FailingAction);
    list.addAction(new RecordingAction(log, "Third"));

    try {
        run(list);
        FAIL() << "the failure did not come out";
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ("second failed", failure.what());
    }

    EXPECT_EQ(Names{"First"}, log.ran);
}

TEST(ActionList, PassesAFailureOnToTheCallerOfTheComponent) {
    ActionLog log;
    auto* const list = new ActionList;
    std::vector<Action*> actions{new RecordingAction(log, "First"), new FailingAction,
                                 new RecordingAction(log, "Third")};
    list->addAction(actions);
    auto* const tree = new TreeConfig;
    Component::setMaxCount(10);
    Component::setTreeConfig(tree);
    Component* const target = Component::getComponent(0);
    tree->writeLock();
    target->setUp(5, 0);
    tree->writeUnlock();
    auto* const ofTarget = new ComponentClass(5);
    ComponentClass::add(ofTarget);
    ofTarget->addAction(7, list);

    EXPECT_THROW(target->doAction(7), std::runtime_error);

    EXPECT_EQ(Names{"First"}, log.ran);
    EXPECT_EQ((std::vector<Call>{{target, 7, nullptr, 0, nullptr, 0}}), log.calls);
    Component::deleteAll();
}

TEST(ActionList, PassesOverAnActionThatIsNull) {
    ActionLog log;
    ActionList list;
    list.addAction(static_cast<Action*>(nullptr));
    list.addAction(new RecordingAction(log, "First"));

    run(list);

    EXPECT_EQ(Names{"First"}, log.ran);
    EXPECT_EQ("ActionList[First]", list.toString());
}

TEST(ActionList, ListsItsActionsAsText) {
    ActionLog log;
    ActionList list;
    list.addAction(new RecordingAction(log, "Sleep"));
    EXPECT_EQ("ActionList[Sleep]", list.toString());

    list.addAction(new RecordingAction(log, "PrintMessage"));

    EXPECT_EQ("ActionList[Sleep,PrintMessage]", list.toString());
}

TEST(ActionList, ClosesTheBracketInPlaceOfTheOpeningOneWhileItIsEmpty) {
    ActionList list;

    EXPECT_EQ("ActionList]", list.toString());
}

TEST(ActionList, ClosesTheBracketLikeAnEmptyOneWhenAllItsActionsAreNull) {
    ActionList list;
    std::vector<Action*> nothing{nullptr, nullptr};

    list.addAction(nothing);

    EXPECT_EQ("ActionList]", list.toString());
    EXPECT_NO_THROW(run(list));
}

TEST(ActionList, LeavesTheCallersVectorAsItWas) {
    ActionLog log;
    ActionList list;
    std::vector<Action*> added{new RecordingAction(log, "First"), nullptr};
    const std::vector<Action*> before = added;

    list.addAction(added);

    EXPECT_EQ(before, added);
    EXPECT_EQ("ActionList[First]", list.toString());
}

TEST(ActionList, DeletesItsActionsWithItself) {
    ActionLog log;
    std::unique_ptr<Action> owned = std::make_unique<ActionList>();
    static_cast<ActionList*>(owned.get())->addAction(new RecordingAction(log, "First"));
    static_cast<ActionList*>(owned.get())->addAction(new RecordingAction(log, "Second"));
    EXPECT_EQ(Names{}, log.deleted);

    owned.reset();

    EXPECT_EQ((Names{"First", "Second"}), log.deleted);
}

} // namespace
