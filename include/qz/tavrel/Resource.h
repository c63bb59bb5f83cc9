/// @file
/// The keyed byte store that all persistent state rests on.
#pragma once

#include <string>

namespace qz::tavrel {

/// A store of byte ranges, each named by a key, a subkey and an offset in bytes.
///
/// A derived class supplies the three methods and the lock; clients call the wrappers. The wrappers raise
/// nothing: whatever a method raises ends there as result 0 with `isValid()` false, and the next successful
/// call sets it true again. Callers bracket the wrappers with `lock()` and `unlock()`; the wrappers do not
/// lock.
///
/// Threads: one at a time, as `lock()` and the tree's locks provide.
class Resource {
public:
    Resource();
    Resource(const Resource&) = delete;
    Resource& operator=(const Resource&) = delete;

    /// Delivers up to `size` bytes of a value from `offset` on.
    /// @param buffer  receives the bytes
    /// @return bytes delivered; 0 when there is nothing there
    virtual unsigned int readMethod(int key, int subkey, long offset, void* buffer, unsigned int size) = 0;

    /// Takes `size` bytes into a value at `offset`.
    /// @param buffer  holds the bytes
    /// @return bytes taken
    virtual unsigned int writeMethod(int key, int subkey, long offset, const void* buffer,
                                     unsigned int size) = 0;

    /// Removes a value.
    virtual void clearMethod(int key, int subkey) = 0;

    virtual ~Resource();

    /// Name of the kind of store, for reports.
    virtual std::string toString() = 0;

    /// Begins a use of the store; what it excludes is the derived class's choice.
    virtual void lock() = 0;

    /// Ends a use of the store.
    virtual void unlock() = 0;

    /// Makes the store ready; called once, before any other use.
    /// @param name  name of the store, as the configuration has it
    /// @throws TavrelException  the store cannot be had
    virtual void initialize(const std::string& name) = 0;

    /// `readMethod` at subkey 0, offset 0. @return bytes delivered; 0 also on a failure
    virtual unsigned int read(int key, void* buffer, unsigned int size);

    /// `readMethod` at subkey 0. @return bytes delivered; 0 also on a failure
    virtual unsigned int read(int key, long offset, void* buffer, unsigned int size);

    /// `readMethod`. @return bytes delivered; 0 also on a failure
    virtual unsigned int read(int key, int subkey, long offset, void* buffer, unsigned int size);

    /// `writeMethod` at subkey 0, offset 0. @return bytes taken; 0 also on a failure
    virtual unsigned int write(int key, const void* buffer, unsigned int size);

    /// `writeMethod` at subkey 0. @return bytes taken; 0 also on a failure
    virtual unsigned int write(int key, long offset, const void* buffer, unsigned int size);

    /// `writeMethod`. @return bytes taken; 0 also on a failure
    virtual unsigned int write(int key, int subkey, long offset, const void* buffer, unsigned int size);

    /// `clearMethod`; a failure shows in `isValid()` alone.
    virtual void clear(int key, int subkey);

    /// True unless the last `read`, `write` or `clear` was ended by an exception.
    bool isValid() const { return valid; }

private:
    bool valid;
};

} // namespace qz::tavrel
