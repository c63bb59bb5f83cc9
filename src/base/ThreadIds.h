#pragma once

namespace qz::internal {

/// Process id of the caller. Kept per thread: a system call only at the first use of a thread and after a
/// fork.
int processId();

/// The kernel's id of the calling thread (`gettid`), kept in the same way.
int threadId();

} // namespace qz::internal
