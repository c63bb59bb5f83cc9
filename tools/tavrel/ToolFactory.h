#pragma once

#include "ClassLibrary.h"

#include <qz/tavrel/Factory.h>

#include <map>
#include <string>

namespace tavrel::tool {

/// Makes the objects of a machine that the tool does not know: the names from the names file, the client's
/// classes from a shared library if one was given, and stand-ins for actions whose classes nobody has.
class ToolFactory : public qz::tavrel::Factory {
public:
    /// @param namesFile  path of the names file
    /// @param classes    the client's own classes
    /// @param services   class names that are no actions, those of the stores and the lock provider, each
    /// with the
    ///                   reason to give if nobody has the class
    ToolFactory(std::string namesFile, const ClassLibrary& classes,
                std::map<std::string, std::string> services);

    /// @throws Refusal  an unknown name of `services`
    void* createInstance(const std::string& name) override;

private:
    std::string names;
    ClassLibrary own;
    std::map<std::string, std::string> reasons;
};

} // namespace tavrel::tool
