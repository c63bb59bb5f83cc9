#include "lock/Children.h"
#include "lock/KernelStandIn.h"
#include "lock/SharedPage.h"
#include "lock/TreePathLocks.h"
#include "support/FaultText.h"
#include "support/TraceCapture.h"

#include <qz/base/SemaphoreLock.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/shm.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <thread>

using namespace tavrel::test;

namespace {

constexpr std::size_t mutexOffset =
    (1540 + alignof(pthread_mutex_t) - 1) / alignof(pthread_mutex_t) * alignof(pthread_mutex_t);
constexpr std::size_t conditionOffset =
    (mutexOffset + sizeof(pthread_mutex_t) + alignof(pthread_cond_t) - 1) / alignof(pthread_cond_t) *
    alignof(pthread_cond_t);
constexpr std::size_t recordsOffset = (conditionOffset + sizeof(pthread_cond_t) + 7) / 8 * 8;

template <typename T>
T valueAt(TableView& table, std::size_t offset) {
    T value;
    std::memcpy(&value, table.bytes() + offset, sizeof value);
    return value;
}

std::string printed(TreePathLockProvider& provider) {
    testing::internal::CaptureStdout();
    provider.write(std::cerr);
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

TEST(TreePathTable, HasTheDocumentedLayout) {
    LockedTree tree;
    const int id = tree.beside->getComponentId();

    tree.provider.writeLock(tree.beside);

    TableView table;
    EXPECT_EQ(recordsOffset + 64 * 1032, table.size());
    EXPECT_EQ(0x0EC00CE0U, valueAt<std::uint32_t>(table, 0));
    EXPECT_EQ(1, valueAt<std::uint8_t>(table, 4)) << "in use";
    EXPECT_EQ(2, valueAt<std::uint8_t>(table, 5)) << "write lock";
    EXPECT_EQ(static_cast<std::int16_t>(gettid()), valueAt<std::int16_t>(table, 6));
    EXPECT_EQ(getpid(), valueAt<std::int32_t>(table, 8));
    EXPECT_EQ(id, valueAt<std::int32_t>(table, 12));
    EXPECT_EQ(0, valueAt<std::uint8_t>(table, 16)) << "the next entry is free";
    const std::size_t record = recordsOffset + static_cast<std::size_t>(id) * 1032;
    const std::uint8_t counters[8] = {0, 1, 0, 1, 0, 0, 0, 0};
    EXPECT_EQ(0, std::memcmp(counters, table.bytes() + record, sizeof counters));
    for (std::size_t i = 0; i < 2; ++i) {
        const std::size_t holder = record + 8 + i * 8;
        EXPECT_EQ(static_cast<std::int16_t>(getpid()), valueAt<std::int16_t>(table, holder));
        EXPECT_EQ(static_cast<std::int16_t>(gettid()), valueAt<std::int16_t>(table, holder + 2));
        EXPECT_EQ(i == 0 ? 2 : 4, valueAt<std::int32_t>(table, holder + 4));
    }
    EXPECT_EQ(0, valueAt<std::int16_t>(table, record + 8 + 16)) << "the next holder is free";
    tree.provider.writeUnlock(tree.beside);
}

TEST(TreePathTable, SaysThatItIsReadyOnlyWhenItIs) {
    LockedTree tree;
    TableView table;

    EXPECT_EQ(qz::internal::lockTableMagic, table->magic);
    EXPECT_TRUE(table.journal().empty());
    EXPECT_TRUE(table.isUnmarked(64));
    EXPECT_EQ(0, pthread_mutex_trylock(&table->mutex));
    EXPECT_EQ(0, pthread_mutex_unlock(&table->mutex));
}

TEST(TreePathTable, IsUsedAsItStandsByTheNextProcess) {
    LockedTree tree;
    tree.provider.readLock(tree.leaf);
    ChildProcess next([&](Talk&) {
        const std::unique_ptr<TreePathLockProvider> provider(newProvider(64));

        provider->initialize();

        TableView table;
        EXPECT_EQ(1U, table.journal().size());
        EXPECT_EQ((std::vector<int>{1, 0, 1, 0, 0}), table.counters(tree.leaf->getComponentId()));
        return 0;
    });

    EXPECT_EQ(0, next.wait());
    tree.provider.readUnlock(tree.leaf);
}

TEST(TreePathTable, IsSetUpWhenItHasNoMagic) {
    auto* const bytes = static_cast<unsigned char*>(
        shmat(shmget(lockTableKey, recordsOffset + 64 * 1032, IPC_CREAT | 0666), nullptr, 0));
    std::memset(bytes, 0xFF, recordsOffset + 64 * 1032);
    std::memset(bytes, 0, 4);

    LockedTree tree;

    TableView table;
    EXPECT_EQ(qz::internal::lockTableMagic, table->magic);
    EXPECT_TRUE(table.journal().empty());
    EXPECT_TRUE(table.isUnmarked(64));
    tree.provider.writeLock(tree.root);
    tree.provider.writeUnlock(tree.root);
    shmdt(bytes);
}

TEST(TreePathTable, IsPrivateUnlessItIsToBeShared) {
    LockedTree tree(false);

    tree.provider.writeLock(tree.leaf);
    tree.provider.readLock(tree.beside);
    tree.provider.readUnlock(tree.beside);
    tree.provider.writeUnlock(tree.leaf);

    EXPECT_EQ(-1, shmget(lockTableKey, 0, 0));
}

TEST(TreePathTable, BeginsAnewInAForkedProcessWhenItIsPrivate) {
    LockedTree tree(false);
    tree.provider.writeLock(tree.leaf);

    ChildProcess forked([&](Talk&) {
        tree.provider.writeLock(tree.leaf);
        tree.provider.writeUnlock(tree.leaf);
        tree.provider.readLock(tree.root);
        tree.provider.readUnlock(tree.root);
        return 0;
    });

    EXPECT_EQ(0, forked.wait());
    tree.provider.writeUnlock(tree.leaf);
}

TEST(TreePathTable, IsUnavailableAfterAnInitializationThatFailed) {
    LockedTree tree;
    tree.provider.setConfiguration("tavrel.compo.max", "-1");
    EXPECT_NE("nothing raised", faultText([&] { tree.provider.initialize(); }));

    for (const auto& [function, call] : std::map<std::string, std::function<void()>>{
             {"readLock", [&] { tree.provider.readLock(tree.leaf); }},
             {"readUnlock", [&] { tree.provider.readUnlock(tree.leaf); }},
             {"writeLock", [&] { tree.provider.writeLock(tree.leaf); }},
             {"writeUnlock", [&] { tree.provider.writeUnlock(tree.leaf); }},
             {"write", [&] { tree.provider.write(std::cerr); }},
             {"setup", [&] { tree.provider.setup(); }},
             {"treeLock", [&] { tree.provider.treeLock(tree.leaf); }},
             {"initTreePathLockMemory", [&] { tree.provider.initTreePathLockMemory(); }},
             {"recoverLock", [&] { tree.provider.recoverLock(); }}}) {
        EXPECT_EQ("FAULT at TreePathLockProvider(LINE): " + function + "() lock table is unavailable.",
                  faultText(call));
    }
}

TEST(TreePathTable, IsNotKeptLockedWhileTheTreeOfTheProcessIsLocked) {
    LockedTree tree;
    TableView table;
    int foundLocked = 0;
    const KernelStandIn watcher("pthread_rwlock_unlock", [&](const KernelCall&) {
        if (pthread_mutex_trylock(&table->mutex) == 0) {
            pthread_mutex_unlock(&table->mutex);
        } else {
            ++foundLocked;
        }
        return 0;
    });

    tree.provider.readLock(tree.leaf);
    tree.provider.readUnlock(tree.leaf);
    tree.provider.writeLock(tree.leaf);
    tree.provider.writeUnlock(tree.leaf);

    EXPECT_LT(0, watcher.calls());
    EXPECT_EQ(0, foundLocked);
}

TEST(TreePathTable, IsMadeAnewForAnotherNumberOfComponents) {
    { LockedTree tree; }
    const std::unique_ptr<TreePathLockProvider> first(newProvider(64));
    first->initialize();
    const std::unique_ptr<TreePathLockProvider> second(newProvider(128));

    second->initialize();

    TableView table;
    EXPECT_EQ(recordsOffset + 128 * 1032, table.size());
    EXPECT_EQ(qz::internal::lockTableMagic, table->magic);
}

TEST(TreePathTable, IsRefusedInAnotherSizeWhileAnotherProcessUsesIt) {
    ChildProcess other([](Talk& talk) {
        const std::unique_ptr<TreePathLockProvider> provider(newProvider(64));
        provider->initialize();
        talk.tell('h');
        talk.waitFor('g');
        return 0;
    });
    other.talk().waitFor('h');
    const std::unique_ptr<TreePathLockProvider> provider(newProvider(128));
    const auto initialize = [&] { provider->initialize(); };

    EXPECT_EQ("FAULT at TreePathLockProvider(LINE): initialize() lock table is unavailable.",
              faultText(initialize));

    other.kill();
    waitUntil([&] { return faultText(initialize) == "nothing raised"; });
}

TEST(TreePathTable, IsLeftWithOthersKeptOffWhenAProviderIsInitializedAgain) {
    const std::unique_ptr<TreePathLockProvider> provider(newProvider(64));
    provider->initialize();
    ChildProcess other([](Talk& talk) {
        const SemaphoreLock keptOff("/tavrel_lock_start", 0);
        talk.tell('h');
        talk.waitFor('g');
        return 0;
    });
    other.talk().waitFor('h');
    std::atomic<pid_t> tid{0};
    KernelStandIn detaches("shmdt", failing(0));

    std::thread starter([&] {
        tid = gettid();
        provider->initialize();
    });

    waitUntil([&] { return tid != 0 && isAsleep(tid); });
    EXPECT_EQ(0, detaches.calls());
    other.talk().tell('g');
    starter.join();
    EXPECT_EQ(1, detaches.calls());
}

TEST(TreePathTable, IsRefusedForANumberOfComponentsThatNoTableHolds) {
    for (const char* const count : {"-1", "4161792", "2147483647"}) {
        for (const bool shared : {true, false}) {
            const std::unique_ptr<TreePathLockProvider> provider(newProvider(64, shared));
            provider->setConfiguration("tavrel.compo.max", count);

            EXPECT_EQ("FAULT at TreePathLockProvider(LINE): initialize() lock table is unavailable.",
                      faultText([&] { provider->initialize(); }))
                << count;
        }
    }
}

TEST(TreePathTable, HasNoPlaceForAComponentPastItsEnd) {
    LockedTree tree;
    tree.provider.setConfiguration("tavrel.compo.max", std::to_string(tree.leaf->getComponentId()));
    tree.provider.initialize();
    const auto lock = [&] { tree.provider.readLock(tree.leaf); };

    EXPECT_EQ("FAULT at TreePathLockProvider(LINE): treeLock() invalid component id.", faultText(lock));

    TableView table;
    EXPECT_TRUE(table.isUnmarked(tree.leaf->getComponentId()));
    tree.provider.writeLock(tree.middle);
    tree.provider.writeUnlock(tree.middle);
}

TEST(TreePathTable, IsOneForAnyNumberOfProcessesThatStartAtTheSameMoment) {
    TreeFixture machine;
    Component* const root = machine.root(fan);
    for (int round = 0; round < 20; ++round) {
        SharedPage<Pair> pair;
        SharedPage<std::atomic<int>> done;
        Children starters(8, [&](int) {
            const std::unique_ptr<TreePathLockProvider> provider(newProvider(64));
            provider->initialize();
            provider->writeLock(root);
            pair->raise();
            provider->writeUnlock(root);
            ++*done;
            // Nobody leaves before all have been there: one that leaves as the last takes the table along.
            waitUntil([&] { return *done == 8; });
            return 0;
        });

        starters.go();

        starters.expectSuccess();
        EXPECT_EQ(8, pair->first);
        EXPECT_TRUE(pair->isWhole());
    }
}

TEST(TreePathTable, IsOneForProcessesThatComeAndGoAtTheSameMoment) {
    TreeFixture machine;
    Component* const root = machine.root(fan);
    SharedPage<Pair> pair;
    Children workers(4, [&](int) {
        for (int n = 0; n < 200; ++n) {
            const std::unique_ptr<TreePathLockProvider> provider(newProvider(64));
            provider->initialize();
            provider->writeLock(root);
            pair->raise();
            provider->writeUnlock(root);
        }
        return 0;
    });

    workers.go();

    workers.expectSuccess();
    EXPECT_EQ(4 * 200, pair->first);
    EXPECT_TRUE(pair->isWhole());
    EXPECT_EQ(-1, shmget(lockTableKey, 0, 0)) << "the last one has removed it";
}

TEST(TreePathTable, IsSetUpByTheNextProcessWhenItsCreatorIsKilledHalfWay) {
    ChildProcess creator([](Talk&) {
        const std::unique_ptr<TreePathLockProvider> provider(newProvider(64));
        // The segment is there, and nothing in it yet.
        const KernelStandIn attaches("shmat", [](const KernelCall&) {
            raise(SIGKILL);
            return 0;
        });
        provider->initialize();
        return 0;
    });
    EXPECT_EQ(-SIGKILL, creator.wait());
    EXPECT_NE(-1, shmget(lockTableKey, 0, 0));

    LockedTree tree;

    tree.provider.writeLock(tree.leaf);
    tree.provider.writeUnlock(tree.leaf);
}

/// The last process is killed inside the mutex, in the middle of a lock call.
int dieInsideTheMutex(Talk&) {
    const std::unique_ptr<TreePathLockProvider> provider(newProvider(64));
    provider->initialize();
    TableView table;
    pthread_mutex_lock(&table->mutex);
    table.record(0).writers = 1;
    raise(SIGKILL);
    return 0;
}

TEST(TreePathTable, IsFreedFromAProcessThatDiedInsideItsMutexOnceAllAreGone) {
    ChildProcess last(dieInsideTheMutex);
    EXPECT_EQ(-SIGKILL, last.wait());

    LockedTree tree;

    TableView table;
    EXPECT_TRUE(table.isUnmarked(64));
    EXPECT_EQ(qz::internal::lockTableMagic, table->magic);
    tree.provider.writeLock(tree.leaf);
    tree.provider.writeUnlock(tree.leaf);
}

TEST(TreePathTable, IsFreedFromAProcessThatIsStillBeingTakenDown) {
    ChildProcess last([](Talk& talk) {
        const std::unique_ptr<TreePathLockProvider> provider(newProvider(64));
        provider->initialize();
        TableView table;
        pthread_mutex_lock(&table->mutex);
        talk.tell('l');
        talk.waitFor('e');
        return 0;
    });
    last.talk().waitFor('l');
    ChildProcess next([](Talk&) {
        LockedTree tree;
        tree.provider.writeLock(tree.leaf);
        tree.provider.writeUnlock(tree.leaf);
        return 0;
    });
    waitUntil([&] { return isAsleep(next.pid()); });

    last.kill();

    EXPECT_EQ(0, next.wait());
}

TEST(TreePathTable, KeepsItsSleepersWhenTheSameProcessInitializesAnotherProvider) {
    LockedTree tree;
    tree.provider.writeLock(tree.leaf);
    std::atomic<pid_t> tid{0};
    std::thread sleeper([&] {
        tid = gettid();
        tree.provider.readLock(tree.leaf);
        tree.provider.readUnlock(tree.leaf);
    });
    waitUntil([&] { return tid != 0 && isAsleep(tid); });

    // Never deleted: the end of any provider ends the attachment of the process.
    static TreePathLockProvider* const second = newProvider(64);
    second->initialize();
    tree.provider.writeUnlock(tree.leaf);

    sleeper.join();
}

TEST(TreePathTable, LosesItsMarksAndKeepsItsJournalAtSetup) {
    LockedTree tree;
    tree.provider.writeLock(tree.leaf);

    tree.provider.setup();

    TableView table;
    EXPECT_TRUE(table.isUnmarked(64));
    EXPECT_EQ(1U, table.journal().size());
    EXPECT_EQ(qz::internal::lockTableMagic, table->magic);
    tree.provider.readLock(tree.leaf);
    tree.provider.readUnlock(tree.leaf);
}

TEST(TreePathTable, LetsItsSleepersGoAtSetup) {
    LockedTree tree;
    tree.provider.writeLock(tree.leaf);
    Holder reader(tree.provider, LockKind::read, tree.leaf);
    reader.expectWaiting();

    tree.provider.setup();

    reader.expectHeld();
    reader.release();
}

TEST(TreePathTable, HoldsNobodyBackForAWriterThatSleptAtSetup) {
    LockedTree tree;
    tree.provider.writeLock(tree.leaf);
    Holder writer(tree.provider, LockKind::write, tree.leaf);
    writer.expectWaiting();

    tree.provider.setup();

    writer.expectHeld();
    writer.release();
    TableView table;
    EXPECT_TRUE(table.isUnmarked(64));
    tree.provider.readLock(tree.leaf);
    tree.provider.readUnlock(tree.leaf);
}

TEST(TreePathTable, PrintsNothingWithoutLocks) {
    LockedTree tree;

    EXPECT_EQ("", printed(tree.provider));
}

TEST(TreePathTable, PrintsWithNobodyKeptFromTheMutex) {
    LockedTree tree;
    tree.provider.readLock(tree.leaf);
    TableView table;
    int pipeEnds[2];
    ASSERT_EQ(0, pipe(pipeEnds));
    const int room = fcntl(pipeEnds[1], F_GETPIPE_SZ);
    ASSERT_LT(0, room);
    const std::string filling(static_cast<std::size_t>(room), ' ');
    ASSERT_EQ(room, write(pipeEnds[1], filling.data(), filling.size()));
    ChildProcess printer([&](Talk& talk) {
        dup2(pipeEnds[1], STDOUT_FILENO);
        std::setvbuf(stdout, nullptr, _IONBF, 0);
        talk.tell('p');
        tree.provider.write(std::cerr);
        return 0;
    });
    printer.talk().waitFor('p');

    waitUntil([&] { return isAsleep(printer.pid()); });

    EXPECT_EQ(0, pthread_mutex_trylock(&table->mutex)) << "nobody reads what is printed";
    pthread_mutex_unlock(&table->mutex);
    printer.kill();
    close(pipeEnds[0]);
    close(pipeEnds[1]);
    tree.provider.readUnlock(tree.leaf);
}

TEST(TreePathTable, PrintsALineForEachLockOnTheStandardOutput) {
    LockedTree tree;
    const int leaf = tree.leaf->getComponentId();
    const int beside = tree.beside->getComponentId();
    tree.provider.readLock(tree.leaf);
    Holder killed(tree.provider, LockKind::write, tree.beside);
    killed.expectHeld();
    const pid_t other = killed.pid();
    killed.kill();
    TableView table;
    table->journal[5] = {1, 7, static_cast<std::int16_t>(other), 10, 11};

    const std::string lines = printed(tree.provider);

    char expected[256];
    std::snprintf(expected, sizeof expected,
                  "[oid:%5d] is in ReadLock  by pid=%5d tid=%5d. \n"
                  "[oid:%5d] is in WriteLock by pid=%5d tid=%5d. (Not Found)\n"
                  "[oid:   11] is in NOP by pid=   10 tid=%5d. (Not Found)\n",
                  leaf, getpid(), gettid(), beside, other, other, other);
    EXPECT_EQ(expected, lines);
    table->journal[5].inUse = 0;
    tree.provider.readUnlock(tree.leaf);
}

} // namespace
