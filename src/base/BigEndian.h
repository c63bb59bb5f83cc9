#pragma once

#include <cstdint>

namespace qz::internal {

/// A 32-bit integer in stored form: four bytes, most significant first.
struct BigEndian {
    unsigned char bytes[4];

    static BigEndian of(int value) {
        const auto bits = static_cast<std::uint32_t>(value);
        return {{static_cast<unsigned char>(bits >> 24), static_cast<unsigned char>(bits >> 16),
                 static_cast<unsigned char>(bits >> 8), static_cast<unsigned char>(bits)}};
    }

    int value() const {
        return static_cast<int>(
            static_cast<std::uint32_t>(bytes[0]) << 24 | static_cast<std::uint32_t>(bytes[1]) << 16 |
            static_cast<std::uint32_t>(bytes[2]) << 8 | static_cast<std::uint32_t>(bytes[3]));
    }
};

} // namespace qz::internal
