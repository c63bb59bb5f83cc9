/// @file
/// A named lock between threads and processes, bound to a scope.
#pragma once

#include <pthread.h>

#include <string>

/// Holds the lock of one name from construction to destruction.
///
/// Exclusive between all threads of all processes that use the name. A holder that is killed does not keep
/// it: the next taker gets the lock and goes on. Each name is one robust process-shared mutex in the POSIX
/// shared memory object of that name (so it begins with "/" and holds no other), opened once a process. While
/// nobody else holds it a take is no system call. Not recursive: a thread that takes a name twice raises.
///
/// Threads: any; also after `fork`, even if another thread was inside the lock at that moment.
class [[nodiscard]] SemaphoreLock {
public:
    /// Waits without limit until the lock is free, then holds it.
    ///
    /// The first take of a name in a process opens its shared memory object, or makes it, for any user to
    /// open. Processes of another word size cannot share it and are refused.
    ///
    /// @param name   name of the lock: "/" and at most 255 characters that hold no further "/"
    /// @param value  0 in all uses; kept for the interface
    /// @throws std::system_error  the shared memory object cannot be made or mapped, or it is no lock
    /// (EBADMSG),
    ///                            or this thread holds the lock already (EDEADLK)
    SemaphoreLock(const std::string& name, int value);

    /// Gives the lock back.
    ~SemaphoreLock();

    SemaphoreLock(const SemaphoreLock&) = delete;
    SemaphoreLock& operator=(const SemaphoreLock&) = delete;

private:
    pthread_mutex_t* mutex;
};
