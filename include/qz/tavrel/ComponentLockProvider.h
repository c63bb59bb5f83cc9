/// @file
/// The lock service of the tree.
#pragma once

#include <qz/tavrel/Configuration.h>
#include <qz/util/config/CppProperties.h>

#include <map>
#include <ostream>
#include <string>

namespace qz::tavrel {

class Component;

/// Gives read and write locks on components; one for the process, which `Component` reaches.
///
/// A lock call that returns has succeeded; it may wait without limit. Calls for one lock are paired by the
/// same thread on the same component. While it runs, a provider may use `Component::getParent`,
/// `getComponentId`, `getRoot`, `getComponent(int)` and `findFeatured`.
/// Threads: the lock calls and `update` from any; the rest belongs to start-up.
class ComponentLockProvider : public EventListener {
public:
    ComponentLockProvider();
    ~ComponentLockProvider() override = 0;
    ComponentLockProvider(const ComponentLockProvider&) = delete;
    ComponentLockProvider& operator=(const ComponentLockProvider&) = delete;

    /// Hears that the tree has been loaded or saved: `configure()` for event 0, nothing for others.
    void update(void* source, int event) override;

    /// Sets one key of the configuration.
    virtual void setConfiguration(const std::string& key, const std::string& value);

    /// Replaces the configuration by a copy.
    virtual void setConfigurations(const util::config::CppProperties& properties);

    /// Makes the service ready, with the configuration as it is by now.
    /// @throws TavrelException  the service cannot be had
    virtual void initialize() = 0;

    /// @throws TavrelException  the lock is not held
    virtual void readLock(Component* component) = 0;
    virtual void readUnlock(Component* component) = 0;

    /// @throws TavrelException  the lock is not held
    virtual void writeLock(Component* component) = 0;
    virtual void writeUnlock(Component* component) = 0;

    /// Prints the state of the service; nothing by default.
    virtual void write(std::ostream& stream);

    /// Resets the shared state of the service; nothing by default.
    virtual void setup();

    /// Rebuilds what the service derives from the shape of the tree; nothing by default.
    virtual void configure();

protected:
    /// What the builder handed over; see `Builder` for the keys.
    util::config::CppProperties configuration;

private:
    std::map<int, int> states;
};

} // namespace qz::tavrel
