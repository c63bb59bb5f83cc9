#include <qz/tavrel/Component.h>
#include <qz/tavrel/ControlTarget.h>
#include <qz/tavrel/NameResolver.h>

namespace qz::tavrel {

ControlOnComponents::ControlOnComponents() = default;

ControlOnComponents::~ControlOnComponents() = default;

int ControlOnComponents::setAttribute(NameResolver* resolver, const std::vector<std::string>& attributes) {
    const int taken = ControlTarget::setAttribute(resolver, attributes);
    const auto next = static_cast<std::size_t>(taken);
    if (next >= attributes.size()) {
        return taken;
    }
    onType = resolver->getComponentType(attributes[next]);
    return taken + 1;
}

std::string ControlOnComponents::toString() {
    return "ControlOnComponents";
}

void ControlOnComponents::get(Component* self, std::vector<Component*>& targets, const void*, unsigned int,
                              void*, unsigned int) {
    std::vector<Component*> holders;
    self->getComponent(onType, holders);
    for (Component* const holder : holders) {
        holder->getComponent(getTargetType(), targets);
    }
}

} // namespace qz::tavrel
