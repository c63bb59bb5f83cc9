#pragma once

#include <qz/tavrel/Database.h>

#include <mutex>
#include <string>
#include <unordered_map>

namespace chassis {

/// A store that keeps its values in the memory of this process. The library's default store class has this
/// name and leaves it to the client.
///
/// Threads: any; `lock` holds all others off until `unlock`.
class VolatileDB : public qz::tavrel::Database {
public:
    std::string toString() override { return "VolatileDB"; }
    void lock() override { mutex.lock(); }
    void unlock() override { mutex.unlock(); }

    /// Nothing to open: each object is a store of its own.
    void initialize(const std::string&) override {}

    /// An absent key leaves `value` as it is.
    void getValue(const std::string& key, std::string& value) override;
    void setValue(const std::string& key, const std::string& value) override;
    void clearValue(const std::string& key) override;

private:
    std::recursive_mutex mutex;
    std::unordered_map<std::string, std::string> values;
};

} // namespace chassis
