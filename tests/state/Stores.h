#pragma once

#include <qz/tavrel/Configuration.h>
#include <qz/tavrel/Resource.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace tavrel::test {

/// The 4 bytes of each value, big-endian, one after the other.
inline std::string bigEndian(const std::vector<int>& values) {
    std::string bytes;
    for (const int value : values) {
        for (const int shift : {24, 16, 8, 0}) {
            bytes.push_back(static_cast<char>(static_cast<unsigned>(value) >> shift));
        }
    }
    return bytes;
}

/// A stored value: revision, length of the body, body.
inline std::string framed(int revision, const std::string& body) {
    return bigEndian({revision, static_cast<int>(body.size())}) + body;
}

/// A store in memory, whole values under their keys at subkey 0, which writes down each call.
class RecordingStore : public qz::tavrel::Resource {
public:
    std::map<int, std::string> values;
    std::vector<std::string> calls; ///< "lock", "unlock", "read KEY SIZE", "write KEY SIZE"
    int depth = 0;
    std::function<void(int key)> beforeRead;
    std::function<void(int key)> beforeWrite;
    std::function<void()> beforeLock;

    unsigned int readMethod(int key, int subkey, long offset, void* buffer, unsigned int size) override {
        note("read", key, size, subkey, offset);
        if (beforeRead) {
            beforeRead(key);
        }
        const auto found = values.find(key);
        if (found == values.end()) {
            return 0;
        }
        return static_cast<unsigned>(found->second.copy(static_cast<char*>(buffer), size));
    }

    unsigned int writeMethod(int key, int subkey, long offset, const void* buffer,
                             unsigned int size) override {
        note("write", key, size, subkey, offset);
        if (beforeWrite) {
            beforeWrite(key);
        }
        values[key].replace(0, size, static_cast<const char*>(buffer), size);
        return size;
    }

    void clearMethod(int key, int) override { values.erase(key); }
    std::string toString() override { return "RecordingStore"; }
    void initialize(const std::string&) override {}

    void lock() override {
        if (beforeLock) {
            beforeLock();
        }
        ++depth;
        calls.emplace_back("lock");
    }

    void unlock() override {
        --depth;
        calls.emplace_back("unlock");
    }

private:
    void note(const char* what, int key, unsigned int size, int subkey, long offset) {
        if (subkey != 0 || offset != 0) {
            throw std::logic_error("not the front of a value at subkey 0");
        }
        calls.push_back(std::string(what) + " " + std::to_string(key) + " " + std::to_string(size));
    }
};

/// Writes down what it is told.
class RecordingListener : public qz::tavrel::EventListener {
public:
    std::vector<std::pair<void*, int>> events;
    std::function<void()> also;

    void update(void* source, int event) override {
        events.emplace_back(source, event);
        if (also) {
            also();
        }
    }
};

} // namespace tavrel::test
