/// @file
/// An action that gives components several parents each.
#pragma once

#include <qz/tavrel/Action.h>

#include <string>
#include <vector>

namespace qz::tavrel {

/// Puts each of the target's children of one type, in order, under the next `count` of its children of
/// another type, the holders. A shared component keeps its number and its own place.
class ShareComponent : public Action {
public:
    ShareComponent();
    ~ShareComponent() override;

    /// Takes five cells; with fewer it takes none, and the action does nothing.
    ///
    /// 0: type of the components to share; 1: their number, kept and not used; 2: type of the holders;
    /// 3: index of the first holder, from 0; 4: how many holders each shared component gets.
    ///
    /// @return 5, or 0
    int setAttribute(NameResolver* resolver, const std::vector<std::string>& attributes) override;

    /// Links, if at least one holder is left over afterwards; otherwise it does nothing at all. So four
    /// holders do not do for two components with two holders each, five do. An index that fits no holder
    /// links nothing.
    ///
    /// @throws what `Component::addComponent` raises; what was linked before stays
    /// Locks: those of the operations of `Component`, one after another.
    void execute(Component* target, int actionId, const void* in, unsigned int inSize, void* out,
                 unsigned int outSize) override;

    /// "ShareComponent".
    std::string toString() override;

private:
    int sharedType;
    int sharedNumber;
    int holderType;
    int first;
    int count;
};

} // namespace qz::tavrel
