#include "TreeTest.h"
#include "action/RecordingAction.h"

#include <qz/tavrel/QZException.h>

using namespace tavrel::test;
using namespace qz::tavrel;

namespace {

constexpr int runId = 7;
constexpr int failId = 8;

class FailingAction : public Action {
public:
    std::function<void()> failure;
    void execute(Component*, int, const void*, unsigned int, void*, unsigned int) override { failure(); }
};

class ComponentAction : public TreeTest {
protected:
    ComponentAction() {
        ComponentClass& boards = tree.define(board, "Board");
        boards.addAction(runId, new RecordingAction(log, "run"));
        boards.addAction(failId, failing);
    }

    /// Boards lose their actions, which log their end, while the log still lives.
    ~ComponentAction() override { Component::deleteAll(); }

    ActionLog log;
    FailingAction* const failing = new FailingAction;
};

} // namespace

TEST_F(ComponentAction, IsRunOnTheComponentWithAllArguments) {
    const char in[] = "in";
    char out[4];

    at(4)->doAction(runId, in, 3, out, 4);

    EXPECT_EQ((std::vector<Call>{{at(4), runId, in, 3, out, 4}}), log.calls);
}

TEST_F(ComponentAction, IsRunWithoutBuffers) {
    at(4)->doAction(runId);

    EXPECT_EQ((std::vector<Call>{{at(4), runId, nullptr, 0, nullptr, 0}}), log.calls);
}

TEST_F(ComponentAction, IsTheNullActionForAnUnboundId) {
    const TraceCapture trace;

    at(4)->doAction(99);

    ASSERT_EQ(1U, trace.all().size());
    EXPECT_EQ(0x50000U, trace.all()[0].id);
    EXPECT_EQ((Words{4, 99}), trace.all()[0].arguments());
    EXPECT_TRUE(log.calls.empty());
}

TEST_F(ComponentAction, IsNotRunWithoutAClass) {
    Component* const lone = TreeFixture::add(root, undefined);
    const TraceCapture trace;

    EXPECT_NO_THROW(lone->doAction(runId));

    ASSERT_EQ(1U, trace.all().size());
    EXPECT_EQ(0x2011fU, trace.all()[0].id);
    EXPECT_EQ(errorFlags, trace.all()[0].flags);
    EXPECT_EQ((Words{lone->getComponentId(), runId, undefined, 0, 0, 0}), trace.all()[0].arguments());
}

TEST_F(ComponentAction, PassesOnWhatItRaisesWithATraceOfStandardExceptions) {
    failing->failure = [] { throw std::out_of_range("action"); };
    const TraceCapture trace;

    EXPECT_THROW(at(4)->doAction(failId), std::out_of_range);

    ASSERT_EQ(1U, trace.all().size());
    EXPECT_EQ(0x20114U, trace.all()[0].id);
    EXPECT_EQ(errorFlags, trace.all()[0].flags);
    EXPECT_EQ((Words{4, failId, board, 0, 0, 0}), trace.all()[0].arguments());
}

TEST_F(ComponentAction, PassesOnAFaultUnchanged) {
    failing->failure = [] { throw UnavailableComponentException("somebody else is gone"); };

    EXPECT_THROW(at(4)->doAction(failId), UnavailableComponentException);
    EXPECT_EQ("somebody else is gone", faultText([] { at(4)->doAction(failId); }));
}

TEST_F(ComponentAction, PassesOnWhatIsNoStandardExceptionWithoutATrace) {
    failing->failure = [] { throw 5; }; // NOLINT(misc-throw-by-value-catch-by-reference)
    const TraceCapture trace;

    EXPECT_THROW(at(4)->doAction(failId), int);

    EXPECT_TRUE(trace.all().empty());
}

TEST_F(ComponentAction, RunsOnAChangedNode) {
    at(4)->getRevision();
    changeElsewhere(4, board, 9);

    EXPECT_NO_THROW(at(4)->doAction(runId));

    EXPECT_EQ(1U, log.calls.size());
}

TEST_F(ComponentAction, IsListedAmongTheIdsOfTheClass) {
    Ids ids{99, -1};
    Ids none{4, 3};

    at(4)->getActionIds(ids);
    TreeFixture::add(root, undefined)->getActionIds(none);

    EXPECT_EQ((Ids{-1, runId, failId, 99}), ids);
    EXPECT_EQ((Ids{4, 3}), none);
}
