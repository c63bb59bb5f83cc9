#include "lock/LockWait.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <ctime>

namespace qz::internal {

namespace {

constexpr std::uint32_t somebodySleeps = 1;
constexpr std::uint32_t oneWaking = 2;

constexpr long nanosecondsBetweenLooks = 50'000'000;
constexpr long nanosecondsOfASecond = 1'000'000'000;

// The thread sanitizer does not know that `pthread_mutex_clocklock` takes a mutex.
#ifdef __SANITIZE_THREAD__
constexpr clockid_t clockOfLooks = CLOCK_REALTIME;

int lockUntil(pthread_mutex_t& mutex, const timespec& end) {
    return pthread_mutex_timedlock(&mutex, &end);
}
#else
constexpr clockid_t clockOfLooks = CLOCK_MONOTONIC;

int lockUntil(pthread_mutex_t& mutex, const timespec& end) {
    return pthread_mutex_clocklock(&mutex, clockOfLooks, &end);
}
#endif

timespec nextLook() {
    timespec end{};
    clock_gettime(clockOfLooks, &end);
    end.tv_nsec += nanosecondsBetweenLooks;
    if (end.tv_nsec >= nanosecondsOfASecond) {
        end.tv_nsec -= nanosecondsOfASecond;
        ++end.tv_sec;
    }
    return end;
}

static_assert(sizeof(pthread_cond_t) >= sizeof(std::uint32_t));
static_assert(alignof(pthread_cond_t) >= alignof(std::uint32_t));

std::uint32_t* wordOf(pthread_cond_t& condition) {
    return reinterpret_cast<std::uint32_t*>(&condition);
}

std::uint32_t afterWaking(std::uint32_t seen) {
    return (seen & ~somebodySleeps) + oneWaking;
}

} // namespace

void lockTableMutex(pthread_mutex_t& mutex) {
    if (pthread_mutex_trylock(&mutex) == 0) {
        return;
    }
    while (lockUntil(mutex, nextLook()) == ETIMEDOUT) {
    }
}

bool isFree(pthread_mutex_t& mutex) {
    if (pthread_mutex_trylock(&mutex) != 0) {
        return false;
    }
    pthread_mutex_unlock(&mutex);
    return true;
}

void sleepOn(pthread_cond_t& condition, pthread_mutex_t& mutex) {
    std::uint32_t* const word = wordOf(condition);
    const std::uint32_t seen = __atomic_or_fetch(word, somebodySleeps, __ATOMIC_RELAXED);
    pthread_mutex_unlock(&mutex);
    // Returns at once when a waking has changed the word since.
    syscall(SYS_futex, word, FUTEX_WAIT, seen, nullptr, nullptr, 0);
    lockTableMutex(mutex);
}

void makeAnew(pthread_cond_t& condition) {
    std::uint32_t* const word = wordOf(condition);
    const std::uint32_t seen = __atomic_load_n(word, __ATOMIC_RELAXED);
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_cond_init(&condition, &attributes);
    pthread_condattr_destroy(&attributes);
    __atomic_store_n(word, afterWaking(seen), __ATOMIC_RELEASE);
}

void wakeSleepers(pthread_cond_t& condition) {
    syscall(SYS_futex, wordOf(condition), FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

void wakeAll(pthread_cond_t& condition) {
    std::uint32_t* const word = wordOf(condition);
    const std::uint32_t seen = __atomic_load_n(word, __ATOMIC_RELAXED);
    if ((seen & somebodySleeps) == 0) {
        return;
    }
    __atomic_store_n(word, afterWaking(seen), __ATOMIC_RELAXED);
    // A process that dies here still holds the mutex, which nobody can take from it.
    wakeSleepers(condition);
}

} // namespace qz::internal
