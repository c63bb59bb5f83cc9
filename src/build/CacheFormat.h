#pragma once

#include <cstdint>

namespace qz::internal {

/// First bytes of a cache file.
constexpr char cacheMagic[] = {'P', 'M', 'O', 'C'};

/// Version of the layout. A change of the layout changes it: nothing else tells an old file.
constexpr std::uint32_t cacheVersion = 0x00010001;

/// Name of the record behind the last component type.
constexpr std::int32_t cacheEndMark = -1;

} // namespace qz::internal
