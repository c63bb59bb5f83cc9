#pragma once

#include <cstdint>

namespace qz::internal {

/// Asks the kernel whether the thread that a journal entry names is still there. An id that it has given to
/// another thread meanwhile counts as living.
///
/// For a holder whose id fits into the 16 bits of the journal, as the id of its process tells, `tkill`
/// answers. Beyond that, where the kernel hands out larger ids, the holder lives as long as its process has a
/// thread whose id has these low 16 bits.
///
/// @param pid  process id of the holder
/// @param tid  low 16 bits of its thread id
bool holderLives(std::int32_t pid, std::int16_t tid);

} // namespace qz::internal
