#include "support/ChildProcess.h"
#include "support/FaultText.h"
#include "support/TestClock.h"
#include "support/TraceCapture.h"

#include <qz/tavrel/GuardSection.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <thread>
#include <vector>

using qz::tavrel::GuardSection;
using namespace tavrel::test;

namespace {

constexpr int leave = 0x7fffffff;

class GuardSectionTest : public testing::Test {
protected:
    StoppedClock clock;
    GuardSection section{100};
};

TEST_F(GuardSectionTest, IsFreshAgainWithinTheInterval) {
    EXPECT_FALSE(section.set(0));
    clock.advance(50);
    EXPECT_TRUE(section.set(1));
    EXPECT_TRUE(section.set(1));
}

TEST_F(GuardSectionTest, EndsWhenTheLevelFalls) {
    section.set(2);

    EXPECT_FALSE(section.set(1));
    EXPECT_TRUE(section.set(1)) << "a new section";
}

TEST_F(GuardSectionTest, EndsWhenItIsLeft) {
    section.set(0);
    section.set(leave);

    EXPECT_FALSE(section.set(1));
    EXPECT_TRUE(section.set(1));
}

TEST_F(GuardSectionTest, DoesNotArmTheDeadlineWhenItIsLeft) {
    section.set(0);
    clock.advance(60);

    EXPECT_TRUE(section.set(leave));
    clock.advance(60);

    EXPECT_FALSE(section.set(leave)) << "the deadline is still that of the first call";
}

TEST_F(GuardSectionTest, BelongsToTheThreadThatSetItLast) {
    section.set(0);

    std::thread([&] { EXPECT_FALSE(section.set(1)); }).join();

    EXPECT_FALSE(section.set(1));
    EXPECT_TRUE(section.set(1));
}

TEST_F(GuardSectionTest, IsNotInheritedByAForkedChild) {
    section.set(0);

    ChildProcess child([&](Talk&) { return section.set(0) ? 1 : 0; });

    EXPECT_EQ(0, child.wait());
    EXPECT_TRUE(section.set(0)) << "it is private to a process";
}

TEST_F(GuardSectionTest, IsFreshUpToItsDeadlineAndNotPastIt) {
    section.set(0);
    clock.advance(100);
    EXPECT_TRUE(section.set(0));

    clock.advance(101);
    EXPECT_FALSE(section.set(0));
    EXPECT_TRUE(section.set(0)) << "armed again";
}

TEST_F(GuardSectionTest, IsArmedAgainByEachCall) {
    section.set(0);

    for (int i = 0; i < 5; ++i) {
        clock.advance(90);
        EXPECT_TRUE(section.set(0));
    }
}

TEST_F(GuardSectionTest, KnowsNoInstanceButItself) {
    GuardSection other{100};
    section.set(0);

    EXPECT_FALSE(other.set(0));
    EXPECT_TRUE(section.set(0));
}

TEST(GuardSection, CannotBeMadeWithoutAClock) {
    const MissingClock missing;
    const TraceCapture capture;

    EXPECT_EQ("FAULT at GuardSection(LINE): GuardSection() ClockCounter is unavailable.",
              faultText([] { const GuardSection section(100); }));

    const auto records = capture.of(0x20600);
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ(errorFlags, records[0].flags);
    EXPECT_EQ(static_cast<std::uint32_t>(getpid()), records[0].words()[0]);
    EXPECT_EQ(static_cast<std::uint32_t>(gettid()), records[0].words()[1]);
    EXPECT_EQ((std::vector<int>{0, 0}), records[0].arguments());
}

TEST(GuardSection, IsNeverFreshForTwoThreadsAtOnce) {
    const StoppedClock clock;
    GuardSection section{100};
    constexpr int threadCount = 4;
    int entered[threadCount] = {};
    std::vector<std::thread> threads;
    threads.reserve(threadCount);

    for (int& own : entered) {
        threads.emplace_back([&section, &own] {
            // With the clock standing still only another thread can end a section.
            for (int n = 0; n < 10000; ++n) {
                own += section.set(0) ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    for (const int own : entered) {
        EXPECT_LE(1, own) << "each thread's first call takes the section from another";
    }
}

} // namespace
