#include "base/Fault.h"
#include "base/Guards.h"
#include "base/Trace.h"
#include "build/CacheFormat.h"

#include <qz/tavrel/ComponentCSVCache.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <memory>
#include <utility>

namespace qz::tavrel {

namespace {

/// Maps a whole file for reading. @return null, with `errno` set, on failure
unsigned char* mapFile(int file, std::size_t& length) {
    struct stat status {};
    if (fstat(file, &status) == -1) {
        return nullptr;
    }
    if (!std::in_range<std::ptrdiff_t>(status.st_size)) {
        errno = EFBIG;
        return nullptr;
    }
    length = static_cast<std::size_t>(status.st_size);
    void* const base = mmap(nullptr, length, PROT_READ, MAP_SHARED, file, 0);
    return base == MAP_FAILED ? nullptr : static_cast<unsigned char*>(base);
}

template <typename T>
T* stepOver(unsigned char*& cursor, unsigned char* end, int count) {
    T* records = nullptr;
    forward_pointer(&cursor, end, &records, count);
    return records;
}

} // namespace

template <typename T>
void forward_pointer(unsigned char** cursor, unsigned char* end, T** out, int count) {
    void* const first = *cursor;
    *out = static_cast<T*>(first);
    // By division, so that no count makes the sum wrap.
    const std::ptrdiff_t left = end - *cursor;
    if (count < 0 || left < 0 || left / static_cast<std::ptrdiff_t>(sizeof(T)) < count) {
        internal::raise("Builder", "forward_pointer", "out of range");
    }
    *cursor += sizeof(T) * static_cast<std::size_t>(count);
}

template void forward_pointer(unsigned char**, unsigned char*, file_header_t**, int);
template void forward_pointer(unsigned char**, unsigned char*, compo_spec_t**, int);
template void forward_pointer(unsigned char**, unsigned char*, property_spec_t**, int);
template void forward_pointer(unsigned char**, unsigned char*, subcompo_spec_t**, int);
template void forward_pointer(unsigned char**, unsigned char*, action_spec_t**, int);
template void forward_pointer(unsigned char**, unsigned char*, feature_spec_t**, int);
template void forward_pointer(unsigned char**, unsigned char*, unsigned int**, int);

ComponentCSVCache::ComponentCSVCache()
    : nameOffsets(nullptr), nameCount(0), mapBase(nullptr), mapLength(0), nameBase(nullptr) {}

ComponentCSVCache::~ComponentCSVCache() {
    release();
}

bool ComponentCSVCache::load(const std::string& path) {
    release();
    {
        const internal::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
        if (!file.isOpen()) {
            internal::trace(internal::point::CacheOpenFailed, errno);
            return false;
        }
        mapBase = mapFile(file.number(), mapLength);
        if (mapBase == nullptr) {
            internal::trace(internal::point::CacheMapFailed, errno);
            return false;
        }
    }
    try {
        walk();
        return true;
    } catch (const std::exception& failure) {
        internal::traceFormat(internal::point::CacheLoadFailed, "ComponentCSVCache::load() error. %s.",
                              failure.what());
        release();
        return false;
    }
}

/// Finds the records in the mapping. The strings are not looked at: `nameAt` checks the one that it gives.
void ComponentCSVCache::walk() {
    unsigned char* cursor = mapBase;
    unsigned char* const end = mapBase + mapLength;
    const auto* const header = stepOver<file_header_t>(cursor, end, 1);
    if (std::memcmp(header->magic, internal::cacheMagic, sizeof header->magic) != 0) {
        internal::raise("Builder", "load", "invalid magic");
    }
    if (header->version != internal::cacheVersion) {
        internal::raise("Builder", "load", "different version");
    }
    const auto* compo = stepOver<compo_spec_t>(cursor, end, 1);
    while (compo->name != internal::cacheEndMark) {
        auto spec = std::make_unique<ComponentSpec>();
        spec->compo = compo;
        spec->propertyCount = compo->propertyCount;
        spec->properties = stepOver<property_spec_t>(cursor, end, spec->propertyCount);
        spec->subcompoCount = compo->subcompoCount;
        spec->subcompos = stepOver<subcompo_spec_t>(cursor, end, spec->subcompoCount);
        spec->actionCount = compo->actionCount;
        spec->actions = stepOver<action_spec_t>(cursor, end, spec->actionCount);
        spec->featureCount = compo->featureCount;
        spec->features = stepOver<feature_spec_t>(cursor, end, spec->featureCount);
        specs.push_back(spec.get());
        static_cast<void>(spec.release()); // the list's from now on
        compo = stepOver<compo_spec_t>(cursor, end, 1);
    }
    // A count above the greatest int is negative here, and as far out of range as any that is too large.
    nameCount = static_cast<int>(*stepOver<unsigned int>(cursor, end, 1));
    nameOffsets = stepOver<unsigned int>(cursor, end, nameCount);
    nameBase = static_cast<const char*>(static_cast<const void*>(cursor));
}

void ComponentCSVCache::release() {
    for (const ComponentSpec* spec : specs) {
        delete spec;
    }
    specs.clear();
    resourceIds.clear();
    nameOffsets = nullptr;
    nameCount = 0;
    nameBase = nullptr;
    if (mapBase != nullptr) {
        munmap(mapBase, mapLength);
        mapBase = nullptr;
    }
}

std::string ComponentCSVCache::nameAt(int index) const {
    if (index >= 0 && index < nameCount) {
        const char* const end = static_cast<const char*>(static_cast<const void*>(mapBase + mapLength));
        const auto length = static_cast<std::size_t>(end - nameBase);
        const std::size_t offset = nameOffsets[index];
        // The strings were not stepped over, so both ends of this one may lie outside the mapping.
        if (offset < length && std::memchr(nameBase + offset, '\0', length - offset) != nullptr) {
            return nameBase + offset;
        }
    }
    internal::trace(internal::point::CacheNameIndex, index);
    internal::raise("Builder", "operator[]", "out of range");
}

} // namespace qz::tavrel
