#include <qz/base/ClockCounter.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <ctime>

namespace {

std::uint64_t milliseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000 + static_cast<std::uint64_t>(now.tv_nsec) / 1000000;
}

TEST(ClockCounter, CanBeRead) {
    EXPECT_TRUE(ClockCounter().isAvail());
}

TEST(ClockCounter, CountsMillisecondsOfTheMonotonicClock) {
    const std::uint64_t before = milliseconds();
    const std::uint64_t counter = ClockCounter().getCounter();
    const std::uint64_t after = milliseconds();

    EXPECT_LE(before, counter);
    EXPECT_GE(after, counter);
}

TEST(ClockCounter, TellsWhatItWillShowAfterAnInterval) {
    const ClockCounter clock;

    const std::uint64_t before = clock.getCounter();
    const std::uint64_t later = clock.calcCounter(100);
    const std::uint64_t earlier = clock.calcCounter(-100);
    const std::uint64_t after = clock.getCounter();

    EXPECT_LE(before + 100, later);
    EXPECT_GE(after + 100, later);
    EXPECT_LE(before - 100, earlier);
    EXPECT_GE(after - 100, earlier);
}

} // namespace
