#include "base/Fault.h"
#include "base/Guards.h"
#include "base/SystemText.h"
#include "base/Trace.h"

#include <qz/tavrel/Semaphore.h>

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace qz::tavrel {

namespace point = internal::point;
using internal::raise;
using internal::SystemText;
using internal::trace;
using internal::traceText;

static_assert(sizeof(seminfo) == 10 * sizeof(std::int32_t) && sizeof(seminfo) == 40);
static_assert(offsetof(seminfo, semmsl) == 16 && offsetof(seminfo, semopm) == 20);

namespace {

constexpr const char* fileLabel = "Semaphore";
constexpr const char* initializeLabel = "initialize";
constexpr int defaultFlag = IPC_CREAT | IPC_EXCL | 0666;
constexpr int looksForReady = 10;
constexpr std::chrono::microseconds pauseBetweenLooks{100000};

static_assert(defaultFlag == 1974);

/// The fourth argument of `semctl`, which the caller has to declare.
union ControlArgument {
    int value;
    semid_ds* state;
    unsigned short* values;
    seminfo* limits;
};

/// Writes the two records of a failed system call: its numbers, then the system's text.
template <typename... Words>
void traceFailure(int errnum, const internal::TracePoint& numbers, const internal::TracePoint& text,
                  Words... words) {
    trace(numbers, words...);
    traceText(text, SystemText(errnum).text());
}

bool isUnset(const seminfo& limits) {
    static constexpr seminfo unset{};
    return std::memcmp(&limits, &unset, sizeof unset) == 0;
}

/// Asks the system for its limits; it needs a set of ours to answer.
bool fetchLimits(seminfo& limits) {
    const int probe = semget(IPC_PRIVATE, 1, 0666);
    if (probe == -1) {
        const int errnum = errno;
        traceFailure(errnum, point::SemaphoreInfoGetFailed, point::SemaphoreInfoGetFailedText, errnum);
        return false;
    }
    ControlArgument argument{};
    argument.limits = &limits;
    const bool fetched = semctl(probe, 0, IPC_INFO, argument) != -1;
    if (!fetched) {
        const int errnum = errno;
        traceFailure(errnum, point::SemaphoreInfoFailed, point::SemaphoreInfoFailedText, errnum);
    }
    if (semctl(probe, 0, IPC_RMID) == -1) {
        const int errnum = errno;
        traceFailure(errnum, point::SemaphoreInfoRemoveFailed, point::SemaphoreInfoRemoveFailedText, errnum);
    }
    return fetched;
}

int operateDespiteSignals(int id, sembuf* records, unsigned int count) {
    int result = 0;
    do {
        result = semop(id, records, count);
    } while (result == -1 && errno == EINTR);
    return result;
}

/// Sleeps for the whole pause, whatever signals come.
void pauseUntilNextLook() {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + pauseBetweenLooks;
    auto left = pauseBetweenLooks;
    while (left.count() > 0 && usleep(static_cast<useconds_t>(left.count())) == -1 && errno == EINTR) {
        left = std::chrono::duration_cast<std::chrono::microseconds>(end - Clock::now());
    }
}

} // namespace

seminfo Semaphore::info{};

void Semaphore::Buffer::add(int number, short op, short operationFlag) {
    if (records.size() >= static_cast<unsigned int>(getInfo()->semopm)) {
        raise(fileLabel, "add", "buffer overflow.");
    }
    records.push_back({static_cast<unsigned short>(number), op, operationFlag});
}

sembuf* Semaphore::Buffer::data() {
    return &records.at(0);
}

Semaphore::Semaphore() : id(-1), flag(defaultFlag) {}

Semaphore::Semaphore(int key, unsigned short* values, unsigned int count) : Semaphore() {
    initialize(key, values, count);
}

Semaphore::~Semaphore() = default;

seminfo* Semaphore::getInfo() {
    static std::atomic<bool> ready{false};
    static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    if (!ready.load(std::memory_order_acquire) || isUnset(info)) {
        seminfo limits{};
        if (fetchLimits(limits)) {
            const internal::MutexGuard guard(mutex);
            if (isUnset(info)) {
                info = limits;
                ready.store(true, std::memory_order_release);
            }
        }
    }
    return &info;
}

void Semaphore::initialize(int key, unsigned short* values, unsigned int count) {
    setUp(key, values, count, Race::Raise);
}

void Semaphore::setUp(int key, unsigned short* values, unsigned int count, Race race) {
    if (join(key) || create(key, values, count, race)) {
        return;
    }
    // Another process was faster. Its set can have gone again by now; then it is ours to create.
    if (!join(key)) {
        create(key, values, count, Race::Raise);
    }
}

/// Joins the set of `key` once it is ready; false if there is none.
bool Semaphore::join(int key) {
    const int found = semget(key, 0, 0);
    if (found == -1) {
        return false;
    }
    id = found;
    for (int look = 0; look < looksForReady; ++look) {
        semid_ds state{};
        ControlArgument argument{};
        argument.state = &state;
        if (semctl(id, 0, IPC_STAT, argument) == -1) {
            traceFailure(errno, point::SemaphoreStatFailed, point::SemaphoreStatFailedText, id);
            raise(fileLabel, initializeLabel, "semctl failed.");
        }
        if (state.sem_otime != 0) {
            return true;
        }
        pauseUntilNextLook();
    }
    trace(point::SemaphoreNeverReady, id);
    raise(fileLabel, initializeLabel, "invalid semid is detected.");
}

/// Creates the set of `key`; false if another process has done so meanwhile and is to be joined.
bool Semaphore::create(int key, const unsigned short* values, unsigned int count, Race race) {
    const int made = semget(key, static_cast<int>(count), flag);
    if (made == -1) {
        const int errnum = errno;
        if (errnum == EEXIST && race == Race::Join) {
            return false;
        }
        traceFailure(errnum, point::SemaphoreGetFailed, point::SemaphoreGetFailedText, key, count, flag);
        raise(fileLabel, initializeLabel, "semget failed.");
    }
    id = made;

    // A process that dies from here to the first operation leaves a set that never becomes ready.
    std::vector<unsigned short> zeros(count, 0);
    ControlArgument argument{};
    argument.values = zeros.data();
    if (semctl(id, 0, SETALL, argument) == -1) {
        traceFailure(errno, point::SemaphoreSetAllFailed, point::SemaphoreSetAllFailedText, id);
        semctl(id, 0, IPC_RMID);
        id = -1;
        raise(fileLabel, initializeLabel, "semctl failed.");
    }
    for (unsigned int i = 0; i < count; ++i) {
        sembuf first{static_cast<unsigned short>(i), static_cast<short>(values[i]), 0};
        if (operateDespiteSignals(id, &first, 1) == -1) {
            traceFailure(errno, point::SemaphoreSetUpFailed, point::SemaphoreSetUpFailedText, id, i);
            semctl(id, 0, IPC_RMID);
            raise(fileLabel, initializeLabel, "semop failed.");
        }
    }
    trace(point::SemaphoreCreated, id, count);
    return true;
}

bool Semaphore::operate(Buffer& buffer) {
    return operate(buffer.data(), buffer.size());
}

bool Semaphore::operate(int number, short op, short operationFlag) {
    sembuf single{static_cast<unsigned short>(number), op, operationFlag};
    return operate(&single, 1);
}

/// As `operate`, but waits no longer than `limit`; running out of time is no failure and leaves no trace.
Semaphore::Outcome Semaphore::operateWithin(std::chrono::nanoseconds limit, int number, short op,
                                            short operationFlag) {
    using Clock = std::chrono::steady_clock;
    sembuf single{static_cast<unsigned short>(number), op, operationFlag};
    const auto end = Clock::now() + limit;
    for (auto left = limit;; left = std::max<std::chrono::nanoseconds>(end - Clock::now(), {})) {
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
        timespec rest{};
        rest.tv_sec = static_cast<decltype(rest.tv_sec)>(seconds.count());
        rest.tv_nsec = static_cast<decltype(rest.tv_nsec)>((left - seconds).count());
        if (semtimedop(id, &single, 1, &rest) == 0) {
            return Outcome::Done;
        }
        const int errnum = errno;
        if (errnum == EAGAIN) {
            return Outcome::TooLate;
        }
        if (errnum != EINTR) {
            traceFailure(errnum, point::SemaphoreOperateFailed, point::SemaphoreOperateFailedText, id, 1U);
            return Outcome::Refused;
        }
    }
}

bool Semaphore::operate(sembuf* records, unsigned int count) {
    if (operateDespiteSignals(id, records, count) == -1) {
        traceFailure(errno, point::SemaphoreOperateFailed, point::SemaphoreOperateFailedText, id, count);
        return false;
    }
    return true;
}

void Semaphore::remove() {
    if (semctl(id, 0, IPC_RMID) == -1) {
        traceFailure(errno, point::SemaphoreRemoveFailed, point::SemaphoreRemoveFailedText, id);
    }
    trace(point::SemaphoreRemoved, id);
    id = -1;
}

} // namespace qz::tavrel
