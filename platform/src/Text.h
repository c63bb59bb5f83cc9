#pragma once

#include <string>

namespace qz::util::config {

/// The text without the white space at both ends.
inline std::string trimmed(const std::string& text) {
    constexpr const char* whiteSpace = " \t\r\n\v\f";
    const std::size_t first = text.find_first_not_of(whiteSpace);
    if (first == std::string::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(whiteSpace) - first + 1);
}

} // namespace qz::util::config
