#pragma once

#include <qz/tavrel/Factory.h>

#include <set>
#include <string>

namespace tavrel::tool {

/// Makes the objects of a machine that the tool does not know: the names from the names file, the client's
/// classes from a shared library if one was given, and stand-ins for actions whose classes nobody has.
class ToolFactory : public qz::tavrel::Factory {
public:
    /// @param namesFile  path of the names file
    /// @param classes  path of a shared library with `extern "C" void* tavrel_create_instance(const char*
    /// name)`, which
    ///                 answers null for names that are not its own; may be empty
    /// @param noActions  class names that are no actions: those of the stores and the lock provider
    /// @throws Refusal  the library cannot be loaded or has no such function
    ToolFactory(std::string namesFile, const std::string& classes, std::set<std::string> noActions);

    /// @throws TavrelException "invalid args" for an unknown name of `noActions`
    void* createInstance(const std::string& name) override;

private:
    using Create = void* (*)(const char*);

    std::string names;
    std::set<std::string> services;
    Create create = nullptr;
};

} // namespace tavrel::tool
