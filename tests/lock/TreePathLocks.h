#pragma once

#include "lock/Expect.h"
#include "lock/LockTable.h"
#include "support/ChildProcess.h"
#include "support/TreeFixture.h"

#include <qz/tavrel/TreePathLockProvider.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace tavrel::test {

using qz::internal::JournalEntry;
using qz::internal::LockTable;
using qz::tavrel::Component;
using qz::tavrel::TreePathLockProvider;
using LockRecord = TreePathLockProvider::LockRecord;
using LockContext = TreePathLockProvider::LockContext;

constexpr int lockTableKey = 0x540000;

/// A provider with a table for `maxCount` components, not initialized yet.
TreePathLockProvider* newProvider(int maxCount, bool shared = true);

/// The shared lock table as it stands in memory, attached for as long as this lives.
class TableView {
public:
    TableView();
    ~TableView();
    TableView(const TableView&) = delete;
    TableView& operator=(const TableView&) = delete;

    LockTable* operator->() { return table; }
    unsigned char* bytes() { return reinterpret_cast<unsigned char*>(table); }
    LockRecord& record(int id) { return table->records()[id]; }
    unsigned int size() const { return length; }

    /// The journal entries in use, in the order of the table.
    std::vector<JournalEntry> journal() const;

    /// The first five bytes of a record: readers, writers, both beneath, waiting beneath.
    std::vector<int> counters(int id);

    /// The kinds of a record's holders, in their order.
    std::vector<int> kinds(int id);

    /// True if no component is marked in any way.
    bool isUnmarked(int count);

private:
    LockTable* table;
    unsigned int length;
};

/// A machine whose tree is locked through a shared table. Children of the test that are forked from now on
/// use the same tree and the same table.
///
///     root 0 -> upper -> middle -> leaf, otherLeaf
///            -> beside
class LockedTree {
public:
    explicit LockedTree(bool shared = true);

    TreeFixture machine;
    TreePathLockProvider& provider;
    Component* root;
    Component* upper;
    Component* middle;
    Component* leaf;
    Component* otherLeaf;
    Component* beside;
};

enum class LockKind { read, write };

/// Another process that takes one lock on one component, and gives it back when told to.
class Holder {
public:
    Holder(qz::tavrel::ComponentLockProvider& provider, LockKind kind, Component* component);

    /// Waits until the process holds its lock.
    void expectHeld() { EXPECT_TRUE(child.talk().waitFor('h')); }

    /// Waits until the process sleeps, and expects that it has no lock.
    void expectWaiting() {
        waitUntil([this] { return isAsleep(child.pid()); });
        EXPECT_FALSE(child.talk().hasMark(0));
    }

    /// Has the process give its lock back, and waits until it has ended.
    void release() {
        child.talk().tell('g');
        EXPECT_EQ(0, child.wait());
    }

    void kill() { child.kill(); }
    pid_t pid() const { return child.pid(); }

private:
    ChildProcess child;
};

} // namespace tavrel::test
