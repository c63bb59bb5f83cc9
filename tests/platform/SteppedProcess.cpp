#include "SteppedProcess.h"

#include <gtest/gtest.h>

#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace tavrel::test {

namespace {

constexpr int notTraced = 96;
constexpr int bodyRaised = 97;
constexpr unsigned lifetime = 100; // seconds of a process that nobody lets go on

[[noreturn]] void runTraced(const std::function<void()>& body) {
    alarm(lifetime);
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
        _exit(notTraced);
    }
    raise(SIGSTOP);
    try {
        body();
        raise(SIGSTOP);
    } catch (...) {
        _exit(bodyRaised);
    }
    _exit(0);
}

} // namespace

SteppedProcess::SteppedProcess(const std::function<void()>& body) {
    std::fflush(nullptr);
    child = fork();
    if (child == 0) {
        runTraced(body);
    }
    int status = 0;
    if (child == -1 || waitpid(child, &status, 0) != child || !WIFSTOPPED(status)) {
        std::fprintf(stderr, "a child process cannot be traced here\n");
        std::abort();
    }
    ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_EXITKILL | PTRACE_O_TRACESYSGOOD);
}

SteppedProcess::~SteppedProcess() {
    kill();
}

bool SteppedProcess::resume(int request) {
    if (child == -1) {
        return false;
    }
    ptrace(static_cast<__ptrace_request>(request), child, nullptr, pendingSignal);
    int status = 0;
    waitpid(child, &status, 0);
    if (!WIFSTOPPED(status)) {
        exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
        child = -1;
        return false;
    }
    const int signal = WSTOPSIG(status) & 0x7f; // a stop at a system call has a bit more
    pendingSignal = signal == SIGTRAP || signal == SIGSTOP ? 0 : signal;
    return signal != SIGSTOP;
}

void SteppedProcess::runToStop() {
    while (resume(PTRACE_CONT)) {
    }
    EXPECT_NE(-1, child) << "ended with " << exitCode;
}

long SteppedProcess::advance(Step step, long count) {
    const int request = step == Step::Instruction ? PTRACE_SINGLESTEP : PTRACE_SYSCALL;
    long made = 0;
    while (made < count && resume(request)) {
        ++made;
    }
    return made;
}

void SteppedProcess::kill() {
    if (child != -1) {
        ::kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        child = -1;
    }
}

int SteppedProcess::finish() {
    while (child != -1) {
        resume(PTRACE_CONT);
    }
    return exitCode;
}

long SteppedProcess::countToStop(Step step) {
    long steps = 0;
    while (advance(step, 1) == 1) {
        ++steps;
    }
    EXPECT_NE(-1, child) << "ended with " << exitCode;
    return steps;
}

long strideOver(long total) {
    constexpr std::int64_t most = 100000;
    return std::max(1L, static_cast<long>(std::int64_t{total} * total / (2 * most)));
}

long SteppedProcess::count(Step step, const std::function<void()>& body) {
    return SteppedProcess(body).countToStop(step);
}

} // namespace tavrel::test
