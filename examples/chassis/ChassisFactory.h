#pragma once

#include <qz/tavrel/Factory.h>

#include <string>

namespace chassis {

/// Makes the client's own classes by name, and leaves the library's to the library.
class ChassisFactory : public qz::tavrel::Factory {
public:
    /// @param namesFile  path of the names file
    explicit ChassisFactory(std::string namesFile);

    /// @throws std::runtime_error  the names file cannot be read
    /// @throws TavrelException "invalid args" for a name that nobody knows
    void* createInstance(const std::string& name) override;

private:
    std::string names;
};

/// What the machine adds to the library, without the names: its actions, its initializer and "VolatileDB".
/// Null for any other name.
void* createChassisInstance(const std::string& name);

} // namespace chassis
