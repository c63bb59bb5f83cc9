#include "base/Fault.h"
#include "base/Trace.h"
#include "build/ComponentNames.h"

#include <qz/tavrel/Builder.h>
#include <qz/tavrel/Component.h>
#include <qz/tavrel/ComponentLockProvider.h>
#include <qz/tavrel/Factory.h>
#include <qz/tavrel/Initializer.h>
#include <qz/tavrel/LockObject.h>
#include <qz/tavrel/NameResolver.h>
#include <qz/tavrel/Resource.h>
#include <qz/tavrel/ResourceManager.h>
#include <qz/tavrel/Specification.h>
#include <qz/tavrel/TreeConfig.h>

#include <libgen.h>

#include <cstring>
#include <memory>

namespace qz::tavrel {

namespace point = internal::point;
using internal::trace;
using internal::traceText;

namespace {

constexpr const char* defaults[][2] = {
    {"tavrel.compo.ver", ""},
    {"tavrel.compo.max", "4096"},
    {"tavrel.compo.shared", "enable"},
    {"tavrel.compo.type", ""},
    {"tavrel.spec.compo", ""},
    {"tavrel.spec.action", ""},
    {"tavrel.spec.res", ""},
    {"tavrel.res.type", "VolatileDB"},
    {"tavrel.res.name", "tavrel.db"},
    {"tavrel.lock.provider", "TreePathLockProvider"},
    {"tavrel.lock.recursive", "disable"},
    {"tavrel.initializer", "disable"},
    {"tavrel.history", ""},
};

constexpr const char* pathKeys[] = {"tavrel.spec.compo", "tavrel.spec.action", "tavrel.spec.res",
                                    "tavrel.resolver"};

constexpr std::size_t longestPath = 512;

std::string directoryOf(const std::string& path) {
    char buffer[longestPath + 1] = {};
    path.copy(buffer, longestPath);
    return dirname(buffer);
}

} // namespace

Builder::Builder()
    : properties(false),
      factory(nullptr),
      resolver(nullptr),
      lockProvider(nullptr),
      treeConfig(nullptr),
      compoSpec(nullptr),
      actionSpec(nullptr) {
    init();
}

Builder::~Builder() {
    delete actionSpec;
    delete compoSpec;
}

void Builder::init() {
    properties.clear();
    for (const auto& [key, value] : defaults) {
        properties.setProperty(key, value);
    }
}

void Builder::setFactory(Factory* newFactory) {
    factory = newFactory;
}

void Builder::load(const std::string& path) {
    properties.setProperty("tavrel.compo.shared", "disable");
    loadConfig(path);
    loadClass();
}

void Builder::load(const std::string& path, const std::string& actionSpecPath) {
    properties.setProperty("tavrel.compo.shared", "enable");
    loadConfig(path);
    properties.setProperty("tavrel.spec.action", actionSpecPath);
    loadClass();
}

void Builder::loadConfig(const std::string& path) {
    util::config::CppProperties file(false);
    file.load(path);
    std::vector<std::string> keys;
    properties.getKeys(keys);
    for (const std::string& key : keys) {
        const std::string value = file.getProperty(key);
        if (!value.empty()) {
            properties.setProperty(key, value);
        }
    }
    const std::string directory = directoryOf(path);
    for (const char* const key : pathKeys) {
        modifyPath(key, directory);
    }
}

void Builder::modifyPath(const char* key, const std::string& directory) {
    const std::string value = properties.getProperty(key);
    if (!value.empty() && value.front() != '/') {
        properties.setProperty(key, directory + "/" + value);
    }
}

void Builder::configResource() {
    const std::string path = properties.getProperty("tavrel.spec.res");
    if (path.empty()) {
        trace(point::BuilderNoResourceSpec);
        return;
    }
    util::config::CppProperties redirections(true);
    redirections.load(path);
    std::vector<std::string> keys;
    redirections.getKeys(keys);
    for (const std::string& key : keys) {
        const std::size_t dot = key.rfind('.');
        if (dot == std::string::npos) {
            continue;
        }
        const int source = getResourceId(key.substr(dot + 1));
        const int target = getResourceId(redirections.getProperty(key));
        ResourceManager::getInstance()->addRedirection(key.substr(0, dot), source, target);
    }
}

NameResolver* Builder::getResolver() {
    if (resolver == nullptr) {
        resolver = static_cast<NameResolver*>(factory->createInstance("NameResolver"));
    }
    return resolver;
}

ComponentLockProvider* Builder::getLockProvider() {
    if (lockProvider == nullptr) {
        std::unique_ptr<ComponentLockProvider> made(static_cast<ComponentLockProvider*>(
            factory->createInstance(properties.getProperty("tavrel.lock.provider"))));
        made->setConfigurations(properties);
        made->initialize();
        lockProvider = made.release();
    }
    return lockProvider;
}

Initializer* Builder::getInitializer() {
    if (properties.getProperty("tavrel.initializer") != "enable") {
        return nullptr;
    }
    return static_cast<Initializer*>(factory->createInstance("Initializer"));
}

TreeConfig* Builder::getTreeConfig() {
    if (treeConfig == nullptr) {
        auto made = std::make_unique<TreeConfig>();
        const std::string history = properties.getProperty("tavrel.history");
        if (!history.empty()) {
            made->assign(history);
        }
        Resource* const resource = getResource();
        made->assign(resource, new SemRWLock(0));
        treeConfig = made.release();
    }
    return treeConfig;
}

Specification* Builder::getCompoSpec() {
    if (compoSpec == nullptr) {
        std::unique_ptr<Specification> made;
        try {
            made.reset(static_cast<Specification*>(factory->createInstance("Specification")));
            made->load(properties.getProperty("tavrel.spec.compo"));
        } catch (...) {
            trace(point::BuilderCompoSpecFailed);
            throw;
        }
        compoSpec = made.release();
    }
    return compoSpec;
}

Specification* Builder::getActionSpec() {
    if (actionSpec == nullptr) {
        const std::string path = properties.getProperty("tavrel.spec.action");
        std::unique_ptr<Specification> made;
        try {
            made.reset(static_cast<Specification*>(factory->createInstance("Specification")));
            if (!path.empty()) {
                made->load(path);
            }
        } catch (...) {
            trace(point::BuilderActionSpecFailed);
            throw;
        }
        actionSpec = made.release();
    }
    return actionSpec;
}

Resource* Builder::getResource(const std::string& type, const std::string& name) {
    const std::string key = type + "::" + name;
    const auto known = resourceTable.find(key);
    if (known != resourceTable.end()) {
        return known->second;
    }
    std::unique_ptr<Resource> made(static_cast<Resource*>(factory->createInstance(type)));
    if (made == nullptr) {
        traceText(point::BuilderResourceTypeUnknown, type.c_str());
        internal::raise("Builder", "getResource", "build aborted.");
    }
    try {
        made->initialize(name);
    } catch (...) {
        traceText(point::BuilderResourceFailed, name.c_str());
        throw;
    }
    resourceTable[key] = made.get();
    return made.release();
}

Resource* Builder::getResource() {
    return ResourceManager::getInstance()->getResource(getResourceId());
}

int Builder::getResourceId(const std::string& name) {
    ResourceManager* const manager = ResourceManager::getInstance();
    const int known = manager->getResourceId(name);
    if (known != -1) {
        return known;
    }
    return manager->addResource(name, getResource(properties.getProperty("tavrel.res.type"), name));
}

int Builder::getResourceId() {
    return getResourceId(properties.getProperty("tavrel.res.name"));
}

void Builder::getComponentNames(std::vector<std::string>& names) {
    internal::appendComponentNames(*getCompoSpec(), names, point::BuilderRowSkipped);
}

} // namespace qz::tavrel
