#pragma once

#include <pthread.h>

namespace qz::internal {

/// Holds a pthread mutex for a scope.
class [[nodiscard]] MutexGuard {
public:
    explicit MutexGuard(pthread_mutex_t& held) : mutex(held) { pthread_mutex_lock(&mutex); }
    ~MutexGuard() { pthread_mutex_unlock(&mutex); }
    MutexGuard(const MutexGuard&) = delete;
    MutexGuard& operator=(const MutexGuard&) = delete;

private:
    pthread_mutex_t& mutex;
};

} // namespace qz::internal
