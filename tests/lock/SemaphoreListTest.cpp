#include "lock/KernelStandIn.h"
#include "support/FaultText.h"

#include <qz/tavrel/Semaphore.h>

#include <gtest/gtest.h>

#include <sys/ipc.h>

#include <cerrno>
#include <numeric>
#include <vector>

using qz::tavrel::Semaphore;
using qz::tavrel::SemaphoreList;
using namespace tavrel::test;

namespace {

constexpr int key = 5700000;

/// Has the library work with a limit of `most` semaphores a set, below that of the machine.
void limitSetsTo(int most) {
    Semaphore::getInfo()->semmsl = most;
}

/// Size of the set of a key; 0 when there is none.
std::size_t sizeOf(int setKey) {
    semid_ds state{};
    return semctl(semget(setKey, 0, 0), 0, IPC_STAT, &state) == -1 ? 0 : state.sem_nsems;
}

int valueOf(int setKey, int number) {
    return semctl(semget(setKey, 0, 0), number, GETVAL);
}

/// The values 1, 2, 3, ...
std::vector<unsigned short> counted(std::size_t count) {
    std::vector<unsigned short> values(count);
    std::iota(values.begin(), values.end(), static_cast<unsigned short>(1));
    return values;
}

TEST(SemaphoreList, FillsSetsUpToTheLimit) {
    limitSetsTo(250);
    auto values = counted(2000);

    SemaphoreList list(key, values.data(), 2000);

    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(250U, sizeOf(key + i));
        EXPECT_EQ(250 * i + 1, valueOf(key + i, 0));
        EXPECT_EQ(250 * i + 250, valueOf(key + i, 249));
    }
    EXPECT_EQ(0U, sizeOf(key + 8));
}

TEST(SemaphoreList, GivesTheLastSetWhatIsLeft) {
    limitSetsTo(300);
    auto values = counted(2000);

    SemaphoreList list(key, values.data(), 2000);

    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(300U, sizeOf(key + i));
    }
    EXPECT_EQ(200U, sizeOf(key + 6));
    EXPECT_EQ(0U, sizeOf(key + 7));
}

TEST(SemaphoreList, SpacesItsKeysByTheKeyOffset) {
    limitSetsTo(2);
    auto values = counted(5);
    SemaphoreList list;
    list.setKeyOffset(10000);

    list.initialize(key, values.data(), 5);

    EXPECT_EQ(2U, sizeOf(key));
    EXPECT_EQ(2U, sizeOf(key + 10000));
    EXPECT_EQ(1U, sizeOf(key + 20000));
}

TEST(SemaphoreList, SendsAnOperationToTheSetOfItsNumber) {
    limitSetsTo(250);
    std::vector<unsigned short> values(500, 10);
    SemaphoreList list(key, values.data(), 500);

    EXPECT_TRUE(list.operate(249, -1, 0));
    EXPECT_TRUE(list.operate(250, -2, 0));
    EXPECT_TRUE(list.operate(499, -3, 0));

    EXPECT_EQ(9, valueOf(key, 249));
    EXPECT_EQ(8, valueOf(key + 1, 0));
    EXPECT_EQ(7, valueOf(key + 1, 249));
    EXPECT_EQ(10, valueOf(key, 0));
}

TEST(SemaphoreList, AnswersFalseForAnOperationThatTheKernelRefuses) {
    std::vector<unsigned short> values(2, 0);
    SemaphoreList list(key, values.data(), 2);

    EXPECT_FALSE(list.operate(1, -1, IPC_NOWAIT));
}

TEST(SemaphoreList, JoinsTheSetsOfAnotherList) {
    limitSetsTo(2);
    auto values = counted(3);
    std::vector<unsigned short> others(3, 50);
    SemaphoreList first(key, values.data(), 3);

    SemaphoreList second(key, others.data(), 3);

    EXPECT_TRUE(second.operate(2, 4, 0));
    EXPECT_EQ(7, valueOf(key + 1, 0));
    EXPECT_EQ(1, valueOf(key, 0));
}

TEST(SemaphoreList, RaisesWhenTheSystemTellsNoLimit) {
    auto values = counted(1);
    const KernelStandIn semgets("semget", failing(ENOSPC));
    SemaphoreList list;

    EXPECT_EQ("FAULT at Semaphore(LINE): initialize() sem is unavailable.",
              faultText([&] { list.initialize(key, values.data(), 1); }));
}

TEST(SemaphoreList, PassesOnTheFailureOfASet) {
    limitSetsTo(1);
    auto values = counted(2);
    const KernelStandIn semgets("semget", [](const KernelCall& call) {
        return call.arguments[0] == key + 1 && call.arguments[2] != 0 ? ENOSPC : 0;
    });
    SemaphoreList list;

    EXPECT_EQ("FAULT at Semaphore(LINE): initialize() semget failed.",
              faultText([&] { list.initialize(key, values.data(), 2); }));

    EXPECT_EQ(1U, sizeOf(key)) << "the sets before it stay";
}

TEST(SemaphoreList, CreatesItsSetsWithItsFlag) {
    std::vector<long> flags;
    auto values = counted(2);
    limitSetsTo(1);
    const KernelStandIn semgets("semget", [&](const KernelCall& call) {
        if (call.arguments[2] != 0) {
            flags.push_back(call.arguments[2]);
        }
        return 0;
    });

    SemaphoreList plain(key, values.data(), 1);
    SemaphoreList closed;
    closed.setFlag(IPC_CREAT | IPC_EXCL | 0600);
    closed.initialize(key + 1, values.data(), 2);

    EXPECT_EQ((std::vector<long>{1974, IPC_CREAT | IPC_EXCL | 0600, IPC_CREAT | IPC_EXCL | 0600}), flags);
}

TEST(SemaphoreList, MakesItsSetsAnewWhenInitializedAgain) {
    limitSetsTo(1);
    auto values = counted(3);
    SemaphoreList list(key, values.data(), 3);

    list.initialize(key + 10, values.data(), 2);
    list.remove();

    EXPECT_EQ(1U, sizeOf(key + 2)) << "the sets of the first time belong to the kernel now";
    EXPECT_EQ(0U, sizeOf(key + 10));
    EXPECT_EQ(0U, sizeOf(key + 11));
}

TEST(SemaphoreList, RemovesEverySet) {
    limitSetsTo(1);
    auto values = counted(3);
    SemaphoreList list(key, values.data(), 3);

    list.remove();

    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(0U, sizeOf(key + i));
    }
}

TEST(SemaphoreList, LeavesItsSetsInTheKernelWhenDestroyed) {
    auto values = counted(1);

    { const SemaphoreList list(key, values.data(), 1); }

    EXPECT_EQ(1, valueOf(key, 0));
}

} // namespace
