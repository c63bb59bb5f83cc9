#include <qz/tavrel/Action.h>
#include <qz/tavrel/ComponentClass.h>
#include <qz/tavrel/PropertyLocator.h>

#include <algorithm>
#include <set>
#include <unordered_map>

namespace qz::tavrel {

namespace {

/// The class that `get` finds for each type: every property access asks for one. Never destroyed: objects of
/// the client that outlive `main` may still use it.
std::unordered_map<int, ComponentClass*>& classesByType() {
    static auto& classes = *new std::unordered_map<int, ComponentClass*>;
    return classes;
}

} // namespace

ComponentClass* ComponentClass::root = nullptr;

ComponentClass::ComponentClass(int ownType)
    : next(nullptr), type(ownType), features{ownType}, propertyLocator(nullptr) {}

ComponentClass::~ComponentClass() {
    delete propertyLocator;
}

void ComponentClass::add(ComponentClass* added) {
    added->next = root;
    root = added;
    classesByType()[added->type] = added;
}

ComponentClass* ComponentClass::get(int type) {
    const auto found = classesByType().find(type);
    return found == classesByType().end() ? nullptr : found->second;
}

ComponentClass* ComponentClass::get() {
    return root;
}

int ComponentClass::getMaxComponentCount() {
    int largest = 0;
    for (ComponentClass* each = root; each != nullptr; each = each->next) {
        largest = std::max(largest, each->getComponentCount());
    }
    return largest;
}

bool ComponentClass::isAcyclic() {
    std::unordered_map<ComponentClass*, bool> ended;
    for (ComponentClass* each = root; each != nullptr; each = each->next) {
        if (!each->endsBelow(ended)) {
            return false;
        }
    }
    return true;
}

/// True if no way down from this class comes back to itself; `ended` holds the classes met so far and whether
/// all ways down from them are known to end.
bool ComponentClass::endsBelow(std::unordered_map<ComponentClass*, bool>& ended) {
    const auto [entry, isNew] = ended.emplace(this, false);
    if (!isNew) {
        return entry->second;
    }
    for (const auto& [childType, count] : componentCounts) {
        ComponentClass* const child = get(childType);
        if (child != nullptr && !child->endsBelow(ended)) {
            return false;
        }
    }
    ended[this] = true;
    return true;
}

void ComponentClass::deleteAll() {
    ComponentClass* each = root;
    root = nullptr;
    classesByType().clear();
    std::set<Action*> bound;
    while (each != nullptr) {
        ComponentClass* const following = each->next;
        for (const auto& [id, action] : each->actions) {
            bound.insert(action);
        }
        delete each;
        each = following;
    }
    for (Action* const action : bound) {
        delete action;
    }
}

void ComponentClass::addAction(int id, Action* action) {
    actions[id] = action;
}

Action* ComponentClass::getAction(int id) {
    const auto found = actions.find(id);
    const bool isBound = found != actions.end() && found->second != nullptr;
    return isBound ? found->second : NullAction::getInstance();
}

void ComponentClass::getActionIds(std::vector<int>& ids) {
    for (const auto& [id, action] : actions) {
        ids.push_back(id);
    }
    std::sort(ids.begin(), ids.end());
}

void ComponentClass::addFeature(int feature) {
    if (!hasFeature(feature)) {
        features.push_back(feature);
    }
}

bool ComponentClass::hasFeature(int feature) {
    return std::find(features.begin(), features.end(), feature) != features.end();
}

void ComponentClass::addComponentCount(int childType, int count) {
    componentCounts[childType] = count;
}

int ComponentClass::getComponentCount(int childType) {
    const auto found = componentCounts.find(childType);
    return found == componentCounts.end() ? 0 : found->second;
}

int ComponentClass::getComponentCount() {
    unsigned int total = 1; // sums and products wrap at 32 bits
    for (const auto& [childType, count] : componentCounts) {
        if (ComponentClass* const child = get(childType)) {
            total += static_cast<unsigned int>(count) * static_cast<unsigned int>(child->getComponentCount());
        }
    }
    return static_cast<int>(total);
}

void ComponentClass::getComponentTypes(std::vector<int>& types) {
    for (const auto& [childType, count] : componentCounts) {
        types.push_back(childType);
    }
}

PropertyLocator* ComponentClass::getPropertyLocator() {
    return propertyLocator;
}

void ComponentClass::setPropertyLocator(PropertyLocator* locator) {
    propertyLocator = locator;
}

std::string ComponentClass::toString() {
    return {};
}

} // namespace qz::tavrel
