#include "base/Fault.h"
#include "base/Guards.h"
#include "base/ThreadIds.h"
#include "base/Trace.h"

#include <qz/tavrel/Component.h>
#include <qz/tavrel/SemLockProvider.h>

#include <algorithm>

namespace qz::tavrel {

namespace point = internal::point;
using internal::MutexGuard;
using internal::raise;
using internal::trace;

namespace {

constexpr const char* fileLabel = "SemLockProvider";
constexpr int setKey = 5610000;
constexpr unsigned int keyOffset = 10000;
constexpr int createFlag = IPC_CREAT | IPC_EXCL | 0666;
constexpr unsigned short startValues[] = {100, 100, 100, 0};
constexpr unsigned int semaphoresOfALock = std::size(startValues);
constexpr int lockableFeature = 1;
constexpr int rootId = 0;
constexpr int rootLockId = 0;

static_assert(createFlag == 1974);

} // namespace

SemLockProvider::SemLockProvider()
    : maxLockCount(500),
      assignmentMutex(PTHREAD_MUTEX_INITIALIZER),
      assignments(2),
      active(0),
      pending(false),
      holdersMutex(PTHREAD_MUTEX_INITIALIZER),
      holdersProcess(internal::processId()) {}

SemLockProvider::~SemLockProvider() {
    pthread_mutex_destroy(&holdersMutex);
    pthread_mutex_destroy(&assignmentMutex);
}

void SemLockProvider::initialize() {
    const unsigned int count = maxLockCount * semaphoresOfALock;
    std::vector<unsigned short> values;
    values.reserve(count);
    while (values.size() < count) {
        values.insert(values.end(), std::begin(startValues), std::end(startValues));
    }
    semaphores.setFlag(createFlag);
    semaphores.setKeyOffset(keyOffset);
    semaphores.setUp(setKey, values.data(), count, Semaphore::Race::Join);

    // The tree is not asked for its root: it may not be loaded yet, and its own lock may not be there.
    const MutexGuard guard(assignmentMutex);
    assignments[static_cast<std::size_t>(active)][rootId] = rootLockId;
}

void SemLockProvider::configure() {
    Component* const root = Component::getRoot();
    std::vector<Component*> lockable;
    root->findFeatured(lockableFeature, lockable, false);
    if (std::find(lockable.begin(), lockable.end(), root) == lockable.end()) {
        lockable.push_back(root);
    }
    if (lockable.size() > maxLockCount) {
        trace(point::SemLockTooMany, lockable.size(), maxLockCount);
        raise(fileLabel, "configure", "lack of semaphore.");
    }
    std::vector<int> ids;
    ids.reserve(lockable.size());
    for (Component* const component : lockable) {
        ids.push_back(component->getComponentId());
    }
    std::sort(ids.begin(), ids.end());
    Assignment prepared;
    int lockId = 0;
    for (const int id : ids) {
        prepared.emplace_hint(prepared.end(), id, lockId++);
    }

    const MutexGuard guard(assignmentMutex);
    const int index = 1 - active;
    assignments[static_cast<std::size_t>(index)].swap(prepared);
    pending = true;
    trace(point::SemLockPrepared, index);
}

void SemLockProvider::getLockIdList(Component* component, std::vector<int>& list) {
    const Assignment& assignment = assignments[static_cast<std::size_t>(active)];
    std::vector<const Component*> way; // ends where stored links form a circle
    for (Component* step = component; step != nullptr && std::find(way.begin(), way.end(), step) == way.end();
         step = step->getParent()) {
        way.push_back(step);
        const auto found = assignment.find(step->getComponentId());
        if (found != assignment.end()) {
            list.push_back(found->second);
        }
    }
}

// --- who holds locks ---

/// A forked child inherits the lists of its parent, but none of its locks. The holders' mutex is held.
void SemLockProvider::forgetParentsLocks() {
    if (holdersProcess != internal::processId()) {
        holdersProcess = internal::processId();
        holders.clear();
        held.clear();
    }
}

void SemLockProvider::startLock() {
    const int tid = internal::threadId();
    const MutexGuard guard(holdersMutex);
    forgetParentsLocks();
    if (holders.empty()) {
        const MutexGuard assignmentGuard(assignmentMutex);
        if (pending) {
            active = 1 - active;
            pending = false;
            trace(point::SemLockSwitched, active.load());
        }
    }
    holders.push_back(tid);
}

void SemLockProvider::endUnlock() {
    const int tid = internal::threadId();
    const MutexGuard guard(holdersMutex);
    holders.remove(tid);
}

/// Takes one lock of this thread back off the list, of one that has not come about.
void SemLockProvider::cancel() {
    const int tid = internal::threadId();
    const MutexGuard guard(holdersMutex);
    const auto last = std::find(holders.rbegin(), holders.rend(), tid);
    if (last != holders.rend()) {
        holders.erase(std::next(last).base());
    }
}

/// Begins a lock. @return the lock ids of its way, the own one first; never empty
std::vector<int> SemLockProvider::begin(Component* component) {
    startLock();
    try {
        std::vector<int> ids;
        getLockIdList(component, ids);
        if (ids.empty() || semaphores.sets.empty()) {
            raise(fileLabel, "begin", "invalid component id.");
        }
        std::list<Held> one{{internal::threadId(), component, ids}};
        const MutexGuard guard(holdersMutex);
        held.splice(held.end(), one);
        return ids;
    } catch (...) {
        cancel();
        throw;
    }
}

/// The lock ids that the lock to be given back was taken from, or else those of the way as it is now.
std::vector<int> SemLockProvider::end(Component* component) {
    const int tid = internal::threadId();
    {
        const MutexGuard guard(holdersMutex);
        forgetParentsLocks();
        const auto last = std::find_if(held.rbegin(), held.rend(), [&](const Held& lock) {
            return lock.tid == tid && lock.component == component;
        });
        if (last != held.rend()) {
            const auto place = std::next(last).base();
            std::vector<int> ids = std::move(place->ids);
            held.erase(place);
            return ids;
        }
    }
    std::vector<int> ids;
    getLockIdList(component, ids);
    return ids;
}

} // namespace qz::tavrel
