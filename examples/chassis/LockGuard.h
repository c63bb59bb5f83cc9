#pragma once

#include <qz/tavrel/Component.h>

namespace chassis {

/// Holds the write lock of a component, and so of its subtree, for a scope.
class [[nodiscard]] WriteLock {
public:
    /// Waits without limit.
    explicit WriteLock(qz::tavrel::Component* locked) : component(locked) { component->writeLock(); }
    ~WriteLock() { component->writeUnlock(); }
    WriteLock(const WriteLock&) = delete;
    WriteLock& operator=(const WriteLock&) = delete;

private:
    qz::tavrel::Component* component;
};

} // namespace chassis
