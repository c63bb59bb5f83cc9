#include "state/ValueHeader.h"
#include "store/ResourceGuard.h"

#include <qz/tavrel/Configuration.h>
#include <qz/tavrel/Resource.h>

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <sstream>
#include <string>

namespace qz::tavrel {

namespace {

constexpr unsigned int headerSize = sizeof(internal::ValueHeader);

/// No tree needs more. A longer body is damage, which must not cost the process its memory.
constexpr std::uint32_t longestBody = 64U << 20;

/// The bytes of one stored value, zeroed. A short one, as nearly every load finds it, costs no allocation.
class ValueBuffer {
public:
    explicit ValueBuffer(unsigned int bytes) : length(0) { resize(bytes); }

    void resize(unsigned int bytes) {
        length = bytes;
        if (bytes > few.size()) {
            many.resize(bytes);
        }
    }

    char* data() { return length > few.size() ? many.data() : few.data(); }
    unsigned int size() const { return length; }

private:
    std::array<char, 64> few{};
    std::vector<char> many;
    unsigned int length;
};

/// Takes a revision back unless it is kept: what nothing is stored under, another process may give to another
/// state.
class [[nodiscard]] NewRevision {
public:
    NewRevision(int& field, int next) : revision(field), previous(field) { revision = next; }
    ~NewRevision() {
        if (!kept) {
            revision = previous;
        }
    }
    NewRevision(const NewRevision&) = delete;
    NewRevision& operator=(const NewRevision&) = delete;

    void keep() { kept = true; }

private:
    int& revision;
    int previous;
    bool kept = false;
};

} // namespace

EventListener::~EventListener() = default;

Configuration::Configuration()
    : revision(-1), modified(false), bufferSize(headerSize), resource(nullptr), key(-1) {}

Configuration::~Configuration() = default;

unsigned int Configuration::load() {
    ValueBuffer value(bufferSize);
    const internal::ResourceGuard guard(resource);
    const unsigned int delivered = resource->read(key, value.data(), value.size());
    if (delivered < headerSize) {
        return 0;
    }
    const internal::ValueHeader header = internal::readHeader(value.data());
    const int storedRevision = static_cast<int>(header.revision);
    if (storedRevision == revision || header.length > longestBody) {
        return 0;
    }
    const unsigned int total = headerSize + header.length;
    if (delivered < total) {
        value.resize(total);
        if (resource->read(key, value.data(), total) < total) {
            return 0;
        }
    }
    if (header.length != 0) {
        std::istringstream body(std::string(value.data() + headerSize, header.length));
        read(body);
    }
    bufferSize = std::max(bufferSize, value.size());
    revision = storedRevision;
    modified = false;
    notify(0);
    return total;
}

unsigned int Configuration::save() {
    if (!modified) {
        return 0;
    }
    NewRevision newRevision(revision, getNextRevision());
    std::ostringstream body;
    write(body);
    std::string value = body.str();
    const internal::ValueHeader header = internal::storedForm(
        {static_cast<std::uint32_t>(revision), static_cast<std::uint32_t>(value.size())});
    value.insert(0, reinterpret_cast<const char*>(&header), headerSize);
    const auto total = static_cast<unsigned int>(value.size());

    const internal::ResourceGuard guard(resource);
    const unsigned int taken = resource->write(key, value.data(), total);
    newRevision.keep();
    bufferSize = std::max(bufferSize, total);
    modified = false;
    notify(0);
    return taken;
}

void Configuration::takeStoredRevision() {
    char header[headerSize];
    const internal::ResourceGuard guard(resource);
    if (resource->read(key, header, headerSize) != headerSize) {
        return;
    }
    const std::uint32_t stored = internal::readHeader(header).revision;
    // Behind is what the store kept when it refused a save: the numbers since then are given away.
    if (static_cast<std::int32_t>(stored - static_cast<std::uint32_t>(revision)) > 0) {
        revision = static_cast<int>(stored);
    }
}

void Configuration::assign(Resource* store, int number) {
    resource = store;
    key = number;
}

int Configuration::getNextRevision() {
    return revision == std::numeric_limits<int>::max() ? 0 : std::max(revision + 1, 0);
}

std::istream& Configuration::readValue(std::istream& stream, int& value) {
    std::uint32_t stored;
    if (stream.read(reinterpret_cast<char*>(&stored), sizeof stored)) {
        value = static_cast<int>(ntohl(stored));
    }
    return stream;
}

std::ostream& Configuration::writeValue(std::ostream& stream, int value) {
    const std::uint32_t stored = htonl(static_cast<std::uint32_t>(value));
    return stream.write(reinterpret_cast<const char*>(&stored), sizeof stored);
}

void Configuration::addListener(EventListener* listener) {
    listeners.push_back(listener);
}

void Configuration::notify(int event) {
    // A listener may add others, which hear of the next event.
    const std::size_t count = listeners.size();
    for (std::size_t i = 0; i < count; ++i) {
        listeners[i]->update(this, event);
    }
}

} // namespace qz::tavrel
