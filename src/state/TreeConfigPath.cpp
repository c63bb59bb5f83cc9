#include "state/RevisionAge.h"

#include <qz/tavrel/TreeConfig.h>
#include <qz/tavrel/TreePath.h>

#include <algorithm>

namespace qz::tavrel {

// The node as the history has it; else the present one, unless it has changed since.
bool TreeConfig::nodeAt(int wanted, int id, Node& out) {
    if (history.get(id, wanted, out)) {
        return true;
    }
    const int current = nodes.getRevision();
    return nodes.getNode(id, out) &&
           internal::revisionAge(current, wanted) <= internal::revisionAge(current, out.revision);
}

bool TreeConfig::getTreePath(int wanted, int id, TreePath& path) {
    std::vector<Node> way;
    std::set<int> seen;
    int next = id;
    do {
        Node node;
        const bool isRepeated = !seen.insert(next).second; // damaged parents can form a ring
        if (isRepeated || !nodeAt(wanted, next, node)) {
            return false;
        }
        way.push_back(node);
        next = node.parent;
    } while (next != -1);

    std::reverse(way.begin(), way.end());
    for (const Node& node : way) {
        path.add(node.type, node.number);
    }
    return true;
}

} // namespace qz::tavrel
