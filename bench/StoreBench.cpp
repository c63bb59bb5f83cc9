#include "Flush.h"

#include <qz/tavrel/BMCRelationalDB.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace {

using qz::tavrel::BMCRelationalDB;

/// The default store, filled anew with as many 4-byte values as the benchmark's argument says.
struct Store {
    explicit Store(const benchmark::State& state) {
        const tavrel::bench::NoFlush filling;
        std::remove("/var/nvrdisk/current/db/current.db");
        database.initialize("bench");
        for (int i = 0; i < state.range(0); ++i) {
            keys.push_back("tavrel" + std::to_string(i + 3) + ".300");
            database.setValue(keys.back(), std::string("\0\0\0\1", 4));
        }
    }

    const std::string& nextKey() {
        next = (next + 1031) % keys.size();
        return keys[next];
    }

    BMCRelationalDB database;
    std::vector<std::string> keys;
    std::size_t next = 0;
};

void store_read(benchmark::State& state) {
    Store store(state);
    std::string value;
    for (auto unused : state) {
        store.database.getValue(store.nextKey(), value);
        benchmark::DoNotOptimize(value.data());
    }
}
BENCHMARK(store_read)->Arg(64)->Arg(4096);

void store_write(benchmark::State& state) {
    Store store(state);
    unsigned char count = 0;
    for (auto unused : state) {
        ++count;
        store.database.setValue(store.keys.front(), std::string(4, static_cast<char>(count)));
    }
}
BENCHMARK(store_write)->Arg(64)->Arg(4096)->Iterations(500)->UseRealTime();

void store_write_unchanged(benchmark::State& state) {
    Store store(state);
    int key = 3;
    for (auto unused : state) {
        store.database.write(key, 300, 0, "\0\0\0\1", 4);
        key = 3 + (key + 1031) % static_cast<int>(state.range(0));
    }
}
BENCHMARK(store_write_unchanged)->Arg(64)->Arg(4096);

} // namespace
