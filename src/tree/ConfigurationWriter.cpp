#include "tree/ClassProperties.h"

#include <qz/tavrel/Component.h>
#include <qz/tavrel/ConfigurationWriter.h>
#include <qz/tavrel/NameResolver.h>
#include <qz/tavrel/ResourceManager.h>

#include <algorithm>
#include <iostream>
#include <string>
#include <vector>

namespace qz::tavrel {

namespace {

constexpr std::uint32_t componentLines = 1;
constexpr std::uint32_t propertyLines = 2;

std::string indentation(std::int32_t depth) {
    return std::string(static_cast<std::size_t>(std::max(depth, 0)) * 2, ' ');
}

} // namespace

ConfigurationWriter::ConfigurationWriter() : ConfigurationWriter(true, std::cout) {}

ConfigurationWriter::ConfigurationWriter(bool walkOwnedOnly, std::ostream& out)
    : AbstractVisitor(walkOwnedOnly), options(componentLines | propertyLines), stream(&out), depth(0) {}

ConfigurationWriter::~ConfigurationWriter() = default;

bool ConfigurationWriter::doTopDown(Component* component) {
    if ((options & componentLines) != 0) {
        writeComponent(component);
    }
    if ((options & propertyLines) != 0) {
        writeProperties(component);
    }
    ++depth;
    return true;
}

bool ConfigurationWriter::doBottomUp(Component*) {
    --depth;
    return true;
}

void ConfigurationWriter::setOption(unsigned long newOptions) {
    options = static_cast<std::uint32_t>(newOptions);
}

void ConfigurationWriter::writeComponent(Component* component) {
    const int type = component->getType();
    *stream << indentation(depth) << Component::getNameResolver()->getComponentName(type) << " #"
            << std::to_string(component->getNo()) << " (id:" << std::to_string(component->getComponentId())
            << " type:" << std::to_string(type) << ')' << std::endl;
}

void ConfigurationWriter::writeProperties(Component* component) {
    ComponentClass* const found = ComponentClass::get(component->getType());
    if (found == nullptr) {
        return;
    }
    PropertyLocator& locator = internal::propertiesOf(*found);
    ResourceManager* const manager = ResourceManager::getInstance();
    std::vector<int> keys;
    locator.getPropertyKeys(keys);
    for (const int key : keys) {
        PropertyAccessor& accessor = locator.getAccessor(key);
        Resource* const resource =
            manager->getResource(component->getComponentId(), accessor.getResourceId());
        *stream << indentation(depth) << "  +--- " << Component::getNameResolver()->getPropertyName(key)
                << " (key:" << std::to_string(key) << " size:" << std::to_string(accessor.getSize())
                << " res:" << manager->getResourceName(resource) << ')' << std::endl;
    }
}

} // namespace qz::tavrel
