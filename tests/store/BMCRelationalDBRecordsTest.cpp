#include "FileStore.h"
#include "support/ChildProcess.h"

#include <qz/tavrel/QZException.h>

#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <new>

using qz::tavrel::BMCRelationalDB;
using qz::tavrel::TavrelException;
using namespace tavrel::test;

namespace {

constexpr std::uint32_t reserve = 256;

/// Works on "SETUP", unless a test says otherwise.
class FileStoreRecords : public FileStore {
protected:
    FileStoreRecords() { store.initialize("SETUP"); }

    /// A value whose record behind `place` ends at `end`.
    static std::string valueUpTo(std::uint32_t place, std::uint32_t end) {
        return std::string(end - place - 48, 'v');
    }

    static std::vector<unsigned long> idsOf(const TraceCapture& capture) {
        std::vector<unsigned long> ids;
        for (const TraceRecord& each : capture.all()) {
            ids.push_back(each.id);
            EXPECT_EQ(debugFlags, each.flags);
        }
        return ids;
    }

    BMCRelationalDB store;
};

using Ids = std::vector<unsigned long>;

TEST_F(FileStoreRecords, LeavesTheValueOfAnAbsentKey) {
    std::string value = "as it was";

    EXPECT_NO_THROW(store.getValue("tavrel1", value));

    EXPECT_EQ("as it was", value);
}

TEST_F(FileStoreRecords, GivesBackWhatWasSet) {
    const std::string bytes("\0a\xFF\0z", 5);

    store.setValue("tavrel1", bytes);

    EXPECT_EQ(bytes, valueOf(store, "tavrel1"));
    EXPECT_EQ(bytes, freshValue("SETUP", "tavrel1"));
}

TEST_F(FileStoreRecords, ReplacesWhatTheCallersValueHeld) {
    store.setValue("tavrel1", "ab");
    std::string value = "something longer";

    store.getValue("tavrel1", value);

    EXPECT_EQ("ab", value);
}

TEST_F(FileStoreRecords, WritesTheRecordByteForByte) {
    store.setValue("tavrel10.300", "13 bytes long");
    store.setValue("b", "x");

    const std::string bytes = bytesOf(setupPath);
    const std::string first = "tavrel10.300" + std::string(20, '\0') + word(12) + word(16) + word(13) +
                              word(0x4E444200) + "13 bytes long" + std::string(3, '\0');
    const std::string second = "b" + std::string(31, '\0') + word(1) + word(80) + word(1) + word(0x4E444200) +
                               "x" + std::string(15, '\0');
    EXPECT_EQ(64U, first.size());
    EXPECT_EQ(std::string("dbfile\0\0\0\0\0\0", 12) + word(144) + first + second, bytes.substr(0, 144));
    EXPECT_EQ(std::string(setupSize - 144, '\0'), bytes.substr(144));
}

TEST_F(FileStoreRecords, PlacesRecordsOnMultiplesOf16) {
    store.setValue("a", std::string(16, 'v'));
    store.setValue("b", std::string(17, 'v'));
    store.setValue("c", "");
    store.setValue("d", "v");

    std::vector<std::uint32_t> places;
    for (const FileRecord& each : recordsOf(setupPath)) {
        places.push_back(each.place);
        EXPECT_EQ(each.place, each.recordOffset);
    }
    EXPECT_EQ((std::vector<std::uint32_t>{16, 80, 160, 208}), places);
    EXPECT_EQ(272U, nextOffsetOf(setupPath));
}

TEST_F(FileStoreRecords, KeepsAnEmptyValue) {
    store.setValue("a", "");

    EXPECT_EQ("", valueOf(store, "a"));
    EXPECT_EQ("", freshValue("SETUP", "a"));
}

TEST_F(FileStoreRecords, ChangesAValueOfEqualLengthInPlace) {
    store.setValue("a", "1234");
    store.setValue("b", "5678");
    const std::string before = bytesOf(setupPath);

    store.setValue("a", "abcd");

    std::string expected = before;
    expected.replace(16 + 48, 4, "abcd");
    EXPECT_EQ(expected, bytesOf(setupPath));
    EXPECT_EQ("abcd", valueOf(store, "a"));
}

TEST_F(FileStoreRecords, FlushesOnlyThePagesOfAChangeInPlace) {
    store.setValue("a", std::string(5000, 'x'));
    store.setValue("b", "1234");
    std::vector<std::pair<const char*, std::size_t>> flushes;
    kernel.msync = [&](void* start, std::size_t length, int flags) {
        EXPECT_EQ(MS_SYNC, flags);
        flushes.emplace_back(static_cast<const char*>(start), length);
        return real::msync(start, length, flags);
    };

    store.setValue("b", "5678"); // at 5072
    store.setValue("a", std::string(5000, 'y'));

    ASSERT_EQ(2U, flushes.size());
    EXPECT_EQ(4096U, flushes[0].second);
    EXPECT_EQ(8192U, flushes[1].second);
    EXPECT_EQ(4096, flushes[0].first - flushes[1].first);
}

TEST_F(FileStoreRecords, BuriesAValueOfAnotherLengthAndAppendsTheNewOne) {
    store.setValue("a", "1234");
    store.setValue("b", "5678");

    store.setValue("a", "12345");

    const auto records = recordsOf(setupPath);
    ASSERT_EQ(3U, records.size());
    EXPECT_EQ("a", records[0].key);
    EXPECT_EQ("YEKD", records[0].magic);
    EXPECT_EQ(4U, records[0].valueLength);
    EXPECT_EQ("1234", records[0].value);
    EXPECT_EQ("b", records[1].key);
    EXPECT_TRUE(records[1].live());
    EXPECT_EQ("a", records[2].key);
    EXPECT_TRUE(records[2].live());
    EXPECT_EQ("12345", valueOf(store, "a"));
    EXPECT_EQ("12345", freshValue("SETUP", "a"));
    EXPECT_EQ("5678", valueOf(store, "b"));
}

TEST_F(FileStoreRecords, FlushesATombstoneThenTheHeaderThenTheRecord) {
    store.setValue("a", std::string(5000, 'x'));
    std::vector<std::string> states;
    kernel.msync = [&](void* start, std::size_t length, int flags) {
        const auto records = recordsOf(setupPath);
        states.push_back(std::to_string(length) + (records[0].live() ? " live " : " dead ") +
                         std::to_string(nextOffsetOf(setupPath)) + ' ' + std::to_string(records.size()));
        return real::msync(start, length, flags);
    };

    store.setValue("a", "1234");

    EXPECT_EQ((std::vector<std::string>{"4096 dead 5072 1", "4096 dead 5136 1", "4096 dead 5136 2"}), states);
}

TEST_F(FileStoreRecords, KeepsTheValueWhenAskedToClearIt) {
    store.setValue("tavrel1.2", "1234");

    store.clearValue("tavrel1.2");
    store.clear(1, 2);

    EXPECT_EQ("1234", valueOf(store, "tavrel1.2"));
    EXPECT_EQ("1234", freshValue("SETUP", "tavrel1.2"));
}

TEST_F(FileStoreRecords, ReadsAShortValueWithoutAnAllocation) {
    const std::string key = "tavrel10.300";
    store.setValue(key, "1234");
    std::string value;
    store.getValue(key, value);
    const std::size_t before = allocationCount();

    store.getValue(key, value);

    EXPECT_EQ(before, allocationCount());
    EXPECT_EQ("1234", value);
}

TEST_F(FileStoreRecords, ReadsWithoutASystemCall) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the thread sanitizer makes system calls of its own within the read";
#endif
    ChildProcess reader([this](Talk&) {
        store.setValue("tavrel10.300", "1234");
        const std::string key = "tavrel10.300";
        std::string value;
        store.getValue(key, value);
        // From here on every call but read, write and exit ends the process with SIGKILL.
        EXPECT_EQ(0, prctl(PR_SET_SECCOMP, SECCOMP_MODE_STRICT));
        for (int i = 0; i < 100; ++i) {
            value.clear();
            store.getValue(key, value);
        }
        syscall(SYS_exit, value == "1234" ? 0 : 1);
        return 1;
    });

    EXPECT_EQ(0, reader.wait());
}

TEST_F(FileStoreRecords, TakesAKeyOf31Bytes) {
    const std::string key(31, 'k');

    store.setValue(key, "v");

    EXPECT_EQ("v", valueOf(store, key));
    EXPECT_EQ("v", freshValue("SETUP", key));
}

TEST_F(FileStoreRecords, RefusesAKeyOf32Bytes) {
    const std::string before = bytesOf(setupPath);

    expectFault("setValue_internal", "Invalid param.", [&] { store.setValue(std::string(32, 'k'), "v"); });

    EXPECT_EQ(before, bytesOf(setupPath));
    EXPECT_EQ("(absent)", valueOf(store, std::string(32, 'k')));
}

TEST_F(FileStoreRecords, RefusesARecordThatEndsAtTheReserve) {
    const TraceCapture capture;

    expectFault("setValue_internal", "Dbfile overflow.",
                [&] { store.setValue("a", valueUpTo(16, setupSize - reserve)); });

    expectWords(capture, 0xA0416, debugFlags, {setupSize - reserve, setupSize});
    EXPECT_EQ(0U, capture.count(0xA041F));
    EXPECT_EQ(0U, capture.count(0xA040F));
    EXPECT_TRUE(recordsOf(setupPath).empty());
    EXPECT_EQ(16U, nextOffsetOf(setupPath));
}

TEST_F(FileStoreRecords, TakesARecordThatEnds16BytesBeforeTheReserve) {
    const std::string value = valueUpTo(16, setupSize - reserve - 16);

    store.setValue("a", value);

    EXPECT_EQ(setupSize - reserve - 16, nextOffsetOf(setupPath));
    EXPECT_EQ(value, freshValue("SETUP", "a"));
}

TEST_F(FileStoreRecords, GoesOnAfterAnOverflow) {
    EXPECT_THROW(store.setValue("a", std::string(setupSize, 'v')), TavrelException);
    const TraceCapture capture;

    store.setValue("b", "1234");

    EXPECT_EQ(1U, capture.count(0xA0402));
    EXPECT_EQ("1234", valueOf(store, "b"));
    EXPECT_EQ((std::vector<std::string>{"b"}), liveKeysOf(setupPath));
    EXPECT_EQ(80U, nextOffsetOf(setupPath));
}

TEST_F(FileStoreRecords, LosesTheOldValueByAnUpdateThatDoesNotFit) {
    store.setValue("a", "1234");

    EXPECT_THROW(store.setValue("a", std::string(setupSize, 'v')), TavrelException);

    EXPECT_EQ("(absent)", valueOf(store, "a"));
    EXPECT_EQ(std::vector<std::string>{}, liveKeysOf(setupPath));
    EXPECT_EQ(1U, recordsOf(setupPath).size());
}

TEST_F(FileStoreRecords, AnswersAnOverflowThroughTheWrapperWith0) {
    const std::string value(setupSize, 'v');

    EXPECT_EQ(0U, store.write(1, value.data(), setupSize));

    EXPECT_FALSE(store.isValid());
}

TEST_F(FileStoreRecords, DoesNotFlushForAWriteOfTheSameBytes) {
    store.write(1, 2, 0, "1234", 4);
    int flushes = 0;
    kernel.msync = [&](void*, std::size_t, int) { return ++flushes, 0; };

    EXPECT_EQ(4U, store.write(1, 2, 0, "1234", 4));

    EXPECT_EQ(0, flushes);
}

TEST_F(FileStoreRecords, StoresUnderTheTextKeyOfDatabase) {
    store.write(10, 300, 0, "1234", 4);

    EXPECT_EQ((std::vector<std::string>{"tavrel10.300"}), liveKeysOf(setupPath));
}

/// Works on the current file, which tells no daemon.
class FileStoreTraces : public FileStoreRecords {
protected:
    FileStoreTraces() { store.initialize("current"); }
};

TEST_F(FileStoreTraces, TracesAReadFromEntryToExit) {
    store.setValue("a", "1234");
    const TraceCapture capture;

    valueOf(store, "a");

    EXPECT_EQ((Ids{0xA0300, 0xA0310, 0xA031F, 0xA030F}), idsOf(capture));
}

TEST_F(FileStoreTraces, TracesAReadOfAnAbsentKey) {
    const TraceCapture capture;

    valueOf(store, "a");

    EXPECT_EQ((Ids{0xA0300, 0xA0310, 0xA0313, 0xA031F, 0xA030F}), idsOf(capture));
}

TEST_F(FileStoreTraces, TracesAChangeOfLength) {
    store.setValue("a", "1234");
    const TraceCapture capture;

    store.setValue("a", "12345");

    EXPECT_EQ((Ids{0xA0400, 0xA0410, 0xA0413, 0xA0414, 0xA0700, 0xA070F, 0xA0415, 0xA0700, 0xA070F, 0xA0700,
                   0xA070F, 0xA041F, 0xA040F}),
              idsOf(capture));
    expectWords(capture, 0xA0413, debugFlags, {16, 0});
    expectWords(capture, 0xA0414, debugFlags, {4, 5});
    expectWords(capture, 0xA0415, debugFlags, {80, 144});
}

TEST_F(FileStoreTraces, TracesAChangeInPlace) {
    store.setValue("a", "1234");
    const TraceCapture capture;

    store.setValue("a", "5678");

    EXPECT_EQ((Ids{0xA0400, 0xA0410, 0xA0700, 0xA070F, 0xA041F, 0xA040F}), idsOf(capture));
}

TEST_F(FileStoreRecords, AreReadAgainAfterAReloadWithoutMemory) {
    store.initialize("FRU");
    store.setValue("a", "1234");
    store.setValue("b", "5678");
    patch(fruPath, 16, record("c", 16, "1234")); // what a compaction of another process may leave
    int requests = 0;
    kernel.refusesObject = [&](std::size_t size) {
        return size >= sizeof(BMCRelationalDB::ndb_t) && ++requests == 2; // the entry of "b"
    };
    std::string value;
    EXPECT_THROW(store.getValue("a", value), std::bad_alloc);
    EXPECT_EQ(2, requests);
    kernel.refusesObject = nullptr;

    EXPECT_EQ("5678", valueOf(store, "b"));
    EXPECT_EQ("1234", valueOf(store, "c"));
    EXPECT_EQ("(absent)", valueOf(store, "a"));
}

} // namespace
