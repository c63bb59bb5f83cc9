#pragma once

#include <string>

namespace qz::tavrel {
class NameResolver;
}

namespace tavrel::tool {

/// Compares the numbers in a specification cache with those of the names file. The cache's name tells the
/// class of the resolver and not which names file it read, so that a cache of other numbers would be taken
/// for ours. Nothing is compared with a cache that is missing or that the library would replace.
/// @param cache          path of the cache
/// @param specification  path of the component specification that it was made from
/// @param namesFile      path of the names file, for the reason
/// @param names          what the names file holds; looked up, never added to
/// @throws Refusal  a number differs
void checkCache(const std::string& cache, const std::string& specification, const std::string& namesFile,
                qz::tavrel::NameResolver& names);

} // namespace tavrel::tool
