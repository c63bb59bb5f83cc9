#include "base/Trace.h"

#include <qz/tavrel/SharedMemory.h>

#include <sys/shm.h>

#include <cerrno>
#include <cstdint>

namespace qz::tavrel {

namespace point = internal::point;
using internal::trace;

namespace {

constexpr int createFlag = IPC_CREAT | IPC_EXCL | 0666;

static_assert(createFlag == 1974);

/// Maps a segment into the process; null on failure, with the reason in errno.
void* mapSegment(int id) {
    void* const mapped = shmat(id, nullptr, 0);
    // The system reports a failure as address -1, which no mapping has.
    return reinterpret_cast<std::intptr_t>(mapped) == -1 ? nullptr : mapped;
}

} // namespace

SharedMemory::SharedMemory(int segmentKey) : key(segmentKey), id(-1), address(nullptr), length(0) {}

SharedMemory::SharedMemory(int segmentKey, unsigned int size) : SharedMemory(segmentKey) {
    allocate(size);
}

SharedMemory::~SharedMemory() {
    free();
}

void SharedMemory::attach() {
    if (address != nullptr) {
        return;
    }
    const int found = shmget(key, 0, 0);
    if (found == -1) {
        return;
    }
    void* const mapped = mapSegment(found);
    if (mapped == nullptr) {
        trace(point::SharedMemoryAttachFailed, errno);
    } else {
        shmid_ds state{};
        if (shmctl(found, IPC_STAT, &state) == 0) {
            id = found;
            address = mapped;
            length = static_cast<unsigned int>(state.shm_segsz);
            trace(point::SharedMemoryAttached, id, address, length);
            return;
        }
        trace(point::SharedMemoryStatFailed, errno);
        if (shmdt(mapped) == -1) {
            trace(point::SharedMemoryDetachUnusable, errno);
        }
    }
    // It is of no use to anybody; out of the way, so that the next `allocate` can make a new one.
    if (shmctl(found, IPC_RMID, nullptr) == -1) {
        trace(point::SharedMemoryRemoveUnusable, errno);
    }
}

void* SharedMemory::allocate(unsigned int size) {
    if (length == 0) {
        attach();
    }
    if (size == length) {
        if (address == nullptr) {
            attach();
        }
        return address;
    }
    free();
    if (id != -1) {
        return address;
    }
    const int made = shmget(key, size, createFlag);
    if (made == -1) {
        trace(point::SharedMemoryGetFailed, errno);
        return address;
    }
    void* const mapped = mapSegment(made);
    if (mapped == nullptr) {
        trace(point::SharedMemoryAllocateAttach, errno);
        return address;
    }
    id = made;
    length = size;
    address = mapped;
    trace(point::SharedMemoryAllocated, id, length, address);
    return address;
}

void SharedMemory::free() {
    if (address != nullptr) {
        if (shmdt(address) == -1) {
            trace(point::SharedMemoryDetachFailed, errno);
        }
        address = nullptr;
        length = 0;
    }
    if (id == -1) {
        return;
    }
    shmid_ds state{};
    if (shmctl(id, IPC_STAT, &state) == -1) {
        if (errno == EINVAL || errno == EIDRM) {
            // Those who were still attached have removed it since.
            id = -1;
        }
        return;
    }
    if (state.shm_nattch != 0) {
        return;
    }
    if (shmctl(id, IPC_RMID, nullptr) == -1) {
        trace(point::SharedMemoryRemoveFailed, errno);
        return;
    }
    trace(point::SharedMemoryRemoved, id);
    id = -1;
}

void* SharedMemory::data() {
    if (address == nullptr) {
        attach();
    }
    return address;
}

unsigned int SharedMemory::size() {
    if (length == 0) {
        attach();
    }
    return length;
}

} // namespace qz::tavrel
