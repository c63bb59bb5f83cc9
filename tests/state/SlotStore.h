#pragma once

#include <qz/tavrel/Resource.h>

#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>

namespace tavrel::test {

/// A store in memory that forked processes share. A value changes all at once or not at all, wherever its
/// writer is killed, so that what a test finds broken is not the store's.
class SlotStore : public qz::tavrel::Resource {
public:
    SlotStore()
        : keys(new (mmap(nullptr, sizeof(Keys), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
                   Keys) {}
    ~SlotStore() override { munmap(keys, sizeof(Keys)); }

    unsigned int readMethod(int key, int, long, void* buffer, unsigned int size) override {
        const Value& value = valueOf(key);
        const Slot& slot = value.slots[value.current % 2];
        const unsigned int delivered = std::min(size, slot.length);
        std::memcpy(buffer, slot.bytes.data(), delivered);
        return delivered;
    }

    unsigned int writeMethod(int key, int, long, const void* buffer, unsigned int size) override {
        Value& value = valueOf(key);
        Slot& slot = value.slots[(value.current + 1) % 2];
        if (size > slot.bytes.size()) {
            throw std::length_error("value too long");
        }
        std::memcpy(slot.bytes.data(), buffer, size);
        slot.length = size;
        ++value.current;
        return size;
    }

    void clearMethod(int, int) override {}
    std::string toString() override { return "SlotStore"; }
    void initialize(const std::string&) override {}
    void lock() override {}
    void unlock() override {}

private:
    struct Slot {
        std::uint32_t length = 0;
        std::array<char, 1 << 16> bytes{};
    };
    struct Value {
        std::atomic<std::uint32_t> current{0};
        std::array<Slot, 2> slots;
    };
    using Keys = std::array<Value, 6>;

    Value& valueOf(int key) { return keys->at(static_cast<std::size_t>(key)); }

    Keys* keys;
};

} // namespace tavrel::test
