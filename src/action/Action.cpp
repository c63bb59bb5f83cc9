#include <qz/tavrel/Action.h>

namespace qz::tavrel {

Action::~Action() = default;

int Action::setAttribute(NameResolver*, const std::vector<std::string>&) {
    return 0;
}

std::string Action::toString() {
    return {};
}

} // namespace qz::tavrel
