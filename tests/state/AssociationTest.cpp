#include "Stores.h"
#include "support/TraceCapture.h"

#include <qz/tavrel/Association.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <sstream>

using qz::tavrel::Association;
using namespace tavrel::test;

namespace {

using Ids = std::vector<int>;

Ids targetsOf(Association& links, int src) {
    Ids out;
    links.get(src, out);
    return out;
}

Ids sourcesOf(Association& links, int dst) {
    Ids out;
    links.getSrcs(dst, out);
    return out;
}

std::string bodyOf(Association& links) {
    std::ostringstream stream;
    links.write(stream);
    return stream.str();
}

void readBody(Association& links, const std::string& body) {
    std::istringstream stream(body);
    EXPECT_EQ(&stream, &links.read(stream));
}

/// Expects one error record of one point with key, source and destination.
void expectRefusal(const TraceCapture& capture, unsigned long id, int src, int dst) {
    ASSERT_EQ(1U, capture.all().size());
    const TraceRecord record = capture.all()[0];
    EXPECT_EQ(id, record.id);
    EXPECT_EQ(errorFlags, record.flags);
    EXPECT_EQ(static_cast<std::uint32_t>(getpid()), record.words()[0]);
    EXPECT_EQ(static_cast<std::uint32_t>(gettid()), record.words()[1]);
    EXPECT_EQ((Ids{8, src, dst, 0, 0, 0}), record.arguments());
}

TEST(Association, KeepsLinksInTheOrderOfAdding) {
    Association links;

    links.add(1, 9);
    links.add(1, 3);
    links.add(7, 3);
    links.add(1, 5);

    EXPECT_EQ((Ids{9, 3, 5}), targetsOf(links, 1));
    EXPECT_EQ((Ids{1, 7}), sourcesOf(links, 3));
    EXPECT_EQ(1, links.getSrc(3));
    EXPECT_TRUE(links.isModified());
}

TEST(Association, AnswersNothingForUnknownIds) {
    Association links;
    links.add(1, 2);

    EXPECT_EQ(Ids{}, targetsOf(links, 2));
    EXPECT_EQ(Ids{}, sourcesOf(links, 1));
    EXPECT_EQ(-1, links.getSrc(1));
    EXPECT_EQ(-1, links.getSrc(77));
}

TEST(Association, AppendsToItsOutputs) {
    Association links;
    links.add(1, 2);
    Ids list{40};
    std::set<int> all{50};

    links.get(1, list);
    links.getSrcs(2, list);
    links.getAll(all);

    EXPECT_EQ((Ids{40, 2, 1}), list);
    EXPECT_EQ((std::set<int>{1, 2, 50}), all);
}

TEST(Association, ListsAlsoASourceWhoseLinksAreGone) {
    Association links;
    links.add(1, 2);
    links.remove(1, 2);
    std::set<int> all;

    links.getAll(all);

    EXPECT_EQ(std::set<int>{1}, all);
}

TEST(Association, AddsALinkToEachOfAList) {
    Association links;
    Ids dsts{4, -1, 2, 4};

    links.add(1, dsts);

    EXPECT_EQ((Ids{4, 2}), targetsOf(links, 1));
}

TEST(Association, RefusesALinkToItself) {
    const TraceCapture capture;
    Association links;
    links.assign(nullptr, 8);

    links.add(1, 1);

    EXPECT_FALSE(links.isModified());
    EXPECT_EQ(Ids{}, targetsOf(links, 1));
    expectRefusal(capture, 0x20304, 1, 1);
}

TEST(Association, RefusesANegativeSource) {
    const TraceCapture capture;
    Association links;
    links.assign(nullptr, 8);

    links.add(-1, 2);

    EXPECT_FALSE(links.isModified());
    EXPECT_EQ(-1, links.getSrc(2));
    expectRefusal(capture, 0x20304, -1, 2);
}

TEST(Association, RefusesANegativeDestination) {
    const TraceCapture capture;
    Association links;
    links.assign(nullptr, 8);

    links.add(2, -7);

    EXPECT_FALSE(links.isModified());
    expectRefusal(capture, 0x20304, 2, -7);
}

TEST(Association, RefusesALinkThatClosesACycle) {
    const TraceCapture capture;
    Association links;
    links.assign(nullptr, 8);
    links.add(1, 2);
    links.add(2, 3);
    links.setModified(false);

    links.add(3, 1);

    EXPECT_FALSE(links.isModified());
    EXPECT_EQ(Ids{}, targetsOf(links, 3));
    EXPECT_EQ(-1, links.getSrc(1));
    expectRefusal(capture, 0x20305, 3, 1);
}

TEST(Association, RefusesALinkParallelToALongerWay) {
    const TraceCapture capture;
    Association links;
    links.assign(nullptr, 8);
    links.add(1, 2);
    links.add(2, 3);
    links.setModified(false);

    links.add(1, 3);

    EXPECT_FALSE(links.isModified());
    EXPECT_EQ(Ids{2}, targetsOf(links, 1));
    EXPECT_EQ(Ids{2}, sourcesOf(links, 3));
    expectRefusal(capture, 0x20306, 1, 3);
}

TEST(Association, RefusesALinkThatExists) {
    const TraceCapture capture;
    Association links;
    links.assign(nullptr, 8);
    links.add(1, 2);
    links.setModified(false);

    links.add(1, 2);

    EXPECT_FALSE(links.isModified());
    EXPECT_EQ(Ids{2}, targetsOf(links, 1));
    EXPECT_EQ(Ids{1}, sourcesOf(links, 2));
    expectRefusal(capture, 0x20306, 1, 2);
}

TEST(Association, AcceptsADirectLinkBeforeTheLongerWay) {
    Association links;
    links.add(1, 3);
    links.add(1, 2);

    links.add(2, 3);

    EXPECT_EQ((Ids{1, 2}), sourcesOf(links, 3));
}

TEST(Association, TellsWhatCanBeReached) {
    Association links;
    links.add(1, 2);
    links.add(2, 3);
    links.add(2, 4);
    links.add(9, 4);

    EXPECT_TRUE(links.isDepend(1, 2));
    EXPECT_TRUE(links.isDepend(1, 4));
    EXPECT_TRUE(links.isDepend(9, 4));
    EXPECT_FALSE(links.isDepend(4, 1));
    EXPECT_FALSE(links.isDepend(3, 4));
    EXPECT_FALSE(links.isDepend(1, 9));
    EXPECT_FALSE(links.isDepend(1, 1));
    EXPECT_FALSE(links.isDepend(50, 51));
}

TEST(Association, ReachesNothingAfterTheLinkIsRemoved) {
    Association links;
    links.add(1, 2);
    links.remove(1, 2);

    EXPECT_FALSE(links.isDepend(1, 2));
    links.add(2, 1);
    EXPECT_EQ(Ids{1}, targetsOf(links, 2));
}

TEST(Association, AnswersOnStoredDataThatHoldsACycle) {
    Association links;
    readBody(links, bigEndian({3, 1, 1, 2, 2, 2, 3, 1, 5, 1, 5}));

    EXPECT_TRUE(links.isDepend(1, 3));
    EXPECT_TRUE(links.isDepend(1, 1)) << "by way of 2";
    EXPECT_TRUE(links.isDepend(5, 5)) << "a stored link to itself";
    EXPECT_FALSE(links.isDepend(3, 1));
    EXPECT_FALSE(links.isDepend(1, 77));
    EXPECT_FALSE(links.isDepend(77, 1));
}

TEST(Association, AnswersOnAChainOfAHundredThousandLinks) {
    constexpr int length = 100000;
    std::string body = bigEndian({length});
    for (int id = 0; id < length; ++id) {
        body += bigEndian({id, 1, id + 1});
    }
    Association links;
    readBody(links, body);

    EXPECT_TRUE(links.isDepend(0, length));
    EXPECT_FALSE(links.isDepend(length, 0));
}

TEST(Association, VisitsEachIdOnceWhereWaysMeetAgainAndAgain) {
    // Each id leads to both of the next pair: 2 ^ 40 ways from the first to the last.
    std::string body = bigEndian({80});
    for (int id = 0; id < 80; ++id) {
        const int next = id / 2 * 2 + 2;
        body += bigEndian({id, 2, next, next + 1});
    }
    Association links;
    readBody(links, body);

    EXPECT_TRUE(links.isDepend(0, 80));
    EXPECT_FALSE(links.isDepend(80, 0));
}

TEST(Association, RemovesALinkFromBothSides) {
    Association links;
    links.add(1, 2);
    links.add(1, 3);
    links.add(4, 2);
    links.setModified(false);

    links.remove(1, 2);

    EXPECT_EQ(Ids{3}, targetsOf(links, 1));
    EXPECT_EQ(Ids{4}, sourcesOf(links, 2));
    EXPECT_TRUE(links.isModified());
}

TEST(Association, IsModifiedByRemovingALinkThatAKnownSourceNeverHad) {
    Association links;
    links.add(1, 2);
    links.setModified(false);

    links.remove(1, 9);

    EXPECT_TRUE(links.isModified());
    EXPECT_EQ(Ids{2}, targetsOf(links, 1));
    EXPECT_EQ(-1, links.getSrc(9));
}

TEST(Association, IsNotModifiedByRemovingALinkOfAnUnknownSource) {
    Association links;

    links.remove(1, 2);

    EXPECT_FALSE(links.isModified());
}

TEST(Association, RemovesEveryStoredCopyOfALink) {
    Association links;
    readBody(links, bigEndian({1, 1, 3, 2, 2, 5}));
    ASSERT_EQ((Ids{2, 2, 5}), targetsOf(links, 1));

    links.remove(1, 2);

    EXPECT_EQ(Ids{5}, targetsOf(links, 1));
    EXPECT_EQ(Ids{}, sourcesOf(links, 2));
    EXPECT_EQ(-1, links.getSrc(2));
}

TEST(Association, RemovesOnlyTheLinksThatLeaveASource) {
    Association links;
    links.add(0, 1);
    links.add(1, 2);
    links.add(3, 2);
    links.setModified(false);

    links.removeAll(1);

    EXPECT_EQ(0, links.getSrc(1));
    EXPECT_EQ(Ids{3}, sourcesOf(links, 2));
    EXPECT_EQ(Ids{}, targetsOf(links, 1));
    EXPECT_TRUE(links.isModified());
}

TEST(Association, LeavesADestinationWithoutSourceAfterRemoveAll) {
    Association links;
    links.add(0, 1);
    links.add(1, 2);

    links.removeAll(1);

    EXPECT_EQ(0, links.getSrc(1));
    EXPECT_EQ(-1, links.getSrc(2));
}

TEST(Association, IsNotModifiedByRemoveAllOfAnUnknownSource) {
    Association links;
    links.add(0, 1);
    links.setModified(false);

    links.removeAll(1);

    EXPECT_FALSE(links.isModified());
    EXPECT_EQ(0, links.getSrc(1));
}

TEST(Association, RemovesTheEntryOfASourceWithRemoveAll) {
    Association links;
    links.add(1, 2);

    links.removeAll(1);

    EXPECT_EQ(bigEndian({0}), bodyOf(links));
}

TEST(Association, ClearsEverything) {
    Association links;
    links.add(1, 2);
    links.setModified(false);

    links.clear();

    EXPECT_EQ(Ids{}, targetsOf(links, 1));
    EXPECT_EQ(-1, links.getSrc(2));
    EXPECT_TRUE(links.isModified());
}

TEST(Association, IsNotModifiedByClearWithoutAnEntry) {
    Association links;

    links.clear();

    EXPECT_FALSE(links.isModified());
}

TEST(Association, IsModifiedByClearOfAnEntryWithoutLinks) {
    Association links;
    links.add(1, 2);
    links.remove(1, 2);
    links.setModified(false);

    links.clear();

    EXPECT_TRUE(links.isModified());
}

TEST(Association, WritesSourcesInAscendingOrder) {
    Association links;
    links.add(300, 7);
    links.add(2, 9);
    links.add(2, 1);

    EXPECT_EQ(bigEndian({2, 2, 2, 9, 1, 300, 1, 7}), bodyOf(links));
}

TEST(Association, WritesASourceWithoutLinksWhichDoesNotComeBack) {
    Association links;
    links.add(1, 2);
    links.remove(1, 2);

    const std::string body = bodyOf(links);
    EXPECT_EQ(bigEndian({1, 1, 0}), body);

    readBody(links, body);
    EXPECT_EQ(bigEndian({0}), bodyOf(links));
}

TEST(Association, ReadsLinksInPlaceOfItsOwn) {
    Association links;
    links.add(50, 51);
    links.setModified(false);

    readBody(links, bigEndian({2, 1, 2, 9, 4, 3, 1, 4}));

    EXPECT_EQ((Ids{9, 4}), targetsOf(links, 1));
    EXPECT_EQ((Ids{1, 3}), sourcesOf(links, 4));
    EXPECT_EQ(-1, links.getSrc(51));
    EXPECT_FALSE(links.isModified());
}

TEST(Association, OrdersSourcesByIdOnlyAfterAReload) {
    Association links;
    links.add(9, 5);
    links.add(3, 5);
    EXPECT_EQ(9, links.getSrc(5));

    readBody(links, bodyOf(links));

    EXPECT_EQ(3, links.getSrc(5));
    EXPECT_EQ((Ids{3, 9}), sourcesOf(links, 5));
}

TEST(Association, IsEmptyAfterReadingACountBelowOne) {
    for (const int count : {0, -1}) {
        Association links;
        links.add(1, 2);

        readBody(links, bigEndian({count, 1, 1, 2}));

        EXPECT_EQ(Ids{}, targetsOf(links, 1));
    }
}

TEST(Association, SkipsStoredIdsOfMinusOne) {
    Association links;

    readBody(links, bigEndian({3, -1, 1, 3, 7, -1, 8, 6, 1, 7}));

    EXPECT_EQ((Ids{7, 8}), targetsOf(links, 1)) << "-1 stands without a count";
    EXPECT_EQ(Ids{7}, targetsOf(links, 6));
    EXPECT_EQ(-1, links.getSrc(-1));
}

TEST(Association, IgnoresANegativeCountOfDestinations) {
    Association links;

    readBody(links, bigEndian({2, 1, -5, 6, 1, 7}));

    EXPECT_EQ(Ids{}, targetsOf(links, 1));
    EXPECT_EQ(Ids{7}, targetsOf(links, 6));
}

TEST(Association, StopsReadingWithTheStreamWhateverTheCountsSay) {
    constexpr int most = 0x7fffffff;
    Association links;

    readBody(links, bigEndian({most, 1, most, 2, 3}));

    EXPECT_EQ((Ids{2, 3}), targetsOf(links, 1));
    EXPECT_EQ(bigEndian({1, 1, 2, 2, 3}), bodyOf(links));

    readBody(links, bigEndian({most, 1, 1, 2}));

    EXPECT_EQ(bigEndian({1, 1, 1, 2}), bodyOf(links));
}

TEST(Association, IsEmptyAfterReadingAnEmptyStream) {
    Association links;
    links.add(1, 2);

    readBody(links, "");

    EXPECT_EQ(Ids{}, targetsOf(links, 1));
}

class StoredAssociation : public testing::Test {
protected:
    StoredAssociation() {
        mine.assign(&store, 8);
        other.assign(&store, 8);
    }

    RecordingStore store;
    Association mine;
    Association other;
};

TEST_F(StoredAssociation, TravelsThroughTheStore) {
    mine.add(1, 2);
    const TraceCapture capture;

    EXPECT_EQ(24U, mine.save());

    EXPECT_EQ(bigEndian({0, 16, 1, 1, 1, 2}), store.values[8]);
    EXPECT_EQ(24U, other.load());
    EXPECT_EQ(Ids{2}, targetsOf(other, 1));
    EXPECT_EQ(0, other.getRevision());
}

TEST_F(StoredAssociation, LeavesARecordWhenItHasSaved) {
    mine.add(1, 2);
    const TraceCapture capture;

    mine.save();
    mine.save();

    ASSERT_EQ(1U, capture.all().size());
    EXPECT_EQ(0x20308U, capture.all()[0].id);
    EXPECT_EQ(infoFlags, capture.all()[0].flags);
    EXPECT_EQ((Ids{8, 0}), capture.all()[0].arguments());
}

TEST_F(StoredAssociation, LeavesNoRecordOfASaveThatTheStoreRefused) {
    mine.add(1, 2);
    store.beforeWrite = [](int) { throw std::runtime_error("no"); };
    const TraceCapture capture;

    EXPECT_EQ(0U, mine.save());

    EXPECT_TRUE(capture.all().empty());
}

TEST_F(StoredAssociation, LeavesARecordWhenItHasReplacedALoadedState) {
    mine.add(1, 2);
    mine.save();
    const TraceCapture capture;

    other.load();
    EXPECT_TRUE(capture.all().empty()) << "nothing had been loaded before";
    other.load();
    EXPECT_TRUE(capture.all().empty()) << "nothing was new";
    mine.add(1, 3);
    mine.save();
    other.load();

    ASSERT_EQ(1U, capture.count(0x20307));
    const TraceRecord record = capture.of(0x20307)[0];
    EXPECT_EQ(infoFlags, record.flags);
    EXPECT_EQ((Ids{8, 0, 1, 0, 0, 0}), record.arguments());
}

} // namespace
