#pragma once

#include "action/RecordingAction.h"
#include "tree/TreeTest.h"

#include <qz/tavrel/ControlTarget.h>

#include <functional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace tavrel::test {

using Row = std::vector<std::string>;

constexpr int resetId = 7;  ///< "Reset"
constexpr int failId = 8;   ///< "Fail"
constexpr int hotplug = 70; ///< "Hotplug", a feature

/// Does what a test tells it.
class ToldAction : public qz::tavrel::Action {
public:
    std::function<void(qz::tavrel::Component* target, void* out)> told;

    void execute(qz::tavrel::Component* target, int, const void*, unsigned int, void* out,
                 unsigned int) override {
        told(target, out);
    }
};

/// Writes down the steps of a control, what each was given and its targets. Takes the place of a step where a
/// test tells it to.
template <typename Control>
class SteppedControl : public Control {
public:
    using Buffers = std::tuple<const void*, unsigned int, void*, unsigned int>;

    std::vector<std::string> steps;
    std::vector<Buffers> buffers;
    Ids controlled; ///< ids that `control` was given
    Ids evaluated;  ///< ids that `evaluate` was given
    Ids left;       ///< ids in `others` behind `sort`
    std::function<void(Components& targets, Components& others)> sorted;

    void get(qz::tavrel::Component* self, Components& targets, const void* in, unsigned int inSize, void* out,
             unsigned int outSize) override {
        note("get " + std::to_string(self->getComponentId()), in, inSize, out, outSize);
        Control::get(self, targets, in, inSize, out, outSize);
    }

    void sort(Components& targets, Components& others, const void* in, unsigned int inSize, void* out,
              unsigned int outSize) override {
        note("sort", in, inSize, out, outSize);
        if (sorted) {
            sorted(targets, others);
        } else {
            Control::sort(targets, others, in, inSize, out, outSize);
        }
        left = idsOf(others);
    }

    void control(Components& targets, const void* in, unsigned int inSize, void* out,
                 unsigned int outSize) override {
        note("control", in, inSize, out, outSize);
        controlled = idsOf(targets);
        Control::control(targets, in, inSize, out, outSize);
    }

    void evaluate(Components& targets, const void* in, unsigned int inSize, void* out,
                  unsigned int outSize) override {
        note("evaluate", in, inSize, out, outSize);
        evaluated = idsOf(targets);
        Control::evaluate(targets, in, inSize, out, outSize);
    }

private:
    static Ids idsOf(const Components& components) {
        Ids ids;
        for (qz::tavrel::Component* const each : components) {
            ids.push_back(each->getComponentId());
        }
        return ids;
    }

    void note(std::string step, const void* in, unsigned int inSize, void* out, unsigned int outSize) {
        steps.push_back(std::move(step));
        buffers.emplace_back(in, inSize, out, outSize);
    }
};

/// The sample tree, whose boards, sensors and fans write down a "Reset" and have a "Fail" that does what the
/// test tells it. Boards and sensors have the feature "Hotplug".
class ControlTest : public TreeTest {
protected:
    ControlTest() {
        names.setActionId("Reset", resetId);
        names.setActionId("Fail", failId);
        names.setComponentType("Hotplug", hotplug);
        for (const int type : {board, sensor, fan}) {
            qz::tavrel::ComponentClass& defined = tree.define(type, "");
            defined.addAction(resetId, new RecordingAction(log, "reset"));
            failing.push_back(new ToldAction);
            defined.addAction(failId, failing.back());
        }
        tree.define(board, "").addFeature(hotplug);
        tree.define(sensor, "").addFeature(hotplug);
    }

    /// The classes lose their actions, which log their end, while the log still lives.
    ~ControlTest() override { qz::tavrel::Component::deleteAll(); }

    /// Tells the action "Fail" of all classes what to do.
    void tell(const std::function<void(qz::tavrel::Component* target, void* out)>& what) {
        for (ToldAction* const each : failing) {
            each->told = what;
        }
    }

    /// Runs a control without buffers.
    static void run(qz::tavrel::Action& control, qz::tavrel::Component* self) {
        control.execute(self, 99, nullptr, 0, nullptr, 0);
    }

    /// Ids of the components that were reset so far.
    Ids reset() const {
        Ids ids;
        for (const Call& call : log.calls) {
            ids.push_back(std::get<0>(call)->getComponentId());
        }
        return ids;
    }

    qz::tavrel::NameResolver& names = *tree.resolver;
    ActionLog log;
    std::vector<ToldAction*> failing;
};

} // namespace tavrel::test
