#include "support/TreeFixture.h"

#include "support/MemoryDatabase.h"
#include "support/RecordingLock.h"
#include "support/RecordingProvider.h"

#include <qz/tavrel/PropertyLocator.h>
#include <qz/tavrel/ResourceManager.h>

namespace tavrel::test {

using namespace qz::tavrel;

namespace {

template <typename Made, typename Part>
Part* orNew(Part* given) {
    return given == nullptr ? new Made : given;
}

} // namespace

TreeFixture::TreeFixture(TreeParts parts)
    : store(orNew<MemoryDatabase>(parts.store)),
      config(orNew<TreeConfig>(parts.config)),
      resolver(new NameResolver),
      provider(orNew<RecordingProvider>(parts.provider)) {
    ResourceManager* const resources = ResourceManager::getInstance();
    resources->addResource("main", store);
    config->assign(store, orNew<RecordingLock>(parts.lock));
    config->addListener(provider);
    config->addListener(resources);
    Component::setMaxCount(maxCount);
    Component::setNameResolver(resolver);
    Component::setTreeConfig(config);
    Component::setLockProvider(provider);

    resolver->setPropertyKey("Bound", boundKey);
    resolver->setPropertyKey("Speed", speedKey);
    resolver->setPropertyKey("Label", labelKey);
    define(chassis, "Chassis").addComponentCount(board, 2);
    define(board, "Board").addComponentCount(sensor, 2);
    define(fan, "Fan");
    define(sensor, "Sensor");

    // Loads the stored tree.
    config->writeLock();
    config->lock();
    config->unlock();
    config->writeUnlock();
}

TreeFixture::~TreeFixture() {
    Component::deleteAll();
}

ComponentClass& TreeFixture::define(int type, const std::string& name) {
    if (ComponentClass* const known = ComponentClass::get(type)) {
        return *known;
    }
    auto* const locator = new PropertyLocator;
    locator->addProperty(0, boundKey, 4);
    locator->addProperty(0, speedKey, 4);
    locator->addProperty(0, labelKey, 8);
    auto* const made = new ComponentClass(type);
    made->setPropertyLocator(locator);
    ComponentClass::add(made);
    resolver->setComponentType(name, type);
    return *made;
}

Component* TreeFixture::root(int type) {
    Component* const top = Component::getComponent(0);
    if (top->getType() != type) {
        top->setType(type);
    }
    return top;
}

Component* TreeFixture::add(Component* parent, int type) {
    parent->createComponent(type);
    return Component::getComponent(children(parent).back());
}

std::vector<int> TreeFixture::children(Component* parent, bool ownedOnly) {
    std::vector<int> ids;
    TreeConfig* const tree = Component::getTreeConfig();
    tree->get(parent->getComponentId(), ids, 0);
    if (!ownedOnly) {
        tree->get(parent->getComponentId(), ids, 1);
    }
    return ids;
}

} // namespace tavrel::test
