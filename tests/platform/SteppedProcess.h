#pragma once

#include <sys/types.h>

#include <functional>

namespace tavrel::test {

/// What a stepped process does between two stops.
enum class Step {
    Instruction, ///< one instruction of the machine
    SystemCall   ///< up to the entry or the exit of the next system call
};

/// A forked process that runs `body` under the debugger's hand, so that it can be held or killed at any
/// point.
class SteppedProcess {
public:
    explicit SteppedProcess(const std::function<void()>& body);
    ~SteppedProcess();
    SteppedProcess(const SteppedProcess&) = delete;
    SteppedProcess& operator=(const SteppedProcess&) = delete;

    /// Lets the process run to its next stop.
    void runToStop();

    /// Lets the process make up to `count` steps.
    /// @return steps made; fewer than `count` when it has come to its next stop
    long advance(Step step, long count);

    /// Ends the process where it stands, with SIGKILL, and waits until it has gone.
    void kill();

    /// Lets the process run to its end: its exit code, 0 when `body` returned, or minus the signal that ended
    /// it.
    int finish();

    /// Lets the process run to its next stop.
    /// @return steps made
    long countToStop(Step step);

    /// Steps that `body` takes from start to end.
    static long count(Step step, const std::function<void()>& body);

private:
    /// Lets the process make one step; false when it has come to a stop or to its end.
    bool resume(int request);

    pid_t child = -1;
    int pendingSignal = 0;
    int exitCode = 0;
};

/// Distance from one point to the next for a test that walks to points all over a body of `total` steps, each
/// time from the start: every step of a short body, and never more than some 100000 steps in all, which is
/// seconds.
long strideOver(long total);

} // namespace tavrel::test
