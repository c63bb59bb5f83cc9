#include "SharedObject.h"

#include <qz/base/TraceRing.h>
#include <qz/base/trace.h>

#include <pthread.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

using qz::base::TraceEntry;
using qz::base::TraceRing;
using qz::base::TraceSlot;

// --- the level filter

enum Level : int { levelOff = -1, levelError, levelInfo, levelDebug, levelDebug2, levelUnread };

/// The highest level that is stored; `levelUnread` until the environment has been looked at.
constinit std::atomic<int> limit{levelUnread};

/// Flags that no level has count as the level with which they share the deciding bits.
int levelOf(int flags) {
    constexpr int important = 0x8000;
    constexpr int bad = 0x0002;
    constexpr int detailed = 0x0800;
    if ((flags & important) != 0) {
        return (flags & bad) != 0 ? levelError : levelInfo;
    }
    return (flags & detailed) != 0 ? levelDebug : levelDebug2;
}

int readLimit() {
    struct Name {
        const char* text;
        int level;
    };
    constexpr Name names[] = {{"off", levelOff},
                              {"error", levelError},
                              {"info", levelInfo},
                              {"debug", levelDebug},
                              {"debug2", levelDebug2}};
    int level = levelInfo;
    if (const char* const wanted = std::getenv("QZ_TRACE_LEVEL")) {
        for (const Name& name : names) {
            if (std::strcmp(wanted, name.text) == 0) {
                level = name.level;
            }
        }
    }
    limit.store(level, std::memory_order_relaxed);
    return level;
}

// --- who writes

struct Ids {
    std::int32_t pid;
    std::int32_t tid;
};

// Of the model that never allocates at the first access of a thread.
[[gnu::tls_model("initial-exec")]] thread_local Ids ids{0, 0};

void forgetIds() {
    // Only the thread that forked lives on in the child, so its own copy is the only one to forget.
    ids = {0, 0};
}

[[maybe_unused]] const int forgetsIdsInChild = pthread_atfork(nullptr, nullptr, forgetIds);

const Ids& callerIds() {
    if (ids.tid == 0) {
        ids = {getpid(), gettid()};
    }
    return ids;
}

// --- the ring

constexpr std::uint32_t retryEvery = 64; // records that are dropped between two attempts to open the ring
constexpr int claimAttempts = 16;

constinit std::atomic<TraceRing*> opened{nullptr};
constinit std::atomic<std::uint32_t> refused{0}; // records that came while the ring could not be opened

int makeRing(void* object) {
    TraceRing& ring = *static_cast<TraceRing*>(object);
    ring.magic = qz::base::traceRingMagic;
    ring.version = qz::base::traceRingVersion;
    ring.slotCount = qz::base::traceSlotCount;
    ring.slotSize = sizeof(TraceSlot);
    return 0;
}

TraceRing* openRing() {
    const int callersErrno = errno;
    void* const object =
        qz::platform::mapSharedObject(qz::base::traceRingName, sizeof(TraceRing), makeRing).address;
    TraceRing* ring = static_cast<TraceRing*>(object);
    if (ring != nullptr && !isTraceRing(*ring)) {
        munmap(ring, sizeof *ring);
        ring = nullptr;
    }
    if (ring == nullptr) {
        refused.fetch_add(1, std::memory_order_relaxed);
    } else if (TraceRing* others = nullptr; !opened.compare_exchange_strong(
                   others, ring, std::memory_order_acq_rel, std::memory_order_acquire)) {
        munmap(ring, sizeof *ring);
        ring = others;
    }
    errno = callersErrno;
    return ring;
}

/// The ring of this machine, or nullptr when it cannot be opened.
TraceRing* traceRing() {
    if (TraceRing* const ring = opened.load(std::memory_order_acquire)) {
        return ring;
    }
    if (refused.load(std::memory_order_relaxed) != 0 &&
        refused.fetch_add(1, std::memory_order_relaxed) % retryEvery != 0) {
        return nullptr;
    }
    return openRing();
}

/// True if a slot must be left alone: its writer lives, or it holds a later record than `ticket`.
bool isTaken(std::uint32_t state, std::uint32_t ticket) {
    if ((state & qz::base::traceBusy) != 0) {
        const int callersErrno = errno;
        const bool dead =
            syscall(SYS_tkill, static_cast<int>(state & qz::base::traceNumber), 0) != 0 && errno == ESRCH;
        errno = callersErrno;
        return !dead;
    }
    if ((state & qz::base::traceWritten) == 0) {
        return false;
    }
    const std::uint32_t ahead = (state - ticket) & qz::base::traceNumber;
    return ahead < qz::base::traceNumber / 2;
}

/// Marks a slot as being written by this thread. A slot that is in use is passed by and not waited for.
/// @return the slot, with its ticket; nullptr when none was free
TraceSlot* claimSlot(TraceRing& ring, std::int32_t tid) {
    const std::uint32_t mine = qz::base::traceBusy | static_cast<std::uint32_t>(tid);
    for (int attempt = 0; attempt < claimAttempts; ++attempt) {
        const std::uint32_t ticket = ring.next.fetch_add(1, std::memory_order_relaxed);
        TraceSlot& slot = ring.slots[ticket % qz::base::traceSlotCount];
        std::uint32_t state = slot.state.load(std::memory_order_relaxed);
        if (!isTaken(state, ticket) &&
            slot.state.compare_exchange_strong(state, mine, std::memory_order_acquire,
                                               std::memory_order_relaxed)) {
            // Death from here to the end of the record leaves the slot marked, until a later writer finds
            // that this thread is dead. No reader takes the record.
            std::atomic_thread_fence(std::memory_order_release);
            slot.ticket.store(ticket, std::memory_order_relaxed);
            return &slot;
        }
    }
    ring.dropped.fetch_add(1, std::memory_order_relaxed);
    return nullptr;
}

void copyWords(TraceSlot& slot, const TraceEntry& entry, std::size_t bytes) {
    std::uint32_t word = 0;
    for (std::size_t i = 0; i * sizeof word < bytes; ++i) {
        std::memcpy(&word, reinterpret_cast<const unsigned char*>(&entry) + i * sizeof word, sizeof word);
        slot.words[i].store(word, std::memory_order_relaxed);
    }
}

void releaseSlot(TraceSlot& slot) {
    const std::uint32_t ticket = slot.ticket.load(std::memory_order_relaxed);
    slot.state.store(qz::base::traceWritten | (ticket & qz::base::traceNumber), std::memory_order_release);
}

std::uint64_t nanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000000000 + static_cast<std::uint64_t>(now.tv_nsec);
}

} // namespace

[[gnu::weak]] int qz_trace_write(int channel, int flags, unsigned module, unsigned long traceId,
                                 const void* data, unsigned size) {
    const int level = levelOf(flags);
    int highest = limit.load(std::memory_order_relaxed);
    if (level > highest) {
        return 0;
    }
    if (highest == levelUnread) {
        highest = readLimit();
        if (level > highest) {
            return 0;
        }
    }
    TraceRing* const ring = traceRing();
    if (ring == nullptr) {
        return -1;
    }
    const Ids& writer = callerIds();
    const unsigned length = data == nullptr ? 0 : size;
    const std::size_t stored = std::min<std::size_t>(length, qz::base::traceDataSize);
    TraceEntry entry{.time = nanoseconds(),
                     .traceId = traceId,
                     .pid = writer.pid,
                     .tid = writer.tid,
                     .channel = channel,
                     .flags = flags,
                     .module = module,
                     .size = length,
                     .data = {}};
    if (data != nullptr) {
        std::memcpy(entry.data, data, stored);
    }
    TraceSlot* const slot = claimSlot(*ring, writer.tid);
    if (slot == nullptr) {
        return -1;
    }
    copyWords(*slot, entry, offsetof(TraceEntry, data) + stored);
    releaseSlot(*slot);
    return 0;
}
