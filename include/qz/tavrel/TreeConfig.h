/// @file
/// The shared description of the object tree: which ids exist, what they are, and how they are linked.
#pragma once

#include <qz/tavrel/Association.h>
#include <qz/tavrel/Configuration.h>
#include <qz/tavrel/Counter.h>

#include <pthread.h>
#include <sys/time.h>

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace qz::tavrel {

class LockObject;
class TreePath;

/// The one description of the tree that all processes share. `Component` objects are views on it.
///
/// It bundles a table of nodes, two relations between their ids and an optional history. Relation 0 is the
/// owned relation, the tree proper: the first source of a node is its parent. Relation 1 is the shared one:
/// it attaches a node under further parents.
///
/// Stored in one store, each behind the frame of `Configuration`:
///
/// | key | what                | body                                                            |
/// |-----|---------------------|-----------------------------------------------------------------|
/// | 1   | relation 0          | see `Association`                                               |
/// | 2   | relation 1          | see `Association`                                               |
/// | 4   | this object         | the text "11325013" and a line end; only its revision has a use |
/// | 5   | the table of nodes  | see `NodeConfig`                                                |
///
/// A change travels without messages. `unlock` saves the parts that were changed, and key 4 last, under a new
/// revision; the next `lock` in another process finds that revision and loads the parts whose own revisions
/// are new.
///
/// Locks, in the order in which they are taken: the in-process lock (`readLock`, `writeLock`), which guards
/// the tables in memory between threads, then the lock between processes (`lock`), which spans load to save.
/// Both count how deep a thread is, so a thread may take them again.
/// Threads: any, under these locks.
class TreeConfig : public Configuration {
public:
    /// A node as it is stored: five 32-bit fields, 20 bytes.
    struct Node {
        int id = -1;       ///< id of the node and of its component
        int revision = -1; ///< revision of the table at which the node last changed
        int type = 0;      ///< type of the component; 0 for a free id
        int number = -1;   ///< number of the component among those of its type
        int parent = -1;   ///< first source in relation 0; -1 for none

        /// Sets each field to the value that stands with it above.
        void init();

        /// True if id, revision and type are all at least 0.
        bool isValid();

        /// Turns all fields to big-endian, in place.
        void hton();

        /// Turns all fields from big-endian, in place.
        void ntoh();

        /// "ID:3 rev:7 type:2 num:0 parent:1", for reports.
        std::string toString();
    };

    /// The table of nodes.
    ///
    /// Body of the stored value: the number of nodes as 4 bytes big-endian, then each node, ascending by id,
    /// as 20 bytes: its fields in order, big-endian.
    class NodeConfig : public Configuration {
    public:
        NodeConfig();
        ~NodeConfig() override;

        /// As `Configuration::load`; a table that had holes stays marked modified.
        unsigned int load() override;

        /// Replaces the table by that of a stored body. Records with a negative id, revision or type, or with
        /// an id of 2^20 or above, are dropped. An id that is missing below the largest one or below the
        /// number of records is added as a free node, with a trace record, and marks this object modified.
        /// Reading ends with the stream, whatever the count says.
        std::istream& read(std::istream& stream) override;

        /// Writes the body; forgets the pool of free ids first.
        std::ostream& write(std::ostream& stream) override;

        /// Copies a node. @param out  receives it; untouched when the id is unknown
        /// @return false for an unknown id
        bool getNode(int id, Node& out);

        /// Adds a node or replaces the one of its id, and marks this object modified.
        void setNode(const Node& node);

        /// Number of nodes, free ones included.
        int count();

        /// A free id: the one that has been free longest, the lowest among equals. It stays free in the table
        /// until `setNode` gives it a type, but is not offered again. An id that becomes free is offered
        /// after the next load or save.
        /// @return -1 if there is none
        int getUnusedNodeId();

    private:
        std::vector<Node>::iterator placeOf(int id);
        void repair(int end);
        void fillPool();

        std::vector<Node> nodes; ///< ascending by id
        std::map<unsigned int, std::vector<int>> unusedNodes;
        bool repaired;
    };

    /// What nodes looked like at earlier revisions, and when each revision was made. Kept in a file of its
    /// own; without a path nothing is recorded.
    ///
    /// The file, in the host's byte order: a 32-bit count of revisions; for each its number, its second and
    /// its microsecond, 32 bits each; a 32-bit count of changes; each change as a node of 20 bytes. It keeps
    /// the last 256 revisions.
    ///
    /// Nothing here raises.
    /// Locks: none of its own; used under `TreeConfig::lock`.
    class History {
    public:
        History();

        /// Sets the path of the file; empty ends the recording.
        void assign(const std::string& file);

        /// Records a changed node, if there is a path.
        void add(Node node);

        /// Closes the revision: all nodes added since the last one belong to it. Does nothing if there are
        /// none.
        void update();

        /// Finds the newest recorded state of a node that is not newer than a revision.
        /// @param out  receives it; untouched when there is none
        /// @return false when there is none
        bool get(int id, int revision, Node& out);

        /// The revision that was current just before a time. @return -1 if none is known
        int getRevision(timeval& when);

        /// Replaces what is recorded by a file's content. Reading ends with the stream, whatever the counts
        /// say.
        std::istream& read(std::istream& stream);

        /// Writes a file's content.
        std::ostream& write(std::ostream& stream);

        /// Reads the file. @return bytes read; 0, and nothing has changed, when it cannot be opened
        unsigned int load();

        /// Closes the revision and writes the whole file anew.
        /// @return bytes written; 0 when the file cannot be opened
        unsigned int save();

    private:
        void closeRevision();

        std::string path;
        bool dirty;
        std::vector<std::pair<int, timeval>> revisions; ///< oldest first
        std::vector<Node> changes;                      ///< oldest first
    };

    TreeConfig();

    /// Leaves the lock between processes as often as the calling thread holds it, with a trace record for
    /// each time, which saves pending changes; deletes the `LockObject`.
    ~TreeConfig() override;

    /// Drops the marker of key 4 and loads the nodes, both relations and the history.
    std::istream& read(std::istream& stream) override;

    /// Saves the nodes, both relations and the history, and writes the marker of key 4.
    std::ostream& write(std::ostream& stream) override;

    /// `Association::get` of a relation. A relation other than 0 and 1 has no links, here and below.
    virtual void get(int src, std::vector<int>& out, int relation);

    /// Appends the sources of `id` in relation 0, then those in relation 1. @param out  is not emptied first
    virtual void getSrcs(int id, std::vector<int>& out);

    /// The parent: the first source of `id` in relation 0; -1 if it has none.
    virtual int getSrc(int id);

    /// Inserts every id that has a link in relation 0. @param out  is not emptied first
    virtual void getAll(std::set<int>& out);

    /// `Association::add` in a relation.
    virtual void add(int src, int dst, int relation);

    /// `Association::add` in a relation.
    virtual void add(int src, std::vector<int>& dsts, int relation);

    /// `Association::remove` in a relation.
    virtual void remove(int src, int dst, int relation);

    /// `Association::removeAll` in both relations.
    virtual void removeAll(int id);

    /// `Association::clear` in both relations; the nodes stay.
    virtual void clear();

    using Configuration::assign;

    /// Binds this object, the nodes and both relations to a store.
    /// @param store  stays the caller's
    /// @param lock   the lock between processes; becomes this object's; null for none
    void assign(Resource* store, LockObject* lock);

    /// Sets the path of the history's file; empty for no history.
    void assign(const std::string& path);

    /// Number of nodes, free ones included.
    int getNodeCount();

    /// Revision at which a node last changed; -1 for an unknown id.
    int getNodeRevision(int id);

    /// Type of a node; 0 for a free or an unknown id.
    int getNodeType(int id);

    /// Number of a node; -1 for an unknown id.
    int getNodeNumber(int id);

    /// Sets type and number of a node, stamps it with the revision that the next save gives to the table, and
    /// records it in the history. Its parent is taken from relation 0.
    /// @return the node's revision
    int setNodeInfo(int id, int type, int number);

    /// `NodeConfig::getUnusedNodeId`. @return -1 if there is none
    int getUnusedNodeId();

    /// Appends the path of a node as it was at a revision of the table.
    /// @param path  is not emptied first; untouched on failure
    /// @return false when the node is unknown, or has changed since and no record that old is left
    bool getTreePath(int revision, int id, TreePath& path);

    using Configuration::getRevision;

    /// `History::getRevision`.
    int getRevision(timeval& when);

    /// Takes the lock between processes and loads what others have saved. A thread that holds it only goes
    /// one deeper.
    /// @return bytes loaded, 0 if nothing is new; the depth if the thread had the lock
    /// @throws whatever the `LockObject` or `load` raises; the lock is then not held
    int lock();

    /// Saves what was changed and leaves the lock between processes; within another `lock`, only counts. Does
    /// nothing in a thread that does not hold it.
    /// @return bytes that the store took; the depth that is left if the thread still has the lock
    /// @throws whatever `save` or the `LockObject` raises; the lock is left all the same
    int unlock();

    /// Takes the in-process lock for reading. @return how deep the thread is in it now
    int readLock();

    /// Leaves what `readLock` took. @return how deep the thread still is
    int readUnlock();

    /// Takes the in-process lock for writing. A thread that holds it for reading gets no exclusive access:
    /// take the write lock first where both are needed.
    /// @return how deep the thread is in it now
    int writeLock();

    /// Leaves what `writeLock` took. @return how deep the thread still is
    int writeUnlock();

private:
    Association* relationOf(int number);
    void noteChange(Association& relation);
    bool nodeAt(int revision, int id, Node& out);
    void leaveLock();
    void leaveLockAfterFailure();
    int leaveAccess();

    NodeConfig nodes;
    Association relations[2];
    History history;
    Counter lockDepth;
    LockObject* lockObject;
    Counter accessDepth;
    pthread_rwlock_t accessLock;
    bool isStampSettled; ///< whether the nodes have taken the stored revision since they were last saved or
                         ///< loaded
};

} // namespace qz::tavrel
