#include "support/TestClock.h"

#include <qz/base/ClockCounter.h>

#include <atomic>
#include <chrono>
#include <cstdint>

namespace {

std::atomic<bool> missing{false};
std::atomic<bool> stopped{false};
std::atomic<std::uint64_t> stoppedAt{0};

std::uint64_t running() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

} // namespace

bool ClockCounter::isAvail() const {
    return !missing;
}

std::uint64_t ClockCounter::getCounter() const {
    return stopped ? stoppedAt.load() : running();
}

std::uint64_t ClockCounter::calcCounter(int interval) const {
    return getCounter() + static_cast<std::uint64_t>(static_cast<std::int64_t>(interval));
}

namespace tavrel::test {

StoppedClock::StoppedClock() {
    stoppedAt = running();
    stopped = true;
}

StoppedClock::~StoppedClock() {
    stopped = false;
}

void StoppedClock::advance(int milliseconds) {
    stoppedAt += static_cast<std::uint64_t>(milliseconds);
}

MissingClock::MissingClock() {
    missing = true;
}

MissingClock::~MissingClock() {
    missing = false;
}

} // namespace tavrel::test
