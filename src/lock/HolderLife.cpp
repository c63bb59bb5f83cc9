#include "lock/HolderLife.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>

namespace qz::internal {

namespace {

constexpr long largestShortId = 0x8000;  // ids below this fit into a signed 16-bit field
constexpr long largestIdOfAll = 1 << 22; // the kernel's own limit
constexpr long shortIds = 0x10000;

/// Ids of threads are below this on the running kernel.
long idLimit() {
    static const long limit = [] {
        long found = 0;
        std::ifstream("/proc/sys/kernel/pid_max") >> found;
        return found > 0 ? found : largestIdOfAll;
    }();
    return limit;
}

bool hasThread(long pid, long tid) {
    return tid > 0 && (syscall(SYS_tgkill, pid, tid, 0) == 0 || errno == EPERM);
}

} // namespace

bool holderLives(std::int32_t pid, std::int16_t tid) {
    if (idLimit() <= largestShortId) {
        return syscall(SYS_tkill, static_cast<long>(tid), 0) != -1;
    }
    // A thread's id mostly shares its upper bits with that of its process.
    const long low = static_cast<std::uint16_t>(tid);
    if (hasThread(pid, (pid & ~(shortIds - 1)) | low)) {
        return true;
    }
    for (long id = low; id < idLimit(); id += shortIds) {
        if (hasThread(pid, id)) {
            return true;
        }
    }
    return false;
}

} // namespace qz::internal
