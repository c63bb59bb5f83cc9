#include "lock/KernelStandIn.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <utility>

namespace tavrel::test {

namespace {

KernelStandIn* standIns = nullptr;
const char* hiddenFile = nullptr;
std::atomic<int> waitLimit{0}; // milliseconds; 0 for none
constexpr const char* shownFile = "/tmp/file_stand_in";

/// The C library's own function of this name.
template <typename Function>
Function* original(const char* name) {
    void* const found = dlsym(RTLD_NEXT, name);
    if (found == nullptr) {
        std::abort();
    }
    return reinterpret_cast<Function*>(found);
}

long number(const void* address) {
    return static_cast<long>(reinterpret_cast<std::intptr_t>(address));
}

} // namespace

KernelStandIn::KernelStandIn(std::string callName, std::function<int(const KernelCall&)> callAnswer)
    : name(std::move(callName)), answer(std::move(callAnswer)), next(std::exchange(standIns, this)) {}

KernelStandIn::~KernelStandIn() {
    standIns = next;
}

WaitLimit::WaitLimit(int milliseconds) {
    waitLimit = milliseconds;
}

WaitLimit::~WaitLimit() {
    waitLimit = 0;
}

FileStandIn::FileStandIn(const char* path, const std::string& text) {
    std::ofstream(shownFile) << text;
    hiddenFile = path;
}

FileStandIn::~FileStandIn() {
    hiddenFile = nullptr;
    std::remove(shownFile);
}

int standInAnswer(const KernelCall& call) {
    int result = 0;
    for (KernelStandIn* standIn = standIns; standIn != nullptr && result == 0; standIn = standIn->next) {
        if (standIn->name == call.name) {
            ++standIn->seen;
            result = standIn->answer(call);
        }
    }
    return result;
}

std::function<int(const KernelCall&)> failing(int errnum) {
    return [errnum](const KernelCall&) { return errnum; };
}

std::function<int(const KernelCall&)> failingCommand(int command, int errnum) {
    return [command, errnum](const KernelCall& call) {
        const int place = std::strcmp(call.name, "semctl") == 0 ? 2 : 1;
        return call.arguments[place] == command ? errnum : 0;
    };
}

namespace {

/// Lets the stand-ins answer, or calls the C library.
template <typename Result, typename... Parameters, typename... Arguments>
Result answerOrPass(const KernelCall& call, Result failed, Result (*)(Parameters...),
                    Arguments... arguments) {
    const int answer = standInAnswer(call);
    if (answer == KernelStandIn::succeed) {
        return Result{};
    }
    if (answer != 0) {
        errno = answer;
        return failed;
    }
    return original<Result(Parameters...)>(call.name)(arguments...);
}

} // namespace

} // namespace tavrel::test

using tavrel::test::answerOrPass;
using tavrel::test::number;

int semget(key_t key, int count, int flag) noexcept {
    return answerOrPass({"semget", {key, count, flag, 0}, nullptr}, -1, &semget, key, count, flag);
}

int semop(int id, sembuf* records, size_t count) noexcept {
    return answerOrPass({"semop", {id, number(records), static_cast<long>(count), 0}, records}, -1, &semop,
                        id, records, count);
}

int semtimedop(int id, sembuf* records, size_t count, const timespec* timeout) noexcept {
    const long given = static_cast<long>(timeout->tv_sec) * 1000 + timeout->tv_nsec / 1000000;
    const int limit = tavrel::test::waitLimit;
    const long milliseconds = limit != 0 && limit < given ? limit : given;
    timespec limited{};
    limited.tv_sec = static_cast<time_t>(milliseconds / 1000);
    limited.tv_nsec = milliseconds % 1000 * 1000000;
    const timespec* const passed = milliseconds == given ? timeout : &limited;
    return answerOrPass({"semtimedop", {id, number(records), static_cast<long>(count), given}, records}, -1,
                        &semtimedop, id, records, count, passed);
}

int semctl(int id, int semaphore, int command, ...) noexcept {
    std::va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    const int answer =
        tavrel::test::standInAnswer({"semctl", {id, semaphore, command, number(argument)}, argument});
    if (answer == tavrel::test::KernelStandIn::succeed) {
        return 0;
    }
    if (answer != 0) {
        errno = answer;
        return -1;
    }
    return tavrel::test::original<int(int, int, int, ...)>("semctl")(id, semaphore, command, argument);
}

int shmget(key_t key, size_t size, int flag) noexcept {
    return answerOrPass({"shmget", {key, static_cast<long>(size), flag, 0}, nullptr}, -1, &shmget, key, size,
                        flag);
}

void* shmat(int id, const void* address, int flag) noexcept {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the address that reports a failure
    void* const failed = reinterpret_cast<void*>(std::intptr_t{-1});
    return answerOrPass({"shmat", {id, number(address), flag, 0}, address}, failed, &shmat, id, address,
                        flag);
}

int shmdt(const void* address) noexcept {
    return answerOrPass({"shmdt", {number(address), 0, 0, 0}, address}, -1, &shmdt, address);
}

int shmctl(int id, int command, shmid_ds* state) noexcept {
    return answerOrPass({"shmctl", {id, command, number(state), 0}, state}, -1, &shmctl, id, command, state);
}

int usleep(useconds_t microseconds) {
    return answerOrPass({"usleep", {static_cast<long>(microseconds), 0, 0, 0}, nullptr}, -1, &usleep,
                        microseconds);
}

int pthread_rwlock_unlock(pthread_rwlock_t* lock) noexcept {
    const int answer = tavrel::test::standInAnswer({"pthread_rwlock_unlock", {number(lock), 0, 0, 0}, lock});
    if (answer != 0) {
        return answer;
    }
    return tavrel::test::original<int(pthread_rwlock_t*)>("pthread_rwlock_unlock")(lock);
}

long syscall(long number, ...) noexcept {
    long argument[6];
    std::va_list arguments;
    va_start(arguments, number);
    for (long& each : argument) {
        each = va_arg(arguments, long);
    }
    va_end(arguments);
    const char* const name = number == SYS_futex    ? "futex"
                             : number == SYS_tkill  ? "tkill"
                             : number == SYS_tgkill ? "tgkill"
                                                    : "other";
    const int answer =
        tavrel::test::standInAnswer({name, {argument[0], argument[1], argument[2], argument[3]}, nullptr});
    if (answer == tavrel::test::KernelStandIn::succeed) {
        return 0;
    }
    if (answer != 0) {
        errno = answer;
        return -1;
    }
    return tavrel::test::original<long(long, ...)>("syscall")(number, argument[0], argument[1], argument[2],
                                                              argument[3], argument[4], argument[5]);
}

int open(const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const auto mode = va_arg(arguments, mode_t);
    va_end(arguments);
    const char* const hidden = tavrel::test::hiddenFile;
    const char* const shown =
        hidden != nullptr && std::strcmp(path, hidden) == 0 ? tavrel::test::shownFile : path;
    return tavrel::test::original<int(const char*, int, ...)>("open")(shown, flags, mode);
}
