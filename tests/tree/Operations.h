#pragma once

#include "TreeTest.h"

namespace tavrel::test {

enum class Section {
    none,   ///< takes nothing
    read,   ///< the tree between threads, beside other readers
    access, ///< the tree between threads, alone
    write,  ///< the tree between threads, alone, and then between processes
};

constexpr int noRefresh = -1;

/// One operation of `Component` and what it takes.
struct Operation {
    const char* name;
    Section section;
    int level;                                       ///< of its refresh
    std::function<void(qz::tavrel::Component*)> run; ///< on board 4 of the sample tree
};

inline qz::tavrel::Component* sampleComponent(int id) {
    return qz::tavrel::Component::getComponent(id);
}

/// Every operation but those of the component's own lock.
inline const std::vector<Operation>& operations() {
    using qz::tavrel::Component;
    static const std::vector<Operation> all{
        {"getComponentId", Section::none, noRefresh, [](Component* c) { c->getComponentId(); }},
        {"getRoot", Section::none, 1, [](Component* c) { c->getRoot(); }},
        {"getRevision", Section::write, noRefresh, [](Component* c) { c->getRevision(); }},
        {"getType", Section::read, noRefresh, [](Component* c) { c->getType(); }},
        {"getNo", Section::read, noRefresh, [](Component* c) { c->getNo(); }},
        {"setNo", Section::write, noRefresh, [](Component* c) { c->setNo(3); }},
        {"setType", Section::write, noRefresh, [](Component* c) { c->setType(fan); }},
        {"createComponent", Section::write, noRefresh, [](Component* c) { c->createComponent(fan); }},
        {"deleteComponent", Section::write, noRefresh, [](Component* c) { c->deleteComponent(); }},
        {"addComponent", Section::write, noRefresh,
         [](Component* c) { c->addComponent(sampleComponent(0)); }},
        {"addComponent of a list", Section::write, noRefresh,
         [](Component* c) { c->addComponent(Components{sampleComponent(0)}); }},
        {"removeComponent", Section::write, noRefresh,
         [](Component* c) { c->removeComponent(sampleComponent(1)); }},
        {"contains", Section::read, 1, [](Component* c) { c->contains(sampleComponent(1)); }},
        {"getParent", Section::read, 1, [](Component* c) { c->getParent(); }},
        {"getParents", Section::read, 1,
         [](Component* c) {
             Components out;
             c->getParents(out);
         }},
        {"getParents of a type", Section::read, 1,
         [](Component* c) {
             Components out;
             c->getParents(chassis, out);
         }},
        {"getComponent by number", Section::read, 1, [](Component* c) { c->getComponent(sensor, 1); }},
        {"getComponent of all", Section::read, 1,
         [](Component* c) {
             Components out;
             c->getComponent(out, false);
         }},
        {"getComponent of a type", Section::read, 1,
         [](Component* c) {
             Components out;
             c->getComponent(sensor, out);
         }},
        {"getFeatured", Section::read, 1,
         [](Component* c) {
             Components out;
             c->getFeatured(sensor, out);
         }},
        {"findComponent", Section::read, 1,
         [](Component* c) {
             Components out;
             c->findComponent(sensor, out, true);
         }},
        {"findFeatured", Section::read, 1,
         [](Component* c) {
             Components out;
             c->findFeatured(sensor, out, true);
         }},
        {"getTreePath", Section::read, noRefresh,
         [](Component* c) {
             qz::tavrel::TreePath path;
             c->getTreePath(path);
         }},
        {"getProperty", Section::access, 2, [](Component* c) { c->getProperty(speedKey); }},
        {"setProperty", Section::access, 2, [](Component* c) { c->setProperty(speedKey, 1); }},
        {"doAction", Section::read, noRefresh, [](Component* c) { c->doAction(1); }},
        {"getActionIds", Section::read, noRefresh,
         [](Component* c) {
             Ids ids;
             c->getActionIds(ids);
         }},
        {"getPropertyKeys", Section::read, noRefresh,
         [](Component* c) {
             Ids keys;
             c->getPropertyKeys(keys);
         }},
        {"getPropertySize", Section::read, noRefresh, [](Component* c) { c->getPropertySize(speedKey); }},
        {"hasFeature", Section::read, noRefresh, [](Component* c) { c->hasFeature(fan); }},
        {"toString", Section::write, noRefresh, [](Component* c) { c->toString(); }},
    };
    return all;
}

} // namespace tavrel::test
