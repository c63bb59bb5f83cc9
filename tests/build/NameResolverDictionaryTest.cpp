#include "support/TraceCapture.h"

#include <qz/tavrel/NameResolver.h>

#include <gtest/gtest.h>

#include <limits>
#include <sstream>
#include <string>

using qz::tavrel::NameResolverDictionary;
using namespace tavrel::test;

namespace {

constexpr unsigned long conflict = 0x10303;

/// "[pid.tid] " as the library writes it, and `text`.
std::string inBrackets(const TraceRecord& record, const std::string& text) {
    return record.text().substr(0, record.text().find("] ") + 2) + text;
}

TEST(NameResolverDictionary, KnowsNoNameAtFirst) {
    NameResolverDictionary dictionary;

    EXPECT_EQ(-1, dictionary.getValue("Fan"));
    EXPECT_EQ("", dictionary.getName(0));
    EXPECT_EQ("", dictionary.toString());
}

TEST(NameResolverDictionary, FindsWhatWasSetInBothDirections) {
    NameResolverDictionary dictionary;

    dictionary.setValue("Fan", 7);

    EXPECT_EQ(7, dictionary.getValue("Fan"));
    EXPECT_EQ("Fan", dictionary.getName(7));
    EXPECT_EQ("", dictionary.getName(8));
}

TEST(NameResolverDictionary, KeepsTheFirstNumberOfANameAndTellsBoth) {
    NameResolverDictionary dictionary;
    dictionary.setValue("Fan", 5);
    const TraceCapture capture;

    dictionary.setValue("Fan", 7);

    EXPECT_EQ(5, dictionary.getValue("Fan"));
    ASSERT_EQ(1U, capture.all().size());
    const TraceRecord record = capture.all().front();
    EXPECT_EQ(conflict, record.id);
    EXPECT_EQ(debugFlags, record.flags);
    EXPECT_EQ(inBrackets(record, "Fan:5 (not 7)"), record.text());
}

TEST(NameResolverDictionary, DoesNotRaiseTheNextNumberByARefusedOne) {
    NameResolverDictionary dictionary;
    dictionary.setValue("Fan", 5);

    dictionary.setValue("Fan", 70);

    EXPECT_EQ(6, dictionary.addName("Board"));
}

TEST(NameResolverDictionary, TakesTheSameNumberAgainInSilence) {
    NameResolverDictionary dictionary;
    dictionary.setValue("Fan", 5);
    const TraceCapture capture;

    dictionary.setValue("Fan", 5);

    EXPECT_TRUE(capture.all().empty());
    EXPECT_EQ("Fan:5\n", dictionary.toString());
}

TEST(NameResolverDictionary, CutsTheTextOfAConflictTo255Characters) {
    NameResolverDictionary dictionary;
    const std::string name(300, 'n');
    dictionary.setValue(name, 5);
    const TraceCapture capture;

    dictionary.setValue(name, 7);

    ASSERT_EQ(1U, capture.all().size());
    EXPECT_EQ(255U, capture.all().front().text().size());
}

TEST(NameResolverDictionary, CountsOnFromTheHighestNumber) {
    NameResolverDictionary dictionary;

    EXPECT_EQ(1, dictionary.addName("First"));
    dictionary.setValue("Tenth", 10);
    EXPECT_EQ(11, dictionary.addName("Eleventh"));
    dictionary.setValue("Third", 3);
    EXPECT_EQ(12, dictionary.addName("Twelfth"));
    dictionary.setValue("Negative", -4);
    EXPECT_EQ(13, dictionary.addName("Thirteenth"));
}

TEST(NameResolverDictionary, UsesUpANumberForANameThatIsThere) {
    NameResolverDictionary dictionary;
    dictionary.addName("Fan");
    const TraceCapture capture;

    EXPECT_EQ(2, dictionary.addName("Fan"));

    EXPECT_EQ(1, dictionary.getValue("Fan"));
    EXPECT_EQ(1U, capture.count(conflict));
    EXPECT_EQ(3, dictionary.addName("Board"));
}

TEST(NameResolverDictionary, WrapsBehindTheGreatestNumber) {
    NameResolverDictionary dictionary;
    dictionary.setValue("Last", std::numeric_limits<int>::max());

    EXPECT_EQ(std::numeric_limits<int>::min(), dictionary.addName("Wrapped"));
}

TEST(NameResolverDictionary, NamesASharedNumberByItsNewestEntry) {
    NameResolverDictionary dictionary;
    dictionary.setValue("Beta", 4);
    dictionary.setValue("Zeta", 4);
    dictionary.setValue("Alpha", 4);
    dictionary.setValue("Other", 5);
    dictionary.setValue("Beta", 4);

    EXPECT_EQ("Alpha", dictionary.getName(4));
}

TEST(NameResolverDictionary, WritesItsCountAndEachNameInOrderOfEntry) {
    NameResolverDictionary dictionary;
    dictionary.setValue("Zeta", 9);
    dictionary.setValue("Alpha", -3);
    std::ostringstream text;

    std::ostream& result = dictionary.write(text);

    EXPECT_EQ(&text, &result);
    EXPECT_EQ("2\nZeta\n9\nAlpha\n-3\n", text.str());
    EXPECT_EQ("Zeta:9\nAlpha:-3\n", dictionary.toString());
}

TEST(NameResolverDictionary, AddsWhatItReadsToWhatItHolds) {
    NameResolverDictionary dictionary;
    dictionary.setValue("Fan", 5);
    std::istringstream text("2\nBoard\n6\nFan\n7\nrest");

    std::istream& result = dictionary.read(text);

    EXPECT_EQ(&text, &result);
    EXPECT_EQ("Fan:5\nBoard:6\n", dictionary.toString());
    std::string rest;
    text >> rest;
    EXPECT_EQ("rest", rest);
}

TEST(NameResolverDictionary, ReadsNothingForACountOfZeroOrLess) {
    for (const char* count : {"0", "-1", "", "none"}) {
        NameResolverDictionary dictionary;
        std::istringstream text(std::string(count) + "\nFan\n1\n");

        dictionary.read(text);

        EXPECT_EQ("", dictionary.toString()) << count;
    }
}

TEST(NameResolverDictionary, StopsWhenTheStreamHasRunDry) {
    NameResolverDictionary dictionary;
    std::istringstream text("2147483647\nFan\n1\n");

    dictionary.read(text);

    EXPECT_EQ("Fan:1\n", dictionary.toString());
    EXPECT_TRUE(text.fail());
}

TEST(NameResolverDictionary, KeepsANameWhoseNumberIsMissing) {
    NameResolverDictionary dictionary;
    std::istringstream text("2\nFan\n1\nBoard");

    dictionary.read(text);

    EXPECT_EQ("Fan:1\nBoard:-1\n", dictionary.toString());
}

TEST(NameResolverDictionary, LosesWhatFollowsANameWithABlank) {
    NameResolverDictionary dictionary;
    std::istringstream text("3\nFan\n1\nCooling Fan\n2\nBoard\n3\n");

    dictionary.read(text);

    EXPECT_EQ(1, dictionary.getValue("Fan"));
    EXPECT_EQ(-1, dictionary.getValue("Cooling Fan"));
    EXPECT_EQ(-1, dictionary.getValue("Board"));
}

} // namespace
