#pragma once

namespace tavrel::test {

/// Holds the library's clock still as long as it lives, so that what depends on time is exact. The programs
/// that link TestClock.cpp bring the clock of the base library themselves; it runs unless one of these stops
/// it.
class StoppedClock {
public:
    StoppedClock();
    ~StoppedClock();
    StoppedClock(const StoppedClock&) = delete;
    StoppedClock& operator=(const StoppedClock&) = delete;

    /// Moves the clock on.
    void advance(int milliseconds);
};

/// Lets the clock be one that cannot be read, as long as it lives.
class MissingClock {
public:
    MissingClock();
    ~MissingClock();
    MissingClock(const MissingClock&) = delete;
    MissingClock& operator=(const MissingClock&) = delete;
};

} // namespace tavrel::test
