#include "base/Fault.h"
#include "base/Trace.h"
#include "store/ResourceGuard.h"

#include <qz/tavrel/Builder.h>
#include <qz/tavrel/Component.h>
#include <qz/tavrel/Initializer.h>
#include <qz/tavrel/NameResolver.h>
#include <qz/tavrel/Resource.h>
#include <qz/tavrel/ResourceManager.h>
#include <qz/tavrel/TreeConfig.h>

#include <cstring>
#include <memory>

namespace qz::tavrel {

namespace point = internal::point;
using internal::trace;
using internal::traceText;

namespace {

constexpr int versionKey = 0; // of the default resource
constexpr unsigned int versionSize = 16;

class [[nodiscard]] RootGuard {
public:
    explicit RootGuard(Component* held) : root(held) { root->writeLock(); }
    ~RootGuard() { root->writeUnlock(); }
    RootGuard(const RootGuard&) = delete;
    RootGuard& operator=(const RootGuard&) = delete;

private:
    Component* root;
};

class [[nodiscard]] AllResourcesGuard {
public:
    AllResourcesGuard() { ResourceManager::getInstance()->lock(); }
    ~AllResourcesGuard() { ResourceManager::getInstance()->unlock(); }
    AllResourcesGuard(const AllResourcesGuard&) = delete;
    AllResourcesGuard& operator=(const AllResourcesGuard&) = delete;
};

enum class Stored { none, same, other };

/// Compares the stored version with the configured one. A stored version that fills all its bytes has been
/// cut, so it equals none.
Stored compareVersion(Resource& resource, const std::string& version) {
    char stored[versionSize] = {};
    if (resource.read(versionKey, stored, versionSize) == 0 || version.empty()) {
        return Stored::none;
    }
    const std::size_t length = strnlen(stored, versionSize);
    return length < versionSize && version == stored ? Stored::same : Stored::other;
}

} // namespace

void Builder::build() {
    const std::string type = properties.getProperty("tavrel.compo.type");
    if (!type.empty()) {
        build(type);
        return;
    }
    std::vector<std::string> names;
    getComponentNames(names);
    if (names.empty()) {
        internal::raise("Builder", "build", "root compo type is not found.");
    }
    build(names.front());
}

void Builder::build(const std::string& type) {
    trace(point::BuilderBuild);
    std::string version = properties.getProperty("tavrel.compo.ver");
    Resource* const resource = getResource();
    const internal::ResourceGuard resourceGuard(resource);
    if (compareVersion(*resource, version) == Stored::same) {
        trace(point::BuilderVersionUnchanged);
        return;
    }

    Component* const root = Component::getRoot();
    const RootGuard rootGuard(root);
    // Asked once more: another process may have done the work while this one waited for the root.
    const Stored stored = compareVersion(*resource, version);
    if (stored == Stored::same) {
        trace(point::BuilderVersionUnchanged);
        return;
    }
    if (stored == Stored::none) {
        traceText(point::BuilderVersion, version.empty() ? "non" : version.c_str());
        traceText(point::BuilderRootType, type.c_str());
        root->setType(getResolver()->getComponentType(type));
        trace(point::BuilderRootTypeSet);
    }
    const AllResourcesGuard allResources;
    const std::unique_ptr<Initializer> initializer(getInitializer());
    if (initializer != nullptr) {
        initializer->run(stored == Stored::other);
    }
    // The tree has to be in the store before the version that vouches for it, not only when the root is
    // unlocked. A process that dies before the version is written leaves the old one, and the next process
    // does the work again.
    Component::getTreeConfig()->save();
    version.resize(versionSize);
    resource->write(versionKey, version.data(), versionSize);
    trace(point::BuilderBuilt);
}

} // namespace qz::tavrel
