/// @file
/// Reader/writer locks behind one interface, with no knowledge of the tree.
#pragma once

#include <ctime>
#include <map>

namespace qz::tavrel {

class Semaphore;

/// A plain reader/writer lock.
class LockObject {
public:
    LockObject() = default;
    virtual ~LockObject();
    LockObject(const LockObject&) = delete;
    LockObject& operator=(const LockObject&) = delete;

    virtual void readLock() = 0;
    virtual void readUnlock() = 0;
    virtual void writeLock() = 0;
    virtual void writeUnlock() = 0;

    /// Sets the deadline of all timed operations of the process: a point of time of CLOCK_REALTIME, no
    /// interval.
    static void setTimeoutValue(const timespec* value);

    /// Copies the deadline to `value` unless it is all zero; then `value` stays as it is.
    static void setupTimeoutValue(timespec* value);

private:
    static timespec timeout;
};

} // namespace qz::tavrel
