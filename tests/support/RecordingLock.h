#pragma once

#include <qz/tavrel/LockObject.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>

namespace tavrel::test {

/// A lock that counts how often it is taken, and can be told to raise. By itself it excludes the threads of
/// this process; around another lock it passes everything on to that one.
class RecordingLock : public qz::tavrel::LockObject {
public:
    RecordingLock() = default;
    explicit RecordingLock(std::unique_ptr<qz::tavrel::LockObject> around) : inner(std::move(around)) {}

    std::atomic<int> taken{0};
    std::atomic<int> released{0};

    /// Called first in `writeLock`: let it throw, and the lock is not taken.
    std::function<void()> beforeLock;

    /// Called last in `writeUnlock`: let it throw, and the lock is free all the same.
    std::function<void()> afterUnlock;

    bool isHeld() const { return taken != released; }

    void writeLock() override {
        if (beforeLock) {
            beforeLock();
        }
        inner ? inner->writeLock() : mutex.lock();
        ++taken;
    }

    void writeUnlock() override {
        ++released;
        inner ? inner->writeUnlock() : mutex.unlock();
        if (afterUnlock) {
            afterUnlock();
        }
    }

    void readLock() override { writeLock(); }
    void readUnlock() override { writeUnlock(); }

private:
    std::unique_ptr<qz::tavrel::LockObject> inner;
    std::mutex mutex;
};

} // namespace tavrel::test
