#include <qz/tavrel/Component.h>
#include <qz/tavrel/ComponentVisitor.h>

#include <vector>

namespace qz::tavrel {

ComponentVisitor::~ComponentVisitor() = default;

AbstractVisitor::AbstractVisitor() : AbstractVisitor(true) {}

AbstractVisitor::AbstractVisitor(bool walkOwnedOnly) : ownedOnly(walkOwnedOnly) {}

AbstractVisitor::~AbstractVisitor() = default;

void AbstractVisitor::visit(Component* component) {
    if (!doTopDown(component)) {
        return;
    }
    std::vector<Component*> children;
    component->getComponent(children, ownedOnly);
    for (Component* const child : children) {
        child->accept(this);
    }
    doBottomUp(component);
}

bool AbstractVisitor::doTopDown(Component*) {
    return true;
}

bool AbstractVisitor::doBottomUp(Component*) {
    return true;
}

} // namespace qz::tavrel
