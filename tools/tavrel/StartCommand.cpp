#include "Commands.h"
#include "Session.h"
#include "Structure.h"

#include <iostream>

namespace tavrel::tool {

namespace {

std::string quoted(const std::string& version) {
    return version.empty() ? "no version" : "version '" + version + "'";
}

} // namespace

void startCommand(const Session& session) {
    const StartReport& report = session.report();
    switch (report.kind) {
    case StartReport::Kind::Built:
        std::cout << "built the tree: " << quoted(report.configuredVersion) << '\n';
        break;
    case StartReport::Kind::Joined:
        std::cout << "joined the tree: " << quoted(report.configuredVersion) << ", nothing changed\n";
        break;
    case StartReport::Kind::Migrated:
        std::cout << "migrated the tree: " << quoted(report.storedVersion) << " -> "
                  << quoted(report.configuredVersion) << '\n';
        for (const std::string& line : report.changes) {
            std::cout << "  " << line << '\n';
        }
        break;
    }
    std::cout << "  " << liveComponents() << " components\n";
    if (!report.structure.empty()) {
        std::cout << "  a fresh tree would have " << report.structure
                  << ": a migration keeps the stored tree and fits only the values\n";
    }
    std::cout << "  specification " << (report.cacheFound ? "from the cache " : "read and cached in ")
              << report.cache << '\n';
}

} // namespace tavrel::tool
