#include "lock/LockStart.h"

#include <qz/base/SemaphoreLock.h>
#include <qz/tavrel/SharedMemory.h>
#include <qz/tavrel/TreePathLockProvider.h>

#include <sys/shm.h>

namespace qz::tavrel {

namespace {

constexpr int tableKey = 0x540000;

/// The attachment of this process. A process that ends leaves it with others kept off, so that nobody
/// attaches to a segment that is being removed.
struct Attachment {
    ~Attachment() {
        if (!used) {
            return;
        }
        try {
            const SemaphoreLock guard(internal::lockStartName, 0);
            memory.free();
        } catch (...) { // NOLINT(bugprone-empty-catch): the segment stays, and the next process finds it
        }
    }

    // Never destroyed: its own end would free once more, with nobody kept off.
    SharedMemory& memory = *new SharedMemory(tableKey);
    bool used = false;
    bool held = false;  ///< a `get` has attached
    bool first = false; ///< the last `get` was the one that did
};

Attachment attachment;
std::vector<unsigned char> privateTable;

} // namespace

LockMemory::LockMemory(bool inSharedMemory) : shared(inSharedMemory) {}

LockMemory::~LockMemory() {
    attachment.memory.free();
    attachment.held = false;
    privateTable.clear();
}

void* LockMemory::get(unsigned int size) {
    if (!shared) {
        if (privateTable.size() != size) {
            privateTable.assign(size, 0);
        }
        return privateTable.data();
    }
    attachment.used = true;
    attachment.first = !attachment.held;
    void* table = nullptr;
    if (attachment.memory.size() == size) {
        table = attachment.memory.data();
    } else {
        attachment.memory.free();
        table = attachment.memory.allocate(size);
    }
    attachment.held = table != nullptr;
    return table;
}

bool LockMemory::isFirstUser() {
    shmid_ds state{};
    return shared && attachment.first && shmctl(shmget(tableKey, 0, 0), IPC_STAT, &state) == 0 &&
           state.shm_nattch == 1;
}

} // namespace qz::tavrel
