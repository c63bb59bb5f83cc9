#include "process/Machine.h"
#include "support/ChildProcess.h"

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <memory>

using namespace qz::tavrel;
using namespace tavrel::test;

namespace {

constexpr int crowd = 8;

/// What a process did at its start, as its exit code.
enum Done { nothing = 0, madeCache = 1, builtTree = 2, raisedVersion = 4 };

int codeOf(const Work& work) {
    return (work.madeCache ? madeCache : 0) | (work.builtTree ? builtTree : 0) |
           (work.raisedVersion ? raisedVersion : 0);
}

/// Several processes that begin their start at the same moment.
class Crowd {
public:
    explicit Crowd(int size, const Watch& watch = {}) {
        for (int i = 0; i < size; ++i) {
            processes.push_back(std::make_unique<ChildProcess>([watch](Talk& talk) {
                Process process(watch);
                talk.tell('r');
                talk.waitFor('g');
                const int code = codeOf(process.start());
                EXPECT_EQ(machineSize, static_cast<int>(all(board).size() + all(sensor).size()) + 1);
                return code;
            }));
        }
        for (const auto& each : processes) {
            each->talk().waitFor('r');
        }
        for (const auto& each : processes) {
            each->talk().tell('g');
        }
    }

    /// Waits for all. @return how many did `work`; a process that failed or died shows as -1000
    int thatDid(Done work) {
        if (codes.empty()) {
            for (const auto& each : processes) {
                codes.push_back(each->wait());
            }
        }
        int count = 0;
        for (const int code : codes) {
            EXPECT_TRUE(code >= 0 && code <= 7) << "exit code " << code;
            count += code < 0 || code > 7 ? -1000 : (code & work) != 0 ? 1 : 0;
        }
        return count;
    }

private:
    std::vector<std::unique_ptr<ChildProcess>> processes;
    std::vector<int> codes;
};

/// Starts one process and looks at what it finds. @return what it had to do; -1 if anything is wrong
int startAndCheck() {
    ChildProcess child([](Talk&) {
        Process process;
        const int code = codeOf(process.start());
        EXPECT_EQ("", damage());
        EXPECT_EQ(1U, all(chassis).size());
        EXPECT_EQ(3U, all(board).size());
        EXPECT_EQ(6U, all(sensor).size());
        return code;
    });
    const int code = child.wait();
    return code >= 0 && code <= 7 ? code : -1;
}

/// Starts one process beside others.
void startAnother() {
    ChildProcess child([](Talk&) {
        Process process;
        process.start();
        return 0;
    });
    EXPECT_EQ(0, child.wait());
}

TEST(Start, OfManyProcessesOnAnEmptyMachineMakesOneTreeAndOneCache) {
    specify("1", "tavrel.initializer = enable\n");
    for (int round = 0; round < 3; ++round) {
        emptyMachine();

        Crowd starting(crowd);

        EXPECT_EQ(1, starting.thatDid(madeCache));
        EXPECT_EQ(1, starting.thatDid(builtTree));
        EXPECT_EQ(0, starting.thatDid(raisedVersion));
        EXPECT_EQ(nothing, startAndCheck());
    }
}

TEST(Start, FindsTheTreeThatAnotherProcessHasBuiltSinceItLookedAtTheVersion) {
    specify("1", "tavrel.initializer = enable\n");
    ChildProcess slow([](Talk& talk) {
        bool hasLooked = false;
        Watch watch;
        watch.afterGet = [&](const std::string& key) {
            if (key == "tavrel0" && !hasLooked) {
                hasLooked = true;
                talk.tell('l');
                talk.waitFor('g');
            }
        };
        Process process(watch);
        const Work work = process.start();
        EXPECT_EQ((Work{true, false, false}), work);
        EXPECT_EQ(31U, valueOf(all(sensor)[0]).value);
        return 0;
    });
    slow.talk().waitFor('l');
    ChildProcess fast([](Talk&) {
        Process process;
        EXPECT_EQ((Work{false, true, false}), process.start());
        setValue(all(sensor)[0], 31);
        return 0;
    });
    EXPECT_EQ(0, fast.wait());

    slow.talk().tell('g');

    EXPECT_EQ(0, slow.wait());
}

TEST(Start, OfManyProcessesAfterARestartMakesOneCacheAndNoTree) {
    specify("1");
    ASSERT_EQ(madeCache | builtTree, startAndCheck());
    restartMachine();

    Crowd starting(crowd);

    EXPECT_EQ(1, starting.thatDid(madeCache));
    EXPECT_EQ(0, starting.thatDid(builtTree));
    EXPECT_EQ(0, starting.thatDid(raisedVersion));
}

TEST(Start, OfManyProcessesInANewVersionMigratesStoredValuesOnce) {
    specify("1");
    ChildProcess first([](Talk&) {
        Process process;
        process.start();
        EXPECT_EQ(4, Component::getRoot()->setProperty(serialKey, 0x01020304));
        setValue(all(sensor)[5], 77);
        return 0;
    });
    ASSERT_EQ(0, first.wait());
    restartMachine();
    specify("2", "tavrel.initializer = enable\n", 8);

    Watch counting;
    counting.migration = [](std::vector<unsigned char>& serial) { ++serial.back(); };
    Crowd starting(crowd, counting);

    EXPECT_EQ(1, starting.thatDid(raisedVersion));
    EXPECT_EQ(0, starting.thatDid(builtTree));
    ChildProcess later([](Talk&) {
        Process process;
        EXPECT_EQ(Work{}, process.start());
        unsigned char serial[8] = {};
        EXPECT_EQ(8, Component::getRoot()->getProperty(serialKey, serial, sizeof serial));
        EXPECT_EQ(std::string("\1\2\3\4\0\0\0\1", 8), std::string(serial, serial + 8));
        EXPECT_EQ(77U, valueOf(all(sensor)[5]).value);
        EXPECT_EQ("", damage());
        return 0;
    });
    EXPECT_EQ(0, later.wait());
}

// --- death on the way ---

/// Lets processes die at the first, second, ... passing of a step until one gets through, each on an empty
/// machine, and has the next process complete the start.
/// @param watching  gives a watch that calls its argument at the step
/// @param prepare   makes the machine before each death
/// @return how many have died
int dieAtEach(const std::function<Watch(std::function<void()>)>& watching,
              const std::function<void()>& prepare, int work) {
    for (int fatal = 1;; ++fatal) {
        prepare();
        ChildProcess child([&](Talk&) {
            int passed = 0;
            Process process(watching([&] {
                if (++passed == fatal) {
                    die();
                }
            }));
            process.start();
            return 0;
        });
        const int end = child.wait();
        if (end == 0) {
            return fatal - 1;
        }
        EXPECT_EQ(-SIGKILL, end);
        const int done = startAndCheck();
        EXPECT_TRUE(done != -1 && (done | madeCache) == (work | madeCache))
            << "after death " << fatal << " the next process did " << done;
        EXPECT_EQ(nothing, startAndCheck()) << "after death " << fatal;
        if (testing::Test::HasFailure()) {
            return fatal;
        }
    }
}

TEST(Start, IsCompletedAfterADeathWhileTheCacheIsWritten) {
    specify("1");
    const auto watching = [](const std::function<void()>& step) {
        Watch watch;
        watch.beforeType = [step](const std::string&) { step(); };
        return watch;
    };

    EXPECT_LT(5, dieAtEach(watching, emptyMachine, builtTree));
}

TEST(Start, IsCompletedAfterADeathBeforeAnyValueOfAFreshTreeIsStored) {
    specify("1", "tavrel.initializer = enable\n");
    const auto watching = [](const std::function<void()>& step) {
        Watch watch;
        watch.beforeSet = [step](const std::string&) { step(); };
        return watch;
    };

    // The values of all properties, the nodes, the owned links, the tree, the version.
    EXPECT_EQ(machineSize + 1 + 4, dieAtEach(watching, emptyMachine, builtTree));
}

TEST(Start, IsCompletedAfterADeathWhileAFreshTreeIsVisited) {
    specify("1", "tavrel.initializer = enable\n");
    const auto watching = [](const std::function<void()>& step) {
        Watch watch;
        watch.beforeVisit = [step](int) { step(); };
        return watch;
    };

    EXPECT_EQ(machineSize, dieAtEach(watching, emptyMachine, builtTree));
}

TEST(Start, IsDoneOnceTheVersionIsStored) {
    specify("1");
    ChildProcess child([](Talk&) {
        Watch watch;
        watch.afterSet = [](const std::string& key) {
            if (key == "tavrel0") {
                die(); // with the root and the tree locked
            }
        };
        Process process(watch);
        process.start();
        return 0;
    });
    EXPECT_EQ(-SIGKILL, child.wait());

    EXPECT_EQ(nothing, startAndCheck());
}

TEST(Start, InANewVersionIsCompletedAfterADeathOnTheWay) {
    const auto prepare = [] {
        emptyMachine();
        specify("1");
        ASSERT_EQ(madeCache | builtTree, startAndCheck());
        restartMachine();
        specify("2", "tavrel.initializer = enable\n", 8);
    };
    const auto watching = [](const std::function<void()>& step) {
        Watch watch;
        watch.beforeSet = [step](const std::string&) { step(); };
        return watch;
    };

    // All values come into being or grow; then the version.
    EXPECT_EQ(machineSize + 1 + 1, dieAtEach(watching, prepare, raisedVersion));
}

// --- those who wait for one that dies ---

TEST(Start, GoesOnWhenTheProcessDiesThatWritesTheCache) {
    specify("1");
    ChildProcess writer([](Talk& talk) {
        Watch watch;
        watch.beforeType = [&talk](const std::string& name) {
            if (name == "Sensor") {
                talk.tell('h');
                talk.waitFor('-'); // for ever
            }
        };
        Process process(watch);
        process.start();
        return 0;
    });
    writer.talk().waitFor('h');
    ChildProcess waiting([](Talk& talk) {
        Process process;
        talk.tell('b');
        const Work work = process.start();
        talk.tell('d');
        EXPECT_EQ((Work{true, true, false}), work);
        EXPECT_EQ("", damage());
        return 0;
    });
    waiting.talk().waitFor('b');
    EXPECT_FALSE(waiting.talk().hasMark(100));

    writer.kill();

    EXPECT_TRUE(waiting.talk().waitFor('d'));
    EXPECT_EQ(0, waiting.wait());
}

TEST(Start, GoesOnWhenTheProcessDiesThatBuildsTheTreeAndAnotherStarts) {
    specify("1", "tavrel.initializer = enable\n");
    ChildProcess builder([](Talk& talk) {
        Watch watch;
        watch.beforeVisit = [&talk](int id) {
            if (id == 0) {
                talk.tell('h');
                talk.waitFor('-'); // for ever
            }
        };
        Process process(watch);
        process.start();
        return 0;
    });
    builder.talk().waitFor('h');
    ChildProcess waiting([](Talk& talk) {
        Process process;
        talk.tell('b');
        process.start();
        talk.tell('d');
        return 0;
    });
    waiting.talk().waitFor('b');
    EXPECT_FALSE(waiting.talk().hasMark(100));

    builder.kill();
    // The waiting one may have been let into the tree before the dead one was gone altogether; then it sleeps
    // on the root's lock until somebody asks for a lock.
    startAnother();

    EXPECT_TRUE(waiting.talk().waitFor('d'));
    EXPECT_EQ(0, waiting.wait());
    EXPECT_EQ(nothing, startAndCheck());
}

TEST(Start, OfACrowdGoesOnWhenTheOneThatBuildsTheTreeDiesAndAnotherStarts) {
    specify("1", "tavrel.initializer = enable\n");
    Watch firstDies;
    firstDies.beforeVisit = [](int id) {
        if (id == 0 && std::filesystem::create_directory("/tmp/died")) {
            die();
        }
    };
    std::vector<std::unique_ptr<ChildProcess>> processes;
    for (int i = 0; i < crowd; ++i) {
        processes.push_back(std::make_unique<ChildProcess>([&firstDies](Talk& talk) {
            Process process(firstDies);
            talk.tell('r');
            talk.waitFor('g');
            process.start();
            return 0;
        }));
    }
    for (const auto& each : processes) {
        each->talk().waitFor('r');
    }
    for (const auto& each : processes) {
        each->talk().tell('g');
    }
    // None but the dead one can have ended: the version is not stored, and a lock is not taken from a process
    // that somebody has yet to wait for.
    siginfo_t ended{};
    ASSERT_EQ(0, waitid(P_ALL, 0, &ended, WEXITED | WNOWAIT));
    const auto dead = std::find_if(processes.begin(), processes.end(),
                                   [&ended](const auto& each) { return each->pid() == ended.si_pid; });
    ASSERT_NE(processes.end(), dead);
    EXPECT_EQ(-SIGKILL, (*dead)->wait());

    // Those who sleep on the root's lock are woken by the next one that asks for a lock.
    startAnother();

    processes.erase(dead);
    for (const auto& each : processes) {
        EXPECT_EQ(0, each->wait());
    }
    EXPECT_EQ(nothing, startAndCheck());
}

} // namespace
