#include "ClassLibrary.h"

#include "Refusal.h"

#include <qz/tavrel/Action.h>

#include <dlfcn.h>

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace tavrel::tool {

namespace {

/// Names under which the library asks for objects that are no actions.
constexpr const char* otherClasses[] = {"BMCRelationalDB",      "Initializer",     "NameResolver",
                                        "PropertyLocator",      "SemLockProvider", "Specification",
                                        "TreePathLockProvider", "VolatileDB"};

/// Actions that every factory makes.
constexpr const char* ownActions[] = {"ActionList",          "AddComponent",   "ControlComponents",
                                      "ControlOnComponents", "ControlSubset",  "ControlTarget",
                                      "PrintMessage",        "ShareComponent", "Sleep"};

template <std::size_t count>
bool contains(const char* const (&names)[count], const std::string& name) {
    return std::find(std::begin(names), std::end(names), name) != std::end(names);
}

} // namespace

ClassLibrary::ClassLibrary(const std::string& path) {
    // A name without '/' would be searched among the system's libraries.
    const std::string file = path.find('/') == std::string::npos ? "./" + path : path;
    void* library = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        throw Refusal(std::string("the classes cannot be loaded: ") + dlerror());
    }
    create = reinterpret_cast<Create>(dlsym(library, "tavrel_create_instance"));
    if (create == nullptr) {
        throw Refusal("'" + path + "' has no function tavrel_create_instance");
    }
}

bool ClassLibrary::hasAction(const std::string& name) const {
    if (contains(otherClasses, name)) {
        return false;
    }
    auto* made = static_cast<qz::tavrel::Action*>(make(name));
    delete made;
    return made != nullptr || contains(ownActions, name);
}

} // namespace tavrel::tool
