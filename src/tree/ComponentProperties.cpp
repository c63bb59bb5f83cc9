#include "base/BigEndian.h"
#include "base/Trace.h"
#include "tree/ClassProperties.h"
#include "tree/RefreshLevel.h"
#include "tree/TreeSections.h"

#include <qz/tavrel/Action.h>
#include <qz/tavrel/Component.h>
#include <qz/tavrel/GuardSection.h>

#include <algorithm>
#include <exception>

namespace qz::tavrel {

namespace point = internal::point;
using internal::AccessSection;
using internal::BigEndian;
using internal::propertiesOf;
using internal::SharedSection;
using internal::trace;

namespace {

constexpr int lastBoundKey =
    255; // keys up to here stay bound to their configured resource and are not listed

} // namespace

/// The class of the node's type, null without one.
ComponentClass* Component::getClass() {
    return ComponentClass::get(getType());
}

/// Pulls in what other processes saved, unless this thread did a moment ago, and compares the node.
void Component::updateForProperty() {
    if (!refreshGuard.set(internal::refreshProperty)) {
        const SharedSection refreshed(config);
    }
    update();
}

int Component::getProperty(int key, long offset, void* buffer, unsigned int size) {
    trace(point::ComponentGetProperty, id, key, readLockCount.load(), writeLockCount.load());
    const AccessSection section(config);
    updateForProperty();
    const int type = config->getNodeType(id);
    ComponentClass* const found = ComponentClass::get(type);
    if (found == nullptr) {
        trace(point::ComponentGetPropertyNoClass, id, key, type);
        return 0;
    }
    try {
        return static_cast<int>(propertiesOf(*found).readProperty(id, key, offset, buffer, size));
    } catch (...) {
        trace(point::ComponentGetPropertyFailed, id, key, readLockCount.load(), writeLockCount.load());
        return 0;
    }
}

int Component::getProperty(int key, void* buffer, unsigned int size) {
    return getProperty(key, 0, buffer, size);
}

int Component::getProperty(int key) {
    BigEndian stored{};
    return getProperty(key, 0, stored.bytes, sizeof stored.bytes) == 0 ? 0 : stored.value();
}

int Component::setProperty(int key, long offset, const void* data, unsigned int size) {
    trace(point::ComponentSetProperty, id, key, readLockCount.load(), writeLockCount.load());
    const AccessSection section(config);
    updateForProperty();
    const int type = config->getNodeType(id);
    ComponentClass* const found = ComponentClass::get(type);
    if (found == nullptr) {
        trace(point::ComponentSetPropertyNoClass, id, key, type);
        return 0;
    }
    try {
        return static_cast<int>(propertiesOf(*found).writeProperty(id, key, offset, data, size));
    } catch (...) {
        trace(point::ComponentSetPropertyFailed, id, key, readLockCount.load(), writeLockCount.load());
        return 0;
    }
}

int Component::setProperty(int key, const void* data, unsigned int size) {
    return setProperty(key, 0, data, size);
}

int Component::setProperty(int key, int value) {
    const BigEndian stored = BigEndian::of(value);
    return setProperty(key, 0, stored.bytes, sizeof stored.bytes);
}

void Component::getPropertyKeys(std::vector<int>& keys) {
    ComponentClass* const found = getClass();
    if (found == nullptr) {
        return;
    }
    propertiesOf(*found).getPropertyKeys(keys);
    keys.erase(std::remove_if(keys.begin(), keys.end(), [](int key) { return key <= lastBoundKey; }),
               keys.end());
}

unsigned int Component::getPropertySize(int key) {
    ComponentClass* const found = getClass();
    return found == nullptr ? 0 : propertiesOf(*found).getPropertySize(key);
}

void Component::clearProperties() {
    const int type = config->getNodeType(id);
    ComponentClass* const found = ComponentClass::get(type);
    if (found == nullptr) {
        trace(point::ComponentClearNoClass, id, type);
        return;
    }
    try {
        propertiesOf(*found).clearProperties(id);
    } catch (...) {
        trace(point::ComponentClearFailed, id, readLockCount.load(), writeLockCount.load());
    }
}

void Component::doAction(int actionId, const void* in, unsigned int inSize, void* out, unsigned int outSize) {
    // Marks the thread only: an action that wants the newest tree takes it itself.
    refreshGuard.set(internal::refreshProperty);
    const int type = getType();
    ComponentClass* const found = ComponentClass::get(type);
    if (found == nullptr) {
        trace(point::ComponentActionNoClass, id, actionId, type);
        return;
    }
    try {
        found->getAction(actionId)->execute(this, actionId, in, inSize, out, outSize);
    } catch (const std::exception&) {
        trace(point::ComponentActionFailed, id, actionId, type);
        throw;
    }
}

void Component::doAction(int actionId) {
    doAction(actionId, nullptr, 0, nullptr, 0);
}

void Component::getActionIds(std::vector<int>& ids) {
    ComponentClass* const found = getClass();
    if (found != nullptr) {
        found->getActionIds(ids);
    }
}

bool Component::hasFeature(int feature) {
    ComponentClass* const found = getClass();
    return found != nullptr && found->hasFeature(feature);
}

} // namespace qz::tavrel
