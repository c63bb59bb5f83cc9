#include "base/Fault.h"
#include "base/Trace.h"
#include "store/RecordScan.h"

#include <qz/tavrel/BMCRelationalDB.h>

#include <algorithm>
#include <atomic>
#include <cstring>

namespace qz::tavrel {

namespace {

constexpr char tombstoneMagic[] = {'Y', 'E', 'K', 'D'};

/// Bytes at the end of the file that no record reaches.
constexpr std::uint32_t reserve = 256;

using internal::headerSize;
using internal::keySize;

} // namespace

void BMCRelationalDB::dbfile_load() {
    internal::trace(internal::point::DbLoad);
    // A scan that ends half way, for want of memory, is done again by the next operation.
    index.clear();
    writePosition = internal::firstRecord;
    tombstoneCount = 0;
    internal::RecordScan scan(base, config->fileSize);
    while (scan.next()) {
        if (scan.isLive()) {
            index[scan.header().key] = scan.header();
        } else {
            ++tombstoneCount;
        }
    }
    writePosition = scan.position();
    internal::trace(internal::point::DbLoadExit);
}

/// True if the record that `entry` was taken from still stands in the file, with the same length.
bool BMCRelationalDB::isCurrent(const std::string& key, const ndb_t& entry) const {
    ndb_t record{};
    std::memcpy(&record, base + entry.recordOffset, headerSize);
    char keyField[keySize]{};
    key.copy(keyField, keySize);
    return record.magic == internal::liveMagic && record.valueLength == entry.valueLength &&
           std::memcmp(record.key, keyField, keySize) == 0;
}

void BMCRelationalDB::getValue_internal(const std::string& key, std::string& value) {
    internal::trace(internal::point::DbGetValueInternal);
    auto found = index.find(key);
    if (found == index.end()) {
        internal::trace(internal::point::DbGetValueAbsent);
    } else if (!isCurrent(key, found->second)) {
        internal::trace(internal::point::DbGetValueCheckFailed, found->second.recordOffset);
        dbfile_load();
        found = index.find(key);
        if (found == index.end()) {
            internal::trace(internal::point::DbGetValueGoneAfterReload);
        }
    }
    if (found != index.end()) {
        value.assign(base + found->second.recordOffset + headerSize, found->second.valueLength);
    }
    internal::trace(internal::point::DbGetValueInternalExit);
}

void BMCRelationalDB::setValue_internal(const std::string& key, const std::string& value) {
    internal::trace(internal::point::DbSetValueInternal);
    if (key.size() >= keySize) {
        internal::raise("BMCRelationalDB", "setValue_internal", "Invalid param.");
    }
    auto found = index.find(key);
    if (found != index.end() && !isCurrent(key, found->second)) {
        internal::trace(internal::point::DbSetValueCheckFailed, found->second.recordOffset);
        dbfile_load();
        found = index.find(key);
        if (found == index.end()) {
            internal::trace(internal::point::DbSetValueGoneAfterReload);
        }
    }
    if (found != index.end() && found->second.valueLength == value.size()) {
        const std::uint32_t place = found->second.recordOffset + headerSize;
        // A process that dies in this copy leaves a mix of old and new bytes.
        value.copy(base + place, value.size());
        datasync(place, static_cast<std::uint32_t>(value.size()));
    } else {
        if (found != index.end()) {
            internal::trace(internal::point::DbSetValueLengthChanged, found->second.recordOffset);
            internal::trace(internal::point::DbSetValueLengths, found->second.valueLength, value.size());
            bury(key, found->second);
        }
        append(key, value);
    }
    internal::trace(internal::point::DbSetValueInternalExit);
}

/// Turns the record of a key into a tombstone.
void BMCRelationalDB::bury(const std::string& key, ndb_t entry) {
    ++tombstoneCount;
    std::memcpy(&entry.magic, tombstoneMagic, sizeof tombstoneMagic);
    std::memcpy(base + entry.recordOffset, &entry, headerSize);
    datasync(entry.recordOffset, headerSize);
    // A process that dies from here on until the new record is complete leaves the key absent.
    index.erase(key);
}

/// Puts a new record behind the last one.
void BMCRelationalDB::append(const std::string& key, const std::string& value) {
    const std::uint32_t place = writePosition;
    const std::uint64_t end = internal::recordEnd(place, value.size());
    internal::trace(internal::point::DbSetValueAppending, place, end);
    // Also when the record does not fit: the next operation finds that the file's end is another, and
    // reloads.
    writePosition = static_cast<std::uint32_t>(std::min<std::uint64_t>(end, config->fileSize));
    // A compaction needs no more room than the records had: one that has begun in the reserve must not fail.
    const bool fits = isCollecting ? end <= config->fileSize : end < config->fileSize - reserve;
    if (!fits) {
        internal::trace(internal::point::DbSetValueOverflow, end, config->fileSize);
        internal::raise("BMCRelationalDB", "setValue_internal", "Dbfile overflow.");
    }
    ndb_t record{};
    key.copy(record.key, keySize);
    record.keyLength = static_cast<std::uint32_t>(key.size());
    record.recordOffset = place;
    record.valueLength = static_cast<std::uint32_t>(value.size());
    record.magic = internal::liveMagic;
    index[key] = record;

    char* const bytes = base + place;
    // Remains of a damaged record must not pass for the head of this one while it is written: a zero stands
    // here first, and all that follows stays behind it.
    std::atomic_ref<char>(*bytes).exchange('\0', std::memory_order_acq_rel);
    header->nextOffset = writePosition;
    datasync(0, internal::firstRecord);
    // A process that dies here leaves `nextOffset` behind the records, so that all reload until the next
    // append.

    std::uint32_t length = headerSize + record.valueLength;
    if (end < config->fileSize && base[end] != '\0') {
        // Left by a process that died while it wrote; it must not pass for a record behind this one.
        base[end] = '\0';
        length = writePosition + 1 - place;
    }
    value.copy(bytes + headerSize, value.size());
    std::fill(bytes + headerSize + value.size(), base + end, '\0');
    std::memcpy(bytes + 1, record.key + 1, headerSize - 1);
    // A process that dies before this store leaves a zero, at which the records end.
    std::atomic_ref<char>(*bytes).store(record.key[0], std::memory_order_release);
    datasync(place, length);
}

} // namespace qz::tavrel
