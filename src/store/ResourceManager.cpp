#include "base/Guards.h"
#include "base/Trace.h"

#include <qz/tavrel/Resource.h>
#include <qz/tavrel/ResourceManager.h>

namespace qz::tavrel {

using internal::MutexGuard;

namespace {

/// Unlocks the stores of a range of entries, the last one first; giving up a lock never raises.
template <typename Iterator>
void unlockBackwards(Iterator begin, Iterator end) {
    while (end != begin) {
        --end;
        try {
            end->second.second->unlock();
        } catch (...) { // NOLINT(bugprone-empty-catch)
        }
    }
}

} // namespace

ResourceManager* ResourceManager::getInstance() {
    static ResourceManager* const instance = new ResourceManager;
    return instance;
}

ResourceManager::ResourceManager() : mutex{}, generation(0) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

ResourceManager::~ResourceManager() {
    pthread_mutex_destroy(&mutex);
}

// --- the registry ---

int ResourceManager::addResource(const std::string& name, Resource* resource) {
    if (name.empty() || resource == nullptr) {
        internal::trace(internal::point::ResourceInvalid);
        return -1;
    }
    const MutexGuard guard(mutex);
    for (const auto& [id, entry] : resources) {
        const auto& [knownName, known] = entry;
        if (knownName == name && known == resource) {
            internal::traceFormat(internal::point::ResourceExists, "%s is exist.\n", name.c_str());
            return id;
        }
        if (knownName == name) {
            internal::traceFormat(internal::point::ResourceNameTaken, "%s is exist.\n", name.c_str());
            return -1;
        }
        if (known == resource) {
            internal::traceFormat(internal::point::ResourceHasName, "%s is exist.\n", knownName.c_str());
            return -1;
        }
    }
    const int id = static_cast<int>(resources.size());
    resources.emplace(id, std::pair(name, resource));
    return id;
}

int ResourceManager::getResourceId(const std::string& name) {
    const MutexGuard guard(mutex);
    for (const auto& [id, entry] : resources) {
        if (entry.first == name) {
            return id;
        }
    }
    internal::traceFormat(internal::point::ResourceNameUnknown, "%s is not found.", name.c_str());
    return -1;
}

/// `getResource(id)` with the mutex held.
Resource* ResourceManager::find(int id) {
    const auto found = resources.find(id);
    if (found == resources.end()) {
        internal::trace(internal::point::ResourceIdUnknown, id);
        return nullptr;
    }
    return found->second.second;
}

Resource* ResourceManager::getResource(int id) {
    const MutexGuard guard(mutex);
    return find(id);
}

std::string ResourceManager::getResourceName(int id) {
    const MutexGuard guard(mutex);
    const auto found = resources.find(id);
    if (found == resources.end()) {
        internal::trace(internal::point::ResourceNameOfUnknownId, id);
        return {};
    }
    return found->second.first;
}

std::string ResourceManager::getResourceName(Resource* resource) {
    const MutexGuard guard(mutex);
    for (const auto& [id, entry] : resources) {
        if (entry.second == resource) {
            return entry.first;
        }
    }
    internal::trace(internal::point::ResourceNotRegistered);
    return {};
}

void ResourceManager::clear() {
    const MutexGuard guard(mutex);
    forgetOwners();
    redirections.clear();
    for (const auto& [id, entry] : resources) {
        delete entry.second;
    }
    resources.clear();
}

// --- all stores at once ---

void ResourceManager::lock() {
    const MutexGuard guard(mutex);
    if (lockCount.up() > 1) {
        return;
    }
    auto each = resources.begin();
    try {
        for (; each != resources.end(); ++each) {
            each->second.second->lock();
        }
    } catch (...) {
        unlockBackwards(resources.begin(), each);
        lockCount.down();
        throw;
    }
    pthread_mutex_lock(&mutex); // held until the outermost `unlock()`
}

void ResourceManager::unlock() {
    const MutexGuard guard(mutex);
    const int depth = lockCount.count();
    if (depth == 0) {
        return;
    }
    if (depth == 1) {
        unlockBackwards(resources.begin(), resources.end());
        pthread_mutex_unlock(&mutex);
    }
    lockCount.down();
}

} // namespace qz::tavrel
