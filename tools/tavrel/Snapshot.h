#pragma once

#include <string>
#include <vector>

namespace qz::tavrel {
class Component;
}

namespace tavrel::tool {

/// One property of a component with its value.
struct PropertyValue {
    std::string name;
    int key = 0;
    unsigned int size = 0; ///< bytes that the specification gives it
    std::string store;     ///< name of the store that keeps it for this component
    std::string bytes;     ///< empty if the store failed
};

/// A component as it was, with its owned subtree.
struct ComponentState {
    std::string path;
    std::string type; ///< name; "type N" for one that has none
    int typeNumber = 0;
    int number = 0;
    int id = 0;
    int revision = 0;
    std::vector<std::string> features; ///< in the order of the names file, the type's own excluded
    std::vector<PropertyValue> properties;
    std::vector<ComponentState> children;
    std::vector<std::string> shared; ///< own paths of the shared children
};

/// Takes the subtree of a component as it is at one moment.
/// @param withProperties  read the values as well
/// Locks: a write section of the tree.
ComponentState snapshot(qz::tavrel::Component* top, bool withProperties);

/// All properties of a component, also those with keys below 256, in the order of the specification.
std::vector<PropertyValue> propertiesOf(qz::tavrel::Component* component);

} // namespace tavrel::tool
