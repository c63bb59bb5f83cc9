#include "ChassisFactory.h"

#include "Actions.h"
#include "GrowingInitializer.h"
#include "NamesFile.h"
#include "VolatileDB.h"

#include <utility>

namespace chassis {

ChassisFactory::ChassisFactory(std::string namesFile) : names(std::move(namesFile)) {}

void* ChassisFactory::createInstance(const std::string& name) {
    if (name == "NameResolver") {
        return static_cast<qz::tavrel::NameResolver*>(new NamesFile(names));
    }
    if (void* own = createChassisInstance(name)) {
        return own;
    }
    return Factory::createInstance(name);
}

// The library takes the untyped pointer for the class that it asked for, so each goes out as that base.
void* createChassisInstance(const std::string& name) {
    if (name == "VolatileDB") {
        return static_cast<qz::tavrel::Resource*>(new VolatileDB);
    }
    if (name == "Initializer") {
        return static_cast<qz::tavrel::Initializer*>(new GrowingInitializer);
    }
    return createAction(name);
}

} // namespace chassis
