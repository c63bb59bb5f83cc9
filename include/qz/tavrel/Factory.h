/// @file
/// From a class name in a configuration or specification file to an object.
#pragma once

#include <string>

namespace qz::tavrel {

/// Makes objects by class name. A client adds its own classes, or takes over one of the library's, by
/// overriding `createInstance`, testing its own names first and passing all others on.
///
/// Threads: no state; any.
class Factory {
public:
    Factory() = default;
    virtual ~Factory();
    Factory(const Factory&) = delete;
    Factory& operator=(const Factory&) = delete;

    /// Makes a default-constructed object of a class; the caller owns it.
    ///
    /// Known, with the class that each is used as, are
    /// - "ActionList", "AddComponent", "ShareComponent", "ControlTarget", "ControlComponents",
    ///   "ControlOnComponents", "ControlSubset", "Sleep", "PrintMessage": `Action`
    /// - "TreePathLockProvider", "SemLockProvider": `ComponentLockProvider`
    /// - "BMCRelationalDB": `Resource`
    /// - "PropertyLocator", "NameResolver", "Specification", "Initializer": the class of that name
    ///
    /// An override gives a pointer to the class that the name is used as, converted to `void*`.
    ///
    /// @param name  class name; case matters
    /// @return never null here; an override may give null for a resource type that it refuses
    /// @throws TavrelException "invalid args" for any other name
    virtual void* createInstance(const std::string& name);
};

} // namespace qz::tavrel
