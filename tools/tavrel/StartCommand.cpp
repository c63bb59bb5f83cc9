#include "Commands.h"
#include "Session.h"

#include <qz/tavrel/Component.h>
#include <qz/tavrel/TreeConfig.h>

#include <iostream>

using namespace qz::tavrel;

namespace tavrel::tool {

namespace {

std::string quoted(const std::string& version) {
    return version.empty() ? "no version" : "version '" + version + "'";
}

int liveComponents() {
    TreeConfig* tree = Component::getTreeConfig();
    int count = 0;
    for (int id = 0; id < tree->getNodeCount(); ++id) {
        count += tree->getNodeType(id) > 0 ? 1 : 0;
    }
    return count;
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
    std::cout << "  " << liveComponents() << " components\n  specification "
              << (report.cacheFound ? "from the cache " : "read and cached in ") << report.cache << '\n';
}

} // namespace tavrel::tool
