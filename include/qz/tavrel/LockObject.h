/// @file
/// Reader/writer locks behind one interface, with no knowledge of the tree.
#pragma once

#include <pthread.h>

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

    /// Takes the lock together with other readers; waits as long as a writer holds it.
    virtual void readLock() = 0;

    /// Gives a read lock back.
    virtual void readUnlock() = 0;

    /// Takes the lock alone; waits as long as anybody holds it.
    virtual void writeLock() = 0;

    /// Gives the write lock back.
    virtual void writeUnlock() = 0;

    /// Sets the deadline of all timed operations of the process: a point of time of CLOCK_REALTIME, no
    /// interval.
    static void setTimeoutValue(const timespec* value);

    /// Copies the deadline to `value` unless it is all zero; then `value` stays as it is.
    static void setupTimeoutValue(timespec* value);

private:
    static timespec timeout;
};

/// A process-shared pthread lock in memory that the caller provides.
///
/// It does not survive the death of a holder. The end of this object leaves the lock in its memory.
/// Threads: any, of any process that maps the memory.
class PthreadRWLock : public LockObject {
public:
    /// No lock yet; for a derived class that overrides `rwlock()`.
    PthreadRWLock();

    /// @param memory  `getSize()` bytes that stay where they are, prepared once with `setupInitialValues`
    explicit PthreadRWLock(void* memory);

    ~PthreadRWLock() override;

    /// @throws TavrelException  the system's text, such as that for a deadlock
    void readLock() override;

    /// A failure is traced only.
    void readUnlock() override;

    /// @throws TavrelException  the system's text, such as that for a deadlock
    void writeLock() override;

    /// A failure is traced only.
    void writeUnlock() override;

    /// The lock; all operations reach it through here, so that a derived class can place it elsewhere.
    virtual pthread_rwlock_t* rwlock();

    /// As `readLock`, but waits no longer than to the deadline of `setTimeoutValue`; without one, not at all.
    /// @throws TavrelException  the system's text, such as that for a time-out
    virtual void timedReadLock();

    /// As `writeLock`, but waits no longer than to the deadline of `setTimeoutValue`; without one, not at
    /// all.
    /// @throws TavrelException  the system's text, such as that for a time-out
    virtual void timedWriteLock();

    /// The bytes to reserve for a lock.
    static unsigned int getSize();

    /// Prepares a lock; called once, by whoever creates the memory.
    /// @param memory  `getSize()` bytes, aligned for a `pthread_rwlock_t`
    /// @return 0, or an error number of the system
    static int setupInitialValues(void* memory);

private:
    pthread_rwlock_t* lock;
};

/// A lock between processes on a pair of semaphores; the kernel gives back what a dead process held.
///
/// At most 100 readers hold it at a time. A writer that waits holds back new readers. A semaphore operation
/// that the kernel refuses is traced and otherwise taken as done.
/// Threads: any, of any process; not re-entrant.
class SemRWLock : public LockObject {
public:
    /// The semaphores of a lock.
    enum access_t {
        places = 0,       ///< free places: a reader takes one, a writer all of them
        announcement = 1, ///< writers on their way; readers wait for 0
    };

    /// A lock on the semaphores `number` and `number` + 1 of the set of all these locks.
    /// @param number  2 * k for the k-th lock, counted from 0
    explicit SemRWLock(int number);

    ~SemRWLock() override;

    void readLock() override;
    void readUnlock() override;
    void writeLock() override;
    void writeUnlock() override;

    /// Creates the set for `count` locks, or joins the one that is there, whatever its count; once a process,
    /// before the first lock is taken. Any number of processes may do so at the same moment.
    /// @throws TavrelException "lack of semaphore." if the system has no sets of this size; what
    ///         `Semaphore::initialize` raises, but for a set that another process has created meanwhile
    static void initialize(unsigned int count);

    /// Does one operation on a semaphore of this lock, to be undone by the kernel if the process dies.
    /// @return false if the kernel refuses it
    bool operate(access_t access, short op);

private:
    int number;

    static Semaphore sem;
};

/// Lets a thread take another lock more than once: only its outermost calls go through.
///
/// A read lock within a write lock costs nothing. There is no upgrade: a write lock within a read lock waits
/// for that read lock, for ever. A lock call that fails raises; an unlock call that fails does not.
/// Threads: any. A private mutex is held for a look at the counts, never across a call of the other lock.
class RecursiveLockAdapter : public LockObject {
public:
    /// @param lock  does the work; not owned
    explicit RecursiveLockAdapter(LockObject* lock);

    ~RecursiveLockAdapter() override;

    /// @throws TavrelException  what the other lock raises; the caller's count is then as it was
    void readLock() override;

    void readUnlock() override;

    /// @throws TavrelException  what the other lock raises; the caller's count is then as it was
    void writeLock() override;

    void writeUnlock() override;

    /// Goes on with another lock; the counts stay.
    void setLockObject(LockObject* other) { lock = other; }

    /// The lock that does the work.
    LockObject* getLockObject() { return lock; }

private:
    using Depths = std::map<int, int>;

    int& depth(Depths& depths);

    LockObject* lock;
    Depths readers;
    Depths writers;
    pthread_mutex_t mutex;
};

} // namespace qz::tavrel
