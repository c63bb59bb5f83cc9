#pragma once

#include <qz/tavrel/BMCRelationalDB.h>

#include <cstdint>

namespace qz::internal {

/// The magic word of a live record: the bytes 00 42 44 4E on the target.
constexpr std::uint32_t liveMagic = 0x4E444200;

constexpr std::uint32_t headerSize = sizeof(tavrel::BMCRelationalDB::ndb_t);
constexpr std::uint32_t keySize = sizeof(tavrel::BMCRelationalDB::ndb_t::key);

/// Offset of the first record.
constexpr std::uint32_t firstRecord = sizeof(tavrel::BMCRelationalDB::FileHeader);

/// Offset behind a record at `position`: a multiple of 16. In 64 bits, so that no length wraps.
constexpr std::uint64_t recordEnd(std::uint64_t position, std::uint64_t valueLength) {
    constexpr std::uint64_t alignment = 16;
    return (position + headerSize + valueLength + alignment - 1) / alignment * alignment;
}

/// Walks the records of a database file. Nothing that the bytes say leads outside of them: a record that runs
/// past their end ends the walk, and so does a live one with another place in its header or a key without
/// end.
class RecordScan {
public:
    /// @param bytes  the file from its start
    /// @param size   bytes in the file, more than a file header and a record header
    RecordScan(const char* bytes, std::uint32_t size);

    /// Goes to the next record. @return false at the end of the records
    bool next();

    /// A copy of the record's header; its key of a live record ends with a zero.
    const tavrel::BMCRelationalDB::ndb_t& header() const { return current; }

    bool isLive() const { return current.magic == liveMagic; }

    /// The record's value, `header().valueLength` bytes.
    const char* value() const { return bytes + start + headerSize; }

    /// Offset behind the last record passed.
    std::uint32_t position() const { return nextStart; }

private:
    const char* bytes;
    std::uint32_t size;
    std::uint32_t start;
    std::uint32_t nextStart;
    tavrel::BMCRelationalDB::ndb_t current;
};

} // namespace qz::internal
