#include <qz/tavrel/Action.h>
#include <qz/tavrel/ComponentClass.h>
#include <qz/tavrel/PropertyLocator.h>

#include <algorithm>
#include <set>
#include <unordered_map>

namespace qz::tavrel {

namespace {

/// The class that `get` finds for each type: every property access asks for one.
std::unordered_map<int, ComponentClass*>& classesByType() {
    static std::unordered_map<int, ComponentClass*> classes;
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
    // Takes away, again and again, the classes whose children have all been taken away; a circle stays.
    std::set<ComponentClass*> left;
    for (ComponentClass* each = root; each != nullptr; each = each->next) {
        left.insert(each);
    }
    const auto containsLeft = [&left](ComponentClass* each) {
        return std::any_of(each->componentCounts.begin(), each->componentCounts.end(),
                           [&left](const auto& entry) { return left.count(get(entry.first)) != 0; });
    };
    for (std::size_t before = left.size() + 1; left.size() < before;) {
        before = left.size();
        for (auto each = left.begin(); each != left.end();) {
            each = containsLeft(*each) ? std::next(each) : left.erase(each);
        }
    }
    return left.empty();
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
