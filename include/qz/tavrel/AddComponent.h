/// @file
/// An action that hands components out to further parents.
#pragma once

#include <qz/tavrel/Action.h>

#include <string>
#include <vector>

namespace qz::tavrel {

/// Hands the components of one type beneath the target out to parents: the first `count` of them to the first
/// parent, the next `count` to the second, and so on. They become shared children and keep their own place.
class AddComponent : public Action {
public:
    AddComponent();
    ~AddComponent() override;

    /// Takes five cells; with fewer it takes none, and the action does nothing.
    ///
    /// 0: type of the parents, or "-" for the target itself; 1: number of the one parent, -1 for all of the
    /// type, not read with "-"; 2: type of the children; 3: index of the first child to hand out, from 0;
    /// 4: how many each parent gets.
    ///
    /// @return 5, or 0
    int setAttribute(NameResolver* resolver, const std::vector<std::string>& attributes) override;

    /// Finds parents among the children of `target`, the components to hand out in its subtree, and links
    /// them. Ends where the components end: the last parent may get fewer, parents behind it get none. An
    /// index or a count that fits no component links nothing.
    ///
    /// @throws what `Component::addComponent` raises; what was linked before stays
    /// Locks: those of the operations of `Component`, one after another.
    void execute(Component* target, int actionId, const void* in, unsigned int inSize, void* out,
                 unsigned int outSize) override;

    /// "AddComponent".
    std::string toString() override;

private:
    bool self;
    int parentType;
    int parentNumber; ///< -1 for all of the type
    int childType;
    int first;
    int count;
};

} // namespace qz::tavrel
