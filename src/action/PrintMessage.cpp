#include <qz/tavrel/Component.h>
#include <qz/tavrel/NameResolver.h>
#include <qz/tavrel/PrintMessage.h>
#include <qz/tavrel/TreePath.h>

#include <iostream>

namespace qz::tavrel {

PrintMessage::PrintMessage() = default;

PrintMessage::PrintMessage(const std::string& string) : strings{string} {}

PrintMessage::~PrintMessage() = default;

int PrintMessage::setAttribute(NameResolver*, const std::vector<std::string>& attributes) {
    strings = attributes;
    return static_cast<int>(strings.size());
}

void PrintMessage::execute(Component* target, int actionId, const void*, unsigned int, void*, unsigned int) {
    std::string line;
    if (strings.empty()) {
        TreePath path;
        target->getTreePath(path);
        NameResolver* const names = Component::getNameResolver();
        line = "[" + path.toString() + "] " + (names == nullptr ? "" : names->getActionName(actionId));
    }
    for (const std::string& string : strings) {
        line += string + ",";
    }
    line += '\n';
    // In one piece, so that the lines of two threads do not mix.
    std::cout << line << std::flush;
}

std::string PrintMessage::toString() {
    return "PrintMessage";
}

} // namespace qz::tavrel
