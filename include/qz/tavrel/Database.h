/// @file
/// A store of whole values under text keys.
#pragma once

#include <qz/tavrel/Resource.h>

#include <string>
#include <unordered_map>

namespace qz::tavrel {

/// Turns the pair of key and subkey into a text key and byte ranges into whole values, so that a concrete
/// store has only to hold values under texts.
///
/// A value is a string used as a byte array: it may hold zero bytes. A value never gets shorter by a write.
///
/// Locks: none; a write is a read, a change and a store, which only the callers' locks keep together.
/// Threads: one at a time in a process, over all objects of the class, as the key texts are shared.
class Database : public Resource {
public:
    Database();
    ~Database() override;

    /// Delivers up to `size` bytes of the value from `offset` on.
    /// @param offset  first byte wanted
    /// @param buffer  receives the bytes; neither ended by a zero nor padded
    /// @return bytes delivered; 0 when there is no value, or none at `offset`
    /// @throws TavrelException  "Invalid param." for an offset below 0; and what `getValue` raises, except
    /// `std::out_of_range`, which means an absent value
    unsigned int readMethod(int key, int subkey, long offset, void* buffer, unsigned int size) override;

    /// Puts `size` bytes into the value at `offset`; a gap before `offset` is filled with zeros. Bytes that
    /// are there already are not stored again.
    /// @param offset  place of the first byte
    /// @param buffer  holds the bytes
    /// @return `size`
    /// @throws TavrelException  "Invalid param." for an offset below 0; and what `setValue` raises, and what
    /// `getValue` raises, except TavrelException, which means an absent value
    unsigned int writeMethod(int key, int subkey, long offset, const void* buffer,
                             unsigned int size) override;

    /// Removes the value with `clearValue`.
    void clearMethod(int key, int subkey) override;

    /// Fetches a whole value.
    /// @param value  receives the bytes; left as it is when the key is absent, unless that raises
    virtual void getValue(const std::string& key, std::string& value) = 0;

    /// Stores a whole value in place of any earlier one.
    virtual void setValue(const std::string& key, const std::string& value) = 0;

    /// Removes a value.
    virtual void clearValue(const std::string& key) = 0;

    /// The text key of a pair: "tavrel", the key, and for a subkey other than 0 a "." and the subkey.
    static std::string toKey(int key, int subkey);

private:
    static std::unordered_map<int, std::string>& keys; ///< never destroyed: threads may outlive `main`
    static std::unordered_map<int, std::string>& subkeys;
};

} // namespace qz::tavrel
