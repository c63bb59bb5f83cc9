#include <qz/tavrel/Component.h>
#include <qz/tavrel/ControlTarget.h>
#include <qz/tavrel/NameResolver.h>

namespace qz::tavrel {

ControlTarget::ControlTarget() = default;

ControlTarget::~ControlTarget() = default;

int ControlTarget::setAttribute(NameResolver* resolver, const std::vector<std::string>& attributes) {
    if (attributes.size() < 2) {
        return 0;
    }
    actionId = resolver->getActionId(attributes[0]);
    targetType = resolver->getComponentType(attributes[1]);
    return 2;
}

void ControlTarget::execute(Component* self, int, const void* in, unsigned int inSize, void* out,
                            unsigned int outSize) {
    std::vector<Component*> targets;
    std::vector<Component*> others;
    get(self, targets, in, inSize, out, outSize);
    sort(targets, others, in, inSize, out, outSize);
    control(targets, in, inSize, out, outSize);
    evaluate(targets, in, inSize, out, outSize);
}

std::string ControlTarget::toString() {
    return "ControlTarget";
}

void ControlTarget::get(Component* self, std::vector<Component*>& targets, const void*, unsigned int, void*,
                        unsigned int) {
    self->getFeatured(targetType, targets);
}

void ControlTarget::sort(std::vector<Component*>&, std::vector<Component*>&, const void*, unsigned int, void*,
                         unsigned int) {}

void ControlTarget::control(std::vector<Component*>& targets, const void* in, unsigned int inSize, void* out,
                            unsigned int outSize) {
    for (Component* const target : targets) {
        target->doAction(actionId, in, inSize, out, outSize);
    }
}

void ControlTarget::evaluate(std::vector<Component*>&, const void*, unsigned int, void*, unsigned int) {}

int ControlTarget::getActionId() {
    return actionId;
}

int ControlTarget::getTargetType() {
    return targetType;
}

} // namespace qz::tavrel
