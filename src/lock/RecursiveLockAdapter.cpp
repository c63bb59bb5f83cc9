#include "base/Guards.h"
#include "base/ThreadIds.h"

#include <qz/tavrel/LockObject.h>
#include <qz/tavrel/QZException.h>

namespace qz::tavrel {

RecursiveLockAdapter::RecursiveLockAdapter(LockObject* wrapped)
    : lock(wrapped), mutex(PTHREAD_MUTEX_INITIALIZER) {}

RecursiveLockAdapter::~RecursiveLockAdapter() {
    pthread_mutex_destroy(&mutex);
}

/// The caller's count. The mutex guards the look-up alone: an entry stays where it is, and only its own
/// thread touches it.
int& RecursiveLockAdapter::depth(Depths& depths) {
    const internal::MutexGuard guard(mutex);
    return depths[internal::threadId()];
}

void RecursiveLockAdapter::readLock() {
    int& reads = depth(readers);
    if (++reads != 1) {
        return;
    }
    try {
        lock->readLock();
    } catch (...) {
        --reads;
        throw;
    }
}

void RecursiveLockAdapter::readUnlock() {
    int& reads = depth(readers);
    if (--reads != 0) {
        return;
    }
    try {
        lock->readUnlock();
    } catch (const TavrelException&) {
        ++reads;
    }
}

void RecursiveLockAdapter::writeLock() {
    int& writes = depth(writers);
    // Both counts are there before the lock is taken: nothing can fail after that.
    int& reads = depth(readers);
    if (++writes != 1) {
        return;
    }
    try {
        lock->writeLock();
    } catch (...) {
        --writes;
        throw;
    }
    // From here on a read lock of this thread is only counted.
    ++reads;
}

void RecursiveLockAdapter::writeUnlock() {
    int& writes = depth(writers);
    if (--writes != 0) {
        return;
    }
    try {
        lock->writeUnlock();
    } catch (const TavrelException&) {
        ++writes;
        return;
    }
    --depth(readers);
}

} // namespace qz::tavrel
