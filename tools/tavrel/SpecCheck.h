#pragma once

#include "ClassLibrary.h"
#include "Stores.h"

#include <qz/util/config/CommaSeparatedValues.h>

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <utility>
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
    SpecCheck(qz::tavrel::NameResolver& resolver, Stores stores);
    ~SpecCheck();
    SpecCheck(const SpecCheck&) = delete;
    SpecCheck& operator=(const SpecCheck&) = delete;

    /// Checks a component specification and what it includes.
    /// @param from  what the file is and who names it, for the reason
    void components(const std::string& path, const std::string& from);

    /// Checks an action specification and what it includes.
    /// @param classes  has to know the class of each row, if it is loaded
    void actions(const std::string& path, const std::string& from, const ClassLibrary& classes);

    /// The first thing that is wrong, with file and line, in the order of the files; empty if nothing is.
    const std::string& firstProblem() const { return first; }

    /// How many things are wrong.
    int problemCount() const { return count; }

    /// What is suspect and may be meant, with file and line.
    const std::vector<std::string>& notes() const { return noted; }

    /// Stores of the properties.
    const std::set<std::string>& usedStores() const { return used; }

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
    void classNames(const ClassLibrary& classes);
    void note(const Place& place, const std::string& text);

    /// Counts a problem; its text is made only for the first one, since to find the nearest name takes long.
    void problem(const Place& place, const std::function<std::string()>& text);
    void problem(const Place& place, const std::string& text);

    qz::tavrel::NameResolver& names;
    bool actionFile = false;
    std::set<std::string> loading;
    std::vector<std::string> read;
    std::string first;
    int count = 0;
    std::vector<std::string> noted;
    Stores stores;
    std::set<std::string> used;
    std::set<std::string> types; ///< that have a section, or were noted as having none
    std::vector<std::pair<std::string, std::string>>
        rowClasses; ///< action classes, each with its "FILE:LINE: "
};

} // namespace tavrel::tool
