#pragma once

#include "SharedMemoryObjects.h"
#include "support/ChildProcess.h"

#include <qz/base/TraceRing.h>
#include <qz/base/trace.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

namespace tavrel::test {

constexpr int errorFlags = 0x8002;
constexpr int infoFlags = 0x8001;
constexpr int debugFlags = 0x0801;
constexpr int debug2Flags = 0x0001;

/// Writes one record of level error whose data is `data`.
inline int writeRecord(unsigned long traceId, const std::string& data = {}) {
    return qz_trace_write(13, errorFlags, 37, traceId, data.data(), static_cast<unsigned>(data.size()));
}

/// A ring that does not exist yet, and the default level. The test itself never writes, so that each of its
/// children opens the ring and reads the environment anew.
class TraceRingFixture : public testing::Test {
protected:
    void SetUp() override {
        unlink(qz::base::traceRingPath);
        unsetenv("QZ_TRACE_LEVEL");
    }

    /// Runs `body` to its end in a process of its own.
    static void inChild(const std::function<void()>& body) {
        ChildProcess child([&](Talk&) {
            body();
            return 0;
        });
        EXPECT_EQ(0, child.wait());
    }

    /// All records of the ring, oldest first.
    static std::vector<qz::base::TraceRecord> records() { return qz::base::TraceRingReader().read(); }

    /// Trace ids of all records, oldest first.
    static std::vector<std::uint64_t> traceIds() {
        std::vector<std::uint64_t> ids;
        for (const qz::base::TraceRecord& record : records()) {
            ids.push_back(record.entry.traceId);
        }
        return ids;
    }

    static std::string dataOf(const qz::base::TraceRecord& record) {
        return {reinterpret_cast<const char*>(record.entry.data), record.stored()};
    }
};

/// The ring as its writers see it, to be put into any state.
class WritableRing {
public:
    WritableRing() {
        const int file = open(qz::base::traceRingPath, O_RDWR | O_CLOEXEC);
        void* const address =
            mmap(nullptr, sizeof(qz::base::TraceRing), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        EXPECT_NE(MAP_FAILED, address);
        close(file);
        ring = static_cast<qz::base::TraceRing*>(address);
    }
    ~WritableRing() { munmap(ring, sizeof *ring); }
    WritableRing(const WritableRing&) = delete;
    WritableRing& operator=(const WritableRing&) = delete;

    qz::base::TraceRing* operator->() const { return ring; }

private:
    qz::base::TraceRing* ring;
};

} // namespace tavrel::test
