#include "Machine.h"

#include <qz/tavrel/tavrel.h>

#include <benchmark/benchmark.h>

namespace {

using namespace qz::tavrel;
using tavrel::bench::Machine;
using tavrel::bench::valueKey;

/// While fresh: each read is within 100 ms of the one before, so none refreshes but the first.
void property_read(benchmark::State& state) {
    const Machine machine(static_cast<int>(state.range(0)));
    const auto& all = machine.all();
    unsigned char value[4];
    std::size_t next = 0;
    for (auto unused : state) {
        benchmark::DoNotOptimize(all[next]->getProperty(valueKey, value, sizeof value));
        next = (next + 1031) % all.size();
    }
}
BENCHMARK(property_read)->Arg(64)->Arg(4096);

void refresh(benchmark::State& state) {
    const Machine machine(static_cast<int>(state.range(0)));
    TreeConfig* const tree = Component::getTreeConfig();
    for (auto unused : state) {
        tree->writeLock();
        tree->lock();
        tree->unlock();
        tree->writeUnlock();
    }
}
BENCHMARK(refresh)->Arg(64)->Arg(4096);

void lock_leaf_read(benchmark::State& state) {
    const Machine machine(static_cast<int>(state.range(0)));
    ComponentLockProvider* const provider = Component::getLockProvider();
    for (auto unused : state) {
        provider->readLock(machine.leaf());
        provider->readUnlock(machine.leaf());
    }
}
BENCHMARK(lock_leaf_read)->Arg(64)->Arg(4096);

void lock_leaf_write(benchmark::State& state) {
    const Machine machine(static_cast<int>(state.range(0)));
    ComponentLockProvider* const provider = Component::getLockProvider();
    for (auto unused : state) {
        provider->writeLock(machine.leaf());
        provider->writeUnlock(machine.leaf());
    }
}
BENCHMARK(lock_leaf_write)->Arg(64)->Arg(4096);

} // namespace
