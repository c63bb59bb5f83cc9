#include "store/TreeQuestions.h"

#include <qz/tavrel/Component.h>
#include <qz/tavrel/TreePath.h>

namespace qz::internal {

std::string pathOf(int componentId) {
    tavrel::TreePath path;
    tavrel::Component::getComponent(componentId)->getTreePath(path);
    return path.toString();
}

bool hasComponent(const std::string& path) {
    tavrel::Component* component = tavrel::TreePath(path).getComponent();
    return component != nullptr && component->getType() != 0;
}

} // namespace qz::internal
