#include "base/Fault.h"
#include "base/Guards.h"
#include "base/Trace.h"
#include "tree/RefreshLevel.h"
#include "tree/TreeSections.h"

#include <qz/tavrel/Component.h>
#include <qz/tavrel/GuardSection.h>
#include <qz/tavrel/QZException.h>

namespace qz::tavrel {

namespace point = internal::point;
using internal::MutexGuard;
using internal::ReadSection;
using internal::trace;
using internal::WriteSection;

namespace {

constexpr int refreshInterval = 100; // milliseconds

/// Numbers wrap at 32 bits.
int sum(int a, int b) {
    return static_cast<int>(static_cast<unsigned int>(a) + static_cast<unsigned int>(b));
}

} // namespace

std::vector<Component*> Component::componentList;
TreeConfig* Component::config = nullptr;
ComponentLockProvider* Component::provider = nullptr;
NameResolver* Component::resolver = nullptr;
pthread_mutex_t Component::mutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
int Component::nMax = 1;
int Component::BASE_COMPO_NUMBER = 0;
GuardSection Component::refreshGuard(refreshInterval);

Component::Component() : Component(-1) {}

Component::Component(int ownId) : id(ownId), revision(-1), readLockCount(0), writeLockCount(0) {}

Component::~Component() {
    if (id >= 0) {
        const MutexGuard guard(mutex);
        componentList[static_cast<std::size_t>(id)] = nullptr;
        id = -1;
    }
}

// --- the process-wide state
// ------------------------------------------------------------------------------------------

void Component::setMaxCount(int count) {
    nMax = count;
}

void Component::setNameResolver(NameResolver* newResolver) {
    resolver = newResolver;
}

NameResolver* Component::getNameResolver() {
    return resolver;
}

void Component::setTreeConfig(TreeConfig* newConfig) {
    config = newConfig;
}

TreeConfig* Component::getTreeConfig() {
    return config;
}

void Component::setLockProvider(ComponentLockProvider* newProvider) {
    provider = newProvider;
}

ComponentLockProvider* Component::getLockProvider() {
    return provider;
}

Component* Component::getComponent(int id) {
    if (id < 0 || id >= nMax) {
        trace(point::ComponentInvalidId, id, 0);
        internal::raise("Component", "getComponent", "invalid id in getComponent.");
    }
    const MutexGuard guard(mutex);
    const auto index = static_cast<std::size_t>(id);
    if (index >= componentList.size()) {
        componentList.resize(index + 1);
    }
    if (componentList[index] == nullptr) {
        componentList[index] = new Component(id);
    }
    return componentList[index];
}

Component* Component::getComponent() {
    const MutexGuard guard(mutex);
    int free = config->getNodeCount();
    if (free >= nMax) {
        free = config->getUnusedNodeId();
    }
    return getComponent(free);
}

Component* Component::getRoot() {
    refresh(internal::refreshRead);
    return getComponent(0);
}

void Component::getComponent(std::vector<int>& ids, std::vector<Component*>& out) {
    for (const int id : ids) {
        out.push_back(getComponent(id));
    }
}

/// Brings the tree up to date, unless this thread did so a moment ago at `level` or below.
void Component::refresh(int level) {
    if (!refreshGuard.set(level)) {
        const WriteSection section(config);
    }
}

/// The ids of the children: owned ones, then shared ones unless `ownedOnly`.
std::vector<int> Component::children(int id, bool ownedOnly) {
    std::vector<int> ids;
    config->get(id, ids, internal::owned);
    if (!ownedOnly) {
        config->get(id, ids, internal::shared);
    }
    return ids;
}

// --- identity
// --------------------------------------------------------------------------------------------------------

int Component::getComponentId() {
    return id;
}

int Component::getRevision() {
    try {
        const WriteSection section(config);
        update();
    } catch (const TavrelException&) {
        // A change has been taken over by now; a failed lock shows as the old value.
    }
    return revision;
}

int Component::getCurrentRevision() {
    if (revision == -1) {
        const ReadSection section(config);
        revision = config->getNodeRevision(id);
    }
    return revision;
}

void Component::update() {
    const int now = config->getNodeRevision(id);
    if (now == revision) {
        return;
    }
    const int before = revision;
    revision = now;
    if (before < 0) {
        return;
    }
    trace(point::ComponentRevisionChanged, id, before, now);
    internal::raise<UnavailableComponentException>("Component", "update", "rev changed.");
}

int Component::getType() {
    const ReadSection section(config);
    return config->getNodeType(id);
}

int Component::getNo() {
    const ReadSection section(config);
    return config->getNodeNumber(id);
}

void Component::setNo(int number) {
    const WriteSection section(config);
    setUp(getType(), number);
}

void Component::setType(int type) {
    const WriteSection section(config);
    clear();
    int number = 0;
    for (const int sibling : children(config->getSrc(id), true)) {
        if (config->getNodeType(sibling) == type) {
            number = sum(config->getNodeNumber(sibling), 1);
        }
    }
    configure(type, number);
}

int Component::setUp(int type, int number) {
    revision = config->setNodeInfo(id, type, sum(number, BASE_COMPO_NUMBER));
    return revision;
}

} // namespace qz::tavrel
