#include "base/Decimal.h"

#include <qz/tavrel/ControlTarget.h>

namespace qz::tavrel {

ControlComponents::ControlComponents() = default;

ControlComponents::~ControlComponents() = default;

int ControlComponents::setAttribute(NameResolver* resolver, const std::vector<std::string>& attributes) {
    const int taken = ControlTarget::setAttribute(resolver, attributes);
    const auto next = static_cast<std::size_t>(taken);
    if (next >= attributes.size()) {
        return taken;
    }
    redundant = internal::decimal(attributes[next]);
    return taken + 1;
}

std::string ControlComponents::toString() {
    return "ControlComponents";
}

void ControlComponents::sort(std::vector<Component*>& targets, std::vector<Component*>& others, const void*,
                             unsigned int, void*, unsigned int) {
    for (auto target = targets.begin(); target != targets.end();) {
        if (isTarget(*target)) {
            ++target;
        } else {
            others.push_back(*target);
            target = targets.erase(target);
        }
    }
}

bool ControlComponents::isTarget(Component*) {
    return true;
}

int ControlComponents::getRedundant() {
    return redundant;
}

} // namespace qz::tavrel
