/// @file
/// The way from the root to a component.
#pragma once

#include <istream>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace qz::tavrel {

class Component;

/// Names a component by the steps from the root to it, each a type and a number.
///
/// A path means the same in every process and after ids have been recycled. Text form: for each step
/// `delimita`, the type's name, `binder`, the number; as in "/Chassis#0/Fan#2". Binary form, in the host's
/// byte order: a 32-bit count of steps, then for each step its type and its number, 32 bits each; 4 + 8 x
/// count bytes.
///
/// Threads: a plain value; the operations that walk the tree take the sections of the `Component` calls they
/// make.
class TreePath {
public:
    /// An empty path.
    TreePath();

    /// `fromString(text)`.
    explicit TreePath(const std::string& text);

    TreePath(const TreePath& other) = default;
    TreePath& operator=(const TreePath& other) = default;
    virtual ~TreePath();

    /// Appends the type and number of `component`, and remembers it as the end of the path.
    /// @throws TavrelException "TreePath::add" for null
    virtual void add(Component* component);

    /// Makes the path empty.
    virtual void clear();

    /// Replaces the steps by the binary form. A negative or missing value empties the path.
    /// @return the stream, left wherever the reading ended
    virtual std::istream& read(std::istream& stream);

    /// Writes the binary form. @return the stream
    virtual std::ostream& write(std::ostream& stream);

    /// Appends a step; the end that the path remembers stays as it is.
    void add(int type, int number);

    /// Number of steps.
    int getPathCount();

    /// Type of step `index`; 0 if there is none.
    int getTypeAt(unsigned int index);

    /// Number of step `index`; -1 if there is none.
    int getNumberAt(unsigned int index);

    /// Replaces the steps by the text form. Text before a delimiter and between a number and the next
    /// delimiter is skipped; a bad text gives an empty path. A type name that the resolver does not know is
    /// added to it.
    void fromString(const std::string& text);

    /// The text form; empty for an empty path.
    std::string toString();

    /// Replaces the steps by the binary form in memory.
    /// @param data  holds `size` bytes
    /// @return bytes used; -1 if the size or the count is wrong (the path stays) or a value is negative (it
    /// is emptied)
    int read(const void* data, unsigned int size);

    /// Writes the binary form to memory.
    /// @param data  must have room for 4 + 8 x count bytes: `size` is a coarse test only
    /// @return bytes written; 0, and nothing written, if 8 x count is not below `size`
    int write(void* data, unsigned int size);

    /// Walks the tree along the path and appends each component found.
    /// @return false if a step is not there; `out` then holds the components before it
    bool getComponentList(std::vector<Component*>& out);

    /// The end of the path, null if it is not there. Once found it is remembered, whatever becomes of it: use
    /// a `ComponentAccessor` to notice.
    Component* getComponent();

    /// What stands before each step of the text form; '/' unless changed.
    static char delimita;

    /// What stands between name and number in the text form; '#' unless changed.
    static char binder;

private:
    std::vector<std::pair<int, int>> steps;
    Component* component;
};

} // namespace qz::tavrel
