#pragma once

#include <qz/tavrel/Component.h>
#include <qz/tavrel/ComponentClass.h>
#include <qz/tavrel/ComponentLockProvider.h>
#include <qz/tavrel/Database.h>
#include <qz/tavrel/LockObject.h>
#include <qz/tavrel/NameResolver.h>
#include <qz/tavrel/TreeConfig.h>

#include <map>
#include <string>
#include <vector>

namespace tavrel::test {

/// Types of the sample tree. Only `chassis` and `board` make children by themselves.
enum SampleType {
    chassis = 2, ///< with 2 boards
    board = 3,   ///< with 2 sensors
    fan = 4,
    sensor = 5,
    undefined = 60, ///< has neither a class nor a name
};

/// Properties of every sample class, all kept in the store "main".
enum SampleProperty {
    boundKey = 10,  ///< "Bound", 4 bytes; bound to its store, so it is not listed
    speedKey = 300, ///< "Speed", 4 bytes
    labelKey = 301, ///< "Label", 8 bytes
};

/// What a tree stands on. What is null is made by the fixture: a store in memory, a lock between the threads
/// of this process, a plain tree, a provider that locks nothing.
struct TreeParts {
    qz::tavrel::Database* store = nullptr;
    qz::tavrel::LockObject* lock = nullptr;
    qz::tavrel::TreeConfig* config = nullptr;
    qz::tavrel::ComponentLockProvider* provider = nullptr;
};

/// A whole object tree wired up by hand, as the builder would do it: the store as resource 0, "main"; the
/// names and classes of the sample tree; the static members of `Component`. Loads what is stored. One at a
/// time in a process; its end tears everything down.
class TreeFixture {
public:
    static constexpr int maxCount = 64;

    explicit TreeFixture(TreeParts parts = {});
    ~TreeFixture();
    TreeFixture(const TreeFixture&) = delete;
    TreeFixture& operator=(const TreeFixture&) = delete;

    qz::tavrel::Database* store;
    qz::tavrel::TreeConfig* config;
    qz::tavrel::NameResolver* resolver;
    qz::tavrel::ComponentLockProvider* provider;

    /// The class of a type, made with the sample properties if there is none yet.
    qz::tavrel::ComponentClass& define(int type, const std::string& name);

    /// The root; makes it a node of `type` first unless it is one already.
    qz::tavrel::Component* root(int type = chassis);

    /// Gives `parent` a new owned child and returns that.
    static qz::tavrel::Component* add(qz::tavrel::Component* parent, int type);

    /// The owned children, or all of them, as ids.
    static std::vector<int> children(qz::tavrel::Component* parent, bool ownedOnly = true);
};

} // namespace tavrel::test
