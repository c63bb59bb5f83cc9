#pragma once

#include <qz/util/config/CppProperties.h>

#include <string>
#include <vector>

namespace qz::tavrel {
class NameResolver;
}

namespace tavrel::tool {

/// The library takes configuration files as they come and passes over what it cannot use. The tool looks
/// first, so that a person hears what is wrong and where.

/// "FILE:LINE: TEXT".
std::string at(const std::string& file, int line, const std::string& text);

/// The number that a text is, blanks excluded. @return false if it is none, or none that 32 bits can hold
bool parseNumber(const std::string& text, int& number);

/// True if `path` is a file, not a folder, and can be read.
bool isReadableFile(const std::string& path);

/// Checks a names file in the text form of `NameResolver`.
/// @throws Refusal  with file and line
void checkNames(const std::string& path);

/// Checks a properties file of a `Builder` and reads it.
/// @param notes  receives a line for each key that has no effect
/// @throws Refusal  with file and line
qz::util::config::CppProperties checkConfiguration(const std::string& path, std::vector<std::string>& notes);

/// Checks a resource specification: the shape of each line, and the types of its path.
/// @throws Refusal  with file and line
void checkRedirections(const std::string& path, qz::tavrel::NameResolver& names);

/// Checks the files of the built-in database before anyone opens them: a damaged record hides what stands
/// behind it, and a process that does not find its tree builds a new one. The files stay as they are. Locks:
/// the lock of each file.
/// @param notes  receives a line for each file that is there and holds nothing, as after an erase of its disk
/// @throws Refusal  one of them is damaged or cannot be used
void checkStores(std::vector<std::string>& notes);

/// The file in which the built-in database keeps a store.
std::string storePath(const std::string& store);

} // namespace tavrel::tool
