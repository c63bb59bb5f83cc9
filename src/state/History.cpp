#include "base/FileText.h"
#include "state/Records.h"
#include "state/RevisionAge.h"

#include <qz/tavrel/TreeConfig.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <sstream>

namespace qz::tavrel {

namespace {

using Node = TreeConfig::Node;

constexpr std::size_t revisionLimit = 256;

/// A revision in the file, in the host's byte order, the same on every machine. Without a sign the seconds
/// last until 2106.
struct StoredRevision {
    std::int32_t number;
    std::uint32_t seconds;
    std::int32_t microseconds;
};
static_assert(sizeof(StoredRevision) == 12 && offsetof(StoredRevision, seconds) == 4 &&
              offsetof(StoredRevision, microseconds) == 8);

std::int32_t readCount(std::istream& stream) {
    std::int32_t count = 0;
    return stream.read(reinterpret_cast<char*>(&count), sizeof count) ? count : 0;
}

void writeCount(std::ostream& stream, std::size_t records) {
    const auto count = static_cast<std::int32_t>(records);
    stream.write(reinterpret_cast<const char*>(&count), sizeof count);
}

timeval now() {
    timeval time{};
    gettimeofday(&time, nullptr);
    return time;
}

bool isSame(const timeval& a, const timeval& b) {
    return a.tv_sec == b.tv_sec && a.tv_usec == b.tv_usec;
}

bool isBefore(const timeval& a, const timeval& b) {
    return a.tv_sec < b.tv_sec || (a.tv_sec == b.tv_sec && a.tv_usec < b.tv_usec);
}

} // namespace

TreeConfig::History::History() : dirty(false) {}

void TreeConfig::History::assign(const std::string& file) {
    path = file;
}

void TreeConfig::History::add(Node node) {
    if (!path.empty()) {
        changes.push_back(node);
        dirty = true;
    }
}

void TreeConfig::History::update() {
    if (dirty) {
        closeRevision();
    }
}

void TreeConfig::History::closeRevision() {
    dirty = false;
    if (changes.empty()) { // a load has replaced what was added
        return;
    }
    timeval time = now();
    while (!revisions.empty() && isSame(time, revisions.back().second)) {
        time = now();
    }
    revisions.emplace_back(changes.back().revision, time);
    if (revisions.size() > revisionLimit) {
        revisions.erase(revisions.begin());
        const int oldest = changes.front().revision;
        changes.erase(changes.begin(), std::find_if(changes.begin(), changes.end(), [&](const Node& node) {
                          return node.revision != oldest;
                      }));
    }
}

bool TreeConfig::History::get(int id, int revision, Node& out) {
    if (changes.empty()) {
        return false;
    }
    const int latest = changes.back().revision;
    const unsigned int age = internal::revisionAge(latest, revision);
    const auto found = std::find_if(changes.rbegin(), changes.rend(), [&](const Node& node) {
        return node.id == id && age <= internal::revisionAge(latest, node.revision);
    });
    if (found == changes.rend()) {
        return false;
    }
    out = *found;
    return true;
}

int TreeConfig::History::getRevision(timeval& when) {
    const auto found = std::find_if(revisions.rbegin(), revisions.rend(),
                                    [&](const auto& entry) { return isBefore(entry.second, when); });
    return found == revisions.rend() ? -1 : found->first;
}

std::istream& TreeConfig::History::read(std::istream& stream) {
    revisions.clear();
    const std::int32_t revisionCount = readCount(stream);
    for (const StoredRevision& stored : internal::readRecords<StoredRevision>(stream, revisionCount)) {
        timeval time{};
        time.tv_sec = static_cast<time_t>(stored.seconds);
        time.tv_usec = stored.microseconds;
        revisions.emplace_back(stored.number, time);
    }
    const std::int32_t changeCount = readCount(stream);
    changes = internal::readRecords<Node>(stream, changeCount);
    return stream;
}

std::ostream& TreeConfig::History::write(std::ostream& stream) {
    std::vector<StoredRevision> stored;
    stored.reserve(revisions.size());
    for (const auto& [number, time] : revisions) {
        stored.push_back(
            {number, static_cast<std::uint32_t>(time.tv_sec), static_cast<std::int32_t>(time.tv_usec)});
    }
    writeCount(stream, stored.size());
    internal::writeRecords(stream, stored);
    writeCount(stream, changes.size());
    internal::writeRecords(stream, changes);
    return stream;
}

unsigned int TreeConfig::History::load() {
    std::string content;
    if (!internal::readFile(path, content)) {
        return 0;
    }
    std::istringstream stream(content);
    read(stream);
    stream.clear();
    return static_cast<unsigned int>(stream.tellg());
}

unsigned int TreeConfig::History::save() {
    update();
    std::ostringstream stream;
    write(stream);
    const std::string content = stream.str();
    // A process that dies here leaves a short file: the next load takes the records that it has.
    return internal::writeFile(path, content) ? static_cast<unsigned int>(content.size()) : 0;
}

} // namespace qz::tavrel
