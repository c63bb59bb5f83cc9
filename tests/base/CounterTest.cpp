#include <qz/tavrel/Counter.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

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

TEST(Counter, LeavesAnEntryOfZeroAfterClear) {
    Counter counter;
    counter.up();

    counter.clear();

    EXPECT_EQ(-1, counter.down());
}

TEST(Counter, KeepsManyThreadsApartUnderLoad) {
    Counter counter;
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    threads.reserve(4);

    for (int n = 0; n < 4; ++n) {
        threads.emplace_back([&counter, &wrong] {
            for (int round = 0; round < 2000; ++round) {
                const int depth = 1 + round % 5;
                for (int i = 1; i <= depth; ++i) {
                    wrong += counter.up() == i ? 0 : 1;
                }
                for (int i = depth - 1; i >= 0; --i) {
                    wrong += counter.down() == i ? 0 : 1;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(0, wrong);
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
