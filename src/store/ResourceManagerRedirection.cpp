#include "base/Guards.h"
#include "base/Trace.h"
#include "store/TreeQuestions.h"

#include <qz/tavrel/ResourceManager.h>

#include <algorithm>

namespace qz::tavrel {

using internal::MutexGuard;

namespace {

/// The id that stands in place of `id`.
int redirected(const std::map<int, int>& redirects, int id) {
    const auto found = redirects.find(id);
    return found == redirects.end() ? id : found->second;
}

/// Brings `list` into the order of `path_descend`. That is no strict order, so each entry moves forward only
/// past the ones that it goes before, and never past the first.
void sort(std::vector<ResourceManager::Redirection>& list) {
    for (auto end = list.begin(); end != list.end(); ++end) {
        for (auto each = end; each != list.begin() && ResourceManager::path_descend(*each, *(each - 1));
             --each) {
            std::iter_swap(each, each - 1);
        }
    }
}

} // namespace

bool ResourceManager::path_descend(const Redirection& a, const Redirection& b) {
    return a.depth > b.depth || a.path > b.path;
}

void ResourceManager::addRedirection(const std::string& path, int resourceId, int targetId) {
    const MutexGuard guard(mutex);
    const auto same = std::find_if(redirections.begin(), redirections.end(),
                                   [&path](const Redirection& each) { return each.path == path; });
    if (same == redirections.end()) {
        Redirection added;
        added.path = path;
        added.depth = static_cast<int>(std::count(path.begin(), path.end(), '/'));
        added.redirects[resourceId] = targetId;
        redirections.push_back(std::move(added));
        sort(redirections);
        return;
    }
    const auto [present, isNew] = same->redirects.emplace(resourceId, targetId);
    if (!isNew) {
        internal::trace(internal::point::RedirectionConflict);
        const std::string text = path + "." + getResourceName(resourceId) + "=" +
                                 getResourceName(present->second) + " or " + getResourceName(targetId);
        internal::traceText(internal::point::RedirectionConflictText, text.c_str());
    }
}

void ResourceManager::getRedirection(const std::string& path, std::map<int, int>& out) {
    const MutexGuard guard(mutex);
    for (const Redirection& each : redirections) {
        if (each.active && path.compare(0, each.path.size(), each.path) == 0) {
            out.insert(each.redirects.begin(), each.redirects.end());
        }
    }
}

Resource* ResourceManager::getResource(const std::string& path, int resourceId) {
    const MutexGuard guard(mutex);
    std::map<int, int> redirects;
    getRedirection(path, redirects);
    return find(redirected(redirects, resourceId));
}

Resource* ResourceManager::getResource(int componentId, int resourceId) {
    unsigned int asked = 0;
    {
        const MutexGuard guard(mutex);
        const auto known = ownerRedirections.find(componentId);
        if (known != ownerRedirections.end()) {
            return find(redirected(known->second, resourceId));
        }
        asked = generation;
    }
    // Another thread may hold the tree and wait for the mutex, so the tree is asked without it.
    const std::string path = internal::pathOf(componentId);

    const MutexGuard guard(mutex);
    std::map<int, int> redirects;
    getRedirection(path, redirects);
    const int id = redirected(redirects, resourceId);
    if (asked == generation) {
        ownerRedirections.emplace(componentId, std::move(redirects));
    }
    return find(id);
}

void ResourceManager::evaluateOwners() {
    std::vector<std::string> paths;
    {
        const MutexGuard guard(mutex);
        for (const Redirection& each : redirections) {
            paths.push_back(each.path);
        }
    }
    for (const std::string& path : paths) {
        // The tree is asked without the mutex, as in `getResource`.
        bool active = false;
        try {
            active = internal::hasComponent(path);
        } catch (...) {
            setActive(path, false);
            throw;
        }
        setActive(path, active);
    }
}

void ResourceManager::setActive(const std::string& path, bool active) {
    const MutexGuard guard(mutex);
    for (Redirection& each : redirections) {
        if (each.path == path) {
            each.active = active;
        }
    }
}

/// Forgets the answers about components, those on their way in other threads included.
void ResourceManager::forgetOwners() {
    const MutexGuard guard(mutex);
    ownerRedirections.clear();
    ++generation;
}

void ResourceManager::update() {
    forgetOwners();
    evaluateOwners();
    // Once more, for what other threads have worked out meanwhile with some owners old and some new.
    forgetOwners();
}

void ResourceManager::update(void* /*source*/, int event) {
    if (event == 0) {
        update();
    }
}

} // namespace qz::tavrel
