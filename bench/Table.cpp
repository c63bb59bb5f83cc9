#include "Table.h"

#include <cstdio>

namespace tavrel::bench {

namespace {

constexpr Goal goals[] = {
    {"property_read/64", "4-byte property read while fresh, 64 components", "floor_map_find", 4, 500},
    {"property_read/4096", "the same, 4096 components", "floor_map_find", 4, 500},
    {"store_read/64", "BMCRelationalDB::getValue, 4 bytes among 64 keys", "floor_robust_mutex", 7, 100},
    {"store_read/4096", "the same, 4096 keys", "floor_robust_mutex", 7, 100},
    {"store_write/64", "same-length setValue, 64 keys", "floor_store_msync", 1.05, 0},
    {"store_write/4096", "the same, 4096 keys", "floor_store_msync", 1.05, 0},
    {"store_write_unchanged/64", "write of an unchanged value, 64 keys", "store_read/64", 0, 0},
    {"store_write_unchanged/4096", "the same, 4096 keys", "store_read/4096", 0, 0},
    {"refresh/64", "refresh with nothing changed, 64 components", "floor_semop_pair", 2.4, 0},
    {"refresh/4096", "the same, 4096 components", "floor_semop_pair", 2.4, 0},
    {"lock_leaf_read/64", "read lock and unlock of a leaf at depth 4, 64 components", "floor_robust_mutex", 0,
     600},
    {"lock_leaf_read/4096", "the same, 4096 components", "floor_robust_mutex", 0, 600},
    {"lock_leaf_write/64", "write lock and unlock of a leaf at depth 4, 64 components", "floor_robust_mutex",
     0, 600},
    {"lock_leaf_write/4096", "the same, 4096 components", "floor_robust_mutex", 0, 600},
    {"start_cached/500", "start on a hit cache, 500 types", "start_parsing/500", 0.1, 0},
};

} // namespace

void Table::ReportRuns(const std::vector<Run>& runs) {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
        if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median") {
            const bool waits = run.run_name.time_type == "real_time"; // for a disk; all others only compute
            medians[run.run_name.function_name + (run.run_name.args.empty() ? "" : "/" + run.run_name.args)] =
                (waits ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime()) * 1e9 /
                benchmark::GetTimeUnitMultiplier(run.time_unit);
        }
    }
}

int Table::print() const {
    int missed = 0;
    std::printf("\n%-58s %12s %12s %8s  %s\n", "figure (medians)", "ns", "floor, ns", "ratio", "goal");
    for (const Goal& goal : goals) {
        const auto figure = medians.find(goal.figure);
        const auto floor = medians.find(goal.floor);
        if (figure == medians.end() || floor == medians.end()) {
            continue;
        }
        const double ratio = figure->second / floor->second;
        std::printf("%-58s %12.0f %12.0f %8.2f ", goal.what, figure->second, floor->second, ratio);
        bool isMissed = false;
        if (goal.nanoseconds > 0) {
            std::printf(" %.0f ns", goal.nanoseconds);
            isMissed = figure->second > goal.nanoseconds;
        }
        if (goal.ratio > 0) {
            std::printf(" %.2f x floor", goal.ratio);
            isMissed = isMissed || ratio > goal.ratio;
        }
        const bool hasGoal = goal.nanoseconds > 0 || goal.ratio > 0;
        std::printf("%s\n", !hasGoal ? " (shown only)" : isMissed ? ": MISSED" : ": met");
        missed += isMissed ? 1 : 0;
    }
    std::printf("\nFloors: map_find = std::map<std::string, int>::find among 4096 keys; robust_mutex = lock "
                "and unlock of a "
                "free robust,\nprocess-shared mutex; store_msync = one store into a mapped page and its "
                "msync; semop_pair = "
                "semop -1 and +1 with undo.\n");
    return missed;
}

} // namespace tavrel::bench
