#include "Text.h"

#include <cstdio>

namespace tavrel::tool {

namespace {

constexpr std::size_t shownBytes = 100;

bool isControl(unsigned char byte) {
    return byte < 0x20 || byte == 0x7F;
}

/// True for a byte in the middle of a character.
bool isContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

} // namespace

std::string oneLine(const std::string& text) {
    std::string line;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (isControl(byte)) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\x%02X", static_cast<unsigned int>(byte));
            line += escaped;
        } else {
            line += character;
        }
    }
    return line;
}

std::string shown(const std::string& text) {
    if (text.size() <= shownBytes) {
        return oneLine(text);
    }
    std::size_t length = shownBytes;
    while (length > 0 && isContinuation(text[length])) {
        --length;
    }
    return oneLine(text.substr(0, length)) + "...";
}

} // namespace tavrel::tool
