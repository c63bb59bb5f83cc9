/// @file
/// Bringing stored property values in line with the specification.
#pragma once

#include <qz/tavrel/ComponentVisitor.h>

#include <vector>

namespace qz::tavrel {

/// Walks the tree and gives every property of a fresh tree a value of zero bytes, or, after a change of
/// version, fits every stored value to its size. A client migrates data by overriding `modifyProperty`.
///
/// Locks: none of its own; `Builder::build` runs it with the default resource's lock, the root's write lock
/// and the `ResourceManager` lock held, so that the whole walk is one step for all processes.
/// Threads: one.
class Initializer : public AbstractVisitor {
public:
    Initializer();
    ~Initializer() override;

    /// Fits or zeroes the properties of `component`. @return true
    bool doBottomUp(Component* component) override;

    /// The hook after a change of version: changes one stored value as it likes.
    ///
    /// By default a value that is too short is filled up with zero bytes and one that is too long is cut.
    ///
    /// @param type  type of the component, which is `getComponent()`
    /// @param key   property key
    /// @param size  size of the property in bytes, as specified now
    /// @param data  the stored bytes, none if there are none yet; at most as many as the largest property so
    /// far or 64 KiB
    /// @return true if `data` is to be stored
    virtual bool modifyProperty(int type, int key, unsigned int size, std::vector<unsigned char>& data);

    /// Walks the tree from the root.
    /// @param modify  false: zero all values; true: fit them
    /// @throws what a store raises
    void run(bool modify);

    /// The component being visited.
    Component* getComponent();

    /// Gives all listed properties of one component zero values.
    void initProperties(Component* component);

    /// Offers all stored values of one component to `modifyProperty`; nothing if its type has no class.
    void modifyProperties(Component* component);

private:
    bool modifying;
    Component* current;
    std::vector<unsigned char> buffer;
};

} // namespace qz::tavrel
