#pragma once

#include "Snapshot.h"

#include <ostream>

namespace tavrel::tool {

/// Prints a subtree as one JSON object: "path", "type", "typeNumber", "number", "id", "revision", "features",
/// "children" (objects of the same kind), "shared" (paths) and, if asked for, "properties" ("name", "key",
/// "size", "store", "hex", and "integer" up to 8 bytes).
void printJson(std::ostream& out, const ComponentState& top, bool withProperties);

/// Prints a subtree as a Graphviz graph: owned children with solid lines, shared ones with dashed lines.
void printDot(std::ostream& out, const ComponentState& top);

} // namespace tavrel::tool
