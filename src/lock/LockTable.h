#pragma once

#include <qz/tavrel/TreePathLockProvider.h>

#include <pthread.h>

#include <cstddef>
#include <cstdint>

namespace qz::internal {

constexpr std::uint32_t lockTableMagic = 0x0EC00CE0;
constexpr unsigned int journalSize = 128;

/// A lock that is held, by any process.
struct JournalEntry {
    std::uint8_t inUse; ///< 1 when taken; written last, so that a half-written entry counts as free
    std::uint8_t kind;  ///< 1 read lock, 2 write lock
    std::int16_t tid;   ///< low 16 bits of the holder's thread id
    std::int32_t pid;
    std::int32_t componentId;
};

/// What stands in shared memory, in the processor's byte order; the record of each component follows.
///
///     offset (32-bit ARM)   size
///     0                     4       magic: set last, so that who finds it finds a table that is ready
///     4                     1536    journal
///     1540                  24      mutex, process-shared
///     1568                  48      condition variable, process-shared
///     1616                  N*1032  records, by component id
///
/// On other machines the order and the field widths are the same, mutex and condition variable have the
/// platform's size and alignment, and the records start at the next multiple of 8.
struct LockTable {
    std::uint32_t magic;
    JournalEntry journal[journalSize];
    pthread_mutex_t mutex;
    pthread_cond_t condition;

    static constexpr std::size_t recordsOffset();
    tavrel::TreePathLockProvider::LockRecord* records();
};

constexpr std::size_t LockTable::recordsOffset() {
    return (offsetof(LockTable, condition) + sizeof(pthread_cond_t) + 7) / 8 * 8;
}

inline tavrel::TreePathLockProvider::LockRecord* LockTable::records() {
    return reinterpret_cast<tavrel::TreePathLockProvider::LockRecord*>(
        reinterpret_cast<unsigned char*>(this) + recordsOffset());
}

static_assert(sizeof(JournalEntry) == 12);
static_assert(offsetof(JournalEntry, kind) == 1 && offsetof(JournalEntry, tid) == 2);
static_assert(offsetof(JournalEntry, pid) == 4 && offsetof(JournalEntry, componentId) == 8);

using LockContext = tavrel::TreePathLockProvider::LockContext;
static_assert(sizeof(LockContext) == 8);
static_assert(offsetof(LockContext, tid) == 2 && offsetof(LockContext, kind) == 4);

using LockRecord = tavrel::TreePathLockProvider::LockRecord;
static_assert(sizeof(LockRecord) == 1032);
static_assert(offsetof(LockRecord, writers) == 1 && offsetof(LockRecord, readersBeneath) == 2);
static_assert(offsetof(LockRecord, writersBeneath) == 3 && offsetof(LockRecord, waitingBeneath) == 4);
static_assert(offsetof(LockRecord, holders) == 8);

static_assert(offsetof(LockTable, journal) == 4);
static_assert(LockTable::recordsOffset() % 8 == 0);
#ifdef __arm__
static_assert(offsetof(LockTable, mutex) == 1540 && sizeof(pthread_mutex_t) == 24);
static_assert(offsetof(LockTable, condition) == 1568 && sizeof(pthread_cond_t) == 48);
static_assert(LockTable::recordsOffset() == 1616);
#endif

} // namespace qz::internal
