#include "lock/TreePathLocks.h"

#include <sys/shm.h>

#include <cstdlib>

namespace tavrel::test {

TreePathLockProvider* newProvider(int maxCount, bool shared) {
    auto* const provider = new TreePathLockProvider;
    provider->setConfiguration("tavrel.compo.shared", shared ? "enable" : "disable");
    provider->setConfiguration("tavrel.compo.max", std::to_string(maxCount));
    return provider;
}

TableView::TableView() {
    const int id = shmget(lockTableKey, 0, 0);
    void* const memory = shmat(id, nullptr, 0);
    shmid_ds state{};
    if (id == -1 || shmctl(id, IPC_STAT, &state) == -1) {
        ADD_FAILURE() << "no lock table";
        std::abort();
    }
    table = static_cast<LockTable*>(memory);
    length = static_cast<unsigned int>(state.shm_segsz);
}

TableView::~TableView() {
    shmdt(table);
}

std::vector<JournalEntry> TableView::journal() const {
    std::vector<JournalEntry> used;
    for (const JournalEntry& entry : table->journal) {
        if (entry.inUse != 0) {
            used.push_back(entry);
        }
    }
    return used;
}

std::vector<int> TableView::counters(int id) {
    const LockRecord& found = record(id);
    return {found.readers, found.writers, found.readersBeneath, found.writersBeneath, found.waitingBeneath};
}

std::vector<int> TableView::kinds(int id) {
    std::vector<int> found;
    for (const LockContext& holder : record(id).holders) {
        if (holder.pid != 0) {
            found.push_back(holder.kind);
        }
    }
    return found;
}

bool TableView::isUnmarked(int count) {
    for (int id = 0; id < count; ++id) {
        const auto* const first = reinterpret_cast<const unsigned char*>(&record(id));
        for (std::size_t i = 0; i < sizeof(LockRecord); ++i) {
            if (first[i] != 0) {
                return false;
            }
        }
    }
    return true;
}

namespace {

TreeParts lockedBy(qz::tavrel::ComponentLockProvider* provider) {
    TreeParts parts;
    parts.provider = provider;
    return parts;
}

} // namespace

LockedTree::LockedTree(bool shared)
    : machine(lockedBy(newProvider(TreeFixture::maxCount, shared))),
      provider(static_cast<TreePathLockProvider&>(*machine.provider)),
      root(machine.root(fan)),
      upper(TreeFixture::add(root, fan)),
      middle(TreeFixture::add(upper, fan)),
      leaf(TreeFixture::add(middle, fan)),
      otherLeaf(TreeFixture::add(middle, fan)),
      beside(TreeFixture::add(root, fan)) {
    provider.initialize();
}

Holder::Holder(qz::tavrel::ComponentLockProvider& provider, LockKind kind, Component* component)
    : child([&provider, kind, component](Talk& talk) {
          talk.tell('w');
          kind == LockKind::read ? provider.readLock(component) : provider.writeLock(component);
          talk.tell('h');
          talk.waitFor('g');
          kind == LockKind::read ? provider.readUnlock(component) : provider.writeUnlock(component);
          return 0;
      }) {
    child.talk().waitFor('w');
}

} // namespace tavrel::test
