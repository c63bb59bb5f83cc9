#pragma once

#include <qz/tavrel/Database.h>

#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace tavrel::test {

/// A store in memory that counts its calls and can be told to raise.
///
/// An absent key leaves the value as it was. All members may be read and set between calls; the operations
/// themselves may come from several threads.
class MemoryDatabase : public qz::tavrel::Database {
public:
    std::map<std::string, std::string> values;
    std::string name; ///< as `initialize` got it

    int getCalls = 0;
    int setCalls = 0;
    int clearCalls = 0;
    int lockCalls = 0;
    int unlockCalls = 0;

    /// Called first in `getValue` and in `setValue`, after counting: let it throw to make the store fail.
    std::function<void()> beforeGet;
    std::function<void()> beforeSet;

    void getValue(const std::string& key, std::string& value) override {
        const std::lock_guard<std::recursive_mutex> guard(mutex);
        ++getCalls;
        if (beforeGet) {
            beforeGet();
        }
        const auto found = values.find(key);
        if (found != values.end()) {
            value = found->second;
        }
    }

    void setValue(const std::string& key, const std::string& value) override {
        const std::lock_guard<std::recursive_mutex> guard(mutex);
        ++setCalls;
        if (beforeSet) {
            beforeSet();
        }
        values[key] = value;
    }

    void clearValue(const std::string& key) override {
        const std::lock_guard<std::recursive_mutex> guard(mutex);
        ++clearCalls;
        values.erase(key);
    }

    std::string toString() override { return "MemoryDatabase"; }
    void initialize(const std::string& given) override { name = given; }

    void lock() override {
        const std::lock_guard<std::recursive_mutex> guard(mutex);
        ++lockCalls;
    }

    void unlock() override {
        const std::lock_guard<std::recursive_mutex> guard(mutex);
        ++unlockCalls;
    }

private:
    std::recursive_mutex mutex;
};

} // namespace tavrel::test
