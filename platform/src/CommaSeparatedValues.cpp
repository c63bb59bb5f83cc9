#include "Text.h"

#include <qz/util/config/CommaSeparatedValues.h>

namespace qz::util::config {

namespace {

constexpr const char* byteOrderMark = "\xef\xbb\xbf";
constexpr std::size_t byteOrderMarkSize = 3;

/// Reads the cell that starts at `position` and leaves `position` at the comma behind it or at the end.
std::string readCell(const std::string& line, std::size_t& position) {
    const std::size_t first = line.find_first_not_of(" \t", position);
    if (first == std::string::npos || line[first] != '"') {
        const std::size_t start = position;
        position = std::min(line.find(',', start), line.size());
        return trimmed(line.substr(start, position - start));
    }
    std::string cell;
    std::size_t at = first + 1;
    while (at < line.size()) {
        if (line[at] != '"') {
            cell += line[at++];
        } else if (at + 1 < line.size() && line[at + 1] == '"') {
            cell += '"';
            at += 2;
        } else {
            ++at;
            break;
        }
    }
    // What stands between the closing quote and the comma still belongs to the cell.
    position = std::min(line.find(',', at), line.size());
    return trimmed(cell + line.substr(at, position - at));
}

std::vector<std::string> readRow(const std::string& line) {
    std::vector<std::string> cells;
    std::size_t position = 0;
    for (;;) {
        cells.push_back(readCell(line, position));
        if (position >= line.size()) {
            return cells;
        }
        ++position;
    }
}

} // namespace

void CommaSeparatedValues::load(std::istream& stream) {
    rows.clear();
    std::string line;
    while (std::getline(stream, line)) {
        if (rows.empty() && line.compare(0, byteOrderMarkSize, byteOrderMark) == 0) {
            line.erase(0, byteOrderMarkSize);
        }
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        rows.push_back(readRow(line));
    }
}

int CommaSeparatedValues::size() const {
    return static_cast<int>(rows.size());
}

std::vector<std::string>& CommaSeparatedValues::operator[](int index) {
    return rows[static_cast<std::size_t>(index)];
}

} // namespace qz::util::config
