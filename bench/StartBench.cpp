#include "Flush.h"
#include "Machine.h"

#include <qz/tavrel/Component.h>

#include <benchmark/benchmark.h>

#include <string>

namespace {

/// Starts of one process after another on a tree that is there already. Only the start is timed.
void start(benchmark::State& state, bool parse) {
    const std::string properties = tavrel::bench::writeSpecification(static_cast<int>(state.range(0)));
    {
        const tavrel::bench::NoFlush filling;
        std::remove("/var/nvrdisk/current/db/current.db");
        tavrel::bench::removeCaches();
        tavrel::bench::start(properties);
        qz::tavrel::Component::deleteAll();
    }
    for (auto unused : state) {
        if (parse) {
            state.PauseTiming();
            tavrel::bench::removeCaches();
            state.ResumeTiming();
        }
        tavrel::bench::start(properties);
        state.PauseTiming();
        qz::tavrel::Component::deleteAll();
        state.ResumeTiming();
    }
}

void start_cached(benchmark::State& state) {
    start(state, false);
}
BENCHMARK(start_cached)->Arg(500)->Iterations(20)->Unit(benchmark::kMicrosecond);

void start_parsing(benchmark::State& state) {
    start(state, true);
}
BENCHMARK(start_parsing)->Arg(500)->Iterations(20)->Unit(benchmark::kMicrosecond);

} // namespace
