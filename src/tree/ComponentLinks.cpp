#include "base/Trace.h"
#include "tree/RefreshLevel.h"
#include "tree/TreeSections.h"

#include <qz/tavrel/Component.h>
#include <qz/tavrel/ComponentVisitor.h>
#include <qz/tavrel/TreePath.h>

#include <algorithm>

namespace qz::tavrel {

namespace point = internal::point;
using internal::ReadSection;
using internal::trace;
using internal::WriteSection;

namespace {

constexpr std::size_t usualDepth =
    8; // of a component in a tree, at most; a deeper one costs an allocation more

} // namespace

void Component::createComponent(int type) {
    const WriteSection section(config);
    Component* const child = getComponent();
    // Linked first: the node takes its parent from the link when it is stamped.
    config->add(id, child->id, internal::owned);
    child->setType(type);
    trace(point::ComponentCreated, id, child->id, type);
}

void Component::deleteComponent() {
    const WriteSection section(config);
    config->remove(config->getSrc(id), id, internal::owned);
    clear();
    setUp(0, -1);
    trace(point::ComponentDeleted, id, 0);
}

void Component::clear() {
    clear(0);
}

/// Stored links that form a circle end at the depth that no tree can have.
void Component::clear(int depth) {
    if (depth < nMax) {
        for (const int childId : children(id, true)) {
            Component* const child = getComponent(childId);
            child->clear(depth + 1);
            child->setUp(0, -1);
        }
    }
    clearProperties();
    config->removeAll(id);
}

void Component::addComponent(Component* child) {
    if (child == nullptr) {
        return;
    }
    const WriteSection section(config);
    const int type = child->getType();
    for (const int ownedId : children(id, true)) {
        if (config->getNodeType(ownedId) == type) {
            trace(point::ComponentShareRefused, id, child->id);
            return;
        }
    }
    config->add(id, child->id, internal::shared);
    trace(point::ComponentShared, id, child->id);
}

void Component::addComponent(const std::vector<Component*>& candidates) {
    const WriteSection section(config);
    std::set<int> ownedTypes;
    for (const int ownedId : children(id, true)) {
        ownedTypes.insert(config->getNodeType(ownedId));
    }
    std::vector<int> accepted;
    for (Component* const candidate : candidates) {
        if (ownedTypes.count(candidate->getType()) != 0) {
            trace(point::ComponentListShareRefused, id, candidate->id);
        } else {
            accepted.push_back(candidate->id);
            trace(point::ComponentListShared, id, candidate->id);
        }
    }
    config->add(id, accepted, internal::shared);
}

void Component::removeComponent(Component* child) {
    if (child == nullptr) {
        return;
    }
    const WriteSection section(config);
    config->remove(id, child->id, internal::shared);
    trace(point::ComponentUnshared, id, child->id);
}

bool Component::contains(Component* component) {
    refresh(internal::refreshRead);
    if (component == nullptr) {
        return false;
    }
    const ReadSection section(config);
    const std::vector<int> ids = children(id, false);
    return std::find(ids.begin(), ids.end(), component->id) != ids.end();
}

Component* Component::getParent() {
    refresh(internal::refreshRead);
    const ReadSection section(config);
    const int parent = config->getSrc(id);
    return parent == -1 ? nullptr : getComponent(parent);
}

void Component::getParents(std::vector<Component*>& out) {
    refresh(internal::refreshRead);
    const ReadSection section(config);
    std::vector<int> ids;
    config->getSrcs(id, ids);
    getComponent(ids, out);
}

void Component::getParents(int type, std::vector<Component*>& out) {
    refresh(internal::refreshRead);
    const ReadSection section(config);
    std::vector<int> ids;
    config->getSrcs(id, ids);
    for (const int parent : ids) {
        if (config->getNodeType(parent) == type) {
            out.push_back(getComponent(parent));
        }
    }
}

Component* Component::getComponent(int type, int number) {
    refresh(internal::refreshRead);
    const ReadSection section(config);
    for (const int child : children(id, true)) {
        if (config->getNodeType(child) == type && config->getNodeNumber(child) == number) {
            return getComponent(child);
        }
    }
    std::vector<int> sharedIds;
    config->get(id, sharedIds, internal::shared);
    int position = 0;
    for (const int child : sharedIds) {
        if (config->getNodeType(child) == type && position++ == number) {
            return getComponent(child);
        }
    }
    return nullptr;
}

void Component::getComponent(std::vector<Component*>& out, bool ownedOnly) {
    refresh(internal::refreshRead);
    const ReadSection section(config);
    std::vector<int> ids = children(id, ownedOnly);
    getComponent(ids, out);
}

void Component::getComponent(int type, std::vector<Component*>& out) {
    refresh(internal::refreshRead);
    const ReadSection section(config);
    if (type < 1) {
        return;
    }
    for (const int child : children(id, false)) {
        if (config->getNodeType(child) == type) {
            out.push_back(getComponent(child));
        }
    }
}

void Component::getTreePath(TreePath& path) {
    const ReadSection section(config);
    std::vector<Component*> steps;
    steps.reserve(usualDepth);
    // Stored links that form a circle end at the depth that no tree can have.
    for (int step = id; step != -1 && static_cast<int>(steps.size()) < nMax; step = config->getSrc(step)) {
        steps.push_back(getComponent(step));
    }
    std::reverse(steps.begin(), steps.end());
    for (Component* const step : steps) {
        path.add(step);
    }
}

void Component::accept(ComponentVisitor* visitor) {
    visitor->visit(this);
}

} // namespace qz::tavrel
