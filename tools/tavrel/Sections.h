#pragma once

namespace qz::tavrel {
class Component;
}

namespace tavrel::tool {

/// Holds a write section of the tree: others' changes are loaded at its start, ours saved at `close`. Nothing
/// changes the tree meanwhile.
class [[nodiscard]] TreeSection {
public:
    TreeSection();

    /// Leaves the section; what a failing save raises is lost, so who has changed something calls `close`
    /// first.
    ~TreeSection();
    TreeSection(const TreeSection&) = delete;
    TreeSection& operator=(const TreeSection&) = delete;

    /// Saves and leaves the section.
    /// @throws TavrelException  the save has failed
    void close();

private:
    bool open = true;
};

/// Holds the write lock of a component, and so of its subtree, for a scope. Waits without limit.
class [[nodiscard]] WriteLock {
public:
    explicit WriteLock(qz::tavrel::Component* component);
    ~WriteLock();
    WriteLock(const WriteLock&) = delete;
    WriteLock& operator=(const WriteLock&) = delete;

private:
    qz::tavrel::Component* component;
};

} // namespace tavrel::tool
