#include "SmallTree.h"
#include "support/FaultText.h"
#include "support/TraceExpect.h"

#include <qz/tavrel/PropertyLocator.h>
#include <qz/tavrel/ResourceManager.h>

#include <gtest/gtest.h>

#include <climits>
#include <stdexcept>

using qz::tavrel::PropertyAccessor;
using qz::tavrel::PropertyLocator;
using qz::tavrel::ResourceManager;
using namespace tavrel::test;

namespace {

constexpr int component = 7; // its stored key is 10
constexpr int bound = 5;     // below 256: stays in its store
constexpr int moving = 300;

/// A locator with a property of 4 bytes under each of the two keys, in the store "db", and a component
/// "/Root#0/Part#0" whose id is 7.
class Locator : public testing::Test {
protected:
    Locator() {
        tree.add("Root", 0, -1);
        for (int id = 1; id < component; ++id) {
            tree.add("Other", id, 0);
        }
        tree.add("Part", 0, 0);
        locator.addProperty(dbId, bound, 4);
        locator.addProperty(dbId, moving, 4);
    }

    /// Lets "spare" stand in place of "db" for the component.
    void redirect() { manager->addRedirection("/Root#0/Part#0", dbId, spareId); }

    SmallTree tree;
    ResourceManager* manager = ResourceManager::getInstance();
    MemoryDatabase* db = new MemoryDatabase;
    MemoryDatabase* spare = new MemoryDatabase;
    int dbId = manager->addResource("db", db);
    int spareId = manager->addResource("spare", spare);
    PropertyLocator locator;
    char buffer[9] = "........";
};

TEST_F(Locator, ReadsUnderTheComponentIdPlus3AndTheKey) {
    db->values["tavrel10.300"] = "1234";

    const unsigned int result = locator.readProperty(component, moving, 1, buffer, 2);

    EXPECT_EQ(2U, result);
    EXPECT_STREQ("23......", buffer);
    EXPECT_EQ(1, db->lockCalls);
    EXPECT_EQ(1, db->unlockCalls);
}

TEST_F(Locator, ReadsZerosOfAPropertyNeverWritten) {
    const unsigned int result = locator.readProperty(component, moving, 0, buffer, 4);

    EXPECT_EQ(4U, result);
    EXPECT_EQ(std::string("\0\0\0\0....", 8), std::string(buffer, 8));
}

TEST_F(Locator, ReadsAsManyZerosAsAskedForAlsoPastTheProperty) {
    const unsigned int result = locator.readProperty(component, moving, 2, buffer, 8);

    EXPECT_EQ(8U, result);
    EXPECT_EQ(std::string(8, '\0'), std::string(buffer, 8));
}

TEST_F(Locator, ReadsAStoredValueThatEndsEarlyAsItIs) {
    db->values["tavrel10.300"] = "12";

    const unsigned int result = locator.readProperty(component, moving, 0, buffer, 4);

    EXPECT_EQ(2U, result);
    EXPECT_STREQ("12......", buffer);
}

TEST_F(Locator, ReadsZerosFromTheStoredEndOn) {
    db->values["tavrel10.300"] = "12";

    EXPECT_EQ(2U, locator.readProperty(component, moving, 2, buffer, 2));
    EXPECT_EQ(1U, locator.readProperty(component, moving, 3, buffer + 4, 1));

    EXPECT_EQ(std::string("\0\0..\0...", 8), std::string(buffer, 8));
}

TEST_F(Locator, ReadsNoFurtherThanThePropertyGoes) {
    db->values["tavrel10.300"] = "12345678";

    const unsigned int result = locator.readProperty(component, moving, 3, buffer, 4);

    EXPECT_EQ(1U, result);
    EXPECT_STREQ("4.......", buffer);
}

TEST_F(Locator, LeavesTheBufferWhenTheStoreFails) {
    db->beforeGet = [] { throw 42; };

    const unsigned int result = locator.readProperty(component, moving, 0, buffer, 4);

    EXPECT_EQ(0U, result);
    EXPECT_STREQ("........", buffer);
    EXPECT_EQ(1, db->unlockCalls);
}

TEST_F(Locator, RefusesAnOffsetBelow0) {
    const TraceCapture capture;

    EXPECT_EQ("FAULT at PropertyLocator(LINE): getSize() Invalid param.",
              faultText([&] { locator.readProperty(component, moving, -1, buffer, 1); }));

    expectWords(capture, 0x20201, errorFlags, {-1, 0});
    EXPECT_EQ(0, db->lockCalls);
}

TEST_F(Locator, RefusesAnOffsetAtTheEndOfTheProperty) {
    const TraceCapture capture;

    EXPECT_EQ("FAULT at PropertyLocator(LINE): getSize() Invalid param.",
              faultText([&] { locator.readProperty(component, moving, 4, buffer, 1); }));

    expectWords(capture, 0x20202, errorFlags, {4, 4});
    EXPECT_EQ(0, db->lockCalls);
}

TEST_F(Locator, RefusesToWriteAtABadOffset) {
    EXPECT_EQ("FAULT at PropertyLocator(LINE): getSize() Invalid param.",
              faultText([&] { locator.writeProperty(component, moving, -1, "x", 1); }));
    EXPECT_EQ("FAULT at PropertyLocator(LINE): getSize() Invalid param.",
              faultText([&] { locator.writeProperty(component, moving, LONG_MAX, "x", 1); }));

    EXPECT_EQ(0, db->lockCalls);
}

TEST_F(Locator, RefusesAnyOffsetOfAPropertyOfSize0) {
    locator.addProperty(dbId, 301, 0);

    EXPECT_EQ("FAULT at PropertyLocator(LINE): getSize() Invalid param.",
              faultText([&] { locator.readProperty(component, 301, 0, buffer, 1); }));
    EXPECT_EQ("FAULT at PropertyLocator(LINE): getSize() Invalid param.",
              faultText([&] { locator.writeProperty(component, 301, 0, "x", 1); }));
}

TEST_F(Locator, WritesUnderTheComponentIdPlus3AndTheKey) {
    const unsigned int result = locator.writeProperty(component, moving, 0, "1234", 4);

    EXPECT_EQ(4U, result);
    EXPECT_EQ("1234", db->values["tavrel10.300"]);
    EXPECT_EQ(1, db->lockCalls);
    EXPECT_EQ(1, db->unlockCalls);
}

TEST_F(Locator, CutsAWriteAtTheEndOfTheProperty) {
    EXPECT_EQ(4U, locator.writeProperty(component, moving, 0, "12345678", 8));
    EXPECT_EQ("1234", db->values["tavrel10.300"]);

    EXPECT_EQ(1U, locator.writeProperty(component, moving, 3, "abcd", 4));
    EXPECT_EQ("123a", db->values["tavrel10.300"]);
}

TEST_F(Locator, AnswersAFailedWriteWith0) {
    db->beforeSet = [] { throw 42; };

    EXPECT_EQ(0U, locator.writeProperty(component, moving, 0, "1234", 4));

    EXPECT_EQ(1, db->unlockCalls);
}

TEST_F(Locator, ReadsStoredBytesPastThePropertyOnlyAsRawData) {
    db->values["tavrel10.300"] = "123456";

    EXPECT_EQ(4U, locator.readProperty(component, moving, 0, buffer, 8));
    EXPECT_STREQ("1234....", buffer);
    EXPECT_EQ(6U, locator.readData(component, moving, buffer, 8));
    EXPECT_STREQ("123456..", buffer);
    EXPECT_EQ(2, db->lockCalls);
    EXPECT_EQ(2, db->unlockCalls);
}

TEST_F(Locator, GivesNoRawDataOfAPropertyNeverWritten) {
    EXPECT_EQ(0U, locator.readData(component, moving, buffer, 8));

    EXPECT_STREQ("........", buffer);
}

TEST_F(Locator, FollowsTheRedirectionsForKeysFrom256On) {
    locator.addProperty(dbId, 256, 4);
    redirect();

    locator.writeProperty(component, moving, 0, "1234", 4);
    locator.writeProperty(component, 256, 0, "5678", 4);

    EXPECT_TRUE(db->values.empty());
    EXPECT_EQ("1234", spare->values["tavrel10.300"]);
    EXPECT_EQ("5678", spare->values["tavrel10.256"]);
    EXPECT_EQ(4U, locator.readProperty(component, moving, 0, buffer, 4));
    EXPECT_STREQ("1234....", buffer);
    EXPECT_EQ(4U, locator.readData(component, moving, buffer + 4, 4));
    EXPECT_STREQ("12341234", buffer);
}

TEST_F(Locator, KeepsKeysBelow256InTheirStore) {
    locator.addProperty(dbId, 255, 4);
    redirect();

    locator.writeProperty(component, bound, 0, "1234", 4);
    locator.writeProperty(component, 255, 0, "5678", 4);

    EXPECT_TRUE(spare->values.empty());
    EXPECT_EQ("1234", db->values["tavrel10.5"]);
    EXPECT_EQ("5678", db->values["tavrel10.255"]);
}

TEST_F(Locator, ClearsKeysFrom256OnAlone) {
    db->values["tavrel10.5"] = "bound";
    db->values["tavrel10.300"] = "moving";
    db->values["tavrel11.300"] = "another component's";

    locator.clearProperties(component);

    EXPECT_EQ((std::map<std::string, std::string>{{"tavrel10.5", "bound"},
                                                  {"tavrel11.300", "another component's"}}),
              db->values);
    EXPECT_EQ(1, db->lockCalls);
    EXPECT_EQ(1, db->unlockCalls);
}

TEST_F(Locator, ClearsWhereTheRedirectionLeads) {
    redirect();
    db->values["tavrel10.300"] = "kept";
    spare->values["tavrel10.300"] = "cleared";

    locator.clearProperties(component);

    EXPECT_EQ(1U, db->values.size());
    EXPECT_EQ(0U, spare->values.size());
}

TEST_F(Locator, AsksNoStoreToClearWhenAllKeysAreBelow256) {
    PropertyLocator other;
    other.addProperty(dbId, 0, 4);
    other.addProperty(dbId, 255, 4);

    other.clearProperties(component);

    EXPECT_EQ(0, db->clearCalls);
    EXPECT_EQ(0, db->lockCalls);
}

TEST_F(Locator, AnswersAnUnknownStoreWith0) {
    locator.addProperty(99, 301, 4);

    EXPECT_EQ(0U, locator.readProperty(component, 301, 0, buffer, 4));
    EXPECT_EQ(0U, locator.writeProperty(component, 301, 0, "1234", 4));
    EXPECT_EQ(0U, locator.readData(component, 301, buffer, 4));
    EXPECT_NO_THROW(locator.clearProperties(component));
    EXPECT_STREQ("........", buffer);
}

TEST_F(Locator, UnlocksAStoreWhoseUnlockRaises) {
    class Raising : public MemoryDatabase {
        void unlock() override {
            MemoryDatabase::unlock();
            throw 42;
        }
    };
    auto* raising = new Raising;
    locator.addProperty(manager->addResource("raising", raising), 301, 4);

    EXPECT_EQ(4U, locator.writeProperty(component, 301, 0, "1234", 4));

    EXPECT_EQ(1, raising->unlockCalls);
}

TEST_F(Locator, UnlocksAStoreThatRaisesWhateverIsDoneWithIt) {
    class Raising : public MemoryDatabase {
        [[noreturn]] static void fail() { throw std::runtime_error("no disk"); }
        unsigned int read(int, int, long, void*, unsigned int) override { fail(); }
        unsigned int write(int, int, long, const void*, unsigned int) override { fail(); }
        void clear(int, int) override { fail(); }
    };
    auto* raising = new Raising;
    PropertyLocator other;
    other.addProperty(manager->addResource("raising", raising), moving, 4);

    EXPECT_THROW(other.readProperty(component, moving, 0, buffer, 4), std::runtime_error);
    EXPECT_THROW(other.writeProperty(component, moving, 0, "1234", 4), std::runtime_error);
    EXPECT_THROW(other.readData(component, moving, buffer, 4), std::runtime_error);
    EXPECT_THROW(other.clearProperties(component), std::runtime_error);

    EXPECT_EQ(4, raising->lockCalls);
    EXPECT_EQ(4, raising->unlockCalls);
}

TEST_F(Locator, RefusesAnUnknownKey) {
    const TraceCapture capture;
    const std::string text = "FAULT at PropertyLocator(LINE): getAccessor() Invalid key.";

    EXPECT_EQ(text, faultText([&] { locator.getAccessor(77); }));
    expectWords(capture, 0x20200, errorFlags, {77, 0});

    EXPECT_EQ(text, faultText([&] { locator.readProperty(component, 77, 0, buffer, 1); }));
    EXPECT_EQ(text, faultText([&] { locator.writeProperty(component, 77, 0, buffer, 1); }));
    EXPECT_EQ(text, faultText([&] { locator.readData(component, 77, buffer, 1); }));
}

TEST_F(Locator, GivesTheSizeOfAPropertyAnd0ForAnUnknownKey) {
    const TraceCapture capture;

    EXPECT_EQ(4U, locator.getPropertySize(moving));
    EXPECT_EQ(0U, locator.getPropertySize(77));

    EXPECT_EQ(1U, capture.count(0x20200));
}

TEST_F(Locator, FindsTheFirstOfTwoPropertiesOfOneKeyAndListsBoth) {
    locator.addProperty(spareId, moving, 8);
    std::vector<int> keys{-1};

    locator.getPropertyKeys(keys);

    EXPECT_EQ((std::vector<int>{-1, bound, moving, moving}), keys);
    EXPECT_EQ(4U, locator.getPropertySize(moving));
    EXPECT_EQ(dbId, locator.getAccessor(moving).getResourceId());
}

TEST_F(Locator, TellsItselfWithDoubledBrackets) {
    PropertyLocator one;
    EXPECT_EQ("PropertyLocator=[]", one.toString());

    one.addProperty(dbId, 256, 4);
    EXPECT_EQ("PropertyLocator=[=[[db[key=256,size=4],]]]", one.toString());

    one.addProperty(spareId, -1, 4294967295U);
    EXPECT_EQ("PropertyLocator=[=[[db[key=256,size=4],]]=[[spare[key=-1,size=4294967295],]]]",
              one.toString());
}

TEST_F(Locator, MakesAccessorsOfNoStore) {
    PropertyAccessor accessor;

    EXPECT_EQ(-1, accessor.getResourceId());
    EXPECT_EQ(0, accessor.getKey());
    EXPECT_EQ(0U, accessor.getSize());
    EXPECT_EQ("[[key=0,size=0],]", accessor.toString());

    accessor.setResourceId(dbId);
    accessor.setKey(moving);
    accessor.setSize(10);
    EXPECT_EQ(dbId, accessor.getResourceId());
    EXPECT_EQ(moving, accessor.getKey());
    EXPECT_EQ(10U, accessor.getSize());
    EXPECT_EQ(3U, accessor.getSize(7));
    EXPECT_EQ(db, accessor.getResource(component));
}

} // namespace
