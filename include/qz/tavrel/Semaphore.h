/// @file
/// System V semaphores: one set, and a list of sets that acts as one large set.
#pragma once

#include <sys/sem.h>

#include <chrono>
#include <vector>

namespace qz::tavrel {

/// One System V semaphore set, created by the first process and joined by all others.
///
/// A set counts as ready once an operation has been done on it, so nobody uses it before its creator has
/// given it its values. The object is a handle: neither its end nor a copy's changes anything in the kernel.
///
/// Threads: set up by one thread, then `operate` by any.
class Semaphore {
public:
    /// Operations that the kernel does all together or not at all.
    class Buffer {
    public:
        /// Appends one operation.
        /// @param number  semaphore number in the set
        /// @param op      what is added to its value; 0 waits until the value is 0
        /// @param operationFlag  flags of the system, such as SEM_UNDO
        /// @throws TavrelException "buffer overflow." if one call to the kernel takes no more operations
        void add(int number, short op, short operationFlag);

        /// The first record.
        /// @throws std::out_of_range  the buffer is empty
        sembuf* data();

        /// Number of records.
        unsigned int size() const { return static_cast<unsigned int>(records.size()); }

        /// Removes all records.
        void clear() { records.clear(); }

    private:
        std::vector<sembuf> records;
    };

    /// No set yet; one that is created will be open to all users, and created by nobody else at the same
    /// time.
    Semaphore();

    /// As `Semaphore()`, then `initialize(key, values, count)`.
    Semaphore(int key, unsigned short* values, unsigned int count);

    Semaphore(const Semaphore&) = default;
    Semaphore& operator=(const Semaphore&) = default;

    /// Leaves the set in the kernel.
    virtual ~Semaphore();

    /// Sets the flags with which a set is created; before `initialize`.
    /// @param createFlag  as `semget` takes it: IPC_CREAT and so on, and the permission bits
    void setFlag(int createFlag) { flag = createFlag; }

    /// Joins the set of `key`, or creates it.
    ///
    /// One that another process has created but not made ready yet is waited for: up to ten looks, 100 ms
    /// apart. A creator that dies half way leaves a set that nobody can join until somebody removes it.
    /// @param values  start values, one a semaphore, each at most 32767; not looked at when joining
    /// @param count   number of semaphores; not looked at when joining
    /// @throws TavrelException "semget failed." if the set cannot be created, also when another process has
    ///         created it at the same moment; "semctl failed."; "semop failed."; "invalid semid is detected."
    ///         if the set does not become ready
    void initialize(int key, unsigned short* values, unsigned int count);

    /// The limits of the system, fetched once a process; all zero while they cannot be had.
    static seminfo* getInfo();

    /// Does all operations of `buffer`, and waits as long as they cannot be done. A signal does not end the
    /// wait.
    /// @return false if the kernel refuses them
    /// @throws std::out_of_range  `buffer` is empty
    bool operate(Buffer& buffer);

    /// Does one operation; arguments as `Buffer::add`. @return false if the kernel refuses it
    bool operate(int number, short op, short operationFlag);

    /// Removes the set from the kernel, for all processes.
    void remove();

private:
    bool operate(sembuf* records, unsigned int count);

    friend class SemaphoreList;
    friend class SemLockProvider;
    friend class SemRWLock;

    /// How an operation with a time limit has ended.
    enum class Outcome { Done, Refused, TooLate };

    Outcome operateWithin(std::chrono::nanoseconds limit, int number, short op, short operationFlag);

    /// What the loser does when two processes create one set at the same moment.
    enum class Race { Raise, Join };

    void setUp(int key, unsigned short* values, unsigned int count, Race race);
    bool join(int key);
    bool create(int key, const unsigned short* values, unsigned int count, Race race);

    int id;
    int flag;

    static seminfo info;
};

/// Semaphores numbered through over as many sets as the kernel's limit for one set asks for.
///
/// Threads: as `Semaphore`.
class SemaphoreList {
public:
    /// No sets; created as `Semaphore()` says, with keys that follow each other.
    SemaphoreList();

    /// As `SemaphoreList()`, then `initialize(key, values, count)`.
    SemaphoreList(int key, unsigned short* values, unsigned int count);

    SemaphoreList(const SemaphoreList&) = default;
    SemaphoreList& operator=(const SemaphoreList&) = default;

    /// Leaves the sets in the kernel.
    virtual ~SemaphoreList();

    /// Sets the flags with which sets are created, here and in every present set.
    void setFlag(int createFlag);

    /// Sets the distance between the keys of two neighbouring sets.
    void setKeyOffset(unsigned int offset) { keyOffset = offset; }

    /// Joins or creates the sets, each as `Semaphore::initialize` does.
    /// @param key     key of the first set
    /// @param values  start values of all semaphores, each at most 32767
    /// @param count   number of all semaphores
    /// @throws TavrelException "sem is unavailable." if the system's limits cannot be had; what
    ///         `Semaphore::initialize` raises
    void initialize(int key, unsigned short* values, unsigned int count);

    /// Does one operation, as `Semaphore::operate`.
    /// @param number  number of the semaphore, counted through all sets; must be one of them
    /// @return false if the kernel refuses it
    bool operate(int number, short op, short operationFlag);

    /// Removes every set from the kernel.
    void remove();

private:
    friend class SemLockProvider;

    void setUp(int key, unsigned short* values, unsigned int count, Semaphore::Race race);
    Semaphore::Outcome operateWithin(std::chrono::nanoseconds limit, int number, short op,
                                     short operationFlag);

    std::vector<Semaphore> sets;
    int flag;
    unsigned int keyOffset;
};

} // namespace qz::tavrel
