/// @file
/// The stores of a process and which of them serves a component.
#pragma once

#include <qz/tavrel/Configuration.h>
#include <qz/tavrel/Counter.h>

#include <pthread.h>

#include <map>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace qz::tavrel {

class Resource;

/// The registry of all stores of a process, by id and by name, with the redirections.
///
/// A redirection says that for components below some path of the tree one store stands in place of another,
/// as long as a component exists at that path. The answer for a component is worked out once and kept until
/// the tree changes: the manager is a listener of `TreeConfig`.
///
/// Locks: a recursive mutex for each operation. The tree's lock comes before it, and the tree is only asked
/// while the operation itself does not hold it.
/// Threads: any.
class ResourceManager : public EventListener {
public:
    /// What holds for the components below one path.
    struct Redirection {
        bool active = true;           ///< a component exists at `path`
        std::string path;             ///< text form of a tree path
        int depth = 0;                ///< how many "/" are in `path`
        std::map<int, int> redirects; ///< configured store id to the id that stands in its place
    };

    /// The manager of this process; made at the first call, never destroyed.
    static ResourceManager* getInstance();

    /// An empty registry of its own, for a test.
    ResourceManager();
    ResourceManager(const ResourceManager&) = delete;
    ResourceManager& operator=(const ResourceManager&) = delete;

    /// Frees the tables, not the stores.
    ~ResourceManager() override;

    /// For event 0, `update()`.
    void update(void* source, int event) override;

    /// Registers a store, which the manager owns from now on.
    /// @return its id, from 0 without gaps; the old id for the same pair again; -1, and no change of owner,
    /// for an empty name, no store, or when name or store is registered with another partner
    int addResource(const std::string& name, Resource* resource);

    /// The id of a name; -1 when there is none.
    int getResourceId(const std::string& name);

    /// The store of an id; null for an unknown one. No redirection.
    Resource* getResource(int id);

    /// The store that serves component `componentId` in place of `resourceId`; null for an unknown one.
    /// @throws TavrelException  what `Component::getComponent` raises for an id that it does not take
    /// Locks: at the first question about a component, those of `Component::getTreePath`.
    Resource* getResource(int componentId, int resourceId);

    /// The store that serves the component at `path`, in text form, in place of `resourceId`; null for an
    /// unknown one. Keeps no answer.
    Resource* getResource(const std::string& path, int resourceId);

    /// The name of an id; empty for an unknown one.
    std::string getResourceName(int id);

    /// The name of a store; empty for one that is not registered.
    std::string getResourceName(Resource* resource);

    /// Lets `targetId` stand in place of `resourceId` below `path`. It counts at once, also before there is a
    /// tree. A second one for the same path and store is refused with an error record.
    void addRedirection(const std::string& path, int resourceId, int targetId);

    /// Adds what holds for `path` to `out`; what `out` has already stays. A deeper redirection goes before
    /// one above it. The test is a plain one of text: "/A#1" also covers "/A#10".
    void getRedirection(const std::string& path, std::map<int, int>& out);

    /// Finds out for each redirection whether a component exists at its path.
    /// Locks: those of `TreePath::getComponent`.
    void evaluateOwners();

    /// Forgets the answers about components, then `evaluateOwners()`.
    void update();

    /// Locks all stores in ascending order of id, and keeps other threads out of the manager until the
    /// outermost `unlock()`. Nests on one thread.
    void lock();

    /// Takes back one `lock()`; the outermost one unlocks all stores in descending order of id.
    void unlock();

    /// Deletes all stores and forgets all redirections; ids start from 0 again.
    void clear();

    /// The order of redirections: true if `a` is deeper or, failing that, if its path is the greater text.
    /// No strict order: it may hold both ways round.
    static bool path_descend(const Redirection& a, const Redirection& b);

private:
    pthread_mutex_t mutex;
    std::map<int, std::pair<std::string, Resource*>> resources;
    std::vector<Redirection> redirections;
    std::unordered_map<int, std::map<int, int>> ownerRedirections;
    Counter lockCount;
    unsigned int generation; ///< rises whenever the answers about components are forgotten

    Resource* find(int id);
    void forgetOwners();
    void setActive(const std::string& path, bool active);
};

} // namespace qz::tavrel
