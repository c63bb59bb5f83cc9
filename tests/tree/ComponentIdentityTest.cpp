#include "TreeTest.h"

#include <qz/tavrel/ComponentAccessor.h>
#include <qz/tavrel/QZException.h>

#include <atomic>
#include <memory>
#include <thread>

using namespace tavrel::test;
using namespace qz::tavrel;

namespace {

using ComponentIdentity = TreeTest;

} // namespace

// --- ids ---

TEST_F(ComponentIdentity, HasOneObjectForAnId) {
    Component* const first = at(5);

    EXPECT_EQ(5, first->getComponentId());
    EXPECT_EQ(first, at(5));
    EXPECT_NE(first, at(6));
}

TEST_F(ComponentIdentity, HasOneObjectForAnIdThatSeveralThreadsAskForAtOnce) {
    constexpr int askers = 4;
    std::vector<Components> found(askers);
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;

    for (Components& mine : found) {
        threads.emplace_back([&ready, &mine] {
            ++ready;
            while (ready < askers) {
                std::this_thread::yield();
            }
            for (int id = sampleSize; id < TreeFixture::maxCount; ++id) {
                mine.push_back(at(id));
            }
        });
    }
    for (std::thread& each : threads) {
        each.join();
    }

    for (const Components& each : found) {
        EXPECT_EQ(found[0], each);
    }
    EXPECT_EQ(sampleSize, found[0].front()->getComponentId());
}

TEST_F(ComponentIdentity, RefusesIdsOutsideTheTree) {
    const TraceCapture trace;

    EXPECT_EQ(invalidId, faultText([] { at(-1); }));
    EXPECT_EQ(invalidId, faultText([] { at(TreeFixture::maxCount); }));

    const auto records = trace.of(0x20100);
    ASSERT_EQ(2U, records.size());
    EXPECT_EQ(debugFlags, records[0].flags);
    EXPECT_EQ((std::vector<int>{-1, 0}), records[0].arguments());
    EXPECT_EQ((std::vector<int>{TreeFixture::maxCount, 0}), records[1].arguments());
}

TEST_F(ComponentIdentity, TakesTheLastIdBelowTheMaximum) {
    EXPECT_EQ(TreeFixture::maxCount - 1, at(TreeFixture::maxCount - 1)->getComponentId());
}

TEST_F(ComponentIdentity, GivesIdsInSequenceWhileTheTreeGrows) {
    EXPECT_EQ(sampleSize, Component::getComponent()->getComponentId());
    // Only a stamped node counts as taken.
    EXPECT_EQ(sampleSize, Component::getComponent()->getComponentId());

    root->createComponent(fan);

    EXPECT_EQ(sampleSize + 1, Component::getComponent()->getComponentId());
}

TEST_F(ComponentIdentity, GivesUnseenIdsBeforeFreedOnes) {
    at(1)->deleteComponent();

    EXPECT_EQ(sampleSize, Component::getComponent()->getComponentId());
}

TEST_F(ComponentIdentity, RecyclesTheIdThatHasBeenFreeLongestInAFullTree) {
    Component::setMaxCount(sampleSize);
    at(5)->deleteComponent();
    at(2)->deleteComponent();
    at(6)->deleteComponent();

    EXPECT_EQ(5, Component::getComponent()->getComponentId());
}

TEST_F(ComponentIdentity, RaisesWhenAFullTreeHasNoFreeNode) {
    Component::setMaxCount(sampleSize);

    EXPECT_EQ(invalidId, faultText([] { Component::getComponent(); }));
}

TEST_F(ComponentIdentity, KeepsTheObjectOfARecycledId) {
    Component::setMaxCount(sampleSize);
    Component* const before = at(6);
    before->deleteComponent();

    EXPECT_EQ(before, TreeFixture::add(root, fan));
}

TEST_F(ComponentIdentity, GivesTheObjectsOfAListInOrder) {
    Ids ids{4, 0, 4};
    Components out{at(2)};

    Component::getComponent(ids, out);

    EXPECT_EQ((Ids{2, 4, 0, 4}), idsOf(out));
}

TEST_F(ComponentIdentity, KeepsWhatComesBeforeABadIdOfAList) {
    Ids ids{4, -1, 5};
    Components out;

    EXPECT_EQ(invalidId, faultText([&] { Component::getComponent(ids, out); }));

    EXPECT_EQ((Ids{4}), idsOf(out));
}

TEST_F(ComponentIdentity, HasTheRootAtIdZero) {
    EXPECT_EQ(at(0), Component::getRoot());
}

TEST_F(ComponentIdentity, MakesANewObjectAfterTheOldOneIsDestroyed) {
    delete at(6);

    Component* const again = at(6);

    EXPECT_EQ(6, again->getComponentId());
    EXPECT_EQ(again, at(6));
}

TEST(ComponentWithoutNode, RegistersNothing) {
    Component::setMaxCount(1);
    {
        Component lone;
        EXPECT_EQ(-1, lone.getComponentId());
    }

    EXPECT_EQ(0, Component::getComponent(0)->getComponentId());
    Component::deleteAll();
}

// --- the process-wide state ---

TEST(ComponentStatics, AreUnsetAtFirst) {
    EXPECT_EQ(nullptr, Component::getTreeConfig());
    EXPECT_EQ(nullptr, Component::getLockProvider());
    EXPECT_EQ(nullptr, Component::getNameResolver());
    EXPECT_EQ(0, Component::BASE_COMPO_NUMBER);
    EXPECT_EQ(invalidId, faultText([] { Component::getComponent(1); }));
    EXPECT_EQ(0, Component::getComponent(0)->getComponentId());
    Component::deleteAll();
}

TEST(ComponentStatics, KeepWhatTheyAreGivenAndDeleteNothing) {
    RecordingTree config;
    RecordingProvider provider;
    NameResolver resolver;

    Component::setTreeConfig(&config);
    Component::setLockProvider(&provider);
    Component::setNameResolver(&resolver);

    EXPECT_EQ(&config, Component::getTreeConfig());
    EXPECT_EQ(&provider, Component::getLockProvider());
    EXPECT_EQ(&resolver, Component::getNameResolver());
    Component::setTreeConfig(nullptr);
    Component::setLockProvider(nullptr);
    Component::setNameResolver(nullptr);
    EXPECT_EQ(nullptr, Component::getTreeConfig());
}

// --- type and number ---

TEST_F(ComponentIdentity, ReadsTypeAndNumberFromTheNode) {
    EXPECT_EQ(board, at(4)->getType());
    EXPECT_EQ(1, at(4)->getNo());
}

TEST_F(ComponentIdentity, HasNeutralTypeAndNumberForAnUnknownNode) {
    EXPECT_EQ(0, at(40)->getType());
    EXPECT_EQ(-1, at(40)->getNo());
    EXPECT_EQ(-1, at(40)->getCurrentRevision());
    EXPECT_EQ(-1, at(40)->getRevision());
}

TEST_F(ComponentIdentity, ChangesItsNumberAlone) {
    at(4)->setNo(17);

    EXPECT_EQ(board, at(4)->getType());
    EXPECT_EQ(17, at(4)->getNo());
    EXPECT_EQ((Ids{5, 6}), TreeFixture::children(at(4)));
}

TEST_F(ComponentIdentity, AddsTheBaseNumberOnWritingAndTakesNothingOffOnReading) {
    Component::BASE_COMPO_NUMBER = 100;

    at(4)->setNo(3);
    at(6)->deleteComponent();

    EXPECT_EQ(103, at(4)->getNo());
    EXPECT_EQ(0, at(6)->getType());
    EXPECT_EQ(99, at(6)->getNo());
}

TEST_F(ComponentIdentity, WrapsANumberThatPassesThirtyTwoBits) {
    Component::BASE_COMPO_NUMBER = 1;

    at(4)->setNo(0x7fffffff);

    EXPECT_EQ(-0x7fffffff - 1, at(4)->getNo());
}

// --- revisions ---

TEST_F(ComponentIdentity, ReturnsTheRevisionThatTheNodeGets) {
    config->writeLock();
    config->lock();
    const int expected = revisionOf(0) + 1;

    const int given = at(4)->setUp(fan, 2);

    config->unlock();
    config->writeUnlock();
    EXPECT_EQ(expected, given);
    EXPECT_EQ(given, revisionOf(4));
    EXPECT_EQ(given, at(4)->getCurrentRevision());
    EXPECT_EQ(fan, at(4)->getType());
    EXPECT_EQ(2, at(4)->getNo());
}

TEST_F(ComponentIdentity, StampsAllNodesOfOneSectionAlike) {
    const int before = revisionOf(1);
    config->writeLock();
    config->lock();

    at(1)->setNo(5);
    at(4)->setNo(6);

    config->unlock();
    config->writeUnlock();
    EXPECT_EQ(before + 1, revisionOf(1));
    EXPECT_EQ(before + 1, revisionOf(4));
    at(1)->setNo(7);
    EXPECT_EQ(before + 2, revisionOf(1));
}

TEST_F(ComponentIdentity, SeesNoChangeInWhatItHasWrittenItself) {
    at(4)->getRevision();

    at(4)->setNo(9);

    EXPECT_EQ("nothing raised", faultText([] { at(4)->update(); }));
}

TEST_F(ComponentIdentity, TakesOverTheRevisionAtFirstSight) {
    delete at(4); // and with it what its maker knows
    const TraceCapture trace;

    EXPECT_EQ("nothing raised", faultText([] { at(4)->update(); }));

    EXPECT_EQ(revisionOf(4), at(4)->getCurrentRevision());
    EXPECT_EQ(0U, trace.count(0x2011a));
}

TEST_F(ComponentIdentity, RaisesOnceForEachChange) {
    const int before = revisionOf(4);
    const int after = changeElsewhere(4, board, 8);
    const TraceCapture trace;

    EXPECT_EQ(revisionChanged, faultText([] { at(4)->update(); }));
    EXPECT_EQ("nothing raised", faultText([] { at(4)->update(); }));

    const auto records = trace.of(0x2011a);
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ(infoFlags, records[0].flags);
    EXPECT_EQ((std::vector<int>{4, before, after, 0, 0, 0}), records[0].arguments());
    changeElsewhere(4, board, 9);
    EXPECT_EQ(revisionChanged, faultText([] { at(4)->update(); }));
}

TEST_F(ComponentIdentity, RaisesAnUnavailableComponent) {
    changeElsewhere(4, board, 8);

    EXPECT_THROW(at(4)->update(), UnavailableComponentException);
}

TEST_F(ComponentIdentity, GivesTheRevisionOfAChangedNodeWithoutRaising) {
    const int after = changeElsewhere(4, fan, 8);

    EXPECT_EQ(after, at(4)->getRevision());

    EXPECT_EQ("nothing raised", faultText([] { at(4)->update(); }));
}

TEST_F(ComponentIdentity, TracesAChangeThatItsRevisionTakesOver) {
    const int before = at(4)->getRevision();
    const int after = changeElsewhere(4, fan, 8);
    const TraceCapture trace;

    at(4)->getRevision();
    at(4)->getRevision();

    const auto records = trace.of(0x2011a);
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ(infoFlags, records[0].flags);
    EXPECT_EQ((Words{4, before, after, 0, 0, 0}), records[0].arguments());
}

TEST_F(ComponentIdentity, KeepsTheRevisionItHasSeenAsItsCurrentOne) {
    const int before = at(4)->getCurrentRevision();

    const int after = changeElsewhere(4, fan, 8);

    EXPECT_EQ(before, at(4)->getCurrentRevision());
    EXPECT_EQ(after, at(4)->getRevision());
    EXPECT_EQ(after, at(4)->getCurrentRevision());
}

TEST_F(ComponentIdentity, ReadsItsCurrentRevisionWhenItHasSeenNone) {
    delete at(4);

    EXPECT_EQ(revisionOf(4), at(4)->getCurrentRevision());
}

TEST_F(ComponentIdentity, NeedsNoTreeForAKnownRevision) {
    const int known = at(4)->getRevision();
    Component::setTreeConfig(nullptr);

    EXPECT_EQ(known, at(4)->getCurrentRevision());

    Component::setTreeConfig(config);
}

TEST_F(ComponentIdentity, GivesTheOldRevisionWhenTheLockFails) {
    const int before = at(4)->getRevision();
    changeElsewhere(4, fan, 8);
    lock->beforeLock = [] { throw TavrelException("no lock"); };

    EXPECT_EQ(before, at(4)->getRevision());

    EXPECT_EQ(0, config->accessDepth());
    EXPECT_FALSE(lock->isHeld());
}

TEST_F(ComponentIdentity, GivesTheNewRevisionWhenOnlyTheUnlockFails) {
    const int after = changeElsewhere(4, fan, 8);
    lock->afterUnlock = [] { throw TavrelException("no unlock"); };

    EXPECT_EQ(after, at(4)->getRevision());

    EXPECT_EQ(0, config->accessDepth());
    EXPECT_FALSE(lock->isHeld());
}

TEST_F(ComponentIdentity, HidesNoOtherFailureThanATavrelException) {
    lock->beforeLock = [] { throw std::runtime_error("no lock"); };

    EXPECT_THROW(at(4)->getRevision(), std::runtime_error);

    EXPECT_EQ(0, config->accessDepth());
}

TEST_F(ComponentIdentity, TakesTheSharedLockForEachRevision) {
    EXPECT_EQ(3, taken([] {
                  at(4)->getRevision();
                  at(4)->getRevision();
                  at(4)->getRevision();
              }));
}

// --- text ---

TEST_F(ComponentIdentity, HasAText) {
    const int revision = revisionOf(4);

    EXPECT_EQ("Component[id=4,revision=" + std::to_string(revision) + ",type=3,no=1]", at(4)->toString());
}

TEST_F(ComponentIdentity, HasTheTextOfTheNodeAsItIsNow) {
    const int after = changeElsewhere(4, fan, -8);

    EXPECT_EQ("Component[id=4,revision=" + std::to_string(after) + ",type=4,no=-8]", at(4)->toString());
}

TEST_F(ComponentIdentity, HasATextForAnUnknownNode) {
    EXPECT_EQ("Component[id=40,revision=-1,type=0,no=-1]", at(40)->toString());
}
