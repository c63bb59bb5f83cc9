#include "base/Trace.h"

#include <qz/tavrel/Action.h>
#include <qz/tavrel/Component.h>

namespace qz::tavrel {

NullAction::NullAction() = default;

NullAction::~NullAction() = default;

NullAction* NullAction::getInstance() {
    static NullAction* const instance = new NullAction; // to the end of the process
    return instance;
}

int NullAction::setAttribute(NameResolver*, const std::vector<std::string>&) {
    return 0;
}

void NullAction::execute(Component* target, int actionId, const void*, unsigned int, void*, unsigned int) {
    internal::trace(internal::point::NullActionRun, target->getComponentId(), actionId);
}

std::string NullAction::toString() {
    return "NullAction";
}

} // namespace qz::tavrel
