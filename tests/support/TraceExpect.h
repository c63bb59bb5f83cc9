#pragma once

#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <string>
#include <vector>

namespace tavrel::test {

/// Expects one record of the point `id`, by this thread: its process and thread id, then `words`.
inline void expectWords(const TraceCapture& capture, unsigned long id, int flags,
                        const std::vector<int>& words) {
    const auto records = capture.of(id);
    ASSERT_EQ(1U, records.size()) << std::hex << id;
    EXPECT_EQ(flags, records[0].flags) << std::hex << id;
    EXPECT_EQ(getpid(), static_cast<int>(records[0].words()[0]));
    EXPECT_EQ(gettid(), static_cast<int>(records[0].words()[1]));
    EXPECT_EQ(words, records[0].arguments()) << std::hex << id;
}

/// Expects one record of the point `id`, which is `text`.
inline void expectText(const TraceCapture& capture, unsigned long id, int flags, const std::string& text) {
    const auto records = capture.of(id);
    ASSERT_EQ(1U, records.size()) << std::hex << id;
    EXPECT_EQ(flags, records[0].flags) << std::hex << id;
    EXPECT_EQ(text, records[0].text()) << std::hex << id;
}

} // namespace tavrel::test
