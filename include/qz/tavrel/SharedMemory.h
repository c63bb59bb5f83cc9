/// @file
/// A System V shared memory segment.
#pragma once

namespace qz::tavrel {

/// One shared memory segment, found or created by its key; it goes with the last process that is attached.
///
/// Nothing here raises: a null address is the whole report.
///
/// Threads: one at a time; the memory itself is guarded by whoever uses it.
class SharedMemory {
public:
    /// Knows the key and touches nothing.
    explicit SharedMemory(int key);

    /// As `SharedMemory(key)`, then `allocate(size)`.
    SharedMemory(int key, unsigned int size);

    /// As `free()`.
    ~SharedMemory();

    SharedMemory(const SharedMemory&) = delete;
    SharedMemory& operator=(const SharedMemory&) = delete;

    /// Attaches a segment of exactly `size` bytes: the present one if it has this size, otherwise a new one
    /// of zeros in its place, if no other process is attached to the old one.
    /// @param size  in bytes
    /// @return the address; null if there is no such segment to be had, or another process has created it at
    ///         the same moment
    void* allocate(unsigned int size);

    /// Attaches the present segment, if there is one and none is attached yet.
    void attach();

    /// Detaches, and removes the segment if no process is attached any more.
    void free();

    /// The address; attaches first if there is none. @return null if there is no segment
    void* data();

    /// The size in bytes; attaches first if it is not known. @return 0 if there is no segment
    unsigned int size();

private:
    int key;
    int id;
    void* address;
    unsigned int length;
};

} // namespace qz::tavrel
