#include "FileStore.h"
#include "support/ChildProcess.h"

#include <qz/base/SemaphoreLock.h>

#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <system_error>

using qz::tavrel::BMCRelationalDB;
using namespace tavrel::test;

namespace {

constexpr int daemonPid = 4242;

class FileStoreDaemon : public FileStore {
protected:
    FileStoreDaemon() {
        kernel.getPidByName = [this](const char* name, int* pid) {
            EXPECT_STREQ("tavrel_syncd", name);
            ++searches;
            *pid = daemonPid;
            return 0;
        };
        kernel.kill = [this](pid_t pid, int signal) {
            EXPECT_EQ(daemonPid, pid);
            signals.push_back(signal);
            return 0;
        };
    }

    BMCRelationalDB store;
    std::vector<int> signals;
    int searches = 0;
};

using Signals = std::vector<int>;

TEST_F(FileStoreDaemon, GetsSIGUSR1ForEachFlushOfSetup) {
    store.initialize("SETUP");
    EXPECT_EQ(Signals{}, signals);

    store.setValue("a", "1234");
    EXPECT_EQ((Signals{SIGUSR1, SIGUSR1}), signals);
    signals.clear();
    store.setValue("a", "5678");
    EXPECT_EQ((Signals{SIGUSR1}), signals);
    signals.clear();
    store.setValue("a", "12345");
    EXPECT_EQ((Signals{SIGUSR1, SIGUSR1, SIGUSR1}), signals);
    EXPECT_EQ(1, searches);
}

TEST_F(FileStoreDaemon, GetsSIGUSR2ForEachFlushOfFru) {
    store.initialize("FRU");

    store.setValue("a", "1234");

    EXPECT_EQ((Signals{SIGUSR2, SIGUSR2}), signals);
}

TEST_F(FileStoreDaemon, HearsNothingOfReads) {
    store.initialize("FRU");
    store.setValue("a", "1234");
    signals.clear();

    valueOf(store, "a");

    EXPECT_EQ(Signals{}, signals);
}

TEST_F(FileStoreDaemon, HearsNothingOfTheCurrentFile) {
    store.initialize("current");

    store.setValue("a", "1234");
    store.setValue("a", "12345");
    store.dbbackup_sync();

    EXPECT_EQ(Signals{}, signals);
    EXPECT_EQ(0, searches);
}

TEST_F(FileStoreDaemon, IsSignalledOnceOnRequest) {
    const TraceCapture capture;
    store.initialize("SETUP");

    store.dbbackup_sync();

    EXPECT_EQ((Signals{SIGUSR1}), signals);
    expectWords(capture, 0xA0800, debugFlags, {0, 0});
    expectWords(capture, 0xA0803, debugFlags, {daemonPid, 0});
    expectWords(capture, 0xA080F, debugFlags, {0, 0});
}

TEST_F(FileStoreDaemon, IsSignalledUnderTheLockOfTheFile) {
    store.initialize("SETUP");
    kernel.kill = [this](pid_t, int signal) {
        signals.push_back(signal);
        EXPECT_THROW({ const SemaphoreLock second("/dblock_setup", 0); }, std::system_error)
            << "this thread has it already";
        return 0;
    };

    store.setValue("a", "1234");
    store.dbbackup_sync();

    EXPECT_EQ((Signals{SIGUSR1, SIGUSR1, SIGUSR1}), signals);
    const SemaphoreLock free("/dblock_setup", 0);
}

TEST_F(FileStoreDaemon, HearsNothingBeforeInitialize) {
    store.dbbackup_sync();

    EXPECT_EQ(Signals{}, signals);
}

TEST_F(FileStoreDaemon, IsSearchedAgainAtEachFlushWhileThereIsNone) {
    kernel.getPidByName = [this](const char*, int*) { return ++searches, 1; };
    store.initialize("SETUP");
    TraceCapture capture;

    store.setValue("a", "1234");

    EXPECT_EQ(2, searches);
    EXPECT_EQ(Signals{}, signals);
    EXPECT_EQ(2U, capture.count(0xA0801));
    capture.clear();
    store.dbbackup_sync();
    expectWords(capture, 0xA0801, infoFlags, {0, 0});
    EXPECT_EQ("1234", valueOf(store, "a"));
}

TEST_F(FileStoreDaemon, IsNotSignalledWithPid0) {
    kernel.getPidByName = [](const char*, int* pid) { return *pid = 0; };
    store.initialize("SETUP");
    const TraceCapture capture;

    store.dbbackup_sync();

    EXPECT_EQ(Signals{}, signals);
    expectWords(capture, 0xA0805, errorFlags, {0, 0});
    EXPECT_EQ(0U, capture.count(0xA0803));
}

TEST_F(FileStoreDaemon, IsSearchedAgainAfterASignalThatFails) {
    store.initialize("SETUP");
    kernel.kill = [](pid_t, int) {
        errno = ESRCH;
        return -1;
    };
    const TraceCapture capture;

    store.dbbackup_sync();
    expectWords(capture, 0xA0804, errorFlags, {ESRCH, daemonPid});
    store.dbbackup_sync();

    EXPECT_EQ(2, searches);
}

TEST_F(FileStoreDaemon, CannotEndAWriteHalfWay) {
    store.initialize("SETUP");
    kernel.getPidByName = [](const char*, int*) -> int { throw std::runtime_error("no /proc"); };

    EXPECT_NO_THROW(store.setValue("a", "1234"));

    EXPECT_EQ("1234", freshValue("SETUP", "a"));
}

/// A process named like the daemon that tells '1' for each SIGUSR1 and '2' for each SIGUSR2 it gets.
int runDaemon(Talk& talk) {
    kernel = {};
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR1);
    sigaddset(&set, SIGUSR2);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    prctl(PR_SET_NAME, "tavrel_syncd");
    talk.tell('r');
    for (;;) {
        talk.tell(sigwaitinfo(&set, nullptr) == SIGUSR1 ? '1' : '2');
    }
}

TEST_F(FileStoreDaemon, IsFoundByItsNameAndGetsEverySignal) {
    ChildProcess daemon(runDaemon);
    ASSERT_TRUE(daemon.talk().waitFor('r'));
    kernel.getPidByName = nullptr;
    // A pending signal swallows the next one, so the daemon takes each before the next is sent.
    kernel.kill = [&](pid_t pid, int signal) {
        EXPECT_EQ(daemon.pid(), pid);
        signals.push_back(signal);
        const int result = real::kill(pid, signal);
        EXPECT_TRUE(daemon.talk().waitFor(signal == SIGUSR1 ? '1' : '2'));
        return result;
    };
    BMCRelationalDB fru;
    fru.initialize("FRU");
    store.initialize("SETUP");

    store.setValue("a", "1234");
    store.setValue("a", "5678");
    fru.setValue("a", "12345");
    fru.setValue("a", "123");
    store.dbbackup_sync();

    kernel.kill = nullptr;
    EXPECT_EQ((Signals{SIGUSR1, SIGUSR1, SIGUSR1, SIGUSR2, SIGUSR2, SIGUSR2, SIGUSR2, SIGUSR2, SIGUSR1}),
              signals);
    EXPECT_FALSE(daemon.talk().hasMark(0));
}

TEST_F(FileStoreDaemon, IsFoundAnewWhenItHasBeenStartedAgain) {
    kernel.getPidByName = nullptr;
    kernel.kill = nullptr;
    store.initialize("SETUP");
    {
        ChildProcess first(runDaemon);
        ASSERT_TRUE(first.talk().waitFor('r'));
        store.dbbackup_sync();
        ASSERT_TRUE(first.talk().waitFor('1'));
    }
    ChildProcess second(runDaemon);
    ASSERT_TRUE(second.talk().waitFor('r'));

    store.dbbackup_sync(); // finds that the first one has gone
    store.dbbackup_sync();

    EXPECT_TRUE(second.talk().waitFor('1'));
}

} // namespace
