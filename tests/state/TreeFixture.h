#pragma once

#include "Stores.h"

#include <qz/tavrel/LockObject.h>
#include <qz/tavrel/TreeConfig.h>

#include <gtest/gtest.h>

#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace tavrel::test {

using Ids = std::vector<int>;
using Calls = std::vector<std::string>;

constexpr int owned = 0;
constexpr int shared = 1;

/// Body of a tree's own value.
constexpr char marker[] = "11325013\n";

/// A lock of this process that writes its calls down among those of a store.
class RecordingLock : public qz::tavrel::LockObject {
public:
    explicit RecordingLock(Calls& list, bool* flag = nullptr) : calls(list), deleted(flag) {}
    ~RecordingLock() override {
        if (deleted != nullptr) {
            *deleted = true;
        }
    }

    std::function<void()> beforeLock;
    std::function<void()> beforeUnlock;

    void writeLock() override {
        if (beforeLock) {
            beforeLock();
        }
        mutex.lock();
        calls.emplace_back("writeLock");
    }
    void writeUnlock() override {
        calls.emplace_back("writeUnlock");
        mutex.unlock();
        if (beforeUnlock) {
            beforeUnlock();
        }
    }
    void readLock() override { calls.emplace_back("readLock"); }
    void readUnlock() override { calls.emplace_back("readUnlock"); }

private:
    Calls& calls;
    bool* deleted;
    std::mutex mutex;
};

/// Two views on one store; `lock` is the lock of the first one.
class TreeFixture : public testing::Test {
protected:
    TreeFixture() : lock(new RecordingLock(store.calls)) {
        tree.assign(&store, lock);
        other.assign(&store, new RecordingLock(store.calls));
    }

    static Ids targetsOf(qz::tavrel::TreeConfig& from, int src, int relation) {
        Ids out;
        from.get(src, out, relation);
        return out;
    }

    static Ids sourcesOf(qz::tavrel::TreeConfig& from, int dst) {
        Ids out;
        from.getSrcs(dst, out);
        return out;
    }

    static void refresh(qz::tavrel::TreeConfig& view) {
        view.lock();
        view.unlock();
    }

    /// Under the lock of `tree`.
    void change(const std::function<void()>& body) {
        tree.lock();
        body();
        tree.unlock();
    }

    RecordingStore store;
    RecordingLock* lock;
    qz::tavrel::TreeConfig tree;
    qz::tavrel::TreeConfig other;
};

} // namespace tavrel::test
