#include <qz/base/ClockCounter.h>

#include <ctime>

namespace {

// The time of the last tick, 1 to 10 ms old, for a fraction of what the exact one costs.
constexpr clockid_t tickClock = CLOCK_MONOTONIC_COARSE;

} // namespace

bool ClockCounter::isAvail() const {
    timespec now{};
    return clock_gettime(tickClock, &now) == 0;
}

std::uint64_t ClockCounter::getCounter() const {
    timespec now{};
    clock_gettime(tickClock, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000 + static_cast<std::uint64_t>(now.tv_nsec) / 1000000;
}

std::uint64_t ClockCounter::calcCounter(int interval) const {
    return getCounter() + static_cast<std::uint64_t>(static_cast<std::int64_t>(interval));
}
