/// @file
/// State that is kept as one value in a store and shared between processes.
#pragma once

#include <istream>
#include <ostream>
#include <vector>

namespace qz::tavrel {

class Resource;

/// Is told when an object that it has been added to has changed.
class EventListener {
public:
    virtual ~EventListener();

    /// @param source  the object that changed; from a Configuration its own address
    /// @param event   what happened; a Configuration sends 0 alone, after each load and each save
    virtual void update(void* source, int event) = 0;
};

/// Base of every object whose state is one value of a store, under a key at subkey 0.
///
/// The stored value, all integers big-endian:
///
/// | offset | size   | field                                |
/// |--------|--------|--------------------------------------|
/// | 0      | 4      | revision                             |
/// | 4      | 4      | length of the body in bytes          |
/// | 8      | length | the body, as the derived `write` has it |
///
/// Bytes that the store holds behind the body are ignored. The revision alone tells whether the stored state
/// is another than the one in memory.
///
/// Locks: none of its own; the store's `lock()` around the single read or write.
/// Threads: one at a time, as the caller's locks provide.
class Configuration {
public:
    Configuration();
    virtual ~Configuration();
    Configuration(const Configuration&) = delete;
    Configuration& operator=(const Configuration&) = delete;

    /// Takes the stored state if its revision is not the one held, and tells the listeners, with the store
    /// still locked. Changes that have not been saved are replaced, not merged.
    /// @return bytes of the stored value; 0, and nothing has changed, when the store has no whole value or
    ///         the revision is the one held
    /// @throws whatever `read`, the store's lock or a listener raises, once the store is unlocked
    virtual unsigned int load();

    /// Stores the state under the next revision if it is marked modified, and tells the listeners, with the
    /// store still locked. A store that refuses shows in the result alone.
    /// @return bytes that the store took; 0 when there was nothing to save
    /// @throws whatever `write`, the store's lock or a listener raises, once the store is unlocked
    virtual unsigned int save();

    /// Goes on from the stored revision, if there is one, with the state in memory as it is. The next
    /// revision is then one that no process holds, whoever has stored that one.
    /// @throws whatever the store's lock raises
    void takeStoredRevision();

    /// Replaces the state by that of a stored body.
    virtual std::istream& read(std::istream& stream) = 0;

    /// Writes the body.
    virtual std::ostream& write(std::ostream& stream) = 0;

    /// Sets the store, which stays the caller's, and the key of the value in it.
    void assign(Resource* store, int number);

    Resource* getResource() { return resource; }
    int getKey() { return key; }

    /// True while there are changes that have not been saved.
    bool isModified() { return modified; }

    /// Derived classes set this on every change.
    void setModified(bool value) { modified = value; }

    /// Revision of the state in memory; -1 when nothing has been loaded or saved yet.
    int getRevision() { return revision; }

    /// The revision behind the one held; 0 behind the largest int.
    int getNextRevision();

    /// Reads 4 bytes, big-endian. @param value  receives them; untouched when the stream has failed
    std::istream& readValue(std::istream& stream, int& value);

    /// Writes 4 bytes, big-endian.
    std::ostream& writeValue(std::ostream& stream, int value);

    /// Appends a listener, which stays the caller's and is told for the life of this object. One that is
    /// added twice is told twice.
    void addListener(EventListener* listener);

    /// Tells the listeners in the order in which they were added.
    void notify(int event);

private:
    int revision;
    bool modified;
    unsigned int bufferSize;
    Resource* resource;
    int key;
    std::vector<EventListener*> listeners;
};

} // namespace qz::tavrel
