#include "base/Fault.h"
#include "base/Trace.h"
#include "tree/TreeSections.h"

#include <qz/tavrel/Component.h>
#include <qz/tavrel/ComponentAccessor.h>
#include <qz/tavrel/QZException.h>

#include <algorithm>

namespace qz::tavrel {

namespace point = internal::point;
using internal::trace;
using internal::TracePoint;

// --- the path
// --------------------------------------------------------------------------------------------------------

ComponentAccessor::LocalTreePath::~LocalTreePath() = default;

void ComponentAccessor::LocalTreePath::add(Component* step) {
    TreePath::add(step);
    revisions.emplace_back(step, step->getRevision());
}

void ComponentAccessor::LocalTreePath::clear() {
    TreePath::clear();
    revisions.clear();
}

ComponentAccessor ComponentAccessor::LocalTreePath::at(unsigned int index) {
    const auto& [step, stamp] = revisions.at(index);
    return {step, stamp};
}

// --- making a handle
// -------------------------------------------------------------------------------------------------

ComponentAccessor::ComponentAccessor() : available(false), component(nullptr), revision(-1) {}

ComponentAccessor::ComponentAccessor(Component* target) : ComponentAccessor() {
    if (target == nullptr) {
        trace(point::AccessorNull);
        return;
    }
    component = target;
    revision = component->getRevision();
    notePath();
    available = true;
}

ComponentAccessor::ComponentAccessor(Component* target, int wanted) : ComponentAccessor() {
    pin(target, wanted, point::AccessorComponentMismatch);
}

ComponentAccessor::ComponentAccessor(int id, int wanted) : ComponentAccessor() {
    Component* target = nullptr;
    try {
        target = Component::getComponent(id);
    } catch (const TavrelException&) {
        trace(point::AccessorInvalidId, id, 0);
        return;
    }
    pin(target, wanted, point::AccessorIdMismatch);
}

ComponentAccessor::~ComponentAccessor() = default;

/// Takes down the way to the component. The revision of a step may load the tree, so no other thread may read
/// it meanwhile; `getTreePath` asks for it inside a read section, so the write lock has to come first.
void ComponentAccessor::notePath() {
    const internal::AccessSection exclusive(Component::getTreeConfig());
    component->getTreePath(path);
}

/// Stands for `target` at `wanted`, or stays dead and reports at `mismatch`.
void ComponentAccessor::pin(Component* target, int wanted, const TracePoint& mismatch) {
    component = target;
    const int found = component->getRevision();
    if (found != wanted) {
        trace(mismatch, component->getComponentId(), wanted, found);
        return;
    }
    revision = wanted;
    notePath();
    available = true;
}

/// Stands for the node as this handle has just made it.
void ComponentAccessor::pinAgain() {
    revision = component->getRevision();
    path.clear();
    notePath();
}

void ComponentAccessor::setupAccessor(std::vector<Component*>& in, std::vector<ComponentAccessor>& out) {
    for (Component* const each : in) {
        out.emplace_back(each);
    }
}

// --- without the check
// -----------------------------------------------------------------------------------------------

std::string ComponentAccessor::getPath() {
    return path.toString();
}

int ComponentAccessor::getPathSize() {
    return path.getPathCount();
}

int ComponentAccessor::getTypeAt(unsigned int index) {
    return path.getTypeAt(index);
}

int ComponentAccessor::getNumberAt(unsigned int index) {
    return path.getNumberAt(index);
}

int ComponentAccessor::getComponentId() {
    return component == nullptr ? -1 : component->getComponentId();
}

int ComponentAccessor::getRevision() {
    return revision;
}

Component* ComponentAccessor::getComponent() {
    return component;
}

bool ComponentAccessor::operator==(ComponentAccessor& other) {
    return available == other.available && component == other.component && revision == other.revision;
}

bool ComponentAccessor::isAvailable() {
    if (!available) {
        return false;
    }
    try {
        evaluate();
    } catch (const UnavailableComponentException&) {
        available = false;
    }
    return available;
}

ComponentAccessor ComponentAccessor::getEnableComponent() {
    for (int step = path.getPathCount() - 1; step >= 0; --step) {
        ComponentAccessor found = path.at(static_cast<unsigned int>(step));
        if (found.isAvailable()) {
            return found;
        }
    }
    trace(point::AccessorNoneEnabled);
    return {};
}

void ComponentAccessor::evaluate() {
    if (!available) {
        trace(point::AccessorUnavailable, getComponentId(), revision);
        internal::raise<UnavailableComponentException>("ComponentAccessor", "evaluate",
                                                       "unavailable accessor.");
    }
    const int now = component->getRevision();
    if (now != revision) {
        trace(point::AccessorRevisionMismatch, getComponentId(), revision, now);
        internal::raise<UnavailableComponentException>("ComponentAccessor", "evaluate",
                                                       "revision mismatched.");
    }
}

// --- with the check
// --------------------------------------------------------------------------------------------------

/// The pattern of every operation with the check. The words of the refusal's trace record are `words`, then
/// id and revision.
struct ComponentAccessor::Checked {
    template <typename Work, typename... Words>
    static auto run(ComponentAccessor& self, const TracePoint& refused, Work work, Words... words) {
        try {
            self.evaluate();
            return work(*self.component);
        } catch (const UnavailableComponentException& fault) {
            trace(refused, words..., self.getComponentId(), self.revision);
            self.available = false;
            throw UnavailableComponentException(fault);
        }
    }

    /// The same for an operation that gives a list of components.
    template <typename Work>
    static void list(ComponentAccessor& self, const TracePoint& refused, std::vector<ComponentAccessor>& out,
                     Work work) {
        std::vector<Component*> found;
        run(self, refused, [&](Component& target) { work(target, found); });
        setupAccessor(found, out);
    }
};

int ComponentAccessor::getType() {
    return Checked::run(*this, point::AccessorGetType, [](Component& target) { return target.getType(); });
}

void ComponentAccessor::setType(int type) {
    Checked::run(
        *this, point::AccessorSetType, [&](Component& target) { target.setType(type); }, type);
    pinAgain();
}

int ComponentAccessor::getNumber() {
    return Checked::run(*this, point::AccessorGetNumber, [](Component& target) { return target.getNo(); });
}

void ComponentAccessor::setNumber(int number) {
    Checked::run(
        *this, point::AccessorSetNumber, [&](Component& target) { target.setNo(number); }, number);
    pinAgain();
}

int ComponentAccessor::getProperty(int key, void* buffer, unsigned int size) {
    return Checked::run(
        *this, point::AccessorGetProperty,
        [&](Component& target) { return target.getProperty(key, buffer, size); }, key);
}

int ComponentAccessor::setProperty(int key, const void* data, unsigned int size) {
    return Checked::run(
        *this, point::AccessorSetProperty,
        [&](Component& target) { return target.setProperty(key, data, size); }, key);
}

void ComponentAccessor::getPropertyKeys(std::vector<int>& keys) {
    Checked::run(*this, point::AccessorGetPropertyKeys,
                 [&](Component& target) { target.getPropertyKeys(keys); });
}

int ComponentAccessor::getPropertySize(int key) {
    return Checked::run(
        *this, point::AccessorGetPropertySize,
        [&](Component& target) { return static_cast<int>(target.getPropertySize(key)); }, key);
}

int ComponentAccessor::createComponent(int type) {
    Checked::run(
        *this, point::AccessorCreateComponent, [&](Component& target) { target.createComponent(type); },
        type);
    return 0;
}

int ComponentAccessor::deleteComponent() {
    Checked::run(*this, point::AccessorDeleteComponent, [](Component& target) { target.deleteComponent(); });
    available = false;
    return 0;
}

bool ComponentAccessor::contains(ComponentAccessor* other) {
    return Checked::run(*this, point::AccessorContains,
                        [&](Component& target) { return target.contains(other->component); });
}

void ComponentAccessor::getComponent(std::vector<ComponentAccessor>& out, bool ownedOnly) {
    Checked::list(*this, point::AccessorGetChildren, out,
                  [&](Component& target, auto& found) { target.getComponent(found, ownedOnly); });
}

void ComponentAccessor::getComponent(int type, std::vector<ComponentAccessor>& out) {
    Checked::list(*this, point::AccessorGetChildrenOfType, out,
                  [&](Component& target, auto& found) { target.getComponent(type, found); });
}

ComponentAccessor ComponentAccessor::getComponent(int type, int number) {
    return ComponentAccessor(Checked::run(
        *this, point::AccessorGetChild, [&](Component& target) { return target.getComponent(type, number); },
        type, number));
}

void ComponentAccessor::getFeatured(int feature, std::vector<ComponentAccessor>& out) {
    Checked::list(*this, point::AccessorGetFeatured, out,
                  [&](Component& target, auto& found) { target.getFeatured(feature, found); });
}

void ComponentAccessor::findComponent(int type, std::vector<ComponentAccessor>& out, bool includeSelf) {
    Checked::list(*this, point::AccessorFindComponent, out,
                  [&](Component& target, auto& found) { target.findComponent(type, found, includeSelf); });
}

void ComponentAccessor::findFeatured(int feature, std::vector<ComponentAccessor>& out, bool includeSelf) {
    Checked::list(*this, point::AccessorFindFeatured, out,
                  [&](Component& target, auto& found) { target.findFeatured(feature, found, includeSelf); });
}

ComponentAccessor ComponentAccessor::getParent() {
    return ComponentAccessor(
        Checked::run(*this, point::AccessorGetParent, [](Component& target) { return target.getParent(); }));
}

void ComponentAccessor::getParents(std::vector<ComponentAccessor>& out) {
    Checked::list(*this, point::AccessorGetParents, out,
                  [](Component& target, auto& found) { target.getParents(found); });
}

void ComponentAccessor::getParents(int type, std::vector<ComponentAccessor>& out) {
    Checked::list(*this, point::AccessorGetParentsOfType, out,
                  [&](Component& target, auto& found) { target.getParents(type, found); });
}

void ComponentAccessor::getTreePath(TreePath& out) {
    Checked::run(*this, point::AccessorGetTreePath, [&](Component& target) {
        const internal::AccessSection exclusive(Component::getTreeConfig()); // as in notePath
        target.getTreePath(out);
    });
}

void ComponentAccessor::doAction(int actionId, const void* in, unsigned int inSize, void* out,
                                 unsigned int outSize) {
    Checked::run(
        *this, point::AccessorDoAction,
        [&](Component& target) { target.doAction(actionId, in, inSize, out, outSize); }, actionId);
}

bool ComponentAccessor::hasAction(int actionId) {
    return Checked::run(
        *this, point::AccessorHasAction,
        [&](Component& target) {
            std::vector<int> ids;
            target.getActionIds(ids);
            return std::binary_search(ids.begin(), ids.end(), actionId);
        },
        actionId);
}

void ComponentAccessor::getActionIds(std::vector<int>& ids) {
    Checked::run(*this, point::AccessorGetActionIds, [&](Component& target) { target.getActionIds(ids); });
}

} // namespace qz::tavrel
