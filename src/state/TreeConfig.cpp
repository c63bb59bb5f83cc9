#include "base/Trace.h"

#include <qz/tavrel/LockObject.h>
#include <qz/tavrel/TreeConfig.h>

namespace qz::tavrel {

namespace {

using Node = TreeConfig::Node;

enum StoreKey { ownedKey = 1, sharedKey = 2, treeKey = 4, nodesKey = 5 };

constexpr int ownedRelation = 0;
constexpr int relationCount = 2;

/// Body of the tree's own value. Nobody compares it: the value is there for its revision.
constexpr char marker[] = "11325013\n";

/// Saves a part, under a revision that no process holds.
/// @param isKnown  others may have loaded it
///
/// All that was finished is loaded, under the same lock. A stored revision other than the one held is
/// therefore that of a process that died in its save: it has given the next number away, perhaps to a state
/// that others have loaded since, to whom another state under that number would be no news.
void savePart(Configuration& part, bool isKnown) {
    if (isKnown && part.isModified()) {
        part.takeStoredRevision();
    }
    part.save();
}

} // namespace

TreeConfig::TreeConfig() : lockObject(nullptr), accessLock(), isStampSettled(false) {
    pthread_rwlock_init(&accessLock, nullptr);
}

TreeConfig::~TreeConfig() {
    while (lockDepth.count() > 0) {
        internal::trace(internal::point::TreeConfigLockLeft);
        try {
            unlock();
        } catch (...) { // NOLINT(bugprone-empty-catch): the trace of the failed save says what was lost
        }
    }
    delete lockObject;
    while (accessDepth.count() > 0) {
        leaveAccess();
    }
    pthread_rwlock_destroy(&accessLock);
}

void TreeConfig::assign(Resource* store, LockObject* lock) {
    Configuration::assign(store, treeKey);
    nodes.assign(store, nodesKey);
    relations[0].assign(store, ownedKey);
    relations[1].assign(store, sharedKey);
    if (lock != lockObject) {
        delete lockObject;
        lockObject = lock;
    }
}

void TreeConfig::assign(const std::string& path) {
    history.assign(path);
}

std::istream& TreeConfig::read(std::istream& stream) {
    int dropped = 0;
    stream >> dropped;
    isStampSettled = false;
    nodes.load();
    for (Association& relation : relations) {
        relation.load();
    }
    history.load();
    return stream;
}

// Others look at the parts only when key 4 has a new revision, and that is stored last. A process that dies
// on the way has its lock given back by the kernel. What it leaves is found by a process that starts, and by
// one that had an earlier change still to load; the others keep the tree as it was. The next process that
// changes a part replaces it.
std::ostream& TreeConfig::write(std::ostream& stream) {
    const bool isKnown = getRevision() != 0; // nobody has loaded a part before key 4 is there
    // dies here: the tree as it was
    savePart(nodes, isKnown);
    isStampSettled = false;
    // dies here: new nodes, old links
    savePart(relations[0], isKnown);
    // dies here: new nodes and owned links, old shared links
    savePart(relations[1], isKnown);
    // dies here: the new tree; the history lacks the last revision
    history.save();
    // dies here: the new tree and its history
    return stream << marker << std::flush;
}

Association* TreeConfig::relationOf(int number) {
    return number >= 0 && number < relationCount ? &relations[number] : nullptr;
}

void TreeConfig::noteChange(Association& relation) {
    if (relation.isModified()) {
        setModified(true);
    }
}

void TreeConfig::get(int src, std::vector<int>& out, int relation) {
    if (Association* const links = relationOf(relation)) {
        links->get(src, out);
    }
}

void TreeConfig::getSrcs(int id, std::vector<int>& out) {
    for (Association& relation : relations) {
        relation.getSrcs(id, out);
    }
}

int TreeConfig::getSrc(int id) {
    return relations[ownedRelation].getSrc(id);
}

void TreeConfig::getAll(std::set<int>& out) {
    relations[ownedRelation].getAll(out);
}

void TreeConfig::add(int src, int dst, int relation) {
    if (Association* const links = relationOf(relation)) {
        links->add(src, dst);
        noteChange(*links);
    }
}

void TreeConfig::add(int src, std::vector<int>& dsts, int relation) {
    if (Association* const links = relationOf(relation)) {
        links->add(src, dsts);
        noteChange(*links);
    }
}

void TreeConfig::remove(int src, int dst, int relation) {
    if (Association* const links = relationOf(relation)) {
        links->remove(src, dst);
        noteChange(*links);
    }
}

void TreeConfig::removeAll(int id) {
    for (Association& relation : relations) {
        relation.removeAll(id);
        noteChange(relation);
    }
}

void TreeConfig::clear() {
    for (Association& relation : relations) {
        relation.clear();
        noteChange(relation);
    }
}

int TreeConfig::getNodeCount() {
    return nodes.count();
}

int TreeConfig::getNodeRevision(int id) {
    Node node;
    nodes.getNode(id, node);
    return node.revision;
}

int TreeConfig::getNodeType(int id) {
    Node node;
    nodes.getNode(id, node);
    return node.type;
}

int TreeConfig::getNodeNumber(int id) {
    Node node;
    nodes.getNode(id, node);
    return node.number;
}

int TreeConfig::setNodeInfo(int id, int type, int number) {
    // Nodes get the revision of the save to come: it is settled before the first of them is stamped. Before a
    // first tree nobody has loaded any.
    if (!isStampSettled && getRevision() != -1) {
        nodes.takeStoredRevision();
    }
    isStampSettled = true;
    const Node node{id, nodes.getNextRevision(), type, number, getSrc(id)};
    nodes.setNode(node);
    history.add(node);
    setModified(true);
    return node.revision;
}

int TreeConfig::getUnusedNodeId() {
    return nodes.getUnusedNodeId();
}

int TreeConfig::getRevision(timeval& when) {
    return history.getRevision(when);
}

} // namespace qz::tavrel
