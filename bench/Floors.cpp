#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <pthread.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace {

void check(bool good, const char* what) {
    if (!good) {
        std::perror(what);
        std::exit(1);
    }
}

void floor_map_find(benchmark::State& state) {
    std::map<std::string, int> map;
    std::vector<std::string> keys;
    for (int i = 0; i < 4096; ++i) {
        keys.push_back("tavrel" + std::to_string(i + 3) + ".300");
        map[keys.back()] = i;
    }
    std::size_t next = 0;
    for (auto unused : state) {
        benchmark::DoNotOptimize(map.find(keys[next]));
        next = (next + 1031) % keys.size();
    }
}
BENCHMARK(floor_map_find);

void floor_robust_mutex(benchmark::State& state) {
    void* const page = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    check(page != MAP_FAILED, "mmap");
    auto* const mutex = static_cast<pthread_mutex_t*>(page);
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    pthread_mutex_init(mutex, &attributes);
    for (auto unused : state) {
        pthread_mutex_lock(mutex);
        pthread_mutex_unlock(mutex);
    }
    munmap(page, 4096);
}
BENCHMARK(floor_robust_mutex);

void floor_semop_pair(benchmark::State& state) {
    const int id = semget(IPC_PRIVATE, 1, 0600);
    check(id != -1, "semget");
    check(semctl(id, 0, SETVAL, 100) == 0, "semctl");
    for (auto unused : state) {
        sembuf take{0, -1, SEM_UNDO};
        sembuf give{0, 1, SEM_UNDO};
        semop(id, &take, 1);
        semop(id, &give, 1);
    }
    semctl(id, 0, IPC_RMID);
}
BENCHMARK(floor_semop_pair);

/// Beside the default store, so on the same disk.
void floor_store_msync(benchmark::State& state) {
    const char* const path = "/var/nvrdisk/current/db/floor";
    constexpr std::size_t size = 3 << 20;
    const int file = open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    check(file != -1, path);
    // Page by page: of what is written in one piece, the kernel may flush more than the page that has
    // changed.
    const std::vector<char> zeros(4096);
    for (std::size_t written = 0; written < size; written += zeros.size()) {
        check(write(file, zeros.data(), zeros.size()) == static_cast<ssize_t>(zeros.size()), "write");
    }
    void* const base = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    check(base != MAP_FAILED, "mmap");
    int value = 0;
    for (auto unused : state) {
        ++value;
        std::memcpy(static_cast<char*>(base) + 4096 * 5 + 64, &value, sizeof value);
        check(msync(static_cast<char*>(base) + 4096 * 5, 4096, MS_SYNC) == 0, "msync");
    }
    munmap(base, size);
    close(file);
    unlink(path);
}
BENCHMARK(floor_store_msync)->Iterations(500)->UseRealTime();

} // namespace
