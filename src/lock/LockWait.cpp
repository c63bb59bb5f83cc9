#include "lock/LockWait.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <climits>
#include <cstdint>

namespace qz::internal {

namespace {

constexpr std::uint32_t somebodySleeps = 1;
constexpr std::uint32_t oneWaking = 2;

static_assert(sizeof(pthread_cond_t) >= sizeof(std::uint32_t));
static_assert(alignof(pthread_cond_t) >= alignof(std::uint32_t));

std::uint32_t* wordOf(pthread_cond_t& condition) {
    return reinterpret_cast<std::uint32_t*>(&condition);
}

} // namespace

void sleepOn(pthread_cond_t& condition, pthread_mutex_t& mutex) {
    std::uint32_t* const word = wordOf(condition);
    const std::uint32_t seen = __atomic_or_fetch(word, somebodySleeps, __ATOMIC_RELAXED);
    pthread_mutex_unlock(&mutex);
    // Returns at once when a waking has changed the word since.
    syscall(SYS_futex, word, FUTEX_WAIT, seen, nullptr, nullptr, 0);
    pthread_mutex_lock(&mutex);
}

void wakeAll(pthread_cond_t& condition) {
    std::uint32_t* const word = wordOf(condition);
    const std::uint32_t seen = __atomic_load_n(word, __ATOMIC_RELAXED);
    if ((seen & somebodySleeps) == 0) {
        return;
    }
    __atomic_store_n(word, (seen & ~somebodySleeps) + oneWaking, __ATOMIC_RELAXED);
    // A process that dies here still holds the mutex, which nobody can take from it.
    syscall(SYS_futex, word, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

} // namespace qz::internal
