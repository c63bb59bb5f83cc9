#include "base/FileText.h"
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

template <typename Record>
bool readRecord(std::istream& stream, Record& record) {
    return static_cast<bool>(stream.read(reinterpret_cast<char*>(&record), sizeof record));
}

template <typename Record>
void writeRecord(std::ostream& stream, const Record& record) {
    stream.write(reinterpret_cast<const char*>(&record), sizeof record);
}

/// Reads a count and as many records as the stream has of it.
template <typename Record>
std::vector<Record> readRecords(std::istream& stream) {
    std::vector<Record> records;
    std::int32_t count;
    if (!readRecord(stream, count)) {
        return records;
    }
    Record record;
    for (std::int32_t i = 0; i < count && readRecord(stream, record); ++i) {
        records.push_back(record);
    }
    return records;
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
    for (const StoredRevision& stored : readRecords<StoredRevision>(stream)) {
        timeval time{};
        time.tv_sec = static_cast<time_t>(stored.seconds);
        time.tv_usec = stored.microseconds;
        revisions.emplace_back(stored.number, time);
    }
    changes = readRecords<Node>(stream);
    return stream;
}

std::ostream& TreeConfig::History::write(std::ostream& stream) {
    writeRecord(stream, static_cast<std::int32_t>(revisions.size()));
    for (const auto& entry : revisions) {
        writeRecord(stream, StoredRevision{entry.first, static_cast<std::uint32_t>(entry.second.tv_sec),
                                           static_cast<std::int32_t>(entry.second.tv_usec)});
    }
    writeRecord(stream, static_cast<std::int32_t>(changes.size()));
    stream.write(reinterpret_cast<const char*>(changes.data()),
                 static_cast<std::streamsize>(changes.size() * sizeof(Node)));
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
