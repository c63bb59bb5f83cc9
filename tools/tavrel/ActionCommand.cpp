#include "Commands.h"
#include "Names.h"
#include "Paths.h"
#include "Refusal.h"
#include "Session.h"
#include "Values.h"

#include <qz/tavrel/Component.h>
#include <qz/tavrel/ComponentAccessor.h>
#include <qz/tavrel/NameResolver.h>
#include <qz/tavrel/QZException.h>

#include <algorithm>
#include <iostream>

using namespace qz::tavrel;

namespace tavrel::tool {

namespace {

/// The id of an action that the component's class has.
/// @throws Refusal  it has none of that name; with the nearest that it has
int actionOf(ComponentAccessor& component, const std::string& name) {
    std::vector<int> ids;
    component.getActionIds(ids);
    std::vector<std::string> known;
    for (const int id : ids) {
        known.push_back(Session::names().getName(Actions, id));
        if (known.back() == name) {
            return id;
        }
    }
    if (Session::names().getValue(Actions, name) != -1) {
        throw Refusal(component.getPath() + ": " + Session::names().getComponentName(component.getType()) +
                      " has no " + name);
    }
    throw Refusal(component.getPath() + " has no such action: " + unknownName("action", name, known));
}

} // namespace

void doCommand(const std::string& path, const std::string& action, const std::string& input,
               unsigned int outSize) {
    const std::string in = input.empty() ? std::string() : fromHex(input);
    std::string out(outSize, '\0');
    ComponentAccessor component(findComponent(Session::names(), path));
    const int id = actionOf(component, action);
    try {
        component.doAction(id, in.empty() ? nullptr : in.data(), static_cast<unsigned int>(in.size()),
                           out.empty() ? nullptr : out.data(), outSize);
    } catch (const UnavailableComponentException&) {
        throw;
    } catch (const std::exception& reason) {
        throw Refusal(action + " of " + component.getPath() + ": " + reason.what());
    }
    std::cout << component.getPath() << ' ' << action << " done\n";
    if (!out.empty()) {
        const std::string text = toQuoted(out);
        std::cout << (text.empty() ? toHex(out) : text) << '\n';
    }
}

} // namespace tavrel::tool
