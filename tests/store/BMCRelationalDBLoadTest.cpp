#include "FileStore.h"
#include "support/ChildProcess.h"

#include <atomic>
#include <cerrno>
#include <list>
#include <set>
#include <thread>

using qz::tavrel::BMCRelationalDB;
using namespace tavrel::test;

namespace {

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

TEST_F(FileStoreLoad, KeepsTheThreadsOfOneObjectApart) {
    constexpr int writers = 3;
    constexpr unsigned int rounds = 200;
    constexpr unsigned int keys = 5;
    constexpr int daemonPid = 4242;
    std::atomic<unsigned int> signals{0};
    std::atomic<int> inside{0};
    kernel.getPidByName = [](const char*, int* pid) {
        *pid = daemonPid;
        return 0;
    };
    kernel.kill = [&](pid_t pid, int) {
        EXPECT_EQ(daemonPid, pid);
        EXPECT_EQ(1, ++inside) << "two threads signal at once";
        const bool gone = ++signals % 2 == 0; // so that the daemon is looked up again and again
        --inside;
        errno = ESRCH;
        return gone ? -1 : 0;
    };
    BMCRelationalDB store;
    store.initialize("SETUP");
    std::atomic<bool> stops{false};
    std::atomic<unsigned int> requests{0};
    std::thread syncing([&] {
        do {
            store.dbbackup_sync();
            ++requests;
        } while (!stops);
    });
    std::vector<std::thread> threads;
    for (int writer = 0; writer < writers; ++writer) {
        threads.emplace_back([&store, writer] {
            for (unsigned int round = 0; round < rounds; ++round) {
                const std::string key = keyOf(writer, round % keys);
                const std::string value = makeValue(key, lengthOf(writer, round));
                store.setValue(key, value);
                EXPECT_EQ(value, valueOf(store, key));
                const std::string other = keyOf((writer + 1) % writers, round % keys);
                const std::string foreign = valueOf(store, other);
                EXPECT_TRUE(foreign == "(absent)" || isWhole(other, foreign)) << foreign;
            }
        });
    }

    for (std::thread& each : threads) {
        each.join();
    }
    stops = true;
    syncing.join();

    EXPECT_LE(requests + writers * rounds, signals);
    expectSound(setupPath);
    for (int writer = 0; writer < writers; ++writer) {
        for (unsigned int round = rounds - keys; round < rounds; ++round) {
            const std::string key = keyOf(writer, round % keys);
            EXPECT_EQ(makeValue(key, lengthOf(writer, round)), freshValue("SETUP", key));
        }
    }
}

} // namespace
