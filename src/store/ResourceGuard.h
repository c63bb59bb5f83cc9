#pragma once

#include <qz/tavrel/Resource.h>

namespace qz::internal {

/// Holds the lock of a store for a scope; none when there is no store.
class [[nodiscard]] ResourceGuard {
public:
    explicit ResourceGuard(tavrel::Resource* held) : resource(held) {
        if (resource != nullptr) {
            resource->lock();
        }
    }

    ~ResourceGuard() {
        if (resource == nullptr) {
            return;
        }
        try {
            resource->unlock();
        } catch (...) { // NOLINT(bugprone-empty-catch): giving up a lock never raises
        }
    }

    ResourceGuard(const ResourceGuard&) = delete;
    ResourceGuard& operator=(const ResourceGuard&) = delete;

private:
    tavrel::Resource* resource;
};

} // namespace qz::internal
