#pragma once

namespace qz::internal {

/// How many revisions `revision` lies before `reference`. Comes out right across the wrap of the numbers; one
/// that lies ahead counts as the oldest of all.
inline unsigned int revisionAge(int reference, int revision) {
    return static_cast<unsigned int>(reference) - static_cast<unsigned int>(revision);
}

} // namespace qz::internal
