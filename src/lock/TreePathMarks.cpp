#include "base/ThreadIds.h"
#include "base/Trace.h"
#include "lock/LockTable.h"

#include <qz/tavrel/Component.h>
#include <qz/tavrel/TreePathLockProvider.h>

#include <algorithm>
#include <cstdlib>

namespace qz::tavrel {

namespace point = internal::point;
using internal::LockContext;
using internal::LockRecord;
using internal::trace;
using internal::TracePoint;

namespace {

using Kind = TreePathLockProvider::Kind;

/// The process id of a holder. 0 stands for a free entry, so a process whose id ends in 16 zero bits counts
/// as 1.
std::int16_t holderPid(short pid) {
    return pid == 0 ? std::int16_t{1} : pid;
}

short callerPid() {
    return static_cast<short>(internal::processId());
}

short callerTid() {
    return static_cast<short>(internal::threadId());
}

/// One past the last used holder: free ones are all at the end.
LockContext* endOf(LockRecord& record) {
    return std::find_if(std::begin(record.holders), std::end(record.holders),
                        [](const LockContext& holder) { return holder.pid == 0; });
}

void addHolder(int id, LockRecord& record, Kind kind, short pid, short tid) {
    LockContext* const free = endOf(record);
    if (free == std::end(record.holders)) {
        for (const LockContext& holder : record.holders) {
            trace(point::HoldersFullEntry, id, holder.kind, holder.pid, holder.tid);
        }
        trace(point::HoldersFull, id, static_cast<int>(kind));
        std::abort();
    }
    *free = {holderPid(pid), tid, kind};
}

/// Removes the last holder that matches; the order of the others stays.
void removeHolder(LockRecord& record, Kind kind, short pid, short tid) {
    LockContext* const end = endOf(record);
    for (LockContext* holder = end; holder != record.holders;) {
        --holder;
        if (holder->kind == kind && holder->pid == holderPid(pid) && holder->tid == tid) {
            std::move(holder + 1, end, holder);
            *(end - 1) = {};
            return;
        }
    }
}

void countDown(std::uint8_t& counter) {
    if (counter == 0) {
        trace(point::CounterUnderflow);
        return;
    }
    --counter;
}

/// Lists the holders of one kind, each in a trace record.
void traceHolders(const TracePoint& refused, int id, LockRecord& record, Kind kind) {
    int index = 0;
    for (const LockContext& holder : record.holders) {
        if (holder.pid != 0 && holder.kind == kind) {
            trace(refused, id, index++, holder.pid, holder.tid);
        }
    }
}

} // namespace

bool TreePathLockProvider::is_wait(Component* component) {
    LockRecord& record = *treeLock(component);
    if (record.waitingBeneath == 0) {
        return false;
    }
    traceHolders(point::WriterWaits, component->getComponentId(), record, waitBeneath);
    return true;
}

void TreePathLockProvider::set_wait(Component* component, bool on) {
    for (Component* const step : on ? pathToMark(component) : pathToUnmark(component)) {
        LockRecord& record = *treeLock(step);
        if (on) {
            ++record.waitingBeneath;
            addHolder(step->getComponentId(), record, waitBeneath, callerPid(), callerTid());
        } else {
            --record.waitingBeneath;
            removeHolder(record, waitBeneath, callerPid(), callerTid());
        }
    }
}

/// True if the caller's own wait is marked.
bool TreePathLockProvider::isMarkedAsWaiting(Component* component) {
    const LockRecord& record = *treeLock(component);
    return std::any_of(std::begin(record.holders), std::end(record.holders), [](const LockContext& holder) {
        return holder.kind == waitBeneath && holder.pid == holderPid(callerPid()) &&
               holder.tid == callerTid();
    });
}

bool TreePathLockProvider::rd_lock(Component* component) {
    const std::vector<Component*>& path = pathToMark(component);
    for (Component* const step : path) {
        LockRecord& record = *treeLock(step);
        if (record.writers != 0) {
            traceHolders(point::ReadRefusedByWriter, step->getComponentId(), record, writeHere);
            return false;
        }
    }
    const int id = component->getComponentId();
    LockRecord& own = *treeLock(component);
    if (own.writersBeneath != 0) {
        traceHolders(point::ReadRefusedBeneath, id, own, writeBeneath);
        return false;
    }
    ++own.readers;
    addHolder(id, own, readHere, callerPid(), callerTid());
    for (Component* const step : path) {
        LockRecord& record = *treeLock(step);
        ++record.readersBeneath;
        addHolder(step->getComponentId(), record, readBeneath, callerPid(), callerTid());
    }
    return true;
}

bool TreePathLockProvider::wr_lock(Component* component) {
    const std::vector<Component*>& path = pathToMark(component);
    for (Component* const step : path) {
        LockRecord& record = *treeLock(step);
        if (record.readers != 0 || record.writers != 0) {
            traceHolders(point::WriteRefusedByReader, step->getComponentId(), record, readHere);
            traceHolders(point::WriteRefusedByWriter, step->getComponentId(), record, writeHere);
            return false;
        }
    }
    const int id = component->getComponentId();
    LockRecord& own = *treeLock(component);
    if (own.readersBeneath != 0 || own.writersBeneath != 0) {
        traceHolders(point::WriteRefusedReaderBeneath, id, own, readBeneath);
        traceHolders(point::WriteRefusedWriterBeneath, id, own, writeBeneath);
        return false;
    }
    ++own.writers;
    addHolder(id, own, writeHere, callerPid(), callerTid());
    for (Component* const step : path) {
        LockRecord& record = *treeLock(step);
        ++record.writersBeneath;
        addHolder(step->getComponentId(), record, writeBeneath, callerPid(), callerTid());
    }
    return true;
}

int TreePathLockProvider::rd_unlock(Component* component) {
    return rd_unlock(component, callerPid(), callerTid());
}

int TreePathLockProvider::wr_unlock(Component* component) {
    return wr_unlock(component, callerPid(), callerTid());
}

int TreePathLockProvider::rd_unlock(Component* component, short pid, short tid) {
    for (Component* const step : pathToUnmark(component)) {
        LockRecord& record = *treeLock(step);
        countDown(record.readersBeneath);
        removeHolder(record, readBeneath, pid, tid);
    }
    LockRecord& own = *treeLock(component);
    countDown(own.readers);
    removeHolder(own, readHere, pid, tid);
    return own.readers;
}

int TreePathLockProvider::wr_unlock(Component* component, short pid, short tid) {
    for (Component* const step : pathToUnmark(component)) {
        LockRecord& record = *treeLock(step);
        countDown(record.writersBeneath);
        removeHolder(record, writeBeneath, pid, tid);
    }
    LockRecord& own = *treeLock(component);
    own.writers = 0;
    removeHolder(own, writeHere, pid, tid);
    return own.writers;
}

} // namespace qz::tavrel
