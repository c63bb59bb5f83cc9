/// @file
/// Where the properties of a component class are kept.
#pragma once

#include <set>
#include <string>
#include <vector>

namespace qz::tavrel {

class Resource;

/// Reaches one property of a class for any component of it.
///
/// The property is a range of `getSize()` bytes in a store, under the component id + 3 and the property key.
/// Offsets are bytes from the start of that range. Keys below 256 stay in the configured store; other keys go
/// where the redirections of `ResourceManager` lead for the component.
///
/// Locks: the store's own lock around each call of it; the caller holds the tree's lock where others may
/// write.
/// Threads: any number once set up.
class PropertyAccessor {
public:
    /// Of no store (-1), key 0, size 0.
    PropertyAccessor();
    PropertyAccessor(const PropertyAccessor& other) = default;
    PropertyAccessor& operator=(const PropertyAccessor& other) = default;
    virtual ~PropertyAccessor();

    /// Reads from the property of component `id`.
    ///
    /// A property that was never written reads as zeros, as many as asked for. A stored value that ends early
    /// gives what there is.
    /// @param offset  first byte wanted
    /// @param buffer  receives at most `size` bytes; untouched on failure
    /// @return bytes delivered; 0 when the store fails
    /// @throws TavrelException  "Invalid param." for an offset that is not inside the property
    virtual unsigned int read(int id, long offset, void* buffer, unsigned int size);

    /// Writes to the property of component `id`. What would pass the end of the property is cut off.
    /// @param offset  place of the first byte
    /// @param buffer  holds `size` bytes
    /// @return bytes taken; 0 when the store fails
    /// @throws TavrelException  "Invalid param." for an offset that is not inside the property
    virtual unsigned int write(int id, long offset, const void* buffer, unsigned int size);

    /// Removes the stored value of component `id`. Does nothing for a key below 256.
    virtual void clear(int id);

    /// Reads the stored bytes as they are: neither cut to the property's size nor filled with zeros.
    /// @param buffer  receives at most `size` bytes
    /// @return bytes delivered; 0 for a value never written
    virtual unsigned int readRaw(int id, void* buffer, unsigned int size);

    /// The store that keeps this property of component `id`; null when the id of the store is unknown.
    /// Locks: those of `ResourceManager::getResource`.
    Resource* getResource(int id) const;

    /// Id of the configured store, before redirection.
    int getResourceId() const { return resourceId; }
    void setResourceId(int id) { resourceId = id; }

    int getKey() const { return key; }
    void setKey(int newKey) { key = newKey; }

    /// Size of the property in bytes.
    unsigned int getSize() const { return size; }
    void setSize(unsigned int newSize) { size = newSize; }

    /// Bytes from `offset` to the end of the property.
    /// @throws TavrelException  "Invalid param." for an offset that is not inside the property
    unsigned int getSize(long offset);

    /// "[STORE[key=KEY,size=SIZE],]", for reports.
    std::string toString();

private:
    int resourceId;
    int key;
    unsigned int size;
};

/// The table of a component class that finds the accessor of each property. It holds no property data.
///
/// Threads: one while it is filled; any number afterwards.
class PropertyLocator {
public:
    PropertyLocator();
    PropertyLocator(const PropertyLocator&) = delete;
    PropertyLocator& operator=(const PropertyLocator&) = delete;
    virtual ~PropertyLocator();

    /// The table with all its accessors, for reports.
    virtual std::string toString();

    /// `PropertyAccessor::read` of the property `key`.
    /// @throws TavrelException  "Invalid key." for an unknown key; "Invalid param." for a bad offset
    virtual unsigned int readProperty(int id, int key, long offset, void* buffer, unsigned int size);

    /// `PropertyAccessor::write` of the property `key`.
    /// @throws TavrelException  "Invalid key." for an unknown key; "Invalid param." for a bad offset
    virtual unsigned int writeProperty(int id, int key, long offset, const void* buffer, unsigned int size);

    /// Removes the stored values of component `id`, those under keys below 256 excepted.
    virtual void clearProperties(int id);

    /// `PropertyAccessor::readRaw` of the property `key`.
    /// @throws TavrelException  "Invalid key." for an unknown key
    virtual unsigned int readData(int id, int key, void* buffer, unsigned int size);

    /// Appends the keys of all properties to `keys`, in the order in which they were added.
    virtual void getPropertyKeys(std::vector<int>& keys);

    /// Size of the property `key` in bytes; 0 for an unknown key.
    virtual unsigned int getPropertySize(int key);

    /// Adds a property. Of several with one key, the first is the one that is found.
    /// @param resourceId  id of the store in `ResourceManager`
    /// @param size        size of the property in bytes
    void addProperty(int resourceId, int key, unsigned int size);

    /// The accessor of the property `key`; valid until the next `addProperty`.
    /// @throws TavrelException  "Invalid key." for an unknown key
    PropertyAccessor& getAccessor(int key);

private:
    std::set<Resource*> resources;
    std::vector<PropertyAccessor> accessors;
};

} // namespace qz::tavrel
