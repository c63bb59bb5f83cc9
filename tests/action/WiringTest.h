#pragma once

#include "tree/TreeTest.h"

#include <string>
#include <vector>

namespace tavrel::test {

/// Actions that link components of the sample tree.
class WiringTest : public TreeTest {
protected:
    static constexpr int actionId = 7;

    /// Runs an action of these attributes on the root.
    template <typename Kind>
    void run(const std::vector<std::string>& attributes) {
        Kind action;
        action.setAttribute(tree.resolver, attributes);
        action.execute(root, actionId, nullptr, 0, nullptr, 0);
    }

    /// Lets the class of the root have an action of these attributes.
    template <typename Kind>
    void bind(const std::vector<std::string>& attributes) {
        auto* const action = new Kind;
        action->setAttribute(tree.resolver, attributes);
        qz::tavrel::ComponentClass::get(chassis)->addAction(actionId, action);
    }

    /// Gives the root further children of a type. @return their ids
    Ids addChildren(int type, int count) {
        Ids ids;
        for (int i = 0; i < count; ++i) {
            ids.push_back(addLeaf(0, type));
        }
        return ids;
    }

    /// What has been attached to each component.
    std::vector<Ids> attachedTo(const Ids& holders) const {
        std::vector<Ids> attached;
        for (const int holder : holders) {
            config->get(holder, attached.emplace_back(), shared);
        }
        return attached;
    }

    /// True if no component of the tree has anything attached to it.
    bool nothingIsAttached() const {
        for (int id = 0; id < TreeFixture::maxCount; ++id) {
            if (attachedTo({id}) != std::vector<Ids>{{}}) {
                return false;
            }
        }
        return true;
    }
};

} // namespace tavrel::test
