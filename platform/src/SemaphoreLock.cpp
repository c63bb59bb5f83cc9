#include "SharedObject.h"

#include <qz/base/SemaphoreLock.h>

#include <sys/mman.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <system_error>

namespace {

/// What the shared memory object of a lock holds. The mutex is that of the C library, so only processes of
/// one word size can share a lock; the size of the object tells the others apart.
struct LockObject {
    std::uint32_t magic;
    std::uint32_t mutexSize;
    pthread_mutex_t mutex;
};

constexpr std::uint32_t lockMagic = 0x4B4C5A51; // "QZLK" on a little-endian machine

static_assert(offsetof(LockObject, magic) == 0);
static_assert(offsetof(LockObject, mutexSize) == 4);
static_assert(offsetof(LockObject, mutex) == 8);
static_assert(sizeof(LockObject) == 8 + sizeof(pthread_mutex_t));

/// One name that this process has opened.
struct NamedLock {
    const std::string name;
    pthread_mutex_t* const mutex;
    NamedLock* next;
};

/// All names that this process has opened. Entries are added and never removed, and no lock guards the table:
/// a thread that looks up a name writes nothing, and a fork at any moment leaves the child with a whole
/// table.
constexpr std::size_t bucketCount = 64;
constinit std::array<std::atomic<NamedLock*>, bucketCount> opened{};

[[noreturn]] void fail(int error, const std::string& name, const char* what) {
    throw std::system_error(error, std::generic_category(), "SemaphoreLock \"" + name + "\": " + what);
}

int makeLock(void* object) {
    LockObject& lock = *static_cast<LockObject*>(object);
    pthread_mutexattr_t attributes;
    if (const int error = pthread_mutexattr_init(&attributes)) {
        return error;
    }
    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
    const int error = pthread_mutex_init(&lock.mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
    lock.mutexSize = sizeof lock.mutex;
    lock.magic = lockMagic;
    return error;
}

/// A lock object mapped into this process, unmapped again unless it is kept.
class [[nodiscard]] MappedLock {
public:
    explicit MappedLock(const std::string& name) {
        const qz::platform::SharedObject found =
            qz::platform::mapSharedObject(name.c_str(), sizeof(LockObject), makeLock);
        if (found.address == nullptr) {
            fail(found.error, name,
                 found.error == EBADMSG ? notALock : "cannot open the shared memory object");
        }
        object = static_cast<LockObject*>(found.address);
        if (object->magic != lockMagic || object->mutexSize != sizeof object->mutex) {
            unmap();
            fail(EBADMSG, name, notALock);
        }
    }
    ~MappedLock() { unmap(); }
    MappedLock(const MappedLock&) = delete;
    MappedLock& operator=(const MappedLock&) = delete;

    pthread_mutex_t* mutex() const { return &object->mutex; }
    void keep() { object = nullptr; }

private:
    static constexpr const char* notALock =
        "the shared memory object of that name is no lock of this kind or is damaged";

    void unmap() {
        if (object != nullptr) {
            munmap(object, sizeof *object);
        }
    }

    LockObject* object = nullptr;
};

pthread_mutex_t* find(const NamedLock* first, const std::string& name) {
    for (const NamedLock* lock = first; lock != nullptr; lock = lock->next) {
        if (lock->name == name) {
            return lock->mutex;
        }
    }
    return nullptr;
}

/// Opens the lock and adds it to the table, unless another thread has done so meanwhile.
pthread_mutex_t* add(std::atomic<NamedLock*>& bucket, const std::string& name) {
    MappedLock mapped(name);
    std::unique_ptr<NamedLock> lock(
        new NamedLock{name, mapped.mutex(), bucket.load(std::memory_order_acquire)});
    do {
        if (pthread_mutex_t* const others = find(lock->next, name)) {
            return others;
        }
    } while (!bucket.compare_exchange_weak(lock->next, lock.get(), std::memory_order_acq_rel,
                                           std::memory_order_acquire));
    mapped.keep();
    return lock.release()->mutex;
}

pthread_mutex_t* mutexOf(const std::string& name) {
    std::atomic<NamedLock*>& bucket = opened[std::hash<std::string>()(name) % bucketCount];
    pthread_mutex_t* const mutex = find(bucket.load(std::memory_order_acquire), name);
    return mutex != nullptr ? mutex : add(bucket, name);
}

} // namespace

SemaphoreLock::SemaphoreLock(const std::string& name, int) : mutex(mutexOf(name)) {
    int error = pthread_mutex_lock(mutex);
    if (error == EOWNERDEAD) {
        // The holder died. What the lock guards is the business of those who take it.
        error = pthread_mutex_consistent(mutex);
    }
    if (error != 0) {
        fail(error, name, error == EDEADLK ? "this thread holds the lock already" : "cannot take the lock");
    }
}

SemaphoreLock::~SemaphoreLock() {
    // Does nothing in a forked child for a lock that the parent took: the mutex knows its holder.
    pthread_mutex_unlock(mutex);
}
