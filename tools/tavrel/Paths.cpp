#include "Paths.h"

#include "Names.h"
#include "Refusal.h"
#include "Session.h"
#include "Text.h"

#include <qz/tavrel/Component.h>
#include <qz/tavrel/NameResolver.h>
#include <qz/tavrel/TreePath.h>

#include <algorithm>
#include <charconv>
#include <map>

using namespace qz::tavrel;

namespace tavrel::tool {

namespace {

/// What a component has: "Fan#0, Fan#1, Sensor#0".
std::string childrenOf(NameResolver& names, Component* component) {
    std::vector<Component*> children;
    component->getComponent(children, false);
    std::string text;
    std::map<int, int> shared;
    for (Component* child : children) {
        // A shared child is found by its place among those of its type, not by its own number.
        const bool owned = child->getParent() == component;
        const int number = owned ? child->getNo() : shared[child->getType()]++;
        text += (text.empty() ? "" : ", ") + names.getComponentName(child->getType()) + '#' +
                std::to_string(number);
    }
    return text.empty() ? "no children" : text;
}

std::string notAPath(const std::string& text) {
    return "'" + shown(text) + "' is no path: a path is '/', a type, '#' and a number, for each step";
}

} // namespace

std::vector<Step> parseSteps(const std::string& text) {
    std::vector<Step> steps;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('/', begin + 1), text.size());
        const std::string step = text.substr(begin, end - begin);
        const std::size_t sign = step.rfind('#');
        if (step[0] != '/' || sign == std::string::npos || sign < 2 || sign + 1 == step.size() ||
            step.find_first_not_of("0123456789", sign + 1) != std::string::npos) {
            throw WrongUsage(notAPath(text));
        }
        int number = 0;
        if (std::from_chars(step.data() + sign + 1, step.data() + step.size(), number).ec != std::errc()) {
            throw Refusal("'" + shown(text) + "' is not in the tree: no component has the number " +
                          shown(step.substr(sign + 1)));
        }
        steps.push_back({step.substr(1, sign - 1), number});
        begin = end;
    }
    if (steps.empty()) {
        throw WrongUsage(notAPath(text));
    }
    return steps;
}

std::string toText(const std::vector<Step>& steps) {
    std::string text;
    for (const Step& step : steps) {
        text += '/' + step.type + '#' + std::to_string(step.number);
    }
    return text;
}

Component* findComponent(NameResolver& names, const std::string& text) {
    if (text == "/") {
        return Component::getRoot();
    }
    const std::vector<std::string> types = Session::typeNames();
    TreePath path;
    for (const Step& step : parseSteps(text)) {
        path.add(valueOf(names, Types, "type", step.type, types), step.number);
    }
    std::vector<Component*> found;
    if (path.getComponentList(found)) {
        return found.back();
    }
    if (found.empty()) {
        throw Refusal("'" + shown(text) + "' is not in the tree: the root is " +
                      pathOf(Component::getRoot()));
    }
    throw Refusal("'" + shown(text) + "' is not in the tree: " + pathOf(found.back()) + " has " +
                  childrenOf(names, found.back()));
}

std::string pathOf(Component* component) {
    TreePath path;
    component->getTreePath(path);
    return path.toString();
}

} // namespace tavrel::tool
