#include "support/TraceCapture.h"

#include <qz/base/trace.h>

#include <cstring>
#include <mutex>

namespace tavrel::test {

namespace {

std::mutex mutex;
bool capturing = false;
std::vector<TraceRecord> records;

} // namespace

std::vector<std::uint32_t> TraceRecord::words() const {
    std::vector<std::uint32_t> result(data.size() / sizeof(std::uint32_t));
    if (!result.empty()) {
        std::memcpy(result.data(), data.data(), result.size() * sizeof(std::uint32_t));
    }
    return result;
}

std::vector<int> TraceRecord::arguments() const {
    const std::vector<std::uint32_t> all = words();
    std::vector<int> result;
    for (std::size_t i = 2; i < all.size(); ++i) {
        result.push_back(static_cast<int>(all[i]));
    }
    return result;
}

std::string TraceRecord::text() const {
    return data.substr(0, data.find('\0'));
}

TraceCapture::TraceCapture() {
    clear();
    const std::lock_guard<std::mutex> guard(mutex);
    capturing = true;
}

TraceCapture::~TraceCapture() {
    const std::lock_guard<std::mutex> guard(mutex);
    capturing = false;
}

std::vector<TraceRecord> TraceCapture::all() const {
    const std::lock_guard<std::mutex> guard(mutex);
    return records;
}

std::vector<TraceRecord> TraceCapture::of(unsigned long id) const {
    std::vector<TraceRecord> found;
    for (const TraceRecord& record : all()) {
        if (record.id == id) {
            found.push_back(record);
        }
    }
    return found;
}

void TraceCapture::clear() {
    const std::lock_guard<std::mutex> guard(mutex);
    records.clear();
}

} // namespace tavrel::test

int qz_trace_write(int channel, int flags, unsigned module, unsigned long traceId, const void* data,
                   unsigned size) {
    using namespace tavrel::test;
    const std::lock_guard<std::mutex> guard(mutex);
    if (capturing) {
        records.push_back(
            {channel, flags, module, traceId, std::string(static_cast<const char*>(data), size)});
    }
    return 0;
}
