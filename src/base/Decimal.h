#pragma once

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <string>

namespace qz::internal {

/// Reads a decimal number as `strtol` does on a 32-bit machine: 0 for a text that is no number, the nearest
/// 32-bit value for one that 32 bits cannot hold.
inline int decimal(const std::string& text) {
    const long value = std::strtol(text.c_str(), nullptr, 10);
    return static_cast<int>(
        std::clamp<long>(value, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

} // namespace qz::internal
