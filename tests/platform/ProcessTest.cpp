#include "support/ChildProcess.h"

#include <qz/base/process.h>

#include <gtest/gtest.h>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

using tavrel::test::ChildProcess;
using tavrel::test::Talk;

namespace {

constexpr int untouched = -7;

/// The process id that `name` gives, or `untouched`.
int find(const std::string& name) {
    int pid = untouched;
    const int result = get_pid_by_name(name.c_str(), &pid);
    EXPECT_EQ(result != 0, pid == untouched);
    return pid;
}

/// A process with the short name `name`, which lives until it is told 'e'.
std::unique_ptr<ChildProcess> startNamed(const std::string& name) {
    auto process = std::make_unique<ChildProcess>([=](Talk& talk) {
        prctl(PR_SET_NAME, name.c_str());
        talk.tell('r');
        return talk.waitFor('e') ? 0 : 1;
    });
    EXPECT_TRUE(process->talk().waitFor('r'));
    return process;
}

/// A process that runs `cat` with the first argument `argument`; it lives until it is killed.
std::unique_ptr<ChildProcess> startWithArgument(const std::string& argument) {
    auto process = std::make_unique<ChildProcess>([=](Talk& talk) {
        int quiet[2];
        EXPECT_EQ(0, pipe(quiet));
        EXPECT_NE(-1, dup2(quiet[0], STDIN_FILENO));
        talk.tell('r');
        execl("/bin/cat", argument.c_str(), nullptr);
        return 1;
    });
    EXPECT_TRUE(process->talk().waitFor('r'));
    const std::string file = "/proc/" + std::to_string(process->pid()) + "/comm";
    std::string running;
    while (running != "cat") { // until the new program is there
        std::getline(std::ifstream(file), running);
    }
    return process;
}

TEST(GetPidByName, FindsAProcessByItsShortName) {
    const auto process = startNamed("tavrel_syncd");

    EXPECT_EQ(process->pid(), find("tavrel_syncd"));
}

TEST(GetPidByName, FindsAProcessByTheBaseNameOfItsFirstArgument) {
    const auto plain = startWithArgument("plainly_named");
    const auto path = startWithArgument("/usr/sbin/named_by_a_long_path");

    EXPECT_EQ(plain->pid(), find("plainly_named"));
    EXPECT_EQ(path->pid(), find("named_by_a_long_path"));
}

TEST(GetPidByName, AnswersNonZeroWhenThereIsNone) {
    const auto process = startNamed("tavrel_syncd");

    EXPECT_EQ(untouched, find("tavrel_sync"));
    EXPECT_EQ(untouched, find("tavrel_syncd2"));
    EXPECT_EQ(untouched, find("avrel_syncd"));
    EXPECT_EQ(untouched, find("tavrel_syncd\n"));
    EXPECT_EQ(untouched, find(""));
}

TEST(GetPidByName, SkipsAZombie) {
    const pid_t zombie = fork();
    ASSERT_NE(-1, zombie);
    if (zombie == 0) {
        prctl(PR_SET_NAME, "ended");
        _exit(0);
    }
    siginfo_t ended{};
    ASSERT_EQ(0, waitid(P_PID, static_cast<id_t>(zombie), &ended, WEXITED | WNOWAIT));
    std::string name;
    std::getline(std::ifstream("/proc/" + std::to_string(zombie) + "/comm"), name);
    ASSERT_EQ("ended", name);

    EXPECT_EQ(untouched, find("ended"));

    const auto living = startNamed("ended");
    EXPECT_EQ(living->pid(), find("ended"));
    waitpid(zombie, nullptr, 0);
}

TEST(GetPidByName, GivesTheLowestOfSeveral) {
    const auto first = startNamed("several");
    const auto second = startNamed("several");

    EXPECT_EQ(std::min(first->pid(), second->pid()), find("several"));
    first->kill();
    EXPECT_EQ(second->pid(), find("several"));
}

TEST(GetPidByName, IsNotMisledByANameThatLooksLikeAState) {
    const auto process = startNamed("x) Z (");

    EXPECT_EQ(process->pid(), find("x) Z ("));
}

} // namespace
