#include "Clock.h"

#include <qz/tavrel/TreeConfig.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <fstream>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

using qz::tavrel::TreeConfig;
using Node = TreeConfig::Node;
using namespace tavrel::test;

namespace {

constexpr char path[] = "/tmp/history";

std::string hostOrder(const std::vector<int>& values) {
    return {reinterpret_cast<const char*>(values.data()), values.size() * sizeof(int)};
}

std::string contentOf(const char* file) {
    std::ostringstream all;
    all << std::ifstream(file).rdbuf();
    return all.str();
}

void writeFile(const std::string& content) {
    std::ofstream(path) << content;
}

class History : public testing::Test {
protected:
    History() { history.assign(path); }
    void TearDown() override { scriptedTimes.clear(); }

    /// Records a change and closes its revision at a time.
    void record(int revision, int id, timeval when, int type = 1) {
        history.add({id, revision, type, 0, -1});
        scriptedTimes.push_back(when);
        history.update();
    }

    /// Type of the state found, -1 for none.
    int typeAt(int id, int revision) {
        Node found;
        return history.get(id, revision, found) ? found.type : -1;
    }

    int revisionAt(timeval when) { return history.getRevision(when); }

    std::string written() {
        std::ostringstream stream;
        EXPECT_EQ(&stream, &history.write(stream));
        return stream.str();
    }

    void readText(const std::string& content) {
        std::istringstream stream(content);
        EXPECT_EQ(&stream, &history.read(stream));
    }

    TreeConfig::History history;
};

TEST_F(History, RecordsNothingWithoutAPath) {
    history.assign("");

    record(1, 0, {100, 0});

    EXPECT_EQ(-1, typeAt(0, 1));
    EXPECT_EQ(-1, revisionAt({200, 0}));
    EXPECT_EQ(hostOrder({0, 0}), written());
    EXPECT_EQ(0U, history.save());
    EXPECT_EQ(0U, history.load());
}

TEST_F(History, FindsTheNewestStateThatIsNotNewerThanARevision) {
    record(3, 7, {100, 0}, 30);
    record(5, 7, {101, 0}, 50);
    record(9, 8, {102, 0}, 90);

    EXPECT_EQ(30, typeAt(7, 3));
    EXPECT_EQ(30, typeAt(7, 4));
    EXPECT_EQ(50, typeAt(7, 5));
    EXPECT_EQ(50, typeAt(7, 9));
    EXPECT_EQ(90, typeAt(8, 9));
}

TEST_F(History, FindsTheLastOfSeveralStatesOfOneRevision) {
    history.add({7, 3, 30, 0, -1});
    history.add({7, 3, 31, 0, -1});

    EXPECT_EQ(31, typeAt(7, 3)) << "also before the revision is closed";
}

TEST_F(History, FindsNothingOlderThanItsEntriesOrUnknown) {
    record(3, 7, {100, 0});
    Node untouched{1, 2, 3, 4, 5};

    EXPECT_EQ(-1, typeAt(7, 2));
    EXPECT_EQ(-1, typeAt(8, 3));
    EXPECT_FALSE(history.get(7, 2, untouched));
    EXPECT_EQ(1, untouched.id);
}

TEST_F(History, FindsNothingWhenItIsEmpty) {
    EXPECT_EQ(-1, typeAt(0, 0));
    EXPECT_EQ(-1, revisionAt({std::numeric_limits<int>::max(), 0}));
}

TEST_F(History, FindsStatesAcrossTheWrapOfRevisions) {
    constexpr int last = std::numeric_limits<int>::max();
    record(last, 7, {100, 0}, 30);
    record(0, 7, {101, 0}, 40);
    record(1, 7, {102, 0}, 50);

    EXPECT_EQ(30, typeAt(7, last));
    EXPECT_EQ(40, typeAt(7, 0));
    EXPECT_EQ(50, typeAt(7, 1));
    EXPECT_EQ(-1, typeAt(7, last - 1));
}

TEST_F(History, TakesARevisionAheadOfItsNewestEntryForAnOldOne) {
    record(3, 7, {100, 0});

    EXPECT_EQ(-1, typeAt(7, 4));
}

TEST_F(History, KnowsTheRevisionJustBeforeATime) {
    record(3, 7, {100, 500});
    record(4, 7, {100, 600});
    record(5, 7, {101, 0});

    EXPECT_EQ(-1, revisionAt({99, 999999}));
    EXPECT_EQ(-1, revisionAt({100, 500})) << "the time of an entry is not behind it";
    EXPECT_EQ(3, revisionAt({100, 501}));
    EXPECT_EQ(3, revisionAt({100, 600}));
    EXPECT_EQ(4, revisionAt({100, 601}));
    EXPECT_EQ(4, revisionAt({101, 0}));
    EXPECT_EQ(5, revisionAt({101, 1}));
    EXPECT_EQ(5, revisionAt({102, 0}));
}

TEST_F(History, ClosesARevisionUnderTheNumberOfItsLastChange) {
    history.add({1, 3, 0, 0, 0});
    history.add({2, 4, 0, 0, 0});
    scriptedTimes = {{100, 7}};

    history.update();

    EXPECT_EQ(hostOrder({1, 4, 100, 7, 2, 1, 3, 0, 0, 0, 2, 4, 0, 0, 0}), written());
}

TEST_F(History, ClosesNothingWithoutAChange) {
    record(3, 7, {100, 0});
    const std::string before = written();

    history.update();

    EXPECT_EQ(before, written());
}

TEST_F(History, ClosesNothingWhenALoadHasTakenItsChanges) {
    writeFile("");
    history.add({1, 3, 0, 0, 0});
    history.load();

    history.update();

    EXPECT_EQ(hostOrder({0, 0}), written());
}

TEST_F(History, GivesTwoRevisionsDifferentTimes) {
    record(3, 7, {100, 7});
    history.add({7, 4, 0, 0, 0});
    scriptedTimes = {{100, 7}, {100, 7}, {100, 8}};

    history.update();

    EXPECT_TRUE(scriptedTimes.empty());
    EXPECT_EQ(3, revisionAt({100, 8}));
    EXPECT_EQ(4, revisionAt({100, 9}));
}

TEST_F(History, AsksTheClockAgainOnlyForTheSameTime) {
    record(3, 7, {100, 7});

    record(4, 7, {99, 7});

    EXPECT_EQ(4, revisionAt({99, 8})) << "the clock may have been set back";
}

TEST_F(History, Keeps256Revisions) {
    for (int revision = 1; revision <= 256; ++revision) {
        record(revision, 7, {1000 + revision, 0}, revision);
    }

    EXPECT_EQ(1, typeAt(7, 1));
    EXPECT_EQ(1, revisionAt({1002, 0}));
}

TEST_F(History, LosesTheOldestRevisionAndItsChangesToThe257th) {
    history.add({8, 1, 1, 0, -1});
    for (int revision = 1; revision <= 257; ++revision) {
        record(revision, 7, {1000 + revision, 0}, revision);
    }

    EXPECT_EQ(-1, typeAt(7, 1));
    EXPECT_EQ(-1, typeAt(8, 257)) << "both changes of revision 1 have gone";
    EXPECT_EQ(2, typeAt(7, 2));
    EXPECT_EQ(-1, revisionAt({1002, 0}));
    EXPECT_EQ(2, revisionAt({1003, 0}));
    EXPECT_EQ(257, revisionAt({2000, 0}));
    EXPECT_EQ(4U + 256 * 12 + 4 + 256 * 20, written().size());
}

TEST_F(History, LosesAllChangesWhenAllAreOfTheOldestRevision) {
    std::vector<int> values{256};
    for (int i = 0; i < 256; ++i) {
        values.insert(values.end(), {i, 1000 + i, 0});
    }
    values.push_back(0);
    readText(hostOrder(values));

    record(300, 7, {2000, 0});

    EXPECT_EQ(-1, typeAt(7, 300));
    EXPECT_EQ(300, revisionAt({2001, 0}));
}

TEST_F(History, WritesItsFileInTheHostsOrder) {
    record(3, 7, {100, 200});

    EXPECT_EQ(4U + 12 + 4 + 20, history.save());

    EXPECT_EQ(hostOrder({1, 3, 100, 200, 1, 7, 3, 1, 0, -1}), contentOf(path));
}

TEST_F(History, ClosesTheRevisionWhenItSaves) {
    history.add({7, 3, 1, 0, -1});
    scriptedTimes = {{100, 200}};

    history.save();

    EXPECT_EQ(hostOrder({1, 3, 100, 200, 1, 7, 3, 1, 0, -1}), contentOf(path));
}

TEST_F(History, WritesTheFileAnewAlsoWithoutAChange) {
    writeFile(std::string(1000, 'x'));

    EXPECT_EQ(8U, history.save());

    EXPECT_EQ(hostOrder({0, 0}), contentOf(path));
}

TEST_F(History, LoadsWhatAnotherHasSaved) {
    record(3, 7, {100, 200});
    history.save();
    TreeConfig::History other;
    other.assign(path);

    EXPECT_EQ(40U, other.load());

    Node found;
    EXPECT_TRUE(other.get(7, 3, found));
    EXPECT_EQ(1, found.type);
    timeval when{100, 201};
    EXPECT_EQ(3, other.getRevision(when));
}

TEST_F(History, CountsOnlyTheBytesThatItHasTaken) {
    writeFile(hostOrder({0, 0}) + "rest");

    EXPECT_EQ(8U, history.load());
}

TEST_F(History, TakesSecondsBeyondTheYear2038) {
    if (sizeof(timeval::tv_sec) == 4) {
        GTEST_SKIP() << "the clock of this machine ends before";
    }
    const timeval late{static_cast<time_t>(3000000000LL), 5};
    record(3, 7, late);

    readText(written());

    EXPECT_EQ(-1, revisionAt(late));
    EXPECT_EQ(3, revisionAt({late.tv_sec, 6}));
}

TEST_F(History, StaysAsItIsWhenItsFileCannotBeOpened) {
    record(3, 7, {100, 200});
    const std::string before = written();

    for (const char* file : {"/tmp/missing/history", "/tmp", ""}) {
        history.assign(file);
        EXPECT_EQ(0U, history.load()) << file;
        EXPECT_EQ(0U, history.save()) << file;
    }

    EXPECT_EQ(before, written());
}

TEST_F(History, ForgetsOldRevisionsAlsoWhenItsFileCannotBeWritten) {
    history.assign("/tmp/missing/history");

    for (int revision = 1; revision <= 300; ++revision) {
        history.add({7, revision, 1, 0, -1});
        EXPECT_EQ(0U, history.save());
    }

    EXPECT_EQ(4U + 256 * 12 + 4 + 256 * 20, written().size());
}

TEST_F(History, FollowsNoLinkThatSomebodyHasPlanted) {
    writeFile("precious");
    ASSERT_EQ(0, symlink(path, "/tmp/link"));
    history.assign("/tmp/link");

    EXPECT_EQ(0U, history.save());

    EXPECT_EQ("precious", contentOf(path));
}

TEST_F(History, IsEmptyAfterLoadingAnEmptyFile) {
    record(3, 7, {100, 200});
    writeFile("");

    EXPECT_EQ(0U, history.load());

    EXPECT_EQ(hostOrder({0, 0}), written());
}

TEST_F(History, KeepsTheWholeRecordsOfAShortFile) {
    const std::string whole = hostOrder({2, 3, 100, 0, 4, 101, 0, 2, 7, 3, 1, 0, -1, 8, 4, 1, 0, -1});
    const std::vector<std::pair<std::size_t, std::string>> cuts = {
        {3, hostOrder({0, 0})},
        {4, hostOrder({0, 0})},
        {4 + 11, hostOrder({0, 0})},
        {4 + 23, hostOrder({1, 3, 100, 0, 0})},
        {4 + 24, hostOrder({2, 3, 100, 0, 4, 101, 0, 0})},
        {4 + 24 + 3, hostOrder({2, 3, 100, 0, 4, 101, 0, 0})},
        {4 + 24 + 4 + 39, hostOrder({2, 3, 100, 0, 4, 101, 0, 1, 7, 3, 1, 0, -1})},
    };

    for (const auto& [length, kept] : cuts) {
        readText(whole.substr(0, length));
        EXPECT_EQ(kept, written()) << length;
    }
}

TEST_F(History, DoesNotBelieveItsCounts) {
    constexpr int most = std::numeric_limits<int>::max();

    readText(hostOrder({most, 3, 100, 0}));
    EXPECT_EQ(hostOrder({1, 3, 100, 0, 0}), written());

    readText(hostOrder({1, 3, 100, 0, most, 7, 3, 1, 0, -1}));
    EXPECT_EQ(hostOrder({1, 3, 100, 0, 1, 7, 3, 1, 0, -1}), written());

    readText(hostOrder({-1, -1, 7, 3, 1, 0, -1}));
    EXPECT_EQ(hostOrder({0, 0}), written());
}

TEST_F(History, ReadsNoFileOfTheOtherByteOrder) {
    record(3, 7, {100, 200});
    std::string swapped = written();
    for (std::size_t i = 0; i < swapped.size(); i += 4) {
        std::swap(swapped[i], swapped[i + 3]);
        std::swap(swapped[i + 1], swapped[i + 2]);
    }

    readText(swapped);

    EXPECT_EQ(-1, typeAt(7, 3));
}

} // namespace
