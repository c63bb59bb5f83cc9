#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tavrel::test {

/// One record as it reached the trace sink.
struct TraceRecord {
    int channel;
    int flags;
    unsigned module;
    unsigned long id;
    std::string data;

    /// The record's 32-bit words.
    std::vector<std::uint32_t> words() const;

    /// The record's words behind process id and thread id.
    std::vector<int> arguments() const;

    /// The record as text, without its terminating zero.
    std::string text() const;
};

constexpr int errorFlags = 0x8002;
constexpr int infoFlags = 0x8001;
constexpr int debugFlags = 0x0801;
constexpr int debug2Flags = 0x0001;

/// Keeps every trace record that the process writes during the life of this object. The test programs define
/// `qz_trace_write` themselves, so that all records of the library come here. One object at a time.
class TraceCapture {
public:
    TraceCapture();
    ~TraceCapture();
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;

    std::vector<TraceRecord> all() const;

    /// The records of one trace point, oldest first.
    std::vector<TraceRecord> of(unsigned long id) const;

    /// How many records one trace point has.
    std::size_t count(unsigned long id) const { return of(id).size(); }

    /// Forgets what has been captured so far.
    void clear();
};

} // namespace tavrel::test
