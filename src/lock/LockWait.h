#pragma once

#include <pthread.h>

namespace qz::internal {

/// Sleeping and waking in the place of a process-shared condition variable.
///
/// The C library's own broadcast waits for every sleeper that it has woken, so that one killed in its sleep
/// would stop everybody. Here the first 32 bits of the condition variable are a futex word, which a dead
/// sleeper cannot hold up: bit 0 says that somebody may sleep, the rest counts the wakings. It is changed
/// with the mutex held only.

/// Takes the table's mutex. Whoever finds it free reads no clock and makes no system call.
///
/// The C library's unlock wakes one waiter; when that one is being killed, the others would sleep on beside
/// a mutex that is free. So a waiter looks again every 50 ms.
void lockTableMutex(pthread_mutex_t& mutex);

/// True if the table's mutex could be taken just now.
bool isFree(pthread_mutex_t& mutex);

/// Holds the table's mutex for a scope.
class [[nodiscard]] TableGuard {
public:
    explicit TableGuard(pthread_mutex_t& held) : mutex(held) { lockTableMutex(mutex); }
    ~TableGuard() { pthread_mutex_unlock(&mutex); }
    TableGuard(const TableGuard&) = delete;
    TableGuard& operator=(const TableGuard&) = delete;

private:
    pthread_mutex_t& mutex;
};

/// Gives the mutex up, sleeps until the next `wakeAll` or longer than needed never, and takes the mutex
/// again. May return without cause.
void sleepOn(pthread_cond_t& condition, pthread_mutex_t& mutex);

/// Makes the condition variable anew, so that those who are about to sleep on it do not.
void makeAnew(pthread_cond_t& condition);

/// Wakes all who sleep, whatever the word says of them.
void wakeSleepers(pthread_cond_t& condition);

/// Wakes all who sleep; no system call when nobody does. Locks: the mutex is held.
void wakeAll(pthread_cond_t& condition);

} // namespace qz::internal
