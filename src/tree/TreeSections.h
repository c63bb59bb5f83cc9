#pragma once

#include <qz/tavrel/TreeConfig.h>

#include <exception>

namespace qz::internal {

/// Holds the tree for reading between the threads of this process; nothing without a tree.
class [[nodiscard]] ReadSection {
public:
    explicit ReadSection(tavrel::TreeConfig* held) : config(held) {
        if (config != nullptr) {
            config->readLock();
        }
    }
    ~ReadSection() {
        if (config != nullptr) {
            config->readUnlock();
        }
    }
    ReadSection(const ReadSection&) = delete;
    ReadSection& operator=(const ReadSection&) = delete;

private:
    tavrel::TreeConfig* config;
};

/// Holds the tree for writing between the threads of this process; nothing without a tree.
class [[nodiscard]] AccessSection {
public:
    explicit AccessSection(tavrel::TreeConfig* held) : config(held) {
        if (config != nullptr) {
            config->writeLock();
        }
    }
    ~AccessSection() {
        if (config != nullptr) {
            config->writeUnlock();
        }
    }
    AccessSection(const AccessSection&) = delete;
    AccessSection& operator=(const AccessSection&) = delete;

private:
    tavrel::TreeConfig* config;
};

/// Holds the tree between processes: what others saved is loaded at the start, what this process changed is
/// saved at the end. Leaving it may raise what the save raises, unless another exception is already on its
/// way.
class [[nodiscard]] SharedSection {
public:
    explicit SharedSection(tavrel::TreeConfig* held) : config(held), pending(std::uncaught_exceptions()) {
        if (config != nullptr) {
            config->lock();
        }
    }
    ~SharedSection() noexcept(false) {
        if (config == nullptr) {
            return;
        }
        try {
            config->unlock();
        } catch (...) {
            // The lock itself is free by now, and `unlock` has traced the failure.
            if (std::uncaught_exceptions() == pending) {
                throw;
            }
        }
    }
    SharedSection(const SharedSection&) = delete;
    SharedSection& operator=(const SharedSection&) = delete;

private:
    tavrel::TreeConfig* config;
    int pending;
};

/// A write section: the tree held between threads, then between processes.
class [[nodiscard]] WriteSection {
public:
    explicit WriteSection(tavrel::TreeConfig* held) : access(held), shared(held) {}

private:
    AccessSection access;
    SharedSection shared;
};

} // namespace qz::internal
