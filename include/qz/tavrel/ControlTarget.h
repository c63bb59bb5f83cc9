/// @file
/// Actions that run another action on the components that they control.
#pragma once

#include <qz/tavrel/Action.h>

#include <string>
#include <vector>

namespace qz::tavrel {

/// Runs an action on every child that has a feature, in four steps: `get` finds the targets, `sort` picks
/// among them and orders them, `control` runs the action on each, `evaluate` judges the outcome. A subclass
/// replaces the steps in which it differs.
///
/// Row: `ControlTarget,ACTION,FEATURE`.
/// Each step receives the buffers of `execute` as they are: `in` with `inSize` bytes and `out` with `outSize`
/// bytes, the caller's own, either of which may be null.
/// Threads: as `Action`; what a step has to hand on goes through the lists of the call, never into the
/// object.
class ControlTarget : public Action {
public:
    /// Action id 0 and target type 0.
    ControlTarget();
    ~ControlTarget() override;

    /// Reads the name of the action and that of the target; with fewer than two cells it reads nothing.
    ///
    /// @param resolver    gives the action's id and the target's type; not asked when nothing is read
    /// @param attributes  the cells behind the class name, in order
    /// @return 2, or 0 when nothing is read
    int setAttribute(NameResolver* resolver, const std::vector<std::string>& attributes) override;

    /// Runs the four steps. An exception from one ends the call, and the steps behind it do not run.
    ///
    /// @param self      the component whose targets are controlled
    /// @param actionId  not used: the action to run is that of the row
    /// @throws what a step raises
    /// Locks: none is held, neither between the steps nor while a target's action runs.
    void execute(Component* self, int actionId, const void* in, unsigned int inSize, void* out,
                 unsigned int outSize) override;

    /// "ControlTarget".
    std::string toString() override;

    /// Appends the components to control; here the children of `self` whose class has the target type as a
    /// feature, in the order of `Component::getFeatured`. None may be null.
    /// Refreshes.
    /// Locks: a read section of the tree.
    virtual void get(Component* self, std::vector<Component*>& targets, const void* in, unsigned int inSize,
                     void* out, unsigned int outSize);

    /// Orders the targets, and moves those that are not to be controlled to `others`, which nobody looks at
    /// afterwards. Does nothing here.
    virtual void sort(std::vector<Component*>& targets, std::vector<Component*>& others, const void* in,
                      unsigned int inSize, void* out, unsigned int outSize);

    /// Runs the action on each target, in order. All of them get the same buffers, so that each can overwrite
    /// what the one before it has left in `out`. A target whose class has no such action runs `NullAction`.
    /// @throws what an action raises; the targets behind it are not controlled
    virtual void control(std::vector<Component*>& targets, const void* in, unsigned int inSize, void* out,
                         unsigned int outSize);

    /// Judges the outcome, also when there was no target. Does nothing here.
    virtual void evaluate(std::vector<Component*>& targets, const void* in, unsigned int inSize, void* out,
                          unsigned int outSize);

    /// Id of the action that runs on each target; -1 for a name that the resolver did not know.
    int getActionId();

    /// What the targets are: a feature, or in `ControlOnComponents` a component type.
    int getTargetType();

private:
    int actionId = 0;
    int targetType = 0;
};

/// Controls those of the featured children that `isTarget` picks: here all of them, in a subclass its own
/// choice.
///
/// Row: `ControlComponents,ACTION,FEATURE[,REDUNDANT]`.
class ControlComponents : public ControlTarget {
public:
    /// Redundant number -1.
    ControlComponents();
    ~ControlComponents() override;

    /// Reads what `ControlTarget` reads, then the redundant number from the next cell, if there is one. A row
    /// of one cell has that as its redundant number and nothing else.
    /// @return cells read: 3, or 2 without a redundant number; 1 for a row of one cell, 0 for an empty one
    int setAttribute(NameResolver* resolver, const std::vector<std::string>& attributes) override;

    /// "ControlComponents".
    std::string toString() override;

    /// Asks `isTarget` of each target, in order, and moves those that are none behind the ones in `others`.
    /// Both lists keep their order.
    /// @throws what `isTarget` raises; the targets from there on stay where they are
    void sort(std::vector<Component*>& targets, std::vector<Component*>& others, const void* in,
              unsigned int inSize, void* out, unsigned int outSize) override;

    /// True for a component that is to be controlled; here for every one.
    virtual bool isTarget(Component* component);

    /// How many of the targets are redundant to one another, for the `sort` or `evaluate` of a subclass; the
    /// library does not look at it. -1 when the row gave none.
    int getRedundant();

private:
    int redundant = -1;
};

/// Controls the featured children, and knows which of them have their number in a range.
///
/// Row: `ControlSubset,ACTION,FEATURE,FIRST,COUNT`.
/// The range is for subclasses and for others to ask about with `isTarget`: `execute` itself does not ask,
/// and controls all featured children.
class ControlSubset : public ControlTarget {
public:
    /// An empty range from number 0.
    ControlSubset();
    ~ControlSubset() override;

    /// Reads what `ControlTarget` reads, then the first number and the count, which come as a pair: one of
    /// them alone is not read.
    /// @return cells read: 4, or 2 without the pair, or 0 for a row of fewer than two cells
    int setAttribute(NameResolver* resolver, const std::vector<std::string>& attributes) override;

    /// "ControlSubset".
    std::string toString() override;

    /// True if the component's number is the first number or one of the `count - 1` behind it.
    /// Refreshes.
    /// Locks: a read section of the tree.
    virtual bool isTarget(Component* component);

private:
    int firstNumber = 0;
    int count = 0;
};

/// Controls components one level further down: the children of the target type beneath the children of
/// another type. Here the target is a plain type and no feature.
///
/// Row: `ControlOnComponents,ACTION,TYPE,ONTYPE`.
class ControlOnComponents : public ControlTarget {
public:
    /// On type -1, which no component has.
    ControlOnComponents();
    ~ControlOnComponents() override;

    /// Reads what `ControlTarget` reads, then the name of the on type from the next cell, if there is one. A
    /// row of one cell has that as its on type and nothing else.
    /// @return cells read: 3, or 2 without an on type; 1 for a row of one cell, 0 for an empty one
    int setAttribute(NameResolver* resolver, const std::vector<std::string>& attributes) override;

    /// "ControlOnComponents".
    std::string toString() override;

    /// Appends, for each child of `self` of the on type in order, its children of the target type. One that
    /// several of them share comes once for each.
    /// Refreshes.
    /// Locks: a read section of the tree for each component that it looks below.
    void get(Component* self, std::vector<Component*>& targets, const void* in, unsigned int inSize,
             void* out, unsigned int outSize) override;

private:
    int onType = -1;
};

} // namespace qz::tavrel
