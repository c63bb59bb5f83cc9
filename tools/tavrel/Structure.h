#pragma once

#include <string>

namespace tavrel::tool {

/// How the tree differs from the one that its specification starts with, by the number of components of each
/// type: "Slot: 8 in place of 6". What has been added and removed shows as well. Empty if it does not differ.
/// Locks: a write section of the tree.
std::string structureDifference();

/// Number of components in the tree.
int liveComponents();

} // namespace tavrel::tool
