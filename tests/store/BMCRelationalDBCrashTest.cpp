#include "FileStore.h"
#include "support/ChildProcess.h"

#include <unistd.h>

#include <csignal>

using qz::tavrel::BMCRelationalDB;
using namespace tavrel::test;

namespace {

[[noreturn]] void dieNow() {
    real::kill(getpid(), SIGKILL);
    for (;;) {
        pause();
    }
}

/// Kills a process at one of its flushes and looks at what it leaves.
class FileStoreCrash : public FileStore {
protected:
    FileStoreCrash() {
        store.initialize("FRU");
        store.setValue("before", "stays");
        store.setValue("victim", "1234");
        store.setValue("behind", "stays");
    }

    static constexpr std::uint32_t end = 16 + 3 * 64;

    /// `work` in a process that dies when it comes to its flush number `flush`, from 1.
    static void dieAt(int flush, const std::function<void(BMCRelationalDB&)>& work) {
        ChildProcess victim([&](Talk&) {
            BMCRelationalDB opened;
            opened.initialize("FRU");
            kernel.msync = [left = flush](void* start, std::size_t length, int flags) mutable {
                if (--left == 0) {
                    dieNow();
                }
                return real::msync(start, length, flags);
            };
            work(opened);
            return 0;
        });
        EXPECT_EQ(-SIGKILL, victim.wait());
    }

    static void changeLength(BMCRelationalDB& opened) { opened.setValue("victim", "12345"); }

    /// What a process that was there all the time and one that comes anew both find.
    void expectValues(const std::string& victim) {
        EXPECT_EQ(victim, freshValue("FRU", "victim"));
        EXPECT_EQ("stays", freshValue("FRU", "before"));
        EXPECT_EQ("stays", freshValue("FRU", "behind"));
        EXPECT_EQ(victim, valueOf(store, "victim"));
        EXPECT_EQ("stays", valueOf(store, "before"));
        EXPECT_EQ("stays", valueOf(store, "behind"));
    }

    BMCRelationalDB store;
};

TEST_F(FileStoreCrash, InAChangeInPlaceLeavesTheLength) {
    dieAt(1, [](BMCRelationalDB& opened) { opened.setValue("victim", "5678"); });

    expectValues("5678");
    EXPECT_EQ(end, nextOffsetOf(fruPath));
}

TEST_F(FileStoreCrash, InTheCopyOfAChangeInPlaceLeavesAMixThatNothingDetects) {
    patch(fruPath, 16 + 64 + 48, "56"); // half of the copy

    expectValues("5634");
}

TEST_F(FileStoreCrash, BehindTheTombstoneLeavesTheKeyAbsent) {
    dieAt(1, changeLength);

    expectValues("(absent)");
    EXPECT_EQ(end, nextOffsetOf(fruPath));
    EXPECT_EQ("YEKD", recordsOf(fruPath)[1].magic);
    store.setValue("victim", "new");
    expectValues("new");
}

TEST_F(FileStoreCrash, BehindNextOffsetLeavesTheKeyAbsent) {
    dieAt(2, changeLength);

    expectValues("(absent)");
    EXPECT_EQ(end + 64, nextOffsetOf(fruPath));
    EXPECT_EQ(3U, recordsOf(fruPath).size());
}

TEST_F(FileStoreCrash, BehindNextOffsetMakesAllReloadUntilTheNextAppend) {
    dieAt(2, changeLength);
    {
        const TraceCapture capture;
        valueOf(store, "before");
        valueOf(store, "before");
        EXPECT_EQ(2U, capture.count(0xA0302));
    }

    store.setValue("victim", "new");

    const TraceCapture capture;
    expectValues("new");
    EXPECT_EQ(0U, capture.count(0xA0302));
    EXPECT_EQ(end + 64, nextOffsetOf(fruPath));
}

TEST_F(FileStoreCrash, InTheValueOfTheNewRecordLeavesTheKeyAbsent) {
    dieAt(2, changeLength);
    patch(fruPath, end + 1, std::string(30, 'x')); // all but the first byte of the new record
    patch(fruPath, end + 48, std::string(200, 'x'));

    expectValues("(absent)");
    store.setValue("victim", "new");
    store.setValue("next", "one");
    expectValues("new");
    EXPECT_EQ("one", freshValue("FRU", "next"));
    EXPECT_EQ((std::vector<std::string>{"before", "behind", "victim", "next"}), liveKeysOf(fruPath));
}

TEST_F(FileStoreCrash, BeforeANewRecordOverADamagedOneLeavesAZeroInItsPlace) {
    for (const std::string& damaged : {std::string(64, '\xFF'), record("old", 0, "1234")}) {
        patch(fruPath, end, damaged);

        dieAt(1, [](BMCRelationalDB& opened) { opened.setValue("new", "value"); });

        EXPECT_EQ('\0', bytesOf(fruPath)[end]);
        EXPECT_EQ("(absent)", freshValue("FRU", "new"));
    }
    expectValues("1234");
}

TEST_F(FileStoreCrash, BehindTheRecordLeavesTheNewValue) {
    dieAt(3, changeLength);

    expectValues("12345");
}

TEST_F(FileStoreCrash, OfANewKeyLeavesItAbsentOrWhole) {
    dieAt(1, [](BMCRelationalDB& opened) { opened.setValue("new", "value"); });
    EXPECT_EQ("(absent)", freshValue("FRU", "new"));

    dieAt(2, [](BMCRelationalDB& opened) { opened.setValue("new", "value"); });
    EXPECT_EQ("value", freshValue("FRU", "new"));
    expectValues("1234");
}

TEST_F(FileStoreCrash, InACompactionLeavesTheRecordsWrittenAnew) {
    store.setValue("victim", "12345");
    store.setValue("victim", "123456");
    ASSERT_EQ((std::vector<std::string>{"before", "behind", "victim"}), liveKeysOf(fruPath));

    // Two flushes for each record: behind the one of "before" and the first of "behind".
    dieAt(3, [](BMCRelationalDB& opened) { valueOf(opened, "before"); });

    EXPECT_EQ("stays", freshValue("FRU", "before"));
    EXPECT_EQ("(absent)", freshValue("FRU", "behind"));
    EXPECT_EQ("(absent)", freshValue("FRU", "victim"));
    EXPECT_EQ("(absent)", valueOf(store, "victim"));
    store.setValue("victim", "new");
    store.setValue("behind", "stays");
    expectValues("new");
}

TEST_F(FileStoreCrash, BetweenTheCopyOfACompactionAndItsFirstRecordLeavesNothing) {
    store.setValue("victim", "12345");
    store.setValue("victim", "123456");

    dieAt(1, [](BMCRelationalDB& opened) { valueOf(opened, "before"); });

    EXPECT_EQ("(absent)", valueOf(store, "before"));
    store.setValue("before", "stays");
    store.setValue("behind", "stays");
    store.setValue("victim", "new");
    expectValues("new");
}

TEST_F(FileStoreCrash, HalfWayThroughTheZeroingOfACompactionLeavesNoLeftovers) {
    const std::string bytes = bytesOf(fruPath);
    patch(fruPath, 0, std::string(100, '\0')); // as far as the zeroing came
    EXPECT_EQ("(absent)", freshValue("FRU", "before"));

    store.setValue("before", "stays");
    store.setValue("behind", "stays");
    store.setValue("victim", "new");

    expectValues("new");
    EXPECT_EQ((std::vector<std::string>{"before", "behind", "victim"}), liveKeysOf(fruPath));
}

TEST_F(FileStoreCrash, WhileTheFileIsMadeLeavesNoneToOpen) {
    unlink(setupPath);
    ChildProcess maker([](Talk&) {
        int blocks = 0;
        kernel.write = [&](int fd, const void* data, std::size_t size) {
            if (size == 16384 && ++blocks == 2) {
                real::write(fd, data, 100);
                dieNow();
            }
            return real::write(fd, data, size);
        };
        BMCRelationalDB opened;
        opened.initialize("SETUP");
        return 0;
    });
    ASSERT_EQ(-SIGKILL, maker.wait());
    EXPECT_NE(0, access(setupPath, F_OK));
    ASSERT_EQ(16384U + 100, bytesOf(std::string(setupPath) + ".new").size());
    BMCRelationalDB opened;

    opened.initialize("SETUP");
    opened.setValue("a", "1234");

    EXPECT_EQ(setupSize, bytesOf(setupPath).size());
    EXPECT_NE(0, access((std::string(setupPath) + ".new").c_str(), F_OK));
    EXPECT_EQ("1234", freshValue("SETUP", "a"));
}

} // namespace
