#include "SteppedProcess.h"
#include "TraceRingFixture.h"

#include <malloc.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <limits>
#include <numeric>
#include <thread>

using namespace tavrel::test;
using qz::base::traceBusy;
using qz::base::traceDataSize;
using qz::base::TraceRecord;
using qz::base::TraceRing;
using qz::base::TraceRingReader;
using qz::base::traceSlotCount;
using qz::base::traceWritten;

namespace {

class TraceSink : public TraceRingFixture {};

/// Writes one record of each level, with its flags as the trace id.
void writeAllLevels() {
    for (const int flags : {errorFlags, infoFlags, debugFlags, debug2Flags}) {
        qz_trace_write(1, flags, 2, static_cast<unsigned long>(flags), "x", 1);
    }
}

/// The trace ids of what `writeAllLevels` stores when the environment asks for `level`.
std::vector<std::uint64_t> levelsStored(const char* level) {
    unlink(qz::base::traceRingPath);
    ChildProcess child([&](Talk&) {
        setenv("QZ_TRACE_LEVEL", level, 1);
        writeRecord(0);
        writeAllLevels();
        return 0;
    });
    EXPECT_EQ(0, child.wait());
    std::vector<std::uint64_t> ids;
    if (std::filesystem::exists(qz::base::traceRingPath)) {
        for (const TraceRecord& record : TraceRingReader().read()) {
            ids.push_back(record.entry.traceId);
        }
        EXPECT_EQ(0U, ids.at(0));
        ids.erase(ids.begin());
    }
    return ids;
}

/// The id of a thread that has been and gone.
std::uint32_t deadThread() {
    ChildProcess child([](Talk&) { return 0; });
    const pid_t pid = child.pid();
    EXPECT_EQ(0, child.wait());
    return static_cast<std::uint32_t>(pid);
}

std::vector<std::uint64_t> range(std::uint64_t first, std::size_t count) {
    std::vector<std::uint64_t> result(count);
    std::iota(result.begin(), result.end(), first);
    return result;
}

TEST_F(TraceSink, StoresEveryFieldOfARecord) {
    const auto now = [] {
        return static_cast<std::uint64_t>(
            std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count());
    };
    const std::uint64_t before = now();

    ChildProcess writer(
        [](Talk&) { return qz_trace_write(-13, infoFlags, 0xfffffff0, 0xA0B0C0D0UL, "words", 6); });
    const pid_t pid = writer.pid();
    ASSERT_EQ(0, writer.wait());

    const std::vector<TraceRecord> all = records();
    ASSERT_EQ(1U, all.size());
    EXPECT_EQ(0U, all[0].ticket);
    EXPECT_LE(before, all[0].entry.time);
    EXPECT_GE(now(), all[0].entry.time);
    EXPECT_EQ(0xA0B0C0D0U, all[0].entry.traceId);
    EXPECT_EQ(pid, all[0].entry.pid);
    EXPECT_EQ(pid, all[0].entry.tid);
    EXPECT_EQ(-13, all[0].entry.channel);
    EXPECT_EQ(infoFlags, all[0].entry.flags);
    EXPECT_EQ(0xfffffff0U, all[0].entry.module);
    EXPECT_EQ(6U, all[0].entry.size);
    EXPECT_EQ(std::string("words\0", 6), dataOf(all[0]));
}

TEST_F(TraceSink, TellsThreadsAndForkedChildrenApart) {
    inChild([] {
        writeRecord(1);
        std::thread([] { writeRecord(static_cast<unsigned long>(gettid())); }).join();
        ChildProcess forked([](Talk&) { return writeRecord(static_cast<unsigned long>(getpid())); });
        EXPECT_EQ(0, forked.wait());
    });

    const std::vector<TraceRecord> all = records();
    ASSERT_EQ(3U, all.size());
    EXPECT_EQ(all[0].entry.pid, all[0].entry.tid);
    EXPECT_EQ(all[0].entry.pid, all[1].entry.pid);
    EXPECT_EQ(all[1].entry.traceId, static_cast<std::uint64_t>(all[1].entry.tid));
    EXPECT_EQ(all[2].entry.traceId, static_cast<std::uint64_t>(all[2].entry.pid));
    EXPECT_EQ(all[2].entry.pid, all[2].entry.tid);
}

TEST_F(TraceSink, StoresWhatTheLevelOfTheEnvironmentLetsThrough) {
    using Levels = std::vector<std::uint64_t>;

    EXPECT_EQ((Levels{}), levelsStored("off"));
    EXPECT_EQ((Levels{errorFlags}), levelsStored("error"));
    EXPECT_EQ((Levels{errorFlags, infoFlags}), levelsStored("info"));
    EXPECT_EQ((Levels{errorFlags, infoFlags, debugFlags}), levelsStored("debug"));
    EXPECT_EQ((Levels{errorFlags, infoFlags, debugFlags, debug2Flags}), levelsStored("debug2"));
}

TEST_F(TraceSink, StoresErrorsAndInformationWhereTheEnvironmentNamesNoLevel) {
    inChild(writeAllLevels);

    EXPECT_EQ((std::vector<std::uint64_t>{errorFlags, infoFlags}), traceIds());
    EXPECT_EQ((std::vector<std::uint64_t>{errorFlags, infoFlags}), levelsStored(""));
    EXPECT_EQ((std::vector<std::uint64_t>{errorFlags, infoFlags}), levelsStored("DEBUG"));
}

TEST_F(TraceSink, MakesNoRingWhenItIsOff) {
    EXPECT_EQ((std::vector<std::uint64_t>{}), levelsStored("off"));

    EXPECT_FALSE(std::filesystem::exists(qz::base::traceRingPath));
}

TEST_F(TraceSink, TakesUnknownFlagsByTheirDecidingBits) {
    const auto stored = [](const char* level, int flags) {
        unlink(qz::base::traceRingPath);
        inChild([&] {
            setenv("QZ_TRACE_LEVEL", level, 1);
            EXPECT_EQ(0, qz_trace_write(1, flags, 2, 3, "x", 1));
        });
        return std::filesystem::exists(qz::base::traceRingPath);
    };

    EXPECT_TRUE(stored("error", 0x8006));
    EXPECT_FALSE(stored("error", 0x8004));
    EXPECT_TRUE(stored("info", 0x8004));
    EXPECT_FALSE(stored("info", 0x0802));
    EXPECT_TRUE(stored("debug", 0x0802));
    EXPECT_FALSE(stored("debug", 0));
    EXPECT_TRUE(stored("debug2", 0));
}

TEST_F(TraceSink, LooksAtTheEnvironmentOnce) {
    inChild([] {
        writeRecord(1);
        setenv("QZ_TRACE_LEVEL", "debug2", 1);
        writeAllLevels();
    });

    EXPECT_EQ((std::vector<std::uint64_t>{1, errorFlags, infoFlags}), traceIds());
}

TEST_F(TraceSink, CutsTheDataToItsSlotAndKeepsTheTrueLength) {
    std::string bytes(std::size_t{3} * traceDataSize, '\0');
    std::iota(bytes.begin(), bytes.end(), '\1');
    const std::vector<std::size_t> lengths = {
        0, 1, 2, 3, 4, 5, traceDataSize - 1, traceDataSize, traceDataSize + 1, bytes.size()};

    inChild([&] {
        for (const std::size_t length : lengths) {
            writeRecord(length, bytes.substr(0, length));
        }
    });

    const std::vector<TraceRecord> all = records();
    ASSERT_EQ(lengths.size(), all.size());
    for (std::size_t i = 0; i < lengths.size(); ++i) {
        EXPECT_EQ(lengths[i], all[i].entry.size);
        EXPECT_EQ(bytes.substr(0, std::min<std::size_t>(lengths[i], traceDataSize)), dataOf(all[i]));
    }
}

TEST_F(TraceSink, StoresARecordWithoutData) {
    inChild([] { EXPECT_EQ(0, qz_trace_write(1, errorFlags, 2, 3, nullptr, 16)); });

    const std::vector<TraceRecord> all = records();
    ASSERT_EQ(1U, all.size());
    EXPECT_EQ(0U, all[0].entry.size);
}

TEST_F(TraceSink, KeepsTheLatestRecordsWhenItIsFull) {
    constexpr unsigned long count = 2 * traceSlotCount + 100;

    inChild([] {
        for (unsigned long i = 0; i < count; ++i) {
            writeRecord(i);
        }
    });

    EXPECT_EQ(range(count - traceSlotCount, traceSlotCount), traceIds());
}

TEST_F(TraceSink, GoesOnWhenItsTicketsWrap) {
    constexpr std::uint32_t lastTicket = std::numeric_limits<std::uint32_t>::max();
    inChild([] { writeRecord(0); });
    WritableRing()->slots[0].state = 0;
    WritableRing()->next = lastTicket - 9;

    inChild([] {
        for (unsigned long i = 1; i <= 20; ++i) {
            EXPECT_EQ(0, writeRecord(i));
        }
    });

    const std::vector<TraceRecord> all = records();
    EXPECT_EQ(range(1, 20), traceIds());
    EXPECT_EQ(lastTicket - 9, all.at(0).ticket);
    EXPECT_EQ(lastTicket, all.at(9).ticket);
    EXPECT_EQ(0U, all.at(10).ticket);
}

TEST_F(TraceSink, ReturnsAFailureWithoutTouchingErrnoWhileTheRingCannotBeOpened) {
    writeObject(qz::base::traceRingName, "damaged");

    inChild([] {
        errno = EXDEV;
        EXPECT_EQ(-1, writeRecord(1));
        EXPECT_EQ(-1, writeRecord(2));
        EXPECT_EQ(EXDEV, errno);
    });

    EXPECT_EQ(7U, std::filesystem::file_size(qz::base::traceRingPath));
}

TEST_F(TraceSink, RefusesAnObjectOfTheRightSizeThatIsNoRing) {
    writeObject(qz::base::traceRingName, std::string(sizeof(TraceRing), '\0'));

    inChild([] { EXPECT_EQ(-1, writeRecord(1)); });
}

TEST_F(TraceSink, OpensTheRingLaterWhenItCouldNotAtFirst) {
    constexpr int enough = 100;
    writeObject(qz::base::traceRingName, "damaged");

    inChild([&] {
        EXPECT_EQ(-1, writeRecord(1));
        unlink(qz::base::traceRingPath);
        int tries = 0;
        while (tries < enough && writeRecord(2) != 0) {
            ++tries;
        }
        EXPECT_LT(tries, enough);
        EXPECT_EQ(0, writeRecord(3));
    });

    EXPECT_EQ((std::vector<std::uint64_t>{2, 3}), traceIds());
}

TEST_F(TraceSink, LeavesErrnoAsItWas) {
    inChild([] {
        errno = EXDEV;
        EXPECT_EQ(0, writeRecord(1));
        EXPECT_EQ(EXDEV, errno) << "after making the ring";
        EXPECT_EQ(0, writeRecord(2));
        EXPECT_EQ(EXDEV, errno);
    });
}

TEST_F(TraceSink, MakesNoSystemCallForARecordThatIsFiltered) {
    const auto body = [](int count) {
        return [count] {
            for (int i = 0; i < count; ++i) {
                qz_trace_write(1, debugFlags, 2, 3, "x", 1);
            }
        };
    };

    EXPECT_EQ(SteppedProcess::count(Step::SystemCall, body(1)),
              SteppedProcess::count(Step::SystemCall, body(1000)));
    EXPECT_LT(SteppedProcess::count(Step::SystemCall, body(1)),
              SteppedProcess::count(Step::SystemCall, [] { writeRecord(1); }));
}

TEST_F(TraceSink, AllocatesNothing) {
    inChild([] {
        const auto before = mallinfo2().uordblks;
        qz_trace_write(1, errorFlags, 2, 3, "x", 1);
        qz_trace_write(1, debugFlags, 2, 3, "x", 1);
        EXPECT_EQ(before, mallinfo2().uordblks);
    });
}

TEST_F(TraceSink, CanBeOpenedByAnyUserWhateverTheUmask) {
    inChild([] {
        umask(0777);
        writeRecord(1);
    });

    struct stat status {};
    ASSERT_EQ(0, stat(qz::base::traceRingPath, &status));
    EXPECT_EQ(0666U, status.st_mode & 07777U);
}

TEST_F(TraceSink, SurvivesAMakerKilledAtAnySystemCall) {
    const auto body = [] { writeRecord(1); };
    const long total = SteppedProcess::count(Step::SystemCall, body);
    ASSERT_GT(total, 10) << "the ring is not made in the child";

    for (long steps = 0; steps <= total; ++steps) {
        unlink(qz::base::traceRingPath);
        SteppedProcess maker(body);
        maker.advance(Step::SystemCall, steps);
        maker.kill();

        inChild([] { EXPECT_EQ(0, writeRecord(2)); });
        ASSERT_EQ(2U, traceIds().back()) << "maker killed after " << steps << " of " << total;
    }
}

TEST_F(TraceSink, NeitherShowsNorKeepsTheTornRecordOfAWriterKilledAtAnyInstruction) {
    const std::string torn(24, 't');
    const std::string whole(24, 'w');
    const auto lap = [&] {
        for (unsigned long i = 0; i < traceSlotCount; ++i) {
            writeRecord(i, whole);
        }
    };
    const auto body = [&] {
        writeRecord(1, whole);
        raise(SIGSTOP);
        writeRecord(2, torn);
    };
    inChild(lap);
    SteppedProcess complete(body);
    complete.runToStop();
    const long total = complete.countToStop(Step::Instruction);
    const long stride = 2 * strideOver(total);
    long seenBusy = 0;

    for (long steps = 0; steps <= total; steps += stride) {
        SteppedProcess writer(body);
        writer.runToStop();
        writer.advance(Step::Instruction, steps);
        writer.kill();

        const std::vector<TraceRecord> all = records();
        seenBusy += all.size() == traceSlotCount ? 0 : 1;
        ASSERT_GE(all.size() + 1, traceSlotCount);
        for (const TraceRecord& record : all) {
            ASSERT_TRUE(dataOf(record) == whole || (record.entry.traceId == 2 && dataOf(record) == torn))
                << "torn after " << steps << " of " << total;
        }
        inChild(lap);
        ASSERT_EQ(range(0, traceSlotCount), traceIds())
            << "a slot is lost after " << steps << " of " << total;
    }
    EXPECT_LT(0, seenBusy) << "no writer was killed inside a record";
}

TEST_F(TraceSink, PassesBySlotsOfLivingWriters) {
    inChild([] { writeRecord(0); });
    const WritableRing ring;
    ring->slots[1].state = traceBusy | static_cast<std::uint32_t>(getpid());
    ring->slots[2].state = traceBusy | static_cast<std::uint32_t>(getpid());

    inChild([] { EXPECT_EQ(0, writeRecord(1)); });

    const std::vector<TraceRecord> all = records();
    ASSERT_EQ(2U, all.size());
    EXPECT_EQ(3U, all[1].ticket);
    EXPECT_EQ(traceBusy | static_cast<std::uint32_t>(getpid()), ring->slots[1].state);
}

TEST_F(TraceSink, TakesBackTheSlotOfADeadWriter) {
    inChild([] { writeRecord(0); });
    const WritableRing ring;
    ring->slots[1].state = traceBusy | deadThread();

    inChild([] {
        errno = EXDEV;
        EXPECT_EQ(0, writeRecord(1));
        EXPECT_EQ(EXDEV, errno);
    });

    EXPECT_EQ(1U, records().at(1).ticket);
}

TEST_F(TraceSink, LeavesALaterRecordWhereAnotherWriterHasOvertakenThisOne) {
    inChild([] { writeRecord(0); });
    const WritableRing ring;
    ring->slots[1].state = traceWritten | (1 + traceSlotCount);

    inChild([] { EXPECT_EQ(0, writeRecord(1)); });

    EXPECT_EQ(traceWritten | (1 + traceSlotCount), ring->slots[1].state);
    EXPECT_EQ(traceWritten | 2, ring->slots[2].state);
}

TEST_F(TraceSink, DropsARecordThatFindsNoFreeSlotAndCountsIt) {
    inChild([] { writeRecord(0); });
    const WritableRing ring;
    for (qz::base::TraceSlot& slot : ring->slots) {
        slot.state = traceBusy | static_cast<std::uint32_t>(getpid());
    }

    inChild([] {
        errno = EXDEV;
        EXPECT_EQ(-1, writeRecord(1));
        EXPECT_EQ(-1, writeRecord(2));
        EXPECT_EQ(EXDEV, errno);
    });

    EXPECT_EQ(2U, TraceRingReader().dropped());
    EXPECT_TRUE(records().empty());
}

} // namespace
