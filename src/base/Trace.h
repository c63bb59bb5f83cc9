#pragma once

#include "base/TracePoints.h"

#include <cstdint>
#include <type_traits>

namespace qz::internal {

/// Writes a record of process id, thread id and two words.
void traceShort(const TracePoint& point, unsigned long a, unsigned long b);

/// Writes a record of process id, thread id and six words.
void traceLong(const TracePoint& point, const unsigned long (&words)[6]);

/// Writes a record of text.
void traceText(const TracePoint& point, const char* text);

/// Writes a record of text: "[pid.tid] " and the formatted arguments, cut to 255 characters.
[[gnu::format(printf, 2, 3)]] void traceFormat(const TracePoint& point, const char* format, ...);

/// One word of a record: the low 32 bits of an integer or an address.
template <typename T>
unsigned long traceWord(T value) {
    if constexpr (std::is_pointer_v<T>) {
        return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(value));
    } else {
        const auto word = static_cast<std::uint32_t>(value);
        return word;
    }
}

/// Writes a record of process id, thread id and the given words, filled up with zeros: 16 bytes for up to two
/// words, 32 bytes for up to six. Safe with any lock held; allocates nothing, raises nothing.
template <typename... Words>
void trace(const TracePoint& point, Words... words) {
    static_assert(sizeof...(words) <= 6);
    if constexpr (sizeof...(words) <= 2) {
        const unsigned long record[2] = {traceWord(words)...};
        traceShort(point, record[0], record[1]);
    } else {
        traceLong(point, {traceWord(words)...});
    }
}

} // namespace qz::internal
