#include "support/ChildProcess.h"

#include <gtest/gtest.h>

#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>

namespace tavrel::test {

namespace {

constexpr int patience = 30000;   // milliseconds for one mark
constexpr unsigned lifetime = 60; // seconds of a child
constexpr int expectationFailed = 97;

int runBody(const std::function<int(Talk&)>& body, Talk& talk) {
    try {
        const int code = body(talk);
        return testing::Test::HasFailure() ? expectationFailed : code;
    } catch (const std::exception& failure) {
        ADD_FAILURE() << "child raised: " << failure.what();
        return expectationFailed;
    }
}

} // namespace

Talk::Talk(int from, int to) : readEnd(from), writeEnd(to) {}

Talk::~Talk() {
    close(readEnd);
    close(writeEnd);
}

void Talk::tell(char mark) const {
    EXPECT_EQ(1, write(writeEnd, &mark, 1)) << "mark " << mark << " not sent";
}

bool Talk::hasMark(int milliseconds) const {
    pollfd ready{readEnd, POLLIN, 0};
    int result = 0;
    do {
        result = poll(&ready, 1, milliseconds);
    } while (result == -1 && errno == EINTR);
    return result == 1 && (ready.revents & POLLIN) != 0;
}

bool Talk::waitFor(char mark) const {
    char got = 0;
    if (!hasMark(patience) || read(readEnd, &got, 1) != 1) {
        ADD_FAILURE() << "mark " << mark << " did not come";
        return false;
    }
    EXPECT_EQ(mark, got);
    return got == mark;
}

ChildProcess::ChildProcess(const std::function<int(Talk&)>& body) {
    int toChild[2];
    int toParent[2];
    if (pipe(toChild) != 0 || pipe(toParent) != 0) {
        std::perror("pipe");
        std::abort();
    }
    std::fflush(nullptr);
    const pid_t parent = getpid();
    child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) {
            _exit(1);
        }
        alarm(lifetime);
        close(toChild[1]);
        close(toParent[0]);
        Talk talk(toChild[0], toParent[1]);
        const int code = runBody(body, talk);
        std::fflush(nullptr);
        _exit(code);
    }
    if (child == -1) {
        std::perror("fork");
        std::abort();
    }
    close(toChild[0]);
    close(toParent[1]);
    link = new Talk(toParent[0], toChild[1]);
}

ChildProcess::~ChildProcess() {
    kill();
    delete link;
}

void ChildProcess::kill() {
    if (child == -1) {
        return;
    }
    ::kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    child = -1;
}

int ChildProcess::wait() {
    int status = 0;
    const pid_t ended = waitpid(child, &status, 0);
    EXPECT_EQ(child, ended);
    child = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

} // namespace tavrel::test
