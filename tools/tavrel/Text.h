#pragma once

#include <string>

namespace tavrel::tool {

/// What was typed, or stands in a file, in a form that a line of a terminal can hold: control bytes as
/// "\xNN", and cut behind 100 bytes.
std::string shown(const std::string& text);

/// A text with its control bytes as "\xNN": one line, whatever it holds.
std::string oneLine(const std::string& text);

} // namespace tavrel::tool
