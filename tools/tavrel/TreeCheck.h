#pragma once

#include <string>

namespace tavrel::tool {

/// Checks that the loaded tree can be walked and that each component in it can be one. What a killed process
/// leaves behind is no damage: links to free components, components without an owner.
/// @param max    exclusive upper limit of component ids
/// @param store  where the tree is stored, for the reason
/// @throws Refusal  a component is beneath itself, a link leads beyond the limit or to no component, or a
/// component
///                  has a type or a number that none can have
/// Locks: a write section of the tree.
void checkTree(int max, const std::string& store);

} // namespace tavrel::tool
