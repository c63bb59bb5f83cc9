#include "Registry.h"

#include <algorithm>

using qz::tavrel::ResourceManager;
using namespace tavrel::test;

namespace {

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
    expectWords(capture, 0x30009, errorFlags, {0, 0});
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
    expectWords(capture, 0x30005, errorFlags, {5, 0});
    expectWords(capture, 0x30004, errorFlags, {6, 0});
    expectWords(capture, 0x30006, errorFlags, {0, 0});
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
        expectWords(capture, 0x30002, errorFlags, {0, 0});
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

} // namespace
