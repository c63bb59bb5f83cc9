#include "Snapshot.h"

#include "Names.h"
#include "Paths.h"
#include "Sections.h"
#include "Session.h"

#include <qz/tavrel/Component.h>
#include <qz/tavrel/ComponentClass.h>
#include <qz/tavrel/NameResolver.h>
#include <qz/tavrel/PropertyLocator.h>
#include <qz/tavrel/ResourceManager.h>

using namespace qz::tavrel;

namespace tavrel::tool {

namespace {

std::string nameOr(const std::string& name, const char* kind, int number) {
    return name.empty() ? std::string(kind) + ' ' + std::to_string(number) : name;
}

/// Reads what the walk needs for every component once.
class Taker {
public:
    explicit Taker(bool readValues) : withProperties(readValues), types(namesOf(Session::names(), Types)) {}

    ComponentState take(Component* component) const {
        ComponentState state;
        state.path = pathOf(component);
        state.typeNumber = component->getType();
        state.type = nameOr(Session::names().getComponentName(state.typeNumber), "type", state.typeNumber);
        state.number = component->getNo();
        state.id = component->getComponentId();
        state.revision = component->getRevision();
        for (const auto& [name, value] : types) {
            if (value != state.typeNumber && component->hasFeature(value)) {
                state.features.push_back(name);
            }
        }
        if (withProperties) {
            state.properties = propertiesOf(component);
        }

        std::vector<Component*> owned;
        component->getComponent(owned, true);
        for (Component* child : owned) {
            state.children.push_back(take(child));
        }
        std::vector<Component*> all;
        component->getComponent(all, false);
        for (std::size_t i = owned.size(); i < all.size(); ++i) {
            state.shared.push_back(pathOf(all[i]));
        }
        return state;
    }

private:
    bool withProperties;
    NamedValues types;
};

} // namespace

ComponentState snapshot(Component* top, bool withProperties) {
    const TreeSection section;
    return Taker(withProperties).take(top);
}

std::vector<PropertyValue> propertiesOf(Component* component) {
    std::vector<PropertyValue> properties;
    ComponentClass* type = ComponentClass::get(component->getType());
    PropertyLocator* locator = type == nullptr ? nullptr : type->getPropertyLocator();
    if (locator == nullptr) {
        return properties;
    }
    component->getRevision(); // what has changed until now is what the caller wants to see

    std::vector<int> keys;
    locator->getPropertyKeys(keys);
    ResourceManager* stores = ResourceManager::getInstance();
    for (const int key : keys) {
        const PropertyAccessor& accessor = locator->getAccessor(key);
        PropertyValue value;
        value.name = nameOr(Session::names().getPropertyName(key), "key", key);
        value.key = key;
        value.size = accessor.getSize();
        value.store = stores->getResourceName(accessor.getResource(component->getComponentId()));
        value.bytes.resize(value.size);
        const int got = component->getProperty(key, value.bytes.data(), value.size);
        value.bytes.resize(static_cast<std::size_t>(got));
        properties.push_back(std::move(value));
    }
    return properties;
}

} // namespace tavrel::tool
