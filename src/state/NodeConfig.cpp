#include "base/Trace.h"
#include "state/Records.h"
#include "state/RevisionAge.h"

#include <qz/tavrel/TreeConfig.h>

#include <algorithm>

namespace qz::tavrel {

namespace {

using Node = TreeConfig::Node;

/// No tree has more nodes. A larger stored id is damage, which must not make a table of that size.
constexpr int idLimit = 1 << 20;

/// Brings nodes into the order of their ids, in which all but damaged ones are stored. The last one of an id
/// counts.
void sortById(std::vector<Node>& nodes) {
    const auto isBefore = [](const Node& a, const Node& b) { return a.id < b.id; };
    const auto isNotBefore = [](const Node& a, const Node& b) { return a.id >= b.id; };
    if (std::adjacent_find(nodes.begin(), nodes.end(), isNotBefore) == nodes.end()) {
        return;
    }
    std::stable_sort(nodes.begin(), nodes.end(), isBefore);
    std::vector<Node> single;
    for (const Node& node : nodes) {
        if (!single.empty() && single.back().id == node.id) {
            single.back() = node;
        } else {
            single.push_back(node);
        }
    }
    nodes.swap(single);
}

} // namespace

TreeConfig::NodeConfig::NodeConfig() : repaired(false) {}

TreeConfig::NodeConfig::~NodeConfig() = default;

unsigned int TreeConfig::NodeConfig::load() {
    repaired = false;
    const unsigned int loaded = Configuration::load();
    if (repaired) {
        setModified(true);
    }
    return loaded;
}

std::istream& TreeConfig::NodeConfig::read(std::istream& stream) {
    unusedNodes.clear();
    nodes.clear();
    int stored = 0;
    readValue(stream, stored);
    std::vector<Node> records = internal::readRecords<Node>(stream, stored);
    nodes.reserve(records.size());
    for (Node& node : records) {
        node.ntoh();
        if (node.isValid() && node.id < idLimit) {
            nodes.push_back(node);
        }
    }
    sortById(nodes);

    const int counted = std::min(stored, static_cast<int>(records.size()));
    const int expected = nodes.empty() ? 0 : nodes.back().id + 1;
    if (expected != counted) {
        repair(std::min(std::max(expected, counted), idLimit));
    }
    return stream;
}

void TreeConfig::NodeConfig::repair(int end) {
    const int stamp = getNextRevision();
    std::vector<Node> whole;
    auto known = nodes.begin();
    for (int id = 0; id < end; ++id) {
        if (known != nodes.end() && known->id == id) {
            whole.push_back(*known++);
        } else {
            whole.push_back({id, stamp, 0, -1, -1});
            internal::trace(internal::point::TreeConfigHole, id);
        }
    }
    nodes.swap(whole);
    repaired = true;
    setModified(true);
}

std::ostream& TreeConfig::NodeConfig::write(std::ostream& stream) {
    unusedNodes.clear();
    writeValue(stream, count());
    std::vector<Node> records = nodes;
    for (Node& node : records) {
        node.hton();
    }
    internal::writeRecords(stream, records);
    return stream;
}

// Ids have no holes but for a moment, so a node nearly always stands at the index of its id.
std::vector<Node>::iterator TreeConfig::NodeConfig::placeOf(int id) {
    const auto index = static_cast<unsigned int>(id);
    if (index < nodes.size() && nodes[index].id == id) {
        return nodes.begin() + id;
    }
    return std::lower_bound(nodes.begin(), nodes.end(), id,
                            [](const Node& node, int wanted) { return node.id < wanted; });
}

bool TreeConfig::NodeConfig::getNode(int id, Node& out) {
    const auto at = placeOf(id);
    if (at == nodes.end() || at->id != id) {
        return false;
    }
    out = *at;
    return true;
}

void TreeConfig::NodeConfig::setNode(const Node& node) {
    const auto at = placeOf(node.id);
    if (at != nodes.end() && at->id == node.id) {
        *at = node;
    } else {
        nodes.insert(at, node);
    }
    setModified(true);
}

int TreeConfig::NodeConfig::count() {
    return static_cast<int>(nodes.size());
}

int TreeConfig::NodeConfig::getUnusedNodeId() {
    if (unusedNodes.empty()) {
        fillPool();
    }
    if (unusedNodes.empty()) {
        return -1;
    }
    const auto oldest = std::prev(unusedNodes.end());
    std::vector<int>& ids = oldest->second;
    const int id = ids.front();
    ids.erase(ids.begin());
    if (ids.empty()) {
        unusedNodes.erase(oldest);
    }
    return id;
}

void TreeConfig::NodeConfig::fillPool() {
    for (const Node& node : nodes) {
        if (node.type == 0) {
            unusedNodes[internal::revisionAge(getRevision(), node.revision)].push_back(node.id);
        }
    }
}

} // namespace qz::tavrel
