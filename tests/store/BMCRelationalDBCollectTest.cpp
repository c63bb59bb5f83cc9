#include "FileStore.h"

#include <new>

using qz::tavrel::BMCRelationalDB;
using namespace tavrel::test;

namespace {

constexpr int fruLimit = 2;
constexpr int setupLimit = 5;
constexpr int currentLimit = 100;

class FileStoreCompaction : public FileStore {
protected:
    /// Leaves `count` tombstones of the key "t" behind.
    static void bury(BMCRelationalDB& store, int count) {
        for (int i = 0; i <= count; ++i) {
            store.setValue("t", std::string(static_cast<std::size_t>(i % 2) + 1, 't'));
        }
    }

    static std::size_t tombstonesOf(const std::string& path) {
        return recordsOf(path).size() - liveKeysOf(path).size();
    }

    BMCRelationalDB store;
};

TEST_F(FileStoreCompaction, WaitsForTheLimitOfEachFile) {
    const struct {
        const char* name;
        const char* path;
        int limit;
    } rows[] = {
        {"SETUP", setupPath, setupLimit}, {"FRU", fruPath, fruLimit}, {"", currentPath, currentLimit}};
    for (const auto& row : rows) {
        BMCRelationalDB opened;
        opened.initialize(row.name);

        bury(opened, row.limit - 1);
        valueOf(opened, "t");
        EXPECT_EQ(static_cast<std::size_t>(row.limit) - 1, tombstonesOf(row.path)) << row.name;

        opened.setValue("t", "another length");
        EXPECT_EQ(static_cast<std::size_t>(row.limit), tombstonesOf(row.path)) << row.name;
        valueOf(opened, "t");
        EXPECT_EQ(0U, tombstonesOf(row.path)) << row.name;
    }
}

TEST_F(FileStoreCompaction, LeavesTheLiveRecordsInTheirOrderAndNothingElse) {
    store.initialize("FRU");
    store.setValue("a", "value of a");
    store.setValue("b", "value of b");
    store.setValue("c", std::string(100, 'c'));
    store.setValue("a", "longer value of a");
    store.setValue("b", "longer value of b");

    EXPECT_EQ(std::string(100, 'c'), valueOf(store, "c"));

    const std::string bytes = bytesOf(fruPath);
    const std::string first = record("c", 16, std::string(100, 'c'));
    const std::uint32_t second = 16 + static_cast<std::uint32_t>(first.size());
    const std::string records =
        first + record("a", second, "longer value of a") + record("b", second + 80, "longer value of b");
    const std::uint32_t end = 16 + static_cast<std::uint32_t>(records.size());
    EXPECT_EQ(std::string(12, '\0') + word(end) + records + std::string(fruSize - end, '\0'), bytes);
    EXPECT_EQ("longer value of a", freshValue("FRU", "a"));
    EXPECT_EQ("longer value of b", freshValue("FRU", "b"));
}

TEST_F(FileStoreCompaction, ComesBeforeAWrite) {
    store.initialize("FRU");
    bury(store, fruLimit);
    const TraceCapture capture;

    store.setValue("t", "new");

    expectWords(capture, 0xA0401, debugFlags, {fruLimit, fruLimit});
    EXPECT_EQ(1U, capture.count(0xA0900));
    EXPECT_EQ(1U, capture.count(0xA090F));
    EXPECT_EQ(1U, tombstonesOf(fruPath));
    EXPECT_EQ("new", freshValue("FRU", "t"));
}

TEST_F(FileStoreCompaction, ComesBeforeARead) {
    store.initialize("FRU");
    bury(store, fruLimit);
    const TraceCapture capture;

    EXPECT_EQ("t", valueOf(store, "t"));

    expectWords(capture, 0xA0301, debugFlags, {fruLimit, fruLimit});
    EXPECT_EQ(0U, capture.count(0xA0302));
}

TEST_F(FileStoreCompaction, IsNotRepeatedInTheNextOperation) {
    store.initialize("FRU");
    bury(store, fruLimit);
    const TraceCapture capture;

    valueOf(store, "t");
    valueOf(store, "t");
    store.setValue("t", "new");

    EXPECT_EQ(1U, capture.count(0xA0900));
}

TEST_F(FileStoreCompaction, CountsTheTombstonesThatOthersHaveLeft) {
    store.initialize("FRU");
    bury(store, fruLimit);
    BMCRelationalDB other;
    other.initialize("FRU");

    valueOf(other, "t");

    EXPECT_EQ(0U, tombstonesOf(fruPath));
}

TEST_F(FileStoreCompaction, FlushesEachRecordByItself) {
    store.initialize("FRU");
    store.setValue("a", "1");
    store.setValue("b", "1");
    bury(store, fruLimit);
    int flushes = 0;
    kernel.msync = [&](void*, std::size_t, int) { return ++flushes, 0; };

    valueOf(store, "a");

    EXPECT_EQ(2 * 3, flushes);
}

TEST_F(FileStoreCompaction, LeavesAFileWithoutLiveRecordsToBeReloadedUntilTheNextAppend) {
    std::string bytes =
        std::string(12, '\0') + word(144) + record("a", 16, "1234", "YEKD") + record("b", 80, "1234", "YEKD");
    make(fruPath, bytes + std::string(fruSize - bytes.size(), '\0'));
    store.initialize("FRU");

    valueOf(store, "a");
    EXPECT_EQ(std::string(fruSize, '\0'), bytesOf(fruPath));
    {
        const TraceCapture capture;
        valueOf(store, "a");
        expectWords(capture, 0xA0302, debugFlags, {0, 16});
    }
    store.setValue("a", "1234");

    const TraceCapture capture;
    EXPECT_EQ("1234", valueOf(store, "a"));
    EXPECT_EQ(0U, capture.count(0xA0302));
    EXPECT_EQ(80U, nextOffsetOf(fruPath));
}

TEST_F(FileStoreCompaction, FailsWithoutMemoryAndLeavesTheFile) {
    store.initialize("FRU");
    bury(store, fruLimit);
    const std::string before = bytesOf(fruPath);
    kernel.refusesArray = [](std::size_t size) { return size == fruSize; };
    const TraceCapture capture;

    expectFault("garbage_collect", "Buffer Allocation failed.", [&] { valueOf(store, "t"); });

    expectWords(capture, 0xA0901, debugFlags, {0, 0});
    EXPECT_EQ(0U, capture.count(0xA090F));
    EXPECT_EQ(before, bytesOf(fruPath));
    kernel.refusesArray = nullptr;
    EXPECT_EQ("t", valueOf(store, "t"));
    EXPECT_EQ(0U, tombstonesOf(fruPath));
}

TEST_F(FileStoreCompaction, PutsTheFileBackWhenItRunsOutOfMemoryOnTheWay) {
    store.initialize("FRU");
    store.setValue("a", "1");
    store.setValue("b", "2");
    bury(store, fruLimit);
    const std::string bytes = bytesOf(fruPath);
    int requests = 0;
    kernel.refusesObject = [&](std::size_t size) {
        return size >= sizeof(BMCRelationalDB::ndb_t) && ++requests == 2; // the entry of "b"
    };
    EXPECT_THROW(store.garbage_collect(), std::bad_alloc);
    kernel.refusesObject = nullptr;

    EXPECT_TRUE(bytes == bytesOf(fruPath));
    EXPECT_EQ("1", valueOf(store, "a"));
    EXPECT_EQ("2", valueOf(store, "b"));
    expectFault("setValue_internal", "Dbfile overflow.",
                [&] { store.setValue("long", std::string(fruSize, 'x')); });
}

TEST_F(FileStoreCompaction, IsFoundByAnOpenStoreThroughTheRecordCheck) {
    store.initialize("FRU");
    store.setValue("a", "1");
    store.setValue("b", "2");
    store.setValue("c", "3");
    BMCRelationalDB other;
    other.initialize("FRU");
    const std::uint32_t end = nextOffsetOf(fruPath);
    // Two changes of length and a compaction end where the file ended before.
    store.setValue("a", "11");
    store.setValue("a", "111");
    valueOf(store, "a");
    ASSERT_EQ(end, nextOffsetOf(fruPath));
    ASSERT_EQ((std::vector<std::string>{"b", "c", "a"}), liveKeysOf(fruPath));
    const TraceCapture capture;

    EXPECT_EQ("2", valueOf(other, "b"));

    EXPECT_EQ(0U, capture.count(0xA0302));
    EXPECT_EQ(1U, capture.count(0xA0311));
    EXPECT_EQ("111", valueOf(other, "a"));
    EXPECT_EQ("3", valueOf(other, "c"));
}

TEST_F(FileStoreCompaction, IsFoundByAWriteOfAnOpenStoreThroughTheRecordCheck) {
    store.initialize("FRU");
    store.setValue("a", "1");
    store.setValue("b", "2");
    store.setValue("c", "3");
    BMCRelationalDB other;
    other.initialize("FRU");
    store.setValue("a", "11");
    store.setValue("a", "111");
    valueOf(store, "a");
    const TraceCapture capture;

    other.setValue("b", "x");

    EXPECT_EQ(1U, capture.count(0xA0411));
    EXPECT_EQ("x", valueOf(store, "b"));
    EXPECT_EQ("3", valueOf(store, "c"));
    EXPECT_EQ("111", valueOf(store, "a"));
}

TEST_F(FileStoreCompaction, KeepsRecordsThatReachIntoTheReserve) {
    const std::string value(fruSize - 144 - 48, 'v');
    for (const std::uint32_t tail : {0U, 16U}) {
        const std::string live = value.substr(tail);
        const std::string bytes = std::string(12, '\0') + word(fruSize - tail) +
                                  record("t", 16, "1", "YEKD") + record("t", 80, "2", "YEKD") +
                                  record("long", 144, live);
        make(fruPath, bytes + std::string(fruSize - bytes.size(), '\0'));
        BMCRelationalDB opened;
        opened.initialize("FRU");

        EXPECT_TRUE(live == valueOf(opened, "long"));

        EXPECT_EQ(0U, tombstonesOf(fruPath));
        EXPECT_EQ(fruSize - tail - 128, nextOffsetOf(fruPath));
        EXPECT_TRUE(live == freshValue("FRU", "long"));
        expectFault("setValue_internal", "Dbfile overflow.", [&] { opened.setValue("more", "x"); });
    }
}

TEST_F(FileStoreCompaction, OfARecordUpToTheEndOfTheFileStaysInTheFile) {
    store.initialize("FRU");
    const std::string value(fruSize - 16 - 48, 'v');
    const std::string bytes = std::string(12, '\0') + word(fruSize) + record("long", 16, value);
    make(fruPath, bytes);

    store.garbage_collect();

    EXPECT_EQ(fruSize, bytesOf(fruPath).size());
    EXPECT_TRUE(value == freshValue("FRU", "long"));
}

} // namespace
