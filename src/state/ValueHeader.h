#pragma once

#include <arpa/inet.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace qz::internal {

/// What stands before the body of a stored value, both fields big-endian.
struct ValueHeader {
    std::uint32_t revision;
    std::uint32_t length;
};
static_assert(sizeof(ValueHeader) == 8 && offsetof(ValueHeader, length) == 4);

/// Turns a header that lies at `bytes` into numbers of this machine.
inline ValueHeader readHeader(const char* bytes) {
    ValueHeader stored{};
    std::memcpy(&stored, bytes, sizeof stored);
    return {ntohl(stored.revision), ntohl(stored.length)};
}

/// Turns a header of this machine's numbers into the stored form.
inline ValueHeader storedForm(const ValueHeader& header) {
    return {htonl(header.revision), htonl(header.length)};
}

} // namespace qz::internal
