#include "base/Fault.h"
#include "base/Trace.h"

#include <qz/tavrel/Database.h>

#include <stdexcept>

namespace qz::tavrel {

namespace {

/// The text of `number` behind `prefix`, kept in `texts` from its first use on.
const std::string& textOf(std::unordered_map<int, std::string>& texts, int number, const char* prefix) {
    const auto found = texts.find(number);
    if (found != texts.end()) {
        return found->second;
    }
    return texts.emplace(number, prefix + std::to_string(number)).first->second;
}

} // namespace

std::unordered_map<int, std::string>& Database::keys = *new std::unordered_map<int, std::string>;
std::unordered_map<int, std::string>& Database::subkeys = *new std::unordered_map<int, std::string>;

Database::Database() = default;

Database::~Database() = default;

std::string Database::toKey(int key, int subkey) {
    const std::string& front = textOf(keys, key, "tavrel");
    return subkey == 0 ? front : front + textOf(subkeys, subkey, ".");
}

unsigned int Database::readMethod(int key, int subkey, long offset, void* buffer, unsigned int size) {
    if (offset < 0) {
        internal::trace(internal::point::DatabaseReadOffset, key, subkey, offset);
        internal::raise("Database", "readMethod", "Invalid param.");
    }
    try {
        std::string value;
        getValue(toKey(key, subkey), value);
        return static_cast<unsigned int>(
            value.copy(static_cast<char*>(buffer), size, static_cast<std::size_t>(offset)));
    } catch (const std::out_of_range&) {
        internal::trace(internal::point::DatabaseReadAbsent, key, subkey, offset);
        return 0;
    }
}

unsigned int Database::writeMethod(int key, int subkey, long offset, const void* buffer, unsigned int size) {
    if (offset < 0) {
        internal::trace(internal::point::DatabaseWriteOffset, key, subkey, offset);
        internal::raise("Database", "writeMethod", "Invalid param.");
    }
    const std::string textKey = toKey(key, subkey);
    std::string value;
    try {
        getValue(textKey, value);
    } catch (const TavrelException&) { // NOLINT(bugprone-empty-catch): it means an absent value
    }

    const char* bytes = static_cast<const char*>(buffer);
    const auto start = static_cast<std::size_t>(offset);
    if (start > value.size()) {
        const std::size_t oldLength = value.size();
        value.resize(start, '\0');
        value.append(bytes, size);
        internal::trace(internal::point::DatabaseWriteGap, key, subkey, oldLength, value.size());
    } else if (value.compare(start, size, bytes, size) == 0) {
        internal::trace(internal::point::DatabaseWriteEqual, key, subkey);
        return size;
    } else {
        value.replace(start, size, bytes, size);
    }
    setValue(textKey, value);
    return size;
}

void Database::clearMethod(int key, int subkey) {
    clearValue(toKey(key, subkey));
}

} // namespace qz::tavrel
