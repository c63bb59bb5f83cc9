#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>

namespace tavrel::bench {

/// What one figure is held against.
struct Goal {
    const char* figure; ///< name of the benchmark
    const char* what;   ///< the figure in words
    const char* floor;  ///< name of the benchmark that it is a ratio to
    double ratio;       ///< the figure is to be at most so many floors; 0 for none
    double nanoseconds; ///< and at most so long; 0 for none
};

/// Collects the median of every benchmark and prints it, at the end, beside its floor and its goal.
class Table : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override;

    /// Prints the table. @return how many goals were missed
    int print() const;

private:
    std::map<std::string, double> medians; ///< by name, in nanoseconds
};

} // namespace tavrel::bench
