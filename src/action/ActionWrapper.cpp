#include <qz/tavrel/Action.h>

namespace qz::tavrel {

ActionWrapper::ActionWrapper() : action(NullAction::getInstance()) {}

ActionWrapper::ActionWrapper(Action* wrapped) : action(wrapped) {}

ActionWrapper::~ActionWrapper() = default;

int ActionWrapper::setAttribute(NameResolver*, const std::vector<std::string>&) {
    return 0;
}

std::string ActionWrapper::toString() {
    return action->toString();
}

void ActionWrapper::wrap(Action* wrapped) {
    action = wrapped;
}

} // namespace qz::tavrel
