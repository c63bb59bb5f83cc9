// The classes of the sample machine for the tool tavrel: `tavrel --classes libchassis-classes.so ...`.

#include "ChassisFactory.h"

/// Makes an object by class name, converted to `void*` as `Factory::createInstance` does; null for a name
/// that is not of this machine.
extern "C" void* tavrel_create_instance(const char* name) {
    return chassis::createChassisInstance(name);
}
