/// @file
/// The handle on a component that client code keeps.
#pragma once

#include <qz/tavrel/TreePath.h>

#include <string>
#include <utility>
#include <vector>

namespace qz::internal {
struct TracePoint;
}

namespace qz::tavrel {

class Component;

/// A component as it was when the handle was made: the object, its revision, and the path to it.
///
/// Each operation first checks that the component still has that revision, and refuses with an
/// `UnavailableComponentException` if not: "revision mismatched." the first time, "unavailable accessor."
/// from then on. A handle that has refused stays dead; make a new one, or ask `getEnableComponent` for the
/// nearest ancestor that lives. The check and the operation are two steps: a client that needs them to be one
/// holds the component's lock around them.
///
/// A value, copied freely; it owns nothing. An operation with the check may pass on what `Component` raises.
/// Locks: the check takes a write section of the tree; then those of the `Component` operation of the same
/// name.
/// Threads: one at a time; each thread keeps its own copy.
class ComponentAccessor {
public:
    /// The path to a component with the revision of each step.
    class LocalTreePath : public TreePath {
    public:
        ~LocalTreePath() override;
        LocalTreePath() = default;
        LocalTreePath(const LocalTreePath& other) = default;
        LocalTreePath& operator=(const LocalTreePath& other) = default;

        using TreePath::add;

        /// Appends a step and its present revision. @throws TavrelException "TreePath::add" for null
        /// Locks: a write section, which may load the tree. `Component::getTreePath` calls this inside a read
        /// section, so take `TreeConfig::writeLock` around it where other threads use the tree.
        void add(Component* component) override;
        void clear() override;

        /// A handle on step `index`, as it was when it was added.
        /// @throws std::out_of_range if there is no such step
        ComponentAccessor at(unsigned int index);

    private:
        std::vector<std::pair<Component*, int>> revisions;
    };

    /// A dead handle on nothing.
    ComponentAccessor();

    /// A handle on a component as it is now; a dead one for null.
    explicit ComponentAccessor(Component* component);

    /// A handle on a component as it was at `revision`; dead if it has another by now. `component` must not
    /// be null.
    ComponentAccessor(Component* component, int revision);

    /// The same by id; dead as well if the id is invalid.
    ComponentAccessor(int id, int revision);

    ComponentAccessor(const ComponentAccessor& other) = default;
    ComponentAccessor& operator=(const ComponentAccessor& other) = default;
    virtual ~ComponentAccessor();

    // --- without the check ---

    /// Text form of the path.
    std::string getPath();

    /// Number of steps of the path.
    int getPathSize();

    /// Type of step `index` of the path; 0 if there is none.
    int getTypeAt(unsigned int index);

    /// Number of step `index` of the path; -1 if there is none.
    int getNumberAt(unsigned int index);

    /// Id of the component, -1 for none.
    int getComponentId();

    /// The revision that this handle stands for, -1 if it never stood for one.
    int getRevision();

    /// The object, whatever state the handle is in; null for none.
    Component* getComponent();

    /// True if both live or both are dead, on the same object and revision.
    bool operator==(ComponentAccessor& other);

    /// Runs the check and tells whether the handle lives; a stale one is dead afterwards.
    bool isAvailable();

    /// A handle on the deepest step of the path that is still what it was; a dead one if none is.
    ComponentAccessor getEnableComponent();

    /// The check itself. It leaves the handle as it is; the operations below let it die when it fails.
    /// @throws UnavailableComponentException "unavailable accessor." or "revision mismatched."
    void evaluate();

    // --- with the check; each throws UnavailableComponentException as told above ---

    int getType();

    /// `Component::setType`; this handle then stands for the new revision, all others on the node are stale.
    void setType(int type);

    int getNumber();

    /// `Component::setNo`; this handle then stands for the new revision, all others on the node are stale.
    void setNumber(int number);

    /// @param buffer  receives at most `size` bytes from the start of the property
    /// @return bytes delivered
    int getProperty(int key, void* buffer, unsigned int size);

    /// @param data  holds `size` bytes for the start of the property
    /// @return bytes stored
    int setProperty(int key, const void* data, unsigned int size);

    void getPropertyKeys(std::vector<int>& keys);
    int getPropertySize(int key);

    /// `Component::createComponent`; the revision of this component does not change. @return 0
    int createComponent(int type);

    /// `Component::deleteComponent`; this handle is dead afterwards. @return 0
    int deleteComponent();

    /// True if the component of `other` is a child in either relation; `other` itself is not checked.
    bool contains(ComponentAccessor* other);

    void getComponent(std::vector<ComponentAccessor>& out, bool ownedOnly);
    void getComponent(int type, std::vector<ComponentAccessor>& out);

    /// A dead handle if there is no such child.
    ComponentAccessor getComponent(int type, int number);

    void getFeatured(int feature, std::vector<ComponentAccessor>& out);
    void findComponent(int type, std::vector<ComponentAccessor>& out, bool includeSelf);
    void findFeatured(int feature, std::vector<ComponentAccessor>& out, bool includeSelf);

    /// A dead handle if there is no owner.
    ComponentAccessor getParent();

    void getParents(std::vector<ComponentAccessor>& out);
    void getParents(int type, std::vector<ComponentAccessor>& out);
    void getTreePath(TreePath& path);

    /// @param in   input of the action, `inSize` bytes
    /// @param out  output of the action, `outSize` bytes
    void doAction(int actionId, const void* in, unsigned int inSize, void* out, unsigned int outSize);

    bool hasAction(int actionId);
    void getActionIds(std::vector<int>& ids);

    /// Appends a handle on each component of `in` to `out`, in order.
    static void setupAccessor(std::vector<Component*>& in, std::vector<ComponentAccessor>& out);

private:
    struct Checked;

    void pin(Component* target, int wanted, const internal::TracePoint& mismatch);
    void pinAgain();
    void notePath();

    bool available;
    Component* component;
    int revision;
    LocalTreePath path;
};

} // namespace qz::tavrel
