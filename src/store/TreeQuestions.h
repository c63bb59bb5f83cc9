#pragma once

#include <string>

namespace qz::internal {

/// Text form of the way from the root to a component.
/// @throws TavrelException "invalid id in getComponent." for an id that the tree does not take
/// Locks: the tree's, so the caller holds no lock that comes after it.
std::string pathOf(int componentId);

/// True if there is a component of a type at `path`, the text form of a tree path.
/// Locks: the tree's, so the caller holds no lock that comes after it.
bool hasComponent(const std::string& path);

} // namespace qz::internal
