#pragma once

#include "lock/Expect.h"
#include "lock/KernelStandIn.h"
#include "lock/TreePathLocks.h"

#include <qz/tavrel/SemLockProvider.h>

#include <functional>
#include <utility>
#include <vector>

namespace tavrel::test {

using qz::tavrel::SemLockProvider;

constexpr int semLockKey = 5610000;
constexpr int marked = 6; ///< the type of components with semaphores of their own
constexpr int allSemaphores = 2000;

/// The values of all semaphores; none if there is no set.
std::vector<unsigned short> semaphoreValues();

/// The values that they start with.
std::vector<unsigned short> startValues();

/// The four semaphores of a lock id.
std::vector<int> valuesOf(int lockId);

/// How many threads wait at a semaphore, for whatever value.
int sleepersAt(int number);

/// How many wait at any of the first 20.
int sleepers();

/// Adds to a semaphore, as another process might; undone at the end of the process.
void change(int number, int op);

/// A machine whose tree is locked through semaphores. Children of the test that are forked from now on use
/// the same tree and the same semaphores.
///
///     root 0 -> upper 1 -> middle -> leaf 2 -> below
///            -> beside 3
///            -> plain
///
/// The numbers are lock ids, in use from the first lock on.
class SemLockedTree {
public:
    SemLockedTree();

    TreeFixture machine;
    SemLockProvider& provider;
    Component* root;
    Component* upper;
    Component* middle;
    Component* leaf;
    Component* below;
    Component* beside;
    Component* plain;

    void lock(LockKind kind, Component* component) {
        kind == LockKind::read ? provider.readLock(component) : provider.writeLock(component);
    }
    void unlock(LockKind kind, Component* component) {
        kind == LockKind::read ? provider.readUnlock(component) : provider.writeUnlock(component);
    }

    std::vector<int> lockIds(Component* component) {
        std::vector<int> ids;
        provider.getLockIdList(component, ids);
        return ids;
    }

    /// Takes the assignment that has been prepared into use.
    void switchAssignment() {
        provider.startLock();
        provider.endUnlock();
    }
};

using Operation = std::pair<int, int>; ///< number and op
using Operations = std::vector<Operation>;

/// Notes all semaphore operations of this process, in their order. `answer` is asked about each, as that of a
/// `KernelStandIn` is; by default the kernel does them.
class OperationLog {
public:
    explicit OperationLog(std::function<int(Operation)> answer = [](Operation) { return 0; });

    Operations done;
    std::vector<long> limits; ///< the milliseconds of those that may wait
    std::vector<long> pauses; ///< in microseconds

    Operations take() { return std::exchange(done, {}); }

private:
    int note(const KernelCall& call);

    std::function<int(Operation)> answer;
    KernelStandIn plain;
    KernelStandIn timed;
    KernelStandIn sleeps;
};

} // namespace tavrel::test
