#include "base/Trace.h"

#include <qz/tavrel/LockObject.h>
#include <qz/tavrel/TreeConfig.h>

#include <exception>

namespace qz::tavrel {

namespace {

/// Takes 1 from a depth at the end of a scope, whichever way that is left.
class [[nodiscard]] DepthGuard {
public:
    explicit DepthGuard(Counter& counted) : depth(counted) {}
    ~DepthGuard() { depth.down(); }
    DepthGuard(const DepthGuard&) = delete;
    DepthGuard& operator=(const DepthGuard&) = delete;

private:
    Counter& depth;
};

/// Trace points of one kind of failure.
struct FailurePoints {
    const internal::TracePoint& failed;
    const internal::TracePoint& text;
    const internal::TracePoint& unknown;
};

constexpr FailurePoints loadPoints{internal::point::TreeConfigLoadFailed,
                                   internal::point::TreeConfigLoadFailedText,
                                   internal::point::TreeConfigLoadFailedUnknown};
constexpr FailurePoints savePoints{internal::point::TreeConfigSaveFailed,
                                   internal::point::TreeConfigSaveFailedText,
                                   internal::point::TreeConfigSaveFailedUnknown};

/// Leaves trace records of what `call` raises, and lets it pass.
template <typename Call>
unsigned int traceFailure(Call call, const FailurePoints& points) {
    try {
        return call();
    } catch (const std::exception& failure) {
        internal::trace(points.failed);
        internal::traceText(points.text, failure.what());
        throw;
    } catch (...) {
        internal::trace(points.unknown);
        throw;
    }
}

} // namespace

int TreeConfig::lock() {
    const int depth = lockDepth.up();
    if (depth != 1) {
        return depth;
    }
    if (lockObject != nullptr) {
        try {
            lockObject->writeLock();
        } catch (...) {
            lockDepth.down();
            throw;
        }
    }
    try {
        return static_cast<int>(traceFailure([&] { return load(); }, loadPoints));
    } catch (...) {
        leaveLockAfterFailure();
        throw;
    }
}

int TreeConfig::unlock() {
    const int depth = lockDepth.count();
    if (depth != 1) {
        return depth > 1 ? lockDepth.down() : 0;
    }
    unsigned int saved = 0;
    try {
        saved = traceFailure([&] { return save(); }, savePoints);
    } catch (...) {
        leaveLockAfterFailure();
        throw;
    }
    leaveLock();
    return static_cast<int>(saved);
}

// The depth goes last: a listener that takes the lock during a save must only be counted.
void TreeConfig::leaveLock() {
    const DepthGuard outermost(lockDepth);
    if (lockObject != nullptr) {
        lockObject->writeUnlock();
    }
}

void TreeConfig::leaveLockAfterFailure() {
    try {
        leaveLock();
    } catch (...) { // NOLINT(bugprone-empty-catch): the first failure is the one to report
    }
}

int TreeConfig::readLock() {
    const int depth = accessDepth.up();
    if (depth == 1) {
        pthread_rwlock_rdlock(&accessLock);
    }
    return depth;
}

int TreeConfig::writeLock() {
    const int depth = accessDepth.up();
    if (depth == 1) {
        pthread_rwlock_wrlock(&accessLock);
    }
    return depth;
}

int TreeConfig::readUnlock() {
    return leaveAccess();
}

int TreeConfig::writeUnlock() {
    return leaveAccess();
}

int TreeConfig::leaveAccess() {
    const int depth = accessDepth.count();
    if (depth < 1) {
        return 0;
    }
    if (depth == 1) {
        pthread_rwlock_unlock(&accessLock);
    }
    return accessDepth.down();
}

} // namespace qz::tavrel
