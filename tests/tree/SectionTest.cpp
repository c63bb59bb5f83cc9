#include "Operations.h"

#include <qz/tavrel/Action.h>
#include <qz/tavrel/QZException.h>

#include <chrono>
#include <future>
#include <thread>

using namespace tavrel::test;
using namespace qz::tavrel;

namespace {

class Sections : public TreeTest {
protected:
    StoppedClock clock;

    void expectNothingHeld() {
        EXPECT_EQ(0, config->accessDepth());
        EXPECT_FALSE(lock->isHeld());
    }
};

/// Runs one operation on a thread of its own, which has just refreshed.
class Runner {
public:
    explicit Runner(const Operation& operation)
        : thread([this, &operation] {
              sampleComponent(0)->readLock();
              isReady.set_value();
              goAhead.get_future().wait();
              operation.run(sampleComponent(4));
              isDone.set_value();
          }) {
        isReady.get_future().wait();
    }
    ~Runner() { thread.join(); }
    Runner(const Runner&) = delete;
    Runner& operator=(const Runner&) = delete;

    void go() { goAhead.set_value(); }

    bool isDoneWithin(std::chrono::milliseconds patience) {
        return done.wait_for(patience) == std::future_status::ready;
    }

private:
    std::promise<void> isReady;
    std::promise<void> goAhead;
    std::promise<void> isDone;
    std::future<void> done = isDone.get_future();
    std::thread thread;
};

constexpr std::chrono::milliseconds soon{10000};
constexpr std::chrono::milliseconds notYet{30};

} // namespace

TEST_F(Sections, LetReadersRunBesideEachOther) {
    for (const Operation& each : operations()) {
        if (each.section == Section::read || each.section == Section::none) {
            SCOPED_TRACE(each.name);
            Runner runner(each);
            config->readLock();
            runner.go();

            EXPECT_TRUE(runner.isDoneWithin(soon));

            config->readUnlock();
        }
    }
}

TEST_F(Sections, KeepReadersOutWhileOneWrites) {
    for (const Operation& each : operations()) {
        if (each.section == Section::read) {
            SCOPED_TRACE(each.name);
            Runner runner(each);
            config->writeLock();
            runner.go();

            EXPECT_FALSE(runner.isDoneWithin(notYet));

            config->writeUnlock();
        }
    }
}

TEST_F(Sections, KeepWritersOutWhileOneReads) {
    for (const Operation& each : operations()) {
        if (each.section == Section::write || each.section == Section::access) {
            SCOPED_TRACE(each.name);
            Runner runner(each);
            config->readLock();
            runner.go();

            EXPECT_FALSE(runner.isDoneWithin(notYet));

            config->readUnlock();
        }
    }
}

TEST_F(Sections, LetAnIdBeAskedForWhileOneWrites) {
    for (const Operation& each : operations()) {
        if (each.section == Section::none) {
            SCOPED_TRACE(each.name);
            Runner runner(each);
            config->writeLock();
            runner.go();

            EXPECT_TRUE(runner.isDoneWithin(soon));

            config->writeUnlock();
        }
    }
}

TEST_F(Sections, TakeTheThreadsLockBeforeTheProcessesLockAndGiveItBackAfter) {
    for (const Operation& each : operations()) {
        if (each.section == Section::write) {
            SCOPED_TRACE(each.name);
            std::vector<int> depths;
            lock->beforeLock = [&] { depths.push_back(config->accessDepth()); };
            lock->afterUnlock = [&] { depths.push_back(config->accessDepth()); };

            each.run(at(4));

            lock->beforeLock = nullptr;
            lock->afterUnlock = nullptr;
            EXPECT_EQ((std::vector<int>{1, 1}), depths);
            expectNothingHeld();
        }
    }
}

TEST_F(Sections, AreAllLeftWhenTheOperationReturns) {
    for (const Operation& each : operations()) {
        SCOPED_TRACE(each.name);

        each.run(at(4));

        expectNothingHeld();
    }
}

TEST_F(Sections, NestOnOneThread) {
    config->writeLock();
    config->lock();

    for (const Operation& each : operations()) {
        SCOPED_TRACE(each.name);
        EXPECT_EQ(0, taken([&] { each.run(at(4)); }));
        EXPECT_EQ(1, config->accessDepth());
        EXPECT_TRUE(lock->isHeld());
    }

    config->unlock();
    config->writeUnlock();
    expectNothingHeld();
}

TEST_F(Sections, AreLeftWhenTheLockBetweenProcessesCannotBeHad) {
    for (const Operation& each : operations()) {
        const bool hidesIt = std::string(each.name) == "getRevision" || std::string(each.name) == "toString";
        if (each.section == Section::none || hidesIt) {
            continue;
        }
        SCOPED_TRACE(each.name);
        forgetRefresh();
        const bool takesIt = each.section == Section::write || each.level != noRefresh;
        lock->beforeLock = [] { throw TavrelException("no lock"); };

        EXPECT_EQ(takesIt ? "no lock" : "nothing raised", faultText([&] { each.run(at(4)); }));

        lock->beforeLock = nullptr;
        expectNothingHeld();
    }
}

TEST_F(Sections, AreLeftWhenTheLoadFails) {
    for (const Operation& each : operations()) {
        if (each.section != Section::write) {
            continue;
        }
        SCOPED_TRACE(each.name);
        config->before = [](const std::string& operation) {
            if (operation == "load") {
                throw std::runtime_error("no load");
            }
        };

        EXPECT_THROW(each.run(at(4)), std::runtime_error);

        config->before = nullptr;
        expectNothingHeld();
    }
}

TEST_F(Sections, AreLeftWhenTheSaveFailsWhichIsToldToTheCaller) {
    for (const Operation& each : operations()) {
        if (each.section != Section::write) {
            continue;
        }
        SCOPED_TRACE(each.name);
        config->before = [](const std::string& operation) {
            if (operation == "save") {
                throw std::runtime_error("no save");
            }
        };

        EXPECT_THROW(each.run(at(4)), std::runtime_error);

        config->before = nullptr;
        expectNothingHeld();
    }
}

TEST_F(Sections, AreLeftWhenTheWorkInsideFails) {
    for (const Operation& each : operations()) {
        if (each.section == Section::access) {
            continue; // a property access hides what fails inside it
        }
        SCOPED_TRACE(each.name);
        forgetRefresh();
        bool isReached = false;
        config->before = [&](const std::string& operation) {
            if (operation != "load" && operation != "save") {
                isReached = true;
                throw std::runtime_error(operation);
            }
        };

        try {
            each.run(at(4));
            EXPECT_FALSE(isReached);
        } catch (const std::runtime_error&) {
            EXPECT_TRUE(isReached);
        }

        config->before = nullptr;
        expectNothingHeld();
    }
}

TEST_F(Sections, PassOnTheFirstFailureWhenLeavingFailsToo) {
    config->before = [](const std::string& operation) {
        if (operation == "removeAll") {
            throw std::runtime_error("first");
        }
        if (operation == "save") {
            throw std::logic_error("second");
        }
    };

    EXPECT_THROW(at(4)->deleteComponent(), std::runtime_error);

    config->before = nullptr;
    expectNothingHeld();
}

TEST_F(Sections, SaveWhatWasDoneBeforeAFailure) {
    config->before = [](const std::string& operation) {
        if (operation == "removeAll") {
            throw std::runtime_error("in the middle");
        }
    };
    const int revision = config->getRevision();

    EXPECT_THROW(at(4)->deleteComponent(), std::runtime_error);

    config->before = nullptr;
    EXPECT_EQ(revision + 1, config->getRevision());
    EXPECT_EQ((Ids{1}), TreeFixture::children(root));
}

TEST_F(Sections, CoverTheStorageOfAProperty) {
    std::vector<int> depths;
    store->beforeGet = [&] { depths.push_back(config->accessDepth()); };
    store->beforeSet = store->beforeGet;
    root->readLock(); // no refresh afterwards

    at(4)->getProperty(speedKey);
    at(4)->setProperty(speedKey, 3);

    EXPECT_EQ((std::vector<int>{1, 1, 1, 1}), depths) << "locks, of which one reads and two write";
    EXPECT_FALSE(lock->isHeld());
}

TEST_F(Sections, AreNoneAroundAnAction) {
    class Probe : public Action {
    public:
        explicit Probe(RecordingTree* config) : tree(config) {}
        void execute(Component* target, int, const void*, unsigned int, void*, unsigned int) override {
            depth = tree->accessDepth();
            target->createComponent(fan);
        }
        int depth = -1;

    private:
        RecordingTree* tree;
    };
    auto* const probe = new Probe(config);
    tree.define(board, "Board").addAction(7, probe);

    at(4)->doAction(7);

    EXPECT_EQ(0, probe->depth);
    EXPECT_EQ((Ids{5, 6, 7}), TreeFixture::children(at(4)));
}

TEST_F(Sections, LastForAWholeSearch) {
    std::set<int> depths;
    int looks = 0;
    config->before = [&](const std::string& operation) {
        if (operation == "get") {
            ++looks;
            depths.insert(config->accessDepth());
        }
    };

    Components out;
    root->findComponent(sensor, out, false);
    root->findFeatured(sensor, out, false);

    config->before = nullptr;
    EXPECT_EQ((std::set<int>{1}), depths);
    EXPECT_EQ(2 * (3 + 7), looks) << "at both relations, of which the first search stops above the sensors";
}
