#include <qz/tavrel/Counter.h>

#include <gtest/gtest.h>

#include <thread>

using qz::tavrel::Counter;

namespace {

TEST(Counter, CountsUpAndDown) {
    Counter counter;

    EXPECT_EQ(1, counter.up());
    EXPECT_EQ(2, counter.up());
    EXPECT_EQ(2, counter.count());
    EXPECT_EQ(1, counter.down());
    EXPECT_EQ(0, counter.down());
    EXPECT_EQ(0, counter.down());
}

TEST(Counter, GivesZeroForDownWithoutUp) {
    Counter counter;

    EXPECT_EQ(0, counter.down());
    EXPECT_EQ(0, counter.count());
}

TEST(Counter, LeavesAnEntryOfZeroAfterCount) {
    Counter counter;

    EXPECT_EQ(0, counter.count());

    EXPECT_EQ(-1, counter.down()) << "an entry of 0 is lowered, a missing one is not";
}

TEST(Counter, SetsTheCallersCountToZero) {
    Counter counter;
    counter.up();
    counter.up();

    counter.clear();

    EXPECT_EQ(0, counter.count());
}

TEST(Counter, KeepsThreadsApart) {
    Counter counter;
    counter.up();

    std::thread([&] {
        EXPECT_EQ(0, counter.down());
        EXPECT_EQ(1, counter.up());
    }).join();

    EXPECT_EQ(1, counter.count());
}

TEST(Counter, ClearsTheCountsOfAllThreads) {
    Counter counter;
    counter.up();

    std::thread([&] { counter.clearAll(); }).join();

    EXPECT_EQ(0, counter.down());
    EXPECT_EQ(0, counter.count());
}

} // namespace
