#include "build/Files.h"
#include "support/TraceCapture.h"

#include <qz/tavrel/NameResolver.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <locale>
#include <memory>
#include <sstream>
#include <string>

using qz::tavrel::NameResolver;
using namespace tavrel::test;

namespace {

constexpr unsigned long propertyUnknown = 0x10300;
constexpr unsigned long actionUnknown = 0x10301;
constexpr unsigned long typeAdded = 0x10302;
constexpr unsigned long conflict = 0x10303;

constexpr const char* namesFile = "/tmp/names";

const std::string newText = "2\n0\n2\nNullComponent\n0\nExclusive\n1\n1\n1\nNoOperation\n0\n";

std::string textOf(NameResolver& resolver) {
    std::ostringstream text;
    resolver.write(text);
    return text.str();
}

void readInto(NameResolver& resolver, const std::string& content) {
    std::istringstream text(content);
    resolver.read(text);
}

/// The text that a record of this process and thread has.
std::string recordText(const std::string& text) {
    char prefix[40];
    std::snprintf(prefix, sizeof prefix, "[%5d.%5d] ", getpid(), gettid());
    return prefix + text;
}

/// Expects one record: trace point, level debug, the text behind process and thread.
void expectOne(const TraceCapture& capture, unsigned long id, const std::string& text) {
    ASSERT_EQ(1U, capture.all().size());
    const TraceRecord record = capture.all().front();
    EXPECT_EQ(id, record.id);
    EXPECT_EQ(debugFlags, record.flags);
    EXPECT_EQ(recordText(text), record.text());
}

TEST(NameResolver, HasItsInitialEntries) {
    NameResolver resolver;

    EXPECT_EQ("NullComponent", resolver.getComponentName(0));
    EXPECT_EQ("Exclusive", resolver.getComponentName(1));
    EXPECT_EQ("NoOperation", resolver.getActionName(0));
    EXPECT_EQ(0, resolver.getComponentType("NullComponent"));
    EXPECT_EQ(1, resolver.getComponentType("Exclusive"));
    EXPECT_EQ(0, resolver.getActionId("NoOperation"));
    EXPECT_EQ(newText, textOf(resolver));
}

TEST(NameResolver, NumbersANewComponentTypeOnceAndTellsIt) {
    NameResolver resolver;
    const TraceCapture capture;

    EXPECT_EQ(2, resolver.getComponentType("Fan"));
    EXPECT_EQ(2, resolver.getComponentType("Fan"));

    expectOne(capture, typeAdded, "Fan is added.");
    EXPECT_EQ("Fan", resolver.getComponentName(2));
    EXPECT_EQ(3, resolver.getComponentType("Board"));
}

TEST(NameResolver, LeavesAnUnknownActionUnknownAndTellsIt) {
    NameResolver resolver;
    const TraceCapture capture;

    EXPECT_EQ(-1, resolver.getActionId("Reset"));

    expectOne(capture, actionUnknown, "Reset is not found.");
    EXPECT_EQ("", resolver.getActionName(1));
    EXPECT_EQ(newText, textOf(resolver));
}

TEST(NameResolver, LeavesAnUnknownPropertyUnknownAndTellsIt) {
    NameResolver resolver;
    const TraceCapture capture;

    EXPECT_EQ(-1, resolver.getPropertyKey("Speed"));

    expectOne(capture, propertyUnknown, "Speed is not found.");
    EXPECT_EQ("", resolver.getPropertyName(1));
}

TEST(NameResolver, CutsALongNameInARecord) {
    NameResolver resolver;
    const TraceCapture capture;

    resolver.getPropertyKey(std::string(300, 'n'));

    ASSERT_EQ(1U, capture.all().size());
    EXPECT_EQ(recordText(std::string(300, 'n')).substr(0, 255), capture.all().front().text());
}

TEST(NameResolver, TellsAComponentTypeThatKeepsMinusOneAtEachLookup) {
    NameResolver resolver;
    resolver.setComponentType("Odd", -1);
    const TraceCapture capture;

    EXPECT_EQ(2, resolver.getComponentType("Odd"));

    EXPECT_EQ(1U, capture.count(conflict));
    EXPECT_EQ(1U, capture.count(typeAdded));
    EXPECT_EQ("Odd", resolver.getComponentName(-1));
}

TEST(NameResolver, SetsNumbersInEachDictionary) {
    NameResolver resolver;

    resolver.setComponentType("Fan", 20);
    resolver.setActionId("Reset", 30);
    resolver.setPropertyKey("Speed", 256);
    resolver.setDictionaryEntry(9, "Low", 1);

    EXPECT_EQ(20, resolver.getComponentType("Fan"));
    EXPECT_EQ(30, resolver.getActionId("Reset"));
    EXPECT_EQ("Reset", resolver.getActionName(30));
    EXPECT_EQ(256, resolver.getPropertyKey("Speed"));
    EXPECT_EQ("Speed", resolver.getPropertyName(256));
    EXPECT_EQ(1, resolver.getValue(9, "Low"));
    EXPECT_EQ("Low", resolver.getName(9, 1));
}

TEST(NameResolver, KeepsTheFirstNumberOfAComponentType) {
    NameResolver resolver;
    resolver.setComponentType("Fan", 5);
    const TraceCapture capture;

    resolver.setComponentType("Fan", 7);

    expectOne(capture, conflict, "Fan:5 (not 7)");
    EXPECT_EQ(5, resolver.getComponentType("Fan"));
}

TEST(NameResolver, ReachesEveryDictionaryByNumber) {
    NameResolver resolver;

    EXPECT_EQ(1, resolver.getValue(0, "Exclusive"));
    EXPECT_EQ("NoOperation", resolver.getName(1, 0));
}

TEST(NameResolver, MakesNoDictionaryForAValueLookup) {
    NameResolver resolver;
    const TraceCapture capture;

    EXPECT_EQ("", resolver.getName(9, 1));
    EXPECT_EQ(-1, resolver.getValue(9, "Low"));
    EXPECT_EQ(-1, resolver.getValue(0, "Fan"));
    EXPECT_EQ("", resolver.getName(0, 44));

    EXPECT_TRUE(capture.all().empty());
    EXPECT_EQ(newText, textOf(resolver));
}

TEST(NameResolver, MakesTheDictionaryThatANamedLookupAsksFor) {
    const auto textAfter = [](auto lookup) {
        NameResolver resolver;
        readInto(resolver, "0\n");
        lookup(resolver);
        return textOf(resolver);
    };

    EXPECT_EQ("0\n", textAfter([](NameResolver&) {}));
    EXPECT_EQ("1\n0\n0\n", textAfter([](NameResolver& r) { r.getComponentName(0); }));
    EXPECT_EQ("1\n0\n1\nFan\n1\n", textAfter([](NameResolver& r) { r.getComponentType("Fan"); }));
    EXPECT_EQ("1\n1\n0\n", textAfter([](NameResolver& r) { r.getActionName(0); }));
    EXPECT_EQ("1\n1\n0\n", textAfter([](NameResolver& r) { r.getActionId("Reset"); }));
    EXPECT_EQ("1\n2\n0\n", textAfter([](NameResolver& r) { r.getPropertyName(0); }));
    EXPECT_EQ("1\n2\n0\n", textAfter([](NameResolver& r) { r.getPropertyKey("Speed"); }));
    EXPECT_EQ("1\n7\n1\nLow\n1\n", textAfter([](NameResolver& r) { r.setDictionaryEntry(7, "Low", 1); }));
}

TEST(NameResolver, WritesItsDictionariesInAscendingNumber) {
    NameResolver resolver;
    resolver.setDictionaryEntry(12, "High", 3);
    resolver.setDictionaryEntry(-5, "Early", 2);
    resolver.setPropertyKey("Speed", 256);
    std::ostringstream text;

    std::ostream& result = resolver.write(text);

    EXPECT_EQ(&text, &result);
    EXPECT_EQ("5\n-5\n1\nEarly\n2\n0\n2\nNullComponent\n0\nExclusive\n1\n1\n1\nNoOperation\n0\n"
              "2\n1\nSpeed\n256\n12\n1\nHigh\n3\n",
              text.str());
}

TEST(NameResolver, ReplacesAllDictionariesByWhatItReads) {
    NameResolver resolver;
    resolver.setPropertyKey("Speed", 256);
    std::istringstream text("1\n0\n1\nFan\n2\n");

    std::istream& result = resolver.read(text);

    EXPECT_EQ(&text, &result);
    EXPECT_EQ("1\n0\n1\nFan\n2\n", textOf(resolver));
    EXPECT_EQ("", resolver.getComponentName(0));
}

TEST(NameResolver, IsEmptyAfterACountOfZeroOrNone) {
    for (const char* content : {"0\n1\n1\nReset\n5\n", "", "-3\n1\n0\n", "none"}) {
        NameResolver resolver;

        readInto(resolver, content);

        EXPECT_EQ("0\n", textOf(resolver)) << content;
    }
}

TEST(NameResolver, PutsTwoPartsOfOneNumberInOneDictionary) {
    NameResolver resolver;

    readInto(resolver, "2\n3\n1\nLow\n1\n3\n1\nHigh\n2\n");

    EXPECT_EQ("1\n3\n2\nLow\n1\nHigh\n2\n", textOf(resolver));
}

TEST(NameResolver, StopsReadingWhenTheStreamHasRunDry) {
    NameResolver resolver;

    readInto(resolver, "2147483647\n0\n1\nFan\n2\n");

    EXPECT_EQ("2\n-1\n0\n0\n1\nFan\n2\n", textOf(resolver));
}

TEST(NameResolver, LosesTheRestBehindANameWithABlank) {
    NameResolver resolver;

    readInto(resolver, "2\n0\n2\nCooling Fan\n2\nBoard\n3\n1\n1\nReset\n4\n");

    EXPECT_EQ("", resolver.getComponentName(2));
    EXPECT_EQ(-1, resolver.getValue(0, "Board"));
    EXPECT_EQ(-1, resolver.getValue(1, "Reset"));
}

TEST(NameResolver, SavesItsTextToAFileAndGivesTheLength) {
    NameResolver resolver;
    makeFile(namesFile, std::string(1000, 'x'));

    const int result = resolver.save(namesFile);

    EXPECT_EQ(static_cast<int>(newText.size()), result);
    EXPECT_EQ(newText, contentOf(namesFile));
}

TEST(NameResolver, LoadsWhatItHasSaved) {
    NameResolver saved;
    saved.setPropertyKey("Speed", 256);
    saved.getComponentType("Fan");
    const int size = saved.save(namesFile);
    NameResolver loaded;
    loaded.setActionId("Gone", 5);

    const int result = loaded.load(namesFile);

    EXPECT_EQ(size - 1, result); // the last line end is not read
    EXPECT_EQ(saved.toString(), loaded.toString());
    EXPECT_EQ(textOf(saved), textOf(loaded));
}

TEST(NameResolver, LoadsAFileWhoseLastLineHasNoEnd) {
    NameResolver resolver;
    const std::string content = "1\n0\n1\nFan\n2";
    makeFile(namesFile, content);

    EXPECT_EQ(static_cast<int>(content.size()), resolver.load(namesFile));

    EXPECT_EQ("1\n0\n1\nFan\n2\n", textOf(resolver));
}

TEST(NameResolver, GivesMinusOneForAFileThatHoldsLessThanItSays) {
    NameResolver resolver;
    makeFile(namesFile, "1\n0\n2\nFan\n2\n");

    EXPECT_EQ(-1, resolver.load(namesFile));

    EXPECT_EQ("1\n0\n1\nFan\n2\n", textOf(resolver));
}

TEST(NameResolver, StaysAsItIsWithoutAFileToLoad) {
    NameResolver resolver;

    EXPECT_EQ(-1, resolver.load("/tmp/missing"));
    EXPECT_EQ(-1, resolver.load("/"));

    EXPECT_EQ(newText, textOf(resolver));
}

TEST(NameResolver, DoesNothingForAnEmptyPath) {
    NameResolver resolver;

    EXPECT_EQ(0, resolver.save(""));
    EXPECT_EQ(0, resolver.load(""));

    EXPECT_EQ(newText, textOf(resolver));
}

TEST(NameResolver, GivesMinusOneForAFileThatCannotBeWritten) {
    NameResolver resolver;

    EXPECT_EQ(-1, resolver.save("/tmp/missing/names"));
    EXPECT_EQ(-1, resolver.save("/dev/full"));
}

TEST(NameResolver, FollowsNoLinkThatSomebodyPlantedInTmp) {
    NameResolver resolver;
    makeFile("/tmp/victim", "precious");
    ASSERT_EQ(0, symlink("/tmp/victim", "/tmp/planted"));

    EXPECT_EQ(-1, resolver.save("/tmp/planted"));

    EXPECT_EQ("precious", contentOf("/tmp/victim"));
}

TEST(NameResolver, FollowsNoPlantedLinkWhateverWayThePathTakesToTmp) {
    NameResolver resolver;
    makeFile("/tmp/victim", "precious");
    ASSERT_EQ(0, symlink("/tmp/victim", "/tmp/planted"));
    ASSERT_EQ(0, symlink("/tmp", "/conf/qz/db/way"));

    EXPECT_EQ(-1, resolver.save("/conf/qz/db/way/planted"));
    EXPECT_EQ(-1, resolver.save("//tmp/../tmp/planted"));

    EXPECT_EQ("precious", contentOf("/tmp/victim"));
}

TEST(NameResolver, FollowsALinkThatStandsElsewhere) {
    NameResolver resolver;
    ASSERT_EQ(0, symlink(namesFile, "/conf/qz/db/names"));

    EXPECT_EQ(static_cast<int>(newText.size()), resolver.save("/conf/qz/db/names"));

    EXPECT_EQ(newText, contentOf(namesFile));
}

TEST(NameResolver, WritesPlainNumbersUnderAnyLocale) {
    struct Grouped : std::numpunct<char> {
        char do_thousands_sep() const override { return ','; }
        std::string do_grouping() const override { return "\3"; }
    };
    NameResolver resolver;
    resolver.setPropertyKey("Speed", 123456);
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new Grouped));

    resolver.save(namesFile);
    NameResolver loaded;
    loaded.load(namesFile);
    std::locale::global(before);

    EXPECT_NE(std::string::npos, contentOf(namesFile).find("\n123456\n"));
    EXPECT_EQ(123456, loaded.getPropertyKey("Speed"));
}

TEST(NameResolver, ShowsThreeDictionariesAsText) {
    NameResolver resolver;

    EXPECT_EQ("Component\nNullComponent:0\nExclusive:1\n\nAction\nNoOperation:0\n\nProperty\n\n",
              resolver.toString());
    EXPECT_EQ(newText, textOf(resolver));

    resolver.setPropertyKey("Speed", 256);
    resolver.setDictionaryEntry(9, "Low", 1);

    EXPECT_EQ("Component\nNullComponent:0\nExclusive:1\n\nAction\nNoOperation:0\n\nProperty\nSpeed:256\n\n",
              resolver.toString());
}

TEST(NameResolver, LetsASubclassSupplyItsOwnNumbers) {
    class Fixed : public NameResolver {
    public:
        int getComponentType(const std::string& name) override {
            return name == "Fan" ? 77 : NameResolver::getComponentType(name);
        }
    };
    const std::unique_ptr<NameResolver> resolver = std::make_unique<Fixed>();

    EXPECT_EQ(77, resolver->getComponentType("Fan"));
    EXPECT_EQ(2, resolver->getComponentType("Board"));
}

TEST(NameResolverHandle, MakesItsDictionaryAtFirstUseAndKeepsIt) {
    NameResolver::Dictionary handle;

    qz::tavrel::NameResolverDictionary* const made = handle.impl();
    handle.setValue("Fan", 4);

    ASSERT_NE(nullptr, made);
    EXPECT_EQ(made, handle.impl());
    EXPECT_EQ(4, made->getValue("Fan"));
}

TEST(NameResolverHandle, ForwardsToItsDictionary) {
    NameResolver::Dictionary handle;
    std::istringstream source("1\nFan\n4\n");
    std::ostringstream text;

    EXPECT_EQ(&source, &handle.read(source));
    EXPECT_EQ(4, handle.getValue("Fan"));
    EXPECT_EQ("Fan", handle.getName(4));
    EXPECT_EQ(5, handle.addName("Board"));
    EXPECT_EQ(&text, &handle.write(text));
    EXPECT_EQ("2\nFan\n4\nBoard\n5\n", text.str());
    EXPECT_EQ("Fan:4\nBoard:5\n", handle.toString());
}

TEST(NameResolverHandle, CopiesWhatItHolds) {
    const NameResolver::Dictionary empty;
    NameResolver::Dictionary copyOfEmpty(empty);
    NameResolver::Dictionary handle;
    handle.setValue("Fan", 4);

    NameResolver::Dictionary copy(handle);
    copyOfEmpty = handle;
    handle.setValue("Board", 5);

    EXPECT_EQ("Fan:4\n", copy.toString());
    EXPECT_EQ("Fan:4\n", copyOfEmpty.toString());
    EXPECT_EQ(-1, copy.getValue("Board"));
}

} // namespace
