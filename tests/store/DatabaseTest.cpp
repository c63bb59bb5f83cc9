#include "support/FaultText.h"
#include "support/MemoryDatabase.h"
#include "support/TraceExpect.h"

#include <qz/tavrel/QZException.h>

#include <gtest/gtest.h>

#include <climits>
#include <stdexcept>
#include <string>
#include <vector>

using qz::tavrel::Database;
using qz::tavrel::TavrelException;
using namespace tavrel::test;

namespace {

constexpr unsigned long readOffset = 0x30100;
constexpr unsigned long readAbsent = 0x30101;
constexpr unsigned long writeOffset = 0x30102;
constexpr unsigned long writeEqual = 0x30103;
constexpr unsigned long writeGap = 0x30104;

TEST(Database, MakesATextKeyOfKeyAndSubkey) {
    EXPECT_EQ("tavrel4", Database::toKey(4, 0));
    EXPECT_EQ("tavrel4.300", Database::toKey(4, 300));
    EXPECT_EQ("tavrel10.300", Database::toKey(10, 300));
    EXPECT_EQ("tavrel4", Database::toKey(4, 0));
}

TEST(Database, KeepsTheSignsInATextKey) {
    EXPECT_EQ("tavrel-1.-2", Database::toKey(-1, -2));
    EXPECT_EQ("tavrel-2147483648.-2147483648", Database::toKey(INT_MIN, INT_MIN));
    EXPECT_EQ("tavrel2147483647.2147483647", Database::toKey(INT_MAX, INT_MAX));
}

TEST(Database, GivesSubkey0ATextOfItsOwn) {
    for (const int subkey : {-1, 1, 3, 10, 255}) {
        EXPECT_NE(Database::toKey(3, 0), Database::toKey(3, subkey));
    }
}

TEST(Database, ReadsFromTheOffsetOn) {
    MemoryDatabase store;
    store.values["tavrel1.2"] = std::string("ab\0def", 6);
    char buffer[] = "......";

    const unsigned int result = store.read(1, 2, 1, buffer, 4);

    EXPECT_EQ(4U, result);
    EXPECT_EQ(std::string("b\0de..", 6), std::string(buffer, 6));
}

TEST(Database, DeliversWhatThereIsAndLeavesTheRestOfTheBuffer) {
    MemoryDatabase store;
    store.values["tavrel1"] = "abc";
    char buffer[] = "......";

    const unsigned int result = store.read(1, 1L, buffer, 6);

    EXPECT_EQ(2U, result);
    EXPECT_STREQ("bc....", buffer);
}

TEST(Database, ReadsNothingAtTheVeryEnd) {
    MemoryDatabase store;
    store.values["tavrel1"] = "abc";
    const TraceCapture capture;
    char buffer[1];

    EXPECT_EQ(0U, store.read(1, 3L, buffer, 1));
    EXPECT_TRUE(store.isValid());
    EXPECT_EQ(0U, capture.all().size());
}

TEST(Database, ReadsNothingPastTheEndAndStaysValid) {
    MemoryDatabase store;
    store.values["tavrel1.2"] = "abc";
    const TraceCapture capture;
    char buffer[1];

    const unsigned int result = store.read(1, 2, 4, buffer, 1);

    EXPECT_EQ(0U, result);
    EXPECT_TRUE(store.isValid());
    expectWords(capture, readAbsent, errorFlags, {1, 2, 4, 0, 0, 0});
}

TEST(Database, ReadsNothingOfAnAbsentKeyAndStaysValid) {
    MemoryDatabase store;
    const TraceCapture capture;
    char buffer[] = "..";

    const unsigned int result = store.read(1, buffer, 2);

    EXPECT_EQ(0U, result);
    EXPECT_TRUE(store.isValid());
    EXPECT_STREQ("..", buffer);
    EXPECT_EQ(0U, capture.all().size());
}

TEST(Database, TakesOutOfRangeFromAStoreForAnAbsentValueInARead) {
    MemoryDatabase store;
    store.beforeGet = [] { throw std::out_of_range("absent"); };
    const TraceCapture capture;
    char buffer[1];

    const unsigned int result = store.read(1, 2, 0, buffer, 1);

    EXPECT_EQ(0U, result);
    EXPECT_TRUE(store.isValid());
    expectWords(capture, readAbsent, errorFlags, {1, 2, 0, 0, 0, 0});
}

TEST(Database, PassesOtherExceptionsOfAStoreOnInARead) {
    MemoryDatabase store;
    store.beforeGet = [] { throw TavrelException("broken"); };
    char buffer[1];

    EXPECT_THROW(store.readMethod(1, 0, 0, buffer, 1), TavrelException);
    EXPECT_EQ(0U, store.read(1, buffer, 1));
    EXPECT_FALSE(store.isValid());
}

TEST(Database, RefusesToReadAtANegativeOffset) {
    MemoryDatabase store;
    store.values["tavrel1"] = "abc";
    const TraceCapture capture;
    char buffer[1];

    EXPECT_EQ("FAULT at Database(LINE): readMethod() Invalid param.",
              faultText([&] { store.readMethod(1, 2, -3, buffer, 1); }));

    expectWords(capture, readOffset, errorFlags, {1, 2, -3, 0, 0, 0});
    EXPECT_EQ(0, store.getCalls);
}

TEST(Database, AnswersANegativeOffsetThroughTheWrappersWith0) {
    MemoryDatabase store;
    char buffer[1] = {};

    EXPECT_EQ(0U, store.read(1, -1L, buffer, 1));
    EXPECT_FALSE(store.isValid());
    EXPECT_EQ(0U, store.write(1, 0L, buffer, 0));
    EXPECT_TRUE(store.isValid());
    EXPECT_EQ(0U, store.write(1, -1L, buffer, 1));
    EXPECT_FALSE(store.isValid());
}

TEST(Database, RefusesToWriteAtANegativeOffset) {
    MemoryDatabase store;
    const TraceCapture capture;

    EXPECT_EQ("FAULT at Database(LINE): writeMethod() Invalid param.",
              faultText([&] { store.writeMethod(1, 2, -3, "x", 1); }));

    expectWords(capture, writeOffset, errorFlags, {1, 2, -3, 0, 0, 0});
    EXPECT_EQ(0, store.getCalls);
    EXPECT_EQ(0, store.setCalls);
}

TEST(Database, StoresANewValue) {
    MemoryDatabase store;

    const unsigned int result = store.write(10, 300, 0, "a\0b", 3);

    EXPECT_EQ(3U, result);
    EXPECT_EQ(std::string("a\0b", 3), store.values["tavrel10.300"]);
    EXPECT_EQ(1, store.getCalls);
    EXPECT_EQ(1, store.setCalls);
}

TEST(Database, KeepsTheTailBehindAShorterWrite) {
    MemoryDatabase store;
    store.values["tavrel1"] = "0123456789";

    const unsigned int result = store.write(1, "abc", 3);

    EXPECT_EQ(3U, result);
    EXPECT_EQ("abc3456789", store.values["tavrel1"]);
}

TEST(Database, GrowsAValueThatAWriteRunsOver) {
    MemoryDatabase store;
    store.values["tavrel1"] = "0123";

    const unsigned int result = store.write(1, 2L, "abcd", 4);

    EXPECT_EQ(4U, result);
    EXPECT_EQ("01abcd", store.values["tavrel1"]);
}

TEST(Database, GrowsAValueWhoseTailAlreadyMatches) {
    MemoryDatabase store;
    store.values["tavrel1"] = "0123";

    store.write(1, 2L, "2345", 4);

    EXPECT_EQ("012345", store.values["tavrel1"]);
    EXPECT_EQ(1, store.setCalls);
}

TEST(Database, AppendsAtTheVeryEndWithoutAGap) {
    MemoryDatabase store;
    store.values["tavrel1"] = "ab";
    const TraceCapture capture;

    store.write(1, 2L, "cd", 2);

    EXPECT_EQ("abcd", store.values["tavrel1"]);
    EXPECT_EQ(0U, capture.count(writeGap));
}

TEST(Database, FillsTheGapBeforeAWriteBeyondTheEndWithZeros) {
    MemoryDatabase store;
    store.values["tavrel1.2"] = "ab";
    const TraceCapture capture;

    const unsigned int result = store.write(1, 2, 5, "xy", 2);

    EXPECT_EQ(2U, result);
    EXPECT_EQ(std::string("ab\0\0\0xy", 7), store.values["tavrel1.2"]);
    expectWords(capture, writeGap, infoFlags, {1, 2, 2, 7, 0, 0});
}

TEST(Database, DoesNotStoreBytesThatAreThereAlready) {
    MemoryDatabase store;
    store.values["tavrel1.2"] = "0123";
    const TraceCapture capture;

    const unsigned int result = store.write(1, 2, 1, "12", 2);

    EXPECT_EQ(2U, result);
    EXPECT_EQ(1, store.getCalls);
    EXPECT_EQ(0, store.setCalls);
    expectWords(capture, writeEqual, debugFlags, {1, 2});
}

TEST(Database, TakesAFaultOfAStoreForAnAbsentValueInAWrite) {
    MemoryDatabase store;
    store.values["tavrel1"] = "0123";
    store.beforeGet = [] { throw TavrelException("absent"); };

    const unsigned int result = store.write(1, "ab", 2);

    EXPECT_EQ(2U, result);
    EXPECT_EQ("ab", store.values["tavrel1"]);
    EXPECT_TRUE(store.isValid());
}

TEST(Database, PassesOtherExceptionsOfAStoreOnInAWrite) {
    MemoryDatabase store;
    store.beforeGet = [] { throw std::out_of_range("x"); };

    EXPECT_THROW(store.writeMethod(1, 0, 0, "x", 1), std::out_of_range);
    EXPECT_EQ(0, store.setCalls);
}

TEST(Database, AnswersAFailedStoreWith0UntilTheNextGoodCall) {
    MemoryDatabase store;
    store.beforeSet = [] { throw TavrelException("full"); };

    EXPECT_EQ(0U, store.write(1, "x", 1));
    EXPECT_FALSE(store.isValid());

    store.beforeSet = nullptr;
    EXPECT_EQ(1U, store.write(1, "x", 1));
    EXPECT_TRUE(store.isValid());
}

TEST(Database, RemovesTheValueOfAPair) {
    MemoryDatabase store;
    store.values["tavrel1"] = "a";
    store.values["tavrel1.2"] = "b";

    store.clear(1, 2);

    EXPECT_EQ(0U, store.values.count("tavrel1.2"));
    EXPECT_EQ(1U, store.values.count("tavrel1"));
    EXPECT_EQ(1, store.clearCalls);
}

} // namespace
