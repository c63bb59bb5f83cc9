#pragma once

#include <sys/mman.h>

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
struct Pair {
    volatile int first;
    volatile int second;

    void raise() {
        first = first + 1;
        second = second + 1;
    }
    bool isWhole() const { return first == second; }
};

} // namespace tavrel::test
