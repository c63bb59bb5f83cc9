#include "base/Trace.h"
#include "tree/RefreshLevel.h"
#include "tree/TreeSections.h"

#include <qz/tavrel/Component.h>
#include <qz/tavrel/ComponentLockProvider.h>
#include <qz/tavrel/GuardSection.h>
#include <qz/tavrel/QZException.h>
#include <qz/tavrel/TreeConfig.h>

namespace qz::tavrel {

namespace point = internal::point;
using internal::trace;

void Component::readLock() {
    refresh(internal::refreshLock);
    trace(point::ComponentReadLock, id, 0);
    try {
        provider->readLock(this);
    } catch (const TavrelException&) {
        trace(point::ComponentReadLockFailed, id, 0);
        throw;
    }
    ++readLockCount;
    trace(point::ComponentReadLocked, id, 0);
}

void Component::readUnlock() {
    trace(point::ComponentReadUnlock, id, 0);
    try {
        provider->readUnlock(this);
        --readLockCount;
        trace(point::ComponentReadUnlocked, id, 0);
    } catch (...) {
        trace(point::ComponentReadUnlockFailed, id, 0);
    }
    refreshGuard.set(internal::refreshLeave);
}

void Component::writeLock() {
    refresh(internal::refreshLock);
    trace(point::ComponentWriteLock, id, 0);
    try {
        provider->writeLock(this);
    } catch (const TavrelException&) {
        trace(point::ComponentWriteLockFailed, id, 0);
        throw;
    }
    ++writeLockCount;
    trace(point::ComponentWriteLocked, id, 0);
    if (this == getRoot()) {
        openTree();
    }
}

/// Opens the write section that a write lock on the root keeps until `writeUnlock`.
void Component::openTree() {
    if (config != nullptr) {
        config->writeLock();
        try {
            config->lock();
        } catch (...) {
            config->writeUnlock();
            throw;
        }
    }
    trace(point::ComponentTreeLocked, id, 0);
}

void Component::closeTree() {
    if (config != nullptr) {
        try {
            config->unlock();
        } catch (...) {
            // The lock between processes is free all the same; what was not saved has been traced.
            trace(point::ComponentWriteUnlockFailed, id, 0);
        }
        config->writeUnlock();
    }
    trace(point::ComponentTreeUnlocked, id, 0);
}

void Component::writeUnlock() {
    if (isRoot()) {
        closeTree();
    }
    trace(point::ComponentWriteUnlock, id, 0);
    try {
        provider->writeUnlock(this);
        --writeLockCount;
        trace(point::ComponentWriteUnlocked, id, 0);
    } catch (...) {
        trace(point::ComponentWriteUnlockFailed, id, 0);
    }
    refreshGuard.set(internal::refreshLeave);
}

/// Compares with the root; a failing refresh on the way is no reason to keep a lock.
bool Component::isRoot() {
    try {
        return this == getRoot();
    } catch (...) {
        return id == 0;
    }
}

} // namespace qz::tavrel
