#include "Sections.h"

#include <qz/tavrel/Component.h>
#include <qz/tavrel/TreeConfig.h>

#include <exception>

using qz::tavrel::Component;
using qz::tavrel::TreeConfig;

namespace tavrel::tool {

TreeSection::TreeSection() {
    TreeConfig* tree = Component::getTreeConfig();
    tree->writeLock();
    try {
        tree->lock();
    } catch (...) {
        tree->writeUnlock();
        throw;
    }
}

TreeSection::~TreeSection() {
    try {
        close();
    } catch (const std::exception&) {
        // nothing was changed, or the exception that ends the section says more
    }
}

void TreeSection::close() {
    if (!open) {
        return;
    }
    open = false;
    TreeConfig* tree = Component::getTreeConfig();
    try {
        tree->unlock();
    } catch (...) {
        tree->writeUnlock();
        throw;
    }
    tree->writeUnlock();
}

WriteLock::WriteLock(Component* locked) : component(locked) {
    component->writeLock();
}

WriteLock::~WriteLock() {
    component->writeUnlock();
}

} // namespace tavrel::tool
