#include "KernelStandIns.h"
#include "Registry.h"

#include <chrono>
#include <functional>
#include <future>

using qz::tavrel::Resource;
using qz::tavrel::ResourceManager;
using qz::tavrel::TavrelException;
using namespace tavrel::test;

namespace {

/// "/A#0/B#0/C#0", with the ids 0, 1 and 2, and three stores.
class RegistryOfTree : public Registry {
protected:
    RegistryOfTree() {
        tree.add("A", 0, -1);
        tree.add("B", 0, 0);
        tree.add("C", 0, 1);
        manager.addResource("first", stores[0]);
        manager.addResource("second", stores[1]);
        manager.addResource("third", stores[2]);
    }

    MemoryDatabase* stores[3] = {new MemoryDatabase, new MemoryDatabase, new MemoryDatabase};
};

TEST_F(RegistryOfTree, GivesAComponentTheTargetOfTheDeepestRedirectionAboveIt) {
    manager.addRedirection("/A#0", 0, 1);
    manager.addRedirection("/A#0/B#0", 0, 2);

    EXPECT_EQ(stores[1], manager.getResource(0, 0));
    EXPECT_EQ(stores[2], manager.getResource(1, 0));
    EXPECT_EQ(stores[2], manager.getResource(2, 0));
    EXPECT_EQ(stores[1], manager.getResource(2, 1));
}

TEST_F(RegistryOfTree, KeepsItsAnswerAboutAComponentUntilAnUpdate) {
    EXPECT_EQ(stores[0], manager.getResource(2, 0));

    manager.addRedirection("/A#0", 0, 1);
    EXPECT_EQ(stores[0], manager.getResource(2, 0));
    EXPECT_EQ(stores[1], manager.getResource(1, 0));

    manager.update();
    EXPECT_EQ(stores[1], manager.getResource(2, 0));
}

TEST_F(RegistryOfTree, AsksTheTreeOnceAboutAComponent) {
    int lookups = 0;
    tree.names->asked = [&] { ++lookups; };

    manager.getResource(2, 0);
    EXPECT_EQ(3, lookups);
    manager.getResource(2, 0);
    manager.getResource(2, 1);

    EXPECT_EQ(3, lookups);
}

TEST_F(RegistryOfTree, AnswersAgainWithoutAnAllocation) {
    manager.addRedirection("/A#0", 0, 1);
    manager.getResource(2, 0);
    const std::size_t before = allocationCount();

    Resource* const answer = manager.getResource(2, 0);

    EXPECT_EQ(before, allocationCount());
    EXPECT_EQ(stores[1], answer);
}

TEST_F(RegistryOfTree, UpdatesOnEvent0Alone) {
    manager.getResource(2, 0);
    manager.addRedirection("/A#0", 0, 1);

    manager.update(tree.config, 1);
    EXPECT_EQ(stores[0], manager.getResource(2, 0));

    manager.update(tree.config, 0);
    EXPECT_EQ(stores[1], manager.getResource(2, 0));
}

TEST_F(RegistryOfTree, CountsARedirectionBeforeItsOwnerHasBeenLookedFor) {
    manager.addRedirection("/A#0/B#0/D#0", 0, 1);

    EXPECT_EQ((Redirects{{0, 1}}), redirectsOf("/A#0/B#0/D#0/E#0"));

    manager.evaluateOwners();
    EXPECT_EQ(Redirects{}, redirectsOf("/A#0/B#0/D#0/E#0"));
}

TEST_F(RegistryOfTree, IgnoresARedirectionWithoutAnOwner) {
    manager.addRedirection("/A#0/B#1", 0, 1);
    manager.addRedirection("/A#0/B#0/", 0, 1); // begins the path of the component, but is no path itself
    EXPECT_EQ(stores[1], manager.getResource(2, 0));

    manager.update();

    EXPECT_EQ(stores[0], manager.getResource(2, 0));
}

TEST_F(RegistryOfTree, CountsARedirectionAgainOnceItsOwnerIsThere) {
    manager.addRedirection("/A#0/D#0", 0, 1);
    manager.update();
    EXPECT_EQ(Redirects{}, redirectsOf("/A#0/D#0"));

    const int id = tree.add("D", 0, 0);
    manager.update();

    EXPECT_EQ(stores[1], manager.getResource(id, 0));
}

TEST_F(RegistryOfTree, UpdatesWithTheTreeThatItListensTo) {
    tree.config->addListener(&manager);
    manager.addRedirection("/A#0/D#0", 0, 1);
    manager.update();
    EXPECT_EQ(Redirects{}, redirectsOf("/A#0/D#0"));

    const int id = tree.add("D", 0, 0);

    EXPECT_EQ(stores[1], manager.getResource(id, 0));
}

TEST_F(RegistryOfTree, PassesOnTheFaultOfABadIdAndStaysUsable) {
    EXPECT_THROW(manager.getResource(-1, 0), TavrelException);
    EXPECT_THROW(manager.getResource(100, 0), TavrelException);

    auto other = std::async(std::launch::async, [&] { return manager.getResource(0); });
    EXPECT_EQ(stores[0], other.get());
}

TEST_F(RegistryOfTree, LeavesARedirectionOffWhenTheTreeRaises) {
    manager.addRedirection("/A#0", 0, 1);
    class RaisingNames : public qz::tavrel::NameResolver {
        int getComponentType(const std::string& /*name*/) override { throw TavrelException("no names"); }
    } raising;
    qz::tavrel::Component::setNameResolver(&raising);

    EXPECT_THROW(manager.evaluateOwners(), TavrelException);

    qz::tavrel::Component::setNameResolver(tree.names);
    EXPECT_EQ(Redirects{}, redirectsOf("/A#0"));
    auto other = std::async(std::launch::async, [&] { return manager.getResource(0); });
    EXPECT_EQ(stores[0], other.get());
}

constexpr auto patience = std::chrono::seconds(20);

/// Lets `inside` run in this thread while another one asks the tree about component 2.
void whileTreeIsAsked(ResourceManager& manager, SmallTree& tree, const std::function<void()>& inside) {
    std::promise<void> asking;
    std::promise<void> done;
    std::future<void> answered = done.get_future();
    bool first = true;
    tree.names->asked = [&] {
        if (std::exchange(first, false)) {
            asking.set_value();
            EXPECT_EQ(std::future_status::ready, answered.wait_for(patience)) << "the registry was locked";
        }
    };
    auto asker = std::async(std::launch::async, [&] { return manager.getResource(2, 0); });
    ASSERT_EQ(std::future_status::ready, asking.get_future().wait_for(patience));

    inside();

    done.set_value();
    asker.get();
    tree.names->asked = nullptr;
}

TEST_F(RegistryOfTree, DoesNotHoldItsMutexWhileItAsksTheTree) {
    whileTreeIsAsked(manager, tree, [&] { EXPECT_EQ(stores[0], manager.getResource(0)); });
}

TEST_F(RegistryOfTree, KeepsNoAnswerThatWasWorkedOutWhileTheTreeChanged) {
    whileTreeIsAsked(manager, tree, [&] { manager.update(); });

    manager.addRedirection("/A#0", 0, 1);

    EXPECT_EQ(stores[1], manager.getResource(2, 0));
}

} // namespace
