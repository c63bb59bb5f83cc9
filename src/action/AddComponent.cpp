#include "base/Decimal.h"

#include <qz/tavrel/AddComponent.h>
#include <qz/tavrel/Component.h>
#include <qz/tavrel/NameResolver.h>

#include <algorithm>
#include <cstddef>

namespace qz::tavrel {

using internal::decimal;

namespace {

constexpr int attributeCount = 5;
constexpr int allNumbers = -1;

} // namespace

AddComponent::AddComponent()
    : self(false), parentType(-1), parentNumber(allNumbers), childType(-1), first(0), count(0) {}

AddComponent::~AddComponent() = default;

int AddComponent::setAttribute(NameResolver* resolver, const std::vector<std::string>& attributes) {
    if (attributes.size() < attributeCount) {
        return 0;
    }
    self = attributes[0] == "-";
    if (!self) {
        parentType = resolver->getComponentType(attributes[0]);
        parentNumber = decimal(attributes[1]);
    }
    childType = resolver->getComponentType(attributes[2]);
    first = decimal(attributes[3]);
    count = decimal(attributes[4]);
    return attributeCount;
}

void AddComponent::execute(Component* target, int, const void*, unsigned int, void*, unsigned int) {
    std::vector<Component*> parents;
    if (self) {
        parents.push_back(target);
    } else if (parentNumber == allNumbers) {
        target->getComponent(parentType, parents);
    } else if (Component* const parent = target->getComponent(parentType, parentNumber)) {
        parents.push_back(parent);
    }

    std::vector<Component*> children;
    target->findComponent(childType, children, false);

    // A row whose numbers do not fit the children ends at their end and reads nothing outside of them. A
    // first index below 0 is one far behind the end.
    if (count < 0 || children.size() < static_cast<std::size_t>(first)) {
        return;
    }
    auto cursor = children.cbegin() + first;
    for (Component* const parent : parents) {
        if (cursor == children.cend()) {
            break;
        }
        const auto end = cursor + std::min<std::ptrdiff_t>(count, children.cend() - cursor);
        parent->addComponent(std::vector<Component*>(cursor, end));
        cursor = end;
    }
}

std::string AddComponent::toString() {
    return "AddComponent";
}

} // namespace qz::tavrel
