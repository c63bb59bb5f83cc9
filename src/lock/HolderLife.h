#pragma once

#include <cstdint>

namespace qz::internal {

/// Reads the kernel's limit of thread ids, so that `holderLives` has no file to open for one that lives.
/// @return the limit; every id is below it
long readIdLimit();

/// Asks the kernel whether the thread that a journal entry names is still there. An id that it has given to
/// another thread meanwhile counts as living.
///
/// Where all ids of the kernel fit into the 16 bits of the journal, `tkill` answers. Elsewhere the holder
/// lives as long as its process has a thread whose id has these low 16 bits.
///
/// @param pid  process id of the holder
/// @param tid  low 16 bits of its thread id
bool holderLives(std::int32_t pid, std::int16_t tid);

} // namespace qz::internal
