#include "TreeTest.h"

#include <qz/tavrel/PropertyLocator.h>
#include <qz/tavrel/QZException.h>

#include <cstring>

using namespace tavrel::test;
using namespace qz::tavrel;

namespace {

/// A table of properties that raises what it is told to.
class FailingLocator : public PropertyLocator {
public:
    std::function<void()> failure;

    unsigned int readProperty(int, int, long, void*, unsigned int) override { return fail(); }
    unsigned int writeProperty(int, int, long, const void*, unsigned int) override { return fail(); }
    void clearProperties(int) override { fail(); }

private:
    unsigned int fail() {
        failure();
        return 1;
    }
};

/// A table of properties that writes down what it is asked for.
class RecordingLocator : public PropertyLocator {
public:
    using Call = std::tuple<std::string, int, int, long, const void*, unsigned int>;
    std::vector<Call> calls;

    unsigned int readProperty(int id, int key, long offset, void* buffer, unsigned int size) override {
        calls.emplace_back("read", id, key, offset, buffer, size);
        return 3;
    }
    unsigned int writeProperty(int id, int key, long offset, const void* data, unsigned int size) override {
        calls.emplace_back("write", id, key, offset, data, size);
        return 2;
    }
};

class ComponentProperty : public TreeTest {
protected:
    /// Text key of a property in the store.
    static std::string keyOf(int id, int key) {
        return "tavrel" + std::to_string(id + 3) + "." + std::to_string(key);
    }

    /// A component of a class that has `locator`.
    template <typename Locator>
    Component* makeWith(Locator* locator) {
        constexpr int special = 20;
        auto* const made = new ComponentClass(special);
        made->setPropertyLocator(locator);
        ComponentClass::add(made);
        return TreeFixture::add(root, special);
    }
};

} // namespace

// --- bytes ---

TEST_F(ComponentProperty, IsStoredUnderComponentAndKey) {
    const char data[] = {1, 2, 3, 4, 5, 6, 7, 8};

    EXPECT_EQ(8, at(4)->setProperty(labelKey, data, sizeof data));

    EXPECT_EQ(std::string(data, 8), store->values.at("tavrel7.301"));
    char read[8] = {};
    EXPECT_EQ(8, at(4)->getProperty(labelKey, read, sizeof read));
    EXPECT_EQ(0, std::memcmp(data, read, sizeof data));
}

TEST_F(ComponentProperty, IsReachedInParts) {
    EXPECT_EQ(8, at(4)->setProperty(labelKey, "abcdefgh", 8));

    EXPECT_EQ(2, at(4)->setProperty(labelKey, 3, "XY", 2));

    char read[4] = {};
    EXPECT_EQ(3, at(4)->getProperty(labelKey, 2, read, 3));
    EXPECT_STREQ("cXY", read);
}

TEST_F(ComponentProperty, HandsAllArgumentsOn) {
    auto* const locator = new RecordingLocator;
    Component* const component = makeWith(locator);
    const int id = component->getComponentId();
    char buffer[4];

    EXPECT_EQ(3, component->getProperty(5, 6, buffer, 4));
    EXPECT_EQ(3, component->getProperty(5, buffer, 3));
    EXPECT_EQ(2, component->setProperty(7, 8, buffer, 2));
    EXPECT_EQ(2, component->setProperty(7, buffer, 1));

    const std::vector<RecordingLocator::Call> expected{{"read", id, 5, 6, buffer, 4},
                                                       {"read", id, 5, 0, buffer, 3},
                                                       {"write", id, 7, 8, buffer, 2},
                                                       {"write", id, 7, 0, buffer, 1}};
    EXPECT_EQ(expected, locator->calls);
}

TEST_F(ComponentProperty, OfAWholeNumberStandsMostSignificantByteFirst) {
    EXPECT_EQ(4, at(4)->setProperty(speedKey, 0x01020384));

    EXPECT_EQ(std::string("\1\2\3\x84", 4), store->values.at(keyOf(4, speedKey)));
    EXPECT_EQ(0x01020384, at(4)->getProperty(speedKey));
    at(4)->setProperty(speedKey, -2);
    EXPECT_EQ(std::string("\xff\xff\xff\xfe", 4), store->values.at(keyOf(4, speedKey)));
    EXPECT_EQ(-2, at(4)->getProperty(speedKey));
}

TEST_F(ComponentProperty, OfAWholeNumberIsFilledWithZerosWhenItIsShort) {
    store->values[keyOf(4, speedKey)] = "\1\2";

    EXPECT_EQ(0x01020000, at(4)->getProperty(speedKey));
}

TEST_F(ComponentProperty, IsZeroWhenItWasNeverWritten) {
    EXPECT_EQ(0, at(4)->getProperty(speedKey));
    char read[8] = "unread";
    EXPECT_EQ(8, at(4)->getProperty(labelKey, read, sizeof read));
    EXPECT_EQ(std::string(8, '\0'), std::string(read, 8));
}

// --- traces ---

TEST_F(ComponentProperty, IsTracedWhenItIsReadAndWritten) {
    at(4)->readLock();
    at(4)->readLock();
    at(4)->writeLock();
    const TraceCapture trace;

    at(4)->getProperty(speedKey);
    at(4)->setProperty(speedKey, 1);

    for (const unsigned long point : {0x20110UL, 0x20112UL}) {
        const auto records = trace.of(point);
        ASSERT_EQ(1U, records.size());
        EXPECT_EQ(debugFlags, records[0].flags);
        EXPECT_EQ((Words{4, speedKey, 2, 1, 0, 0}), records[0].arguments());
    }
}

// --- what is missing ---

TEST_F(ComponentProperty, IsZeroWhenTheClassHasNone) {
    char untouched[4] = "abc";
    const TraceCapture trace;

    EXPECT_EQ(0, at(4)->getProperty(999));
    EXPECT_EQ(0, at(4)->getProperty(999, untouched, 3));
    EXPECT_EQ(0, at(4)->setProperty(999, 5));

    EXPECT_STREQ("abc", untouched);
    ASSERT_EQ(2U, trace.count(0x20111));
    EXPECT_EQ(debugFlags, trace.of(0x20111)[0].flags);
    EXPECT_EQ((Words{4, 999, 0, 0, 0, 0}), trace.of(0x20111)[0].arguments());
    ASSERT_EQ(1U, trace.count(0x20113));
    EXPECT_EQ(errorFlags, trace.of(0x20113)[0].flags);
    EXPECT_EQ((Words{4, 999, 0, 0, 0, 0}), trace.of(0x20113)[0].arguments());
}

TEST_F(ComponentProperty, IsZeroWhenTheOffsetIsOutside) {
    EXPECT_EQ(0, at(4)->setProperty(labelKey, 8, "x", 1));
    EXPECT_EQ(0, at(4)->setProperty(labelKey, -1, "x", 1));
    char read = 0;
    EXPECT_EQ(0, at(4)->getProperty(labelKey, 8, &read, 1));
}

TEST_F(ComponentProperty, IsZeroWithoutAClass) {
    Component* const lone = TreeFixture::add(root, undefined);
    const int id = lone->getComponentId();
    const TraceCapture trace;

    EXPECT_EQ(0, lone->getProperty(speedKey));
    EXPECT_EQ(0, lone->setProperty(speedKey, 5));

    ASSERT_EQ(1U, trace.count(0x2011d));
    EXPECT_EQ(errorFlags, trace.of(0x2011d)[0].flags);
    EXPECT_EQ((Words{id, speedKey, undefined, 0, 0, 0}), trace.of(0x2011d)[0].arguments());
    ASSERT_EQ(1U, trace.count(0x2011e));
    EXPECT_EQ(errorFlags, trace.of(0x2011e)[0].flags);
    EXPECT_EQ((Words{id, speedKey, undefined, 0, 0, 0}), trace.of(0x2011e)[0].arguments());
    EXPECT_EQ(0U, store->values.count(keyOf(id, speedKey)));
}

TEST_F(ComponentProperty, IsZeroWithoutATableOfProperties) {
    Component* const bare = makeWith<PropertyLocator>(nullptr);
    Ids keys;

    EXPECT_EQ(0, bare->getProperty(speedKey));
    EXPECT_EQ(0, bare->setProperty(speedKey, 5));
    EXPECT_EQ(0U, bare->getPropertySize(speedKey));
    bare->getPropertyKeys(keys);
    EXPECT_EQ((Ids{}), keys);
    EXPECT_NO_THROW(bare->deleteComponent());
}

// --- failures ---

TEST_F(ComponentProperty, IsZeroWhateverTheStorageRaises) {
    auto* const locator = new FailingLocator;
    Component* const component = makeWith(locator);
    const std::vector<std::function<void()>> failures{
        [] { throw TavrelException("storage"); }, [] { throw UnavailableComponentException("storage"); },
        [] { throw std::runtime_error("storage"); },
        [] { throw 5; }, // NOLINT(misc-throw-by-value-catch-by-reference)
    };
    for (const auto& failure : failures) {
        locator->failure = failure;
        const TraceCapture trace;
        char untouched[2] = "a";

        EXPECT_EQ(0, component->getProperty(speedKey, untouched, 1));
        EXPECT_EQ(0, component->setProperty(speedKey, 5));

        EXPECT_STREQ("a", untouched);
        EXPECT_EQ(1U, trace.count(0x20111));
        EXPECT_EQ(1U, trace.count(0x20113));
        EXPECT_EQ(0, config->accessDepth());
    }
    locator->failure = [] {};
}

TEST_F(ComponentProperty, IsZeroWhenTheStoreFails) {
    store->beforeGet = [] { throw std::runtime_error("disk"); };
    root->readLock(); // no refresh, which would look into the store as well
    EXPECT_EQ(0, at(4)->getProperty(speedKey));
    store->beforeGet = nullptr;
    store->beforeSet = [] { throw std::runtime_error("disk"); };

    EXPECT_EQ(0, at(4)->setProperty(speedKey, 5));

    store->beforeSet = nullptr;
}

TEST_F(ComponentProperty, RefusesAChangedNodeOnceAndTouchesNoStore) {
    at(4)->setProperty(speedKey, 3);
    changeElsewhere(4, board, 8);
    const int sets = store->setCalls;

    EXPECT_EQ(revisionChanged, faultText([&] { at(4)->setProperty(speedKey, 5); }));
    EXPECT_EQ(sets, store->setCalls);
    EXPECT_EQ(0, config->accessDepth());
    EXPECT_EQ(4, at(4)->setProperty(speedKey, 5));

    changeElsewhere(4, board, 9);
    EXPECT_EQ(revisionChanged, faultText([&] { at(4)->getProperty(speedKey); }));
    EXPECT_EQ(0, config->accessDepth());
    EXPECT_EQ(5, at(4)->getProperty(speedKey));
}

TEST_F(ComponentProperty, TracesTheChangeOfTheNode) {
    const int before = at(4)->getRevision();
    const int after = changeElsewhere(4, board, 8);
    const TraceCapture trace;

    faultText([&] { at(4)->getProperty(speedKey); });

    ASSERT_EQ(1U, trace.count(0x2011a));
    EXPECT_EQ(infoFlags, trace.of(0x2011a)[0].flags);
    EXPECT_EQ((Words{4, before, after, 0, 0, 0}), trace.of(0x2011a)[0].arguments());
    ASSERT_EQ(2U, trace.all().size());
    EXPECT_EQ(0x20110U, trace.all()[0].id) << "the access comes first";
}

// --- keys and sizes ---

TEST_F(ComponentProperty, IsListedFromKey256On) {
    auto* const locator = new PropertyLocator;
    for (const int key : {-300, 0, 255, 256, 300}) {
        locator->addProperty(0, key, 4);
    }
    Component* const component = makeWith(locator);
    Ids keys;

    component->getPropertyKeys(keys);

    EXPECT_EQ((Ids{256, 300}), keys);
}

TEST_F(ComponentProperty, ListTakesOutSmallKeysThatTheCallerPutIn) {
    Ids keys{5, 300};

    at(4)->getPropertyKeys(keys);

    EXPECT_EQ((Ids{300, speedKey, labelKey}), keys);
}

TEST_F(ComponentProperty, ListIsLeftAloneWithoutAClass) {
    Component* const lone = TreeFixture::add(root, undefined);
    Ids keys{5, 300};
    const TraceCapture trace;

    lone->getPropertyKeys(keys);

    EXPECT_EQ((Ids{5, 300}), keys);
    EXPECT_TRUE(trace.all().empty());
}

TEST_F(ComponentProperty, WithASmallKeyIsReachedThoughItIsNotListed) {
    EXPECT_EQ(4, at(4)->setProperty(boundKey, 17));
    EXPECT_EQ(17, at(4)->getProperty(boundKey));
}

TEST_F(ComponentProperty, HasASize) {
    Component* const lone = TreeFixture::add(root, undefined);
    const TraceCapture trace;

    EXPECT_EQ(8U, at(4)->getPropertySize(labelKey));
    EXPECT_EQ(0U, lone->getPropertySize(labelKey));
    EXPECT_TRUE(trace.all().empty());
    EXPECT_EQ(0U, at(4)->getPropertySize(999));
}

// --- clearing ---

TEST_F(ComponentProperty, IsClearedWithoutASectionOfItsOwn) {
    at(4)->setProperty(speedKey, 3);
    at(4)->setProperty(boundKey, 4);

    EXPECT_EQ(0, taken([&] { at(4)->clearProperties(); }));

    EXPECT_EQ(0, at(4)->getProperty(speedKey));
    EXPECT_EQ(4, at(4)->getProperty(boundKey));
}

TEST_F(ComponentProperty, CannotBeClearedWithoutAClass) {
    Component* const lone = TreeFixture::add(root, undefined);
    const TraceCapture trace;

    lone->clearProperties();

    ASSERT_EQ(1U, trace.all().size());
    EXPECT_EQ(0x2011cU, trace.all()[0].id);
    EXPECT_EQ(errorFlags, trace.all()[0].flags);
    EXPECT_EQ((Words{lone->getComponentId(), undefined}), trace.all()[0].arguments());
}

TEST_F(ComponentProperty, FailsToBeClearedWithATraceAlone) {
    auto* const locator = new FailingLocator;
    Component* const component = makeWith(locator);
    component->readLock();
    for (const auto& failure : std::vector<std::function<void()>>{
             [] { throw TavrelException("storage"); },
             [] { throw 5; }, // NOLINT(misc-throw-by-value-catch-by-reference)
         }) {
        locator->failure = failure;
        const TraceCapture trace;

        EXPECT_NO_THROW(component->clearProperties());

        ASSERT_EQ(1U, trace.all().size());
        EXPECT_EQ(0x2010fU, trace.all()[0].id);
        EXPECT_EQ(errorFlags, trace.all()[0].flags);
        EXPECT_EQ((Words{component->getComponentId(), 1, 0, 0, 0, 0}), trace.all()[0].arguments());
    }
    locator->failure = [] {};
}
