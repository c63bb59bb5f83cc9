#include "base/Fault.h"
#include "base/FileText.h"
#include "base/Trace.h"

#include <qz/tavrel/Specification.h>

#include <algorithm>
#include <set>
#include <sstream>

namespace qz::tavrel {

namespace {

using Row = std::vector<std::string>;

constexpr int noRow = -1;
constexpr std::size_t fewestCells = 2;
const char* const includeName = "include";

bool isComment(const std::string& firstCell) {
    return firstCell.starts_with('#');
}

bool isHead(const Row& row) {
    return !row.empty() && !row.front().empty() && !isComment(row.front());
}

bool isBlank(const Row& row) {
    return std::all_of(row.begin(), row.end(), [](const std::string& cell) { return cell.empty(); });
}

bool hasData(const Row& row) {
    return row.size() >= fewestCells;
}

bool isIncluding(const Row& row) {
    return hasData(row) && row.front() == includeName;
}

/// True if a row belongs to a subsection by its first cell: it has no name of its own, or the subsection's.
bool belongsTo(const std::string& subsection, const Row& row) {
    return row.front().empty() || row.front() == subsection;
}

} // namespace

/// Counts a load of one path while it is under way, so that a load that fails leaves no count behind.
class [[nodiscard]] Specification::LoadCount {
public:
    explicit LoadCount(const std::string& counted) : path(counted) { ++loadcounter[path]; }
    ~LoadCount() {
        if (--loadcounter[path] == 0) {
            loadcounter.erase(path);
        }
    }
    LoadCount(const LoadCount&) = delete;
    LoadCount& operator=(const LoadCount&) = delete;

private:
    const std::string& path;
};

std::map<std::string, int> Specification::loadcounter;

Specification::Entry::Entry(std::vector<std::string>& itsRow) : row(&itsRow), firstCell(1) {}

std::string& Specification::Entry::operator[](unsigned int i) {
    return (*row)[i + static_cast<unsigned int>(firstCell)];
}

unsigned int Specification::Entry::size() {
    return static_cast<unsigned int>(row->size()) - static_cast<unsigned int>(firstCell);
}

Specification::Entries::Entries(Specification* itsOwner, const std::string& itsSubsection, int begin, int end)
    : nextRow(begin), endRow(end), subsection(itsSubsection), owner(itsOwner) {}

Specification::Entry* Specification::Entries::getNextEntry() {
    while (nextRow < endRow && !hasData(owner->rows[nextRow])) {
        ++nextRow;
    }
    if (nextRow >= endRow || !belongsTo(subsection, owner->rows[nextRow])) {
        nextRow = endRow;
        return nullptr;
    }
    return new Entry(owner->rows[nextRow++]);
}

Specification::Specification() = default;
Specification::~Specification() = default;

void Specification::load(const std::string& path) {
    if (loadcounter.count(path) != 0) {
        return; // it is being read further up the chain of includes
    }
    std::string content;
    if (!internal::readFile(path, content)) {
        internal::traceText(internal::point::SpecificationNotOpened, path.c_str());
        internal::raise("Specification", "load", "invalid args");
    }
    std::istringstream stream(content);
    rows.load(stream);
    {
        const LoadCount underWay(path);
        for (int i = 0; i < rows.size(); ++i) {
            if (isIncluding(rows[i])) {
                includes.push_back(std::make_unique<Specification>());
                includes.back()->load(rows[i][1]);
            }
        }
    }
    index();
}

bool Specification::empty() {
    return sectionNames.empty() && std::all_of(includes.begin(), includes.end(), [](const auto& included) {
               return included->sectionNames.empty();
           });
}

void Specification::getSectionNames(std::vector<std::string>& out) {
    if (sectionNames.empty()) {
        for (int head = getNext(noRow); head != noRow; head = getNext(head)) {
            const bool standsFree = head == 0 || isBlank(rows[head - 1]);
            if (standsFree && rows[head].front() != includeName) {
                sectionNames.push_back(rows[head].front());
            }
        }
    }
    out.insert(out.end(), sectionNames.begin(), sectionNames.end());
    for (const auto& included : includes) {
        included->getSectionNames(out);
    }
}

Specification::Entries* Specification::getEntries(const std::string& section, const std::string& subsection) {
    std::pair<int, int> range;
    const auto found = sectionIndex.find(getKey(section, subsection));
    if (found != sectionIndex.end()) {
        range = found->second;
    } else {
        getRange(section, subsection, range);
    }
    int first = range.first;
    while (first < range.second && !hasData(rows[first])) {
        ++first;
    }
    if (first < range.second && belongsTo(subsection, rows[first])) {
        return new Entries(this, subsection, range.first, range.second);
    }
    for (const auto& included : includes) {
        if (Entries* const entries = included->getEntries(section, subsection)) {
            return entries;
        }
    }
    return nullptr;
}

int Specification::getNext(int row) {
    for (int next = std::max(row, noRow); next < rows.size() - 1;) {
        ++next;
        if (isHead(rows[next])) {
            return next;
        }
    }
    return noRow;
}

std::string Specification::getKey(const std::string& section, const std::string& subsection) {
    return section + "." + subsection;
}

void Specification::getRange(const std::string& section, const std::string& subsection,
                             std::pair<int, int>& range) {
    range = {noRow, noRow};
    int head = getNext(noRow);
    while (head != noRow && rows[head].front() != section) {
        head = getNext(head);
    }
    if (head == noRow) {
        return;
    }
    std::vector<std::string> names;
    getSectionNames(names);
    for (head = getNext(head); head != noRow; head = getNext(head)) {
        const std::string& name = rows[head].front();
        if (std::find(names.begin(), names.end(), name) != names.end()) {
            return;
        }
        if (name == subsection) {
            const int behind = getNext(head);
            range = {head, behind == noRow ? rows.size() : behind};
            return;
        }
    }
}

void Specification::addIndex(const std::string& section, const std::string& subsection, int begin, int end) {
    if (begin == noRow) {
        return;
    }
    const std::string key = getKey(section, subsection);
    if (!sectionIndex.try_emplace(key, begin, end).second) {
        internal::traceText(internal::point::SpecificationDuplicate, key.c_str());
    }
}

void Specification::index() {
    std::vector<std::string> names;
    getSectionNames(names);
    const std::set<std::string> sections(names.begin(), names.end());
    std::string section;
    std::string subsection;
    int begin = noRow;
    for (int head = getNext(noRow); head != noRow; head = getNext(head)) {
        addIndex(section, subsection, begin, head);
        const std::string& name = rows[head].front();
        if (sections.count(name) != 0) {
            section = name;
            begin = noRow;
        } else {
            subsection = name;
            begin = head;
        }
    }
    addIndex(section, subsection, begin, rows.size());
}

} // namespace qz::tavrel
