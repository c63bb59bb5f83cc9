#pragma once

#include "support/MemoryDatabase.h"

#include <qz/tavrel/Component.h>
#include <qz/tavrel/NameResolver.h>
#include <qz/tavrel/TreeConfig.h>

#include <functional>
#include <string>

namespace tavrel::test {

/// Names with a hook: `asked` runs in each lookup of a type's name.
class HookedNames : public qz::tavrel::NameResolver {
public:
    std::function<void()> asked;

    std::string getComponentName(int type) override {
        if (asked) {
            asked();
        }
        return NameResolver::getComponentName(type);
    }
};

/// A tree of a few nodes in memory, set as the process's tree; `Component::deleteAll` at its end, which
/// deletes the stores of the registry, too.
class SmallTree {
public:
    SmallTree() : names(new HookedNames), config(new qz::tavrel::TreeConfig) {
        using qz::tavrel::Component;
        config->assign(&store, nullptr);
        Component::setNameResolver(names);
        Component::setTreeConfig(config);
        Component::setMaxCount(100);
    }
    ~SmallTree() { qz::tavrel::Component::deleteAll(); }
    SmallTree(const SmallTree&) = delete;
    SmallTree& operator=(const SmallTree&) = delete;

    /// Adds the next node. @return its id
    int add(const std::string& type, int number, int parent) {
        change([&] {
            config->setNodeInfo(next, names->getComponentType(type), number);
            if (parent != -1) {
                config->add(parent, next, 0);
            }
        });
        return next++;
    }

    /// Makes a node a free one.
    void free(int id) {
        change([&] { config->setNodeInfo(id, 0, -1); });
    }

    MemoryDatabase store;
    HookedNames* names;
    qz::tavrel::TreeConfig* config;

private:
    void change(const std::function<void()>& work) {
        config->writeLock();
        config->lock();
        work();
        config->unlock();
        config->writeUnlock();
    }

    int next = 0;
};

} // namespace tavrel::test
