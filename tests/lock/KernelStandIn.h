#pragma once

#include <atomic>
#include <functional>
#include <string>

namespace tavrel::test {

/// One call of the library to the kernel, as a stand-in sees it.
struct KernelCall {
    const char* name;  ///< "semget", "semctl", "semop", "semtimedop", "shmget", "shmat", "shmdt", ...
    long arguments[4]; ///< in the order of the call; an address as a number, a time in milliseconds
    const void* data;  ///< the records of `semop` and `semtimedop`, the address of `shmdt`
};

/// Stands between the library and the kernel for the calls of one name, as long as it lives. The test
/// programs define these functions of the C library themselves and pass on what no stand-in answers. Made and
/// destroyed while only one thread runs.
class KernelStandIn {
public:
    /// @param answer  gets each call: 0 passes it on to the kernel, an error number makes it fail with that
    ///                number, `succeed` makes it return 0 without the kernel
    KernelStandIn(std::string name, std::function<int(const KernelCall&)> answer);
    ~KernelStandIn();
    KernelStandIn(const KernelStandIn&) = delete;
    KernelStandIn& operator=(const KernelStandIn&) = delete;

    static constexpr int succeed = -1;

    /// Calls of this name so far.
    int calls() const { return seen; }

private:
    friend int standInAnswer(const KernelCall& call);

    std::string name;
    std::function<int(const KernelCall&)> answer;
    std::atomic<int> seen{0};
    KernelStandIn* next;
};

/// Has no `semtimedop` wait longer than `milliseconds`, as long as it lives.
class WaitLimit {
public:
    explicit WaitLimit(int milliseconds);
    ~WaitLimit();
    WaitLimit(const WaitLimit&) = delete;
    WaitLimit& operator=(const WaitLimit&) = delete;
};

/// Lets the library read `text` where it opens the file `path` of the system, as long as it lives.
class FileStandIn {
public:
    FileStandIn(const char* path, const std::string& text);
    ~FileStandIn();
    FileStandIn(const FileStandIn&) = delete;
    FileStandIn& operator=(const FileStandIn&) = delete;
};

/// An answer: every call fails with `errnum`.
std::function<int(const KernelCall&)> failing(int errnum);

/// An answer: every call whose command (the third argument of `semctl`, the second of `shmctl`) is `command`
/// fails with `errnum`.
std::function<int(const KernelCall&)> failingCommand(int command, int errnum);

} // namespace tavrel::test
