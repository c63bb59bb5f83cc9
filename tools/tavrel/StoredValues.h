#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace tavrel::tool {

/// The stored bytes of every property of every live component, by component id and key.
using StoredValues = std::map<std::pair<int, int>, std::string>;

/// The size of a value that was read.
enum class ValueSize {
    Stored,    ///< as it is stored, whatever size the specification gives
    Configured ///< as a reader gets it: cut, or filled with zeros; one that was never stored stays empty
};

/// Reads them. Locks: the caller holds a `TreeSection`.
StoredValues storedValues(ValueSize size);

/// A line for each type and property of which values differ: how many, and one of them before and after; and
/// one for all that are zeros now and were not stored before.
std::vector<std::string> differences(const StoredValues& before, const StoredValues& after);

} // namespace tavrel::tool
