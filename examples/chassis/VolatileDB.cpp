#include "VolatileDB.h"

namespace chassis {

void VolatileDB::getValue(const std::string& key, std::string& value) {
    const std::lock_guard guard(mutex);
    const auto found = values.find(key);
    if (found != values.end()) {
        value = found->second;
    }
}

void VolatileDB::setValue(const std::string& key, const std::string& value) {
    const std::lock_guard guard(mutex);
    values[key] = value;
}

void VolatileDB::clearValue(const std::string& key) {
    const std::lock_guard guard(mutex);
    values.erase(key);
}

} // namespace chassis
