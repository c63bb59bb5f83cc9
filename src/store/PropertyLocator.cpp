#include "base/Fault.h"
#include "base/Trace.h"
#include "store/ResourceGuard.h"

#include <qz/tavrel/PropertyLocator.h>
#include <qz/tavrel/ResourceManager.h>

#include <algorithm>

namespace qz::tavrel {

namespace {

/// Properties with a smaller key stay in their configured store and are never cleared.
constexpr int firstRedirectedKey = 256;

/// The keys of a store before the first component's are those of the configuration.
constexpr int idOffset = 3;

} // namespace

PropertyAccessor::PropertyAccessor() : resourceId(-1), key(0), size(0) {}

PropertyAccessor::~PropertyAccessor() = default;

Resource* PropertyAccessor::getResource(int id) const {
    ResourceManager* manager = ResourceManager::getInstance();
    return key < firstRedirectedKey ? manager->getResource(resourceId) : manager->getResource(id, resourceId);
}

unsigned int PropertyAccessor::getSize(long offset) {
    if (offset < 0) {
        internal::trace(internal::point::PropertyOffsetNegative, offset);
        internal::raise("PropertyLocator", "getSize", "Invalid param.");
    }
    if (static_cast<unsigned long>(offset) >= size) {
        internal::trace(internal::point::PropertyOffsetTooLarge, offset, size);
        internal::raise("PropertyLocator", "getSize", "Invalid param.");
    }
    return size - static_cast<unsigned int>(offset);
}

unsigned int PropertyAccessor::read(int id, long offset, void* buffer, unsigned int length) {
    const unsigned int left = getSize(offset);
    Resource* resource = getResource(id);
    const internal::ResourceGuard held(resource);
    if (resource == nullptr) {
        return 0;
    }
    const unsigned int delivered = resource->read(id + idOffset, key, offset, buffer, std::min(left, length));
    if (delivered == 0 && resource->isValid()) {
        std::fill_n(static_cast<unsigned char*>(buffer), length, 0);
        return length;
    }
    return delivered;
}

unsigned int PropertyAccessor::write(int id, long offset, const void* buffer, unsigned int length) {
    const unsigned int left = getSize(offset);
    Resource* resource = getResource(id);
    const internal::ResourceGuard held(resource);
    if (resource == nullptr) {
        return 0;
    }
    return resource->write(id + idOffset, key, offset, buffer, std::min(left, length));
}

unsigned int PropertyAccessor::readRaw(int id, void* buffer, unsigned int length) {
    Resource* resource = getResource(id);
    const internal::ResourceGuard held(resource);
    return resource == nullptr ? 0 : resource->read(id + idOffset, key, 0, buffer, length);
}

void PropertyAccessor::clear(int id) {
    if (key < firstRedirectedKey) {
        return;
    }
    Resource* resource = getResource(id);
    const internal::ResourceGuard held(resource);
    if (resource != nullptr) {
        resource->clear(id + idOffset, key);
    }
}

std::string PropertyAccessor::toString() {
    return "[" + ResourceManager::getInstance()->getResourceName(resourceId) + "[key=" + std::to_string(key) +
           ",size=" + std::to_string(size) + "],]";
}

PropertyLocator::PropertyLocator() = default;

PropertyLocator::~PropertyLocator() = default;

std::string PropertyLocator::toString() {
    std::string text = "PropertyLocator=[";
    for (PropertyAccessor& accessor : accessors) {
        text += "=[" + accessor.toString() + "]";
    }
    return text + "]";
}

unsigned int PropertyLocator::readProperty(int id, int key, long offset, void* buffer, unsigned int size) {
    return getAccessor(key).read(id, offset, buffer, size);
}

unsigned int PropertyLocator::writeProperty(int id, int key, long offset, const void* buffer,
                                            unsigned int size) {
    return getAccessor(key).write(id, offset, buffer, size);
}

void PropertyLocator::clearProperties(int id) {
    for (PropertyAccessor& accessor : accessors) {
        accessor.clear(id);
    }
}

unsigned int PropertyLocator::readData(int id, int key, void* buffer, unsigned int size) {
    return getAccessor(key).readRaw(id, buffer, size);
}

void PropertyLocator::getPropertyKeys(std::vector<int>& keys) {
    for (const PropertyAccessor& accessor : accessors) {
        keys.push_back(accessor.getKey());
    }
}

unsigned int PropertyLocator::getPropertySize(int key) {
    try {
        return getAccessor(key).getSize();
    } catch (const TavrelException&) {
        return 0;
    }
}

void PropertyLocator::addProperty(int resourceId, int key, unsigned int size) {
    PropertyAccessor& added = accessors.emplace_back();
    added.setResourceId(resourceId);
    added.setKey(key);
    added.setSize(size);
}

PropertyAccessor& PropertyLocator::getAccessor(int key) {
    const auto found = std::find_if(accessors.begin(), accessors.end(),
                                    [key](const PropertyAccessor& each) { return each.getKey() == key; });
    if (found == accessors.end()) {
        internal::trace(internal::point::PropertyKeyNotFound, key);
        internal::raise("PropertyLocator", "getAccessor", "Invalid key.");
    }
    return *found;
}

} // namespace qz::tavrel
