#include "Text.h"

#include <qz/util/config/CommaSeparatedValues.h>

#include <string_view>

namespace qz::util::config {

namespace {

constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

/// Takes one cell, up to the next comma or to the end, off the front of `line`.
std::string takePlainCell(std::string_view& line) {
    const std::string_view cell = line.substr(0, line.find(','));
    line.remove_prefix(cell.size());
    return std::string(platform::trimmed(cell));
}

/// Takes one cell that begins with a double quote. What stands between the quotes is taken as it is; what
/// follows them up to the comma counts as well, without white space at its end.
std::string takeQuotedCell(std::string_view& line) {
    std::string cell;
    line.remove_prefix(1);
    while (!line.empty()) {
        const std::string_view part = line.substr(0, line.find('"'));
        cell += part;
        line.remove_prefix(part.size());
        if (line.substr(0, 2) != "\"\"") {
            break;
        }
        cell += '"';
        line.remove_prefix(2);
    }
    if (!line.empty()) {
        line.remove_prefix(1);
    }
    const std::string_view rest = line.substr(0, line.find(','));
    cell += platform::trimmedEnd(rest);
    line.remove_prefix(rest.size());
    return cell;
}

std::vector<std::string> cellsOf(std::string_view line) {
    std::vector<std::string> cells;
    while (true) {
        const std::string_view start = platform::trimmedStart(line);
        if (!start.empty() && start.front() == '"') {
            line = start;
            cells.push_back(takeQuotedCell(line));
        } else {
            cells.push_back(takePlainCell(line));
        }
        if (line.empty()) {
            return cells;
        }
        line.remove_prefix(1); // the comma
    }
}

} // namespace

void CommaSeparatedValues::load(std::istream& stream) {
    rows.clear();
    std::string text;
    bool first = true;
    while (std::getline(stream, text)) {
        std::string_view line = text;
        if (first && line.substr(0, byteOrderMark.size()) == byteOrderMark) {
            line.remove_prefix(byteOrderMark.size());
            if (line.empty() && stream.eof()) {
                return;
            }
        }
        first = false;
        if (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }
        rows.push_back(cellsOf(line));
    }
}

int CommaSeparatedValues::size() const {
    return static_cast<int>(rows.size());
}

std::vector<std::string>& CommaSeparatedValues::operator[](int index) {
    return rows[static_cast<std::size_t>(index)];
}

} // namespace qz::util::config
