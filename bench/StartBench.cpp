#include "Flush.h"
#include "Machine.h"

#include <qz/tavrel/Component.h>

#include <benchmark/benchmark.h>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

/// Another process of the machine, which has started before and goes on: it keeps the lock table in being.
class Neighbour {
public:
    explicit Neighbour(const std::string& properties) {
        if (pipe(started) != 0 || (child = fork()) == -1) {
            std::perror("neighbour");
            std::exit(1);
        }
        char mark = 0;
        if (child == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            tavrel::bench::start(properties);
            static_cast<void>(write(started[1], &mark, 1));
            pause();
        }
        static_cast<void>(read(started[0], &mark, 1));
    }
    ~Neighbour() {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        close(started[0]);
        close(started[1]);
    }
    Neighbour(const Neighbour&) = delete;
    Neighbour& operator=(const Neighbour&) = delete;

private:
    int started[2];
    pid_t child;
};

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
    const Neighbour neighbour(properties);
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
