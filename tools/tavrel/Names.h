#pragma once

#include <string>
#include <utility>
#include <vector>

namespace qz::tavrel {
class NameResolver;
}

namespace tavrel::tool {

/// The dictionaries of a `NameResolver`.
enum Dictionary { Types = 0, Actions = 1, Properties = 2 };

using NamedValues = std::vector<std::pair<std::string, int>>;

/// All names of a dictionary with their values, in its order.
NamedValues namesOf(qz::tavrel::NameResolver& resolver, int dictionary);

/// Of `known`, the name that takes the fewest changes of a character to reach from `name`, case counting half
/// a change and a missing end one; of several the one with the longest start in common; empty if `known` is,
/// or if `name` has more than 100 bytes.
std::string nearestName(const std::string& name, const std::vector<std::string>& known);

/// "unknown KIND 'NAME'" and, if there is one, "; the nearest known name is 'OTHER'".
std::string unknownName(const std::string& kind, const std::string& name,
                        const std::vector<std::string>& known);

/// The value of a name in a dictionary; the dictionary stays as it is.
/// @param kind  what the name stands for, for the reason
/// @throws Refusal  the name is unknown; with the nearest of `known`
int valueOf(qz::tavrel::NameResolver& resolver, int dictionary, const std::string& kind,
            const std::string& name, const std::vector<std::string>& known);

} // namespace tavrel::tool
