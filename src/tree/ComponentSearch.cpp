#include "tree/RefreshLevel.h"
#include "tree/TreeSections.h"

#include <qz/tavrel/Component.h>
#include <qz/tavrel/ComponentClass.h>

namespace qz::tavrel {

using internal::ReadSection;

namespace {

bool classHasFeature(int type, int feature) {
    ComponentClass* const found = ComponentClass::get(type);
    return found != nullptr && found->hasFeature(feature);
}

} // namespace

void Component::getFeatured(int feature, std::vector<Component*>& out) {
    refresh(internal::refreshRead);
    const ReadSection section(config);
    for (const int child : children(id, false)) {
        if (classHasFeature(config->getNodeType(child), feature)) {
            out.push_back(getComponent(child));
        }
    }
}

void Component::findComponent(int type, std::vector<Component*>& out, bool includeSelf) {
    refresh(internal::refreshRead);
    const ReadSection section(config);
    if (type < 1) {
        return;
    }
    std::set<Component*> visited;
    findComponent(visited, type, out, includeSelf);
}

void Component::findComponent(std::set<Component*>& visited, int type, std::vector<Component*>& out,
                              bool includeSelf) {
    if (!visited.insert(this).second) {
        return;
    }
    if (includeSelf && config->getNodeType(id) == type) {
        out.push_back(this);
        return;
    }
    for (const int child : children(id, false)) {
        getComponent(child)->findComponent(visited, type, out, true);
    }
}

void Component::findFeatured(int feature, std::vector<Component*>& out, bool includeSelf) {
    refresh(internal::refreshRead);
    const ReadSection section(config);
    std::set<Component*> visited;
    findFeatured(visited, feature, out, includeSelf);
}

void Component::findFeatured(std::set<Component*>& visited, int feature, std::vector<Component*>& out,
                             bool includeSelf) {
    if (!visited.insert(this).second) {
        return;
    }
    if (includeSelf && classHasFeature(config->getNodeType(id), feature)) {
        out.push_back(this);
    }
    for (const int child : children(id, false)) {
        getComponent(child)->findFeatured(visited, feature, out, true);
    }
}

} // namespace qz::tavrel
