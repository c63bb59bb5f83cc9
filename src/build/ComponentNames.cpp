#include "build/ComponentNames.h"

#include "base/Decimal.h"
#include "base/Trace.h"

#include <qz/tavrel/Specification.h>

#include <memory>
#include <unordered_set>

namespace qz::internal {

using tavrel::Specification;

void appendComponentNames(Specification& specification, std::vector<std::string>& names,
                          const TracePoint& skipped) {
    std::vector<std::string> sections;
    specification.getSectionNames(sections);
    names.insert(names.end(), sections.begin(), sections.end());
    std::unordered_set<std::string> known(names.begin(), names.end());
    for (const std::string& section : sections) {
        const std::unique_ptr<Specification::Entries> entries(specification.getEntries(section, "component"));
        if (entries == nullptr) {
            continue;
        }
        while (const auto entry = std::unique_ptr<Specification::Entry>(entries->getNextEntry())) {
            const std::string& name = (*entry)[0];
            const int count = entry->size() > 1 ? decimal((*entry)[1]) : 0;
            if (name.empty() || count <= 0) {
                traceText(skipped, name.c_str());
            } else if (known.insert(name).second) {
                names.push_back(name);
            }
        }
    }
}

} // namespace qz::internal
