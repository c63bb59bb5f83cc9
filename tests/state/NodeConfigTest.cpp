#include "Stores.h"
#include "support/TraceCapture.h"

#include <qz/tavrel/TreeConfig.h>

#include <gtest/gtest.h>

#include <limits>
#include <sstream>

using qz::tavrel::TreeConfig;
using Node = TreeConfig::Node;
using namespace tavrel::test;

namespace {

using Ids = std::vector<int>;

constexpr int idLimit = 1 << 20;

Ids fieldsOf(const Node& node) {
    return {node.id, node.revision, node.type, node.number, node.parent};
}

class NodeConfig : public testing::Test {
protected:
    NodeConfig() { nodes.assign(&store, 5); }

    Ids node(int id) {
        Node found;
        return nodes.getNode(id, found) ? fieldsOf(found) : Ids{};
    }

    std::string body() {
        std::ostringstream stream;
        EXPECT_EQ(&stream, &nodes.write(stream));
        return stream.str();
    }

    void readBody(const Ids& values) {
        std::istringstream stream(bigEndian(values));
        EXPECT_EQ(&stream, &nodes.read(stream));
    }

    /// Has the table at `revision` with the given free nodes (id, revision), the others up to `count` in use.
    void loadFree(int revision, int count, const std::vector<std::pair<int, int>>& free) {
        Ids values{count};
        for (int id = 0; id < count; ++id) {
            int type = 1;
            int changed = 0;
            for (const auto& [freeId, freed] : free) {
                if (freeId == id) {
                    type = 0;
                    changed = freed;
                }
            }
            values.insert(values.end(), {id, changed, type, 0, -1});
        }
        store.values[5] = framed(revision, bigEndian(values));
        ASSERT_NE(0U, nodes.load());
    }

    RecordingStore store;
    TreeConfig::NodeConfig nodes;
};

TEST(Node, StartsAndIsInitializedInvalid) {
    Node fresh;
    EXPECT_EQ((Ids{-1, -1, 0, -1, -1}), fieldsOf(fresh));
    EXPECT_FALSE(fresh.isValid());

    Node used{1, 2, 3, 4, 5};
    used.init();

    EXPECT_EQ((Ids{-1, -1, 0, -1, -1}), fieldsOf(used));
    EXPECT_FALSE(used.isValid());
}

TEST(Node, IsValidFromZeroOn) {
    EXPECT_TRUE((Node{0, 0, 0, -1, -1}.isValid()));
    EXPECT_FALSE((Node{-1, 0, 0, 0, 0}.isValid()));
    EXPECT_FALSE((Node{0, -1, 0, 0, 0}.isValid()));
    EXPECT_FALSE((Node{0, 0, -1, 0, 0}.isValid()));
}

TEST(Node, TurnsToBigEndianAndBack) {
    Node node{1, 2, 0x01020304, -1, -2};

    node.hton();
    EXPECT_EQ(bigEndian({1, 2, 0x01020304, -1, -2}),
              std::string(reinterpret_cast<const char*>(&node), sizeof node));

    node.ntoh();
    EXPECT_EQ((Ids{1, 2, 0x01020304, -1, -2}), fieldsOf(node));
}

TEST(Node, PrintsItsFields) {
    EXPECT_EQ("ID:3 rev:70 type:2 num:0 parent:-1", (Node{3, 70, 2, 0, -1}.toString()));
}

TEST_F(NodeConfig, StartsEmpty) {
    EXPECT_EQ(0, nodes.count());
    EXPECT_EQ(-1, nodes.getUnusedNodeId());
    EXPECT_FALSE(nodes.isModified());
    EXPECT_EQ(bigEndian({0}), body());
}

TEST_F(NodeConfig, LeavesItsOutputAloneForAnUnknownId) {
    Node out{1, 2, 3, 4, 5};

    EXPECT_FALSE(nodes.getNode(0, out));
    EXPECT_FALSE(nodes.getNode(-1, out));

    EXPECT_EQ((Ids{1, 2, 3, 4, 5}), fieldsOf(out));
}

TEST_F(NodeConfig, SetsNodesOfAnyIdAndIsModified) {
    nodes.setNode({7, 1, 2, 3, 4});
    nodes.setNode({0, 1, 2, 3, 4});
    nodes.setNode({-3, 1, 2, 3, 4});
    nodes.setNode({std::numeric_limits<int>::max(), 1, 2, 3, 4});

    EXPECT_EQ(4, nodes.count());
    EXPECT_EQ((Ids{7, 1, 2, 3, 4}), node(7));
    EXPECT_EQ((Ids{0, 1, 2, 3, 4}), node(0));
    EXPECT_EQ((Ids{-3, 1, 2, 3, 4}), node(-3));
    EXPECT_EQ((Ids{std::numeric_limits<int>::max(), 1, 2, 3, 4}), node(std::numeric_limits<int>::max()));
    EXPECT_EQ(Ids{}, node(1));
    EXPECT_TRUE(nodes.isModified());
}

TEST_F(NodeConfig, ReplacesANode) {
    nodes.setNode({1, 1, 2, 3, 4});
    nodes.setModified(false);

    nodes.setNode({1, 5, 6, 7, 8});

    EXPECT_EQ(1, nodes.count());
    EXPECT_EQ((Ids{1, 5, 6, 7, 8}), node(1));
    EXPECT_TRUE(nodes.isModified());
}

TEST_F(NodeConfig, WritesCountAndNodesInAscendingOrder) {
    nodes.setNode({1, 9, 4, 0, 0});
    nodes.setNode({0, 8, 3, 5, -1});

    EXPECT_EQ(bigEndian({2, 0, 8, 3, 5, -1, 1, 9, 4, 0, 0}), body());
}

TEST_F(NodeConfig, ReadsItsTableInPlaceOfTheOldOne) {
    nodes.setNode({7, 1, 2, 3, 4});
    nodes.setModified(false);

    readBody({2, 0, 8, 3, 5, -1, 1, 9, 4, 0, 0});

    EXPECT_EQ(2, nodes.count());
    EXPECT_EQ((Ids{0, 8, 3, 5, -1}), node(0));
    EXPECT_EQ((Ids{1, 9, 4, 0, 0}), node(1));
    EXPECT_EQ(Ids{}, node(7));
    EXPECT_FALSE(nodes.isModified());
}

TEST_F(NodeConfig, AddsAMissingNodeAsFree) {
    store.values[5] = framed(6, bigEndian({0}));
    nodes.load();
    const TraceCapture capture;

    readBody({3, 0, 1, 1, 0, -1, 1, 1, 1, 0, 0, 3, 1, 1, 0, 0});

    EXPECT_EQ((Ids{2, 7, 0, -1, -1}), node(2)) << "stamped with the revision of the next save";
    EXPECT_EQ((Ids{3, 1, 1, 0, 0}), node(3));
    EXPECT_TRUE(nodes.isModified());
    EXPECT_EQ(bigEndian({4}), body().substr(0, 4));
    ASSERT_EQ(1U, capture.all().size());
    EXPECT_EQ(0x20380U, capture.all()[0].id);
    EXPECT_EQ(infoFlags, capture.all()[0].flags);
    EXPECT_EQ((Ids{2, 0}), capture.all()[0].arguments());
}

TEST_F(NodeConfig, AddsMissingNodesUpToTheNumberOfRecords) {
    readBody({3, 0, 1, 1, 0, -1, 1, 1, 1, 0, 0, 1, 2, 2, 2, 2});

    EXPECT_EQ(3, nodes.count());
    EXPECT_EQ((Ids{1, 2, 2, 2, 2}), node(1)) << "the last record of an id counts";
    EXPECT_EQ((Ids{2, 0, 0, -1, -1}), node(2));
}

TEST_F(NodeConfig, DropsRecordsWithANegativeIdRevisionOrType) {
    readBody({4, -1, 1, 1, 0, -1, 0, -1, 1, 0, 0, 1, 1, -1, 0, 0, 2, 1, 1, 0, -1});

    EXPECT_EQ(4, nodes.count());
    EXPECT_EQ((Ids{0, 0, 0, -1, -1}), node(0));
    EXPECT_EQ((Ids{1, 0, 0, -1, -1}), node(1)) << "its id is a hole now";
    EXPECT_EQ((Ids{2, 1, 1, 0, -1}), node(2));
    EXPECT_EQ((Ids{3, 0, 0, -1, -1}), node(3)) << "up to the number of records";
}

TEST_F(NodeConfig, IsEmptyAndMarkedAfterANegativeCount) {
    nodes.setNode({7, 1, 2, 3, 4});
    nodes.setModified(false);

    readBody({-5, 0, 1, 1, 0, -1});

    EXPECT_EQ(0, nodes.count());
    EXPECT_TRUE(nodes.isModified());
}

TEST_F(NodeConfig, IsEmptyAfterACountOfZero) {
    nodes.setNode({7, 1, 2, 3, 4});
    nodes.setModified(false);

    readBody({0, 0, 1, 1, 0, -1});

    EXPECT_EQ(0, nodes.count());
    EXPECT_FALSE(nodes.isModified());
}

TEST_F(NodeConfig, CountsOnlyTheRecordsThatTheBodyHolds) {
    readBody({std::numeric_limits<int>::max(), 0, 1, 1, 0, -1, 1, 1, 1, 0, 0, 2, 1});

    EXPECT_EQ(2, nodes.count()) << "the third record is cut";
    EXPECT_EQ((Ids{1, 1, 1, 0, 0}), node(1));
    EXPECT_FALSE(nodes.isModified());
}

TEST_F(NodeConfig, DropsAnIdThatNoTreeReaches) {
    readBody({2, 0, 1, 1, 0, -1, idLimit, 1, 1, 0, 0});
    EXPECT_EQ(2, nodes.count());
    EXPECT_EQ(Ids{}, node(idLimit));

    readBody({1, idLimit - 1, 1, 1, 0, 0});
    EXPECT_EQ(idLimit, nodes.count());
    EXPECT_EQ((Ids{idLimit - 1, 1, 1, 0, 0}), node(idLimit - 1));
}

TEST_F(NodeConfig, RepairsNoMoreThanATreeHasFromAnyNumberOfRecords) {
    constexpr int records = idLimit + 5;
    std::string stored = bigEndian({records});
    const std::string record = bigEndian({3, 1, 1, 0, -1});
    for (int i = 0; i < records; ++i) {
        stored += record;
    }
    std::istringstream stream(stored);

    nodes.read(stream);

    EXPECT_EQ(idLimit, nodes.count());
}

TEST_F(NodeConfig, TakesRecordsInAnyOrder) {
    constexpr int count = 100000;
    std::string stored = bigEndian({count});
    for (int id = count - 1; id >= 0; --id) {
        stored += bigEndian({id, id % 1000, 1, 0, -1});
    }
    std::istringstream stream(stored);

    nodes.read(stream);

    EXPECT_EQ(count, nodes.count());
    EXPECT_EQ((Ids{1234, 234, 1, 0, -1}), node(1234));
    EXPECT_FALSE(nodes.isModified());
}

TEST_F(NodeConfig, IsStillMarkedForItsRepairWhenALoadHasReturned) {
    store.values[5] = framed(6, bigEndian({1, 1, 1, 1, 0, -1}));

    EXPECT_EQ(32U, nodes.load());

    EXPECT_TRUE(nodes.isModified());
    EXPECT_EQ((Ids{0, 0, 0, -1, -1}), node(0));
    nodes.save();
    EXPECT_EQ(framed(7, bigEndian({2, 0, 0, 0, -1, -1, 1, 1, 1, 0, -1})), store.values[5]);
    EXPECT_FALSE(nodes.isModified());
}

TEST_F(NodeConfig, IsNotMarkedByALoadThatFoundNoHole) {
    store.values[5] = framed(6, bigEndian({1, 1, 1, 1, 0, -1}));
    nodes.load();
    store.values[5] = framed(7, "");
    EXPECT_EQ(8U, nodes.load());
    EXPECT_FALSE(nodes.isModified());

    store.values[5] = framed(8, bigEndian({1, 0, 1, 1, 0, -1}));
    nodes.load();

    EXPECT_FALSE(nodes.isModified());
}

TEST_F(NodeConfig, OffersTheIdThatHasBeenFreeLongest) {
    loadFree(10, 4, {{1, 9}, {3, 5}});

    EXPECT_EQ(3, nodes.getUnusedNodeId());
    EXPECT_EQ(1, nodes.getUnusedNodeId());
}

TEST_F(NodeConfig, OffersTheLowestIdAmongEquals) {
    loadFree(10, 6, {{4, 5}, {2, 5}, {5, 5}});

    EXPECT_EQ(2, nodes.getUnusedNodeId());
    EXPECT_EQ(4, nodes.getUnusedNodeId());
    EXPECT_EQ(5, nodes.getUnusedNodeId());
}

TEST_F(NodeConfig, KnowsTheLongestFreeAcrossTheWrapOfRevisions) {
    loadFree(3, 3, {{0, 2}, {1, std::numeric_limits<int>::max()}});

    EXPECT_EQ(1, nodes.getUnusedNodeId());
    EXPECT_EQ(0, nodes.getUnusedNodeId());
}

TEST_F(NodeConfig, OffersFirstWhatIsFreedUnderARevisionToCome) {
    loadFree(10, 2, {{0, 1}});
    nodes.setNode({1, 11, 0, -1, -1});

    EXPECT_EQ(1, nodes.getUnusedNodeId());
    EXPECT_EQ(0, nodes.getUnusedNodeId());
}

TEST_F(NodeConfig, DoesNotOfferAnIdTwiceUntilThePoolIsEmpty) {
    loadFree(10, 2, {{0, 1}, {1, 1}});

    EXPECT_EQ(0, nodes.getUnusedNodeId());
    EXPECT_EQ(1, nodes.getUnusedNodeId());
    EXPECT_EQ(0, nodes.getUnusedNodeId()) << "built anew, and 0 has been given no type";
}

TEST_F(NodeConfig, DoesNotOfferAnIdThatIsFreedWhileThePoolStands) {
    loadFree(10, 3, {{0, 1}, {2, 2}});
    EXPECT_EQ(0, nodes.getUnusedNodeId());

    nodes.setNode({1, 11, 0, -1, -1});

    EXPECT_EQ(2, nodes.getUnusedNodeId());
}

TEST_F(NodeConfig, BuildsThePoolAnewAfterASave) {
    loadFree(10, 3, {{0, 1}, {2, 2}});
    EXPECT_EQ(0, nodes.getUnusedNodeId());
    nodes.setNode({1, 11, 0, -1, -1});

    nodes.save();

    EXPECT_EQ(0, nodes.getUnusedNodeId());
    EXPECT_EQ(2, nodes.getUnusedNodeId());
    EXPECT_EQ(1, nodes.getUnusedNodeId());
}

TEST_F(NodeConfig, BuildsThePoolAnewAfterALoad) {
    loadFree(10, 3, {{0, 1}, {2, 2}});
    EXPECT_EQ(0, nodes.getUnusedNodeId());

    loadFree(11, 3, {{1, 1}});

    EXPECT_EQ(1, nodes.getUnusedNodeId());
}

TEST_F(NodeConfig, OffersNothingWhenAllIdsAreInUse) {
    loadFree(10, 3, {});

    EXPECT_EQ(-1, nodes.getUnusedNodeId());
}

} // namespace
