#pragma once

#include <algorithm>
#include <string_view>

namespace qz::platform {

constexpr std::string_view whiteSpace = " \t\r\n\v\f";

/// `text` without white space at its end.
inline std::string_view trimmedEnd(std::string_view text) {
    return text.substr(0, text.find_last_not_of(whiteSpace) + 1);
}

/// `text` without white space at its start.
inline std::string_view trimmedStart(std::string_view text) {
    return text.substr(std::min(text.find_first_not_of(whiteSpace), text.size()));
}

/// `text` without white space at its ends.
inline std::string_view trimmed(std::string_view text) {
    return trimmedEnd(trimmedStart(text));
}

} // namespace qz::platform
