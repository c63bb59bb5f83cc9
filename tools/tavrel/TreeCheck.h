#pragma once

namespace tavrel::tool {

/// Checks that the links of the loaded tree can be walked. What a killed process leaves behind is no damage:
/// links to free components, components without an owner.
/// @param max  exclusive upper limit of component ids
/// @throws Refusal  a component is beneath itself, or a link leads beyond the limit
/// Locks: a write section of the tree.
void checkTree(int max);

} // namespace tavrel::tool
