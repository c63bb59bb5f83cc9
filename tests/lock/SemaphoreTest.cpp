#include "lock/Children.h"
#include "lock/Expect.h"
#include "lock/KernelStandIn.h"
#include "support/ChildProcess.h"
#include "support/FaultText.h"

#include <qz/tavrel/Semaphore.h>

#include <gtest/gtest.h>

#include <sys/ipc.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <vector>

using qz::tavrel::Semaphore;
using namespace tavrel::test;

namespace {

constexpr int key = 5690000;

int setOf(int setKey) {
    return semget(setKey, 0, 0);
}

int valueOf(int setKey, int number) {
    return semctl(setOf(setKey), number, GETVAL);
}

std::size_t sizeOf(int setKey) {
    semid_ds state{};
    semctl(setOf(setKey), 0, IPC_STAT, &state);
    return state.sem_nsems;
}

/// A set as its creator leaves it before the first operation.
int makeUnreadySet() {
    return semget(key, 1, 1974);
}

TEST(Semaphore, GivesANewSetItsValues) {
    unsigned short values[] = {100, 0, 7};
    const TraceCapture capture;

    Semaphore semaphore(key, values, 3);

    EXPECT_EQ(3U, sizeOf(key));
    EXPECT_EQ(100, valueOf(key, 0));
    EXPECT_EQ(0, valueOf(key, 1));
    EXPECT_EQ(7, valueOf(key, 2));
    expectWords(capture, 0x4040C, debugFlags, {setOf(key), 3});
}

TEST(Semaphore, CreatesWithTheFlagsThatWereSet) {
    unsigned short values[] = {1};
    int flags = 0;
    const KernelStandIn semgets("semget", [&](const KernelCall& call) {
        flags = static_cast<int>(call.arguments[2]);
        return 0;
    });

    Semaphore plain(key, values, 1);
    EXPECT_EQ(1974, flags);
    Semaphore closed;
    closed.setFlag(IPC_CREAT | IPC_EXCL | 0600);
    closed.initialize(key + 1, values, 1);

    EXPECT_EQ(IPC_CREAT | IPC_EXCL | 0600, flags);
}

TEST(Semaphore, JoinsASetAndLeavesItsValues) {
    unsigned short first[] = {3};
    unsigned short second[] = {9, 9};
    Semaphore creator(key, first, 1);

    Semaphore joiner(key, second, 2);

    EXPECT_EQ(1U, sizeOf(key));
    EXPECT_EQ(3, valueOf(key, 0));
    EXPECT_TRUE(joiner.operate(0, -1, IPC_NOWAIT));
    EXPECT_EQ(2, valueOf(key, 0));
}

TEST(Semaphore, WaitsForTheCreatorsFirstOperation) {
    const int id = makeUnreadySet();
    unsigned short values[] = {9};
    const KernelStandIn sleeps("usleep", [&](const KernelCall& call) {
        EXPECT_EQ(100000, call.arguments[0]);
        sembuf first{0, 5, 0};
        EXPECT_EQ(0, semop(id, &first, 1));
        return KernelStandIn::succeed;
    });

    Semaphore joiner(key, values, 1);

    EXPECT_EQ(1, sleeps.calls());
    EXPECT_EQ(5, valueOf(key, 0));
}

TEST(Semaphore, WaitsInRealTimeForACreatorInAnotherProcess) {
    ChildProcess creator([](Talk& talk) {
        const int id = makeUnreadySet();
        talk.tell('c');
        talk.waitFor('g');
        sembuf first{0, 5, 0};
        return semop(id, &first, 1);
    });
    creator.talk().waitFor('c');
    unsigned short values[] = {9};
    bool told = false;
    const KernelStandIn sleeps("usleep", [&](const KernelCall&) {
        if (!told) {
            creator.talk().tell('g');
            told = true;
        }
        return 0;
    });

    Semaphore joiner(key, values, 1);

    EXPECT_LE(1, sleeps.calls());
    EXPECT_EQ(5, valueOf(key, 0));
    EXPECT_EQ(0, creator.wait());
}

TEST(Semaphore, SleepsOnWhenASignalCutsThePause) {
    const int id = makeUnreadySet();
    unsigned short values[] = {9};
    long asked = 0;
    const KernelStandIn sleeps("usleep", [&](const KernelCall& call) {
        asked = call.arguments[0];
        if (sleeps.calls() == 1) {
            return EINTR;
        }
        sembuf first{0, 5, 0};
        EXPECT_EQ(0, semop(id, &first, 1));
        return KernelStandIn::succeed;
    });

    Semaphore joiner(key, values, 1);

    EXPECT_EQ(2, sleeps.calls());
    EXPECT_LT(0, asked);
    EXPECT_GT(100000, asked) << "only the rest of the pause";
}

TEST(Semaphore, GivesUpOnASetThatNeverBecomesReady) {
    const int id = makeUnreadySet();
    unsigned short values[] = {9};
    const KernelStandIn sleeps("usleep", failing(0));
    const KernelStandIn looks("semctl", failing(0));
    const TraceCapture capture;
    Semaphore joiner;

    EXPECT_EQ("FAULT at Semaphore(LINE): initialize() invalid semid is detected.",
              faultText([&] { joiner.initialize(key, values, 1); }));

    EXPECT_EQ(10, sleeps.calls());
    EXPECT_EQ(10, looks.calls());
    expectWords(capture, 0x4040F, errorFlags, {id, 0});
}

TEST(Semaphore, CannotBeJoinedWhenItsCreatorHasDiedHalfWay) {
    ChildProcess creator([](Talk& talk) {
        const KernelStandIn death("semop", [](const KernelCall&) {
            raise(SIGKILL);
            return 0;
        });
        unsigned short values[] = {1};
        const Semaphore semaphore(key, values, 1);
        talk.tell('?');
        return 0;
    });
    EXPECT_EQ(-SIGKILL, creator.wait());
    unsigned short values[] = {1};
    Semaphore joiner;
    const auto join = [&] { joiner.initialize(key, values, 1); };

    EXPECT_EQ("FAULT at Semaphore(LINE): initialize() invalid semid is detected.", faultText(join));

    joiner.remove();
    EXPECT_EQ("nothing raised", faultText(join)) << "somebody has removed the set";
}

TEST(Semaphore, ReportsASetThatCannotBeLookedAt) {
    const int id = makeUnreadySet();
    unsigned short values[] = {9};
    const KernelStandIn controls("semctl", failingCommand(IPC_STAT, EACCES));
    const TraceCapture capture;
    Semaphore joiner;

    EXPECT_EQ("FAULT at Semaphore(LINE): initialize() semctl failed.",
              faultText([&] { joiner.initialize(key, values, 1); }));

    expectWords(capture, 0x4040D, errorFlags, {id, 0});
    expectSystemText(capture, 0x4040E, EACCES);
}

TEST(Semaphore, ReportsASetThatCannotBeCreated) {
    unsigned short values[] = {9};
    const KernelStandIn semgets("semget", failing(ENOSPC));
    const TraceCapture capture;
    Semaphore semaphore;

    EXPECT_EQ("FAULT at Semaphore(LINE): initialize() semget failed.",
              faultText([&] { semaphore.initialize(key, values, 1); }));

    expectWords(capture, 0x40406, errorFlags, {key, 1, 1974, 0, 0, 0});
    expectSystemText(capture, 0x40407, ENOSPC);
}

TEST(Semaphore, RaisesWhenAnotherProcessCreatesTheSetAtTheSameMoment) {
    unsigned short values[] = {9};
    const KernelStandIn semgets("semget", [&](const KernelCall& call) {
        if (call.arguments[2] == 1974 && semgets.calls() == 2) {
            makeUnreadySet();
        }
        return 0;
    });
    const TraceCapture capture;
    Semaphore semaphore;

    EXPECT_EQ("FAULT at Semaphore(LINE): initialize() semget failed.",
              faultText([&] { semaphore.initialize(key, values, 1); }));

    expectSystemText(capture, 0x40407, EEXIST);
}

TEST(Semaphore, RemovesANewSetThatCannotBeCleared) {
    unsigned short values[] = {9};
    int id = -1;
    const KernelStandIn controls("semctl", [&](const KernelCall& call) {
        id = static_cast<int>(call.arguments[0]);
        return call.arguments[2] == SETALL ? ERANGE : 0;
    });
    const TraceCapture capture;
    Semaphore semaphore;

    EXPECT_EQ("FAULT at Semaphore(LINE): initialize() semctl failed.",
              faultText([&] { semaphore.initialize(key, values, 1); }));

    EXPECT_EQ(-1, setOf(key));
    expectWords(capture, 0x40408, errorFlags, {id, 0});
    expectSystemText(capture, 0x40409, ERANGE);
    semaphore.remove();
    EXPECT_EQ(-1, id) << "no set is known any more";
}

TEST(Semaphore, RemovesANewSetThatCannotGetItsValuesButKeepsItsId) {
    unsigned short values[] = {9, 8};
    int id = -1;
    const KernelStandIn operations("semop", [&](const KernelCall& call) {
        id = static_cast<int>(call.arguments[0]);
        return operations.calls() == 2 ? ERANGE : 0;
    });
    const TraceCapture capture;
    Semaphore semaphore;

    EXPECT_EQ("FAULT at Semaphore(LINE): initialize() semop failed.",
              faultText([&] { semaphore.initialize(key, values, 2); }));

    EXPECT_EQ(-1, setOf(key));
    expectWords(capture, 0x4040A, errorFlags, {id, 1});
    expectSystemText(capture, 0x4040B, ERANGE);
    int removed = -1;
    const KernelStandIn controls("semctl", [&](const KernelCall& call) {
        removed = static_cast<int>(call.arguments[0]);
        return 0;
    });
    semaphore.remove();
    EXPECT_EQ(id, removed);
}

TEST(Semaphore, BringsEachValueInByOneOperationWithoutFlags) {
    unsigned short values[] = {2, 0};
    std::vector<sembuf> done;
    const KernelStandIn operations("semop", [&](const KernelCall& call) {
        EXPECT_EQ(1, call.arguments[2]);
        done.push_back(*static_cast<const sembuf*>(call.data));
        return 0;
    });

    Semaphore semaphore(key, values, 2);

    ASSERT_EQ(2U, done.size());
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(i, done[i].sem_num);
        EXPECT_EQ(values[i], done[i].sem_op);
        EXPECT_EQ(0, done[i].sem_flg);
    }
}

TEST(Semaphore, DoesNoOperationForASetOfNone) {
    const KernelStandIn semgets("semget", [](const KernelCall& call) {
        return call.arguments[2] == 1974 ? KernelStandIn::succeed : 0;
    });
    const KernelStandIn controls("semctl", failing(KernelStandIn::succeed));
    const KernelStandIn operations("semop", failing(EINVAL));

    Semaphore semaphore(key, nullptr, 0);

    EXPECT_EQ(1, controls.calls()) << "the values are set, to nothing";
    EXPECT_EQ(0, operations.calls());
}

TEST(Semaphore, RepeatsAnOperationThatASignalCuts) {
    unsigned short values[] = {1};
    Semaphore semaphore(key, values, 1);
    const TraceCapture capture;
    const KernelStandIn operations("semop",
                                   [&](const KernelCall&) { return operations.calls() <= 3 ? EINTR : 0; });

    EXPECT_TRUE(semaphore.operate(0, -1, 0));

    EXPECT_EQ(4, operations.calls());
    EXPECT_EQ(0, valueOf(key, 0));
    EXPECT_TRUE(capture.all().empty());
}

TEST(Semaphore, GoesOnWaitingThroughARealSignal) {
    unsigned short values[] = {0};
    Semaphore semaphore(key, values, 1);
    ChildProcess waiter([&](Talk& talk) {
        static int handled;
        handled = -1;
        struct sigaction action {};
        action.sa_handler = [](int) { EXPECT_EQ(1, write(handled, "s", 1)); };
        sigaction(SIGUSR1, &action, nullptr);
        int ends[2];
        EXPECT_EQ(0, pipe(ends));
        handled = ends[1];
        const KernelStandIn operations("semop", [&](const KernelCall&) {
            talk.tell(operations.calls() == 1 ? 'w' : 'a');
            return 0;
        });
        return semaphore.operate(0, -1, 0) ? 0 : 1;
    });
    waiter.talk().waitFor('w');
    waitUntil([] { return semctl(setOf(key), 0, GETNCNT) == 1; });

    kill(waiter.pid(), SIGUSR1);

    EXPECT_TRUE(waiter.talk().waitFor('a')) << "the operation was done again";
    EXPECT_TRUE(semaphore.operate(0, 1, 0));
    EXPECT_EQ(0, waiter.wait());
}

TEST(Semaphore, ReportsAnOperationThatTheKernelRefuses) {
    unsigned short values[] = {0};
    Semaphore semaphore(key, values, 1);
    const TraceCapture capture;
    Semaphore::Buffer buffer;
    buffer.add(0, 1, 0);
    buffer.add(0, -2, IPC_NOWAIT);

    EXPECT_FALSE(semaphore.operate(buffer));

    EXPECT_EQ(0, valueOf(key, 0)) << "all or nothing";
    expectWords(capture, 0x40410, errorFlags, {setOf(key), 2});
    expectSystemText(capture, 0x40411, EAGAIN);
}

TEST(Semaphore, DoesABufferOfOperationsAtOnce) {
    unsigned short values[] = {1, 0};
    Semaphore semaphore(key, values, 2);
    Semaphore::Buffer buffer;
    buffer.add(0, -1, 0);
    buffer.add(1, 3, 0);

    EXPECT_TRUE(semaphore.operate(buffer));

    EXPECT_EQ(0, valueOf(key, 0));
    EXPECT_EQ(3, valueOf(key, 1));
}

TEST(Semaphore, PassesTheUndoFlagOn) {
    unsigned short values[] = {5};
    Semaphore semaphore(key, values, 1);
    ChildProcess holder([&](Talk& talk) {
        semaphore.operate(0, -3, 4096);
        talk.tell('h');
        talk.waitFor('x');
        return 0;
    });
    holder.talk().waitFor('h');
    EXPECT_EQ(2, valueOf(key, 0));

    holder.kill();

    EXPECT_EQ(5, valueOf(key, 0));
}

TEST(Semaphore, TakesAnEmptyBufferForOutOfRangeBeforeAnyCall) {
    const KernelStandIn operations("semop", failing(0));
    Semaphore semaphore;
    Semaphore::Buffer buffer;

    EXPECT_THROW(semaphore.operate(buffer), std::out_of_range);
    EXPECT_THROW(buffer.data(), std::out_of_range);

    EXPECT_EQ(0, operations.calls());
}

TEST(Semaphore, KeepsItsRecordsInTheOrderOfAdding) {
    Semaphore::Buffer buffer;
    buffer.add(7, -1, 4096);
    buffer.add(65535, 2, 2048);

    ASSERT_EQ(2U, buffer.size());
    EXPECT_EQ(7, buffer.data()[0].sem_num);
    EXPECT_EQ(-1, buffer.data()[0].sem_op);
    EXPECT_EQ(4096, buffer.data()[0].sem_flg);
    EXPECT_EQ(65535, buffer.data()[1].sem_num);
    EXPECT_EQ(2, buffer.data()[1].sem_op);
    EXPECT_EQ(2048, buffer.data()[1].sem_flg);

    buffer.clear();

    EXPECT_EQ(0U, buffer.size());
}

TEST(Semaphore, TakesAsManyRecordsAsTheKernelTakesAtOnce) {
    Semaphore::Buffer buffer;
    buffer.add(0, 1, 0);
    const auto most = static_cast<unsigned int>(Semaphore::getInfo()->semopm);
    while (buffer.size() < most) {
        buffer.add(0, 1, 0);
    }

    EXPECT_EQ("FAULT at Semaphore(LINE): add() buffer overflow.", faultText([&] { buffer.add(0, 1, 0); }));

    EXPECT_EQ(most, buffer.size());
}

TEST(Semaphore, RemovesItsSetAndForgetsIt) {
    unsigned short values[] = {1};
    Semaphore semaphore(key, values, 1);
    const int id = setOf(key);
    const TraceCapture capture;

    semaphore.remove();

    EXPECT_EQ(-1, setOf(key));
    expectWords(capture, 0x40414, debugFlags, {id, 0});
    EXPECT_EQ(0U, capture.count(0x40412));
}

TEST(Semaphore, ReportsARemovalThatFailsAndForgetsTheSetAllTheSame) {
    Semaphore semaphore;
    const TraceCapture capture;

    semaphore.remove();

    expectWords(capture, 0x40412, errorFlags, {-1, 0});
    expectSystemText(capture, 0x40413, EINVAL);
    expectWords(capture, 0x40414, debugFlags, {-1, 0});
}

TEST(Semaphore, LeavesItsSetInTheKernelWhenDestroyed) {
    unsigned short values[] = {4};

    { const Semaphore semaphore(key, values, 1); }

    EXPECT_EQ(4, valueOf(key, 0));
}

TEST(SemaphoreInfo, IsFetchedOnceThroughAPrivateSetThatDoesNotStay) {
    std::vector<long> created;
    const KernelStandIn semgets("semget", [&](const KernelCall& call) {
        created.insert(created.end(), call.arguments, call.arguments + 3);
        return 0;
    });
    int probe = -1;
    const KernelStandIn controls("semctl", [&](const KernelCall& call) {
        probe = static_cast<int>(call.arguments[0]);
        return 0;
    });

    const seminfo first = *Semaphore::getInfo();
    const seminfo* const second = Semaphore::getInfo();

    EXPECT_EQ((std::vector<long>{IPC_PRIVATE, 1, 438}), created);
    EXPECT_EQ(2, controls.calls()) << "IPC_INFO and IPC_RMID";
    EXPECT_EQ(-1, semctl(probe, 0, GETVAL)) << "removed";
    EXPECT_LT(0, first.semmsl);
    EXPECT_LT(0, first.semopm);
    EXPECT_EQ(0, std::memcmp(&first, second, sizeof first));
}

TEST(SemaphoreInfo, StaysZeroWithoutAProbeSetAndIsTriedAgain) {
    const seminfo unset{};
    const TraceCapture capture;
    {
        const KernelStandIn semgets("semget", failing(ENOSPC));

        EXPECT_EQ(0, std::memcmp(&unset, Semaphore::getInfo(), sizeof unset));
    }

    expectWords(capture, 0x40404, errorFlags, {ENOSPC, 0});
    expectSystemText(capture, 0x40405, ENOSPC);
    EXPECT_LT(0, Semaphore::getInfo()->semmsl);
}

TEST(SemaphoreInfo, RemovesTheProbeSetAlsoWhenTheLimitsCannotBeRead) {
    const TraceCapture capture;
    int removed = 0;
    const KernelStandIn controls("semctl", [&](const KernelCall& call) {
        removed += call.arguments[2] == IPC_RMID ? 1 : 0;
        return call.arguments[2] == IPC_INFO ? EPERM : 0;
    });

    EXPECT_EQ(0, Semaphore::getInfo()->semmsl);

    EXPECT_EQ(1, removed);
    expectWords(capture, 0x40400, errorFlags, {EPERM, 0});
    expectSystemText(capture, 0x40401, EPERM);
}

TEST(SemaphoreInfo, IsGoodAlsoWhenTheProbeSetCannotBeRemoved) {
    const TraceCapture capture;
    const KernelStandIn controls("semctl", failingCommand(IPC_RMID, EPERM));

    EXPECT_LT(0, Semaphore::getInfo()->semmsl);

    expectWords(capture, 0x40402, errorFlags, {EPERM, 0});
    expectSystemText(capture, 0x40403, EPERM);
}

TEST(Semaphore, CountsEveryOperationOfManyProcessesAndThreads) {
    unsigned short values[] = {0};
    Semaphore semaphore(key, values, 1);
    Children children(4, [](int) {
        Semaphore joined;
        joined.initialize(key, nullptr, 0);
        for (int n = 0; n < 5000; ++n) {
            EXPECT_TRUE(joined.operate(0, 1, 0));
        }
        return 0;
    });

    children.go();
    for (int n = 0; n < 4 * 5000; ++n) {
        EXPECT_TRUE(semaphore.operate(0, -1, 0));
    }

    children.expectSuccess();
    EXPECT_EQ(0, valueOf(key, 0));
}

} // namespace
