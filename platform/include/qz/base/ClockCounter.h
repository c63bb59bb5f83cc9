/// @file
/// A clock that only ever rises.
#pragma once

#include <cstdint>

/// Reads the monotonic clock. One unit of its counter and of every interval is a millisecond.
/// Threads: any; an object has no state.
class ClockCounter {
public:
    /// True if the clock can be read on this machine.
    bool isAvail() const;

    /// The present counter value, in milliseconds since an unspecified start.
    std::uint64_t getCounter() const;

    /// The value that the counter will show `interval` milliseconds from now.
    std::uint64_t calcCounter(int interval) const;
};
