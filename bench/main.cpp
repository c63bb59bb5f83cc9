#include "Table.h"

#include <cstdio>
#include <cstdlib>
#include <vector>

int main(int argc, char** argv) {
    if (std::getenv("TAVREL_SANDBOX") == nullptr) {
        std::fprintf(stderr, "The benchmarks use fixed keys and paths of the machine: run bench/run.\n");
        return 2;
    }
    // Medians of several runs, the floors among them, so that a noisy moment touches neither alone.
    std::vector<char*> arguments(argv, argv + argc);
    char repetitions[] = "--benchmark_repetitions=7";
    char interleave[] = "--benchmark_enable_random_interleaving=true";
    arguments.insert(arguments.begin() + 1, {repetitions, interleave});
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) {
        return 2;
    }
    tavrel::bench::Table table;
    benchmark::RunSpecifiedBenchmarks(&table);
    table.print();
    return 0;
}
