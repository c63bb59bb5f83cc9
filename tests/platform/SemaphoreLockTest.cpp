#include "SharedMemoryObjects.h"
#include "SteppedProcess.h"
#include "support/ChildProcess.h"

#include <qz/base/SemaphoreLock.h>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <optional>
#include <system_error>
#include <thread>

using tavrel::test::ChildProcess;
using tavrel::test::objectNames;
using tavrel::test::objectPath;
using tavrel::test::Step;
using tavrel::test::SteppedProcess;
using tavrel::test::strideOver;
using tavrel::test::Talk;
using tavrel::test::writeObject;

namespace {

constexpr int aMoment = 100; // milliseconds in which a wrong lock would have let somebody through

/// The name of the lock that a test has to itself.
std::string lockName() {
    return std::string("/") + testing::UnitTest::GetInstance()->current_test_info()->name();
}

void take(const std::string& name = lockName()) {
    const SemaphoreLock lock(name, 0);
}

/// The error number with which a take of `name` fails, 0 when it succeeds.
int failureOf(const std::string& name) {
    try {
        take(name);
        return 0;
    } catch (const std::system_error& failure) {
        return failure.code().value();
    }
}

struct stat status(const std::string& name) {
    struct stat result {};
    EXPECT_EQ(0, stat(objectPath(name).c_str(), &result)) << name;
    return result;
}

/// A process that takes the lock, says 'h', and gives it back when it is told 'r'.
int holdUntilTold(Talk& talk) {
    const SemaphoreLock lock(lockName(), 0);
    talk.tell('h');
    return talk.waitFor('r') ? 0 : 1;
}

/// A process that says 'w', takes the lock and says 'g'.
int waitForLock(Talk& talk) {
    talk.tell('w');
    take();
    talk.tell('g');
    return 0;
}

/// Waits until a process sleeps in the kernel.
void awaitSleep(pid_t pid) {
    char state = 0;
    while (state != 'S') {
        std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
        const std::string text{std::istreambuf_iterator<char>(stat), {}};
        state = text.at(text.rfind(')') + 2);
    }
}

TEST(SemaphoreLock, KeepsAnotherThreadOutUntilItsScopeEnds) {
    std::promise<void> about;
    std::promise<void> got;
    std::future<void> inside = got.get_future();
    std::optional<SemaphoreLock> lock(std::in_place, lockName(), 0);
    std::thread other([&] {
        about.set_value();
        take();
        got.set_value();
    });
    about.get_future().wait();

    EXPECT_EQ(std::future_status::timeout, inside.wait_for(std::chrono::milliseconds(aMoment)));
    lock.reset();
    other.join();

    EXPECT_EQ(std::future_status::ready, inside.wait_for(std::chrono::seconds(0)));
}

TEST(SemaphoreLock, KeepsAnotherProcessOutUntilItsScopeEnds) {
    ChildProcess holder(holdUntilTold);
    ASSERT_TRUE(holder.talk().waitFor('h'));

    ChildProcess waiter(waitForLock);
    ASSERT_TRUE(waiter.talk().waitFor('w'));

    EXPECT_FALSE(waiter.talk().hasMark(aMoment));
    holder.talk().tell('r');
    EXPECT_TRUE(waiter.talk().waitFor('g'));
    EXPECT_EQ(0, holder.wait());
    EXPECT_EQ(0, waiter.wait());
}

TEST(SemaphoreLock, IsGivenBackWhenAnExceptionLeavesItsScope) {
    try {
        const SemaphoreLock lock(lockName(), 0);
        throw 1;
    } catch (int) {
    }

    EXPECT_EQ(0, failureOf(lockName()));
}

TEST(SemaphoreLock, HoldsEachNameByItself) {
    const SemaphoreLock current("/dblock_current", 0);
    const SemaphoreLock setup("/dblock_setup", 0);

    ChildProcess other([](Talk&) {
        take("/dblock_fru");
        return 0;
    });

    EXPECT_EQ(0, other.wait());
}

TEST(SemaphoreLock, RaisesWhenAThreadTakesANameTwice) {
    const SemaphoreLock lock(lockName(), 0);

    try {
        take();
        ADD_FAILURE() << "taken twice";
    } catch (const std::system_error& failure) {
        EXPECT_EQ(std::errc::resource_deadlock_would_occur, failure.code());
        EXPECT_NE(std::string::npos,
                  std::string(failure.what())
                      .find("SemaphoreLock \"" + lockName() + "\": this thread holds the lock already"));
    }

    ChildProcess waiter(waitForLock);
    ASSERT_TRUE(waiter.talk().waitFor('w'));
    EXPECT_FALSE(waiter.talk().hasMark(aMoment)) << "the refused take has freed the lock";
}

TEST(SemaphoreLock, GoesToTheNextTakerWhenItsHolderIsKilled) {
    ChildProcess holder(holdUntilTold);
    ASSERT_TRUE(holder.talk().waitFor('h'));

    holder.kill();

    EXPECT_EQ(0, failureOf(lockName()));
    EXPECT_EQ(0, failureOf(lockName())) << "the lock has not become whole again";
}

TEST(SemaphoreLock, GoesToOneWaiterAfterTheOtherWhenItsHolderIsKilled) {
    ChildProcess holder(holdUntilTold);
    ASSERT_TRUE(holder.talk().waitFor('h'));
    ChildProcess first(waitForLock);
    ChildProcess second(waitForLock);
    ASSERT_TRUE(first.talk().waitFor('w'));
    ASSERT_TRUE(second.talk().waitFor('w'));
    awaitSleep(first.pid());
    awaitSleep(second.pid());

    holder.kill();

    EXPECT_TRUE(first.talk().waitFor('g'));
    EXPECT_TRUE(second.talk().waitFor('g'));
}

TEST(SemaphoreLock, GoesOnWhenAWaiterIsKilled) {
    ChildProcess holder(holdUntilTold);
    ASSERT_TRUE(holder.talk().waitFor('h'));
    ChildProcess waiter(waitForLock);
    ASSERT_TRUE(waiter.talk().waitFor('w'));
    awaitSleep(waiter.pid());

    waiter.kill();
    holder.talk().tell('r');

    EXPECT_EQ(0, failureOf(lockName()));
}

TEST(SemaphoreLock, SurvivesAHolderKilledAtAnyInstruction) {
    const std::string name = lockName();
    take(name);
    const auto body = [&] { take(name); };
    const long total = SteppedProcess::count(Step::Instruction, body);
    const long stride = strideOver(total);

    for (long steps = 0; steps <= total; steps += stride) {
        SteppedProcess holder(body);
        holder.advance(Step::Instruction, steps);
        holder.kill();

        ASSERT_EQ(0, failureOf(name)) << "holder killed after " << steps << " of " << total;
    }
}

TEST(SemaphoreLock, WakesAWaiterWhereverInTheReleaseItsHolderIsKilled) {
    take();
    const auto body = [] {
        const SemaphoreLock lock(lockName(), 0);
        raise(SIGSTOP);
    };
    SteppedProcess whole(body);
    whole.runToStop();
    const long total = whole.countToStop(Step::Instruction);
    const long stride = strideOver(total);

    for (long steps = 0; steps <= total; steps += stride) {
        SteppedProcess holder(body);
        holder.runToStop();
        ChildProcess waiter(waitForLock);
        ASSERT_TRUE(waiter.talk().waitFor('w'));
        awaitSleep(waiter.pid());

        holder.advance(Step::Instruction, steps);
        holder.kill();

        ASSERT_TRUE(waiter.talk().waitFor('g')) << "holder killed after " << steps << " of " << total;
    }
}

TEST(SemaphoreLock, TakesWithoutASystemCallWhileNobodyElseHoldsIt) {
    take();
    const auto body = [](int takes) {
        return [takes] {
            for (int i = 0; i < takes; ++i) {
                take();
            }
        };
    };

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    constexpr long ofTheSanitizer = 100; // its own, now and then; far fewer than takes
#else
    constexpr long ofTheSanitizer = 0;
#endif

    const long few = SteppedProcess::count(Step::SystemCall, body(1));

    EXPECT_LE(SteppedProcess::count(Step::SystemCall, body(1000)), few + ofTheSanitizer);
    EXPECT_GT(SteppedProcess::count(Step::SystemCall, [] { take("/new"); }), few)
        << "system calls do not count";
}

TEST(SemaphoreLock, BelongsToTheParentOnlyAfterAForkInItsScope) {
    auto lock = std::make_unique<SemaphoreLock>(lockName(), 0);

    ChildProcess copy([&](Talk&) {
        lock.reset();
        return 0;
    });
    EXPECT_EQ(0, copy.wait());

    ChildProcess waiter(waitForLock);
    ASSERT_TRUE(waiter.talk().waitFor('w'));
    EXPECT_FALSE(waiter.talk().hasMark(aMoment)) << "the child has freed its parent's lock";
    lock.reset();
    EXPECT_TRUE(waiter.talk().waitFor('g'));
}

TEST(SemaphoreLock, CanBeTakenInAChildForkedWhileAnotherThreadHeldIt) {
    int toThread[2];
    int fromThread[2];
    ASSERT_EQ(0, pipe(toThread));
    ASSERT_EQ(0, pipe(fromThread));
    std::thread holder([&] {
        Talk talk(toThread[0], fromThread[1]);
        EXPECT_EQ(0, holdUntilTold(talk));
    });
    Talk talk(fromThread[0], toThread[1]);
    EXPECT_TRUE(talk.waitFor('h'));

    ChildProcess child(waitForLock);
    EXPECT_TRUE(child.talk().waitFor('w'));
    EXPECT_FALSE(child.talk().hasMark(aMoment));
    talk.tell('r');
    holder.join();

    EXPECT_TRUE(child.talk().waitFor('g'));
    EXPECT_EQ(0, child.wait());
}

TEST(SemaphoreLock, CanBeOpenedByAnyUserWhateverTheUmask) {
    const mode_t before = umask(0777);

    take();

    umask(before);
    EXPECT_EQ(0666U, status(lockName()).st_mode & 07777U);
}

TEST(SemaphoreLock, LeavesNothingBehindButItsObject) {
    const std::vector<std::string> before = objectNames();

    take();

    const std::vector<std::string> after = objectNames();
    EXPECT_EQ(before.size() + 1, after.size());
    EXPECT_EQ(1, std::count(after.begin(), after.end(), lockName()));
}

TEST(SemaphoreLock, SurvivesAMakerHeldOrKilledAtAnySystemCall) {
    const auto nameOf = [](long steps) { return lockName() + std::to_string(steps); };
    const long total = SteppedProcess::count(Step::SystemCall, [] { take(); });
    ASSERT_GT(total, 10) << "the object is not made in the child";

    for (long steps = 0; steps <= total; ++steps) {
        const std::string name = nameOf(steps);
        SteppedProcess dying([&] { take(name); });
        SteppedProcess slow([&] { take(name); });
        dying.advance(Step::SystemCall, steps);
        slow.advance(Step::SystemCall, steps);
        dying.kill();

        ASSERT_EQ(0, failureOf(name)) << "maker killed after " << steps << " of " << total;
        const ino_t object = status(name).st_ino;

        EXPECT_EQ(0, slow.finish());
        EXPECT_EQ(object, status(name).st_ino) << "made a second time after " << steps << " of " << total;
    }
}

TEST(SemaphoreLock, RefusesAnObjectThatIsNoLockAndTakesItOnceThatIsGone) {
    take("/model");
    const auto size = std::filesystem::file_size(objectPath("/model"));

    writeObject("/empty", "");
    writeObject("/short", std::string(size - 1, '\0'));
    writeObject("/long", std::string(size + 1, '\0'));
    writeObject("/zero", std::string(size, '\0'));
    writeObject("/noise", std::string(size, 'x'));
    std::filesystem::create_directory(objectPath("/directory"));
    std::filesystem::create_symlink("model", objectPath("/link"));

    EXPECT_EQ(EBADMSG, failureOf("/empty"));
    EXPECT_EQ(EBADMSG, failureOf("/short"));
    EXPECT_EQ(EBADMSG, failureOf("/long"));
    EXPECT_EQ(EBADMSG, failureOf("/zero"));
    EXPECT_EQ(EBADMSG, failureOf("/noise"));
    EXPECT_EQ(EISDIR, failureOf("/directory"));
    EXPECT_EQ(ELOOP, failureOf("/link"));

    std::filesystem::remove(objectPath("/noise"));
    EXPECT_EQ(0, failureOf("/noise"));
}

TEST(SemaphoreLock, SaysWhichObjectIsDamaged) {
    writeObject(lockName(), "?");

    try {
        take();
        ADD_FAILURE() << "taken";
    } catch (const std::system_error& failure) {
        const std::string text = failure.what();
        EXPECT_EQ(0U, text.find("SemaphoreLock \"" + lockName() +
                                "\": the shared memory object of that name is no lock of this "
                                "kind or is damaged"))
            << text;
    }
}

TEST(SemaphoreLock, RefusesANameThatIsNoneOfAnObject) {
    EXPECT_EQ(EINVAL, failureOf(""));
    EXPECT_EQ(EINVAL, failureOf("/"));
    EXPECT_EQ(EINVAL, failureOf("lock"));
    EXPECT_EQ(EINVAL, failureOf("/a/b"));
    EXPECT_EQ(ENAMETOOLONG, failureOf('/' + std::string(256, 'n')));
    EXPECT_EQ(0, failureOf('/' + std::string(255, 'n')));
}

} // namespace
