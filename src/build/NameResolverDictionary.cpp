#include "base/Trace.h"

#include <qz/tavrel/NameResolver.h>

#include <algorithm>
#include <iterator>
#include <limits>

namespace qz::tavrel {

namespace {

constexpr int unknown = -1;

int following(int value) {
    return value == std::numeric_limits<int>::max() ? std::numeric_limits<int>::min() : value + 1;
}

} // namespace

NameResolverDictionary::NameResolverDictionary() : lastValue(0) {}

std::string NameResolverDictionary::getName(int value) {
    const auto hasValue = [value](const auto& entry) { return entry.second == value; };
    const auto found = std::find_if(names.begin(), names.end(), hasValue);
    if (found == names.end()) {
        return {};
    }
    if (std::find_if(std::next(found), names.end(), hasValue) == names.end()) {
        return found->first;
    }
    return *std::find_if(order.rbegin(), order.rend(),
                         [&](const std::string& name) { return names.at(name) == value; });
}

int NameResolverDictionary::getValue(const std::string& name) {
    const auto found = names.find(name);
    return found == names.end() ? unknown : found->second;
}

void NameResolverDictionary::setValue(const std::string& name, int value) {
    const auto [entry, isNew] = names.try_emplace(name, value);
    if (isNew) {
        order.push_back(name);
        if (value > lastValue) {
            lastValue = value;
        }
    } else if (entry->second != value) {
        internal::traceFormat(internal::point::DictionaryConflict, "%s:%d (not %d)", name.c_str(),
                              entry->second, value);
    }
}

int NameResolverDictionary::addName(const std::string& name) {
    lastValue = following(lastValue);
    setValue(name, lastValue);
    return lastValue;
}

std::istream& NameResolverDictionary::read(std::istream& stream) {
    int count = 0;
    stream >> count;
    // A stream that has run dry yields no further entry, whatever the count says.
    for (int i = 0; i < count && stream; ++i) {
        std::string name;
        int value = unknown;
        stream >> name >> value;
        if (!name.empty() || value != unknown) {
            setValue(name, value);
        }
    }
    return stream;
}

std::ostream& NameResolverDictionary::write(std::ostream& stream) {
    stream << order.size() << std::endl;
    for (const std::string& name : order) {
        stream << name << std::endl << names.at(name) << std::endl;
    }
    return stream;
}

std::string NameResolverDictionary::toString() {
    std::string text;
    for (const std::string& name : order) {
        text += name + ":" + std::to_string(names.at(name)) + "\n";
    }
    return text;
}

} // namespace qz::tavrel
