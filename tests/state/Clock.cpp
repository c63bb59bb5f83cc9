#include "Clock.h"

#include <ctime>

std::deque<timeval> tavrel::test::scriptedTimes;

extern "C" int gettimeofday(timeval* time, void*) noexcept {
    if (!tavrel::test::scriptedTimes.empty()) {
        *time = tavrel::test::scriptedTimes.front();
        tavrel::test::scriptedTimes.pop_front();
        return 0;
    }
    timespec present{};
    clock_gettime(CLOCK_REALTIME, &present);
    *time = {present.tv_sec, present.tv_nsec / 1000};
    return 0;
}
