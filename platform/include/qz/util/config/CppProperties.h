/// @file
/// Sets of key and value pairs, as properties files hold them.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace qz::util::config {

/// One set of properties. A plain value: copied with all it holds.
///
/// The file has one `key = value` a line. White space around key and value is dropped; the first `=` splits;
/// `#` or `!` opens a comment where it is the first character of a line that is no blank; CR LF is taken as a
/// line end. A line without `=` or with an empty key is ignored. A later line of a key replaces its value.
/// Threads: as a standard container.
class CppProperties {
public:
    /// Makes an empty set.
    /// @param inFileOrder  true: `getKeys` lists keys in the order of first entry; false: in alphabetical
    /// order
    explicit CppProperties(bool inFileOrder = false);

    /// Adds what the file holds to the set. A file that cannot be read leaves the set as it was.
    void load(const std::string& path);

    /// The value of `key`, or an empty string when it is unknown.
    std::string getProperty(const std::string& key) const;

    /// Sets or replaces a value. A replaced key keeps its place, a new one goes to the end.
    void setProperty(const std::string& key, const std::string& value);

    /// Appends all keys to `keys`, which is not cleared first.
    void getKeys(std::vector<std::string>& keys) const;

    /// Removes all keys.
    void clear();

private:
    bool fileOrder;
    std::map<std::string, std::string> values;
    std::vector<std::string> order;
};

} // namespace qz::util::config
