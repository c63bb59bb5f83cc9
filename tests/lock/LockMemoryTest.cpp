#include "lock/Expect.h"
#include "lock/KernelStandIn.h"
#include "lock/SharedPage.h"
#include "support/ChildProcess.h"

#include <qz/tavrel/TreePathLockProvider.h>

#include <gtest/gtest.h>

#include <sys/shm.h>

#include <algorithm>
#include <atomic>

using qz::tavrel::LockMemory;
using namespace tavrel::test;

namespace {

constexpr int key = 0x540000;

int segment() {
    return shmget(key, 0, 0);
}

std::size_t segmentSize() {
    shmid_ds state{};
    return shmctl(segment(), IPC_STAT, &state) == -1 ? 0 : state.shm_segsz;
}

bool isZero(const void* memory, std::size_t size) {
    const auto* const bytes = static_cast<const unsigned char*>(memory);
    return std::all_of(bytes, bytes + size, [](unsigned char byte) { return byte == 0; });
}

TEST(LockMemory, MakesASharedTableOfZeros) {
    LockMemory memory(true);

    void* const table = memory.get(4096);

    ASSERT_NE(nullptr, table);
    EXPECT_EQ(4096U, segmentSize());
    EXPECT_TRUE(isZero(table, 4096));
}

TEST(LockMemory, FindsTheSharedTableAsItStands) {
    LockMemory memory(true);
    auto* const table = static_cast<char*>(memory.get(4096));
    table[7] = 'x';

    EXPECT_EQ(table, memory.get(4096));
    LockMemory other(true);
    EXPECT_EQ(table, other.get(4096)) << "one attachment for the whole process";

    EXPECT_EQ('x', table[7]);
}

TEST(LockMemory, FindsTheSharedTableOfAnotherProcess) {
    ChildProcess first([](Talk& talk) {
        LockMemory memory(true);
        static_cast<char*>(memory.get(4096))[7] = 'x';
        talk.tell('h');
        talk.waitFor('g');
        return 0;
    });
    first.talk().waitFor('h');
    LockMemory memory(true);

    auto* const table = static_cast<char*>(memory.get(4096));

    ASSERT_NE(nullptr, table);
    EXPECT_EQ('x', table[7]);
    first.talk().tell('g');
    EXPECT_EQ(0, first.wait());
}

TEST(LockMemory, MakesASharedTableAnewForAnotherSize) {
    LockMemory memory(true);
    static_cast<char*>(memory.get(4096))[7] = 'x';

    void* const table = memory.get(8192);

    ASSERT_NE(nullptr, table);
    EXPECT_EQ(8192U, segmentSize());
    EXPECT_TRUE(isZero(table, 8192));
}

TEST(LockMemory, GivesNothingForAnotherSizeWhileAnotherProcessUsesTheTable) {
    ChildProcess other([](Talk& talk) {
        LockMemory memory(true);
        memory.get(4096);
        talk.tell('h');
        talk.waitFor('g');
        return 0;
    });
    other.talk().waitFor('h');
    LockMemory memory(true);

    EXPECT_EQ(nullptr, memory.get(8192));
    EXPECT_EQ(4096U, segmentSize());

    other.kill();
    waitUntil([&] { return memory.get(8192) != nullptr; });
}

TEST(LockMemory, RemovesTheSharedTableWithTheLastProcess) {
    { LockMemory(true).get(4096); }

    EXPECT_EQ(-1, segment());
}

TEST(LockMemory, RemovesTheSharedTableAlsoWhenAProcessJustEnds) {
    ChildProcess ending([](Talk&) -> int {
        auto* const left = new LockMemory(true);
        left->get(4096);
        std::exit(segment() == -1 ? 1 : 0);
    });

    EXPECT_EQ(0, ending.wait());

    EXPECT_EQ(-1, segment());
}

TEST(LockMemory, LeavesTheSharedTableOnceWhenAProcessJustEnds) {
    LockMemory stays(true);
    stays.get(4096);
    SharedPage<std::atomic<int>> looks;
    ChildProcess ending([&](Talk&) -> int {
        auto* const left = new LockMemory(true);
        left->get(4096);
        // Never destroyed, so that it sees the very end.
        static KernelStandIn* const states = new KernelStandIn("shmctl", [&looks](const KernelCall&) {
            ++*looks;
            return 0;
        });
        static_cast<void>(states);
        std::exit(0);
    });

    EXPECT_EQ(0, ending.wait());

    EXPECT_EQ(1, *looks) << "a second one would have nobody kept off";
}

TEST(LockMemory, KnowsWhetherItIsTheFirstUserOfTheTable) {
    ChildProcess other([](Talk& talk) {
        talk.waitFor('g');
        LockMemory memory(true);
        memory.get(4096);
        EXPECT_FALSE(memory.isFirstUser());
        return 0;
    });
    LockMemory memory(true);
    memory.get(4096);
    EXPECT_TRUE(memory.isFirstUser());
    memory.get(4096);
    EXPECT_FALSE(memory.isFirstUser()) << "it has been here before";

    other.talk().tell('g');

    EXPECT_EQ(0, other.wait());
}

TEST(LockMemory, KeepsAPrivateTableOfTheSameSize) {
    LockMemory memory(false);
    auto* const table = static_cast<char*>(memory.get(4096));
    EXPECT_TRUE(isZero(table, 4096));
    table[7] = 'x';

    EXPECT_EQ(table, memory.get(4096));
    LockMemory other(false);
    EXPECT_EQ(table, other.get(4096));

    EXPECT_EQ('x', table[7]);
    EXPECT_EQ(-1, segment()) << "nothing is shared";
    EXPECT_FALSE(memory.isFirstUser());
}

TEST(LockMemory, ClearsAPrivateTableOfAnotherSize) {
    LockMemory memory(false);
    static_cast<char*>(memory.get(4096))[7] = 'x';

    EXPECT_TRUE(isZero(memory.get(2048), 2048));
    EXPECT_TRUE(isZero(memory.get(8192), 8192));
}

TEST(LockMemory, EmptiesThePrivateTableAtItsEnd) {
    LockMemory memory(false);
    {
        LockMemory other(false);
        static_cast<char*>(other.get(4096))[7] = 'x';
    }

    EXPECT_TRUE(isZero(memory.get(4096), 4096));
}

} // namespace
