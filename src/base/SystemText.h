#pragma once

#include <cstddef>

namespace qz::internal {

/// The system's text for an error number, without an allocation; safe in any thread.
class SystemText {
public:
    explicit SystemText(int errnum);
    const char* text() const { return found; }

private:
    char buffer[256];
    const char* found;
};

} // namespace qz::internal
