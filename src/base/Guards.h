#pragma once

#include <pthread.h>
#include <unistd.h>

#include <utility>

namespace qz::internal {

/// Holds a pthread mutex for a scope.
class [[nodiscard]] MutexGuard {
public:
    explicit MutexGuard(pthread_mutex_t& held) : mutex(held) { pthread_mutex_lock(&mutex); }
    ~MutexGuard() { pthread_mutex_unlock(&mutex); }
    MutexGuard(const MutexGuard&) = delete;
    MutexGuard& operator=(const MutexGuard&) = delete;

private:
    pthread_mutex_t& mutex;
};

/// Holds an open descriptor, or none.
class [[nodiscard]] Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int opened) : held(opened) {}
    ~Descriptor() {
        if (isOpen()) {
            close(held);
        }
    }
    Descriptor(Descriptor&& other) noexcept : held(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(held, other.held);
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    bool isOpen() const { return held != none; }
    int number() const { return held; }

    /// Gives the descriptor to the caller, who closes it.
    [[nodiscard]] int release() { return std::exchange(held, none); }

private:
    static constexpr int none = -1;
    int held = none;
};

} // namespace qz::internal
