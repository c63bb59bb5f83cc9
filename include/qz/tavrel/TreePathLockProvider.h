/// @file
/// The default lock service: locks on whole subtrees, in one table that all processes share.
#pragma once

#include <qz/tavrel/ComponentLockProvider.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

namespace qz::internal {
struct LockTable;
}

namespace qz::tavrel {

/// Where a lock table lives: in System V shared memory with the key 0x540000, or in this process alone.
///
/// Each of the two exists once a process.
/// Threads: one, while a process starts or ends.
class LockMemory {
public:
    /// @param shared  true: shared memory; false: memory of this process
    explicit LockMemory(bool shared);

    /// Detaches from the shared memory, removing it as the last process, and gives the private memory back.
    ~LockMemory();
    LockMemory(const LockMemory&) = delete;
    LockMemory& operator=(const LockMemory&) = delete;

    /// The table of `size` bytes: the one that is there, or a new one of zero bytes if there is none or it
    /// has another size.
    /// @return null if a shared table of another size is in use or the kernel refuses
    void* get(unsigned int size);

    /// True if this process has just come to a shared table that nobody else uses.
    bool isFirstUser();

private:
    bool shared;
};

/// Gives any number of processes and threads read and write locks on components.
///
/// A lock covers the component and its whole subtree. A read lock waits while a write lock stands on the
/// component, above it or beneath it; a write lock waits while any lock stands there; locks in unrelated
/// subtrees never touch. A writer that waits holds back new readers of the components on its path. A lock is
/// taken in one step, never in part, so two paths cannot wait for each other. A holder whose thread has ended
/// is found by the next who asks for any lock, and its lock is taken off the table. Locks are not recursive,
/// and there is no time limit.
///
/// At most 128 locks can be held in the whole tree at once: the root counts each of them, a write lock twice
/// while it is being taken, and a lock on the root itself twice. The one that finds no room ends its process
/// with `abort()`.
///
/// Locks: every operation holds the table's mutex, which all processes share, and gives it up only to sleep.
/// The marked operations are called with it held.
/// Threads: any.
class TreePathLockProvider : public ComponentLockProvider {
public:
    /// What a holder or waiter is marked for.
    enum Kind : std::int32_t {
        readHere = 1,
        writeHere = 2,
        readBeneath = 3,
        writeBeneath = 4,
        waitBeneath = 5
    };

    /// One reason why a component is marked; 8 bytes of the shared table.
    struct LockContext {
        std::int16_t pid; ///< low 16 bits of the process id; 0 in a free entry
        std::int16_t tid; ///< low 16 bits of the thread id
        std::int32_t kind;
    };

    static constexpr int holderCount = 128;

    /// All marks of one component; 1032 bytes of the shared table.
    struct LockRecord {
        std::uint8_t readers;        ///< read locks held on this very component
        std::uint8_t writers;        ///< write locks held on this very component, 0 or 1
        std::uint8_t readersBeneath; ///< read locks held on it or beneath it
        std::uint8_t writersBeneath; ///< write locks held on it or beneath it
        std::uint8_t waitingBeneath; ///< writers waiting on it or beneath it
        std::uint8_t unused[3];
        LockContext holders[holderCount]; ///< used ones first
    };

    /// The way up of a component that this process holds or waits for; private to the process.
    struct LockPath {
        int count = 0;                ///< locks and waits under way
        std::vector<Component*> path; ///< the component first, the root last
    };

    TreePathLockProvider();

    /// Leaves the table; the last process removes it.
    ~TreePathLockProvider() override;

    /// Finds or makes the table: "tavrel.compo.shared" says where, "tavrel.compo.max" for how many
    /// components. Processes that start at the same moment wait for each other here.
    /// @throws TavrelException "lock table is unavailable." if one of another size is in use, the kernel
    ///         refuses, or no table can hold so many components
    void initialize() override;

    /// Waits without limit.
    /// @throws TavrelException "Lack of journal area" if 128 locks are held already; as any other operation
    ///         "lock table is unavailable." if the last `initialize` has failed or there was none
    void readLock(Component* component) override;
    void readUnlock(Component* component) override;

    /// Waits without limit.
    /// @throws TavrelException "Lack of journal area" if 128 locks are held already
    void writeLock(Component* component) override;
    void writeUnlock(Component* component) override;

    /// Prints a line for each lock that is held, always on the standard output.
    void write(std::ostream& stream) override;

    /// Takes all marks off the table and lets those who sleep try again; only for a process that knows that
    /// nobody holds a lock.
    void setup() override;

    // --- the steps ---

    /// The record of a component. @throws TavrelException "invalid component id." if the table has none
    LockRecord* treeLock(Component* component);

    /// Makes mutex and condition variable anew and zeroes all records; the journal stays.
    void initTreePathLockMemory();

    /// True while a writer waits on the component or beneath it. Locks: the mutex is held.
    bool is_wait(Component* component);

    /// Marks or unmarks a waiting writer along the path. Locks: the mutex is held.
    void set_wait(Component* component, bool on);

    /// Tries a read lock. @return true with everything marked. Locks: the mutex is held.
    bool rd_lock(Component* component);

    /// Tries a write lock. @return true with everything marked. Locks: the mutex is held.
    bool wr_lock(Component* component);

    /// Takes the caller's read lock off the table. @return read locks left on the component.
    /// Locks: the mutex is held.
    int rd_unlock(Component* component);

    /// Takes the caller's write lock off the table. @return 0. Locks: the mutex is held.
    int wr_unlock(Component* component);

    /// The same for a holder named by the low 16 bits of its ids.
    int rd_unlock(Component* component, short pid, short tid);
    int wr_unlock(Component* component, short pid, short tid);

    /// Takes the locks of all holders off whose threads have ended. Locks: the mutex is held.
    void recoverLock();

private:
    using Paths = std::map<Component*, LockPath>;
    class PathMemory;

    LockPath& pathOf(Component* component);
    void findWayUp(Component* component, std::vector<Component*>& path);
    const std::vector<Component*>& pathToMark(Component* component);
    const std::vector<Component*>& pathToUnmark(Component* component);
    bool isMarkedAsWaiting(Component* component);
    void openTable(bool shared);
    void takeOverTable();
    void leaveTable();
    void requireTable(const char* function) const;
    void enter(const char* function);
    void takeOver();
    void prepare(Component* component, PathMemory& memory);
    void enterPath(PathMemory& memory);
    void leavePath(Component* component, PathMemory& memory);
    void writeJournal(Component* component, Kind kind);
    void eraseJournal(Component* component);
    void recover(unsigned int journalIndex);

    int maxCount;
    std::unique_ptr<LockMemory> memory;
    internal::LockTable* table;
    bool isShared;
    std::unique_ptr<Paths> paths;
    std::atomic<int> pathsOwner;
    std::atomic<Paths::node_type*> spare;
};

} // namespace qz::tavrel
