#include "base/Decimal.h"

#include <qz/tavrel/Component.h>
#include <qz/tavrel/NameResolver.h>
#include <qz/tavrel/ShareComponent.h>

#include <cstddef>
#include <cstdint>

namespace qz::tavrel {

using internal::decimal;

namespace {

constexpr int attributeCount = 5;

/// True if at least one holder from `first` on is left over when each shared component has got its `count`.
/// Counted as a 32-bit machine does, where product and difference wrap.
bool leavesAHolder(int first, int count, std::size_t shared, std::size_t holders) {
    const std::uint32_t wanted = static_cast<std::uint32_t>(count) * static_cast<std::uint32_t>(shared);
    const std::uint32_t given = static_cast<std::uint32_t>(holders) - static_cast<std::uint32_t>(first);
    return wanted < given;
}

} // namespace

ShareComponent::ShareComponent() : sharedType(0), sharedNumber(-1), holderType(0), first(0), count(0) {}

ShareComponent::~ShareComponent() = default;

int ShareComponent::setAttribute(NameResolver* resolver, const std::vector<std::string>& attributes) {
    if (attributes.size() < attributeCount) {
        return 0;
    }
    sharedType = resolver->getComponentType(attributes[0]);
    sharedNumber = decimal(attributes[1]);
    holderType = resolver->getComponentType(attributes[2]);
    first = decimal(attributes[3]);
    count = decimal(attributes[4]);
    return attributeCount;
}

void ShareComponent::execute(Component* target, int, const void*, unsigned int, void*, unsigned int) {
    std::vector<Component*> shared;
    target->getComponent(sharedType, shared);
    std::vector<Component*> holders;
    target->getComponent(holderType, holders);

    if (!leavesAHolder(first, count, shared.size(), holders.size())) {
        return;
    }
    // Numbers that wrapped, and a first index past the holders or below 0, come here too and end at the
    // holders' end.
    auto next = static_cast<std::size_t>(first);
    for (Component* const child : shared) {
        for (int i = 0; i < count; ++i, ++next) {
            if (next >= holders.size()) {
                return;
            }
            holders[next]->addComponent(child);
        }
    }
}

std::string ShareComponent::toString() {
    return "ShareComponent";
}

} // namespace qz::tavrel
