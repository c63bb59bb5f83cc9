#include "base/Fault.h"
#include "base/Trace.h"

#include <qz/tavrel/LockObject.h>

namespace qz::tavrel {

namespace point = internal::point;

namespace {

constexpr const char* fileLabel = "PthreadRWLock";

timespec deadline() {
    timespec value{};
    LockObject::setupTimeoutValue(&value);
    return value;
}

/// Raises what a lock operation answers, unless that is 0.
void check(int errnum, const internal::TracePoint& failed, const char* function,
           int line = __builtin_LINE()) {
    if (errnum != 0) {
        internal::trace(failed, errnum);
        internal::raise(fileLabel, function, errnum, line);
    }
}

void traceUnlock(int errnum, const internal::TracePoint& failed) {
    if (errnum != 0) {
        internal::trace(failed, errnum);
    }
}

} // namespace

PthreadRWLock::PthreadRWLock() : lock(nullptr) {}

PthreadRWLock::PthreadRWLock(void* memory) : lock(static_cast<pthread_rwlock_t*>(memory)) {}

PthreadRWLock::~PthreadRWLock() = default;

void PthreadRWLock::readLock() {
    check(pthread_rwlock_rdlock(rwlock()), point::RwlockReadLockFailed, "readLock");
}

void PthreadRWLock::readUnlock() {
    traceUnlock(pthread_rwlock_unlock(rwlock()), point::RwlockReadUnlockFailed);
}

void PthreadRWLock::writeLock() {
    check(pthread_rwlock_wrlock(rwlock()), point::RwlockWriteLockFailed, "writeLock");
}

void PthreadRWLock::writeUnlock() {
    traceUnlock(pthread_rwlock_unlock(rwlock()), point::RwlockWriteUnlockFailed);
}

pthread_rwlock_t* PthreadRWLock::rwlock() {
    return lock;
}

void PthreadRWLock::timedReadLock() {
    const timespec until = deadline();
    check(pthread_rwlock_timedrdlock(rwlock(), &until), point::RwlockTimedReadLockFailed, "timedReadLock");
}

void PthreadRWLock::timedWriteLock() {
    const timespec until = deadline();
    check(pthread_rwlock_timedwrlock(rwlock(), &until), point::RwlockTimedWriteLockFailed, "timedWriteLock");
}

unsigned int PthreadRWLock::getSize() {
    return sizeof(pthread_rwlock_t);
}

int PthreadRWLock::setupInitialValues(void* memory) {
    pthread_rwlockattr_t attributes;
    pthread_rwlockattr_init(&attributes);
    pthread_rwlockattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    const int result = pthread_rwlock_init(static_cast<pthread_rwlock_t*>(memory), &attributes);
    pthread_rwlockattr_destroy(&attributes);
    return result;
}

} // namespace qz::tavrel
