#include "base/Guards.h"
#include "base/Trace.h"
#include "tree/RefreshLevel.h"

#include <qz/tavrel/Component.h>
#include <qz/tavrel/ComponentClass.h>
#include <qz/tavrel/ComponentLockProvider.h>
#include <qz/tavrel/NameResolver.h>
#include <qz/tavrel/ResourceManager.h>
#include <qz/tavrel/TreeConfig.h>

namespace qz::tavrel {

void Component::configure(int type, int number) {
    setUp(type, number);
    ComponentClass* const found = ComponentClass::get(type);
    if (found == nullptr) {
        internal::trace(internal::point::ComponentConfigureNoClass, id, type);
        return;
    }
    std::vector<int> childTypes;
    found->getComponentTypes(childTypes);
    for (const int childType : childTypes) {
        const int count = found->getComponentCount(childType);
        for (int i = 0; i < count; ++i) {
            Component* const child = getComponent();
            // Linked first: the node takes its parent from the link when it is stamped.
            config->add(id, child->id, internal::owned);
            child->configure(childType, i);
        }
    }
}

std::string Component::toString() {
    const int current = getRevision(); // loads what type and number are read from
    return "Component[id=" + std::to_string(id) + ",revision=" + std::to_string(current) +
           ",type=" + std::to_string(getType()) + ",no=" + std::to_string(getNo()) + "]";
}

void Component::deleteAll() {
    const auto deleteComponents = [] {
        const internal::MutexGuard guard(mutex);
        for (Component* const component : std::vector<Component*>(componentList)) {
            delete component;
        }
        componentList.clear();
    };
    deleteComponents();
    // Made anew, so that the process may build again.
    pthread_mutex_destroy(&mutex);
    pthread_mutexattr_t recursive;
    pthread_mutexattr_init(&recursive);
    pthread_mutexattr_settype(&recursive, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&mutex, &recursive);
    pthread_mutexattr_destroy(&recursive);

    delete resolver;
    resolver = nullptr;
    delete config;
    config = nullptr;
    delete provider;
    provider = nullptr;
    ComponentClass::deleteAll();
    ResourceManager::getInstance()->clear();
    deleteComponents(); // a section that the tree ended has looked components up again
    BASE_COMPO_NUMBER = 0;
    nMax = 1;
}

} // namespace qz::tavrel
