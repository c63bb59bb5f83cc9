#pragma once

#include "base/TracePoints.h"

#include <string>
#include <vector>

namespace qz::tavrel {
class Specification;
}

namespace qz::internal {

/// Appends every section of a component specification, in file order, then every type that is only named as a
/// sub-component with a count above 0. A row without a name or such a count is traced at `skipped`.
void appendComponentNames(tavrel::Specification& specification, std::vector<std::string>& names,
                          const TracePoint& skipped);

} // namespace qz::internal
