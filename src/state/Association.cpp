#include "base/Trace.h"

#include <qz/tavrel/Association.h>

#include <algorithm>
#include <unordered_set>

namespace qz::tavrel {

namespace {

using Links = std::unordered_map<int, std::vector<int>>;

void append(const Links& links, int id, std::vector<int>& out) {
    const auto found = links.find(id);
    if (found != links.end()) {
        out.insert(out.end(), found->second.begin(), found->second.end());
    }
}

void erase(Links& links, int id, int linked) {
    const auto found = links.find(id);
    if (found != links.end()) {
        std::erase(found->second, linked);
    }
}

} // namespace

Association::Association() = default;
Association::~Association() = default;

unsigned int Association::load() {
    const int previous = getRevision();
    const unsigned int loaded = Configuration::load();
    if (loaded != 0 && previous != -1) {
        internal::trace(internal::point::AssociationLoaded, getKey(), previous, getRevision());
    }
    return loaded;
}

unsigned int Association::save() {
    const unsigned int saved = Configuration::save();
    if (saved != 0) {
        internal::trace(internal::point::AssociationSaved, getKey(), getRevision());
    }
    return saved;
}

std::istream& Association::read(std::istream& stream) {
    targets.clear();
    sources.clear();
    int entries = 0;
    readValue(stream, entries);
    for (int entry = 0; entry < entries && stream; ++entry) {
        int src = -1;
        readValue(stream, src);
        if (src == -1) {
            continue;
        }
        int links = 0;
        readValue(stream, links);
        for (int link = 0; link < links && stream; ++link) {
            int dst = -1;
            readValue(stream, dst);
            if (dst != -1) {
                targets[src].push_back(dst);
                sources[dst].push_back(src);
            }
        }
    }
    return stream;
}

std::ostream& Association::write(std::ostream& stream) {
    std::vector<int> ids;
    ids.reserve(targets.size());
    for (const auto& entry : targets) {
        ids.push_back(entry.first);
    }
    std::sort(ids.begin(), ids.end());

    writeValue(stream, static_cast<int>(ids.size()));
    for (const int src : ids) {
        const std::vector<int>& dsts = targets[src];
        writeValue(stream, src);
        writeValue(stream, static_cast<int>(dsts.size()));
        for (const int dst : dsts) {
            writeValue(stream, dst);
        }
    }
    return stream;
}

void Association::get(int src, std::vector<int>& out) {
    append(targets, src, out);
}

void Association::getSrcs(int dst, std::vector<int>& out) {
    append(sources, dst, out);
}

int Association::getSrc(int dst) {
    const auto found = sources.find(dst);
    return found == sources.end() || found->second.empty() ? -1 : found->second.front();
}

void Association::getAll(std::set<int>& out) {
    for (const auto& entry : targets) {
        out.insert(entry.first);
        out.insert(entry.second.begin(), entry.second.end());
    }
}

void Association::add(int src, int dst) {
    if (src == dst || src < 0 || dst < 0) {
        internal::trace(internal::point::AssociationBadLink, getKey(), src, dst);
        return;
    }
    if (isDepend(dst, src)) {
        internal::trace(internal::point::AssociationCycle, getKey(), src, dst);
        return;
    }
    if (isDepend(src, dst)) {
        internal::trace(internal::point::AssociationReachable, getKey(), src, dst);
        return;
    }
    targets[src].push_back(dst);
    sources[dst].push_back(src);
    setModified(true);
}

void Association::add(int src, std::vector<int>& dsts) {
    for (const int dst : dsts) {
        add(src, dst);
    }
}

void Association::remove(int src, int dst) {
    const auto found = targets.find(src);
    if (found == targets.end()) {
        return;
    }
    std::erase(found->second, dst);
    erase(sources, dst, src);
    setModified(true);
}

void Association::removeAll(int src) {
    const auto found = targets.find(src);
    if (found == targets.end()) {
        return;
    }
    for (const int dst : found->second) {
        erase(sources, dst, src);
    }
    targets.erase(found);
    setModified(true);
}

void Association::clear() {
    if (targets.empty()) {
        return;
    }
    targets.clear();
    sources.clear();
    setModified(true);
}

// Climbs from `dst`, since a node has few sources and may have a wide subtree. Each id is visited once and
// none by recursion: stored data may hold a cycle or a chain of any length.
bool Association::isDepend(int src, int dst) {
    std::unordered_set<int> seen;
    std::vector<int> pending{dst};
    while (!pending.empty()) {
        const auto found = sources.find(pending.back());
        pending.pop_back();
        if (found == sources.end()) {
            continue;
        }
        for (const int above : found->second) {
            if (above == src) {
                return true;
            }
            if (seen.insert(above).second) {
                pending.push_back(above);
            }
        }
    }
    return false;
}

} // namespace qz::tavrel
