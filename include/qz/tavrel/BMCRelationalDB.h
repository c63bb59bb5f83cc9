/// @file
/// The store that keeps values in a file which all processes map.
#pragma once

#include <qz/tavrel/Database.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>

namespace qz::tavrel {

/// Keeps values under text keys in one file of fixed size, a log of records that every process maps shared.
///
/// A value of unchanged length changes in place; otherwise its record becomes a tombstone and a new record
/// goes to the end. When tombstones pile up, the next value operation of any process compacts the file. Each
/// process keeps an index of its own and checks it against the file. A value is durable when `setValue` has
/// returned.
///
/// The file, all integers in the host's byte order; a record begins on a multiple of 16:
///
/// | offset | size | field                                                      |
/// |--------|------|------------------------------------------------------------|
/// | 0      | 16   | `FileHeader`                                               |
/// | 16     |      | records: an `ndb_t`, the value, zeros to a multiple of 16  |
///
/// The records end where the first byte is 0x00 or 0xFF, and 48 bytes before the end of the file. Whatever
/// the file holds, nothing outside the mapping is read or written: a record that contradicts itself ends the
/// records, too.
///
/// Locks: a lock named by the file, between all threads and processes, for each value operation.
/// Threads: any.
class BMCRelationalDB : public Database {
public:
    /// One of the built-in files.
    struct DbFileConfig {
        char path[64];
        std::uint32_t fileSize; ///< bytes; a whole number of the 16384-byte blocks that files grow by
        char lockName[60];
        std::int32_t tombstoneLimit; ///< compaction is due at this count
        std::uint32_t backupSync;    ///< other than 0: flushes are told to the sync daemon
    };
    static_assert(sizeof(DbFileConfig) == 136);
    static_assert(offsetof(DbFileConfig, path) == 0);
    static_assert(offsetof(DbFileConfig, fileSize) == 64);
    static_assert(offsetof(DbFileConfig, lockName) == 68);
    static_assert(offsetof(DbFileConfig, tombstoneLimit) == 128);
    static_assert(offsetof(DbFileConfig, backupSync) == 132);

    /// Opens the file.
    struct FileHeader {
        char magic[7]; ///< "dbfile" and a zero in a new file, zeros after a compaction; nobody reads it
        char reserved[5];
        std::uint32_t nextOffset; ///< offset of the first byte behind the last record
    };
    static_assert(sizeof(FileHeader) == 16);
    static_assert(offsetof(FileHeader, magic) == 0);
    static_assert(offsetof(FileHeader, reserved) == 7);
    static_assert(offsetof(FileHeader, nextOffset) == 12);

    /// Opens each record.
    struct ndb_t {
        char key[32];               ///< the key text, filled up with zeros
        std::uint32_t keyLength;    ///< length of the key text
        std::uint32_t recordOffset; ///< offset of this record in the file
        std::uint32_t valueLength;  ///< bytes of the value
        std::uint32_t magic;        ///< the live word; anything else is a tombstone
    };
    static_assert(sizeof(ndb_t) == 48);
    static_assert(offsetof(ndb_t, key) == 0);
    static_assert(offsetof(ndb_t, keyLength) == 32);
    static_assert(offsetof(ndb_t, recordOffset) == 36);
    static_assert(offsetof(ndb_t, valueLength) == 40);
    static_assert(offsetof(ndb_t, magic) == 44);

    /// A store without a file; `initialize` comes next.
    BMCRelationalDB();

    /// Unmaps and closes the file.
    ~BMCRelationalDB() override;

    /// "BMCRelationalDB".
    std::string toString() override;

    /// Does nothing: each value operation takes the file's lock itself.
    void lock() override;

    /// Does nothing.
    void unlock() override;

    /// Opens the file of the store, making it if needed, and reads its records.
    ///
    /// | name    | file                                 | size    | signal to "tavrel_syncd" |
    /// |---------|--------------------------------------|---------|--------------------------|
    /// | "SETUP" | /conf/qz/db/setup.db                 | 32 KiB  | SIGUSR1                  |
    /// | "FRU"   | /conf/qz/db/fru.db                   | 768 KiB | SIGUSR2                  |
    /// | other   | /var/nvrdisk/current/db/current.db   | 3 MiB   | none                     |
    ///
    /// @throws TavrelException  "dbfile open failed", and what `size_adjust` raises
    /// Locks: the file's lock.
    void initialize(const std::string& name) override;

    /// Fetches a value.
    /// @param value  receives the bytes; untouched when there is no such key
    /// @throws TavrelException  "dbfile open failed" before a successful `initialize`; "Buffer Allocation
    /// failed." when a compaction is due and has no memory
    /// Locks: the file's lock.
    void getValue(const std::string& key, std::string& value) override;

    /// Stores a value, durable on return. If that fails for a value of another length, the old one is lost.
    /// @param key  below 32 bytes
    /// @throws TavrelException  "Dbfile overflow." when the last 256 bytes of the file would be used;
    /// "Invalid param." for a longer key; and as `getValue`
    /// Locks: the file's lock.
    void setValue(const std::string& key, const std::string& value) override;

    /// Does nothing: this store keeps a value once it has one.
    void clearValue(const std::string& key) override;

    /// Signals the sync daemon once, if the file has a signal.
    /// Locks: the file's lock, if so.
    void dbbackup_sync();

    // --- internal steps; the caller holds the file's lock, and `initialize` has succeeded ---

    /// `getValue` proper.
    void getValue_internal(const std::string& key, std::string& value);

    /// `setValue` proper.
    void setValue_internal(const std::string& key, const std::string& value);

    /// Opens or makes the file of this store and maps it.
    /// @return the descriptor; -1 on a failure, which has been traced
    /// @throws TavrelException  as `size_adjust`
    int dbfile_open();

    /// Reads the records of the mapped file into the index.
    void dbfile_load();

    /// Grows a file that is shorter than `size` bytes by whole blocks of 16384 bytes.
    /// @throws TavrelException  "File Info Get failed.", "Buffer Allocation failed.", "File Seek failed." or
    /// "File Extend Write failed.", the last also when no whole number of blocks is missing
    void size_adjust(int fd, unsigned int size);

    /// Writes all live records anew, in their order, to the start of the file.
    /// @throws TavrelException  "Buffer Allocation failed.", the file is then untouched
    void garbage_collect();

    /// Flushes the pages of a range of the file and tells the sync daemon, if the file has one.
    /// @param offset  start of the range, bytes from the start of the file
    /// @param length  bytes in the range
    void datasync(unsigned int offset, unsigned int length);

    /// Signals the sync daemon, looking it up if it is not known. A failure is only traced.
    void notifySyncDaemon();

private:
    int dbType;
    unsigned int pageSize;
    DbFileConfig row;
    const DbFileConfig* config; ///< `row` once it has been chosen
    int descriptor;
    char* base;
    FileHeader* header;
    unsigned int writePosition;
    std::unordered_map<std::string, ndb_t> index;
    int tombstoneCount;
    int syncDaemonPid;
    int syncSignal;
    bool isCollecting; ///< a compaction is writing the records anew

    bool isCurrent(const std::string& key, const ndb_t& entry) const;
    void prepare(bool writing);
    void bury(const std::string& key, ndb_t entry);
    void append(const std::string& key, const std::string& value);
    void release();
};

} // namespace qz::tavrel
