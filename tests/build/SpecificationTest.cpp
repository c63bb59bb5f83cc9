#include "build/Files.h"
#include "support/FaultText.h"
#include "support/TraceCapture.h"

#include <qz/tavrel/Specification.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

using qz::tavrel::Specification;
using namespace tavrel::test;

namespace {

constexpr unsigned long notOpened = 0x10200;
constexpr unsigned long duplicate = 0x10201;

using Names = std::vector<std::string>;
using Range = std::pair<int, int>;

const std::string chassis = "Chassis\n"                      // row 0
                            "property,SETUP,PowerPolicy,4\n" // 1
                            ",SETUP,BootCount,4\n"           // 2
                            "component,Fan,4\n"              // 3
                            ",Sensor,16\n"                   // 4
                            "action,Reset\n"                 // 5
                            "feature,Hotplug,Redundant\n"    // 6
                            "\n"                             // 7
                            "Fan\n"                          // 8
                            "property,RunTime,Speed,2\n"     // 9
                            "action,Reset\n";                // 10

/// A specification of one file with this content.
std::unique_ptr<Specification> loaded(const std::string& content) {
    makeFile("/tmp/spec", content);
    auto specification = std::make_unique<Specification>();
    specification->load("/tmp/spec");
    return specification;
}

/// The cells of all entries that are left, each row as "cell|cell|".
Names rowsOf(Specification::Entries& entries) {
    Names rows;
    while (const std::unique_ptr<Specification::Entry> entry{entries.getNextEntry()}) {
        std::string row;
        for (unsigned int i = 0; i < entry->size(); ++i) {
            row += (*entry)[i] + "|";
        }
        rows.push_back(row);
    }
    return rows;
}

/// The rows of a subsection; the one row "null" where there are no entries at all.
Names rowsOf(Specification& specification, const std::string& section, const std::string& subsection) {
    const std::unique_ptr<Specification::Entries> entries(specification.getEntries(section, subsection));
    return entries ? rowsOf(*entries) : Names{"null"};
}

Names sectionsOf(Specification& specification) {
    Names names;
    specification.getSectionNames(names);
    return names;
}

Range rangeOf(Specification& specification, const std::string& section, const std::string& subsection) {
    Range range{77, 77};
    specification.getRange(section, subsection, range);
    return range;
}

/// Expects "invalid args" from a load, and one error record with the path that cannot be opened.
void expectRefused(const std::string& path, const std::string& missing) {
    Specification specification;
    const TraceCapture capture;

    const std::string text = faultText([&] { specification.load(path); });

    EXPECT_EQ("FAULT at Specification(LINE): load() invalid args", text);
    ASSERT_EQ(1U, capture.all().size());
    const TraceRecord record = capture.all().front();
    EXPECT_EQ(notOpened, record.id);
    EXPECT_EQ(errorFlags, record.flags);
    EXPECT_EQ(missing, record.text());
}

TEST(Specification, IsEmptyAtFirst) {
    Specification specification;

    EXPECT_TRUE(specification.empty());
    EXPECT_EQ(Names{}, sectionsOf(specification));
    EXPECT_EQ(nullptr, specification.getEntries("Fan", "property"));
    EXPECT_EQ(-1, specification.getNext(-1));
}

TEST(Specification, IsEmptyAfterAnEmptyFile) {
    const auto specification = loaded("");

    EXPECT_TRUE(specification->empty());
    EXPECT_EQ(Names{}, sectionsOf(*specification));
    EXPECT_EQ(nullptr, specification->getEntries("", ""));
}

TEST(Specification, FindsTheRowsOfEachSubsection) {
    const auto specification = loaded(chassis);

    EXPECT_FALSE(specification->empty());
    EXPECT_EQ((Names{"Chassis", "Fan"}), sectionsOf(*specification));
    EXPECT_EQ((Names{"SETUP|PowerPolicy|4|", "SETUP|BootCount|4|"}),
              rowsOf(*specification, "Chassis", "property"));
    EXPECT_EQ((Names{"Fan|4|", "Sensor|16|"}), rowsOf(*specification, "Chassis", "component"));
    EXPECT_EQ(Names{"Reset|"}, rowsOf(*specification, "Chassis", "action"));
    EXPECT_EQ(Names{"Hotplug|Redundant|"}, rowsOf(*specification, "Chassis", "feature"));
    EXPECT_EQ(Names{"RunTime|Speed|2|"}, rowsOf(*specification, "Fan", "property"));
    EXPECT_EQ(Names{"Reset|"}, rowsOf(*specification, "Fan", "action"));
}

TEST(Specification, HasNoEntriesForWhatIsNotThere) {
    const auto specification = loaded(chassis);

    EXPECT_EQ(nullptr, specification->getEntries("Fan", "component"));
    EXPECT_EQ(nullptr, specification->getEntries("Sensor", "property"));
    EXPECT_EQ(nullptr, specification->getEntries("Fan", "Fan"));
    EXPECT_EQ(nullptr, specification->getEntries("", "property"));
}

TEST(Specification, AppendsToTheListOfNames) {
    const auto specification = loaded(chassis);
    Names names{"First"};

    specification->getSectionNames(names);
    specification->getSectionNames(names);

    EXPECT_EQ((Names{"First", "Chassis", "Fan", "Chassis", "Fan"}), names);
}

TEST(Specification, WalksHeadRowsAlone) {
    const auto specification = loaded("\n# comment\nChassis\n\"\"\n,data,1\n#other,cells\n\nFan\n");

    EXPECT_EQ(2, specification->getNext(-1));
    EXPECT_EQ(7, specification->getNext(2));
    EXPECT_EQ(7, specification->getNext(6));
    EXPECT_EQ(-1, specification->getNext(7));
    EXPECT_EQ(-1, specification->getNext(100));
    EXPECT_EQ(2, specification->getNext(-100));
}

TEST(Specification, TakesARowOfEmptyCellsForABlankOne) {
    const auto specification = loaded("Chassis\nproperty,A,B,1\n,,\nFan\nproperty,C,D,2\n");

    EXPECT_EQ((Names{"Chassis", "Fan"}), sectionsOf(*specification));
    EXPECT_EQ(Names{"C|D|2|"}, rowsOf(*specification, "Fan", "property"));
    EXPECT_EQ((Names{"A|B|1|", "||"}), rowsOf(*specification, "Chassis", "property"));
}

TEST(Specification, TakesAHeadBehindACommentForASubsection) {
    const auto specification = loaded("Chassis\naction,Reset\n\n# the fans\nFan,4\n,8\n");

    EXPECT_EQ(Names{"Chassis"}, sectionsOf(*specification));
    EXPECT_EQ((Names{"4|", "8|"}), rowsOf(*specification, "Chassis", "Fan"));
    EXPECT_EQ(Names{"Reset|"}, rowsOf(*specification, "Chassis", "action"));
}

TEST(Specification, TakesACommentAtTheTopForNoHead) {
    const auto specification = loaded("# machine\n\nChassis\naction,Reset\n");

    EXPECT_EQ(Names{"Chassis"}, sectionsOf(*specification));
}

TEST(Specification, StartsASectionByNameWithoutABlankRow) {
    const auto specification = loaded("Fan\naction,Stop\n\nChassis\naction,Reset\nFan\nfeature,Hot\n");

    EXPECT_EQ((Names{"Fan", "Chassis"}), sectionsOf(*specification));
    EXPECT_EQ(Names{"Hot|"}, rowsOf(*specification, "Fan", "feature"));
    EXPECT_EQ(nullptr, specification->getEntries("Chassis", "feature"));
}

TEST(Specification, LeavesRowsBeforeTheFirstSubsectionToNobody) {
    const auto specification = loaded("Chassis\n,stray,1\nproperty,A,B,1\n");

    EXPECT_EQ(Names{"A|B|1|"}, rowsOf(*specification, "Chassis", "property"));
    EXPECT_EQ(nullptr, specification->getEntries("Chassis", ""));
}

TEST(Specification, KeepsTheFirstOfTwoSubsectionsOfOneName) {
    const TraceCapture capture;

    const auto specification = loaded("Chassis\nproperty,A,B,1\naction,Reset\nproperty,C,D,2\n");

    EXPECT_EQ(Names{"A|B|1|"}, rowsOf(*specification, "Chassis", "property"));
    ASSERT_EQ(1U, capture.all().size());
    EXPECT_EQ(duplicate, capture.all().front().id);
    EXPECT_EQ(debugFlags, capture.all().front().flags);
    EXPECT_EQ("Chassis.property", capture.all().front().text());
}

TEST(Specification, LosesRowsBehindARepeatedSubsectionName) {
    const TraceCapture capture;

    const auto specification = loaded("Chassis\nproperty,A,B,1\nproperty,C,D,2\n,E,F,3\n");

    EXPECT_EQ(Names{"A|B|1|"}, rowsOf(*specification, "Chassis", "property"));
    EXPECT_EQ(1U, capture.count(duplicate));
}

TEST(Specification, ListsTwoSectionsOfOneNameAndKeepsTheFirst) {
    const TraceCapture capture;

    const auto specification = loaded("Fan\naction,Stop\n\nFan\naction,Start\nfeature,Hot\n");

    EXPECT_EQ((Names{"Fan", "Fan"}), sectionsOf(*specification));
    EXPECT_EQ(Names{"Stop|"}, rowsOf(*specification, "Fan", "action"));
    EXPECT_EQ(Names{"Hot|"}, rowsOf(*specification, "Fan", "feature"));
    EXPECT_EQ(1U, capture.count(duplicate));
}

TEST(Specification, HasNoEntriesForASubsectionOfItsNameAlone) {
    const auto specification = loaded("Chassis\nproperty\naction,Reset\n");

    EXPECT_EQ(nullptr, specification->getEntries("Chassis", "property"));
}

TEST(Specification, FindsRowsBehindASubsectionOfItsNameAlone) {
    const auto specification = loaded("Chassis\nproperty\n,A,B,1\n");

    EXPECT_EQ(Names{"A|B|1|"}, rowsOf(*specification, "Chassis", "property"));
}

TEST(Specification, PassesOverACommentOfOneCell) {
    const auto specification = loaded("Chassis\nproperty,A,B,1\n# more\n,C,D,2\n");

    EXPECT_EQ((Names{"A|B|1|", "C|D|2|"}), rowsOf(*specification, "Chassis", "property"));
}

TEST(Specification, PassesOverABlankRow) {
    const auto specification = loaded("Chassis\nproperty,A,B,1\n\n,C,D,2\n");

    EXPECT_EQ((Names{"A|B|1|", "C|D|2|"}), rowsOf(*specification, "Chassis", "property"));
}

TEST(Specification, EndsASubsectionAtACommentOfTwoCells) {
    const auto specification = loaded("Chassis\nproperty,A,B,1\n# more,or less\n,C,D,2\n");
    const std::unique_ptr<Specification::Entries> entries(specification->getEntries("Chassis", "property"));

    EXPECT_EQ(Names{"A|B|1|"}, rowsOf(*entries));
    EXPECT_EQ(nullptr, entries->getNextEntry());
}

TEST(Specification, LooksElsewhereWhenACommentOfTwoCellsComesFirst) {
    const auto specification = loaded("Chassis\nproperty\n# more,or less\n,C,D,2\n");

    EXPECT_EQ(nullptr, specification->getEntries("Chassis", "property"));
}

TEST(Specification, KeepsAnEmptyCellAtTheEndOfARow) {
    const auto specification = loaded("Chassis\nfeature,Hotplug,\n");

    EXPECT_EQ(Names{"Hotplug||"}, rowsOf(*specification, "Chassis", "feature"));
}

TEST(Specification, FindsARangeWithoutTheIndex) {
    const auto specification = loaded(chassis);

    EXPECT_EQ((Range{1, 3}), rangeOf(*specification, "Chassis", "property"));
    EXPECT_EQ((Range{6, 8}), rangeOf(*specification, "Chassis", "feature"));
    EXPECT_EQ((Range{10, 11}), rangeOf(*specification, "Fan", "action"));
    EXPECT_EQ((Range{-1, -1}), rangeOf(*specification, "Fan", "feature"));
    EXPECT_EQ((Range{-1, -1}), rangeOf(*specification, "Chassis", "Fan"));
    EXPECT_EQ((Range{-1, -1}), rangeOf(*specification, "Sensor", "property"));
}

TEST(Specification, FindsARangeBehindAnyHeadOfTheSectionsName) {
    // "property" is a subsection in the index; the search takes any head row of that name for a section.
    const auto specification = loaded("Chassis\nproperty,A,B,1\naction,Reset\n");

    EXPECT_EQ((Range{2, 3}), rangeOf(*specification, "property", "action"));
    EXPECT_EQ(Names{"Reset|"}, rowsOf(*specification, "property", "action"));
}

TEST(Specification, NotesTheFirstRangeOfAKeyAlone) {
    const auto specification = loaded("Chassis\nproperty,A,B,1\n,C,D,2\n");
    const TraceCapture capture;

    specification->addIndex("Made", "up", 2, 3);
    specification->addIndex("Made", "up", 1, 3);
    specification->addIndex("None", "up", -1, 3);

    EXPECT_EQ("Made.up", specification->getKey("Made", "up"));
    EXPECT_EQ(Names{"C|D|2|"}, rowsOf(*specification, "Made", "up"));
    EXPECT_EQ(nullptr, specification->getEntries("None", "up"));
    ASSERT_EQ(1U, capture.all().size());
    EXPECT_EQ("Made.up", capture.all().front().text());
}

TEST(Specification, HasNoEntriesForAnEmptyRange) {
    const auto specification = loaded(chassis);

    specification->addIndex("Made", "up", 3, 3);

    EXPECT_EQ(nullptr, specification->getEntries("Made", "up"));
}

TEST(Specification, LooksInItsIncludesForWhatItLacks) {
    makeFile("/tmp/fan", "Fan\naction,Stop\nfeature,Hot\n");
    makeFile("/tmp/board", "Board\naction,Reset\n\nFan\nproperty,A,B,1\nfeature,Cold\n");

    const auto specification = loaded("include,/tmp/fan\ninclude,/tmp/board\n\nFan\naction,Start\n");

    EXPECT_EQ((Names{"Fan", "Fan", "Board", "Fan"}), sectionsOf(*specification));
    EXPECT_EQ(Names{"Start|"}, rowsOf(*specification, "Fan", "action"));
    EXPECT_EQ(Names{"Hot|"}, rowsOf(*specification, "Fan", "feature"));
    EXPECT_EQ(Names{"A|B|1|"}, rowsOf(*specification, "Fan", "property"));
    EXPECT_EQ(Names{"Reset|"}, rowsOf(*specification, "Board", "action"));
}

TEST(Specification, LooksInItsIncludesForASubsectionOfItsNameAlone) {
    makeFile("/tmp/fan", "Chassis\nproperty,A,B,1\n");

    const auto specification = loaded("include,/tmp/fan\n\nChassis\nproperty\naction,Reset\n");

    EXPECT_EQ(Names{"A|B|1|"}, rowsOf(*specification, "Chassis", "property"));
}

TEST(Specification, IsNotEmptyWithASectionInADirectIncludeAlone) {
    makeFile("/tmp/fan", "Fan\naction,Stop\n");

    const auto specification = loaded("include,/tmp/fan\n");

    EXPECT_FALSE(specification->empty());
    EXPECT_EQ(Names{"Fan"}, sectionsOf(*specification));
}

TEST(Specification, IsEmptyWithASectionInAnIncludeOfAnIncludeAlone) {
    makeFile("/tmp/fan", "Fan\naction,Stop\n");
    makeFile("/tmp/middle", "include,/tmp/fan\n");

    const auto specification = loaded("include,/tmp/middle\n");

    EXPECT_TRUE(specification->empty());
    EXPECT_EQ(Names{"Stop|"}, rowsOf(*specification, "Fan", "action"));
}

TEST(Specification, CountsSectionNamesOfIncludesInItsIndex) {
    makeFile("/tmp/fan", "Fan\naction,Stop\n");

    const auto specification = loaded("Chassis\naction,Reset\nFan\nfeature,Hot\n\ninclude,/tmp/fan\n");

    EXPECT_EQ((Names{"Chassis", "Fan"}), sectionsOf(*specification));
    EXPECT_EQ(Names{"Hot|"}, rowsOf(*specification, "Fan", "feature"));
    EXPECT_EQ(Names{"Stop|"}, rowsOf(*specification, "Fan", "action"));
}

TEST(Specification, PutsRowsBehindAnIncludeUnderItsName) {
    makeFile("/tmp/fan", "Fan\naction,Stop\n");

    const auto specification = loaded("Chassis\nproperty,A,B,1\ninclude,/tmp/fan\n,C,D,2\n");

    EXPECT_EQ(Names{"A|B|1|"}, rowsOf(*specification, "Chassis", "property"));
    EXPECT_EQ((Names{"/tmp/fan|", "C|D|2|"}), rowsOf(*specification, "Chassis", "include"));
}

TEST(Specification, TakesAnIncludeWithoutAPathForASubsection) {
    const auto specification = loaded("Chassis\ninclude\n,A,1\n\ninclude\n");

    EXPECT_EQ(Names{"Chassis"}, sectionsOf(*specification));
    EXPECT_EQ(Names{"A|1|"}, rowsOf(*specification, "Chassis", "include"));
}

TEST(Specification, TakesARelativePathFromTheWorkingDirectory) {
    ASSERT_EQ(0, chdir("/tmp"));
    makeFile("/conf/qz/db/main", "include,near\n");
    makeFile("/conf/qz/db/near", "Wrong\n");
    makeFile("/tmp/near", "Right\n");
    Specification specification;

    specification.load("/conf/qz/db/main");

    EXPECT_EQ(Names{"Right"}, sectionsOf(specification));
}

TEST(Specification, ReadsAFileThatIncludesItselfOnce) {
    const auto specification = loaded("include,/tmp/spec\n\nFan\naction,Stop\n");

    EXPECT_EQ(Names{"Fan"}, sectionsOf(*specification));
    EXPECT_EQ(Names{"Stop|"}, rowsOf(*specification, "Fan", "action"));
}

TEST(Specification, EndsACircleOfIncludesAtTheRepeatedFile) {
    makeFile("/tmp/other", "include,/tmp/spec\n\nOther\naction,Reset\n");

    const auto specification = loaded("include,/tmp/other\n\nFan\naction,Stop\n");

    EXPECT_EQ((Names{"Fan", "Other"}), sectionsOf(*specification));
    EXPECT_EQ(Names{"Reset|"}, rowsOf(*specification, "Other", "action"));
}

TEST(Specification, ReadsAFileThatIsIncludedTwiceEachTime) {
    makeFile("/tmp/fan", "Fan\naction,Stop\n");

    const auto specification = loaded("include,/tmp/fan\ninclude,/tmp/fan\n");

    EXPECT_EQ((Names{"Fan", "Fan"}), sectionsOf(*specification));
}

TEST(Specification, RefusesAFileThatCannotBeOpened) {
    expectRefused("/tmp/missing", "/tmp/missing");
    expectRefused("", "");
}

TEST(Specification, RefusesAFolder) {
    expectRefused("/tmp", "/tmp");
}

TEST(Specification, RefusesAFileWhoseIncludeIsMissingAtAnyDepth) {
    makeFile("/tmp/spec", "include,/tmp/middle\n");
    makeFile("/tmp/middle", "include,/tmp/missing\n");

    expectRefused("/tmp/spec", "/tmp/missing");
}

TEST(Specification, LoadsAgainAfterALoadThatFailed) {
    makeFile("/tmp/spec", "include,/tmp/middle\n\nFan\naction,Stop\n");
    makeFile("/tmp/middle", "include,/tmp/late\n");
    expectRefused("/tmp/spec", "/tmp/late");
    makeFile("/tmp/late", "Late\naction,Reset\n");
    Specification specification;

    specification.load("/tmp/spec");

    EXPECT_EQ((Names{"Fan", "Late"}), sectionsOf(specification));
}

TEST(SpecificationEntry, BeginsAtTheSecondCell) {
    std::vector<std::string> row{"name", "first", "second"};
    Specification::Entry entry(row);

    EXPECT_EQ(2U, entry.size());
    EXPECT_EQ("first", entry[0]);
    EXPECT_EQ(&row[2], &entry[1]);
}

} // namespace
