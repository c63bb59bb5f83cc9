#include "Descriptor.h"

#include <qz/base/TraceRing.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace qz::base {

namespace {

[[noreturn]] void fail(int error, const std::string& path, const char* what) {
    throw std::system_error(error, std::generic_category(), "trace ring \"" + path + "\": " + what);
}

const TraceRing* mapRing(int file, const std::string& path) {
    struct stat status {};
    if (fstat(file, &status) != 0) {
        fail(errno, path, "cannot be examined");
    }
    if (!S_ISREG(status.st_mode) || static_cast<std::uint64_t>(status.st_size) != sizeof(TraceRing)) {
        fail(EBADMSG, path, "is no trace ring");
    }
    void* const address = mmap(nullptr, sizeof(TraceRing), PROT_READ, MAP_SHARED, file, 0);
    if (address == MAP_FAILED) {
        fail(errno, path, "cannot be mapped");
    }
    const TraceRing* const ring = static_cast<const TraceRing*>(address);
    if (!isTraceRing(*ring)) {
        munmap(address, sizeof(TraceRing));
        fail(EBADMSG, path, "is no trace ring");
    }
    return ring;
}

/// Copies the record out of `slot`; false when it was changed meanwhile.
bool copy(const TraceSlot& slot, std::uint32_t state, TraceRecord& record) {
    std::uint32_t words[sizeof(TraceEntry) / sizeof(std::uint32_t)];
    record.ticket = slot.ticket.load(std::memory_order_relaxed);
    for (std::size_t i = 0; i < std::size(words); ++i) {
        words[i] = slot.words[i].load(std::memory_order_relaxed);
    }
    std::atomic_thread_fence(std::memory_order_acquire);
    std::memcpy(&record.entry, words, sizeof record.entry);
    return slot.state.load(std::memory_order_relaxed) == state;
}

} // namespace

TraceRingReader::TraceRingReader(const std::string& path) : seen(traceSlotCount, 0) {
    const platform::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.get() == -1) {
        fail(errno, path, "cannot be opened");
    }
    ring = mapRing(file.get(), path);
}

TraceRingReader::~TraceRingReader() {
    munmap(const_cast<TraceRing*>(ring), sizeof(TraceRing));
}

std::vector<TraceRecord> TraceRingReader::read() {
    std::vector<TraceRecord> records;
    const std::uint32_t next = ring->next.load(std::memory_order_relaxed);
    for (std::uint32_t i = 0; i < traceSlotCount; ++i) {
        const std::uint32_t place = (next + i) % traceSlotCount; // the slot of the oldest record comes first
        const TraceSlot& slot = ring->slots[place];
        const std::uint32_t state = slot.state.load(std::memory_order_acquire);
        TraceRecord record{};
        if ((state & traceWritten) != 0 && (state & traceBusy) == 0 && state != seen[place] &&
            copy(slot, state, record)) {
            seen[place] = state;
            records.push_back(record);
        }
    }
    // Tickets wrap: what counts is the distance from the next one.
    const auto isOlder = [next](const TraceRecord& left, const TraceRecord& right) {
        return static_cast<std::int32_t>(left.ticket - next) < static_cast<std::int32_t>(right.ticket - next);
    };
    // Out of order only where writers have gone on meanwhile or passed a slot by.
    if (!std::is_sorted(records.begin(), records.end(), isOlder)) {
        std::sort(records.begin(), records.end(), isOlder);
    }
    return records;
}

std::uint32_t TraceRingReader::dropped() const {
    return ring->dropped.load(std::memory_order_relaxed);
}

} // namespace qz::base
