#pragma once

#include <string>
#include <vector>

namespace tavrel::tool {

/// The file in which the built-in database keeps a store.
std::string storePath(const std::string& store);

/// What is known of the stores of a machine before it starts.
struct Stores {
    bool builtIn = false;  ///< they are those of the built-in database
    std::string byDefault; ///< name of the store that holds the tree

    /// Names of the stores that have a file of their own; every other name shares the default one's.
    std::vector<std::string> names() const { return {byDefault, "SETUP", "FRU"}; }

    /// Largest size of a property, in bytes: the whole store, and never more than 1 MiB.
    unsigned int limitOf(const std::string& store) const;

    /// What is to be said of a store's name; empty for a name that is known, and for stores of the client's
    /// own.
    std::string doubtAbout(const std::string& store) const;
};

} // namespace tavrel::tool
