/// @file
/// One node of the object tree, and its small base.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <istream>
#include <ostream>
#include <set>
#include <string>
#include <vector>

namespace qz::tavrel {

class ComponentClass;
class ComponentLockProvider;
class ComponentVisitor;
class GuardSection;
class NameResolver;
class TreeConfig;
class TreePath;

/// Base of objects that can be read from and written to a stream. By default both do nothing.
class SystemObject {
public:
    SystemObject() = default;
    virtual ~SystemObject();
    SystemObject(const SystemObject&) = delete;
    SystemObject& operator=(const SystemObject&) = delete;

    /// Reads the object. @return the stream
    virtual std::istream& read(std::istream& stream);

    /// Writes the object. @return the stream
    virtual std::ostream& write(std::ostream& stream);
};

/// Calls `read` of the object.
std::istream& operator>>(std::istream& stream, SystemObject& object);

/// Calls `write` of the object.
std::ostream& operator<<(std::ostream& stream, SystemObject& object);

/// One node of the object tree: a handle of this process on one entry of the shared `TreeConfig`.
///
/// Objects are made at the first request for an id and stay until `deleteAll`; a recycled id keeps its
/// object, so the revision, and not the pointer, tells that a component is gone. Client code keeps
/// `ComponentAccessor`s instead.
///
/// Locks, in the order in which they are taken: the lock of a component (`readLock`, `writeLock`), which only
/// clients and `Builder::build` take; the tree's read or write section, which the operations take themselves;
/// the mutex of the list of objects. "Write section" below means the tree's lock between threads and
/// processes, with what others have saved loaded at its start and this process's changes saved at its end;
/// "read section" means the lock between threads alone. Sections nest on one thread. "Refreshes" means that
/// the operation first brings the tree up to date, unless the same thread has just done so (within 100 ms, at
/// the same or a lower level).
///
/// Every operation with a section needs the `TreeConfig`; it may pass on what a store or a lock raises.
/// Threads: any, unless said otherwise; all threads share one object an id.
class Component : public SystemObject {
public:
    /// An object of no node: id -1, revision -1, not listed.
    Component();

    /// Takes the object off the list of its id.
    ~Component() override;

    // --- the process-wide state; plain stores and loads, a setter deletes nothing ---

    /// Sets the exclusive upper bound of ids.
    static void setMaxCount(int count);

    /// Sets the names of types, actions and properties; owned from now on.
    static void setNameResolver(NameResolver* resolver);
    static NameResolver* getNameResolver();

    /// Sets the shared tree; owned from now on.
    static void setTreeConfig(TreeConfig* config);
    static TreeConfig* getTreeConfig();

    /// Sets the service behind `readLock` and `writeLock`; owned from now on.
    static void setLockProvider(ComponentLockProvider* provider);
    static ComponentLockProvider* getLockProvider();

    /// The object of an id, made if needed.
    /// @throws TavrelException "invalid id in getComponent." if the id is not from 0 to below the maximum
    /// count
    static Component* getComponent(int id);

    /// The object of a free id: the next one while the tree grows, otherwise the one that has been free
    /// longest. The id counts as taken only when the node is stamped, so the caller holds a write section
    /// around both.
    /// @throws TavrelException "invalid id in getComponent." if the tree is full
    static Component* getComponent();

    /// The root, id 0. Refreshes.
    static Component* getRoot();

    /// Appends the object of each id to `out`, in order.
    /// @throws TavrelException "invalid id in getComponent."; `out` then keeps the objects before it
    static void getComponent(std::vector<int>& ids, std::vector<Component*>& out);

    /// Tears down the whole state of the process: all components, the resolver, the tree, the lock provider,
    /// the classes with their actions, the resources. Afterwards the process may build again.
    /// Threads: none may be inside the library.
    static void deleteAll();

    // --- identity ---

    /// The id; no lock.
    int getComponentId();

    /// Brings the revision that this object last saw up to date and returns it; raises no `TavrelException`,
    /// so that a failing lock shows only as an old value.
    /// Locks: a write section.
    int getRevision();

    /// The revision that this object last saw; read from the node if it has seen none.
    /// Locks: a read section, only if it has seen none.
    int getCurrentRevision();

    /// Compares the node's revision with the one last seen, and takes it over.
    /// @throws UnavailableComponentException "rev changed." if they differ and one had been seen; once a
    /// change
    /// Locks: the caller holds a section.
    void update();

    /// Type of the node, 0 for a free or unknown one. Locks: a read section.
    int getType();

    /// Number of the node among children of its type, -1 for an unknown one. Locks: a read section.
    int getNo();

    /// Stamps the node with its type and another number. Locks: a write section.
    void setNo(int number);

    /// Turns the node into a fresh one of `type`: removes its properties and owned subtree, numbers it behind
    /// the last sibling of that type and builds the default subtree of its class.
    /// @throws TavrelException "invalid id in getComponent." if the tree is full
    /// Locks: a write section.
    void setType(int type);

    /// Writes type and number into the node. @return the revision that the node got
    /// Locks: the caller holds a write section.
    int setUp(int type, int number);

    // --- links ---

    /// Makes an owned child of `type`, with the default subtree of its class.
    /// @throws TavrelException "invalid id in getComponent." if the tree is full; the tree stays as it was
    /// unless the subtree had been begun
    /// Locks: a write section.
    void createComponent(int type);

    /// Unlinks this node and frees it with its owned subtree; shared children are only unlinked.
    /// Locks: a write section.
    void deleteComponent();

    /// Frees the owned subtree below this node and clears its properties; the node itself stays.
    /// Locks: the caller holds a write section.
    void clear();

    /// Attaches `child` in the shared relation; nothing if it is null. Refused, with a trace record only,
    /// beside an owned child of the same type.
    /// Locks: a write section, none for null.
    void addComponent(Component* child);

    /// The same for a list, whose entries must not be null; refused ones are skipped.
    /// Locks: one write section.
    void addComponent(const std::vector<Component*>& children);

    /// Detaches `child` from the shared relation; nothing if it is null.
    /// Locks: a write section, none for null.
    void removeComponent(Component* child);

    /// True if `component` is a child in either relation; false for null. Refreshes. Locks: a read section.
    bool contains(Component* component);

    /// The owner, null if there is none. Refreshes. Locks: a read section.
    Component* getParent();

    /// Appends the owner and the sharing parents. Refreshes. Locks: a read section.
    void getParents(std::vector<Component*>& out);

    /// Appends the owner and the sharing parents of one type. Refreshes. Locks: a read section.
    void getParents(int type, std::vector<Component*>& out);

    /// The owned child of `type` with this number; without one, the shared child of `type` at this position,
    /// counted from 0; otherwise null. Refreshes.
    /// Locks: a read section.
    Component* getComponent(int type, int number);

    /// Appends the owned children and, unless `ownedOnly`, behind them the shared ones. Refreshes.
    /// Locks: a read section.
    void getComponent(std::vector<Component*>& out, bool ownedOnly);

    /// Appends the children of both relations of one type; none for a type below 1. Refreshes.
    /// Locks: a read section.
    void getComponent(int type, std::vector<Component*>& out);

    /// Appends the way from the root to this component. Locks: a read section.
    void getTreePath(TreePath& path);

    /// Calls `visitor->visit(this)`.
    void accept(ComponentVisitor* visitor);

    // --- the lock of this component ---

    /// Takes a read lock on this component and its subtree; waits without limit. Refreshes.
    /// @throws TavrelException  the provider failed; nothing is held
    void readLock();

    /// Gives a read lock back; never reports a failure. The same thread as for `readLock`.
    void readUnlock();

    /// Takes a write lock on this component and its subtree; waits without limit. On the root it also opens a
    /// write section that lasts until `writeUnlock`, which freezes the whole tree against all others.
    /// Refreshes, also once the lock is held.
    /// @throws TavrelException  the provider failed; nothing is held
    /// @throws what the tree's own lock or load raises; the component's lock is then held, and `writeUnlock`
    /// gives it back
    void writeLock();

    /// Gives a write lock back; never reports a failure. The same thread as for `writeLock`.
    void writeUnlock();

    // --- properties, actions, features ---

    /// Reads part of one property of this component into `buffer`.
    ///
    /// @param key     property key of the component's class
    /// @param offset  first byte wanted, counted from the start of the property
    /// @param buffer  receives at most `size` bytes; untouched on failure
    /// @return bytes delivered; 0 when the class or the store has none
    /// @throws UnavailableComponentException "rev changed." if the node changed since this object last saw it
    /// Locks: a tree write section of this process for the whole call; may refresh from other processes.
    int getProperty(int key, long offset, void* buffer, unsigned int size);

    /// The same from offset 0.
    int getProperty(int key, void* buffer, unsigned int size);

    /// A 4-byte property, stored most significant byte first; 0 when it cannot be read.
    /// @throws UnavailableComponentException "rev changed."
    int getProperty(int key);

    /// Writes part of one property of this component.
    ///
    /// @param key     property key of the component's class
    /// @param offset  where the first byte goes, counted from the start of the property
    /// @param data    holds `size` bytes
    /// @return bytes stored, cut to the size of the property; 0 when the class has no such property or the
    /// store failed
    /// @throws UnavailableComponentException "rev changed." if the node changed since this object last saw it
    /// Locks: a tree write section of this process for the whole call; may refresh from other processes.
    int setProperty(int key, long offset, const void* data, unsigned int size);

    /// The same at offset 0.
    int setProperty(int key, const void* data, unsigned int size);

    /// Stores a 4-byte property, most significant byte first.
    /// @throws UnavailableComponentException "rev changed."
    int setProperty(int key, int value);

    /// Appends the keys of the class, then removes every key below 256 from the whole of `keys`.
    /// Locks: a read section.
    void getPropertyKeys(std::vector<int>& keys);

    /// Size of a property in bytes; 0 when the class has none. Locks: a read section.
    unsigned int getPropertySize(int key);

    /// Clears the properties with keys of 256 and above; a failure is only traced.
    /// Locks: the caller holds a write section.
    void clearProperties();

    /// Runs an action of the class on this component. An id without an action runs `NullAction`.
    ///
    /// @param in   input of the action, `inSize` bytes; may be null
    /// @param out  output of the action, `outSize` bytes; may be null
    /// @throws what the action raises
    /// Locks: none while the action runs.
    void doAction(int actionId, const void* in, unsigned int inSize, void* out, unsigned int outSize);

    /// The same with null buffers.
    void doAction(int actionId);

    /// Appends the action ids of the class and sorts the whole of `ids`. Locks: a read section.
    void getActionIds(std::vector<int>& ids);

    /// True if the class has the feature. Locks: a read section.
    bool hasFeature(int feature);

    /// Appends the children of both relations whose class has the feature. Refreshes. Locks: a read section.
    void getFeatured(int feature, std::vector<Component*>& out);

    // --- searches: depth first, owned children before shared ones, each component once ---

    /// Appends the components of one type in the subtree; does not look below a match; none for a type below
    /// 1. Refreshes.
    /// Locks: one read section.
    void findComponent(int type, std::vector<Component*>& out, bool includeSelf);

    /// Appends the components in the subtree whose class has the feature; looks below a match as well.
    /// Refreshes.
    /// Locks: one read section.
    void findFeatured(int feature, std::vector<Component*>& out, bool includeSelf);

    /// One step of the search. Locks: the caller holds a read section.
    void findComponent(std::set<Component*>& visited, int type, std::vector<Component*>& out,
                       bool includeSelf);

    /// One step of the search. Locks: the caller holds a read section.
    void findFeatured(std::set<Component*>& visited, int feature, std::vector<Component*>& out,
                      bool includeSelf);

    /// Stamps the node and builds the default subtree of its class beneath it.
    /// @throws TavrelException "invalid id in getComponent." if the tree is full; what was built stays linked
    /// Locks: the caller holds a write section.
    void configure(int type, int number);

    /// "Component[id=..,revision=..,type=..,no=..]". Locks: a write section, then read sections.
    virtual std::string toString();

    /// Added to every number that `setUp` writes; nothing is subtracted on reading.
    static int BASE_COMPO_NUMBER;

private:
    explicit Component(int id);

    static void refresh(int level);
    static std::vector<int> children(int id, bool ownedOnly);
    void clear(int depth);
    void openTree();
    void closeTree();
    bool isRoot();
    ComponentClass* getClass();
    void updateForProperty();

    int id;
    std::atomic<int> revision;
    std::atomic<std::uint8_t> readLockCount;
    std::atomic<std::uint8_t> writeLockCount;

    static std::vector<Component*> componentList;
    static TreeConfig* config;
    static ComponentLockProvider* provider;
    static NameResolver* resolver;
    static pthread_mutex_t mutex;
    static int nMax;
    static GuardSection refreshGuard;
};

} // namespace qz::tavrel
