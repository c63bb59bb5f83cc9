#include "lock/Expect.h"
#include "lock/KernelStandIn.h"
#include "support/ChildProcess.h"

#include <qz/tavrel/SharedMemory.h>

#include <gtest/gtest.h>

#include <sys/ipc.h>
#include <sys/shm.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

using qz::tavrel::SharedMemory;
using namespace tavrel::test;

namespace {

constexpr int key = 0x550000;

int segment() {
    return shmget(key, 0, 0);
}

/// A segment that nobody is attached to.
int makeSegment(std::size_t size) {
    return shmget(key, size, IPC_CREAT | IPC_EXCL | 0666);
}

int wordOf(const void* address) {
    return static_cast<int>(static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(address)));
}

/// Another process that has the segment attached until it hears the mark 'x' or is killed.
int hold(Talk& talk) {
    SharedMemory memory(key);
    EXPECT_NE(nullptr, memory.data());
    talk.tell('h');
    talk.waitFor('x');
    return 0;
}

TEST(SharedMemory, TouchesNothingUntilItIsUsed) {
    const KernelStandIn gets("shmget", failing(0));
    const KernelStandIn controls("shmctl", failing(0));

    { const SharedMemory memory(key); }

    EXPECT_EQ(0, gets.calls());
    EXPECT_EQ(0, controls.calls());
}

TEST(SharedMemory, AllocatesASegmentOfZeros) {
    const TraceCapture capture;

    SharedMemory memory(key, 5000);

    const auto* const bytes = static_cast<const unsigned char*>(memory.data());
    ASSERT_NE(nullptr, bytes);
    EXPECT_EQ(5000U, memory.size());
    EXPECT_TRUE(std::all_of(bytes, bytes + 5000, [](unsigned char byte) { return byte == 0; }));
    expectWords(capture, 0x40105, infoFlags, {segment(), 5000, wordOf(bytes), 0, 0, 0});
}

TEST(SharedMemory, CreatesForEverybody) {
    long flag = 0;
    const KernelStandIn gets("shmget", [&](const KernelCall& call) {
        flag = call.arguments[2];
        return 0;
    });

    const SharedMemory memory(key, 16);

    EXPECT_EQ(1974, flag);
}

TEST(SharedMemory, IsOneMemoryForTwoProcesses) {
    SharedMemory memory(key, 64);
    ChildProcess other([](Talk& talk) {
        SharedMemory joined(key);
        auto* const bytes = static_cast<volatile char*>(joined.data());
        EXPECT_EQ(64U, joined.size());
        bytes[3] = 'c';
        talk.tell('w');
        talk.waitFor('r');
        EXPECT_EQ('p', bytes[4]);
        return 0;
    });
    auto* const bytes = static_cast<volatile char*>(memory.data());

    other.talk().waitFor('w');
    EXPECT_EQ('c', bytes[3]);
    bytes[4] = 'p';
    other.talk().tell('r');

    EXPECT_EQ(0, other.wait());
}

TEST(SharedMemory, HasNoDataAndNoTraceWithoutASegment) {
    SharedMemory memory(key);
    const TraceCapture capture;

    EXPECT_EQ(nullptr, memory.data());
    EXPECT_EQ(0U, memory.size());
    memory.free();

    EXPECT_TRUE(capture.all().empty());
}

TEST(SharedMemory, AttachesForItsDataOrItsSize) {
    const int id = makeSegment(4096);
    const TraceCapture capture;
    SharedMemory forData(key);
    SharedMemory forSize(key);

    const void* const address = forData.data();
    ASSERT_NE(nullptr, address);
    expectWords(capture, 0x40100, debugFlags, {id, wordOf(address), 4096, 0, 0, 0});

    EXPECT_EQ(4096U, forSize.size());
    EXPECT_EQ(2U, capture.count(0x40100));
}

TEST(SharedMemory, AttachesOnlyOnce) {
    makeSegment(4096);
    SharedMemory memory(key);
    const KernelStandIn attaches("shmat", failing(0));

    memory.attach();
    const void* const address = memory.data();
    memory.attach();

    EXPECT_EQ(address, memory.data());
    EXPECT_EQ(1, attaches.calls());
}

TEST(SharedMemory, AllocatesThePresentSizeByAttaching) {
    const int id = makeSegment(4096);
    SharedMemory memory(key);
    const TraceCapture capture;

    void* const address = memory.allocate(4096);

    ASSERT_NE(nullptr, address);
    EXPECT_EQ(id, segment());
    EXPECT_EQ(address, memory.allocate(4096));
    EXPECT_EQ(1U, capture.count(0x40100));
    EXPECT_EQ(0U, capture.count(0x40105));
}

TEST(SharedMemory, TakesTheAllocationOfNothingForNothing) {
    SharedMemory memory(key);
    const TraceCapture capture;

    EXPECT_EQ(nullptr, memory.allocate(0));

    EXPECT_TRUE(capture.all().empty());
}

TEST(SharedMemory, MakesTheSegmentAnewForAnotherSize) {
    const int old = makeSegment(4096);
    SharedMemory memory(key);
    memory.attach();
    const TraceCapture capture;

    const void* const address = memory.allocate(8192);

    EXPECT_NE(nullptr, address);
    EXPECT_EQ(8192U, memory.size());
    EXPECT_NE(old, segment());
    expectWords(capture, 0x40109, debugFlags, {old, 0});
}

TEST(SharedMemory, GivesNothingForAnotherSizeWhileAnotherProcessIsAttached) {
    const int old = makeSegment(4096);
    ChildProcess other(hold);
    other.talk().waitFor('h');
    SharedMemory memory(key);

    EXPECT_EQ(nullptr, memory.allocate(8192));
    EXPECT_EQ(old, segment());

    other.kill();
    // Whoever looks at a dead process through /proc keeps its memory for that moment.
    waitUntil([&] { return memory.allocate(8192) != nullptr; });
    EXPECT_NE(old, segment());
}

TEST(SharedMemory, AllocatesAgainAfterTheOthersHaveRemovedTheSegment) {
    makeSegment(4096);
    ChildProcess other(hold);
    other.talk().waitFor('h');
    SharedMemory memory(key);
    EXPECT_NE(nullptr, memory.data());
    memory.free();
    other.talk().tell('x');
    EXPECT_EQ(0, other.wait());
    EXPECT_EQ(-1, segment()) << "the other process was the last one";

    EXPECT_NE(nullptr, memory.allocate(8192));

    EXPECT_EQ(8192U, memory.size());
}

TEST(SharedMemory, IsRemovedByTheLastProcessOnly) {
    // Forked before there is a segment: a child inherits what is attached.
    ChildProcess other([](Talk& talk) {
        talk.waitFor('g');
        SharedMemory joined(key);
        EXPECT_NE(nullptr, joined.data());
        talk.tell('h');
        talk.waitFor('f');
        const TraceCapture capture;
        joined.free();
        EXPECT_TRUE(capture.all().empty());
        talk.tell('d');
        return 0;
    });
    SharedMemory memory(key, 4096);
    const int id = segment();
    other.talk().tell('g');
    other.talk().waitFor('h');
    other.talk().tell('f');
    other.talk().waitFor('d');
    EXPECT_EQ(id, segment());
    const TraceCapture capture;

    memory.free();

    EXPECT_EQ(-1, segment());
    expectWords(capture, 0x40109, debugFlags, {id, 0});
    EXPECT_EQ(0, other.wait());
}

TEST(SharedMemory, IsFreedByItsDestructor) {
    { const SharedMemory memory(key, 4096); }

    EXPECT_EQ(-1, segment());
}

TEST(SharedMemory, IsLeftByAKilledProcessToTheNext) {
    ChildProcess creator([](Talk& talk) {
        SharedMemory memory(key, 4096);
        static_cast<char*>(memory.data())[0] = 'k';
        talk.tell('w');
        talk.waitFor('x');
        return 0;
    });
    creator.talk().waitFor('w');
    creator.kill();

    SharedMemory memory(key);

    ASSERT_NE(nullptr, memory.allocate(4096));
    EXPECT_EQ('k', static_cast<char*>(memory.data())[0]);
}

TEST(SharedMemory, ReportsASegmentThatCannotBeCreated) {
    const KernelStandIn gets("shmget",
                             [](const KernelCall& call) { return call.arguments[2] == 1974 ? ENOSPC : 0; });
    const TraceCapture capture;
    SharedMemory memory(key);

    EXPECT_EQ(nullptr, memory.allocate(4096));

    expectWords(capture, 0x40107, errorFlags, {ENOSPC, 0});
    EXPECT_EQ(1U, capture.all().size());
    EXPECT_EQ(0U, memory.size());
}

TEST(SharedMemory, LeavesANewSegmentThatCannotBeAttachedInTheKernel) {
    const TraceCapture capture;
    {
        const KernelStandIn attaches("shmat", failing(ENOMEM));
        SharedMemory memory(key);

        EXPECT_EQ(nullptr, memory.allocate(4096));
    }

    expectWords(capture, 0x40106, errorFlags, {ENOMEM, 0});
    EXPECT_EQ(1U, capture.all().size());
    EXPECT_NE(-1, segment());
}

TEST(SharedMemory, RemovesAPresentSegmentThatCannotBeAttached) {
    makeSegment(4096);
    const KernelStandIn attaches("shmat", failing(ENOMEM));
    const TraceCapture capture;
    SharedMemory memory(key);

    memory.attach();

    expectWords(capture, 0x40103, errorFlags, {ENOMEM, 0});
    EXPECT_EQ(1U, capture.all().size());
    EXPECT_EQ(-1, segment());
}

TEST(SharedMemory, RemovesAPresentSegmentThatCannotBeLookedAt) {
    makeSegment(4096);
    const KernelStandIn controls("shmctl", failingCommand(IPC_STAT, EACCES));
    const KernelStandIn detaches("shmdt", failing(0));
    const TraceCapture capture;
    SharedMemory memory(key);

    EXPECT_EQ(nullptr, memory.data());

    expectWords(capture, 0x40101, errorFlags, {EACCES, 0});
    EXPECT_EQ(1U, capture.all().size());
    EXPECT_EQ(1, detaches.calls());
    EXPECT_EQ(-1, segment());
}

TEST(SharedMemory, ReportsWhatFailsWhileItPutsAnUnusableSegmentAway) {
    makeSegment(4096);
    const KernelStandIn controls("shmctl", failing(EACCES));
    const KernelStandIn detaches("shmdt", failing(EINVAL));
    const TraceCapture capture;
    SharedMemory memory(key);

    memory.attach();

    expectWords(capture, 0x40101, errorFlags, {EACCES, 0});
    expectWords(capture, 0x40102, errorFlags, {EINVAL, 0});
    expectWords(capture, 0x40104, errorFlags, {EACCES, 0});
    EXPECT_EQ(3U, capture.all().size());
}

TEST(SharedMemory, ForgetsItsAddressAlsoWhenItCannotBeDetached) {
    SharedMemory memory(key, 4096);
    const TraceCapture capture;
    {
        const KernelStandIn detaches("shmdt", failing(EINVAL));

        memory.free();
    }

    expectWords(capture, 0x40108, errorFlags, {EINVAL, 0});
    EXPECT_NE(-1, segment()) << "the kernel still counts this process";
    EXPECT_EQ(0U, capture.count(0x40109));
}

TEST(SharedMemory, ReportsARemovalThatFailsAndTriesAgainAtTheNextFree) {
    SharedMemory memory(key, 4096);
    const TraceCapture capture;
    {
        const KernelStandIn controls("shmctl", failingCommand(IPC_RMID, EPERM));

        memory.free();
    }

    expectWords(capture, 0x4010A, errorFlags, {EPERM, 0});
    EXPECT_NE(-1, segment());
    memory.free();
    EXPECT_EQ(-1, segment());
}

TEST(SharedMemory, KeepsItsSegmentWhenItCannotCountThoseAttached) {
    SharedMemory memory(key, 4096);
    {
        const KernelStandIn controls("shmctl", failingCommand(IPC_STAT, EACCES));

        memory.free();
    }

    EXPECT_NE(-1, segment());
    memory.free();
    EXPECT_EQ(-1, segment());
}

} // namespace
