#include "TreeTest.h"
#include "action/RecordingAction.h"

#include <qz/tavrel/ComponentAccessor.h>
#include <qz/tavrel/QZException.h>

#include <chrono>
#include <future>
#include <sstream>
#include <thread>

using namespace tavrel::test;
using namespace qz::tavrel;

namespace {

using Accessors = std::vector<ComponentAccessor>;

const std::string dead = "FAULT at ComponentAccessor(LINE): evaluate() unavailable accessor.";
const std::string stale = "FAULT at ComponentAccessor(LINE): evaluate() revision mismatched.";

class Accessor : public TreeTest {
protected:
    static Ids idsOf(Accessors& accessors) {
        Ids ids;
        for (ComponentAccessor& each : accessors) {
            EXPECT_TRUE(each.isAvailable());
            ids.push_back(each.getComponentId());
        }
        return ids;
    }

    /// Changes the number of node 4 behind the next section between processes: after a check, before the
    /// work.
    void changeAfterTheCheck() {
        lock->afterUnlock = [this] {
            config->setNodeInfo(4, board, 9);
            lock->afterUnlock = nullptr;
        };
    }

    /// Expects that no other thread gets into the tree while `call` loads it, `expected` times.
    template <typename Call>
    void expectAloneInLoads(int expected, Call call) {
        std::vector<std::thread> readers;
        int loads = 0;
        config->before = [&](const std::string& operation) {
            if (operation != "load") {
                return;
            }
            ++loads;
            std::promise<void> in;
            std::future<void> isIn = in.get_future();
            readers.emplace_back([this, made = std::move(in)]() mutable {
                config->readLock();
                made.set_value();
                config->readUnlock();
            });
            EXPECT_EQ(std::future_status::timeout, isIn.wait_for(std::chrono::milliseconds(20)));
        };

        call();

        config->before = nullptr;
        EXPECT_EQ(expected, loads);
        for (std::thread& each : readers) {
            each.join();
        }
    }
};

} // namespace

// --- making one ---

TEST_F(Accessor, IsDeadOnNothing) {
    ComponentAccessor none;

    EXPECT_FALSE(none.isAvailable());
    EXPECT_EQ(nullptr, none.getComponent());
    EXPECT_EQ(-1, none.getComponentId());
    EXPECT_EQ(-1, none.getRevision());
    EXPECT_EQ(0, none.getPathSize());
    EXPECT_EQ("", none.getPath());
}

TEST_F(Accessor, IsDeadOnANullComponent) {
    const TraceCapture trace;

    ComponentAccessor none(nullptr);

    EXPECT_FALSE(none.isAvailable());
    EXPECT_EQ(-1, none.getComponentId());
    EXPECT_EQ(-1, none.getRevision());
    EXPECT_EQ(0, none.getPathSize());
    ASSERT_EQ(1U, trace.all().size());
    EXPECT_EQ(0x20500U, trace.all()[0].id);
    EXPECT_EQ(errorFlags, trace.all()[0].flags);
    EXPECT_EQ((Words{0, 0}), trace.all()[0].arguments());
}

TEST_F(Accessor, StandsForAComponentAsItIs) {
    changeElsewhere(4, board, 8);

    ComponentAccessor accessor(at(4));

    EXPECT_TRUE(accessor.isAvailable());
    EXPECT_EQ(at(4), accessor.getComponent());
    EXPECT_EQ(4, accessor.getComponentId());
    EXPECT_EQ(revisionOf(4), accessor.getRevision());
    EXPECT_EQ("/Chassis#0/Board#8", accessor.getPath());
    EXPECT_EQ(2, accessor.getPathSize());
    EXPECT_EQ(chassis, accessor.getTypeAt(0));
    EXPECT_EQ(8, accessor.getNumberAt(1));
    EXPECT_EQ(0, accessor.getTypeAt(2));
    EXPECT_EQ(-1, accessor.getNumberAt(2));
}

TEST_F(Accessor, StandsForAComponentAtItsRevision) {
    ComponentAccessor byPointer(at(4), revisionOf(4));
    ComponentAccessor byId(4, revisionOf(4));

    for (ComponentAccessor* each : {&byPointer, &byId}) {
        EXPECT_TRUE(each->isAvailable());
        EXPECT_EQ(at(4), each->getComponent());
        EXPECT_EQ(revisionOf(4), each->getRevision());
        EXPECT_EQ("/Chassis#0/Board#1", each->getPath());
    }
}

TEST_F(Accessor, IsDeadOnAnotherRevisionButKeepsTheComponent) {
    const int found = revisionOf(4);
    const int wanted = found + 5;
    const TraceCapture trace;

    ComponentAccessor byPointer(at(4), wanted);
    ComponentAccessor byId(4, wanted);

    for (ComponentAccessor* each : {&byPointer, &byId}) {
        EXPECT_FALSE(each->isAvailable());
        EXPECT_EQ(at(4), each->getComponent());
        EXPECT_EQ(4, each->getComponentId());
        EXPECT_EQ(-1, each->getRevision());
        EXPECT_EQ(0, each->getPathSize());
    }
    ASSERT_EQ(2U, trace.all().size());
    for (const TraceRecord& record : trace.all()) {
        EXPECT_EQ(errorFlags, record.flags);
        EXPECT_EQ((Words{4, wanted, found, 0, 0, 0}), record.arguments());
    }
    EXPECT_EQ(0x2051eU, trace.all()[0].id);
    EXPECT_EQ(0x20502U, trace.all()[1].id);
}

TEST_F(Accessor, IsDeadOnAnInvalidId) {
    const TraceCapture trace;

    ComponentAccessor below(-1, 0);
    ComponentAccessor above(TreeFixture::maxCount, 0);

    for (ComponentAccessor* each : {&below, &above}) {
        EXPECT_FALSE(each->isAvailable());
        EXPECT_EQ(nullptr, each->getComponent());
        EXPECT_EQ(-1, each->getComponentId());
    }
    ASSERT_EQ(2U, trace.count(0x20501));
    EXPECT_EQ(errorFlags, trace.of(0x20501)[0].flags);
    EXPECT_EQ((Words{-1, 0}), trace.of(0x20501)[0].arguments());
    EXPECT_EQ((Words{TreeFixture::maxCount, 0}), trace.of(0x20501)[1].arguments());
}

TEST_F(Accessor, IsACopyThatStandsAlone) {
    ComponentAccessor first(at(4));
    ComponentAccessor copy(first);
    EXPECT_TRUE(first == copy);

    first.deleteComponent();

    EXPECT_FALSE(first == copy);
    EXPECT_EQ(revisionOf(4) - 1, copy.getRevision());
    EXPECT_EQ(stale, faultText([&] { copy.getType(); }));
}

TEST_F(Accessor, EqualsAnotherOnTheSameComponentAndRevision) {
    ComponentAccessor one(at(4));
    ComponentAccessor two(at(4));
    ComponentAccessor other(at(5));
    EXPECT_TRUE(one == two);
    EXPECT_FALSE(one == other);
    changeElsewhere(4, board, 8);
    ComponentAccessor later(at(4));
    EXPECT_FALSE(one == later);

    EXPECT_FALSE(one.isAvailable()); // and so it dies

    EXPECT_FALSE(one == two);
    EXPECT_FALSE(two.isAvailable());
    EXPECT_TRUE(one == two);
}

TEST_F(Accessor, IsSetUpForEachComponentOfAList) {
    Components in{at(5), nullptr, at(2)};
    Accessors out{ComponentAccessor(at(1))};

    ComponentAccessor::setupAccessor(in, out);

    ASSERT_EQ(4U, out.size());
    EXPECT_EQ(1, out[0].getComponentId());
    EXPECT_EQ(5, out[1].getComponentId());
    EXPECT_FALSE(out[2].isAvailable());
    EXPECT_EQ(2, out[3].getComponentId());
}

// --- the check ---

TEST_F(Accessor, PassesItsCheckAsLongAsTheNodeIsUnchanged) {
    ComponentAccessor accessor(at(4));
    changeElsewhere(1, board, 8);

    EXPECT_NO_THROW(accessor.evaluate());
    EXPECT_EQ(1, taken([&] { accessor.evaluate(); }));
}

TEST_F(Accessor, FailsItsCheckWhenTheNodeHasChangedButStaysAsItIs) {
    ComponentAccessor accessor(at(4));
    const int pinned = accessor.getRevision();
    const int found = changeElsewhere(4, board, 8);
    const TraceCapture trace;

    EXPECT_EQ(stale, faultText([&] { accessor.evaluate(); }));
    EXPECT_EQ(stale, faultText([&] { accessor.evaluate(); })) << "the callers let it die";

    ASSERT_EQ(2U, trace.count(0x20504));
    EXPECT_EQ(errorFlags, trace.of(0x20504)[0].flags);
    EXPECT_EQ((Words{4, pinned, found, 0, 0, 0}), trace.of(0x20504)[0].arguments());
    EXPECT_THROW(accessor.evaluate(), UnavailableComponentException);
}

TEST_F(Accessor, FailsItsCheckOnceItIsDead) {
    ComponentAccessor onNode(at(4), 99);
    ComponentAccessor onNothing;
    const TraceCapture trace;

    EXPECT_EQ(dead, faultText([&] { onNode.evaluate(); }));
    EXPECT_EQ(dead, faultText([&] { onNothing.evaluate(); }));

    ASSERT_EQ(2U, trace.all().size());
    EXPECT_EQ(0x20503U, trace.all()[0].id);
    EXPECT_EQ(debugFlags, trace.all()[0].flags);
    EXPECT_EQ((Words{4, -1}), trace.all()[0].arguments());
    EXPECT_EQ((Words{-1, -1}), trace.all()[1].arguments());
    EXPECT_EQ(0, taken([&] { faultText([&] { onNode.evaluate(); }); }));
}

TEST_F(Accessor, DiesWhenItIsAskedWhetherItLives) {
    ComponentAccessor accessor(at(4));
    EXPECT_TRUE(accessor.isAvailable());
    const int pinned = accessor.getRevision();
    changeElsewhere(4, board, 8);

    EXPECT_FALSE(accessor.isAvailable());

    EXPECT_EQ(dead, faultText([&] { accessor.getType(); }));
    EXPECT_EQ(pinned, accessor.getRevision());
    EXPECT_EQ(at(4), accessor.getComponent());
    EXPECT_EQ("/Chassis#0/Board#1", accessor.getPath());
}

TEST_F(Accessor, NeverComesBack) {
    ComponentAccessor accessor(at(4));
    changeElsewhere(4, board, 8);

    EXPECT_EQ(stale, faultText([&] { accessor.getType(); }));

    EXPECT_EQ(dead, faultText([&] { accessor.getType(); }));
    EXPECT_FALSE(accessor.isAvailable());
    EXPECT_EQ(dead, faultText([&] { accessor.getNumber(); }));
}

TEST_F(Accessor, LivesOnAfterAnyOtherFailure) {
    ComponentAccessor accessor(at(4));
    Component::setMaxCount(sampleSize);

    EXPECT_EQ(invalidId, faultText([&] { accessor.createComponent(fan); }));
    lock->beforeLock = [] { throw std::runtime_error("no lock"); };
    EXPECT_THROW(accessor.isAvailable(), std::runtime_error);
    EXPECT_THROW(accessor.getType(), std::runtime_error);
    lock->beforeLock = nullptr;

    EXPECT_TRUE(accessor.isAvailable());
}

TEST_F(Accessor, DiesOfAChangeBetweenItsCheckAndThePropertysOwn) {
    ComponentAccessor accessor(at(4));
    forgetRefresh();
    int locked = 0;
    // The second time is the refresh of the property access, behind the check.
    lock->beforeLock = [&] {
        if (++locked == 2) {
            config->setNodeInfo(4, board, 9);
        }
    };
    const TraceCapture trace;

    EXPECT_EQ(revisionChanged, faultText([&] { accessor.setProperty(speedKey, "abcd", 4); }));

    lock->beforeLock = nullptr;
    EXPECT_EQ(dead, faultText([&] { accessor.getType(); }));
    EXPECT_EQ(1U, trace.count(0x2050a));
    EXPECT_EQ(0U, trace.count(0x20504));
}

TEST_F(Accessor, PassesAChangeThatAPropertyFindsOnAsAnUnavailableComponent) {
    ComponentAccessor reading(at(4));
    root->readLock(); // no refresh of the property, which would come before the change
    changeAfterTheCheck();
    EXPECT_THROW(reading.getProperty(speedKey, nullptr, 0), UnavailableComponentException);

    ComponentAccessor writing(at(4));
    changeAfterTheCheck();
    EXPECT_THROW(writing.setProperty(speedKey, "abcd", 4), UnavailableComponentException);
}

TEST_F(Accessor, NavigatesFromAComponentThatChangesBehindItsCheck) {
    ComponentAccessor accessor(at(4));
    changeAfterTheCheck();

    EXPECT_EQ(0, accessor.getParent().getComponentId());

    EXPECT_EQ(9, at(4)->getNo());
    EXPECT_EQ(stale, faultText([&] { accessor.getParent(); })) << "it was available until now";
}

TEST_F(Accessor, RunsAnActionOnAComponentThatChangesBehindItsCheck) {
    class Numbering : public Action {
        void execute(Component* target, int, const void*, unsigned int, void* out, unsigned int) override {
            *static_cast<int*>(out) = target->getNo();
        }
    };
    tree.define(board, "Board").addAction(7, new Numbering);
    ComponentAccessor accessor(at(4));
    int number = 0;
    changeAfterTheCheck();

    EXPECT_NO_THROW(accessor.doAction(7, nullptr, 0, &number, sizeof number));

    EXPECT_EQ(9, number);
    EXPECT_EQ(stale, faultText([&] { accessor.getType(); })) << "it was available until now";
}

TEST_F(Accessor, DiesOfAnActionThatFindsAComponentGone) {
    class Finding : public Action {
        void execute(Component*, int, const void*, unsigned int, void*, unsigned int) override {
            throw UnavailableComponentException("somebody else is gone");
        }
    };
    tree.define(board, "Board").addAction(7, new Finding);
    ComponentAccessor accessor(at(4));

    EXPECT_EQ("somebody else is gone", faultText([&] { accessor.doAction(7, nullptr, 0, nullptr, 0); }));

    EXPECT_EQ(dead, faultText([&] { accessor.getType(); }));
}

TEST_F(Accessor, TakesTheTreeOnceForItsCheckAndThenForTheWork) {
    ComponentAccessor accessor(at(4));
    root->readLock(); // no refresh afterwards

    EXPECT_EQ(1, taken([&] { accessor.getType(); }));
    EXPECT_EQ(1, taken([&] { accessor.getProperty(speedKey, nullptr, 0); }));
    EXPECT_EQ(2, taken([&] { accessor.createComponent(fan); }));
    EXPECT_EQ(0, config->accessDepth());
    EXPECT_EQ((std::vector<std::string>{"readLock 0"}), provider->calls) << "no component's own lock";
}

TEST_F(Accessor, HasTheTreeToItselfWheneverItMayLoadIt) {
    constexpr int expected = 4; // for its revision, then for that of each step
    expectAloneInLoads(expected, [] { ComponentAccessor accessor(at(5)); });
}

TEST_F(Accessor, HasTheTreeToItselfWhileItFillsAPathWithRevisions) {
    ComponentAccessor accessor(at(5));
    ComponentAccessor::LocalTreePath path;
    constexpr int expected = 4; // for its check, then for the revision of each step

    expectAloneInLoads(expected, [&] { accessor.getTreePath(path); });

    EXPECT_EQ(5, path.at(2).getComponentId());
}

// --- changing its own node ---

TEST_F(Accessor, GoesOnAfterChangingTheNumberWhileOthersAreStale) {
    ComponentAccessor mine(at(4));
    ComponentAccessor other(at(4));

    mine.setNumber(8);

    EXPECT_EQ(8, mine.getNumber());
    EXPECT_EQ(revisionOf(4), mine.getRevision());
    EXPECT_EQ("/Chassis#0/Board#8", mine.getPath());
    EXPECT_EQ(stale, faultText([&] { other.getNumber(); }));
    EXPECT_EQ(8, mine.getNumber());
}

TEST_F(Accessor, GoesOnAfterChangingTheTypeWhileOthersAreStale) {
    ComponentAccessor mine(at(4));
    ComponentAccessor other(at(4));

    mine.setType(fan);

    EXPECT_EQ(fan, mine.getType());
    EXPECT_EQ("/Chassis#0/Fan#0", mine.getPath());
    EXPECT_EQ(2, mine.getPathSize());
    EXPECT_EQ(stale, faultText([&] { other.getType(); }));
}

TEST_F(Accessor, IsStaleAfterAChangeOfTypeThatFailed) {
    ComponentAccessor accessor(at(5));
    const int pinned = accessor.getRevision();
    Component::setMaxCount(sampleSize); // no room for the sensors of another board

    EXPECT_EQ(invalidId, faultText([&] { accessor.setType(board); }));

    EXPECT_EQ(board, at(5)->getType());
    EXPECT_EQ(pinned, accessor.getRevision());
    EXPECT_EQ(stale, faultText([&] { accessor.getType(); }));
    EXPECT_EQ("/Chassis#0/Board#1/Sensor#0", accessor.getPath());
}

TEST_F(Accessor, LivesOnWhenItGetsAChild) {
    ComponentAccessor mine(at(4));
    ComponentAccessor other(at(4));
    const int pinned = mine.getRevision();

    EXPECT_EQ(0, mine.createComponent(fan));

    EXPECT_EQ((Ids{5, 6, 7}), childrenOf(4));
    EXPECT_EQ(pinned, mine.getRevision());
    EXPECT_TRUE(mine.isAvailable());
    EXPECT_TRUE(other.isAvailable());
}

TEST_F(Accessor, DiesWithTheComponentThatItDeletes) {
    ComponentAccessor mine(at(4));
    ComponentAccessor other(at(4));

    EXPECT_EQ(0, mine.deleteComponent());

    EXPECT_EQ((Ids{1}), childrenOf(0));
    EXPECT_EQ(dead, faultText([&] { mine.deleteComponent(); }));
    EXPECT_FALSE(mine.isAvailable());
    EXPECT_EQ(stale, faultText([&] { other.deleteComponent(); }));
}

TEST_F(Accessor, IsStaleOnARecycledId) {
    Component::setMaxCount(sampleSize);
    ComponentAccessor accessor(at(6));
    at(6)->deleteComponent();
    Component* const next = TreeFixture::add(root, fan);

    EXPECT_EQ(next, accessor.getComponent());
    EXPECT_EQ(stale, faultText([&] { accessor.getType(); }));
}

// --- the work ---

TEST_F(Accessor, ReadsTypeAndNumber) {
    ComponentAccessor accessor(at(4));

    EXPECT_EQ(board, accessor.getType());
    EXPECT_EQ(1, accessor.getNumber());
}

TEST_F(Accessor, ReachesProperties) {
    ComponentAccessor accessor(at(4));
    char read[8] = {};
    Ids keys{1, 900};

    EXPECT_EQ(8, accessor.setProperty(labelKey, "abcdefgh", 8));
    EXPECT_EQ(3, accessor.getProperty(labelKey, read, 3));
    EXPECT_STREQ("abc", read);
    EXPECT_EQ(8, accessor.getPropertySize(labelKey));
    accessor.getPropertyKeys(keys);
    EXPECT_EQ((Ids{900, speedKey, labelKey}), keys);
}

TEST_F(Accessor, LooksAtChildren) {
    Component* const lone = TreeFixture::add(at(4), fan);
    at(1)->addComponent(lone);
    ComponentAccessor accessor(at(1));
    Accessors ownedOnly{ComponentAccessor(root)};
    Accessors all;
    Accessors sensors;
    Accessors featured;

    accessor.getComponent(ownedOnly, true);
    accessor.getComponent(all, false);
    accessor.getComponent(sensor, sensors);
    accessor.getFeatured(fan, featured);

    EXPECT_EQ((Ids{0, 2, 3}), idsOf(ownedOnly));
    EXPECT_EQ((Ids{2, 3, 7}), idsOf(all));
    EXPECT_EQ((Ids{2, 3}), idsOf(sensors));
    EXPECT_EQ((Ids{7}), idsOf(featured));
    EXPECT_EQ("/Chassis#0/Board#1/Fan#0", featured[0].getPath());
    EXPECT_EQ(3, accessor.getComponent(sensor, 1).getComponentId());
}

TEST_F(Accessor, SearchesTheSubtree) {
    ComponentAccessor accessor(root);
    Accessors boards;
    Accessors chassises;
    Accessors features;

    accessor.findComponent(board, boards, false);
    accessor.findComponent(chassis, chassises, false);
    accessor.findFeatured(sensor, features, true);

    EXPECT_EQ((Ids{1, 4}), idsOf(boards));
    EXPECT_EQ((Ids{}), idsOf(chassises));
    EXPECT_EQ((Ids{2, 3, 5, 6}), idsOf(features));
}

TEST_F(Accessor, LooksAtParents) {
    Component* const lone = TreeFixture::add(at(4), fan);
    root->addComponent(lone);
    ComponentAccessor accessor(lone);
    Accessors all;
    Accessors boards;

    accessor.getParents(all);
    accessor.getParents(board, boards);

    EXPECT_EQ(4, accessor.getParent().getComponentId());
    EXPECT_EQ((Ids{4, 0}), idsOf(all));
    EXPECT_EQ((Ids{4}), idsOf(boards));
}

TEST_F(Accessor, GivesADeadOneForWhatIsNotThere) {
    ComponentAccessor accessor(root);
    const TraceCapture trace;

    EXPECT_FALSE(accessor.getParent().isAvailable());
    EXPECT_FALSE(accessor.getComponent(fan, 0).isAvailable());

    EXPECT_EQ(2U, trace.count(0x20500));
    EXPECT_TRUE(accessor.isAvailable());
}

TEST_F(Accessor, ContainsWhatTheOtherStandsForAliveOrNot) {
    ComponentAccessor accessor(root);
    ComponentAccessor child(at(4));
    ComponentAccessor grandchild(at(5));
    ComponentAccessor nothing;
    changeElsewhere(4, board, 8);

    EXPECT_TRUE(accessor.contains(&child));
    EXPECT_FALSE(accessor.contains(&grandchild));
    EXPECT_FALSE(accessor.contains(&nothing));
    EXPECT_FALSE(child.isAvailable()) << "it was stale, and had not been asked";
    EXPECT_TRUE(accessor.contains(&child));
}

TEST_F(Accessor, AppendsTheWayToItsComponent) {
    ComponentAccessor accessor(at(5));
    TreePath path("/Fan#3");

    accessor.getTreePath(path);

    EXPECT_EQ("/Fan#3/Chassis#0/Board#1/Sensor#0", path.toString());
}

TEST_F(Accessor, RunsActions) {
    ActionLog log;
    tree.define(board, "Board").addAction(7, new RecordingAction(log, "run"));
    ComponentAccessor accessor(at(4));
    Ids ids{9};
    char in = 0;
    char out = 0;

    accessor.doAction(7, &in, 1, &out, 1);
    accessor.getActionIds(ids);

    EXPECT_EQ((std::vector<Call>{{at(4), 7, &in, 1, &out, 1}}), log.calls);
    EXPECT_EQ((Ids{7, 9}), ids);
    EXPECT_TRUE(accessor.hasAction(7));
    EXPECT_FALSE(accessor.hasAction(9));
    Component::deleteAll(); // while the log still lives
}

// --- the path ---

TEST_F(Accessor, FindsItselfWhileItLives) {
    ComponentAccessor accessor(at(5));

    ComponentAccessor enabled = accessor.getEnableComponent();

    EXPECT_TRUE(enabled == accessor);
}

TEST_F(Accessor, FindsItsParentWhenItIsGone) {
    ComponentAccessor accessor(at(5));
    const int pinned = accessor.getRevision();
    at(5)->deleteComponent();
    EXPECT_FALSE(accessor.isAvailable());
    const TraceCapture trace;

    ComponentAccessor enabled = accessor.getEnableComponent();

    EXPECT_TRUE(enabled.isAvailable());
    EXPECT_EQ(4, enabled.getComponentId());
    EXPECT_EQ(accessor.getPathSize() - 1, enabled.getPathSize());
    EXPECT_EQ("/Chassis#0/Board#1", enabled.getPath());
    ASSERT_EQ(1U, trace.count(0x2051e));
    EXPECT_EQ((Words{5, pinned, revisionOf(5), 0, 0, 0}), trace.of(0x2051e)[0].arguments());
}

TEST_F(Accessor, FindsTheDeepestStepThatHolds) {
    ComponentAccessor accessor(at(5));
    at(4)->deleteComponent();

    EXPECT_EQ(0, accessor.getEnableComponent().getComponentId());
}

TEST_F(Accessor, FindsTheStepBelowOneThatChanged) {
    ComponentAccessor accessor(at(5));
    changeElsewhere(0, chassis, 3);
    changeElsewhere(5, sensor, 3);

    ComponentAccessor enabled = accessor.getEnableComponent();

    EXPECT_EQ(4, enabled.getComponentId());
    EXPECT_EQ("/Chassis#3/Board#1", enabled.getPath());
}

TEST_F(Accessor, FindsNothingWhenNoStepHolds) {
    ComponentAccessor accessor(at(4));
    root->deleteComponent();
    const TraceCapture trace;

    ComponentAccessor enabled = accessor.getEnableComponent();

    EXPECT_FALSE(enabled.isAvailable());
    EXPECT_EQ(nullptr, enabled.getComponent());
    EXPECT_EQ(2U, trace.count(0x2051e));
    ASSERT_EQ(1U, trace.count(0x2051f));
    EXPECT_EQ(infoFlags, trace.of(0x2051f)[0].flags);
    EXPECT_EQ((Words{0, 0}), trace.of(0x2051f)[0].arguments());
}

TEST_F(Accessor, FindsNothingOnAnEmptyPath) {
    ComponentAccessor nothing;
    const TraceCapture trace;

    EXPECT_FALSE(nothing.getEnableComponent().isAvailable());

    ASSERT_EQ(1U, trace.all().size());
    EXPECT_EQ(0x2051fU, trace.all()[0].id);
}

TEST_F(Accessor, KeepsTheRevisionOfEachStep) {
    ComponentAccessor::LocalTreePath path;
    at(5)->getTreePath(path);
    changeElsewhere(4, board, 8);

    EXPECT_TRUE(path.at(0).isAvailable());
    EXPECT_EQ(0, path.at(0).getComponentId());
    EXPECT_FALSE(path.at(1).isAvailable());
    EXPECT_EQ(4, path.at(1).getComponentId());
    EXPECT_TRUE(path.at(2).isAvailable());
    EXPECT_THROW(path.at(3), std::out_of_range);
    EXPECT_EQ("/Chassis#0/Board#1/Sensor#0", path.toString());
}

TEST_F(Accessor, HasAPathThatKeepsNoRevisionOfABareStep) {
    ComponentAccessor::LocalTreePath path;

    path.add(board, 3);

    EXPECT_EQ((Steps{{board, 3}}), stepsOf(path));
    EXPECT_THROW(path.at(0), std::out_of_range);
}

TEST_F(Accessor, HasAPathThatIsWrittenAndReadWithoutRevisions) {
    ComponentAccessor::LocalTreePath path;
    at(4)->getTreePath(path);
    std::stringstream stream;
    char memory[20];

    path.write(stream);
    ComponentAccessor::LocalTreePath fromStream;
    fromStream.read(stream);
    EXPECT_EQ(20, path.write(memory, sizeof memory));
    ComponentAccessor::LocalTreePath fromMemory;
    EXPECT_EQ(20, fromMemory.read(memory, sizeof memory));

    for (ComponentAccessor::LocalTreePath* const each : {&fromStream, &fromMemory}) {
        EXPECT_EQ((Steps{{chassis, 0}, {board, 1}}), stepsOf(*each));
        EXPECT_THROW(each->at(0), std::out_of_range);
    }
}

TEST_F(Accessor, HasAPathThatIsClearedAsAWhole) {
    ComponentAccessor::LocalTreePath path;
    at(5)->getTreePath(path);
    EXPECT_EQ("FAULT at TreePath(LINE): add() TreePath::add", faultText([&] { path.add(nullptr); }));
    EXPECT_THROW(path.at(3), std::out_of_range) << "nothing was added";

    path.clear();

    EXPECT_EQ(0, path.getPathCount());
    EXPECT_THROW(path.at(0), std::out_of_range);
    path.add(at(1));
    EXPECT_EQ(1, path.at(0).getComponentId());
}
