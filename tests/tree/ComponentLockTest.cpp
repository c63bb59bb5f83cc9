#include "TreeTest.h"

#include <qz/tavrel/QZException.h>

#include <future>
#include <thread>

using namespace tavrel::test;
using namespace qz::tavrel;

namespace {

using Calls = std::vector<std::string>;

constexpr unsigned long treeLocked = 0x20121;
constexpr unsigned long treeUnlocked = 0x20122;

class ComponentLock : public TreeTest {
protected:
    StoppedClock clock;

    /// Trace ids of a call, in order.
    static std::vector<unsigned long> idsOf(const TraceCapture& trace) {
        std::vector<unsigned long> ids;
        for (const TraceRecord& record : trace.all()) {
            ids.push_back(record.id);
        }
        return ids;
    }

    /// As a property access traces them: read locks, write locks.
    static std::vector<int> countsOf(Component* component) {
        const TraceCapture trace;
        component->getProperty(speedKey);
        const std::vector<int> words = trace.of(0x20110).at(0).arguments();
        return {words[2], words[3]};
    }

    /// True if a thread of its own gets into the tree within a moment.
    bool canAnotherThreadWrite() {
        std::promise<void> done;
        std::future<void> isDone = done.get_future();
        std::thread other([this, made = std::move(done)]() mutable {
            config->writeLock();
            config->writeUnlock();
            made.set_value();
        });
        const bool could = isDone.wait_for(std::chrono::milliseconds(50)) == std::future_status::ready;
        waiting.push_back(std::move(other));
        return could;
    }

    ~ComponentLock() override {
        for (std::thread& each : waiting) {
            each.join();
        }
    }

private:
    std::vector<std::thread> waiting;
};

std::vector<unsigned long> points(std::initializer_list<unsigned long> ids) {
    return ids;
}

} // namespace

// --- reading ---

TEST_F(ComponentLock, IsTakenForReadingThroughTheProvider) {
    const TraceCapture trace;

    at(4)->readLock();

    EXPECT_EQ((Calls{"readLock 4"}), provider->calls);
    EXPECT_EQ(points({0x20101, 0x20102}), idsOf(trace));
    for (const TraceRecord& record : trace.all()) {
        EXPECT_EQ(debugFlags, record.flags);
        EXPECT_EQ((std::vector<int>{4, 0}), record.arguments());
    }
}

TEST_F(ComponentLock, IsGivenBackAfterReading) {
    at(4)->readLock();
    const TraceCapture trace;

    at(4)->readUnlock();

    EXPECT_EQ((Calls{"readLock 4", "readUnlock 4"}), provider->calls);
    EXPECT_EQ(points({0x20104, 0x20105}), idsOf(trace));
    for (const TraceRecord& record : trace.all()) {
        EXPECT_EQ(debugFlags, record.flags);
        EXPECT_EQ((std::vector<int>{4, 0}), record.arguments());
    }
}

TEST_F(ComponentLock, IsAskedForAfterTheRefreshAndBetweenItsTwoRecords) {
    forgetRefresh();
    const TraceCapture trace;
    const int loads = config->loads;
    provider->before = [&](const std::string&) {
        EXPECT_EQ(loads + 1, config->loads);
        EXPECT_EQ(points({0x20101}), idsOf(trace));
    };

    at(4)->readLock();

    provider->before = nullptr;
}

TEST_F(ComponentLock, LeavesTheTreeOpenOnTheRootWhenReading) {
    root->readLock();

    EXPECT_EQ(0, config->accessDepth());
    EXPECT_FALSE(lock->isHeld());
    root->readUnlock();
}

// --- writing ---

TEST_F(ComponentLock, IsTakenForWritingThroughTheProvider) {
    const TraceCapture trace;

    at(4)->writeLock();

    EXPECT_EQ((Calls{"writeLock 4"}), provider->calls);
    EXPECT_EQ(points({0x20107, 0x20108}), idsOf(trace));
    for (const TraceRecord& record : trace.all()) {
        EXPECT_EQ(debugFlags, record.flags);
        EXPECT_EQ((std::vector<int>{4, 0}), record.arguments());
    }
    EXPECT_EQ(0, config->accessDepth());
    EXPECT_FALSE(lock->isHeld());
}

TEST_F(ComponentLock, IsGivenBackAfterWriting) {
    at(4)->writeLock();
    const TraceCapture trace;

    at(4)->writeUnlock();

    EXPECT_EQ((Calls{"writeLock 4", "writeUnlock 4"}), provider->calls);
    EXPECT_EQ(points({0x2010a, 0x2010b}), idsOf(trace));
    for (const TraceRecord& record : trace.all()) {
        EXPECT_EQ(debugFlags, record.flags);
        EXPECT_EQ((std::vector<int>{4, 0}), record.arguments());
    }
}

// --- the root ---

TEST_F(ComponentLock, FreezesTheTreeOnTheRootUntilItIsGivenBack) {
    root->writeLock();

    EXPECT_EQ(1, config->accessDepth());
    EXPECT_TRUE(lock->isHeld());
    EXPECT_FALSE(canAnotherThreadWrite());
    root->createComponent(fan);
    EXPECT_TRUE(lock->isHeld());

    root->writeUnlock();

    EXPECT_FALSE(lock->isHeld());
    EXPECT_EQ(0, config->accessDepth());
}

TEST_F(ComponentLock, OpensTheTreeOfTheRootAfterTheProvidersLock) {
    forgetRefresh();
    const TraceCapture trace;
    provider->before = [&](const std::string&) {
        EXPECT_EQ(0, config->accessDepth());
        EXPECT_FALSE(lock->isHeld());
    };

    root->writeLock();

    provider->before = nullptr;
    EXPECT_EQ(points({0x20107, 0x20108, 0x20121}), idsOf(trace));
    EXPECT_EQ(infoFlags, trace.of(treeLocked)[0].flags);
    EXPECT_EQ((std::vector<int>{0, 0}), trace.of(treeLocked)[0].arguments());
    root->writeUnlock();
}

TEST_F(ComponentLock, ClosesTheTreeOfTheRootBeforeTheProvidersLockIsGivenBack) {
    root->writeLock();
    const TraceCapture trace;
    int depthAtUnlock = -1;
    lock->afterUnlock = [&] { depthAtUnlock = config->accessDepth(); };
    provider->before = [&](const std::string&) {
        EXPECT_EQ(0, config->accessDepth());
        EXPECT_FALSE(lock->isHeld());
    };

    root->writeUnlock();

    provider->before = nullptr;
    lock->afterUnlock = nullptr;
    EXPECT_EQ(1, depthAtUnlock) << "processes before threads";
    EXPECT_EQ(points({0x20122, 0x2010a, 0x2010b}), idsOf(trace));
    EXPECT_EQ(infoFlags, trace.of(treeUnlocked)[0].flags);
    EXPECT_EQ((std::vector<int>{0, 0}), trace.of(treeUnlocked)[0].arguments());
}

TEST_F(ComponentLock, SavesOnceWhateverIsDoneUnderTheRoot) {
    root->writeLock();
    const int saves = config->saves;
    const int revision = config->getRevision();

    root->createComponent(fan);
    at(4)->setNo(9);
    EXPECT_EQ(revision, config->getRevision());
    root->writeUnlock();

    EXPECT_EQ(saves + 1, config->saves);
    EXPECT_EQ(revision + 1, config->getRevision());
}

TEST_F(ComponentLock, NestsOnTheRoot) {
    root->writeLock();
    root->writeLock();
    EXPECT_EQ(2, config->accessDepth());

    root->writeUnlock();
    EXPECT_TRUE(lock->isHeld());
    EXPECT_EQ(1, config->accessDepth());

    root->writeUnlock();
    EXPECT_FALSE(lock->isHeld());
}

TEST_F(ComponentLock, IsAllThereIsOnTheRootWithoutATree) {
    Component::setTreeConfig(nullptr);

    root->writeLock();
    root->writeUnlock();

    Component::setTreeConfig(config);
    EXPECT_EQ((Calls{"writeLock 0", "writeUnlock 0"}), provider->calls);
}

// --- the counts ---

TEST_F(ComponentLock, IsCounted) {
    EXPECT_EQ((std::vector<int>{0, 0}), countsOf(at(4)));
    at(4)->readLock();
    at(4)->readLock();
    EXPECT_EQ((std::vector<int>{2, 0}), countsOf(at(4)));
    at(4)->writeLock();
    EXPECT_EQ((std::vector<int>{2, 1}), countsOf(at(4)));
    at(4)->readUnlock();
    EXPECT_EQ((std::vector<int>{1, 1}), countsOf(at(4)));
    at(4)->writeUnlock();
    EXPECT_EQ((std::vector<int>{1, 0}), countsOf(at(4)));
    EXPECT_EQ((std::vector<int>{0, 0}), countsOf(at(1)));
}

TEST_F(ComponentLock, IsCountedInEightBits) {
    at(4)->readUnlock();
    EXPECT_EQ((std::vector<int>{255, 0}), countsOf(at(4)));

    at(4)->readLock();
    EXPECT_EQ((std::vector<int>{0, 0}), countsOf(at(4)));
}

// --- failures ---

TEST_F(ComponentLock, PassesOnWhatTheProviderRaises) {
    const std::pair<void (Component::*)(), unsigned long> failing[] = {{&Component::readLock, 0x20103},
                                                                       {&Component::writeLock, 0x20109}};
    for (const auto& [operation, point] : failing) {
        SCOPED_TRACE(point);
        const TraceCapture trace;
        provider->before = [](const std::string&) { throw TavrelException("no lock"); };

        EXPECT_EQ("no lock", faultText([&, take = operation] { (at(4)->*take)(); }));

        provider->before = nullptr;
        ASSERT_EQ(2U, trace.all().size());
        EXPECT_EQ(point, trace.all()[1].id);
        EXPECT_EQ(errorFlags, trace.all()[1].flags);
        EXPECT_EQ((std::vector<int>{4, 0}), trace.all()[1].arguments());
        EXPECT_EQ((std::vector<int>{0, 0}), countsOf(at(4)));
    }
}

TEST_F(ComponentLock, TracesNoOtherFailureThanATavrelException) {
    const TraceCapture trace;
    provider->before = [](const std::string&) { throw std::runtime_error("no lock"); };

    EXPECT_THROW(at(4)->readLock(), std::runtime_error);
    EXPECT_THROW(at(4)->writeLock(), std::runtime_error);

    provider->before = nullptr;
    EXPECT_EQ(points({0x20101, 0x20107}), idsOf(trace));
    EXPECT_EQ((std::vector<int>{0, 0}), countsOf(at(4)));
}

TEST_F(ComponentLock, LeavesTheGuardSetWhenTheProviderFails) {
    forgetRefresh();
    provider->before = [](const std::string&) { throw TavrelException("no lock"); };
    faultText([] { at(4)->readLock(); });
    provider->before = nullptr;

    EXPECT_EQ(0, taken([&] { at(4)->getParent(); }));
}

TEST_F(ComponentLock, NeverOpensTheTreeWhenTheProviderFailsOnTheRoot) {
    provider->before = [](const std::string&) { throw TavrelException("no lock"); };

    faultText([&] { root->writeLock(); });

    provider->before = nullptr;
    EXPECT_EQ(0, config->accessDepth());
    EXPECT_FALSE(lock->isHeld());
}

TEST_F(ComponentLock, NeverReportsAFailureToGiveItBack) {
    const std::tuple<void (Component::*)(), unsigned long> failing[] = {{&Component::readUnlock, 0x20106},
                                                                        {&Component::writeUnlock, 0x2010c}};
    for (const auto& [operation, point] : failing) {
        SCOPED_TRACE(point);
        at(4)->readLock();
        const std::vector<int> counts = countsOf(at(4));
        const TraceCapture trace;
        provider->before = [](const std::string&) { throw TavrelException("no unlock"); };

        EXPECT_NO_THROW((at(4)->*operation)());
        provider->before = [](const std::string&) { throw std::runtime_error("no unlock"); };
        EXPECT_NO_THROW((at(4)->*operation)());

        provider->before = nullptr;
        const auto records = trace.of(point);
        ASSERT_EQ(2U, records.size());
        EXPECT_EQ(4U, trace.all().size());
        EXPECT_EQ(errorFlags, records[0].flags);
        EXPECT_EQ((std::vector<int>{4, 0}), records[0].arguments());
        // The guard is reset all the same.
        EXPECT_EQ(1, taken([&] { EXPECT_EQ(counts, countsOf(at(4))); }));
    }
}

TEST_F(ComponentLock, StaysWithTheCallerWhenTheTreeOfTheRootCannotBeLocked) {
    Component::getRoot(); // so that the failing lock is that of the section and not of a refresh
    root->readLock();
    lock->beforeLock = [] { throw TavrelException("no tree"); };

    EXPECT_EQ("no tree", faultText([&] { root->writeLock(); }));

    lock->beforeLock = nullptr;
    EXPECT_EQ((Calls{"readLock 0", "writeLock 0"}), provider->calls);
    EXPECT_EQ(0, config->accessDepth());
    EXPECT_EQ((std::vector<int>{1, 1}), countsOf(root));
    root->writeUnlock();
    EXPECT_EQ("writeUnlock 0", provider->calls.back());
    EXPECT_EQ((std::vector<int>{1, 0}), countsOf(root));
}

TEST_F(ComponentLock, StaysWithTheCallerWhenTheLookAtTheRootFails) {
    provider->before = [&](const std::string&) {
        clock.advance(101); // so that the look at the root refreshes
        lock->beforeLock = [] { throw TavrelException("no refresh"); };
    };
    const TraceCapture trace;

    EXPECT_EQ("no refresh", faultText([] { at(4)->writeLock(); }));

    provider->before = nullptr;
    lock->beforeLock = nullptr;
    EXPECT_EQ((Calls{"writeLock 4"}), provider->calls);
    EXPECT_EQ(points({0x20107, 0x20108}), idsOf(trace));
    EXPECT_EQ((std::vector<int>{0, 1}), countsOf(at(4)));
    at(4)->writeUnlock();
    EXPECT_EQ("writeUnlock 4", provider->calls.back());
    EXPECT_EQ((std::vector<int>{0, 0}), countsOf(at(4)));
}

TEST_F(ComponentLock, IsGivenBackOnTheRootThoughTheTreeCannotBeSaved) {
    root->writeLock();
    at(4)->setNo(9);
    config->before = [](const std::string& operation) {
        if (operation == "save") {
            throw std::runtime_error("no save");
        }
    };
    const TraceCapture trace;

    EXPECT_NO_THROW(root->writeUnlock());

    config->before = nullptr;
    EXPECT_EQ((Calls{"writeLock 0", "writeUnlock 0"}), provider->calls);
    EXPECT_EQ(0, config->accessDepth());
    EXPECT_FALSE(lock->isHeld());
    EXPECT_EQ(1U, trace.count(treeUnlocked));
    EXPECT_EQ(1U, trace.count(0x2010c));
    EXPECT_EQ(1U, trace.count(0x2010b));
}

TEST_F(ComponentLock, IsGivenBackThoughTheLookAtTheRootFails) {
    at(4)->writeLock();
    clock.advance(101); // so that the look at the root refreshes
    lock->beforeLock = [] { throw TavrelException("no lock"); };

    EXPECT_NO_THROW(at(4)->writeUnlock());

    lock->beforeLock = nullptr;
    EXPECT_EQ((Calls{"writeLock 4", "writeUnlock 4"}), provider->calls);
}
