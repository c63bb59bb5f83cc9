#pragma once

#include <string>

namespace qz::internal {

/// Opens a file for writing and empties it; makes it when it is missing. Never inherited by a program that
/// the process starts, and in a folder that really lies beneath "/tmp", where anybody may plant one, no
/// symbolic link is followed.
/// @return the descriptor, which is the caller's to close; -1 with `errno` set on failure
int openEmptied(const std::string& path);

/// Replaces what a file holds by `text`. @return false when not all of it could be written
[[nodiscard]] bool writeFile(const std::string& path, const std::string& text);

/// Takes the whole of a file into `text`. @return false, with `text` as it was, when it cannot be read
[[nodiscard]] bool readFile(const std::string& path, std::string& text);

} // namespace qz::internal
