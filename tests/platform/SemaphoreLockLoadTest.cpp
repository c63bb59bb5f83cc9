#include "SharedMemoryObjects.h"
#include "support/ChildProcess.h"

#include <qz/base/SemaphoreLock.h>

#include <gtest/gtest.h>

#include <sched.h>
#include <sys/mman.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

using tavrel::test::ChildProcess;
using tavrel::test::objectNames;
using tavrel::test::Talk;

namespace {

constexpr int mostProcesses = 64;
const std::string lockName = "/load";

/// What the processes of a test share. All of it is touched under the lock alone, but for `killed` and
/// `stop`.
struct Shared {
    std::atomic<long> value;
    std::atomic<int> holder; ///< 1 + index of the process inside, 0 when nobody is
    std::atomic<long> intruders;
    std::atomic<bool> stop;
    std::atomic<long> done[mostProcesses];
    std::atomic<bool> killed[mostProcesses];
};

/// Makes an object that all children of the test share.
Shared& share() {
    void* const memory =
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    EXPECT_NE(MAP_FAILED, memory);
    return *new (memory) Shared{};
}

/// Adds 1 to the value in steps that lose something as soon as two are inside, or that a kill can cut in two.
void addOne(Shared& shared, int index) {
    const SemaphoreLock lock(lockName, 0);
    const int before = shared.holder.load(std::memory_order_relaxed);
    if (before != 0 && !shared.killed[before - 1].load(std::memory_order_relaxed)) {
        shared.intruders.fetch_add(1);
    }
    shared.holder.store(index + 1, std::memory_order_relaxed);
    const long value = shared.value.load(std::memory_order_relaxed);
    shared.value.store(value + 1, std::memory_order_relaxed);
    const long done = shared.done[index].load(std::memory_order_relaxed);
    shared.done[index].store(done + 1, std::memory_order_relaxed);
    shared.holder.store(0, std::memory_order_relaxed);
}

std::unique_ptr<ChildProcess> start(Shared& shared, int index) {
    return std::make_unique<ChildProcess>([&shared, index](Talk&) {
        while (!shared.stop.load(std::memory_order_relaxed)) {
            addOne(shared, index);
        }
        return 0;
    });
}

TEST(SemaphoreLockUnderLoad, LosesNoUpdateOfManyThreads) {
    constexpr int threadCount = 8;
    constexpr int updates = 20000;
    int value = 0;
    std::vector<std::thread> threads;
    threads.reserve(threadCount);

    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back([&] {
            for (int update = 0; update < updates; ++update) {
                const SemaphoreLock lock(lockName, 0);
                ++value;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(threadCount * updates, value);
}

TEST(SemaphoreLockUnderLoad, LosesNoUpdateWhileProcessesAreKilled) {
    constexpr int atOnce = 4;
    constexpr int kills = mostProcesses - atOnce;
    constexpr long between = 2000; // updates from one kill to the next
    Shared& shared = share();
    std::vector<std::unique_ptr<ChildProcess>> processes;
    processes.reserve(mostProcesses);
    for (int i = 0; i < atOnce; ++i) {
        processes.push_back(start(shared, i));
    }

    for (int kill = 0; kill < kills; ++kill) {
        const long goal = shared.value.load() + between;
        while (shared.value.load() < goal) {
            sched_yield();
        }
        const std::size_t oldest = processes.size() - atOnce;
        shared.killed[oldest].store(true);
        processes[oldest]->kill();
        processes.push_back(start(shared, static_cast<int>(processes.size())));
    }
    shared.stop = true;
    for (std::size_t i = processes.size() - atOnce; i < processes.size(); ++i) {
        EXPECT_EQ(0, processes[i]->wait());
    }

    long done = 0;
    for (const std::atomic<long>& ofOne : shared.done) {
        done += ofOne.load();
    }
    EXPECT_EQ(0, shared.intruders.load()) << "two were inside at the same time";
    EXPECT_LE(done, shared.value.load()) << "updates were lost";
    EXPECT_LE(shared.value.load(), done + kills) << "more than one update a kill stands half done";
}

TEST(SemaphoreLockUnderLoad, BecomesOneLockWhenManyProcessesMakeItAtOnce) {
    constexpr int rounds = 20;
    constexpr int makers = 8;
    constexpr int updates = 200;
    const std::size_t before = objectNames().size();

    for (int round = 0; round < rounds; ++round) {
        Shared& shared = share();
        const std::string name = "/made-at-once" + std::to_string(round);
        std::vector<std::unique_ptr<ChildProcess>> processes;
        processes.reserve(makers);
        for (int i = 0; i < makers; ++i) {
            processes.push_back(std::make_unique<ChildProcess>([&](Talk& talk) {
                talk.tell('r');
                while (!shared.stop.load()) {
                }
                for (int update = 0; update < updates; ++update) {
                    const SemaphoreLock lock(name, 0);
                    shared.value.store(shared.value.load() + 1);
                }
                return 0;
            }));
        }
        for (const auto& process : processes) {
            ASSERT_TRUE(process->talk().waitFor('r'));
        }
        shared.stop = true;
        for (const auto& process : processes) {
            EXPECT_EQ(0, process->wait());
        }

        ASSERT_EQ(makers * updates, shared.value.load());
        ASSERT_EQ(before + static_cast<std::size_t>(round) + 1, objectNames().size());
    }
}

TEST(SemaphoreLockUnderLoad, CanBeTakenInChildrenForkedWhileOtherThreadsOpenNames) {
    constexpr int children = 50;
    std::atomic<bool> stop = false;
    std::vector<std::thread> threads;
    threads.reserve(3);
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            for (int name = 0; !stop; ++name) {
                const SemaphoreLock lock("/name" + std::to_string(name % 5000), 0);
            }
        });
    }

    for (int i = 0; i < children; ++i) {
        ChildProcess child([&](Talk&) {
            for (int name = 0; name < 50; ++name) {
                const SemaphoreLock known("/name" + std::to_string(name), 0);
                const SemaphoreLock fresh("/child" + std::to_string(name), 0);
            }
            return 0;
        });
        EXPECT_EQ(0, child.wait()) << "child " << i;
    }
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}

} // namespace
