#pragma once

#include <fstream>
#include <iterator>
#include <string>

namespace tavrel::test {

/// Makes a file of this content, or replaces what it holds.
inline void makeFile(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

/// All bytes of a file; none when it cannot be read.
inline std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace tavrel::test
