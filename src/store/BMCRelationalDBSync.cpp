#include "base/Trace.h"

#include <qz/base/SemaphoreLock.h>
#include <qz/base/process.h>
#include <qz/tavrel/BMCRelationalDB.h>

#include <cerrno>
#include <csignal>

namespace qz::tavrel {

namespace {

constexpr char daemonName[] = "tavrel_syncd";

/// `get_pid_by_name` for the daemon, which must not end a write half way.
int findDaemon(int& pid) {
    try {
        return get_pid_by_name(daemonName, &pid);
    } catch (...) {
        return -1;
    }
}

} // namespace

void BMCRelationalDB::dbbackup_sync() {
    if (syncSignal != 0) {
        const SemaphoreLock held(config->lockName, 0);
        notifySyncDaemon();
    }
}

void BMCRelationalDB::notifySyncDaemon() {
    internal::trace(internal::point::DbNotify);
    if (syncDaemonPid == 0) {
        int pid = 0;
        if (findDaemon(pid) != 0) {
            internal::trace(internal::point::DbNotifyNoDaemon);
        } else if (pid == 0) {
            internal::trace(internal::point::DbNotifyPidZero);
        } else {
            internal::trace(internal::point::DbNotifyDaemonFound, pid);
            syncDaemonPid = pid;
        }
    }
    // Never read twice: kill() takes a 0 for the own process group.
    const int known = syncDaemonPid;
    if (known != 0 && kill(known, syncSignal) != 0) {
        internal::trace(internal::point::DbNotifySignalFailed, errno, known);
        syncDaemonPid = 0;
    }
    internal::trace(internal::point::DbNotifyExit);
}

} // namespace qz::tavrel
