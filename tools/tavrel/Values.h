#pragma once

#include <string>

/// Values of properties as text. A number stands most significant byte first, as the library stores its own.
namespace tavrel::tool {

/// "0x" and two digits a byte.
std::string toHex(const std::string& bytes);

/// The value as an unsigned number in decimal; empty above 8 bytes and for no bytes.
std::string toInteger(const std::string& bytes);

/// The value as text in double quotes, if it is printable up to trailing zeros and not all zeros; otherwise
/// empty.
std::string toQuoted(const std::string& bytes);

/// Hex, and then what else there is to say: the number, the text.
std::string describe(const std::string& bytes);

/// Bytes from "0x" and hex digits, an even or odd number of them.
/// @throws WrongUsage
std::string fromHex(const std::string& text);

/// The bytes of a property from what a person has typed: a decimal number, "0x" and hex digits, both with
/// zeros put in front; or "text:" and characters, with zeros put behind.
/// @param size  size of the property in bytes
/// @throws WrongUsage  it is none of them
/// @throws Refusal  it does not fit
std::string parseValue(const std::string& text, unsigned int size);

} // namespace tavrel::tool
