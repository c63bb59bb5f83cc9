#include "base/Decimal.h"
#include "base/Fault.h"
#include "base/ThreadIds.h"
#include "base/Trace.h"
#include "lock/HolderLife.h"
#include "lock/LockStart.h"
#include "lock/LockTable.h"
#include "lock/LockWait.h"

#include <qz/base/SemaphoreLock.h>
#include <qz/tavrel/Component.h>
#include <qz/tavrel/TreePath.h>
#include <qz/tavrel/TreePathLockProvider.h>

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>

namespace qz::tavrel {

namespace point = internal::point;
using internal::JournalEntry;
using internal::LockTable;
using internal::TableGuard;
using internal::trace;

namespace {

constexpr const char* fileLabel = "TreePathLockProvider";

/// How long a start waits for the last of a killed process: 2 s at most.
constexpr int looksForTheDying = 400;
constexpr useconds_t microsecondsBetweenLooks = 5000;

/// In bytes.
std::uint64_t tableSize(int maxCount) {
    return static_cast<std::uint64_t>(maxCount) * sizeof(internal::LockRecord) + LockTable::recordsOffset();
}

void initMutexAndCondition(LockTable& table) {
    pthread_mutexattr_t mutexShared;
    pthread_mutexattr_init(&mutexShared);
    pthread_mutexattr_setpshared(&mutexShared, PTHREAD_PROCESS_SHARED);
    pthread_mutex_init(&table.mutex, &mutexShared);
    pthread_mutexattr_destroy(&mutexShared);

    internal::makeAnew(table.condition);
}

} // namespace

TreePathLockProvider::TreePathLockProvider()
    : maxCount(0),
      table(nullptr),
      isShared(false),
      paths(std::make_unique<Paths>()),
      pathsOwner(internal::processId()),
      spare(nullptr) {}

TreePathLockProvider::~TreePathLockProvider() {
    leaveTable();
    delete spare.load();
    if (pathsOwner != internal::processId()) {
        static_cast<void>(paths.release()); // of the parent, and perhaps half changed
    }
}

// --- the table ---

/// Others are kept off while this process may be the last to leave: nobody attaches to what is being removed.
void TreePathLockProvider::leaveTable() {
    if (memory == nullptr) {
        return;
    }
    std::optional<SemaphoreLock> guard;
    try {
        guard.emplace(internal::lockStartName, 0);
    } catch (...) { // NOLINT(bugprone-empty-catch): leaving has to go on
    }
    table = nullptr;
    memory.reset();
}

void TreePathLockProvider::initialize() {
    internal::readIdLimit();
    const bool shared = configuration.getProperty("tavrel.compo.shared") == "enable";
    maxCount = internal::decimal(configuration.getProperty("tavrel.compo.max"));
    if (!shared) {
        leaveTable();
        openTable(shared);
        return;
    }
    try {
        const SemaphoreLock guard(internal::lockStartName, 0);
        openTable(shared);
    } catch (const std::system_error& refused) {
        internal::raise(fileLabel, "initialize", refused.code().value());
    }
}

/// Finds the table, or sets it up. A shared one: no other process does so at the same time.
void TreePathLockProvider::openTable(bool shared) {
    const std::uint64_t size = tableSize(maxCount);
    table = nullptr;
    memory.reset();
    memory = std::make_unique<LockMemory>(shared);
    isShared = shared;
    table = maxCount < 0 || size > std::numeric_limits<unsigned int>::max()
                ? nullptr
                : static_cast<LockTable*>(memory->get(static_cast<unsigned int>(size)));
    if (table == nullptr) {
        internal::raise(fileLabel, "initialize", "lock table is unavailable.");
    }
    if (table->magic == internal::lockTableMagic) {
        takeOverTable();
        return;
    }
    std::memset(table->journal, 0, sizeof table->journal);
    initTreePathLockMemory();
    // Last: a process that dies before this leaves a table without the magic, which the next one sets up from
    // the start.
    __atomic_store_n(&table->magic, internal::lockTableMagic, __ATOMIC_RELEASE);
}

/// Uses a ready table as it stands. If no other process is attached, a mutex that is locked was left so by
/// one that was killed inside it, and its call was cut in two: the mutex is made anew, and the records, which
/// it guarded, are emptied.
void TreePathLockProvider::takeOverTable() {
    bool isFree = internal::isFree(table->mutex);
    // A killed process stays attached until the kernel has taken its memory down.
    for (int looks = 0; !isFree && !memory->isFirstUser() && looks < looksForTheDying; ++looks) {
        usleep(microsecondsBetweenLooks);
        isFree = internal::isFree(table->mutex);
    }
    if (isFree || !memory->isFirstUser()) {
        return;
    }
    // dies here: a table without the magic
    __atomic_store_n(&table->magic, 0, __ATOMIC_RELEASE);
    initTreePathLockMemory();
    __atomic_store_n(&table->magic, internal::lockTableMagic, __ATOMIC_RELEASE);
}

void TreePathLockProvider::initTreePathLockMemory() {
    requireTable("initTreePathLockMemory");
    // Those who sleep are let go last: they find no marks.
    std::memset(table->records(), 0, static_cast<std::size_t>(maxCount) * sizeof(LockRecord));
    initMutexAndCondition(*table);
}

void TreePathLockProvider::setup() {
    enter("setup");
    initTreePathLockMemory();
    internal::wakeSleepers(table->condition);
}

TreePathLockProvider::LockRecord* TreePathLockProvider::treeLock(Component* component) {
    requireTable("treeLock");
    const int id = component->getComponentId();
    if (id < 0 || id >= maxCount) {
        internal::raise(fileLabel, "treeLock", "invalid component id.");
    }
    return table->records() + id;
}

void TreePathLockProvider::write(std::ostream&) {
    enter("write");
    JournalEntry journal[internal::journalSize];
    {
        const TableGuard guard(table->mutex);
        std::memcpy(journal, table->journal, sizeof journal);
    }
    // Printing may take its time, and so may the question who lives: nobody waits for either.
    for (const JournalEntry& entry : journal) {
        if (entry.inUse == 0) {
            continue;
        }
        const char* const name = entry.kind == readHere    ? "ReadLock "
                                 : entry.kind == writeHere ? "WriteLock"
                                                           : "NOP";
        std::printf("[oid:%5d] is in %s by pid=%5d tid=%5d. %s\n", entry.componentId, name, entry.pid,
                    entry.tid, internal::holderLives(entry.pid, entry.tid) ? "" : "(Not Found)");
    }
}

/// @throws TavrelException  there is no table
void TreePathLockProvider::requireTable(const char* function) const {
    if (table == nullptr) {
        internal::raise(fileLabel, function, "lock table is unavailable.");
    }
}

/// Called by every operation before it takes the mutex.
void TreePathLockProvider::enter(const char* function) {
    requireTable(function);
    if (pathsOwner.load(std::memory_order_acquire) != internal::processId()) {
        takeOver();
    }
}

/// Lets a forked child begin with no paths, as it holds no lock. Those of its parent are left as they are,
/// since the fork may have come in the middle of a change. A private table is a copy, and begins anew as
/// well.
void TreePathLockProvider::takeOver() {
    const int process = internal::processId();
    const int underWay = -process;
    int owner = pathsOwner.load(std::memory_order_acquire);
    while (owner != process) {
        if (owner != underWay && pathsOwner.compare_exchange_strong(owner, underWay)) {
            static_cast<void>(paths.release());
            paths = std::make_unique<Paths>();
            if (!isShared) {
                std::memset(table->journal, 0, sizeof table->journal);
                initTreePathLockMemory();
            }
            pathsOwner.store(process, std::memory_order_release);
            return;
        }
        sched_yield();
        owner = pathsOwner.load(std::memory_order_acquire);
    }
}

// --- paths of this process ---

namespace {

/// Collects the components on the way to one, root first.
class PathCollector : public TreePath {
public:
    explicit PathCollector(std::vector<Component*>& path) : found(path) {}
    using TreePath::add;
    void add(Component* step) override { found.push_back(step); }

private:
    std::vector<Component*>& found;
};

} // namespace

/// The memory of one entry outside the map. One at a time is kept in the provider, where any thread takes it
/// without a lock, so that neither work nor allocation is done with the mutex held. It outlives the guard.
class TreePathLockProvider::PathMemory {
public:
    explicit PathMemory(std::atomic<Paths::node_type*>& slot) : home(slot), held(home.exchange(nullptr)) {
        if (held == nullptr) {
            held = std::make_unique<Paths::node_type>();
        }
    }
    ~PathMemory() { const std::unique_ptr<Paths::node_type> other(home.exchange(held.release())); }
    PathMemory(const PathMemory&) = delete;
    PathMemory& operator=(const PathMemory&) = delete;

    /// An entry for `component`, to be filled.
    LockPath& entryFor(Component* component) {
        if (held->empty()) {
            Paths single;
            single[component];
            *held = single.extract(single.begin());
        }
        held->key() = component;
        held->mapped().count = 0;
        return held->mapped();
    }

    Paths::node_type take() { return std::move(*held); }

    void keep(Paths::node_type entry) { (held->empty() ? *held : surplus) = std::move(entry); }

private:
    std::atomic<Paths::node_type*>& home;
    std::unique_ptr<Paths::node_type> held;
    Paths::node_type surplus;
};

/// The entry of a component, made for a step that is called by itself.
TreePathLockProvider::LockPath& TreePathLockProvider::pathOf(Component* component) {
    return (*paths)[component];
}

/// Works out the component, its parent and so on up to the root.
/// @throws TavrelException  the table has no record for one of them; `path` is then empty
void TreePathLockProvider::findWayUp(Component* component, std::vector<Component*>& path) {
    path.clear();
    try {
        PathCollector collector(path);
        component->getTreePath(collector);
        std::reverse(path.begin(), path.end());
        for (auto step = path.begin(); step != path.end(); ++step) {
            if (std::find(path.begin(), step, *step) != step) {
                path.erase(step, path.end()); // stored links that form a circle
                break;
            }
            treeLock(*step);
        }
    } catch (...) {
        path.clear();
        throw;
    }
}

/// The way up as this process has noted it; worked out for a step that is called by itself.
const std::vector<Component*>& TreePathLockProvider::pathToMark(Component* component) {
    LockPath& way = pathOf(component);
    if (way.path.empty()) {
        findWayUp(component, way.path);
    }
    return way.path;
}

/// The way up as it was noted when the lock was taken; empty when none was.
const std::vector<Component*>& TreePathLockProvider::pathToUnmark(Component* component) {
    return pathOf(component).path;
}

/// Works the way up out for a lock or wait that is to be counted. Takes the tree's lock of this process, so
/// the mutex is best not held.
void TreePathLockProvider::prepare(Component* component, PathMemory& way) {
    findWayUp(component, way.entryFor(component).path);
}

/// Counts a lock or wait of this process; the first one brings the way up that was prepared.
void TreePathLockProvider::enterPath(PathMemory& way) {
    auto result = paths->insert(way.take());
    LockPath& entry = result.position->second;
    if (!result.inserted) {
        if (entry.count == 0) {
            entry.path.swap(result.node.mapped().path);
        }
        way.keep(std::move(result.node));
    }
    ++entry.count;
}

/// The entry left last is kept with its memory.
void TreePathLockProvider::leavePath(Component* component, PathMemory& way) {
    const auto entry = paths->find(component);
    if (entry != paths->end() && --entry->second.count <= 0) {
        way.keep(paths->extract(entry));
    }
}

// --- lock and unlock ---

void TreePathLockProvider::readLock(Component* component) {
    enter("readLock");
    Component::getRoot(); // brings the tree up to date before the mutex is taken
    PathMemory way(spare);
    prepare(component, way);
    const TableGuard guard(table->mutex);
    recoverLock();
    enterPath(way);
    while (is_wait(component) || !rd_lock(component)) {
        internal::sleepOn(table->condition, table->mutex);
        trace(point::ReaderWoke, component->getComponentId(), 0);
    }
    // A process that dies from here to the end of the journal entry leaves the mutex locked.
    writeJournal(component, readHere);
}

void TreePathLockProvider::writeLock(Component* component) {
    enter("writeLock");
    Component::getRoot();
    PathMemory way(spare);
    prepare(component, way);
    const TableGuard guard(table->mutex);
    recoverLock();
    enterPath(way);
    set_wait(component, true);
    while (!wr_lock(component)) {
        // A process that dies while it sleeps here leaves its waiting marks: readers on its path wait from
        // then on.
        internal::sleepOn(table->condition, table->mutex);
        trace(point::WriterWoke, component->getComponentId(), 0);
        if (!isMarkedAsWaiting(component)) {
            set_wait(component, true); // `setup` has taken the marks off
        }
    }
    set_wait(component, false);
    writeJournal(component, writeHere);
}

void TreePathLockProvider::readUnlock(Component* component) {
    enter("readUnlock");
    PathMemory way(spare);
    const TableGuard guard(table->mutex);
    if (rd_unlock(component) == 0) {
        internal::wakeAll(table->condition);
        trace(point::LastReaderLeft, component->getComponentId(), 0);
    }
    leavePath(component, way);
    eraseJournal(component);
}

void TreePathLockProvider::writeUnlock(Component* component) {
    enter("writeUnlock");
    PathMemory way(spare);
    const TableGuard guard(table->mutex);
    if (wr_unlock(component) == 0) {
        internal::wakeAll(table->condition);
        trace(point::WriterLeft, component->getComponentId(), 0);
    }
    leavePath(component, way);
    eraseJournal(component);
}

// --- the journal ---

void TreePathLockProvider::writeJournal(Component* component, Kind kind) {
    for (JournalEntry& entry : table->journal) {
        if (entry.inUse == 0) {
            entry.kind = static_cast<std::uint8_t>(kind);
            entry.tid = static_cast<std::int16_t>(internal::threadId());
            entry.pid = internal::processId();
            entry.componentId = component->getComponentId();
            __atomic_store_n(&entry.inUse, std::uint8_t{1}, __ATOMIC_RELEASE);
            return;
        }
    }
    trace(point::JournalFull);
    internal::raise("ComponentLockProvider", "write", "Lack of journal area");
}

void TreePathLockProvider::eraseJournal(Component* component) {
    const auto caller = static_cast<std::int16_t>(internal::threadId());
    const int process = internal::processId();
    const int id = component->getComponentId();
    for (JournalEntry& entry : table->journal) {
        // The process is compared as well, since threads of two can have the same 16 bits.
        if (entry.tid == caller && entry.componentId == id && entry.inUse != 0 && entry.pid == process) {
            entry.inUse = 0;
            return;
        }
    }
    trace(point::UnlockNoJournal, id, 0);
}

void TreePathLockProvider::recoverLock() {
    requireTable("recoverLock");
    unsigned int dead[internal::journalSize];
    unsigned int count = 0;
    for (unsigned int i = 0; i < internal::journalSize; ++i) {
        const JournalEntry& entry = table->journal[i];
        if (entry.inUse != 0 && !internal::holderLives(entry.pid, entry.tid)) {
            trace(point::HolderDead, entry.componentId, entry.kind, entry.pid, entry.tid);
            dead[count++] = i;
        }
    }
    for (unsigned int i = 0; i < count; ++i) {
        try {
            recover(dead[i]);
        } catch (const TavrelException&) { // NOLINT(bugprone-empty-catch)
            // A component that this process has no place for: left to one that has.
        }
    }
}

/// Takes one dead holder's lock off the table.
void TreePathLockProvider::recover(unsigned int journalIndex) {
    JournalEntry& entry = table->journal[journalIndex];
    if (entry.componentId >= 0 && entry.componentId < maxCount) {
        Component* const component = Component::getComponent(entry.componentId);
        PathMemory way(spare);
        prepare(component, way);
        enterPath(way);
        const auto pid = static_cast<short>(entry.pid);
        const int left = entry.kind == readHere    ? rd_unlock(component, pid, entry.tid)
                         : entry.kind == writeHere ? wr_unlock(component, pid, entry.tid)
                                                   : -1;
        leavePath(component, way);
        if (left == 0) {
            internal::wakeAll(table->condition);
        }
        trace(point::HolderRecovered, entry.componentId, entry.kind);
    }
    entry.inUse = 0;
}

} // namespace qz::tavrel
