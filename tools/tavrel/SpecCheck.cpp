#include "SpecCheck.h"

#include "InputCheck.h"
#include "Names.h"
#include "Text.h"

#include <qz/tavrel/NameResolver.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <utility>

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

SpecCheck::SpecCheck(qz::tavrel::NameResolver& resolver, Stores itsStores)
    : names(resolver), stores(std::move(itsStores)) {}

SpecCheck::~SpecCheck() = default;

void SpecCheck::components(const std::string& path, const std::string& from) {
    actionFile = false;
    if (const auto file = load(path, from)) {
        std::set<std::string> sections;
        collectSections(*file, sections);
        if (sections.empty() && count++ == 0) {
            first = path + ": there is no section: a section is a type name with a blank row before it";
        }
        types = sections;
        walk(*file, sections);
    }
}

void SpecCheck::actions(const std::string& path, const std::string& from, const ClassLibrary& classes) {
    actionFile = true;
    if (const auto file = load(path, from)) {
        std::set<std::string> sections;
        collectSections(*file, sections);
        walk(*file, sections);
        if (classes.isLoaded()) {
            classNames(classes);
        }
    }
}

// The library cannot list its classes, so the nearest name is one that another row has.
void SpecCheck::classNames(const ClassLibrary& classes) {
    std::map<std::string, bool> made;
    std::vector<std::string> good;
    for (const auto& [name, place] : rowClasses) {
        const auto [entry, isNew] = made.emplace(name, false);
        if (isNew && classes.hasAction(name)) {
            entry->second = true;
            good.push_back(name);
        }
    }
    for (const auto& [name, place] : rowClasses) {
        if (!made[name] && count++ == 0) {
            first = place + unknownName("action class", name, good) + " in the library of --classes";
        }
    }
}

std::unique_ptr<SpecCheck::File> SpecCheck::load(const std::string& path, const std::string& from) {
    if (loading.count(path) != 0) {
        noted.push_back(from + " '" + shown(path) + "' leads in a circle: the file is read once");
        return nullptr;
    }
    std::ifstream stream(path);
    if (!isReadableFile(path) || !stream) {
        const bool relative = path.empty() || path[0] != '/';
        if (count++ == 0) {
            first = from + " '" + path + "' cannot be read" +
                    (relative ? "; a relative path is taken from the working directory" : "");
        }
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
        problem(place, [&] {
            return unknownName("subsection", name, allowed) + "; a new section needs a blank row before it";
        });
    } else if (place.section.empty()) {
        problem(place, "'" + shown(name) + "' stands before the first section");
    } else if (!place.seen.insert(place.section + "." + name).second) {
        problem(place, "'" + shown(place.section) + "' has '" + shown(name) +
                           "' a second time: only the first one counts");
    }
}

void SpecCheck::section(const Place& place, const std::string& name) {
    if (!actionFile) {
        known(place, Types, "type", name);
        return;
    }
    const std::size_t colons = name.find("::");
    if (colons == std::string::npos) {
        problem(place, "'" + shown(name) +
                           "' is no section: it must be a type, '::' and an action, or '::' and an action");
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
        problem(place,
                "the row is cut off from '" + shown(place.subsection) + "' by a comment that holds a comma");
    } else {
        data(place, Cells(cells.begin() + 1, cells.end()));
    }
}

void SpecCheck::data(const Place& place, const Cells& cells) {
    if (actionFile) {
        if (place.subsection == "action" && cells[0].empty()) {
            problem(place, "the row names no class");
        } else if (place.subsection == "action") {
            rowClasses.emplace_back(cells[0], at(place.file, place.line, ""));
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
        problem(place, "the property '" + shown(cells[1]) + "' names no store");
    } else if (!parseNumber(cells[2], size) || size < 1) {
        problem(place, "the size of '" + shown(cells[1]) + "' is '" + shown(cells[2]) +
                           "': it must be a number above 0");
    } else if (static_cast<unsigned int>(size) > stores.limitOf(cells[0])) {
        problem(place, "the size of '" + shown(cells[1]) + "' is " + std::to_string(size) + ": at most " +
                           std::to_string(stores.limitOf(cells[0])) + " bytes can be stored in '" +
                           shown(cells[0]) + "'");
    } else {
        known(place, Properties, "property", cells[1]);
        if (used.insert(cells[0]).second) {
            note(place, stores.doubtAbout(cells[0]));
        }
    }
}

void SpecCheck::component(const Place& place, const Cells& cells) {
    int number = 0;
    if (cells.size() < 2) {
        problem(place, "a component needs a type and a count");
    } else if (!parseNumber(cells[1], number) || number < 0 || number > 65535) {
        problem(place, "the count of '" + shown(cells[0]) + "' is '" + shown(cells[1]) +
                           "': it must be a number from 0 to 65535");
    } else {
        known(place, Types, "type", cells[0]);
        if (number > 0 && types.insert(cells[0]).second) {
            note(place,
                 "the type '" + shown(cells[0]) + "' has no section: it has neither properties nor actions");
        }
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
    problem(place, [&] {
        std::vector<std::string> candidates;
        for (const auto& [candidate, value] : namesOf(names, dictionary)) {
            candidates.push_back(candidate);
        }
        return unknownName(kind, name, candidates) + " in the names file";
    });
}

void SpecCheck::note(const Place& place, const std::string& text) {
    if (!text.empty()) {
        noted.push_back(at(place.file, place.line, text));
    }
}

void SpecCheck::problem(const Place& place, const std::function<std::string()>& text) {
    if (count++ == 0) {
        first = at(place.file, place.line, text());
    }
}

void SpecCheck::problem(const Place& place, const std::string& text) {
    problem(place, [&] { return text; });
}

} // namespace tavrel::tool
