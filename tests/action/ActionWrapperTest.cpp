#include "action/RecordingAction.h"

#include <qz/tavrel/Action.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <type_traits>
#include <vector>

using qz::tavrel::Action;
using qz::tavrel::ActionWrapper;
using qz::tavrel::Component;
using qz::tavrel::NullAction;
using namespace tavrel::test;

namespace {

/// Runs the wrapped action twice.
class Twice : public ActionWrapper {
public:
    using ActionWrapper::ActionWrapper;

    void execute(Component* target, int actionId, const void* in, unsigned int inSize, void* out,
                 unsigned int outSize) override {
        action->execute(target, actionId, in, inSize, out, outSize);
        action->execute(target, actionId, in, inSize, out, outSize);
    }

    Action* wrapped() const { return action; }
};

static_assert(std::is_abstract_v<ActionWrapper>, "what a wrapper runs is up to its subclass");

TEST(ActionWrapper, WrapsTheNullActionAtFirst) {
    Twice wrapper;

    EXPECT_EQ(NullAction::getInstance(), wrapper.wrapped());
    EXPECT_EQ("NullAction", wrapper.toString());
}

TEST(ActionWrapper, TakesNoAttribute) {
    Twice wrapper;

    EXPECT_EQ(0, wrapper.setAttribute(nullptr, {"1", "2"}));
}

TEST(ActionWrapper, LetsASubclassRunTheWrappedAction) {
    ActionLog log;
    RecordingAction inner(log, "Inner");
    Twice wrapper(&inner);

    wrapper.execute(nullptr, 7, nullptr, 0, nullptr, 0);

    EXPECT_EQ((std::vector<std::string>{"Inner", "Inner"}), log.ran);
    EXPECT_EQ("Inner", wrapper.toString());
}

TEST(ActionWrapper, WrapsAnotherActionAndDeletesNothing) {
    ActionLog log;
    RecordingAction first(log, "First");
    RecordingAction second(log, "Second");
    Twice wrapper(&first);

    wrapper.wrap(&second);

    EXPECT_EQ("Second", wrapper.toString());
    EXPECT_TRUE(log.deleted.empty());
}

TEST(ActionWrapper, LeavesTheWrappedActionAliveAtItsEnd) {
    ActionLog log;
    RecordingAction inner(log, "Inner");
    std::unique_ptr<Action> wrapper = std::make_unique<Twice>(&inner);

    wrapper.reset();

    EXPECT_TRUE(log.deleted.empty());
    EXPECT_EQ("Inner", inner.toString());
}

} // namespace
