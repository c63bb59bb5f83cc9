/// @file
/// The ring of trace records that the bundled trace sink keeps, and how it is read.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace qz::base {

/// Name of the shared memory object that holds the ring, and the path that it has as a file.
constexpr const char* traceRingName = "/qz_trace";
constexpr const char* traceRingPath = "/dev/shm/qz_trace";

/// Bytes of a record's data that a slot holds.
constexpr std::uint32_t traceDataSize = 208;

/// One record, in host byte order.
///
/// | Offset | Size | Field     | Content                                                        |
/// |-------:|-----:|-----------|----------------------------------------------------------------|
/// |      0 |    8 | `time`    | nanoseconds of the real-time clock since the start of 1970     |
/// |      8 |    8 | `traceId` | which point of the writer's code this is                       |
/// |     16 |    4 | `pid`     | process id of the writer                                       |
/// |     20 |    4 | `tid`     | the kernel's id of the writing thread                          |
/// |     24 |    4 | `channel` | channel number of the writer                                   |
/// |     28 |    4 | `flags`   | level of the record                                            |
/// |     32 |    4 | `module`  | module number of the writer                                    |
/// |     36 |    4 | `size`    | true length of the data, which may be more than the slot holds |
/// |     40 |  208 | `data`    | the first bytes of the data; what lies behind them is no data  |
struct TraceEntry {
    std::uint64_t time;
    std::uint64_t traceId;
    std::int32_t pid;
    std::int32_t tid;
    std::int32_t channel;
    std::int32_t flags;
    std::uint32_t module;
    std::uint32_t size;
    unsigned char data[traceDataSize];
};

static_assert(offsetof(TraceEntry, time) == 0);
static_assert(offsetof(TraceEntry, traceId) == 8);
static_assert(offsetof(TraceEntry, pid) == 16);
static_assert(offsetof(TraceEntry, tid) == 20);
static_assert(offsetof(TraceEntry, channel) == 24);
static_assert(offsetof(TraceEntry, flags) == 28);
static_assert(offsetof(TraceEntry, module) == 32);
static_assert(offsetof(TraceEntry, size) == 36);
static_assert(offsetof(TraceEntry, data) == 40);
static_assert(sizeof(TraceEntry) == 248);

/// Place of one record. All of it is read and written as atomic words, since a reader looks while writers
/// write.
///
/// | Offset | Size | Field    | Content                                                             |
/// |-------:|-----:|----------|---------------------------------------------------------------------|
/// |      0 |    4 | `state`  | 0: never used; bit 31: being written by the thread in the low bits; |
/// |        |      |          | bit 30: holds the record whose ticket has these low 30 bits         |
/// |      4 |    4 | `ticket` | running number of the record                                        |
/// |      8 |  248 | `words`  | the record, a `TraceEntry`                                          |
struct TraceSlot {
    std::atomic<std::uint32_t> state;
    std::atomic<std::uint32_t> ticket;
    std::atomic<std::uint32_t> words[sizeof(TraceEntry) / sizeof(std::uint32_t)];
};

static_assert(std::atomic<std::uint32_t>::is_always_lock_free);
static_assert(sizeof(std::atomic<std::uint32_t>) == 4);
static_assert(offsetof(TraceSlot, state) == 0);
static_assert(offsetof(TraceSlot, ticket) == 4);
static_assert(offsetof(TraceSlot, words) == 8);
static_assert(sizeof(TraceSlot) == 256);

constexpr std::uint32_t traceBusy = 0x80000000;    ///< state: the thread in the low 30 bits is writing
constexpr std::uint32_t traceWritten = 0x40000000; ///< state: the record of the ticket in the low 30 bits
constexpr std::uint32_t traceNumber = 0x3fffffff;  ///< state: the low 30 bits

constexpr std::uint32_t traceSlotCount = 4096;
constexpr std::uint32_t traceRingMagic = 0x52545A51; ///< "QZTR" on a little-endian machine
constexpr std::uint32_t traceRingVersion = 1;

/// The whole object.
///
/// | Offset | Size    | Field       | Content                                                     |
/// |-------:|--------:|-------------|-------------------------------------------------------------|
/// |      0 |       4 | `magic`     | `traceRingMagic`                                            |
/// |      4 |       4 | `version`   | `traceRingVersion`                                          |
/// |      8 |       4 | `slotCount` | `traceSlotCount`                                            |
/// |     12 |       4 | `slotSize`  | size of a slot                                              |
/// |     16 |      48 |             | unused                                                      |
/// |     64 |       4 | `next`      | ticket of the next record; its slot is this modulo the count |
/// |     68 |       4 | `dropped`   | records that found no free slot                             |
/// |     72 |      56 |             | unused                                                      |
/// |    128 | 1048576 | `slots`     |                                                             |
struct TraceRing {
    std::uint32_t magic;
    std::uint32_t version;
    std::uint32_t slotCount;
    std::uint32_t slotSize;
    std::uint32_t unusedHead[12];
    std::atomic<std::uint32_t> next;
    std::atomic<std::uint32_t> dropped;
    std::uint32_t unusedCounters[14];
    TraceSlot slots[traceSlotCount];
};

static_assert(offsetof(TraceRing, magic) == 0);
static_assert(offsetof(TraceRing, version) == 4);
static_assert(offsetof(TraceRing, slotCount) == 8);
static_assert(offsetof(TraceRing, slotSize) == 12);
static_assert(offsetof(TraceRing, next) == 64);
static_assert(offsetof(TraceRing, dropped) == 68);
static_assert(offsetof(TraceRing, slots) == 128);
static_assert(sizeof(TraceRing) == 128 + 256 * 4096);

/// True if the object was made by a sink with this layout.
inline bool isTraceRing(const TraceRing& ring) {
    return ring.magic == traceRingMagic && ring.version == traceRingVersion &&
           ring.slotCount == traceSlotCount && ring.slotSize == sizeof(TraceSlot);
}

/// One record, copied out of the ring.
struct TraceRecord {
    std::uint32_t
        ticket; ///< running number; a gap is a record that was overwritten, dropped or cut off by a kill
    TraceEntry entry;

    /// Bytes of the data that are there.
    std::uint32_t stored() const { return entry.size < traceDataSize ? entry.size : traceDataSize; }
};

/// Reads the ring while its writers run, and after they have died. Never gets in their way.
/// Threads: one at a time.
class TraceRingReader {
public:
    /// Opens a ring for reading.
    ///
    /// @param path  the ring, or a copy of it as a file
    /// @throws std::system_error  the file cannot be opened or mapped, or holds no ring (EBADMSG)
    explicit TraceRingReader(const std::string& path = traceRingPath);
    ~TraceRingReader();
    TraceRingReader(const TraceRingReader&) = delete;
    TraceRingReader& operator=(const TraceRingReader&) = delete;

    /// Gives the records that have come since the last call, oldest first; the first call gives all that the
    /// ring holds. A record that is being written now comes with a later call.
    std::vector<TraceRecord> read();

    /// How many records found no free slot since the ring was made.
    std::uint32_t dropped() const;

private:
    const TraceRing* ring = nullptr;
    std::vector<std::uint32_t> seen; // the state that each slot had when it was last read
};

} // namespace qz::base
