#include "ToolFactory.h"

#include "Refusal.h"
#include "chassis/NamesFile.h"
#include "chassis/VolatileDB.h"

#include <qz/tavrel/Action.h>
#include <qz/tavrel/NameResolver.h>
#include <qz/tavrel/QZException.h>
#include <qz/tavrel/Resource.h>

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

ToolFactory::ToolFactory(std::string namesFile, const ClassLibrary& classes,
                         std::map<std::string, std::string> services)
    : names(std::move(namesFile)), own(classes), reasons(std::move(services)) {}

void* ToolFactory::createInstance(const std::string& name) {
    if (name == "NameResolver") {
        return static_cast<qz::tavrel::NameResolver*>(new chassis::NamesFile(names));
    }
    if (void* made = own.make(name)) {
        return made;
    }
    if (name == "VolatileDB") {
        return static_cast<qz::tavrel::Resource*>(new chassis::VolatileDB);
    }
    try {
        return Factory::createInstance(name);
    } catch (const qz::tavrel::TavrelException&) {
        const auto reason = reasons.find(name);
        if (reason != reasons.end()) {
            throw Refusal(reason->second);
        }
        return static_cast<qz::tavrel::Action*>(new MissingAction(name));
    }
}

} // namespace tavrel::tool
