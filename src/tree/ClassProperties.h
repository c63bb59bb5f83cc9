#pragma once

#include <qz/tavrel/ComponentClass.h>
#include <qz/tavrel/PropertyLocator.h>

namespace qz::internal {

/// The properties of a class; none when it was given no table.
inline tavrel::PropertyLocator& propertiesOf(tavrel::ComponentClass& described) {
    static auto& none = *new tavrel::PropertyLocator; // never destroyed, as the classes
    tavrel::PropertyLocator* const locator = described.getPropertyLocator();
    return locator == nullptr ? none : *locator;
}

} // namespace qz::internal
