#include "store/RecordScan.h"

#include <cstring>

namespace qz::internal {

namespace {

constexpr char erasedByte = '\xFF';

} // namespace

RecordScan::RecordScan(const char* file, std::uint32_t fileSize)
    : bytes(file), size(fileSize), start(firstRecord), nextStart(firstRecord), current{} {}

bool RecordScan::next() {
    if (nextStart >= size - headerSize) {
        return false;
    }
    std::memcpy(&current, bytes + nextStart, headerSize);
    if (current.key[0] == '\0' || current.key[0] == erasedByte) {
        return false;
    }
    const std::uint64_t end = recordEnd(nextStart, current.valueLength);
    if (end > size) {
        return false;
    }
    if (isLive() &&
        (current.recordOffset != nextStart || std::memchr(current.key, '\0', keySize) == nullptr)) {
        return false;
    }
    start = nextStart;
    nextStart = static_cast<std::uint32_t>(end);
    return true;
}

} // namespace qz::internal
