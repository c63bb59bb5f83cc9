#include "tree/ClassProperties.h"

#include <qz/tavrel/Component.h>
#include <qz/tavrel/ComponentClass.h>
#include <qz/tavrel/Initializer.h>
#include <qz/tavrel/PropertyLocator.h>

#include <algorithm>

namespace qz::tavrel {

namespace {

constexpr std::size_t bufferSize = 0x10000;

} // namespace

Initializer::Initializer() : AbstractVisitor(true), modifying(false), current(nullptr), buffer(bufferSize) {}

Initializer::~Initializer() = default;

void Initializer::run(bool modify) {
    modifying = modify;
    Component::getRoot()->accept(this);
}

Component* Initializer::getComponent() {
    return current;
}

bool Initializer::doBottomUp(Component* component) {
    current = component;
    if (modifying) {
        modifyProperties(component);
    } else {
        initProperties(component);
    }
    return true;
}

void Initializer::initProperties(Component* component) {
    std::vector<int> keys;
    component->getPropertyKeys(keys);
    for (const int key : keys) {
        const unsigned int size = component->getPropertySize(key);
        if (size > buffer.size()) {
            buffer.resize(size);
        }
        component->setProperty(key, buffer.data(), size);
    }
}

void Initializer::modifyProperties(Component* component) {
    const int id = component->getComponentId();
    const int type = component->getType();
    ComponentClass* const found = ComponentClass::get(type);
    if (found == nullptr) {
        return;
    }
    PropertyLocator& properties = internal::propertiesOf(*found);
    std::vector<int> keys;
    properties.getPropertyKeys(keys);
    for (const int key : keys) {
        PropertyAccessor& accessor = properties.getAccessor(key);
        const auto room = static_cast<unsigned int>(buffer.size());
        const unsigned int stored = std::min(accessor.readRaw(id, buffer.data(), room), room);
        std::vector<unsigned char> data(buffer.data(), buffer.data() + stored);
        std::fill_n(buffer.begin(), stored, static_cast<unsigned char>(0)); // the other mode writes it
        if (modifyProperty(type, key, accessor.getSize(), data)) {
            accessor.write(id, 0, data.data(), static_cast<unsigned int>(data.size()));
        }
    }
}

bool Initializer::modifyProperty(int, int, unsigned int size, std::vector<unsigned char>& data) {
    if (data.size() == size) {
        return false;
    }
    data.resize(size);
    return true;
}

} // namespace qz::tavrel
