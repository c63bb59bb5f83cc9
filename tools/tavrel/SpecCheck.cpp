#include "SpecCheck.h"

#include "InputCheck.h"
#include "Names.h"

#include <qz/tavrel/NameResolver.h>

#include <algorithm>
#include <fstream>

namespace tavrel::tool {

/// One file with those that it includes.
struct SpecCheck::File {
    std::string path;
    qz::util::config::CommaSeparatedValues rows;
    std::vector<std::unique_ptr<File>> includes;
};

/// Where the check stands in a file.
struct SpecCheck::Place {
    const std::string& file;
    int line = 0;
    std::string section;
    std::string subsection;
    bool cutOff = false; ///< a comment with a comma has ended the subsection
    std::set<std::string> seen;
};

namespace {

using Cells = std::vector<std::string>;

bool isBlank(const Cells& cells) {
    return std::all_of(cells.begin(), cells.end(), [](const std::string& cell) { return cell.empty(); });
}

bool isHead(const Cells& cells) {
    return !cells.empty() && !cells[0].empty() && cells[0][0] != '#';
}

const std::vector<std::string> componentSubsections = {"property", "component", "action", "feature"};
const std::vector<std::string> actionSubsections = {"action"};

} // namespace

SpecCheck::SpecCheck(qz::tavrel::NameResolver& resolver) : names(resolver) {}

SpecCheck::~SpecCheck() = default;

void SpecCheck::components(const std::string& path) {
    actionFile = false;
    if (const auto file = load(path, "the component specification")) {
        std::set<std::string> sections;
        collectSections(*file, sections);
        if (sections.empty()) {
            found.push_back(path +
                            ": there is no section: a section is a type name with a blank row before it");
        }
        walk(*file, sections);
    }
}

void SpecCheck::actions(const std::string& path) {
    actionFile = true;
    if (const auto file = load(path, "the action specification")) {
        std::set<std::string> sections;
        collectSections(*file, sections);
        walk(*file, sections);
    }
}

std::unique_ptr<SpecCheck::File> SpecCheck::load(const std::string& path, const std::string& from) {
    if (loading.count(path) != 0) {
        return nullptr;
    }
    std::ifstream stream(path);
    if (!isReadableFile(path) || !stream) {
        const bool relative = path.empty() || path[0] != '/';
        found.push_back(from + " '" + path + "' cannot be read" +
                        (relative ? "; a relative path is taken from the working directory" : ""));
        return nullptr;
    }

    auto file = std::make_unique<File>();
    file->path = path;
    file->rows.load(stream);
    read.push_back(path);
    loading.insert(path);
    for (int row = 0; row < file->rows.size(); ++row) {
        const Cells& cells = file->rows[row];
        if (cells.size() >= 2 && cells[0] == "include") {
            if (auto included = load(cells[1], at(path, row + 1, "the include"))) {
                file->includes.push_back(std::move(included));
            }
        }
    }
    loading.erase(path);
    return file;
}

void SpecCheck::collectSections(File& file, std::set<std::string>& sections) const {
    for (int row = 0; row < file.rows.size(); ++row) {
        const Cells& cells = file.rows[row];
        if (isHead(cells) && cells[0] != "include" && (row == 0 || isBlank(file.rows[row - 1]))) {
            sections.insert(cells[0]);
        }
    }
    for (const auto& included : file.includes) {
        collectSections(*included, sections);
    }
}

void SpecCheck::walk(File& file, const std::set<std::string>& sections) {
    Place place{file.path, 0, "", "", false, {}};
    for (int index = 0; index < file.rows.size(); ++index) {
        const Cells& cells = file.rows[index];
        place.line = index + 1;
        if (isHead(cells)) {
            head(place, cells[0], sections);
            if (place.subsection.empty()) {
                continue; // cells behind the name of a section mean nothing
            }
        }
        row(place, cells);
    }
    // An included file knows the sections of those that it includes itself, and no others.
    for (const auto& included : file.includes) {
        std::set<std::string> own;
        collectSections(*included, own);
        walk(*included, own);
    }
}

void SpecCheck::head(Place& place, const std::string& name, const std::set<std::string>& sections) {
    place.cutOff = false;
    if (sections.count(name) != 0) {
        place.section = name;
        place.subsection.clear();
        section(place, name);
        return;
    }
    place.subsection = name;
    if (name == "include") {
        return;
    }
    const auto& allowed = actionFile ? actionSubsections : componentSubsections;
    if (std::find(allowed.begin(), allowed.end(), name) == allowed.end()) {
        problem(place,
                unknownName("subsection", name, allowed) + "; a new section needs a blank row before it");
    } else if (place.section.empty()) {
        problem(place, "'" + name + "' stands before the first section");
    } else if (!place.seen.insert(place.section + "." + name).second) {
        problem(place, "'" + place.section + "' has '" + name + "' a second time: only the first one counts");
    }
}

void SpecCheck::section(const Place& place, const std::string& name) {
    if (!actionFile) {
        known(place, Types, "type", name);
        return;
    }
    const std::size_t colons = name.find("::");
    if (colons == std::string::npos) {
        problem(place,
                "'" + name + "' is no section: it must be a type, '::' and an action, or '::' and an action");
        return;
    }
    if (colons > 0) {
        known(place, Types, "type", name.substr(0, colons));
    }
    known(place, Actions, "action", name.substr(colons + 2));
}

void SpecCheck::row(Place& place, const Cells& cells) {
    if (cells.size() < 2 || isBlank(cells)) {
        return;
    }
    if (cells[0][0] == '#') {
        place.cutOff = !place.subsection.empty();
        return;
    }
    if (cells[0] == "include") {
        return;
    }
    if (place.subsection.empty()) {
        problem(place, "the row belongs to no subsection");
    } else if (place.subsection == "include") {
        problem(place, "the row stands behind an include and belongs to nothing");
    } else if (place.cutOff) {
        problem(place, "the row is cut off from '" + place.subsection + "' by a comment that holds a comma");
    } else {
        data(place, Cells(cells.begin() + 1, cells.end()));
    }
}

void SpecCheck::data(const Place& place, const Cells& cells) {
    if (actionFile) {
        if (place.subsection == "action" && cells[0].empty()) {
            problem(place, "the row names no class");
        }
    } else if (place.subsection == "property") {
        property(place, cells);
    } else if (place.subsection == "component") {
        component(place, cells);
    } else if (place.subsection == "action") {
        known(place, Actions, "action", cells[0]);
    } else if (place.subsection == "feature") {
        for (const std::string& cell : cells) {
            known(place, Types, "feature", cell);
        }
    }
}

void SpecCheck::property(const Place& place, const Cells& cells) {
    int size = 0;
    if (cells.size() < 3) {
        problem(place, "a property needs a store, a name and a size");
    } else if (cells[0].empty()) {
        problem(place, "the property '" + cells[1] + "' names no store");
    } else if (!parseNumber(cells[2], size) || size < 1) {
        problem(place, "the size of '" + cells[1] + "' is '" + cells[2] + "': it must be a number above 0");
    } else {
        known(place, Properties, "property", cells[1]);
    }
}

void SpecCheck::component(const Place& place, const Cells& cells) {
    int count = 0;
    if (cells.size() < 2) {
        problem(place, "a component needs a type and a count");
    } else if (!parseNumber(cells[1], count) || count < 0 || count > 65535) {
        problem(place,
                "the count of '" + cells[0] + "' is '" + cells[1] + "': it must be a number from 0 to 65535");
    } else {
        known(place, Types, "type", cells[0]);
    }
}

void SpecCheck::known(const Place& place, int dictionary, const std::string& kind, const std::string& name) {
    if (name.empty()) {
        problem(place, "an empty " + kind + " name");
        return;
    }
    if (names.getValue(dictionary, name) != -1) {
        return;
    }
    std::vector<std::string> candidates;
    for (const auto& [candidate, value] : namesOf(names, dictionary)) {
        candidates.push_back(candidate);
    }
    problem(place, unknownName(kind, name, candidates) + " in the names file");
}

void SpecCheck::problem(const Place& place, const std::string& text) {
    found.push_back(at(place.file, place.line, text));
}

} // namespace tavrel::tool
