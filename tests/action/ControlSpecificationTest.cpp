#include "action/RecordingAction.h"
#include "build/BuilderTest.h"

#include <qz/tavrel/ComponentClass.h>
#include <qz/tavrel/ControlTarget.h>

using namespace qz::tavrel;
using namespace tavrel::test;

namespace {

using Ids = std::vector<int>;

constexpr int resetId = 1; ///< "Reset", which the test writes down
constexpr int stopId = 2;  ///< "Stop", which the test specifies

/// A chassis 0 with boards 1 and 4, of which each has two fans: 2 and 3, 5 and 6; and with a fan 7.
constexpr const char* machine = "Chassis\ncomponent,Board,2\n,Fan,1\naction,Stop\n\n"
                                "Board\ncomponent,Fan,2\naction,Stop\n,Reset\nfeature,Hotplug\n\n"
                                "Fan\naction,Reset\nfeature,Hotplug\n";

/// Controls from an action specification, run on a machine that the builder has made of it.
class ControlSpecification : public BuilderTest {
protected:
    ControlSpecification() {
        factory.makers["Record"] = [this] { return static_cast<Action*>(new RecordingAction(log, "reset")); };
    }

    /// The classes lose their actions, which log their end, while the log still lives.
    ~ControlSpecification() override { Component::deleteAll(); }

    /// Starts the machine with the rows of the chassis's "Stop" and with further sections.
    void startWith(const std::string& rows, const std::string& more = "") {
        specify(machine, "tavrel.spec.action = actions\ntavrel.compo.ver = 1\n");
        makeFile(actions, "Chassis::Stop\naction," + rows + "\n\n" + more + "::Reset\naction,Record\n");
        ASSERT_EQ("nothing raised", start());
    }

    static Action* stop() { return ComponentClass::get(2)->getAction(stopId); }

    /// Ids of the components that a "Stop" of the chassis resets.
    Ids stopped() {
        log.calls.clear();
        Component::getRoot()->doAction(stopId);
        Ids ids;
        for (const Call& call : log.calls) {
            ids.push_back(std::get<0>(call)->getComponentId());
        }
        return ids;
    }

    ActionLog log;
};

TEST_F(ControlSpecification, ControlsTheFeaturedChildrenWithTheBuffersOfTheCall) {
    startWith("ControlTarget,Reset,Hotplug");
    char in[2];
    char out[3];

    Component::getRoot()->doAction(stopId, in, 2, out, 3);

    const auto at = [](int id) { return Component::getComponent(id); };
    EXPECT_EQ((std::vector<Call>{{at(1), resetId, in, 2, out, 3},
                                 {at(4), resetId, in, 2, out, 3},
                                 {at(7), resetId, in, 2, out, 3}}),
              log.calls);
    EXPECT_EQ("ControlTarget", stop()->toString());
}

TEST_F(ControlSpecification, ControlsAllThatAClientDoesNotRefuse) {
    startWith("ControlComponents,Reset,Hotplug,2");

    EXPECT_EQ((Ids{1, 4, 7}), stopped());
    EXPECT_EQ("ControlComponents", stop()->toString());
    EXPECT_EQ(2, dynamic_cast<ControlComponents&>(*stop()).getRedundant());
}

TEST_F(ControlSpecification, LetsAClientTakeOverTheChoice) {
    class BoardsOnly : public ControlComponents {
    public:
        bool isTarget(Component* component) override { return component->getType() == 3; }
    };
    factory.makers["ControlComponents"] = [] { return static_cast<Action*>(new BoardsOnly); };
    startWith("ControlComponents,Reset,Hotplug");

    EXPECT_EQ((Ids{1, 4}), stopped());
    EXPECT_EQ(-1, dynamic_cast<ControlComponents&>(*stop()).getRedundant());
}

TEST_F(ControlSpecification, ControlsAllFeaturedChildrenAlsoOfASubset) {
    startWith("ControlSubset,Reset,Hotplug,1,1");

    EXPECT_EQ((Ids{1, 4, 7}), stopped());
    EXPECT_EQ("ControlSubset", stop()->toString());
    auto& subset = dynamic_cast<ControlSubset&>(*stop());
    EXPECT_FALSE(subset.isTarget(Component::getComponent(1))); // board 0
    EXPECT_TRUE(subset.isTarget(Component::getComponent(4)));  // board 1
}

TEST_F(ControlSpecification, ControlsOneLevelFurtherDown) {
    startWith("ControlOnComponents,Reset,Fan,Board");

    EXPECT_EQ((Ids{2, 3, 5, 6}), stopped());
    EXPECT_EQ("ControlOnComponents", stop()->toString());
}

TEST_F(ControlSpecification, ControlsNothingOnComponentsOfNoType) {
    startWith("ControlOnComponents,Reset,Fan");

    EXPECT_EQ(Ids{}, stopped());
}

TEST_F(ControlSpecification, RunsSeveralControlsInTheOrderOfTheirRows) {
    startWith("ControlOnComponents,Reset,Fan,Board\n,ControlTarget,Reset,Hotplug");

    EXPECT_EQ((Ids{2, 3, 5, 6, 1, 4, 7}), stopped());
    EXPECT_EQ("ActionList[ControlOnComponents,ControlTarget]", stop()->toString());
}

TEST_F(ControlSpecification, ReachesTheWholeTreeThroughControlsOfControls) {
    startWith("ControlTarget,Stop,Hotplug", "Board::Stop\naction,ControlTarget,Reset,Hotplug\n\n");
    const TraceCapture trace;

    EXPECT_EQ((Ids{2, 3, 5, 6}), stopped());

    const auto records = trace.of(0x50000); // the fan 7 has no "Stop"
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ((std::vector<int>{7, stopId}), records[0].arguments());
}

TEST_F(ControlSpecification, RunsNothingOfAnActionThatNobodyHas) {
    startWith("ControlTarget,Unknown,Hotplug");
    const TraceCapture trace;

    EXPECT_EQ(Ids{}, stopped());

    std::vector<std::vector<int>> words;
    for (const TraceRecord& record : trace.of(0x50000)) {
        words.push_back(record.arguments());
    }
    EXPECT_EQ((std::vector<std::vector<int>>{{1, -1}, {4, -1}, {7, -1}}), words);
}

TEST_F(ControlSpecification, FindsNothingForAFeatureThatNobodyHas) {
    startWith("ControlTarget,Reset,Hotplugged");

    EXPECT_EQ(Ids{}, stopped());
}

TEST_F(ControlSpecification, StartsWithRowsThatAreTooShort) {
    startWith(
        "ControlTarget\n,ControlTarget,Reset\n,ControlComponents\n,ControlComponents,3\n,ControlSubset\n"
        ",ControlSubset,Reset\n,ControlOnComponents\n,ControlOnComponents,Board");

    EXPECT_EQ(Ids{}, stopped());
}

TEST_F(ControlSpecification, PassesTheFailureOfATargetOnToTheCaller) {
    class Failing : public Action {
    public:
        void execute(Component* target, int, const void*, unsigned int, void*, unsigned int) override {
            throw std::runtime_error("failed on " + std::to_string(target->getComponentId()));
        }
    };
    factory.makers["Failing"] = [] { return static_cast<Action*>(new Failing); };
    startWith("ControlTarget,Reset,Hotplug", "Board::Reset\naction,Failing\n\n");
    const TraceCapture trace;

    try {
        stopped();
        FAIL() << "the failure did not come out";
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ("failed on 1", failure.what());
    }

    EXPECT_TRUE(log.calls.empty()); // the fan 7 is not reached
    EXPECT_EQ(2U, trace.count(0x20114));
}

} // namespace
