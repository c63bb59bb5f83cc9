#include <qz/base/ClockCounter.h>

#include <ctime>

bool ClockCounter::isAvail() const {
    timespec now{};
    return clock_gettime(CLOCK_MONOTONIC, &now) == 0;
}

std::uint64_t ClockCounter::getCounter() const {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000 + static_cast<std::uint64_t>(now.tv_nsec) / 1000000;
}

std::uint64_t ClockCounter::calcCounter(int interval) const {
    return getCounter() + static_cast<std::uint64_t>(static_cast<std::int64_t>(interval));
}
