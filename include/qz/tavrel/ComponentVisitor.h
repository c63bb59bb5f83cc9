/// @file
/// Walking the tree.
#pragma once

namespace qz::tavrel {

class Component;

/// Something that a component lets in with `Component::accept`.
class ComponentVisitor {
public:
    ComponentVisitor() = default;
    virtual ~ComponentVisitor();
    ComponentVisitor(const ComponentVisitor&) = delete;
    ComponentVisitor& operator=(const ComponentVisitor&) = delete;

    virtual void visit(Component* component) = 0;
};

/// Walks a subtree and calls one hook on the way down and one on the way up.
///
/// There is no list of what has been visited: with shared children, a component reachable along two ways is
/// visited twice, and a circle of shared links does not end.
/// Locks: none between steps; each look at the children takes its own read section.
class AbstractVisitor : public ComponentVisitor {
public:
    /// Walks owned children alone.
    AbstractVisitor();

    /// @param ownedOnly  true: owned children alone; false: shared ones behind them
    explicit AbstractVisitor(bool ownedOnly);

    ~AbstractVisitor() override;

    /// `doTopDown`, then each child in order, then `doBottomUp`.
    void visit(Component* component) override;

    /// Called before the children. @return false to leave out the subtree and `doBottomUp` of this component
    virtual bool doTopDown(Component* component);

    /// Called after the children; the result is ignored.
    virtual bool doBottomUp(Component* component);

private:
    bool ownedOnly;
};

} // namespace qz::tavrel
