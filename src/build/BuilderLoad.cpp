#include "base/Decimal.h"
#include "base/Fault.h"
#include "base/Guards.h"
#include "base/Trace.h"
#include "tree/TreeSections.h"

#include <qz/tavrel/Builder.h>
#include <qz/tavrel/Component.h>
#include <qz/tavrel/ComponentCSVCache.h>
#include <qz/tavrel/ComponentClass.h>
#include <qz/tavrel/ComponentLockProvider.h>
#include <qz/tavrel/LockObject.h>
#include <qz/tavrel/NameResolver.h>
#include <qz/tavrel/ResourceManager.h>
#include <qz/tavrel/TreeConfig.h>

#include <cxxabi.h>
#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <memory>
#include <typeinfo>

namespace qz::tavrel {

namespace point = internal::point;
using internal::trace;
using internal::traceText;

namespace {

constexpr const char* cacheKey = "tavrel.spec.compo.cache";

/// Keeps all other processes that use one component specification away from its cache for a scope. If this
/// process dies, the lock ends with it.
class [[nodiscard]] FileLocker {
public:
    explicit FileLocker(const std::string& specification)
        : path(specification), file(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
        if (!file.isOpen()) {
            traceText(point::CompoSpecNotOpened, path.c_str());
            internal::raise("Builder", "FileLocker", "invalid args");
        }
        while (flock(file.number(), LOCK_EX) == -1 && errno == EINTR) {
        }
    }
    /// Unlocks by itself: a child that another thread has forked meanwhile has the descriptor too.
    ~FileLocker() { flock(file.number(), LOCK_UN); }
    FileLocker(const FileLocker&) = delete;
    FileLocker& operator=(const FileLocker&) = delete;

private:
    std::string path;
    internal::Descriptor file;
};

/// The run-time class of an object in readable form, with its namespaces.
std::string classNameOf(const NameResolver& object) {
    const char* raw = typeid(object).name();
    if (*raw == '*') {
        ++raw;
    }
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> readable(
        abi::__cxa_demangle(raw, nullptr, nullptr, &status), &std::free);
    return status == 0 ? readable.get() : raw;
}

} // namespace

/// Where the cache of this specification for this class of resolver is: the cache holds that resolver's
/// numbers.
std::string Builder::cachePath() {
    std::string path = properties.getProperty(cacheKey);
    if (path.empty()) {
        std::string specification = properties.getProperty("tavrel.spec.compo");
        std::replace(specification.begin(), specification.end(), '/', '.');
        path = "/tmp/cache.of." + specification + ".resolved.by." + classNameOf(*getResolver());
        properties.setProperty(cacheKey, path);
    }
    return path;
}

/// Loads the cache, after writing it if it is missing or bad; alone among the processes of this
/// specification.
void Builder::loadCache(ComponentCSVCache& cache) {
    const FileLocker locker(properties.getProperty("tavrel.spec.compo"));
    const std::string path = cachePath();
    trace(point::CacheLoad);
    if (cache.load(path)) {
        trace(point::CacheHit);
        return;
    }
    trace(point::CacheMiss);
    // Whether the writing worked shows in the loading. A process that dies in between leaves a short file,
    // which the next one finds bad and writes anew.
    ComponentCSVCacheSave(getCompoSpec(), getResolver()).save(path);
    if (!cache.load(path)) {
        trace(point::CacheUnreadable);
        std::abort();
    }
    trace(point::CacheRegenerated);
}

void Builder::loadClass() {
    trace(point::BuilderLoadClass);
    getResolver();
    ComponentCSVCache cache;
    loadCache(cache);
    try {
        cache.build(getActionSpec(), factory, this);
    } catch (...) {
        trace(point::BuilderClassesFailed);
        ComponentClass::deleteAll();
        actionTable.clear();
        resourceTable.clear();
        throw;
    }
    const int limit = internal::decimal(properties.getProperty("tavrel.compo.max"));
    // A type that contains itself needs without end.
    const bool endless = !ComponentClass::isAcyclic();
    const int needed = endless ? std::numeric_limits<int>::max() : ComponentClass::getMaxComponentCount();
    if (endless || needed > limit) {
        trace(point::BuilderTooManyComponents, needed, limit);
        internal::raise("Builder", "loadClass", "spec error");
    }
    wireUp(limit);
}

/// Hands everything to `Component`, in an order that matters, and loads the stored tree.
void Builder::wireUp(int maxCount) {
    Component::setMaxCount(maxCount);
    configResource();
    Component::setNameResolver(resolver);
    Component::setTreeConfig(getTreeConfig());
    Component::setLockProvider(getLockProvider());
    treeConfig->addListener(lockProvider);
    treeConfig->addListener(ResourceManager::getInstance());
    SemRWLock::initialize(1);

    const internal::SharedSection loaded(treeConfig);
    trace(point::BuilderClassesLoaded);
}

} // namespace qz::tavrel
