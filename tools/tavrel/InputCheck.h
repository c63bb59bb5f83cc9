#pragma once

#include "Stores.h"

#include <qz/util/config/CppProperties.h>

#include <map>
#include <set>
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

/// A properties file of a `Builder`.
struct Configuration {
    std::string path;
    qz::util::config::CppProperties properties{false};
    std::map<std::string, int> lines; ///< where each key stands; of several the last, which counts

    /// "PATH:LINE: TEXT", with the line of a key.
    std::string at(const std::string& key, const std::string& text) const;
};

/// Checks a properties file of a `Builder` and reads it.
/// @param notes  receives a line for each key that has no effect
/// @throws Refusal  with file and line
Configuration checkConfiguration(const std::string& path, std::vector<std::string>& notes);

/// Checks a resource specification: the shape of each line, the types of its path, and its stores.
/// @param what    what the file is and who names it, for the reason
/// @param used    stores of the properties; a line for any other one has no effect
/// @param notes   receives a line for each name of a store that is in doubt
/// @throws Refusal  with file and line
void checkRedirections(const std::string& path, const std::string& what, qz::tavrel::NameResolver& names,
                       const Stores& stores, const std::set<std::string>& used,
                       std::vector<std::string>& notes);

/// Checks the files of the built-in database before anyone opens them: a damaged record hides what stands
/// behind it, and a process that does not find its tree builds a new one. The files stay as they are. Locks:
/// the lock of each file.
/// @param used   names of the stores that are needed; where a file is missing it must be possible to make it
/// @param notes  receives a line for each file that is there and holds nothing, as after an erase of its disk
/// @throws Refusal  one of them is damaged or cannot be used
void checkStores(const std::set<std::string>& used, std::vector<std::string>& notes);

} // namespace tavrel::tool
