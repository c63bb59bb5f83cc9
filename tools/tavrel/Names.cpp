#include "Names.h"

#include "Refusal.h"
#include "Text.h"

#include <qz/tavrel/NameResolver.h>

#include <algorithm>
#include <cctype>
#include <sstream>

namespace tavrel::tool {

namespace {

/// Nobody has mistyped a longer name, and to look for the nearest takes its length for each known one.
constexpr std::size_t nameLimit = 100;

/// What a change of one character counts.
constexpr std::size_t oneChange = 2;

char lower(char character) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
}

/// Twice the number of insertions, deletions and replacements; a replacement by the other case counts one.
std::size_t distance(const std::string& from, const std::string& to) {
    std::vector<std::size_t> row(to.size() + 1);
    for (std::size_t column = 0; column <= to.size(); ++column) {
        row[column] = 2 * column;
    }
    for (std::size_t line = 1; line <= from.size(); ++line) {
        std::size_t diagonal = row[0];
        row[0] = 2 * line;
        for (std::size_t column = 1; column <= to.size(); ++column) {
            const char a = from[line - 1];
            const char b = to[column - 1];
            const std::size_t replaced = diagonal + (a == b ? 0 : lower(a) == lower(b) ? 1 : 2);
            diagonal = row[column];
            row[column] = std::min({row[column] + 2, row[column - 1] + 2, replaced});
        }
    }
    return row.back();
}

/// True for a name that somebody has begun and not ended, case aside.
bool isStartOf(const std::string& name, const std::string& whole) {
    return name.size() > 1 && name.size() < whole.size() &&
           std::equal(name.begin(), name.end(), whole.begin(),
                      [](char one, char other) { return lower(one) == lower(other); });
}

std::size_t commonStart(const std::string& one, const std::string& other) {
    std::size_t length = 0;
    while (length < one.size() && length < other.size() && one[length] == other[length]) {
        ++length;
    }
    return length;
}

} // namespace

NamedValues namesOf(qz::tavrel::NameResolver& resolver, int dictionary) {
    std::stringstream text;
    resolver.write(text);

    NamedValues names;
    int dictionaries = 0;
    text >> dictionaries;
    for (int i = 0; i < dictionaries; ++i) {
        int number = 0;
        int count = 0;
        text >> number >> count;
        for (int entry = 0; entry < count; ++entry) {
            std::string name;
            int value = 0;
            text >> name >> value;
            if (number == dictionary) {
                names.emplace_back(name, value);
            }
        }
    }
    return names;
}

std::string nearestName(const std::string& name, const std::vector<std::string>& known) {
    if (name.size() > nameLimit) {
        return "";
    }
    const auto nearest =
        std::min_element(known.begin(), known.end(), [&](const auto& left, const auto& right) {
            const std::size_t toLeft = isStartOf(name, left) ? oneChange : distance(name, left);
            const std::size_t toRight = isStartOf(name, right) ? oneChange : distance(name, right);
            return toLeft != toRight ? toLeft < toRight : commonStart(name, left) > commonStart(name, right);
        });
    return nearest == known.end() ? std::string() : *nearest;
}

std::string unknownName(const std::string& kind, const std::string& name,
                        const std::vector<std::string>& known) {
    const std::string nearest = nearestName(name, known);
    return "unknown " + kind + " '" + shown(name) + "'" +
           (nearest.empty() ? std::string() : "; the nearest known name is '" + nearest + "'");
}

int valueOf(qz::tavrel::NameResolver& resolver, int dictionary, const std::string& kind,
            const std::string& name, const std::vector<std::string>& known) {
    if (std::find(known.begin(), known.end(), name) == known.end()) {
        throw Refusal(unknownName(kind, name, known));
    }
    return resolver.getValue(dictionary, name);
}

} // namespace tavrel::tool
