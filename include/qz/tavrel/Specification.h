/// @file
/// Specification files: comma-separated sections of named subsections of rows.
#pragma once

#include <qz/util/config/CommaSeparatedValues.h>

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace qz::tavrel {

/// One specification file with the files that it includes.
///
/// A section opens with its name in the first cell of a row at the top of the file or directly behind a blank
/// row. A subsection opens with its name in the first cell of any other row; the further cells of that row,
/// and the rows behind it that leave their first cell empty, are its data. A first cell that begins with "#"
/// is a comment. A row "include" names a further file: what this file has no rows for is looked up there.
///
/// Loaded once, then only read.
/// Threads: one at a time in `load`, of all objects of the process; any afterwards.
class Specification {
public:
    /// One row, seen from its second cell on. It points into its Specification and must not outlive it.
    class Entry {
    public:
        /// @param row  a row of at least one cell
        explicit Entry(std::vector<std::string>& row);

        /// A cell, counted from the second one of the row; `i` must be below `size()`.
        std::string& operator[](unsigned int i);

        /// Number of cells behind the first one.
        unsigned int size();

    private:
        std::vector<std::string>* row;
        int firstCell;
    };

    /// Goes through the rows of one subsection. It must not outlive its Specification.
    class Entries {
    public:
        /// @param begin  first row, counted from 0
        /// @param end    the row behind the last one
        Entries(Specification* owner, const std::string& subsection, int begin, int end);

        /// The next row of at least two cells; the caller deletes it.
        /// @return null when the rows are used up, or at the first one whose own name is not the subsection's
        Entry* getNextEntry();

    private:
        int nextRow;
        int endRow;
        std::string subsection;
        Specification* owner;
    };

    /// An empty specification.
    Specification();
    virtual ~Specification();
    Specification(const Specification&) = delete;
    Specification& operator=(const Specification&) = delete;

    /// Reads a file and those that it includes; not to be called twice. A path in a file is taken as it
    /// stands there. A file that includes itself, also through others, is read once.
    /// @throws TavrelException  "invalid args" when this file or an included one cannot be opened
    virtual void load(const std::string& path);

    /// True if neither this file nor one that it includes itself has a section.
    virtual bool empty();

    /// Appends the names of this file's sections to `out`, then those of each included file.
    virtual void getSectionNames(std::vector<std::string>& out);

    /// The rows of one subsection, from this file or else from the first included one that has it.
    /// @return for the caller to delete; null when there are none
    virtual Entries* getEntries(const std::string& section, const std::string& subsection);

    /// The next row behind `row` that has a name in its first cell, counted from 0; -1 when there is none.
    /// Begin with -1.
    int getNext(int row);

    /// The key of a subsection in the index.
    std::string getKey(const std::string& section, const std::string& subsection);

    /// Finds the rows of a subsection without the index.
    /// @param range  receives the first row and the row behind the last one; -1 and -1 when there are none
    void getRange(const std::string& section, const std::string& subsection, std::pair<int, int>& range);

    /// Notes the rows of a subsection unless `begin` is -1. The first rows noted for a subsection stand.
    void addIndex(const std::string& section, const std::string& subsection, int begin, int end);

    /// Notes the rows of all subsections of this file.
    void index();

private:
    class LoadCount;

    std::vector<std::string> sectionNames;
    util::config::CommaSeparatedValues rows;
    std::vector<std::unique_ptr<Specification>> includes;
    std::map<std::string, std::pair<int, int>> sectionIndex;

    static std::map<std::string, int> loadcounter;
};

} // namespace qz::tavrel
