#include "FileStore.h"
#include "support/ChildProcess.h"

#include <unistd.h>

#include <csignal>
#include <list>
#include <set>

using qz::tavrel::BMCRelationalDB;
using namespace tavrel::test;

namespace {

[[noreturn]] void dieNow() {
    real::kill(getpid(), SIGKILL);
    for (;;) {
        pause();
    }
}

class FileStoreProcesses : public FileStore {
protected:
    FileStoreProcesses() { store.initialize("FRU"); }

    /// Lets another process work on the file from its opening to its end.
    static void elsewhere(const std::function<void(BMCRelationalDB&)>& work) {
        ChildProcess other([&](Talk&) {
            BMCRelationalDB opened;
            opened.initialize("FRU");
            work(opened);
            return 0;
        });
        EXPECT_EQ(0, other.wait());
    }

    BMCRelationalDB store;
};

TEST_F(FileStoreProcesses, FindWhatAnotherHasAppended) {
    store.setValue("a", "1");
    elsewhere([](BMCRelationalDB& other) { other.setValue("b", "2"); });
    const TraceCapture capture;

    EXPECT_EQ("2", valueOf(store, "b"));

    const auto reloads = capture.of(0xA0302);
    ASSERT_EQ(1U, reloads.size());
    EXPECT_EQ((std::vector<int>{144, 80}), reloads[0].arguments());
    EXPECT_EQ("1", valueOf(store, "a"));
    EXPECT_EQ(1U, capture.count(0xA0302));
}

TEST_F(FileStoreProcesses, AppendBehindWhatAnotherHasAppended) {
    store.setValue("a", "1");
    elsewhere([](BMCRelationalDB& other) { other.setValue("b", "2"); });
    const TraceCapture capture;

    store.setValue("c", "3");

    EXPECT_EQ(1U, capture.count(0xA0402));
    EXPECT_EQ((std::vector<std::string>{"a", "b", "c"}), liveKeysOf(fruPath));
}

TEST_F(FileStoreProcesses, SeeAChangeInPlaceAtOnce) {
    store.setValue("a", "1234");
    elsewhere([](BMCRelationalDB& other) { other.setValue("a", "5678"); });
    const TraceCapture capture;

    EXPECT_EQ("5678", valueOf(store, "a"));

    EXPECT_EQ(0U, capture.count(0xA0600));
}

TEST_F(FileStoreProcesses, FindAValueThatAnotherHasMadeLonger) {
    store.setValue("a", "1234");
    elsewhere([](BMCRelationalDB& other) { other.setValue("a", "12345"); });

    EXPECT_EQ("12345", valueOf(store, "a"));
}

TEST_F(FileStoreProcesses, FindAValueThatAnotherHasMovedByACompaction) {
    for (const char* key : {"a", "b", "c"}) {
        store.setValue(key, key);
    }
    const std::uint32_t end = nextOffsetOf(fruPath);
    elsewhere([](BMCRelationalDB& other) {
        other.setValue("a", "aa");
        other.setValue("a", "aaa");
        valueOf(other, "a");
    });
    ASSERT_EQ(end, nextOffsetOf(fruPath));
    ASSERT_EQ((std::vector<std::string>{"b", "c", "a"}), liveKeysOf(fruPath));
    const TraceCapture capture;

    EXPECT_EQ("b", valueOf(store, "b"));

    EXPECT_EQ(0U, capture.count(0xA0302));
    EXPECT_EQ(1U, capture.count(0xA0311));
    EXPECT_EQ("aaa", valueOf(store, "a"));
    EXPECT_EQ("c", valueOf(store, "c"));
}

TEST_F(FileStoreProcesses, KeepTheirViewsAfterAFork) {
    store.setValue("a", "1234");
    ChildProcess other([this](Talk&) {
        EXPECT_EQ("1234", valueOf(store, "a"));
        store.setValue("a", "from the child");
        return 0;
    });
    EXPECT_EQ(0, other.wait());

    EXPECT_EQ("from the child", valueOf(store, "a"));
}

TEST_F(FileStoreProcesses, WaitForOneThatIsInsideAWrite) {
    ChildProcess writer([](Talk& talk) {
        BMCRelationalDB opened;
        opened.initialize("FRU");
        bool told = false;
        kernel.msync = [&](void* start, std::size_t length, int flags) {
            if (!told) {
                told = true;
                talk.tell('i');
                talk.waitFor('g');
            }
            return real::msync(start, length, flags);
        };
        opened.setValue("a", "1234");
        return 0;
    });
    ASSERT_TRUE(writer.talk().waitFor('i'));
    ChildProcess reader([](Talk& talk) {
        BMCRelationalDB opened;
        talk.tell('b');
        opened.initialize("FRU");
        talk.tell('o');
        EXPECT_EQ("1234", valueOf(opened, "a"));
        return 0;
    });
    ASSERT_TRUE(reader.talk().waitFor('b'));

    EXPECT_FALSE(reader.talk().hasMark(100));

    writer.talk().tell('g');
    EXPECT_EQ(0, writer.wait());
    EXPECT_TRUE(reader.talk().waitFor('o'));
    EXPECT_EQ(0, reader.wait());
}

TEST_F(FileStoreProcesses, AllSucceedWhenTheyStartAtTheSameMoment) {
    unlink(setupPath);
    constexpr int count = 8;
    std::list<ChildProcess> starters;
    for (int i = 0; i < count; ++i) {
        starters.emplace_back([i](Talk& talk) {
            talk.tell('r');
            talk.waitFor('g');
            BMCRelationalDB opened;
            opened.initialize("SETUP");
            opened.setValue(std::to_string(i), "started");
            return 0;
        });
    }
    for (ChildProcess& each : starters) {
        ASSERT_TRUE(each.talk().waitFor('r'));
    }

    for (ChildProcess& each : starters) {
        each.talk().tell('g');
    }

    for (ChildProcess& each : starters) {
        EXPECT_EQ(0, each.wait());
    }
    EXPECT_EQ(setupSize, bytesOf(setupPath).size());
    for (int i = 0; i < count; ++i) {
        EXPECT_EQ("started", freshValue("SETUP", std::to_string(i)));
    }
}

/// Kills a process at one of its flushes and looks at what it leaves.
class FileStoreCrash : public FileStoreProcesses {
protected:
    FileStoreCrash() {
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

TEST_F(FileStoreCrash, WhileTheFileIsMadeLeavesOneThatTheNextProcessCompletes) {
    unlink(setupPath);
    ChildProcess maker([](Talk&) {
        int blocks = 0;
        kernel.write = [&](int fd, const void* data, std::size_t size) {
            if (size == 16384 && ++blocks == 2) {
                dieNow();
            }
            return real::write(fd, data, size);
        };
        BMCRelationalDB opened;
        opened.initialize("SETUP");
        return 0;
    });
    ASSERT_EQ(-SIGKILL, maker.wait());
    ASSERT_EQ(16384U, bytesOf(setupPath).size());
    BMCRelationalDB opened;

    opened.initialize("SETUP");
    opened.setValue("a", "1234");

    EXPECT_EQ(setupSize, bytesOf(setupPath).size());
    EXPECT_EQ("1234", freshValue("SETUP", "a"));
}

/// Many processes on one file. A value names its key and its length, so that any mix of two shows.
class FileStoreLoad : public FileStore {
protected:
    static std::string makeValue(const std::string& key, std::size_t length) {
        std::string value = key + ':' + std::to_string(length) + ':';
        value.resize(length, static_cast<char>('a' + length % 26));
        return value;
    }

    /// True if `value` is whole: one that was set for `key`.
    static bool isWhole(const std::string& key, const std::string& value) {
        return value == makeValue(key, value.size());
    }

    static constexpr std::size_t shortest = 24;

    static std::string keyOf(int writer, unsigned int number) {
        return "w" + std::to_string(writer) + '.' + std::to_string(number);
    }

    /// A length that differs from round to round.
    static std::size_t lengthOf(int writer, unsigned int round) {
        return shortest + (round * 37 + static_cast<unsigned int>(writer) * 11) % 200;
    }

    /// The file holds whole values alone, each key once, in records that say where they stand.
    static void expectSound(const std::string& path) {
        std::set<std::string> keys;
        for (const FileRecord& each : recordsOf(path)) {
            EXPECT_EQ(0U, each.place % 16);
            EXPECT_EQ(each.place, each.recordOffset);
            if (each.live()) {
                EXPECT_TRUE(keys.insert(each.key).second) << each.key << " twice";
                EXPECT_TRUE(isWhole(each.key, each.value)) << each.key << ' ' << each.value;
            }
        }
    }
};

TEST_F(FileStoreLoad, LosesNothingWithSeveralWriters) {
    constexpr int writers = 4;
    constexpr unsigned int rounds = 300;
    constexpr unsigned int keys = 5;
    {
        BMCRelationalDB first;
        first.initialize("SETUP");
        first.setValue("constant", makeValue("constant", 50));
    }
    std::list<ChildProcess> processes;
    for (int writer = 0; writer < writers; ++writer) {
        processes.emplace_back([writer](Talk& talk) {
            BMCRelationalDB opened;
            opened.initialize("SETUP");
            talk.tell('r');
            talk.waitFor('g');
            for (unsigned int round = 0; round < rounds; ++round) {
                const std::string key = keyOf(writer, round % keys);
                const std::string value = makeValue(key, lengthOf(writer, round));
                opened.setValue(key, value);
                EXPECT_EQ(value, valueOf(opened, key));
                const std::string other = keyOf((writer + 1) % writers, round % keys);
                const std::string foreign = valueOf(opened, other);
                EXPECT_TRUE(foreign == "(absent)" || isWhole(other, foreign)) << foreign;
                EXPECT_EQ(makeValue("constant", 50), valueOf(opened, "constant"));
            }
            return 0;
        });
    }
    for (ChildProcess& each : processes) {
        ASSERT_TRUE(each.talk().waitFor('r'));
    }

    for (ChildProcess& each : processes) {
        each.talk().tell('g');
    }

    for (ChildProcess& each : processes) {
        EXPECT_EQ(0, each.wait());
    }
    expectSound(setupPath);
    for (int writer = 0; writer < writers; ++writer) {
        for (unsigned int round = rounds - keys; round < rounds; ++round) {
            const std::string key = keyOf(writer, round % keys);
            EXPECT_EQ(makeValue(key, lengthOf(writer, round)), freshValue("SETUP", key));
        }
    }
}

TEST_F(FileStoreLoad, StaysSoundWithAWriterThatIsKilledAgainAndAgain) {
    constexpr int writers = 2;
    constexpr int victim = writers;
    constexpr int deaths = 40;
    constexpr unsigned int keys = 5;
    std::list<ChildProcess> processes;
    for (int writer = 0; writer < writers; ++writer) {
        processes.emplace_back([writer](Talk& talk) {
            BMCRelationalDB opened;
            opened.initialize("SETUP");
            for (unsigned int round = 0; !talk.hasMark(0); ++round) {
                const std::string key = keyOf(writer, round % keys);
                const std::string value = makeValue(key, lengthOf(writer, round));
                opened.setValue(key, value);
                // A process that dies in a compaction takes values with it, but leaves no wrong ones.
                const std::string found = valueOf(opened, key);
                EXPECT_TRUE(found == "(absent)" || found == value) << found;
                const std::string other = keyOf(victim, round % keys);
                const std::string foreign = valueOf(opened, other);
                EXPECT_TRUE(foreign == "(absent)" || isWhole(other, foreign)) << foreign;
            }
            return 0;
        });
    }

    for (int death = 0; death < deaths; ++death) {
        ChildProcess dying([death](Talk& talk) {
            BMCRelationalDB opened;
            opened.initialize("SETUP");
            for (unsigned int round = 0;; ++round) {
                const std::string key = keyOf(victim, round % keys);
                opened.setValue(key, makeValue(key, lengthOf(victim + death, round)));
                if (round == 3 + static_cast<unsigned int>(death) % 7) {
                    talk.tell('w');
                }
            }
            return 0;
        });
        ASSERT_TRUE(dying.talk().waitFor('w'));
        dying.kill();
    }

    for (ChildProcess& each : processes) {
        each.talk().tell('s');
        EXPECT_EQ(0, each.wait());
    }
    expectSound(setupPath);
    BMCRelationalDB last;
    last.initialize("SETUP");
    for (int writer = 0; writer <= victim; ++writer) {
        for (unsigned int number = 0; number < keys; ++number) {
            const std::string key = keyOf(writer, number);
            last.setValue(key, makeValue(key, lengthOf(writer, number)));
        }
    }
    for (int writer = 0; writer <= victim; ++writer) {
        for (unsigned int number = 0; number < keys; ++number) {
            const std::string key = keyOf(writer, number);
            EXPECT_EQ(makeValue(key, lengthOf(writer, number)), freshValue("SETUP", key));
        }
    }
    expectSound(setupPath);
}

} // namespace
