#include "Commands.h"
#include "Names.h"
#include "Paths.h"
#include "Refusal.h"
#include "Sections.h"
#include "Session.h"

#include <qz/tavrel/Component.h>
#include <qz/tavrel/ComponentAccessor.h>
#include <qz/tavrel/ComponentClass.h>
#include <qz/tavrel/NameResolver.h>
#include <qz/tavrel/TreeConfig.h>

#include <algorithm>
#include <iostream>
#include <set>

using namespace qz::tavrel;

namespace tavrel::tool {

namespace {

/// The library leaves a half-built subtree behind when the ids run out on the way.
void requireRoom(const Session& session, int type) {
    TreeConfig* tree = Component::getTreeConfig();
    int room = session.maxCount() - tree->getNodeCount();
    for (int id = 0; id < tree->getNodeCount(); ++id) {
        room += tree->getNodeType(id) == 0 ? 1 : 0;
    }
    const int needed = ComponentClass::get(type)->getComponentCount();
    if (needed > room) {
        throw Refusal("the tree is full: " + std::to_string(needed) + " components are needed, " +
                      std::to_string(std::max(room, 0)) +
                      " of tavrel.compo.max = " + std::to_string(session.maxCount()) + " are free");
    }
}

void collect(Component* component, std::vector<Component*>& subtree) {
    subtree.push_back(component);
    std::vector<Component*> owned;
    component->getComponent(owned, true);
    for (Component* child : owned) {
        collect(child, subtree);
    }
}

/// Detaches a subtree from those outside of it that share a part of it, so that none shares what its id
/// stands for next.
/// @return how many links were cut
int unshare(const std::vector<Component*>& subtree) {
    const std::set<Component*> inside(subtree.begin(), subtree.end());
    int cut = 0;
    for (Component* component : subtree) {
        std::vector<Component*> parents;
        component->getParents(parents);
        for (Component* parent : parents) {
            if (parent != component->getParent() && inside.count(parent) == 0) {
                parent->removeComponent(component);
                ++cut;
            }
        }
    }
    return cut;
}

} // namespace

void addCommand(const Session& session, const std::string& path, const std::string& type) {
    Component* parent = findComponent(Session::names(), path);
    const int typeNumber = valueOf(Session::names(), Types, "type", type, Session::typeNames());
    ComponentAccessor accessor(parent);
    std::vector<Component*> before;
    std::vector<Component*> after;
    {
        const WriteLock lock(parent);
        TreeSection section;
        requireRoom(session, typeNumber);
        parent->getComponent(before, true);
        accessor.createComponent(typeNumber);
        parent->getComponent(after, true);
        section.close();
    }
    session.requireStored();

    for (Component* child : after) {
        if (std::find(before.begin(), before.end(), child) == before.end()) {
            std::cout << "added " << pathOf(child) << " (id " << child->getComponentId() << ")\n";
        }
    }
}

void removeCommand(const Session& session, const std::string& path) {
    Component* component = findComponent(Session::names(), path);
    Component* parent = component->getParent();
    if (parent == nullptr) {
        throw Refusal("the root cannot be removed");
    }
    const std::string own = pathOf(component);
    if (toText(parseSteps(path)) != own) {
        throw Refusal("'" + path + "' is only shared there; its own path is " + own);
    }
    ComponentAccessor accessor(component);
    std::vector<Component*> subtree;
    int cut = 0;
    {
        const WriteLock lock(parent);
        TreeSection section;
        accessor.evaluate();
        collect(component, subtree);
        cut = unshare(subtree);
        accessor.deleteComponent();
        section.close();
    }
    session.requireStored();

    std::cout << "removed " << own << ", " << subtree.size()
              << (subtree.size() == 1 ? " component" : " components");
    if (cut > 0) {
        std::cout << "; " << cut << (cut == 1 ? " shared link cut" : " shared links cut");
    }
    std::cout << '\n';
}

} // namespace tavrel::tool
