#include "support/MemoryDatabase.h"
#include "support/TraceCapture.h"
#include "support/TreeFixture.h"

#include <qz/tavrel/ComponentClass.h>
#include <qz/tavrel/Initializer.h>
#include <qz/tavrel/PropertyLocator.h>
#include <qz/tavrel/TreeConfig.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <tuple>

using namespace qz::tavrel;
using namespace tavrel::test;

namespace {

constexpr std::size_t firstBuffer = 0x10000;
constexpr int bulkKey = 302;

using Bytes = std::vector<unsigned char>;

/// A store whose lock can be told to raise, and that can claim to have delivered more than it has.
class LockedDatabase : public MemoryDatabase {
public:
    std::function<void()> beforeLock;
    unsigned int claimed = 0;

    unsigned int readMethod(int key, int subkey, long offset, void* buffer, unsigned int size) override {
        const unsigned int delivered = MemoryDatabase::readMethod(key, subkey, offset, buffer, size);
        return std::max(delivered, claimed);
    }

    void lock() override {
        if (beforeLock) {
            beforeLock();
        }
        MemoryDatabase::lock();
    }
};

/// Keeps what the hook is offered; answers as it is told.
class LoggedInitializer : public Initializer {
public:
    /// Id of the visited component, -1 outside a walk; type; key; size; stored bytes.
    using Offer = std::tuple<int, int, int, unsigned int, std::size_t>;

    std::vector<int> visited;
    std::vector<Offer> offers;
    std::function<bool(Bytes&)> answer;

    bool doBottomUp(Component* component) override {
        visited.push_back(component->getComponentId());
        return Initializer::doBottomUp(component);
    }

    bool modifyProperty(int type, int key, unsigned int size, Bytes& data) override {
        const int id = getComponent() == nullptr ? -1 : getComponent()->getComponentId();
        offers.emplace_back(id, type, key, size, data.size());
        return answer ? answer(data) : Initializer::modifyProperty(type, key, size, data);
    }
};

/// A chassis 0 with boards 1 and 4, of which each has two sensors: 2 and 3, 5 and 6.
class InitializerTest : public testing::Test {
protected:
    LockedDatabase* const store = new LockedDatabase;
    TreeFixture tree{{store}};
    Component* const root = tree.root();
    LoggedInitializer initializer;

    /// The bytes that a component's property has in the store.
    std::string& stored(int id, int key) {
        return store->values["tavrel" + std::to_string(id + 3) + "." + std::to_string(key)];
    }

    bool isStored(int id, int key) const {
        return store->values.count("tavrel" + std::to_string(id + 3) + "." + std::to_string(key)) != 0;
    }

    /// Gives a type a class of its own properties.
    static void redefine(int type, const std::vector<std::pair<int, unsigned int>>& properties) {
        auto* const locator = new PropertyLocator;
        for (const auto& [key, size] : properties) {
            locator->addProperty(0, key, size);
        }
        auto* const made = new ComponentClass(type);
        made->setPropertyLocator(locator);
        ComponentClass::add(made);
    }
};

// --- zeroing ---

TEST_F(InitializerTest, GivesAllListedPropertiesZeros) {
    root->setProperty(speedKey, 17);
    root->setProperty(boundKey, 18);

    initializer.run(false);

    for (int id = 0; id < 7; ++id) {
        EXPECT_EQ(std::string(4, '\0'), stored(id, speedKey)) << id;
        EXPECT_EQ(std::string(8, '\0'), stored(id, labelKey)) << id;
    }
    EXPECT_EQ(18, root->getProperty(boundKey)); // it is not listed
    EXPECT_TRUE(initializer.offers.empty());
}

TEST_F(InitializerTest, VisitsChildrenBeforeTheirParentAndOwnedOnesOnly) {
    Component* const shared = TreeFixture::add(root, fan);
    Component::getComponent(1)->addComponent(shared);

    initializer.run(false);

    EXPECT_EQ((std::vector<int>{2, 3, 1, 5, 6, 4, 7, 0}), initializer.visited);
}

TEST_F(InitializerTest, PassesOverATypeWithoutAClassWhenZeroing) {
    Component* const strange = TreeFixture::add(root, undefined);

    initializer.run(false);

    EXPECT_EQ(8U, initializer.visited.size());
    EXPECT_FALSE(isStored(strange->getComponentId(), speedKey));
}

TEST_F(InitializerTest, SetsAPropertyOfNoSize) {
    redefine(fan, {{speedKey, 0}, {labelKey, 4}});
    Component* const added = TreeFixture::add(root, fan);
    const TraceCapture capture;

    initializer.initProperties(added);

    EXPECT_EQ(2U, capture.count(0x20112)); // it was set like the other one
    EXPECT_FALSE(isStored(added->getComponentId(), speedKey));
    EXPECT_EQ(std::string(4, '\0'), stored(added->getComponentId(), labelKey));
}

TEST_F(InitializerTest, ZeroesAPropertyThatIsLargerThanItsBuffer) {
    constexpr std::size_t large = firstBuffer + 5;
    redefine(fan, {{bulkKey, large}, {speedKey, 4}});
    Component* const added = TreeFixture::add(root, fan);
    const int id = added->getComponentId();
    stored(id, bulkKey) = std::string(large, 'x');

    initializer.initProperties(added);

    EXPECT_EQ(std::string(large, '\0'), stored(id, bulkKey));
    EXPECT_EQ(std::string(4, '\0'), stored(id, speedKey));
}

// --- fitting ---

TEST_F(InitializerTest, KeepsValuesThatFit) {
    initializer.run(false);
    store->values["tavrel3.10"] = std::string(4, 'b');
    for (int id = 1; id < 7; ++id) {
        stored(id, boundKey) = std::string(4, 'b');
    }
    root->setProperty(speedKey, 0x01020304);
    const int written = store->setCalls;

    initializer.run(true);

    EXPECT_EQ(written, store->setCalls);
    EXPECT_EQ(0x01020304, root->getProperty(speedKey));
}

TEST_F(InitializerTest, FillsAValueThatIsTooShortOnce) {
    root->setProperty(speedKey, 0x01020304);
    redefine(chassis, {{speedKey, 8}});

    initializer.modifyProperties(root);

    EXPECT_EQ(std::string("\1\2\3\4\0\0\0\0", 8), stored(0, speedKey));
    const int written = store->setCalls;
    initializer.modifyProperties(root);
    EXPECT_EQ(written, store->setCalls);
}

TEST_F(InitializerTest, CutsWhatIsReadOfAValueThatIsTooLong) {
    root->setProperty(labelKey, "12345678", 8);
    redefine(chassis, {{labelKey, 4}});

    initializer.modifyProperties(root);

    char bytes[8] = {};
    EXPECT_EQ(4, root->getProperty(labelKey, bytes, 8));
    EXPECT_EQ("1234", std::string(bytes));
}

TEST_F(InitializerTest, GivesAPropertyThatIsNotStoredYetZeros) {
    redefine(chassis, {{bulkKey, 6}});

    initializer.modifyProperties(root);

    EXPECT_EQ(std::string(6, '\0'), stored(0, bulkKey));
    EXPECT_EQ((LoggedInitializer::Offer{-1, chassis, bulkKey, 6U, 0U}), initializer.offers.front());
}

TEST_F(InitializerTest, FitsPropertiesThatAreBoundToTheirStoreToo) {
    initializer.modifyProperties(root);

    EXPECT_EQ(std::string(4, '\0'), stored(0, boundKey));
}

TEST_F(InitializerTest, LeavesAPropertyThatTheClassHasLostWhereItIs) {
    root->setProperty(speedKey, 0x01020304);
    redefine(chassis, {{labelKey, 8}});

    initializer.modifyProperties(root);

    EXPECT_EQ(std::string("\1\2\3\4"), stored(0, speedKey));
    EXPECT_EQ(1U, initializer.offers.size());
}

TEST_F(InitializerTest, OffersEachValueToTheHookWithItsComponent) {
    Component::getComponent(1)->setProperty(speedKey, 5);
    redefine(board, {{speedKey, 8}, {labelKey, 2}});

    initializer.run(true);

    const auto offersOf = [this](int id) {
        std::vector<LoggedInitializer::Offer> found;
        for (const LoggedInitializer::Offer& each : initializer.offers) {
            if (std::get<0>(each) == id) {
                found.push_back(each);
            }
        }
        return found;
    };
    EXPECT_EQ(
        (std::vector<LoggedInitializer::Offer>{{1, board, speedKey, 8U, 4U}, {1, board, labelKey, 2U, 0U}}),
        offersOf(1));
    EXPECT_EQ(
        (std::vector<LoggedInitializer::Offer>{{4, board, speedKey, 8U, 0U}, {4, board, labelKey, 2U, 0U}}),
        offersOf(4));
    EXPECT_EQ(3U, offersOf(0).size());
}

TEST_F(InitializerTest, StoresWhatTheHookMakesOfAValue) {
    redefine(chassis, {{speedKey, 4}});
    stored(0, speedKey) = "abcd";
    initializer.answer = [](Bytes& data) {
        data = {'w', 'x', 'y', 'z', 'v'};
        return true;
    };

    initializer.modifyProperties(root);

    EXPECT_EQ("wxyz", stored(0, speedKey)); // no more than the property holds
}

TEST_F(InitializerTest, StoresNothingWhenTheHookDeclines) {
    redefine(chassis, {{speedKey, 4}});
    stored(0, speedKey) = "ab";
    initializer.answer = [](Bytes& data) {
        data.assign(4, 'z');
        return false;
    };

    initializer.modifyProperties(root);

    EXPECT_EQ("ab", stored(0, speedKey));
}

TEST_F(InitializerTest, ReadsNoMoreOfAValueThanItsBufferHolds) {
    redefine(chassis, {{bulkKey, 4}});
    stored(0, bulkKey) = std::string(firstBuffer + 7, 'x');

    initializer.modifyProperties(root);

    EXPECT_EQ(firstBuffer, std::get<4>(initializer.offers.front()));
}

TEST_F(InitializerTest, ZeroesAlsoAfterItHasReadValues) {
    root->setProperty(labelKey, "wxyz1234", 8);
    initializer.run(true);

    initializer.run(false);

    EXPECT_EQ(std::string(8, '\0'), stored(0, labelKey));
}

TEST_F(InitializerTest, TakesNoMoreThanItsBufferFromAStoreThatClaimsMore) {
    redefine(chassis, {{labelKey, 8}});
    stored(0, labelKey) = "wxyz";
    store->claimed = 0x20000;

    initializer.run(true);

    ASSERT_FALSE(initializer.offers.empty());
    EXPECT_EQ(firstBuffer, std::get<4>(initializer.offers.back()));
    EXPECT_EQ("wxyz" + std::string(4, '\0'), stored(0, labelKey));
}

TEST_F(InitializerTest, KeepsItsBufferAsLargeAsItHasGrown) {
    redefine(fan, {{bulkKey, firstBuffer + 3}});
    Component* const added = TreeFixture::add(root, fan);
    initializer.initProperties(added);
    stored(added->getComponentId(), bulkKey) = std::string(firstBuffer + 7, 'x');

    initializer.modifyProperties(added);

    EXPECT_EQ(firstBuffer + 3, std::get<4>(initializer.offers.front()));
}

TEST_F(InitializerTest, PassesOverATypeWithoutAClassWhenFitting) {
    TreeFixture::add(root, undefined);

    initializer.run(true);

    EXPECT_EQ(8U, initializer.visited.size());
}

TEST_F(InitializerTest, PassesOverAClassWithoutProperties) {
    ComponentClass::add(new ComponentClass(undefined));
    TreeFixture::add(root, undefined);

    initializer.run(true);

    EXPECT_EQ(8U, initializer.visited.size());
}

TEST_F(InitializerTest, LeavesAPropertyOfNoSizeThatIsNotStored) {
    redefine(chassis, {{speedKey, 0}});

    initializer.modifyProperties(root);

    EXPECT_FALSE(isStored(0, speedKey));
}

TEST_F(InitializerTest, PassesOnWhatAStoreRaises) {
    store->beforeLock = [] { throw std::runtime_error("no store"); };

    EXPECT_THROW(initializer.modifyProperties(root), std::runtime_error);

    store->beforeLock = nullptr;
}

TEST_F(InitializerTest, EndsARunThatFitsAtAStoreThatRaises) {
    store->beforeLock = [&] {
        if (!initializer.visited.empty()) { // not yet in the look at the root
            throw std::runtime_error("no store");
        }
    };

    EXPECT_THROW(initializer.run(true), std::runtime_error);

    store->beforeLock = nullptr;
    EXPECT_EQ(std::vector<int>{2}, initializer.visited);
}

TEST_F(InitializerTest, ZeroesTheNextPropertyWhenAStoreRaises) {
    stored(0, labelKey) = "wxyz1234";
    store->beforeSet = [&] {
        store->beforeSet = nullptr;
        throw std::runtime_error("no store");
    };

    initializer.initProperties(root);

    EXPECT_FALSE(isStored(0, speedKey));
    EXPECT_EQ(std::string(8, '\0'), stored(0, labelKey));
}

TEST_F(InitializerTest, IsVisitedNowhereBeforeItsRun) {
    EXPECT_EQ(nullptr, Initializer().getComponent());
}

} // namespace
