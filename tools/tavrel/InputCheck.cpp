#include "InputCheck.h"

#include "Names.h"
#include "Paths.h"
#include "Refusal.h"
#include "Text.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>

namespace tavrel::tool {

namespace {

/// The words of a file with their lines.
class Words {
public:
    explicit Words(const std::string& path) : file(path), stream(path) {
        if (!isReadableFile(file) || !stream) {
            throw Refusal("the names file '" + file + "' cannot be read");
        }
    }

    /// @return false at the end of the file
    bool next(std::string& word) {
        while (!(cells >> word)) {
            std::string text;
            if (!std::getline(stream, text)) {
                return false;
            }
            ++line;
            cells.clear();
            cells.str(text);
        }
        return true;
    }

    std::string word(const std::string& wanted) {
        std::string found;
        if (!next(found)) {
            fail("the file ends where " + wanted + " is expected");
        }
        return found;
    }

    int number(const std::string& wanted) {
        const std::string found = word(wanted);
        int value = 0;
        if (!parseNumber(found, value)) {
            fail("'" + shown(found) + "' stands where " + wanted + " is expected");
        }
        return value;
    }

    [[noreturn]] void fail(const std::string& text) const {
        throw Refusal(at(file, std::max(line, 1), text));
    }

private:
    std::string file;
    std::ifstream stream;
    std::istringstream cells;
    int line = 0;
};

void checkEntry(const Words& words, int dictionary, const std::string& name, int value) {
    if (dictionary == Types && name.find_first_of("/#") != std::string::npos) {
        words.fail("the name '" + shown(name) + "' cannot stand in a path: it holds '/' or '#'");
    }
    if (dictionary == Types && value < 1 && name != "NullComponent") {
        words.fail("the type '" + shown(name) + "' needs a number above 0");
    }
    if (dictionary == Properties && value < 1) {
        words.fail("the property '" + shown(name) + "' needs a number above 0");
    }
    if (value < 0) {
        words.fail("'" + shown(name) + "' has a negative number");
    }
}

/// Keys of a properties file: those that a `Builder` takes, and the one that this tool takes.
const std::vector<std::string> knownKeys = {
    "tavrel.compo.ver",  "tavrel.compo.max",     "tavrel.compo.shared",   "tavrel.compo.type",
    "tavrel.spec.compo", "tavrel.spec.action",   "tavrel.spec.res",       "tavrel.res.type",
    "tavrel.res.name",   "tavrel.lock.provider", "tavrel.lock.recursive", "tavrel.initializer",
    "tavrel.history",    "tavrel.resolver"};

std::string trimmed(const std::string& text) {
    const char* blanks = " \t\r\v\f";
    const std::size_t first = text.find_first_not_of(blanks);
    return first == std::string::npos ? std::string()
                                      : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

void checkValue(const std::string& file, int line, const std::string& key, const std::string& value) {
    int number = 0;
    if (key == "tavrel.compo.max" && !value.empty() && (!parseNumber(value, number) || number < 1)) {
        throw Refusal(
            at(file, line, "tavrel.compo.max is '" + shown(value) + "': it must be a number above 0"));
    }
    if (key == "tavrel.compo.ver" && value.size() > 15) {
        throw Refusal(at(file, line,
                         "the version '" + shown(value) + "' is too long: at most 15 characters are stored"));
    }
    const bool onOff = key == "tavrel.compo.shared" || key == "tavrel.initializer";
    if (onOff && !value.empty() && value != "enable" && value != "disable") {
        throw Refusal(at(file, line, key + " is '" + shown(value) + "': it must be 'enable' or 'disable'"));
    }
}

/// Calls `use` with line, key and value of each property of a file.
void forEachProperty(const std::string& path, const std::string& what,
                     const std::function<void(int, const std::string&, const std::string&)>& use) {
    std::ifstream stream(path);
    if (!isReadableFile(path) || !stream) {
        throw Refusal(what + " '" + path + "' cannot be read");
    }
    int line = 0;
    for (std::string text; std::getline(stream, text);) {
        ++line;
        const std::string content = trimmed(text);
        if (content.empty() || content[0] == '#' || content[0] == '!') {
            continue;
        }
        const std::size_t sign = content.find('=');
        if (sign == std::string::npos || sign == 0) {
            throw Refusal(at(path, line, "'" + shown(content) + "' has no key with a '=' behind it"));
        }
        use(line, trimmed(content.substr(0, sign)), trimmed(content.substr(sign + 1)));
    }
}

} // namespace

std::string at(const std::string& file, int line, const std::string& text) {
    return file + ":" + std::to_string(line) + ": " + text;
}

bool parseNumber(const std::string& text, int& number) {
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end;
}

bool isReadableFile(const std::string& path) {
    std::error_code error;
    return !std::filesystem::is_directory(path, error) && std::ifstream(path).good();
}

void checkNames(const std::string& path) {
    Words words(path);
    const int dictionaries = words.number("the number of dictionaries");
    std::map<int, std::map<std::string, int>> values;
    std::map<int, std::map<int, std::string>> owners;
    for (int i = 0; i < dictionaries; ++i) {
        const int dictionary = words.number("the number of a dictionary");
        const int count = words.number("the count of names of dictionary " + std::to_string(dictionary));
        for (int entry = 0; entry < count; ++entry) {
            const std::string name = words.word("a name of dictionary " + std::to_string(dictionary));
            const int value = words.number("the number of '" + shown(name) + "'");
            checkEntry(words, dictionary, name, value);
            const auto [earlier, fresh] = values[dictionary].emplace(name, value);
            if (!fresh) {
                words.fail("'" + shown(name) + "' stands twice, with " + std::to_string(earlier->second) +
                           " and " + std::to_string(value));
            }
            // What a client keeps in further dictionaries is its own affair.
            const auto [owner, unused] = owners[dictionary].emplace(value, name);
            if (!unused && dictionary <= Properties) {
                words.fail("'" + shown(name) + "' has the number " + std::to_string(value) +
                           ", which is that of '" + shown(owner->second) + "'");
            }
        }
    }
    std::string word;
    if (words.next(word)) {
        words.fail("'" + shown(word) + "' stands behind the last name: one of the counts is too small");
    }
}

std::string Configuration::at(const std::string& key, const std::string& text) const {
    const auto line = lines.find(key);
    return line == lines.end() ? path + ": " + text : tool::at(path, line->second, text);
}

Configuration checkConfiguration(const std::string& path, std::vector<std::string>& notes) {
    Configuration configuration;
    configuration.path = path;
    forEachProperty(
        path, "the properties file", [&](int line, const std::string& key, const std::string& value) {
            checkValue(path, line, key, value);
            configuration.lines[key] = line;
            if (std::find(knownKeys.begin(), knownKeys.end(), key) == knownKeys.end()) {
                notes.push_back(
                    at(path, line, unknownName("key", key, knownKeys) + ": the line has no effect"));
            }
        });

    configuration.properties.load(path);
    return configuration;
}

void checkRedirections(const std::string& path, const std::string& what, qz::tavrel::NameResolver& names,
                       const Stores& stores, const std::set<std::string>& used,
                       std::vector<std::string>& notes) {
    std::vector<std::string> types;
    for (const auto& [name, value] : namesOf(names, Types)) {
        types.push_back(name);
    }
    forEachProperty(path, what, [&](int line, const std::string& key, const std::string& value) {
        const std::size_t dot = key.rfind('.');
        if (dot == std::string::npos || dot + 1 == key.size() || value.empty()) {
            throw Refusal(
                at(path, line,
                   "'" + shown(key) + "' is no redirection: it must be a path, '.', a store, '=', a store"));
        }
        try {
            for (const Step& step : parseSteps(key.substr(0, dot))) {
                valueOf(names, Types, "type", step.type, types);
            }
        } catch (const std::runtime_error& reason) {
            throw Refusal(at(path, line, reason.what()));
        }
        const std::string from = key.substr(dot + 1);
        if (used.count(from) == 0) {
            const std::vector<std::string> known(used.begin(), used.end());
            notes.push_back(at(path, line,
                               unknownName("store", from, known) +
                                   ": no property is in it, so that the line has no effect"));
        }
        const std::string doubt = stores.doubtAbout(value);
        if (!doubt.empty()) {
            notes.push_back(at(path, line, doubt));
        }
    });
}

} // namespace tavrel::tool
