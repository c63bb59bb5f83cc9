#include "Structure.h"

#include "Sections.h"

#include <qz/tavrel/Component.h>
#include <qz/tavrel/ComponentClass.h>
#include <qz/tavrel/NameResolver.h>
#include <qz/tavrel/TreeConfig.h>

#include <map>
#include <vector>

using namespace qz::tavrel;

namespace tavrel::tool {

namespace {

/// How many components there are of each type.
using Counts = std::map<int, int>;

/// Adds what `count` nodes of a type start with. The library has made sure that no type contains itself.
void addSpecified(int type, int count, Counts& counts) {
    ComponentClass* known = ComponentClass::get(type);
    if (known == nullptr || count == 0) {
        return;
    }
    counts[type] += count;
    std::vector<int> children;
    known->getComponentTypes(children);
    for (const int child : children) {
        addSpecified(child, count * known->getComponentCount(child), counts);
    }
}

Counts stored() {
    Counts counts;
    TreeConfig* tree = Component::getTreeConfig();
    for (int id = 0; id < tree->getNodeCount(); ++id) {
        if (tree->getNodeType(id) > 0) {
            ++counts[tree->getNodeType(id)];
        }
    }
    return counts;
}

} // namespace

std::string structureDifference() {
    const TreeSection section;
    Counts specified;
    addSpecified(Component::getRoot()->getType(), 1, specified);
    Counts here = stored();
    for (const auto& [type, count] : specified) {
        here.emplace(type, 0);
    }

    std::string text;
    for (const auto& [type, count] : here) {
        const auto found = specified.find(type);
        const int wanted = found == specified.end() ? 0 : found->second;
        if (wanted != count) {
            text += (text.empty() ? "" : ", ") + Component::getNameResolver()->getComponentName(type) + ": " +
                    std::to_string(wanted) + " in place of " + std::to_string(count);
        }
    }
    return text;
}

int liveComponents() {
    int total = 0;
    for (const auto& [type, count] : stored()) {
        total += count;
    }
    return total;
}

} // namespace tavrel::tool
