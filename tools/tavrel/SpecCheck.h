#pragma once

#include <qz/util/config/CommaSeparatedValues.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

namespace qz::tavrel {
class NameResolver;
}

namespace tavrel::tool {

/// Finds what a `Specification` passes over without a word: names that nobody knows, rows that lack a cell,
/// rows that belong to nothing. It reads the files by the same rules.
class SpecCheck {
public:
    /// @param resolver  looked up, never added to; outlives this object
    explicit SpecCheck(qz::tavrel::NameResolver& resolver);
    ~SpecCheck();
    SpecCheck(const SpecCheck&) = delete;
    SpecCheck& operator=(const SpecCheck&) = delete;

    /// Checks a component specification and what it includes.
    void components(const std::string& path);

    /// Checks an action specification and what it includes.
    void actions(const std::string& path);

    /// What is wrong, each with file and line, in the order of the files.
    const std::vector<std::string>& problems() const { return found; }

    /// All files that were read.
    const std::vector<std::string>& files() const { return read; }

private:
    struct File;
    struct Place;

    std::unique_ptr<File> load(const std::string& path, const std::string& from);
    void collectSections(File& file, std::set<std::string>& sections) const;
    void walk(File& file, const std::set<std::string>& sections);
    void row(Place& place, const std::vector<std::string>& cells);
    void head(Place& place, const std::string& name, const std::set<std::string>& sections);
    void section(const Place& place, const std::string& name);
    void data(const Place& place, const std::vector<std::string>& cells);
    void property(const Place& place, const std::vector<std::string>& cells);
    void component(const Place& place, const std::vector<std::string>& cells);
    void known(const Place& place, int dictionary, const std::string& kind, const std::string& name);
    void problem(const Place& place, const std::string& text);

    qz::tavrel::NameResolver& names;
    bool actionFile = false;
    std::set<std::string> loading;
    std::vector<std::string> read;
    std::vector<std::string> found;
};

} // namespace tavrel::tool
