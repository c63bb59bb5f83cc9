#include "Operations.h"

#include <thread>

using namespace tavrel::test;
using namespace qz::tavrel;

namespace {

/// Counts how often the lock between processes is taken, on a clock that stands still.
class Refresh : public TreeTest {
protected:
    StoppedClock clock;

    static void onAnotherThread(const std::function<void()>& call) { std::thread(call).join(); }

    // What leaves the refresh guard at each level.
    void setLevel(int level) {
        switch (level) {
        case 0:
            root->readLock();
            return;
        case 1:
            Component::getRoot();
            return;
        case 2:
            root->doAction(1);
            return;
        default:
            root->readUnlock();
        }
    }

    static std::vector<Operation> refreshing() {
        std::vector<Operation> found{
            {"readLock", Section::none, 0, [](Component* c) { c->readLock(); }},
            {"writeLock", Section::none, 0, [](Component* c) { c->writeLock(); }},
        };
        for (const Operation& each : operations()) {
            if (each.level != noRefresh) {
                found.push_back(each);
            }
        }
        return found;
    }
};

constexpr int leave = -1;
constexpr int interval = 100;

} // namespace

TEST_F(Refresh, IsDoneByEveryCallThatFollowsALeave) {
    for (const Operation& each : refreshing()) {
        SCOPED_TRACE(each.name);
        setLevel(leave);

        EXPECT_EQ(1, taken([&] { each.run(at(4)); }));
    }
}

TEST_F(Refresh, IsSparedByACallOfTheSameThreadAtTheSameLevel) {
    for (const Operation& each : refreshing()) {
        SCOPED_TRACE(each.name);
        setLevel(leave);
        each.run(at(4));

        // `writeLock` looks for the root, at level 1, so that a level of 0 has risen when it returns.
        const bool hasRisen = std::string(each.name) == "writeLock";
        EXPECT_EQ(hasRisen ? 1 : 0, taken([&] { each.run(at(4)); }));
    }
}

TEST_F(Refresh, IsSparedByACallAtALowerLevel) {
    for (const Operation& each : refreshing()) {
        SCOPED_TRACE(each.name);
        for (int level = 0; level < each.level; ++level) {
            setLevel(leave);
            setLevel(level);

            EXPECT_EQ(0, taken([&] { each.run(at(4)); })) << level;
        }
    }
}

TEST_F(Refresh, IsDoneAgainAfterACallAtAHigherLevel) {
    for (const Operation& each : refreshing()) {
        SCOPED_TRACE(each.name);
        for (int level = each.level + 1; level <= 2; ++level) {
            setLevel(leave);
            setLevel(level);

            EXPECT_EQ(1, taken([&] { each.run(at(4)); })) << level;
        }
    }
}

TEST_F(Refresh, IsDoneAgainAfterACallOfAnotherThread) {
    for (const Operation& each : refreshing()) {
        SCOPED_TRACE(each.name);
        setLevel(0);
        onAnotherThread([&] { setLevel(2); });

        EXPECT_EQ(1, taken([&] { each.run(at(4)); }));
    }
}

TEST_F(Refresh, IsDoneAgainWhenTheTimeHasRunOut) {
    for (const Operation& each : refreshing()) {
        SCOPED_TRACE(each.name);
        setLevel(0);
        clock.advance(interval);
        EXPECT_EQ(0, taken([&] { each.run(at(4)); }));
        clock.advance(interval + 1);

        EXPECT_EQ(1, taken([&] { each.run(at(4)); }));
    }
}

TEST_F(Refresh, GetsNewTimeFromEachCall) {
    for (const Operation& each : refreshing()) {
        SCOPED_TRACE(each.name);
        setLevel(0);
        clock.advance(interval - 1);
        each.run(at(4));
        clock.advance(interval - 1);

        EXPECT_EQ(0, taken([&] { at(4)->getProperty(speedKey); }));
    }
}

TEST_F(Refresh, IsDoneAfterEachUnlock) {
    setLevel(0);
    at(4)->readUnlock();
    EXPECT_EQ(1, taken([&] { at(4)->getParent(); }));

    setLevel(0);
    EXPECT_EQ(0, taken([&] { at(4)->writeUnlock(); }));
    EXPECT_EQ(1, taken([&] { at(4)->getParent(); }));
}

TEST_F(Refresh, IsDoneByAnUnlockThatFollowsAnotherThread) {
    // Comparing with the root passes through the guard.
    onAnotherThread([&] { setLevel(0); });

    EXPECT_EQ(1, taken([&] { at(4)->writeUnlock(); }));
}

TEST_F(Refresh, IsNeverDoneByAnActionWhichOnlyMarksItsThread) {
    setLevel(leave);
    EXPECT_EQ(0, taken([&] { at(4)->doAction(1); }));

    EXPECT_EQ(0, taken([&] { at(4)->getProperty(speedKey); }));
    EXPECT_EQ(1, taken([&] { at(4)->getParent(); }));
}

TEST_F(Refresh, IsDoneOnceForABurstUnderALock) {
    setLevel(leave);

    EXPECT_EQ(1, taken([&] {
                  at(4)->readLock();
                  at(4)->getParent();
                  at(4)->getComponent(sensor, 0);
                  at(4)->getProperty(speedKey);
                  at(4)->setProperty(speedKey, 4);
              }));
}

TEST_F(Refresh, IsNoPartOfWhatOtherOperationsTake) {
    for (const Operation& each : operations()) {
        SCOPED_TRACE(each.name);
        if (each.level == noRefresh) {
            setLevel(leave);

            EXPECT_EQ(each.section == Section::write ? 1 : 0, taken([&] { each.run(at(4)); }));
        }
    }
}

TEST_F(Refresh, PullsInWhatAnotherProcessSaved) {
    setLevel(leave);
    std::vector<std::string> order;
    config->before = [&](const std::string& operation) { order.push_back(operation); };

    at(4)->getParent();

    config->before = nullptr;
    EXPECT_EQ((std::vector<std::string>{"load", "save", "getSrc"}), order);
    EXPECT_EQ(0, config->accessDepth());
}

TEST_F(Refresh, HappensBeforeAPropertyIsReadInsideTheSectionOfTheCall) {
    setLevel(leave);
    std::vector<std::string> order;
    config->before = [&](const std::string& operation) {
        if (operation != "getSrc") { // asked for the way to the component, which decides on the store
            order.push_back(operation + std::to_string(config->accessDepth()));
        }
    };
    store->beforeGet = [&] { order.push_back("store" + std::to_string(config->accessDepth())); };

    at(4)->getProperty(speedKey);

    config->before = nullptr;
    store->beforeGet = nullptr;
    // The first look at the store is that of the load.
    EXPECT_EQ((std::vector<std::string>{"load1", "store1", "save1", "store1"}), order);
    EXPECT_EQ(0, config->accessDepth());
}

TEST_F(Refresh, IsLeftOutWithoutATree) {
    setLevel(leave);
    Component::setTreeConfig(nullptr);

    EXPECT_EQ(0, taken([] { EXPECT_EQ(0, Component::getRoot()->getComponentId()); }));

    Component::setTreeConfig(config);
}

TEST_F(Refresh, LeavesTheGuardSetWhenItFails) {
    setLevel(leave);
    lock->beforeLock = [] { throw std::runtime_error("no lock"); };
    EXPECT_THROW(at(4)->getParent(), std::runtime_error);

    // Still within the time of the call that failed.
    EXPECT_EQ(root, at(4)->getParent());
    EXPECT_EQ(0, config->accessDepth());
}
