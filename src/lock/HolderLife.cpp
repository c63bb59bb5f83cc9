#include "lock/HolderLife.h"

#include "base/Decimal.h"
#include "base/FileText.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <string>

namespace qz::internal {

namespace {

constexpr long shortIds = 0x10000;       // a journal tells ids apart up to here
constexpr long limitThatFits = 0x8000;   // all ids below this stand in 16 bits as they are
constexpr long largestIdOfAll = 1 << 22; // the kernel's own limit

/// Ids of threads are below this on the running kernel, as it was read last; 0 before that.
std::atomic<long> knownLimit{0};

bool hasThread(long pid, long tid) {
    return syscall(SYS_tgkill, pid, tid, 0) == 0 || errno == EPERM;
}

bool livesWhereIdsAreBelow(long limit, std::int32_t pid, std::int16_t tid) {
    if (limit <= limitThatFits) {
        return syscall(SYS_tkill, static_cast<long>(tid), 0) != -1;
    }
    // A thread's id mostly shares its upper bits with that of its process.
    const long low = static_cast<std::uint16_t>(tid);
    if (hasThread(pid, (pid & ~(shortIds - 1)) | low)) {
        return true;
    }
    for (long id = low; id < limit; id += shortIds) {
        if (hasThread(pid, id)) {
            return true;
        }
    }
    return false;
}

} // namespace

long readIdLimit() {
    std::string text;
    const long found = readFile("/proc/sys/kernel/pid_max", text) ? decimal(text) : 0;
    const long limit = found > 0 ? found : largestIdOfAll;
    knownLimit = limit;
    return limit;
}

bool holderLives(std::int32_t pid, std::int16_t tid) {
    const long known = knownLimit;
    const long limit = known != 0 ? known : readIdLimit();
    if (livesWhereIdsAreBelow(limit, pid, tid)) {
        return true;
    }
    // The limit can be changed at any time; nobody is called dead for an old one.
    const long present = readIdLimit();
    return present != limit && livesWhereIdsAreBelow(present, pid, tid);
}

} // namespace qz::internal
