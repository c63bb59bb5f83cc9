#include "process/Machine.h"
#include "support/ChildProcess.h"

#include <qz/tavrel/ComponentAccessor.h>
#include <qz/tavrel/QZException.h>
#include <qz/tavrel/TreeConfig.h>

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <random>
#include <thread>

using namespace qz::tavrel;
using namespace tavrel::test;

namespace {

constexpr unsigned int workers = 4;
constexpr unsigned int deaths = 42; ///< six of each kind
constexpr int stepsOfALife = 80;    ///< before a worker dies
constexpr int stepsAtTheEnd = 150;
constexpr std::size_t mostFans = 20;
constexpr int longestRound = 20; ///< in seconds

/// What a worker is doing when it dies.
enum class Death {
    never,
    atRest,
    readLocked,
    writeLocked,
    inTheTree,     ///< with changes that are not saved
    withTheRoot,   ///< locked, with changes that are not saved
    inAProperty,   ///< stored, its lock held
    afterCreation, ///< between a saved change of the tree and the value that goes with it
    count
};

/// One process of the load: works on the tree as the numbers fall.
class Worker {
public:
    Worker(unsigned int seed, int itsSteps, Death itsDeath)
        : random(seed), steps(itsSteps), death(itsDeath) {}

    void run() {
        for (int step = 0; step < steps; ++step) {
            workOrLose();
        }
        dieAsTold();
    }

    void runUntil(std::chrono::steady_clock::time_point end) {
        while (std::chrono::steady_clock::now() < end) {
            workOrLose();
        }
    }

private:
    template <typename T>
    T& any(std::vector<T>& list) {
        return list[random() % list.size()];
    }

    Component* anyOf(int type) {
        std::vector<Component*> found = all(type);
        return any(found);
    }

    void workOrLose() {
        try {
            work();
        } catch (const UnavailableComponentException&) {
            // Another process has changed the component meanwhile.
        }
    }

    void work() {
        switch (random() % 8) {
        case 0:
            create();
            break;
        case 1:
            remove();
            break;
        case 2:
            share();
            break;
        case 3:
            change();
            break;
        case 4:
            read();
            break;
        case 5:
            lockForReading();
            break;
        default:
            lockForWriting();
            break;
        }
    }

    void create() {
        if (all(fan).size() < mostFans) {
            ComponentAccessor(anyOf(board)).createComponent(fan);
        }
    }

    void remove() {
        if (!all(fan).empty()) {
            ComponentAccessor(anyOf(fan)).deleteComponent();
        }
    }

    /// Attaches a fan to the root as well, or takes it from there.
    void share() {
        std::vector<Component*> fans = all(fan);
        if (fans.empty()) {
            return;
        }
        Component* const root = Component::getRoot();
        Component* const chosen = any(fans);
        std::vector<Component*> parents;
        chosen->getParents(parents);
        if (std::count(parents.begin(), parents.end(), root) == 0) {
            root->addComponent(chosen);
        } else {
            root->removeComponent(chosen);
        }
    }

    /// Sets what no lock covers.
    void change() {
        if (all(fan).empty()) {
            return;
        }
        ComponentAccessor handle(anyOf(fan));
        const Doubled value = Doubled::of(static_cast<std::uint32_t>(random()));
        handle.setProperty(valueKey, &value, sizeof value);
    }

    void read() {
        for (Component* const each : all(sensor)) {
            EXPECT_TRUE(valueOf(each).isWhole());
        }
    }

    /// A board or a sensor: a lock on the one covers what is beneath it, and keeps out locks on the other.
    Component* anyLockable() { return anyOf(random() % 2 == 0 ? board : sensor); }

    void lockForReading() {
        Component* const target = anyLockable();
        target->readLock();
        const Values before = covered(target);
        letOthersTry();
        EXPECT_EQ(before, covered(target)) << "written under a read lock";
        target->readUnlock();
    }

    void lockForWriting() {
        Component* const target = anyLockable();
        target->writeLock();
        const auto value = static_cast<std::uint32_t>(random());
        setCovered(target, value);
        letOthersTry();
        for (const std::uint32_t found : covered(target)) {
            EXPECT_EQ(value, found) << "written by two at once";
        }
        target->writeUnlock();
    }

    /// Does something beside the point, so that others run into the lock.
    static void letOthersTry() {
        for (int i = 0; i < 5; ++i) {
            Component::getRoot()->getRevision();
            std::this_thread::yield();
        }
    }

    using Values = std::vector<std::uint32_t>;

    /// The component and its sensors.
    static std::vector<Component*> coveredBy(Component* target) {
        std::vector<Component*> found{target};
        target->getComponent(sensor, found);
        return found;
    }

    static Values covered(Component* target) {
        Values values;
        for (Component* const each : coveredBy(target)) {
            values.push_back(valueOf(each).value);
        }
        return values;
    }

    static void setCovered(Component* target, std::uint32_t value) {
        for (Component* const each : coveredBy(target)) {
            setValue(each, value);
        }
    }

    void dieAsTold() {
        switch (death) {
        case Death::never:
        case Death::count:
            return;
        case Death::atRest:
            die();
        case Death::readLocked:
            anyLockable()->readLock();
            die();
        case Death::writeLocked:
            anyLockable()->writeLock();
            die();
        case Death::inTheTree: {
            TreeConfig* const tree = Component::getTreeConfig();
            tree->writeLock();
            tree->lock();
            anyOf(board)->createComponent(fan);
            die();
        }
        case Death::withTheRoot: {
            Component* const root = Component::getRoot();
            root->writeLock();
            anyOf(board)->deleteComponent();
            root->createComponent(fan);
            die();
        }
        case Death::inAProperty: {
            Component* const target = anyOf(board);
            target->writeLock();
            setValue(target, 1);
            die();
        }
        case Death::afterCreation:
            create();
            die();
        }
    }

    std::minstd_rand random;
    int steps;
    Death death;
};

std::unique_ptr<ChildProcess> begin(unsigned int seed, int steps, Death death) {
    return std::make_unique<ChildProcess>([=](Talk&) {
        Process process;
        process.start();
        Worker(seed, steps, death).run();
        return 0;
    });
}

/// Waits for the first of several processes to end, and buries it: what an unburied one holds counts as held.
auto firstToEnd(std::vector<std::unique_ptr<ChildProcess>>& crowd) {
    siginfo_t ended{};
    EXPECT_EQ(0, waitid(P_ALL, 0, &ended, WEXITED | WNOWAIT));
    return std::find_if(crowd.begin(), crowd.end(),
                        [&ended](const auto& each) { return each->pid() == ended.si_pid; });
}

/// A process that starts now finds the tree whole.
void expectASoundTree() {
    ChildProcess fresh([](Talk&) {
        Process process;
        EXPECT_EQ(Work{}, process.start());
        EXPECT_EQ("", damage());
        EXPECT_EQ(3U, all(board).size());
        EXPECT_EQ(6U, all(sensor).size());
        return 0;
    });
    EXPECT_EQ(0, fresh.wait());
}

// TAVREL_LOAD_SECONDS says for how long; a child lives for less than a minute.
TEST(Load, LeavesASoundTreeThoughTwoProcessesHammerIt) {
    const char* const asked = std::getenv("TAVREL_LOAD_SECONDS");
    specify("1");

    for (int left = asked == nullptr ? 2 : std::atoi(asked); left > 0; left -= longestRound) {
        const auto end =
            std::chrono::steady_clock::now() + std::chrono::seconds(std::min(left, longestRound));
        const auto hammer = [end, left](unsigned int number) {
            return [end, left, number](Talk&) {
                Process process;
                process.start();
                Worker(number + static_cast<unsigned int>(left), 0, Death::never).runUntil(end);
                return 0;
            };
        };
        ChildProcess first(hammer(1000));
        ChildProcess second(hammer(2000));

        EXPECT_EQ(0, first.wait());
        EXPECT_EQ(0, second.wait());
    }

    expectASoundTree();
}

TEST(Load, LeavesASoundTreeThoughOneProcessAfterAnotherIsKilled) {
    specify("1");
    std::vector<std::unique_ptr<ChildProcess>> crowd;
    unsigned int begun = 0;
    const auto beginNext = [&] {
        const auto kinds = static_cast<unsigned int>(Death::count) - 1;
        const bool lives = begun >= deaths;
        const Death death = lives ? Death::never : static_cast<Death>(1 + begun % kinds);
        crowd.push_back(begin(++begun, lives ? stepsAtTheEnd : stepsOfALife, death));
    };
    for (unsigned int i = 0; i < workers; ++i) {
        beginNext();
    }

    // One after another dies in the midst of the others, and another one takes its place.
    unsigned int dead = 0;
    while (!crowd.empty()) {
        const auto ended = firstToEnd(crowd);
        const int code = (*ended)->wait();
        crowd.erase(ended);
        if (code == -SIGKILL) {
            ++dead;
            beginNext();
        } else {
            ASSERT_EQ(0, code);
        }
    }

    EXPECT_EQ(deaths, dead);
    expectASoundTree();
}

} // namespace
