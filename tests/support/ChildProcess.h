#pragma once

#include <sys/types.h>

#include <functional>

namespace tavrel::test {

/// One end of the talk between a test and its child process: single characters through pipes, each a barrier.
/// Never a sleep to order events; every wait ends after 30 seconds with a failure.
class Talk {
public:
    Talk(int readEnd, int writeEnd);
    ~Talk();
    Talk(const Talk&) = delete;
    Talk& operator=(const Talk&) = delete;

    /// Sends one mark.
    void tell(char mark) const;

    /// Waits for `mark`; false, and a failed test, when another one or none comes.
    bool waitFor(char mark) const;

    /// True if a mark is there to be read within `milliseconds`. For "it has not gone on" only.
    bool hasMark(int milliseconds) const;

private:
    int readEnd;
    int writeEnd;
};

/// A forked process that runs `body`. It dies with the test, and by itself after 60 seconds.
/// An EXPECT that fails in the child makes its exit code 97.
class ChildProcess {
public:
    explicit ChildProcess(const std::function<int(Talk&)>& body);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t pid() const { return child; }
    Talk& talk() { return *link; }

    /// Ends the child with SIGKILL and waits until it has gone.
    void kill();

    /// Waits for the end of the child: its exit code, or minus the signal that ended it.
    int wait();

private:
    pid_t child = -1;
    Talk* link = nullptr;
};

} // namespace tavrel::test
