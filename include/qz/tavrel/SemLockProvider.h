/// @file
/// The other lock service: locks on marked subtrees, kept in semaphores that the kernel cleans up.
#pragma once

#include <qz/tavrel/ComponentLockProvider.h>
#include <qz/tavrel/Semaphore.h>

#include <pthread.h>

#include <atomic>
#include <list>
#include <map>
#include <vector>

namespace qz::tavrel {

/// Gives any number of processes and threads read and write locks on components, in System V semaphores.
///
/// Only the root and the components whose class has feature 1 have semaphores; a lock on any other component
/// is one on the nearest of these above it. A lock covers the component and its whole subtree: a read lock
/// waits while a write lock stands there, above or beneath; a write lock waits while any lock stands there.
/// A writer on its way holds back new readers of the components on its path. Every operation is undone by the
/// kernel when its process dies, also in the middle of a call, so nothing has to be recovered. Two calls that
/// wait for each other are told apart by time: one that has waited 200 ms gives back what it has taken and
/// begins again. Locks are not recursive, and there is no time limit. At most 100 readers hold a lock on one
/// component or beneath it at a time.
///
/// Which semaphores a component has follows the shape of the tree. A new shape is prepared by `configure()`
/// and taken into use when no lock of this process is held or under way; a lock is given back to the
/// semaphores that it was taken from, whatever has become of the tree. Processes that have not yet seen the
/// same tree may lock one component with different semaphores.
///
/// A semaphore operation that the kernel refuses is traced and otherwise taken as done.
///
/// Locks: two mutexes of this process, never held across a semaphore operation or a look at the tree.
/// Threads: any.
class SemLockProvider : public ComponentLockProvider {
public:
    /// The semaphores of a lock id.
    enum access_t {
        thisNode = 0,       ///< 100 places: a reader of this node holds one, a writer all
        subtreeReaders = 1, ///< 100 places: a reader here or beneath holds one, a writer passes with all
        gate = 2, ///< 100 places: who starts a lock passes with all; a writer here or beneath holds one
        announcement = 3, ///< writers on their way, here or beneath; readers wait for 0
    };

    /// For at most 500 components with semaphores, the root among them.
    SemLockProvider();

    /// Leaves the semaphores in the system.
    ~SemLockProvider() override;

    /// Creates the semaphores or joins those that are there; any number of processes may do so at the same
    /// moment. Until the first `configure()` all locks are locks on the root.
    /// @throws TavrelException  what `SemaphoreList::initialize` raises, but for a set that another process
    ///         has created meanwhile
    void initialize() override;

    /// Waits without limit.
    /// @throws TavrelException "invalid component id." for null, a component outside the tree, or before
    ///         `initialize`; what the look at the tree raises. Nothing is held then.
    void readLock(Component* component) override;
    void readUnlock(Component* component) override;

    /// Waits without limit.
    /// @throws TavrelException  as `readLock`
    void writeLock(Component* component) override;
    void writeUnlock(Component* component) override;

    /// Prepares semaphores for the components that have feature 1 by now, and the root, in the order of their
    /// ids.
    /// @throws TavrelException "lack of semaphore." for more than 500; the present assignment stays
    void configure() override;

    // --- the steps ---

    /// Number of a semaphore. @param id  lock id
    int getSemNum(int id, access_t access);

    /// Does one operation, to be undone by the kernel if the process dies; waits as long as it cannot be
    /// done.
    /// @param id  lock id
    /// @return false if the kernel refuses it
    bool operate(int id, access_t access, short op);

    /// Appends the lock ids on the way to the root, that of `component` or its nearest ancestor with one
    /// first; none for null.
    /// Locks: as `Component::getParent`.
    void getLockIdList(Component* component, std::vector<int>& list);

    /// Notes that the calling thread begins a lock, and takes a prepared assignment into use if it is the
    /// only one.
    void startLock();

    /// Notes that the calling thread holds no lock any more, however many it has begun.
    void endUnlock();

private:
    using Assignment = std::map<int, int>;

    /// One step of a lock.
    struct Step {
        int id;
        access_t access;
        short op;
    };

    /// A lock held by a thread of this process, and what it was taken from.
    struct Held {
        int tid;
        Component* component;
        std::vector<int> ids;
    };

    using Steps = std::vector<Step>;

    std::vector<int> begin(Component* component);
    std::vector<int> end(Component* component);
    void cancel();
    void forgetParentsLocks();
    void lock(const Steps& taking, const Steps& finishing);
    bool tryAll(const Steps& taking, Steps& taken);
    void operateAll(const Steps& steps);

    SemaphoreList semaphores;
    unsigned int maxLockCount;
    pthread_mutex_t assignmentMutex;
    std::vector<Assignment> assignments; ///< two, from component id to lock id
    std::atomic<int> active;             ///< the one in use, 0 or 1
    bool pending;                        ///< the other one is to be taken into use
    pthread_mutex_t holdersMutex;
    std::list<int> holders; ///< a thread id for each lock under way or held
    std::list<Held> held;
    int holdersProcess; ///< a forked child inherits the lists, but no lock
};

} // namespace qz::tavrel
