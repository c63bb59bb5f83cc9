#pragma once

#include <pthread.h>

namespace qz::internal {

/// Sleeping and waking in the place of a process-shared condition variable.
///
/// The C library's own broadcast waits for every sleeper that it has woken, so that one killed in its sleep
/// would stop everybody. Here the first 32 bits of the condition variable are a futex word, which a dead
/// sleeper cannot hold up: bit 0 says that somebody may sleep, the rest counts the wakings. It is changed
/// with the mutex held only.

/// Gives the mutex up, sleeps until the next `wakeAll` or longer than needed never, and takes the mutex
/// again. May return without cause.
void sleepOn(pthread_cond_t& condition, pthread_mutex_t& mutex);

/// Wakes all who sleep; no system call when nobody does. Locks: the mutex is held.
void wakeAll(pthread_cond_t& condition);

} // namespace qz::internal
