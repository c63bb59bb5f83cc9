#include "TraceRingFixture.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>

using namespace tavrel::test;
using qz::base::traceDataSize;
using qz::base::TraceEntry;
using qz::base::TraceRecord;
using qz::base::TraceRing;
using qz::base::TraceRingReader;
using qz::base::traceSlotCount;

namespace {

class TraceRingReading : public TraceRingFixture {
protected:
    static std::error_code failureOf(const std::string& path) {
        try {
            const TraceRingReader reader(path);
            return {};
        } catch (const std::system_error& failure) {
            EXPECT_EQ(0U, std::string(failure.what()).find("trace ring \"" + path + "\": "))
                << failure.what();
            return failure.code();
        }
    }
};

TEST_F(TraceRingReading, GivesWhatHasComeSinceTheLastCall) {
    inChild([] { writeRecord(1); });
    TraceRingReader reader;

    EXPECT_EQ(1U, reader.read().size());
    EXPECT_EQ(0U, reader.read().size());
    inChild([] {
        writeRecord(2);
        writeRecord(3);
    });
    const std::vector<TraceRecord> more = reader.read();

    ASSERT_EQ(2U, more.size());
    EXPECT_EQ(2U, more[0].entry.traceId);
    EXPECT_EQ(3U, more[1].entry.traceId);
}

TEST_F(TraceRingReading, GivesOnlyWhatIsLeftAfterItWasOvertaken) {
    inChild([] { writeRecord(0); });
    TraceRingReader reader;
    reader.read();

    inChild([] {
        for (unsigned long i = 1; i <= traceSlotCount + 5; ++i) {
            writeRecord(i);
        }
    });
    const std::vector<TraceRecord> left = reader.read();

    ASSERT_EQ(traceSlotCount, left.size());
    EXPECT_EQ(6U, left.front().entry.traceId);
    EXPECT_EQ(traceSlotCount + 5, left.back().entry.traceId);
}

TEST_F(TraceRingReading, GivesARecordOnceItsWriterHasFinishedIt) {
    inChild([] {
        writeRecord(0);
        writeRecord(1);
    });
    const WritableRing ring;
    const std::uint32_t finished = ring->slots[0].state.exchange(qz::base::traceBusy | 1);
    TraceRingReader reader;

    const std::vector<TraceRecord> before = reader.read();
    ring->slots[0].state = finished;
    const std::vector<TraceRecord> after = reader.read();

    ASSERT_EQ(1U, before.size());
    EXPECT_EQ(1U, before[0].entry.traceId);
    ASSERT_EQ(1U, after.size());
    EXPECT_EQ(0U, after[0].entry.traceId);
}

TEST_F(TraceRingReading, PutsARecordThatWritersPassedByWhereItBelongs) {
    inChild([] {
        for (unsigned long i = 0; i < traceSlotCount; ++i) {
            writeRecord(i);
        }
    });
    const WritableRing ring;
    const std::uint32_t before =
        ring->slots[5].state.exchange(qz::base::traceBusy | static_cast<unsigned>(getpid()));
    inChild([] {
        for (unsigned long i = 0; i < 10; ++i) {
            writeRecord(traceSlotCount + i);
        }
    });
    ring->slots[5].state = before;

    const std::vector<std::uint64_t> ids = traceIds();

    ASSERT_EQ(traceSlotCount, ids.size());
    EXPECT_EQ(5U, ids[0]);
    EXPECT_EQ(11U, ids[1]);
    EXPECT_EQ(traceSlotCount + 9, ids.back());
    EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end()));
}

TEST_F(TraceRingReading, NeverTakesMoreDataThanASlotHolds) {
    inChild([] { writeRecord(0); });
    const WritableRing ring;
    ring->slots[0].words[offsetof(TraceEntry, size) / sizeof(std::uint32_t)] = 0xffffffff;

    const std::vector<TraceRecord> all = records();

    ASSERT_EQ(1U, all.size());
    EXPECT_EQ(0xffffffffU, all[0].entry.size);
    EXPECT_EQ(traceDataSize, all[0].stored());
}

TEST_F(TraceRingReading, ReadsACopyOfTheRing) {
    inChild([] { writeRecord(7, "data"); });
    const std::string copy = testing::TempDir() + "trace-copy";
    std::filesystem::copy_file(qz::base::traceRingPath, copy,
                               std::filesystem::copy_options::overwrite_existing);

    const std::vector<TraceRecord> all = TraceRingReader(copy).read();

    ASSERT_EQ(1U, all.size());
    EXPECT_EQ(7U, all[0].entry.traceId);
    EXPECT_EQ("data", dataOf(all[0]));
}

TEST_F(TraceRingReading, MakesNoRingWhereThereIsNone) {
    EXPECT_EQ(std::errc::no_such_file_or_directory, failureOf(qz::base::traceRingPath));
    EXPECT_FALSE(std::filesystem::exists(qz::base::traceRingPath));
}

TEST_F(TraceRingReading, RefusesAFileThatIsNoRing) {
    const std::string zeros(sizeof(TraceRing), '\0');
    writeObject(qz::base::traceRingName, zeros.substr(1));
    EXPECT_EQ(std::errc::bad_message, failureOf(qz::base::traceRingPath)) << "too short";

    writeObject(qz::base::traceRingName, zeros + '\0');
    EXPECT_EQ(std::errc::bad_message, failureOf(qz::base::traceRingPath)) << "too long";

    writeObject(qz::base::traceRingName, zeros);
    EXPECT_EQ(std::errc::bad_message, failureOf(qz::base::traceRingPath)) << "without its magic";

    EXPECT_EQ(std::errc::bad_message, failureOf("/dev/shm")) << "a folder";
}

TEST_F(TraceRingReading, RefusesARingOfAnotherLayout) {
    inChild([] { writeRecord(0); });
    const WritableRing ring;

    ring->version += 1;
    EXPECT_EQ(std::errc::bad_message, failureOf(qz::base::traceRingPath));
    ring->version -= 1;
    ring->slotCount -= 1;
    EXPECT_EQ(std::errc::bad_message, failureOf(qz::base::traceRingPath));
    ring->slotCount += 1;
    ring->slotSize += 1;
    EXPECT_EQ(std::errc::bad_message, failureOf(qz::base::traceRingPath));
    ring->slotSize -= 1;
    EXPECT_FALSE(failureOf(qz::base::traceRingPath));
}

} // namespace
