/// @file
/// From a properties file to a running tree.
#pragma once

#include <qz/util/config/CppProperties.h>

#include <map>
#include <string>
#include <vector>

namespace qz::tavrel {

class Action;
class ComponentLockProvider;
class Factory;
class Initializer;
class NameResolver;
class Resource;
class Specification;
class TreeConfig;

/// Turns one properties file, and the specification files that it names, into the running state of this
/// process, and brings the shared tree to the configured version. Every process runs it once, at its start:
/// construct, `setFactory`, `load`, `build`; it may be destroyed afterwards.
///
/// The file's keys, their defaults in brackets:
/// - `tavrel.compo.ver` (empty): version of the specifications, below 16 characters; empty rebuilds the tree
///   at each start
/// - `tavrel.compo.max` ("4096"): upper limit of the number of components
/// - `tavrel.compo.shared` (set by `load` before it reads the file): "enable" shares the lock table between
///   processes
/// - `tavrel.compo.type` (empty): type of the root; empty takes the first type of the component specification
/// - `tavrel.spec.compo` (empty): path of the component specification
/// - `tavrel.spec.action` (empty): path of the action specification; empty means no actions
/// - `tavrel.spec.res` (empty): path of the resource specification; empty means no redirections
/// - `tavrel.res.type` ("VolatileDB"): class of every resource; a client's factory has to know the default
/// - `tavrel.res.name` ("tavrel.db"): name of the default resource, which holds the tree
/// - `tavrel.lock.provider` ("TreePathLockProvider"): class of the lock provider
/// - `tavrel.lock.recursive` ("disable"): handed to the lock provider; nothing in the library reads it
/// - `tavrel.initializer` ("disable"): "enable" lets the `Initializer` zero and fit property values
/// - `tavrel.history` (empty): file for the history of the tree; empty means none
///
/// Other keys of the file have no effect, and an empty value keeps the default. Paths in the file are
/// relative to it.
///
/// Threads: one drives a builder. Processes are kept apart by a file lock on the component specification
/// while the cache is read or written, and by the default resource, the root and the `ResourceManager` while
/// the tree is built.
class Builder {
public:
    /// A builder with the defaults and without a factory.
    Builder();

    /// Deletes the specifications; the objects that it has made live on.
    virtual ~Builder();
    Builder(const Builder&) = delete;
    Builder& operator=(const Builder&) = delete;

    /// Sets all keys to their defaults.
    void init();

    /// Sets the maker of all objects; before everything below. Not owned; must live as long as objects are
    /// asked for.
    void setFactory(Factory* factory);

    /// Reads the properties file, makes the classes and wires the process up. The lock table is private to
    /// the process unless the file says otherwise.
    /// @throws TavrelException as `loadClass`
    void load(const std::string& path);

    /// The same, with a shared lock table unless the file says otherwise, and with the action specification
    /// at the given path, which is taken as it is.
    /// @throws TavrelException as `loadClass`
    void load(const std::string& path, const std::string& actionSpecPath);

    /// Takes the known keys of a properties file over and makes its paths absolute. A file that cannot be
    /// read shows only in the keys that stay empty.
    void loadConfig(const std::string& path);

    /// Makes the classes from the specification cache, which it writes first if it is missing or bad, and
    /// wires the process up; the tree is loaded afterwards. Ends the process with `abort()` if the cache
    /// cannot be read back.
    /// @throws TavrelException "invalid args" if the component specification cannot be opened or a class name
    /// is unknown, "spec error" if it needs more components than the limit or a type contains itself; what
    /// making classes raises
    void loadClass();

    /// Reads the resource specification: "path.source = target" puts properties of `source` into `target` for
    /// components beneath `path`. Nothing if there is none.
    /// @throws TavrelException as `getResource`
    void configResource();

    /// Puts `directory` and "/" before the value of `key`, unless it is empty or starts with "/".
    void modifyPath(const char* key, const std::string& directory);

    /// `build` with the configured root type, or else with the first type of the component specification.
    /// @throws TavrelException "root compo type is not found."; as `build(type)`
    void build();

    /// Brings the shared tree to the configured version: makes it if none is stored, fits property values if
    /// another one is, does nothing if they are equal. The version is stored last, so that a process that
    /// fails or dies on the way leaves the work to the next one.
    /// @param type  name of the root's type
    /// @throws what the tree, a store or the initializer raises
    /// Locks: the default resource, the root's write lock, the `ResourceManager`.
    void build(const std::string& type);

    /// The name resolver, made at the first call.
    NameResolver* getResolver();

    /// The lock provider, made and initialized at the first call.
    ComponentLockProvider* getLockProvider();

    /// A new initializer for the caller to delete; null unless "tavrel.initializer" is "enable".
    Initializer* getInitializer();

    /// The tree, made at the first call on the default resource.
    TreeConfig* getTreeConfig();

    /// The component specification, loaded at the first call. @throws TavrelException "invalid args"
    Specification* getCompoSpec();

    /// The action specification, loaded at the first call; an empty one if none is configured.
    /// @throws TavrelException "invalid args"
    Specification* getActionSpec();

    /// A new action from one section of the action specification; null if there is none.
    /// @throws what making the action or reading its attributes raises
    Action* getAction(const std::string& section);

    /// The action of a class, made once; else a new one from the section for every class; null without
    /// either.
    /// @throws as `getAction(section)`
    Action* getAction(const std::string& className, const std::string& actionName);

    /// The resource of a type and name, made and initialized at the first call.
    /// @throws TavrelException "build aborted." if the factory gives none; what its `initialize` raises
    Resource* getResource(const std::string& type, const std::string& name);

    /// The default resource. @throws as above
    Resource* getResource();

    /// The id of a resource in the `ResourceManager`, made with the configured type if it is new. @throws as
    /// above
    int getResourceId(const std::string& name);

    /// The id of the default resource. @throws as above
    int getResourceId();

    /// Appends every section of the component specification, then every type that is only named as a
    /// sub-component.
    /// @throws TavrelException "invalid args" if the specification cannot be loaded
    void getComponentNames(std::vector<std::string>& names);

private:
    std::string cachePath();
    void loadCache(class ComponentCSVCache& cache);
    void wireUp(int maxCount);

    util::config::CppProperties properties;
    Factory* factory;
    NameResolver* resolver;
    ComponentLockProvider* lockProvider;
    TreeConfig* treeConfig;
    Specification* compoSpec;
    Specification* actionSpec;
    std::map<std::string, Action*> actionTable;
    std::map<std::string, Resource*> resourceTable;
};

} // namespace qz::tavrel
