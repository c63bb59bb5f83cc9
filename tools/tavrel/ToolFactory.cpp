#include "ToolFactory.h"

#include "Refusal.h"
#include "chassis/NamesFile.h"
#include "chassis/VolatileDB.h"

#include <qz/tavrel/Action.h>
#include <qz/tavrel/NameResolver.h>
#include <qz/tavrel/QZException.h>
#include <qz/tavrel/Resource.h>

#include <dlfcn.h>

#include <utility>

namespace tavrel::tool {

namespace {

/// Stands where an action of the client's own belongs whose class the tool does not have. The tree works
/// without it; running it is refused.
class MissingAction : public qz::tavrel::Action {
public:
    explicit MissingAction(std::string className) : name(std::move(className)) {}

    void execute(qz::tavrel::Component*, int, const void*, unsigned int, void*, unsigned int) override {
        throw Refusal("the action is of class '" + name +
                      "', which this tool does not have; name the library that has it with --classes");
    }

    std::string toString() override { return name; }

private:
    std::string name;
};

} // namespace

ToolFactory::ToolFactory(std::string namesFile, const std::string& classes, std::set<std::string> noActions)
    : names(std::move(namesFile)), services(std::move(noActions)) {
    if (classes.empty()) {
        return;
    }
    // A name without '/' would be searched among the system's libraries.
    const std::string path = classes.find('/') == std::string::npos ? "./" + classes : classes;
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        throw Refusal(std::string("the classes cannot be loaded: ") + dlerror());
    }
    create = reinterpret_cast<Create>(dlsym(library, "tavrel_create_instance"));
    if (create == nullptr) {
        throw Refusal("'" + classes + "' has no function tavrel_create_instance");
    }
}

void* ToolFactory::createInstance(const std::string& name) {
    if (name == "NameResolver") {
        return static_cast<qz::tavrel::NameResolver*>(new chassis::NamesFile(names));
    }
    if (create != nullptr) {
        if (void* own = create(name.c_str())) {
            return own;
        }
    }
    if (name == "VolatileDB") {
        return static_cast<qz::tavrel::Resource*>(new chassis::VolatileDB);
    }
    try {
        return Factory::createInstance(name);
    } catch (const qz::tavrel::TavrelException&) {
        if (services.count(name) != 0) {
            throw;
        }
        return static_cast<qz::tavrel::Action*>(new MissingAction(name));
    }
}

} // namespace tavrel::tool
