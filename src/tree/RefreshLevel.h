#pragma once

namespace qz::internal {

// Levels of the refresh guard: a call is spared its refresh after one of the same thread at its level or
// below.
constexpr int refreshLock = 0;
constexpr int refreshRead = 1;
constexpr int refreshProperty = 2;
constexpr int refreshLeave = 0x7fffffff; // ends the thread's section: the next call of anybody refreshes

// The two relations between ids.
constexpr int owned = 0;
constexpr int shared = 1;

} // namespace qz::internal
