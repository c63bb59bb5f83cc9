#include "Commands.h"
#include "Names.h"
#include "Paths.h"
#include "Refusal.h"
#include "Sections.h"
#include "Session.h"
#include "Snapshot.h"
#include "Values.h"

#include <qz/tavrel/Component.h>
#include <qz/tavrel/ComponentAccessor.h>
#include <qz/tavrel/NameResolver.h>

#include <algorithm>
#include <iostream>

using namespace qz::tavrel;

namespace tavrel::tool {

namespace {

/// The property of that name.
/// @throws Refusal  the component has none; with the nearest that it has
PropertyValue propertyOf(Component* component, const std::string& name) {
    const std::vector<PropertyValue> properties = propertiesOf(component);
    const auto found = std::find_if(properties.begin(), properties.end(),
                                    [&](const PropertyValue& property) { return property.name == name; });
    if (found != properties.end()) {
        return *found;
    }
    std::vector<std::string> known;
    known.reserve(properties.size());
    for (const PropertyValue& property : properties) {
        known.push_back(property.name);
    }
    if (Session::names().getValue(Properties, name) != -1) {
        throw Refusal(pathOf(component) + ": " + Session::names().getComponentName(component->getType()) +
                      " has no " + name);
    }
    throw Refusal(pathOf(component) + " has no such property: " + unknownName("property", name, known));
}

} // namespace

void getCommand(const std::string& path, const std::string& property) {
    Component* component = findComponent(Session::names(), path);
    const PropertyValue value = propertyOf(component, property);
    if (value.bytes.empty()) {
        throw Refusal("the store '" + value.store + "' does not give " + property + " of " + path);
    }
    std::cout << describe(value.bytes) << '\n';
}

void setCommand(const std::string& path, const std::string& property, const std::string& value) {
    Component* component = findComponent(Session::names(), path);
    ComponentAccessor accessor(component);
    const WriteLock lock(component);
    const PropertyValue before = propertyOf(component, property);
    const std::string bytes = parseValue(value, before.size);
    if (accessor.setProperty(before.key, bytes.data(), before.size) == 0) {
        throw Refusal("the store '" + before.store + "' has not taken " + property + " of " + path);
    }
    std::cout << pathOf(component) << ' ' << property << ' '
              << (before.bytes.empty() ? "unreadable" : describe(before.bytes)) << " -> " << describe(bytes)
              << '\n';
}

} // namespace tavrel::tool
