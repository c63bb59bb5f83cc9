#include "lock/HolderLife.h"

#include "base/Decimal.h"
#include "base/FileText.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace qz::internal {

namespace {

constexpr long shortIds = 0x10000;        // a journal tells ids apart up to here
constexpr long largestFittingId = 0x7FFF; // the largest that 16 bits hold as it is
constexpr long largestIdOfAll = 1 << 22;  // the kernel's own limit

/// Ids of threads are below this on the running kernel.
long idLimit() {
    static const long limit = [] {
        std::string text;
        const long found = readFile("/proc/sys/kernel/pid_max", text) ? decimal(text) : 0;
        return found > 0 ? found : largestIdOfAll;
    }();
    return limit;
}

bool hasThread(long pid, long tid) {
    return syscall(SYS_tgkill, pid, tid, 0) == 0 || errno == EPERM;
}

} // namespace

bool holderLives(std::int32_t pid, std::int16_t tid) {
    const bool fits = tid > 0 && pid <= largestFittingId;
    if (fits && syscall(SYS_tkill, static_cast<long>(tid), 0) != -1) {
        return true;
    }
    // A thread's id mostly shares its upper bits with that of its process.
    const long low = static_cast<std::uint16_t>(tid);
    const long guess = (pid & ~(shortIds - 1)) | low;
    if (guess > largestFittingId && hasThread(pid, guess)) {
        return true;
    }
    for (long id = fits ? low + shortIds : low; id < idLimit(); id += shortIds) {
        if (hasThread(pid, id)) {
            return true;
        }
    }
    return false;
}

} // namespace qz::internal
