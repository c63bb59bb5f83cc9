#pragma once

#include <algorithm>
#include <cstdint>
#include <istream>
#include <ostream>
#include <type_traits>
#include <vector>

namespace qz::internal {

/// Reads records as they lie in memory: `count` of them, or as many whole ones as the stream has. A count
/// that lies costs no more memory than the data that is there and one block.
template <typename Record>
std::vector<Record> readRecords(std::istream& stream, std::int32_t count) {
    static_assert(std::is_trivially_copyable_v<Record>);
    constexpr std::int32_t blockLength = 256;
    std::vector<Record> records;
    while (count > 0 && stream) {
        const std::int32_t wanted = std::min(count, blockLength);
        const std::size_t known = records.size();
        records.resize(known + static_cast<std::size_t>(wanted));
        stream.read(reinterpret_cast<char*>(&records[known]),
                    static_cast<std::streamsize>(sizeof(Record)) * wanted);
        records.resize(known + static_cast<std::size_t>(stream.gcount()) / sizeof(Record));
        count -= wanted;
    }
    return records;
}

/// Writes records as they lie in memory.
template <typename Record>
void writeRecords(std::ostream& stream, const std::vector<Record>& records) {
    static_assert(std::is_trivially_copyable_v<Record>);
    stream.write(reinterpret_cast<const char*>(records.data()),
                 static_cast<std::streamsize>(records.size() * sizeof(Record)));
}

} // namespace qz::internal
