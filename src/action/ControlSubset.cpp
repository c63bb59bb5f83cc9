#include "base/Decimal.h"

#include <qz/tavrel/Component.h>
#include <qz/tavrel/ControlTarget.h>

#include <cstdint>

namespace qz::tavrel {

ControlSubset::ControlSubset() = default;

ControlSubset::~ControlSubset() = default;

int ControlSubset::setAttribute(NameResolver* resolver, const std::vector<std::string>& attributes) {
    const int taken = ControlTarget::setAttribute(resolver, attributes);
    const auto next = static_cast<std::size_t>(taken);
    if (attributes.size() - next < 2) {
        return taken;
    }
    firstNumber = internal::decimal(attributes[next]);
    count = internal::decimal(attributes[next + 1]);
    return taken + 2;
}

std::string ControlSubset::toString() {
    return "ControlSubset";
}

bool ControlSubset::isTarget(Component* component) {
    // A row can name any numbers, and 32 bits do not hold the difference of any two.
    const std::int64_t place = std::int64_t{component->getNo()} - firstNumber;
    return place >= 0 && place < count;
}

} // namespace qz::tavrel
