#pragma once

namespace qz::internal {

/// Name of the `SemaphoreLock` under which processes attach to the lock table, set it up and leave it. A
/// process that dies in between loses it, and the next one goes on.
constexpr const char* lockStartName = "/tavrel_lock_start";

} // namespace qz::internal
