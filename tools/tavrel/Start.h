#pragma once

#include "ClassLibrary.h"
#include "Stores.h"

#include <qz/util/config/CppProperties.h>

#include <map>
#include <set>
#include <string>
#include <vector>

namespace tavrel::tool {

/// What a process starts from, as the person names it.
struct StartFiles {
    std::string config; ///< properties file
    std::string names;  ///< names file; empty: the one that the properties file names under "tavrel.resolver"
    std::string classes; ///< shared library with the client's classes; may be empty
};

/// The same, looked through.
struct StartInput {
    std::string config; ///< absolute, without links: the specification cache is named after it
    std::string names;
    qz::util::config::CppProperties properties{false};
    std::string components;           ///< path of the component specification
    std::vector<std::string> sources; ///< all files that the specification cache is made from
    int max = 0;                      ///< exclusive upper limit of component ids
    Stores stores;
    std::set<std::string> usedStores; ///< of the properties, and that of the tree
    ClassLibrary classes;
    std::map<std::string, std::string> services; ///< classes that are no actions, see `ToolFactory`
};

/// Checks all input of a start, the stored databases included. Changes nothing.
/// @param notes  receives lines about input that has no effect
/// @throws WrongUsage  a file was not named
/// @throws Refusal  with file and line where one applies
StartInput checkStart(const StartFiles& files, std::vector<std::string>& notes);

} // namespace tavrel::tool
