/// @file
/// Tables of text cells, as comma-separated files hold them.
#pragma once

#include <istream>
#include <string>
#include <vector>

namespace qz::util::config {

/// One table, read from a stream.
///
/// Cells are trimmed of white space. A cell in double quotes may hold commas and keeps the white space inside
/// them, and doubled quotes stand for one; a line end closes an open quote. CR LF is taken as a line end, and
/// the last line needs none. A trailing comma gives an empty last cell, a blank line a row of one empty cell,
/// an empty stream no row. A byte order mark is dropped.
/// Threads: as a standard container.
class CommaSeparatedValues {
public:
    /// Replaces the table by what the stream holds, to its end.
    void load(std::istream& stream);

    /// Number of rows.
    int size() const;

    /// The cells of row `index`, which must be at least 0 and below `size()`.
    std::vector<std::string>& operator[](int index);

private:
    std::vector<std::vector<std::string>> rows;
};

} // namespace qz::util::config
