#pragma once

#include <sys/mman.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace tavrel::test {

/// An object that this process shares with the children that it forks from now on.
template <typename T>
class SharedPage {
public:
    SharedPage() {
        void* const memory =
            mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) {
            std::abort();
        }
        object = new (memory) T{};
    }
    ~SharedPage() { munmap(object, sizeof(T)); }
    SharedPage(const SharedPage&) = delete;
    SharedPage& operator=(const SharedPage&) = delete;

    T* operator->() { return object; }
    T& operator*() { return *object; }

private:
    T* object;
};

/// Two numbers that are equal whenever nobody writes, and whose lock a test proves with that.
/// Atomic one by one, since the thread sanitizer knows nothing of what a lock in the kernel orders.
struct Pair {
    std::atomic<int> first;
    std::atomic<int> second;

    void raise() {
        first.store(first.load(relaxed) + 1, relaxed);
        second.store(second.load(relaxed) + 1, relaxed);
    }
    bool isWhole() const { return first.load(relaxed) == second.load(relaxed); }

private:
    static constexpr std::memory_order relaxed = std::memory_order_relaxed;
};

} // namespace tavrel::test
