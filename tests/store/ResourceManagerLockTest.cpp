#include "Registry.h"

#include <chrono>
#include <future>

using qz::tavrel::TavrelException;
using namespace tavrel::test;

namespace {

class RegistryLock : public Registry {
protected:
    RegistryLock() {
        for (const char* name : {"a", "b", "c"}) {
            stores.push_back(new NotingStore(notes, name));
            manager.addResource(name, stores.back());
        }
    }

    ~RegistryLock() override { manager.clear(); }

    std::vector<std::string> notes;
    std::vector<NotingStore*> stores;
};

using Notes = std::vector<std::string>;

TEST_F(RegistryLock, LocksStoresInTheirOrderAndUnlocksThemInReverse) {
    manager.lock();
    EXPECT_EQ((Notes{"lock a", "lock b", "lock c"}), notes);
    notes.clear();

    manager.unlock();
    EXPECT_EQ((Notes{"unlock c", "unlock b", "unlock a"}), notes);
}

TEST_F(RegistryLock, LocksEachStoreOnceHoweverDeepAThreadIs) {
    manager.lock();
    manager.lock();
    manager.unlock();
    EXPECT_EQ((Notes{"lock a", "lock b", "lock c"}), notes);

    manager.unlock();
    EXPECT_EQ(6U, notes.size());

    manager.lock();
    manager.unlock();
    EXPECT_EQ(12U, notes.size());
}

TEST_F(RegistryLock, KeepsOtherThreadsOutUntilTheOutermostUnlock) {
    manager.lock();
    manager.lock();
    std::promise<void> started;
    auto other = std::async(std::launch::async, [&] {
        started.set_value();
        return manager.getResource(0);
    });
    started.get_future().wait();

    manager.unlock();
    EXPECT_EQ(std::future_status::timeout, other.wait_for(std::chrono::milliseconds(50)));

    manager.unlock();
    EXPECT_EQ(stores[0], other.get());
}

TEST_F(RegistryLock, IsFreeAgainWhenAStoreCannotBeLocked) {
    stores[1]->raising = true;

    EXPECT_THROW(manager.lock(), TavrelException);

    EXPECT_EQ((Notes{"lock a", "lock b", "unlock a"}), notes);
    auto other = std::async(std::launch::async, [&] { return manager.getResource(0); });
    EXPECT_EQ(stores[0], other.get());
    notes.clear();
    stores[1]->raising = false;
    manager.lock();
    manager.unlock();
    EXPECT_EQ(6U, notes.size());
}

TEST_F(RegistryLock, UnlocksAllStoresAlsoWhenOneRaises) {
    manager.lock();
    stores[1]->raising = true;
    notes.clear();

    EXPECT_NO_THROW(manager.unlock());

    EXPECT_EQ((Notes{"unlock c", "unlock b", "unlock a"}), notes);
}

TEST_F(RegistryLock, IgnoresAnUnlockTooMany) {
    manager.unlock();
    EXPECT_TRUE(notes.empty());

    manager.lock();
    EXPECT_EQ((Notes{"lock a", "lock b", "lock c"}), notes);
    manager.unlock();
}

} // namespace
