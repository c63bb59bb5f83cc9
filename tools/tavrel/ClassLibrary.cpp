#include "ClassLibrary.h"

#include "Refusal.h"

#include <qz/tavrel/Action.h>

#include <dlfcn.h>

#include <algorithm>
#include <iterator>

namespace tavrel::tool {

namespace {

/// Names under which the library asks for objects that are no actions.
constexpr const char* otherClasses[] = {"BMCRelationalDB", "Initializer",   "NameResolver",
                                        "PropertyLocator", "Specification", "TreePathLockProvider",
                                        "VolatileDB"};

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
    if (std::find(std::begin(otherClasses), std::end(otherClasses), name) != std::end(otherClasses)) {
        return false;
    }
    auto* made = static_cast<qz::tavrel::Action*>(make(name));
    delete made;
    return made != nullptr || name == "ActionList";
}

} // namespace tavrel::tool
