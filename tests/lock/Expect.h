#pragma once

#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <sched.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace tavrel::test {

/// Expects one record of the point `id`: process id and thread id of the caller, then `words`.
inline void expectWords(const TraceCapture& capture, unsigned long id, int flags,
                        const std::vector<int>& words) {
    const auto records = capture.of(id);
    ASSERT_EQ(1U, records.size()) << std::hex << id;
    EXPECT_EQ(flags, records[0].flags);
    EXPECT_EQ(getpid(), static_cast<int>(records[0].words()[0]));
    EXPECT_EQ(gettid(), static_cast<int>(records[0].words()[1]));
    EXPECT_EQ(words, records[0].arguments()) << std::hex << id;
}

/// Expects one record of the point `id` with the system's text for `errnum`.
inline void expectSystemText(const TraceCapture& capture, unsigned long id, int errnum) {
    const auto records = capture.of(id);
    ASSERT_EQ(1U, records.size()) << std::hex << id;
    EXPECT_EQ(errorFlags, records[0].flags);
    EXPECT_EQ(std::strerror(errnum), records[0].text());
}

/// Waits for a state that only the kernel knows, such as a process that has begun to sleep.
template <typename Condition>
void waitUntil(Condition condition) {
    while (!condition()) {
        sched_yield();
    }
}

/// True if the thread `tid` sleeps in the kernel. Asked about a child that has said what it does next, and
/// that does nothing else in which it could sleep.
inline bool isAsleep(pid_t tid) {
    std::ifstream status("/proc/" + std::to_string(tid) + "/stat");
    std::string line;
    std::getline(status, line);
    const std::size_t name = line.rfind(") ");
    return name != std::string::npos && line[name + 2] == 'S';
}

} // namespace tavrel::test
