#include "action/ControlTest.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <thread>

using namespace tavrel::test;
using namespace qz::tavrel;

namespace {

using Stepped = SteppedControl<ControlTarget>;

class ControlTargetTest : public ControlTest {};

// --- the row ---

TEST_F(ControlTargetTest, HasNeitherActionNorTargetAtFirst) {
    ControlTarget control;

    EXPECT_EQ(0, control.getActionId());
    EXPECT_EQ(0, control.getTargetType());
}

TEST_F(ControlTargetTest, HasItsNameAsText) {
    ControlTarget control;

    EXPECT_EQ("ControlTarget", control.toString());
}

TEST_F(ControlTargetTest, ReadsActionAndTargetByTheirNames) {
    ControlTarget control;

    EXPECT_EQ(2, control.setAttribute(&names, {"Reset", "Hotplug"}));

    EXPECT_EQ(resetId, control.getActionId());
    EXPECT_EQ(hotplug, control.getTargetType());
}

TEST_F(ControlTargetTest, LeavesFurtherCellsUnread) {
    ControlTarget control;

    EXPECT_EQ(2, control.setAttribute(&names, {"Reset", "Hotplug", "Fail", "Sensor"}));

    EXPECT_EQ(resetId, control.getActionId());
    EXPECT_EQ(hotplug, control.getTargetType());
}

TEST_F(ControlTargetTest, StoresNothingOfARowThatIsTooShort) {
    ControlTarget control;
    control.setAttribute(&names, {"Reset", "Hotplug"});

    EXPECT_EQ(0, control.setAttribute(nullptr, {}));
    EXPECT_EQ(0, control.setAttribute(nullptr, {"Fail"}));

    EXPECT_EQ(resetId, control.getActionId());
    EXPECT_EQ(hotplug, control.getTargetType());
}

TEST_F(ControlTargetTest, LeavesUnknownNamesToTheResolver) {
    ControlTarget control;
    const TraceCapture trace;

    EXPECT_EQ(2, control.setAttribute(&names, {"Unknown", "Unheard"}));

    EXPECT_EQ(-1, control.getActionId());
    EXPECT_EQ("Unheard", names.getComponentName(control.getTargetType()));
    EXPECT_LT(hotplug, control.getTargetType()); // numbered on the fly
    EXPECT_EQ(2U, trace.all().size());           // one of the resolver for each name, none of its own
}

// --- the steps ---

TEST_F(ControlTargetTest, RunsTheActionOnEachChildThatHasTheFeature) {
    ControlTarget control;
    control.setAttribute(&names, {"Reset", "Hotplug"});
    addLeaf(0, fan); // has the action, but not the feature
    char in[2];
    char out[3];

    control.execute(root, 99, in, 2, out, 3);

    EXPECT_EQ((std::vector<Call>{{at(1), resetId, in, 2, out, 3}, {at(4), resetId, in, 2, out, 3}}),
              log.calls);
}

TEST_F(ControlTargetTest, ControlsOwnedTargetsBeforeSharedOnes) {
    ControlTarget control;
    control.setAttribute(&names, {"Reset", "Hotplug"});
    Component* const holder = TreeFixture::add(root, fan);
    holder->addComponent(at(2));
    const int own = addLeaf(holder->getComponentId(), board);
    Components featured;
    holder->getFeatured(hotplug, featured);
    ASSERT_EQ((Ids{own, 2}), idsOf(featured));

    run(control, holder);

    EXPECT_EQ((Ids{own, 2}), reset());
}

TEST_F(ControlTargetTest, TakesItsStepsInOrderWithTheVerySameBuffers) {
    Stepped control;
    control.setAttribute(&names, {"Reset", "Hotplug"});
    char in[2];
    char out[3];

    control.execute(at(4), 99, in, 2, out, 3);

    EXPECT_EQ((Row{"get 4", "sort", "control", "evaluate"}), control.steps);
    EXPECT_EQ(std::vector<Stepped::Buffers>(4, {in, 2, out, 3}), control.buffers);
    EXPECT_EQ((Ids{5, 6}), control.controlled);
    EXPECT_EQ((Ids{5, 6}), control.evaluated);
    EXPECT_EQ(Ids{}, control.left);
}

TEST_F(ControlTargetTest, EvaluatesAlsoWithoutATarget) {
    Stepped control;
    control.setAttribute(&names, {"Reset", "Hotplug"});
    const TraceCapture trace;

    run(control, at(2)); // a sensor, which has no children

    EXPECT_EQ((Row{"get 2", "sort", "control", "evaluate"}), control.steps);
    EXPECT_EQ(Ids{}, reset());
    EXPECT_TRUE(trace.all().empty());
}

TEST_F(ControlTargetTest, ControlsWhatSortLeavesInTheOrderThatItGives) {
    Stepped control;
    control.setAttribute(&names, {"Reset", "Hotplug"});
    Component* const third = TreeFixture::add(root, board);
    control.sorted = [](Components& targets, Components& others) {
        std::reverse(targets.begin(), targets.end());
        others.push_back(targets.back());
        targets.pop_back();
    };

    run(control, root);

    EXPECT_EQ((Ids{third->getComponentId(), 4}), reset());
    EXPECT_EQ((Ids{third->getComponentId(), 4}), control.evaluated);
    EXPECT_EQ(Ids{1}, control.left);
}

TEST_F(ControlTargetTest, StartsEachCallWithEmptyLists) {
    Stepped control;
    control.setAttribute(&names, {"Reset", "Hotplug"});
    control.sorted = [](Components& targets, Components& others) {
        others.push_back(targets.front());
        targets.erase(targets.begin());
    };

    run(control, at(1));
    run(control, at(4));

    EXPECT_EQ((Ids{3, 6}), reset());
    EXPECT_EQ(Ids{6}, control.evaluated);
    EXPECT_EQ(Ids{5}, control.left);
}

TEST_F(ControlTargetTest, SortsAndEvaluatesNothingByItself) {
    ControlTarget control;
    Components targets{at(4), at(1), nullptr};
    const Components before = targets;
    Components others{at(2)};
    char in[] = "in";
    char out[] = "out";

    control.sort(targets, others, in, 2, out, 3);
    control.evaluate(targets, in, 2, out, 3);

    EXPECT_EQ(before, targets);
    EXPECT_EQ(Components{at(2)}, others);
    EXPECT_STREQ("out", out);
}

TEST_F(ControlTargetTest, AppendsItsTargetsToWhatIsThere) {
    ControlTarget control;
    control.setAttribute(&names, {"Reset", "Hotplug"});
    Components targets{at(6)};

    control.get(root, targets, nullptr, 0, nullptr, 0);

    EXPECT_EQ((Ids{6, 1, 4}), idsOf(targets));
}

// --- the actions of the targets ---

TEST_F(ControlTargetTest, LetsEachActionOverwriteWhatTheOneBeforeItLeft) {
    ControlTarget control;
    control.setAttribute(&names, {"Fail", "Hotplug"});
    Ids found;
    tell([&found](Component* target, void* out) {
        int& place = *static_cast<int*>(out);
        found.push_back(place);
        place = target->getComponentId();
    });
    int out = 50;

    control.execute(root, 99, nullptr, 0, &out, sizeof out);

    EXPECT_EQ((Ids{50, 1}), found);
    EXPECT_EQ(4, out);
}

TEST_F(ControlTargetTest, EndsAtAnActionThatFails) {
    Stepped control;
    control.setAttribute(&names, {"Fail", "Hotplug"});
    Component* const third = TreeFixture::add(root, board);
    Ids ran;
    tell([&ran](Component* target, void*) {
        ran.push_back(target->getComponentId());
        if (ran.size() == 2) {
            throw std::runtime_error("second failed");
        }
    });
    const TraceCapture trace;

    try {
        run(control, root);
        FAIL() << "the failure did not come out";
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ("second failed", failure.what());
    }

    EXPECT_EQ((Ids{1, 4}), ran); // and not the third
    EXPECT_EQ((Ids{1, 4, third->getComponentId()}), control.controlled);
    EXPECT_EQ((Row{"get 0", "sort", "control"}), control.steps);
    ASSERT_EQ(1U, trace.all().size());
    EXPECT_EQ(0x20114U, trace.all()[0].id);
    EXPECT_EQ(errorFlags, trace.all()[0].flags);
    EXPECT_EQ((Words{4, failId, board, 0, 0, 0}), trace.all()[0].arguments());
}

TEST_F(ControlTargetTest, PassesAFailureOnToTheCallerOfTheComponent) {
    auto* const control = new ControlTarget;
    control->setAttribute(&names, {"Fail", "Hotplug"});
    tree.define(chassis, "").addAction(9, control);
    tell([](Component*, void*) { throw std::runtime_error("first failed"); });
    const TraceCapture trace;

    EXPECT_THROW(root->doAction(9), std::runtime_error);

    const auto records = trace.of(0x20114);
    ASSERT_EQ(2U, records.size());
    EXPECT_EQ((Words{1, failId, board, 0, 0, 0}), records[0].arguments());
    EXPECT_EQ((Words{0, 9, chassis, 0, 0, 0}), records[1].arguments());
}

TEST_F(ControlTargetTest, RunsNoFurtherStepBehindOneThatFails) {
    Stepped control;
    control.setAttribute(&names, {"Reset", "Hotplug"});
    control.sorted = [](Components&, Components&) { throw std::runtime_error("sort failed"); };

    EXPECT_THROW(run(control, root), std::runtime_error);

    EXPECT_EQ((Row{"get 0", "sort"}), control.steps);
    EXPECT_EQ(Ids{}, reset());
}

TEST_F(ControlTargetTest, GoesOnBehindATargetWithoutTheAction) {
    Stepped control;
    control.setAttribute(&names, {"Reset", "Hotplug"});
    constexpr int plain = 30;
    tree.define(plain, "Plain").addFeature(hotplug);
    Component* const holder = TreeFixture::add(root, fan);
    const int idle = addLeaf(holder->getComponentId(), plain);
    const int last = addLeaf(holder->getComponentId(), sensor);
    const TraceCapture trace;

    run(control, holder);

    ASSERT_EQ(1U, trace.all().size());
    EXPECT_EQ(0x50000U, trace.all()[0].id);
    EXPECT_EQ(infoFlags, trace.all()[0].flags);
    EXPECT_EQ((Words{idle, resetId}), trace.all()[0].arguments());
    EXPECT_EQ(Ids{last}, reset());
    EXPECT_EQ((Ids{idle, last}), control.evaluated);
}

TEST_F(ControlTargetTest, RunsTheActionOfItsRowWhateverItWasCalledBy) {
    ControlTarget control;
    control.setAttribute(&names, {"Reset", "Hotplug"});

    control.execute(root, failId, nullptr, 0, nullptr, 0);

    EXPECT_EQ((std::vector<Call>{{at(1), resetId, nullptr, 0, nullptr, 0},
                                 {at(4), resetId, nullptr, 0, nullptr, 0}}),
              log.calls);
}

TEST_F(ControlTargetTest, HoldsNoLockWhileAnActionRuns) {
    ControlTarget control;
    control.setAttribute(&names, {"Fail", "Hotplug"});
    Ids depths;
    Ids held;
    tell([&](Component*, void*) {
        depths.push_back(config->accessDepth());
        held.push_back(lock->isHeld() ? 1 : 0);
    });

    run(control, root);

    EXPECT_EQ((Ids{0, 0}), depths);
    EXPECT_EQ((Ids{0, 0}), held);
}

TEST_F(ControlTargetTest, LetsAnActionTakeItsTargetAway) {
    ControlTarget control;
    control.setAttribute(&names, {"Fail", "Hotplug"});
    tell([](Component* target, void*) { target->deleteComponent(); });

    run(control, root);

    EXPECT_EQ(Ids{}, allChildrenOf(0));
}

TEST_F(ControlTargetTest, ServesManyThreadsAtTheSameTime) {
    ControlTarget control;
    control.setAttribute(&names, {"Fail", "Hotplug"});
    constexpr int threads = 4;
    constexpr int runs = 200;
    std::array<std::atomic<int>, sampleSize> times{};
    tell([&times](Component* target, void* out) {
        ++times.at(static_cast<std::size_t>(target->getComponentId()));
        static_cast<Ids*>(out)->push_back(target->getComponentId());
    });
    std::atomic<int> wrong{0};

    std::vector<std::thread> all;
    for (int i = 0; i < threads; ++i) {
        all.emplace_back([&, i] {
            const bool first = i % 2 == 0;
            for (int n = 0; n < runs; ++n) {
                Ids out;
                control.execute(at(first ? 1 : 4), 99, nullptr, 0, &out, sizeof out);
                wrong += out == (first ? Ids{2, 3} : Ids{5, 6}) ? 0 : 1;
            }
        });
    }
    for (std::thread& each : all) {
        each.join();
    }

    EXPECT_EQ(0, wrong);
    for (const int id : {2, 3, 5, 6}) {
        EXPECT_EQ(threads / 2 * runs, times.at(static_cast<std::size_t>(id)));
    }
}

} // namespace
