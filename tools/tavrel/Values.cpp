#include "Values.h"

#include "Refusal.h"
#include "Text.h"

#include <algorithm>
#include <charconv>
#include <cstdint>

namespace tavrel::tool {

namespace {

constexpr char digits[] = "0123456789abcdef";
constexpr std::size_t integerLimit = 8;

bool isZero(char byte) {
    return byte == '\0';
}

std::string fit(const std::string& bytes, unsigned int size, const std::string& text) {
    const auto first = std::find_if_not(bytes.begin(), bytes.end(), isZero);
    const auto needed = static_cast<std::size_t>(bytes.end() - first);
    if (needed > size) {
        throw Refusal("the value " + shown(text) + " does not fit into " + std::to_string(size) +
                      (size == 1 ? " byte" : " bytes"));
    }
    return std::string(size - needed, '\0') + std::string(first, bytes.end());
}

std::string negative(std::int64_t number, unsigned int size, const std::string& text) {
    std::string bytes(size, '\xFF');
    auto rest = static_cast<std::uint64_t>(number);
    for (std::size_t i = 0; i < std::min<std::size_t>(size, integerLimit); ++i) {
        bytes[size - 1 - i] = static_cast<char>(rest & 0xFF);
        rest >>= 8;
    }
    const bool fits = size >= integerLimit || (size > 0 && number >= -(std::int64_t{1} << (8 * size - 1)));
    if (!fits) {
        throw Refusal("the value " + shown(text) + " does not fit into " + std::to_string(size) +
                      (size == 1 ? " byte" : " bytes"));
    }
    return bytes;
}

template <typename Number>
bool parse(const std::string& text, Number& number) {
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end;
}

/// True for a number of any size.
bool isDecimal(const std::string& text) {
    const std::size_t first = text.rfind('-', 0) == 0 ? 1 : 0;
    return text.size() > first && text.find_first_not_of("0123456789", first) == std::string::npos;
}

} // namespace

std::string toHex(const std::string& bytes) {
    std::string text = "0x";
    for (const char byte : bytes) {
        text += digits[static_cast<unsigned char>(byte) >> 4];
        text += digits[static_cast<unsigned char>(byte) & 0xF];
    }
    return text;
}

std::string toInteger(const std::string& bytes) {
    if (bytes.empty() || bytes.size() > integerLimit) {
        return "";
    }
    std::uint64_t number = 0;
    for (const char byte : bytes) {
        number = number << 8 | static_cast<unsigned char>(byte);
    }
    return std::to_string(number);
}

std::string toQuoted(const std::string& bytes) {
    const std::string text = bytes.substr(0, bytes.find_last_not_of('\0') + 1);
    const bool printable = std::all_of(text.begin(), text.end(),
                                       [](char byte) { return byte >= ' ' && byte <= '~' && byte != '"'; });
    return text.empty() || !printable ? std::string() : '"' + text + '"';
}

std::string describe(const std::string& bytes) {
    std::string text = toHex(bytes);
    for (const std::string& form :
         {toInteger(bytes), bytes.size() > integerLimit ? toQuoted(bytes) : std::string()}) {
        text += form.empty() ? "" : " " + form;
    }
    return text;
}

std::string fromHex(const std::string& text) {
    const bool prefixed = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    std::string nibbles = prefixed ? text.substr(2) : std::string();
    if (nibbles.empty() || nibbles.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        throw WrongUsage("'" + shown(text) + "' is not hexadecimal: it must be 0x and digits");
    }
    if (nibbles.size() % 2 != 0) {
        nibbles.insert(0, "0");
    }
    std::string bytes;
    for (std::size_t i = 0; i < nibbles.size(); i += 2) {
        unsigned char byte = 0;
        std::from_chars(nibbles.data() + i, nibbles.data() + i + 2, byte, 16);
        bytes += static_cast<char>(byte);
    }
    return bytes;
}

std::string parseValue(const std::string& text, unsigned int size) {
    if (text.rfind("text:", 0) == 0) {
        std::string bytes = text.substr(5);
        if (bytes.size() > size) {
            throw Refusal("the text of " + std::to_string(bytes.size()) + " characters does not fit into " +
                          std::to_string(size) + (size == 1 ? " byte" : " bytes"));
        }
        bytes.resize(size);
        return bytes;
    }
    if (text.rfind("0x", 0) == 0 || text.rfind("0X", 0) == 0) {
        return fit(fromHex(text), size, text);
    }
    std::int64_t below = 0;
    if (parse(text, below) && below < 0) {
        return negative(below, size, text);
    }
    std::uint64_t number = 0;
    if (!parse(text, number) && isDecimal(text)) {
        const std::string room = std::to_string(std::min<std::size_t>(size, integerLimit));
        throw Refusal("the value " + shown(text) + " does not fit into " + room +
                      (room == "1" ? " byte" : " bytes"));
    }
    if (!parse(text, number)) {
        throw WrongUsage("'" + shown(text) +
                         "' is no value: it must be a number, 0x and hex digits, or text: and characters");
    }
    std::string bytes(integerLimit, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(number >> 56);
        number <<= 8;
    }
    return fit(bytes, size, text);
}

} // namespace tavrel::tool
