#include "base/Fault.h"
#include "base/Trace.h"

#include <qz/tavrel/Action.h>
#include <qz/tavrel/AddComponent.h>
#include <qz/tavrel/BMCRelationalDB.h>
#include <qz/tavrel/ControlTarget.h>
#include <qz/tavrel/Factory.h>
#include <qz/tavrel/Initializer.h>
#include <qz/tavrel/NameResolver.h>
#include <qz/tavrel/PrintMessage.h>
#include <qz/tavrel/PropertyLocator.h>
#include <qz/tavrel/SemLockProvider.h>
#include <qz/tavrel/ShareComponent.h>
#include <qz/tavrel/Sleep.h>
#include <qz/tavrel/Specification.h>
#include <qz/tavrel/TreePathLockProvider.h>

namespace qz::tavrel {

namespace {

/// Makes a `Made` and hands it out as the class that its name is used as.
template <typename Used, typename Made = Used>
void* make() {
    Used* const made = new Made;
    return made;
}

struct Maker {
    const char* name;
    void* (*make)();
};

constexpr Maker makers[] = {
    {"ActionList", make<Action, ActionList>},
    {"AddComponent", make<Action, AddComponent>},
    {"ShareComponent", make<Action, ShareComponent>},
    {"ControlTarget", make<Action, ControlTarget>},
    {"ControlComponents", make<Action, ControlComponents>},
    {"ControlOnComponents", make<Action, ControlOnComponents>},
    {"ControlSubset", make<Action, ControlSubset>},
    {"Sleep", make<Action, Sleep>},
    {"PrintMessage", make<Action, PrintMessage>},
    {"TreePathLockProvider", make<ComponentLockProvider, TreePathLockProvider>},
    {"SemLockProvider", make<ComponentLockProvider, SemLockProvider>},
    {"BMCRelationalDB", make<Resource, BMCRelationalDB>},
    {"PropertyLocator", make<PropertyLocator>},
    {"NameResolver", make<NameResolver>},
    {"Specification", make<Specification>},
    {"Initializer", make<Initializer>},
};

} // namespace

Factory::~Factory() = default;

void* Factory::createInstance(const std::string& name) {
    for (const Maker& maker : makers) {
        if (name == maker.name) {
            return maker.make();
        }
    }
    internal::traceText(internal::point::FactoryUnknownName, name.c_str());
    internal::raise("Factory", "createInstance", "invalid args");
}

} // namespace qz::tavrel
