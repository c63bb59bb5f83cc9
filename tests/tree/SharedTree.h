#pragma once

#include "support/TreeFixture.h"

#include <qz/tavrel/BMCRelationalDB.h>
#include <qz/tavrel/LockObject.h>
#include <qz/tavrel/TreePath.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace tavrel::test {

/// The parts of a tree that processes share: the store in a mapped file, the lock on semaphores.
inline TreeParts sharedParts(qz::tavrel::BMCRelationalDB* store = new qz::tavrel::BMCRelationalDB,
                             qz::tavrel::TreeConfig* config = nullptr) {
    store->initialize("main");
    qz::tavrel::SemRWLock::initialize(1);
    TreeParts parts;
    parts.store = store;
    parts.lock = new qz::tavrel::SemRWLock(0);
    parts.config = config;
    return parts;
}

/// Removes the stored tree, so that the next one begins empty. Nobody may have it open.
inline void forgetStoredTree() {
    std::remove("/var/nvrdisk/current/db/current.db");
}

/// Loads what others have saved, whatever was refreshed a moment ago.
inline void refresh() {
    qz::tavrel::Component::getComponent(0)->getRevision();
}

/// All nodes as this process has them: id, type, number, revision, owner and children of both relations.
inline std::string describe() {
    refresh();
    qz::tavrel::TreeConfig& tree = *qz::tavrel::Component::getTreeConfig();
    std::ostringstream text;
    for (int id = 0; id < tree.getNodeCount(); ++id) {
        text << id << ": " << tree.getNodeType(id) << '#' << tree.getNodeNumber(id) << " @"
             << tree.getNodeRevision(id) << " <" << tree.getSrc(id);
        for (const int relation : {0, 1}) {
            std::vector<int> children;
            tree.get(id, children, relation);
            for (const int child : children) {
                text << (relation == 0 ? " >" : " +") << child;
            }
        }
        text << '\n';
    }
    return text.str();
}

/// What is wrong with the tree that this process has, a line each; empty when all holds that holds of every
/// tree in which nobody set a number by hand.
inline std::string faultsOf() {
    refresh();
    qz::tavrel::TreeConfig& tree = *qz::tavrel::Component::getTreeConfig();
    std::ostringstream faults;
    const int count = tree.getNodeCount();
    if (count > TreeFixture::maxCount) {
        faults << count << " nodes\n";
    }
    std::map<int, std::vector<int>> links; // child to owners, as the owners list it
    std::map<int, std::vector<int>> shares;
    int latest = -1;
    for (int id = 0; id < count; ++id) {
        latest = std::max(latest, tree.getNodeRevision(id));
        std::vector<int> children;
        tree.get(id, children, 0);
        std::set<std::pair<int, int>> names;
        for (const int child : children) {
            links[child].push_back(id);
            if (!names.insert({tree.getNodeType(child), tree.getNodeNumber(child)}).second) {
                faults << child << " has the type and number of a sibling\n";
            }
        }
        children.clear();
        tree.get(id, children, 1);
        for (const int child : children) {
            shares[child].push_back(id);
        }
    }
    for (int id = 0; id < count; ++id) {
        const bool isLive = tree.getNodeType(id) > 0;
        const std::size_t wanted = isLive && id != 0 ? 1 : 0;
        if (links[id].size() != wanted) {
            faults << id << " has " << links[id].size() << " owners, type " << tree.getNodeType(id) << '\n';
        }
        std::vector<int> all = links[id];
        all.insert(all.end(), shares[id].begin(), shares[id].end());
        std::vector<int> sources;
        tree.getSrcs(id, sources);
        if (std::multiset<int>(all.begin(), all.end()) !=
            std::multiset<int>(sources.begin(), sources.end())) {
            faults << id << " has parents that do not list it, or is listed where it has no parent\n";
        }
        if (!isLive && tree.getNodeNumber(id) != -1) {
            faults << id << " is free and has a number\n";
        }
        std::vector<int> children;
        tree.get(id, children, 0);
        if (!isLive && !children.empty()) {
            faults << id << " is free and owns others\n";
        }
        if (isLive) {
            qz::tavrel::TreePath recorded; // by the parents in the node records
            qz::tavrel::TreePath linked;   // by the links
            tree.getTreePath(latest, id, recorded);
            qz::tavrel::Component::getComponent(id)->getTreePath(linked);
            if (recorded.toString() != linked.toString() || linked.getTypeAt(0) != tree.getNodeType(0)) {
                faults << id << " is recorded at " << recorded.toString() << " and linked at "
                       << linked.toString() << '\n';
            }
        }
    }
    return faults.str();
}

} // namespace tavrel::test
