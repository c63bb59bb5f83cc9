#pragma once

#include <cstddef>

namespace qz::platform {

/// A mapping of a shared memory object, or the reason why there is none.
struct SharedObject {
    void* address; ///< nullptr when there is none
    int error;     ///< error number of the system; EBADMSG: an object of another size has that name
};

/// Maps the POSIX shared memory object `name` for reading and writing, and makes it first where it is
/// missing.
///
/// An object appears under its name complete or not at all, whoever else makes it at the same moment and
/// wherever its maker is killed. Any user may open it, whatever the umask. It is never removed, and the
/// mapping lasts as long as the process.
///
/// Allocates nothing and raises nothing.
///
/// @param name        "/" and at most 255 characters that hold no further "/"
/// @param size        size of the object in bytes, the same for all who use the name
/// @param initialise  fills a new object, which is all zero; an error number makes the attempt end with it
SharedObject mapSharedObject(const char* name, std::size_t size, int (*initialise)(void* object)) noexcept;

} // namespace qz::platform
