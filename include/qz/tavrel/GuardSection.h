/// @file
/// Tells whether the calling thread has been here a moment ago.
#pragma once

#include <qz/base/ClockCounter.h>

#include <pthread.h>

#include <cstdint>

namespace qz::tavrel {

/// A section of work that stays fresh for a while, so that a costly refresh can be left out.
///
/// It belongs to the thread that set it last. A section of one thread is fresh while its calls come with a
/// level that never falls and each within the interval of the one before; a call of any other thread ends it.
/// Private to a process.
/// Threads: any; a private mutex is held for the length of `set`.
class GuardSection {
public:
    /// @param interval  how long a section stays fresh, in milliseconds
    /// @throws TavrelException "ClockCounter is unavailable."
    explicit GuardSection(int interval);
    virtual ~GuardSection();
    GuardSection(const GuardSection&) = delete;
    GuardSection& operator=(const GuardSection&) = delete;

    /// Starts a section of the caller at `level` and tells whether the one before was still fresh for it.
    ///
    /// @param level  0x7fffffff leaves the section: nothing is fresh afterwards
    /// @return true if the same thread made the last call, at `level` or below, and its time has not run out
    bool set(int level);

private:
    ClockCounter clock;
    pthread_mutex_t mutex;
    int interval;
    int level;
    int owner;
    std::uint64_t deadline;
};

} // namespace qz::tavrel
