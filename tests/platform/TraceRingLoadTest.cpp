#include "TraceRingFixture.h"

#include <cstring>
#include <map>
#include <memory>
#include <thread>

using namespace tavrel::test;
using qz::base::traceDataSize;
using qz::base::TraceRecord;
using qz::base::TraceRingReader;

namespace {

class TraceRingUnderLoad : public TraceRingFixture {};

constexpr std::uint32_t stride = 2654435761; // spreads consecutive numbers over all bits
constexpr std::uint32_t wordCount = traceDataSize / sizeof(std::uint32_t);

/// Length in words of the record `number`.
std::uint32_t lengthOf(std::uint32_t number) {
    return 1 + number * stride % wordCount;
}

/// Writes records whose length and words all follow from their number.
void writeNumbered(std::uint32_t number) {
    std::uint32_t words[wordCount];
    const std::uint32_t length = lengthOf(number);
    for (std::uint32_t i = 0; i < length; ++i) {
        words[i] = number * stride + i;
    }
    qz_trace_write(static_cast<int>(number), errorFlags, number, number, words,
                   static_cast<unsigned>(length * sizeof words[0]));
}

bool isWhole(const TraceRecord& record) {
    const auto number = static_cast<std::uint32_t>(record.entry.traceId);
    const std::uint32_t length = lengthOf(number);
    std::uint32_t words[wordCount];
    std::memcpy(words, record.entry.data, sizeof words);
    bool whole = record.entry.module == number && record.entry.channel == static_cast<int>(number) &&
                 record.entry.size == length * sizeof words[0];
    for (std::uint32_t i = 0; i < length && whole; ++i) {
        whole = words[i] == number * stride + i;
    }
    return whole;
}

/// A process whose threads write numbered records without end.
std::unique_ptr<ChildProcess> startWriter() {
    return std::make_unique<ChildProcess>([](Talk& talk) {
        const auto writeOn = [] {
            for (std::uint32_t number = 1;; ++number) {
                writeNumbered(number);
            }
        };
        writeNumbered(0);
        talk.tell('r');
        std::thread second(writeOn);
        writeOn();
        second.join();
        return 0;
    });
}

TEST_F(TraceRingUnderLoad, YieldsOnlyWholeRecordsInOrderWhileWritersAreKilled) {
    constexpr int atOnce = 3;
    constexpr int kills = 20;
    std::vector<std::unique_ptr<ChildProcess>> writers;
    writers.reserve(atOnce + kills);
    for (int i = 0; i < atOnce; ++i) {
        writers.push_back(startWriter());
        ASSERT_TRUE(writers.back()->talk().waitFor('r'));
    }
    TraceRingReader reader;
    std::size_t read = 0;

    for (int kill = 0; kill < kills; ++kill) {
        // Each reading is also the time that the writers get before the next of them dies.
        for (int reading = 0; reading < 3; ++reading) {
            std::map<int, std::uint64_t> lastOfThread;
            for (const TraceRecord& record : reader.read()) {
                ASSERT_TRUE(isWhole(record)) << "record " << record.entry.traceId << " is torn";
                std::uint64_t& last = lastOfThread[record.entry.tid];
                ASSERT_GE(record.entry.traceId, last) << "out of order";
                last = record.entry.traceId;
                ++read;
            }
        }
        writers[static_cast<std::size_t>(kill)]->kill();
        writers.push_back(startWriter());
        ASSERT_TRUE(writers.back()->talk().waitFor('r'));
    }

    EXPECT_LT(1000U, read);
}

TEST_F(TraceRingUnderLoad, LosesNoRecordThatFitsIntoIt) {
    constexpr int processes = 8;
    constexpr std::uint32_t each = 400; // fewer in all than slots
    std::vector<std::unique_ptr<ChildProcess>> writers;
    writers.reserve(processes);
    for (int i = 0; i < processes; ++i) {
        writers.push_back(std::make_unique<ChildProcess>([](Talk& talk) {
            talk.tell('r');
            EXPECT_TRUE(talk.waitFor('g'));
            for (std::uint32_t number = 0; number < each; ++number) {
                writeNumbered(number);
            }
            return 0;
        }));
    }
    for (const auto& writer : writers) {
        ASSERT_TRUE(writer->talk().waitFor('r'));
    }
    for (const auto& writer : writers) {
        writer->talk().tell('g');
    }
    for (const auto& writer : writers) {
        EXPECT_EQ(0, writer->wait());
    }

    std::map<int, std::uint32_t> countOfProcess;
    for (const TraceRecord& record : records()) {
        EXPECT_TRUE(isWhole(record));
        EXPECT_EQ(countOfProcess[record.entry.pid]++, record.entry.traceId);
    }
    EXPECT_EQ(static_cast<std::size_t>(processes), countOfProcess.size());
    for (const auto& [pid, count] : countOfProcess) {
        EXPECT_EQ(each, count);
    }
}

} // namespace
