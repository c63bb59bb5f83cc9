#include "SmallTree.h"
#include "support/TraceCapture.h"

#include <qz/tavrel/QZException.h>
#include <qz/tavrel/ResourceManager.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <future>
#include <map>
#include <utility>
#include <vector>

using qz::tavrel::Resource;
using qz::tavrel::ResourceManager;
using qz::tavrel::TavrelException;
using namespace tavrel::test;

namespace {

using Redirects = std::map<int, int>;

/// A store that notes in `notes` when it is locked, unlocked and deleted.
class NotingStore : public MemoryDatabase {
public:
    NotingStore(std::vector<std::string>& list, std::string ownName)
        : notes(list), called(std::move(ownName)) {}
    ~NotingStore() override { notes.push_back("delete " + called); }

    void lock() override {
        notes.push_back("lock " + called);
        if (raising) {
            throw TavrelException("no lock");
        }
    }

    void unlock() override {
        notes.push_back("unlock " + called);
        if (raising) {
            throw TavrelException("no unlock");
        }
    }

    bool raising = false;

private:
    std::vector<std::string>& notes;
    std::string called;
};

class Registry : public testing::Test {
protected:
    ~Registry() override { manager.clear(); }

    static std::string prefixed(const std::string& text) {
        char prefix[32];
        std::snprintf(prefix, sizeof prefix, "[%5d.%5d] ", getpid(), gettid());
        return prefix + text;
    }

    static void expectText(const TraceCapture& capture, unsigned long id, int flags,
                           const std::string& text) {
        const auto records = capture.of(id);
        ASSERT_EQ(1U, records.size()) << std::hex << id;
        EXPECT_EQ(flags, records[0].flags);
        EXPECT_EQ(text, records[0].text());
    }

    static void expectWords(const TraceCapture& capture, unsigned long id, const std::vector<int>& words) {
        const auto records = capture.of(id);
        ASSERT_EQ(1U, records.size()) << std::hex << id;
        EXPECT_EQ(errorFlags, records[0].flags);
        EXPECT_EQ(words, records[0].arguments());
    }

    Redirects redirectsOf(const std::string& path) {
        Redirects found;
        manager.getRedirection(path, found);
        return found;
    }

    SmallTree tree; // outlives the registry under test, which is not the one of the process
    ResourceManager manager;
};

// --- the registry ---

TEST_F(Registry, IsOneForTheProcess) {
    EXPECT_EQ(ResourceManager::getInstance(), ResourceManager::getInstance());
}

TEST_F(Registry, NumbersStoresFrom0WithoutGaps) {
    auto* a = new MemoryDatabase;
    auto* b = new MemoryDatabase;

    EXPECT_EQ(0, manager.addResource("a", a));
    EXPECT_EQ(1, manager.addResource("b", b));

    EXPECT_EQ(a, manager.getResource(0));
    EXPECT_EQ(b, manager.getResource(1));
    EXPECT_EQ(1, manager.getResourceId("b"));
    EXPECT_EQ("b", manager.getResourceName(1));
    EXPECT_EQ("a", manager.getResourceName(a));
}

TEST_F(Registry, RefusesAnEmptyNameAndNoStore) {
    MemoryDatabase store;
    const TraceCapture capture;

    EXPECT_EQ(-1, manager.addResource("", &store));
    expectWords(capture, 0x30009, {0, 0});
    EXPECT_EQ(-1, manager.addResource("a", nullptr));

    EXPECT_EQ(2U, capture.count(0x30009));
    EXPECT_EQ(0, manager.addResource("a", new MemoryDatabase));
}

TEST_F(Registry, GivesTheOldIdForTheSamePair) {
    auto* a = new MemoryDatabase;
    manager.addResource("first", new MemoryDatabase);
    manager.addResource("a", a);
    const TraceCapture capture;

    EXPECT_EQ(1, manager.addResource("a", a));

    expectText(capture, 0x30001, infoFlags, prefixed("a is exist.\n"));
    EXPECT_EQ(2, manager.addResource("next", new MemoryDatabase));
}

TEST_F(Registry, RefusesANameThatAnotherStoreHas) {
    manager.addResource("a", new MemoryDatabase);
    MemoryDatabase other;
    const TraceCapture capture;

    EXPECT_EQ(-1, manager.addResource("a", &other));

    expectText(capture, 0x30007, errorFlags, prefixed("a is exist.\n"));
}

TEST_F(Registry, RefusesAStoreThatHasAnotherName) {
    auto* a = new MemoryDatabase;
    manager.addResource("a", a);
    const TraceCapture capture;

    EXPECT_EQ(-1, manager.addResource("b", a));

    expectText(capture, 0x30008, errorFlags, prefixed("a is exist.\n"));
}

TEST_F(Registry, ComparesEntryByEntryTheNameFirst) {
    auto* a = new MemoryDatabase;
    auto* b = new MemoryDatabase;
    manager.addResource("a", a);
    manager.addResource("b", b);
    const TraceCapture capture;

    EXPECT_EQ(-1, manager.addResource("b", a)); // entry 0 has the store, entry 1 the name

    EXPECT_EQ(1U, capture.count(0x30008));
    EXPECT_EQ(0U, capture.count(0x30007));
    EXPECT_EQ(-1, manager.addResource("a", b));
    EXPECT_EQ(1U, capture.count(0x30007));
}

TEST_F(Registry, AnswersWhatItDoesNotKnowNeutrallyAndWithARecord) {
    MemoryDatabase stranger;
    const TraceCapture capture;

    EXPECT_EQ(-1, manager.getResourceId("nobody"));
    EXPECT_EQ(nullptr, manager.getResource(5));
    EXPECT_EQ("", manager.getResourceName(6));
    EXPECT_EQ("", manager.getResourceName(&stranger));

    expectText(capture, 0x30000, debugFlags, prefixed("nobody is not found."));
    expectWords(capture, 0x30005, {5, 0});
    expectWords(capture, 0x30004, {6, 0});
    expectWords(capture, 0x30006, {0, 0});
}

TEST_F(Registry, DeletesItsStoresWhenItIsCleared) {
    std::vector<std::string> notes;
    manager.addResource("a", new NotingStore(notes, "a"));
    manager.addResource("b", new NotingStore(notes, "b"));
    manager.addRedirection("/A#0", 0, 1);

    manager.clear();

    EXPECT_EQ((std::vector<std::string>{"delete a", "delete b"}), notes);
    EXPECT_EQ(nullptr, manager.getResource(0));
    EXPECT_TRUE(redirectsOf("/A#0").empty());
    EXPECT_EQ(0, manager.addResource("c", new MemoryDatabase));
}

TEST_F(Registry, LeavesItsStoresWhenItIsDestroyed) {
    std::vector<std::string> notes;
    NotingStore store(notes, "a");
    {
        ResourceManager shortLived;
        shortLived.addResource("a", &store);
    }

    EXPECT_TRUE(notes.empty());
}

// --- redirections ---

TEST_F(Registry, PutsDeeperPathsAndGreaterTextsFirst) {
    const auto redirection = [](const std::string& path) {
        ResourceManager::Redirection made;
        made.path = path;
        made.depth = static_cast<int>(std::count(path.begin(), path.end(), '/'));
        return made;
    };
    const auto descends = [&](const std::string& a, const std::string& b) {
        return ResourceManager::path_descend(redirection(a), redirection(b));
    };

    EXPECT_TRUE(descends("/A/B", "/A"));
    EXPECT_FALSE(descends("/A", "/A/B"));
    EXPECT_TRUE(descends("/B", "/A"));
    EXPECT_FALSE(descends("/A", "/B"));
    EXPECT_FALSE(descends("/A", "/A"));
    EXPECT_TRUE(descends("/A#10", "/A#1"));
    EXPECT_TRUE(descends("/A/B", "/C"));  // both ways: by depth
    EXPECT_TRUE(descends("/C", "/A/B"));  // and by text
    EXPECT_TRUE(descends("/\xC3", "/z")); // as bytes
}

TEST_F(Registry, LetsTheDeepestRedirectionWinWhateverTheOrderOfAdding) {
    const std::vector<std::string> paths{"/A#0", "/A#0/B#0", "/A#0/B#0/C#0", "/M#0", "/Z#0/A#0", "/A#0/Z#9"};
    std::vector<std::size_t> order{0, 1, 2, 3, 4, 5};
    do {
        ResourceManager each;
        for (const std::size_t i : order) {
            each.addRedirection(paths[i], 0, static_cast<int>(i) + 1);
        }

        const std::pair<const char*, int> wanted[] = {
            {"/A#0", 1}, {"/A#0/B#0", 2}, {"/A#0/B#0/C#0/D#0", 3}, {"/A#0/Z#9", 6}, {"/M#0/B#0", 4}};
        for (const auto& [path, target] : wanted) {
            Redirects found;
            each.getRedirection(path, found);
            ASSERT_EQ((Redirects{{0, target}}), found) << path;
        }
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST_F(Registry, SurvivesManyRedirectionsInAnyOrder) {
    for (int i = 0; i < 200; ++i) {
        const int mixed = i * 37 % 200;
        std::string path = "/P#" + std::to_string(mixed);
        for (int depth = 0; depth < mixed % 5; ++depth) {
            path += "/C#" + std::to_string((mixed * 13 + depth) % 7);
        }
        manager.addRedirection(path, 0, i);
    }

    EXPECT_EQ(1U, redirectsOf("/P#5").size());
}

TEST_F(Registry, MatchesPathsAsPlainText) {
    manager.addRedirection("/A#1", 0, 5);

    EXPECT_EQ((Redirects{{0, 5}}), redirectsOf("/A#1"));
    EXPECT_EQ((Redirects{{0, 5}}), redirectsOf("/A#1/B#0"));
    EXPECT_EQ((Redirects{{0, 5}}), redirectsOf("/A#10"));
    EXPECT_EQ(Redirects{}, redirectsOf("/A#2"));
    EXPECT_EQ(Redirects{}, redirectsOf("/A#"));
    EXPECT_EQ(Redirects{}, redirectsOf(""));
}

TEST_F(Registry, AddsToWhatTheCallersMapHolds) {
    manager.addRedirection("/A#0", 0, 5);
    manager.addRedirection("/A#0", 1, 6);
    Redirects found{{0, 9}, {7, 8}};

    manager.getRedirection("/A#0", found);

    EXPECT_EQ((Redirects{{0, 9}, {1, 6}, {7, 8}}), found);
}

TEST_F(Registry, KeepsTheFirstOfTwoRedirectionsAlsoWithTheSameTarget) {
    for (const char* name : {"a", "b", "c"}) {
        manager.addResource(name, new MemoryDatabase);
    }
    manager.addRedirection("/A#0", 0, 1);
    {
        const TraceCapture capture;
        manager.addRedirection("/A#0", 0, 2);
        expectWords(capture, 0x30002, {0, 0});
        expectText(capture, 0x30003, errorFlags, "/A#0.a=b or c");
    }
    const TraceCapture capture;
    manager.addRedirection("/A#0", 0, 1);
    expectText(capture, 0x30003, errorFlags, "/A#0.a=b or b");

    EXPECT_EQ((Redirects{{0, 1}}), redirectsOf("/A#0"));
}

TEST_F(Registry, GivesTheStoreOfAPathWithoutKeepingTheAnswer) {
    auto* a = new MemoryDatabase;
    auto* b = new MemoryDatabase;
    manager.addResource("a", a);
    manager.addResource("b", b);

    EXPECT_EQ(a, manager.getResource("/A#0/B#0", 0));
    manager.addRedirection("/A#0", 0, 1);

    EXPECT_EQ(b, manager.getResource("/A#0/B#0", 0));
    EXPECT_EQ(b, manager.getResource("/A#0/B#0", 1));
    EXPECT_EQ(a, manager.getResource("/B#0", 0));
}

// --- components ---

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

// --- threads ---

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
