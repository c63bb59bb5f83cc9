#include "Session.h"

#include "CacheCheck.h"
#include "InputCheck.h"
#include "Names.h"
#include "Refusal.h"
#include "Sections.h"
#include "StoredValues.h"
#include "Structure.h"
#include "ToolFactory.h"
#include "TreeCheck.h"
#include "chassis/NamesFile.h"

#include <qz/tavrel/Builder.h>
#include <qz/tavrel/Component.h>
#include <qz/tavrel/ComponentClass.h>
#include <qz/tavrel/NameResolver.h>
#include <qz/tavrel/QZException.h>
#include <qz/tavrel/Resource.h>
#include <qz/tavrel/ResourceManager.h>
#include <qz/tavrel/TreeConfig.h>

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>

using namespace qz::tavrel;

namespace tavrel::tool {

namespace {

namespace fs = std::filesystem;

/// Bytes of the stored version.
constexpr unsigned int versionSize = 16;

/// Where the library caches a component specification for the tool's resolver.
std::string cacheOf(std::string specification) {
    std::replace(specification.begin(), specification.end(), '/', '.');
    return "/tmp/cache.of." + specification + ".resolved.by.chassis::NamesFile";
}

/// When a file was last written; the earliest time there is for one that is missing.
fs::file_time_type written(const std::string& path) {
    std::error_code error;
    const auto time = fs::last_write_time(path, error);
    return error ? fs::file_time_type::min() : time;
}

/// The library ends the process when it cannot read back the cache that it has just written.
class AbortReason {
public:
    AbortReason() : before(std::signal(SIGABRT, tell)) {}
    ~AbortReason() { std::signal(SIGABRT, before); }
    AbortReason(const AbortReason&) = delete;
    AbortReason& operator=(const AbortReason&) = delete;

private:
    static void tell(int) {
        constexpr char text[] = "tavrel: the specification cache in /tmp cannot be written and read back\n";
        [[maybe_unused]] const ssize_t done = write(STDERR_FILENO, text, sizeof text - 1);
        _exit(1);
    }

    void (*before)(int);
};

std::string storedVersion(Builder& builder) {
    char version[versionSize + 1] = {};
    Resource* store = builder.getResource();
    store->lock();
    store->read(0, version, versionSize);
    store->unlock();
    return version;
}

/// Where the tree is stored, for a reason.
std::string treePlace(const StartInput& input) {
    const bool isFile = input.stores.builtIn;
    return "'" + (isFile ? storePath(input.stores.byDefault) : input.stores.byDefault) + "'";
}

StoredValues valuesNow(ValueSize size) {
    const TreeSection section;
    return storedValues(size);
}

std::string startFault(const std::string& text, int max) {
    if (text.find("spec error") != std::string::npos) {
        return "the specification needs more than tavrel.compo.max = " + std::to_string(max) +
               " components, or a type contains itself";
    }
    return "the tree cannot be started: " + text;
}

} // namespace

Session::Session(const StartFiles& files, Entry entry, std::vector<std::string>& notes)
    : input(checkStart(files, notes)) {
    try {
        start(entry, notes);
    } catch (const Refusal&) {
        Component::deleteAll();
        throw;
    } catch (const std::exception& fault) {
        Component::deleteAll();
        throw Refusal(startFault(fault.what(), input.max));
    }
}

Session::~Session() {
    Component::deleteAll();
}

void Session::requireStored() const {
    const TreeSection section;
    ResourceManager* stores = ResourceManager::getInstance();
    TreeConfig stored;
    stored.assign(stores->getResource(stores->getResourceId(input.stores.byDefault)), nullptr);
    stored.load();

    TreeConfig* tree = Component::getTreeConfig();
    bool same = stored.getNodeCount() == tree->getNodeCount();
    for (int id = 0; same && id < tree->getNodeCount(); ++id) {
        same =
            stored.getNodeRevision(id) == tree->getNodeRevision(id) && stored.getSrc(id) == tree->getSrc(id);
    }
    if (!same) {
        throw Refusal("the store " + treePlace(input) + " has not taken the change of the tree; is it full?");
    }
}

NameResolver& Session::names() {
    return *Component::getNameResolver();
}

std::vector<std::string> Session::typeNames() {
    std::vector<std::string> types;
    for (const auto& [name, value] : namesOf(names(), Types)) {
        if (value > 0 && ComponentClass::get(value) != nullptr) {
            types.push_back(name);
        }
    }
    return types;
}

void Session::start(Entry entry, std::vector<std::string>& notes) {
    factory = std::make_unique<ToolFactory>(input.names, input.classes, input.services);
    started.cache = cacheOf(input.components);
    {
        chassis::NamesFile names(input.names);
        checkCache(started.cache, input.components, input.names, names);
    }
    const auto cached = written(started.cache);

    Builder builder;
    builder.setFactory(factory.get());
    try {
        const AbortReason reason;
        builder.load(input.config);
    } catch (...) {
        if (Component::getNameResolver() == nullptr) {
            delete builder.getResolver(); // nobody else's until the builder has handed it on
        }
        throw;
    }
    started.cacheFound = cached != fs::file_time_type::min() && cached == written(started.cache);
    for (const std::string& source : input.sources) {
        if (started.cacheFound && written(source) > cached) {
            notes.push_back("'" + source + "' is newer than the specification cache '" + started.cache +
                            "': its changes count once the cache is gone, as after a restart");
        }
    }
    build(builder, entry, notes);
}

void Session::build(Builder& builder, Entry entry, std::vector<std::string>& notes) {
    const std::string rootType = input.properties.getProperty("tavrel.compo.type");
    if (!rootType.empty()) {
        valueOf(names(), Types, "root type", rootType, typeNames());
    }
    started.configuredVersion = input.properties.getProperty("tavrel.compo.ver");
    started.storedVersion = storedVersion(builder);
    if (!started.storedVersion.empty()) {
        checkTree(input.max, treePlace(input));
        checkRoot();
    }

    using Kind = StartReport::Kind;
    started.kind = started.storedVersion.empty() || started.configuredVersion.empty() ? Kind::Built
                   : started.storedVersion == started.configuredVersion               ? Kind::Joined
                                                                                      : Kind::Migrated;
    requireEntry(entry);
    if (started.configuredVersion.empty()) {
        notes.push_back(
            "'" + input.config +
            "' names no version (tavrel.compo.ver): each process that starts builds the tree anew");
    } else if (started.kind == Kind::Built && entry == Entry::Join) {
        notes.push_back("there was no tree in " + treePlace(input) + ": it was built");
    }
    if (started.kind == Kind::Joined && entry == Entry::Join) {
        return;
    }
    const StoredValues before =
        started.kind == Kind::Migrated ? valuesNow(ValueSize::Stored) : StoredValues();
    builder.build();
    if (!started.configuredVersion.empty() && storedVersion(builder) != started.configuredVersion) {
        throw Refusal("the store " + treePlace(input) +
                      " has not taken the version; is there room for the tree, and may it be written?");
    }
    if (started.kind == Kind::Migrated) {
        started.changes = differences(before, valuesNow(ValueSize::Configured));
        started.structure = structureDifference();
    }
}

void Session::requireEntry(Entry entry) const {
    if (entry == Entry::Start || started.kind == StartReport::Kind::Joined) {
        return;
    }
    if (started.configuredVersion.empty()) {
        throw Refusal(
            "'" + input.config +
            "' names no version (tavrel.compo.ver), so that each start builds the tree anew: run `tavrel "
            "start` if that is wanted");
    }
    if (started.kind == StartReport::Kind::Migrated) {
        throw Refusal("the tree in " + treePlace(input) + " has version '" + started.storedVersion + "', '" +
                      input.config + "' names '" + started.configuredVersion +
                      "': run `tavrel start` to migrate it");
    }
}

void Session::checkRoot() const {
    if (Component::getRoot()->getType() == 0) {
        throw Refusal("the store " + treePlace(input) + " holds version '" + started.storedVersion +
                      "' but no tree: it is damaged, or belongs to another specification");
    }
}

} // namespace tavrel::tool
