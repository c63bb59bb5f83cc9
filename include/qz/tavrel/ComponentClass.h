/// @file
/// What all components of one type have in common.
#pragma once

#include <map>
#include <string>
#include <unordered_map>
#include <vector>

namespace qz::tavrel {

class Action;
class PropertyLocator;

/// One component type: the children that a node of it gets, its actions, its features and its properties.
///
/// The classes of a process stand in one list, made while the process starts and not changed afterwards.
/// Threads: one while classes are added; any number that only read afterwards, without a lock.
class ComponentClass {
public:
    /// A class without children, actions and properties, and with the feature of its own type.
    explicit ComponentClass(int type);
    ~ComponentClass();
    ComponentClass(const ComponentClass&) = delete;
    ComponentClass& operator=(const ComponentClass&) = delete;

    /// Puts `added` at the head of the list, which owns it; it hides an earlier class of its type.
    static void add(ComponentClass* added);

    /// The class of a type, or null.
    static ComponentClass* get(int type);

    /// The class added last, or null.
    static ComponentClass* get();

    /// The largest `getComponentCount()` of all classes, 0 without any.
    static int getMaxComponentCount();

    /// True if no class contains itself, directly or through others; the sizes of subtrees are defined only
    /// then.
    static bool isAcyclic();

    /// Deletes all classes, their property locators, and each action that one of them binds once.
    static void deleteAll();

    /// Binds an action; the one that it replaces is not deleted.
    void addAction(int id, Action* action);

    /// The action bound to `id`, otherwise `NullAction::getInstance()`; never null.
    Action* getAction(int id);

    /// Appends the bound ids, then sorts the whole of `ids`.
    void getActionIds(std::vector<int>& ids);

    /// Adds a feature unless the class has it.
    void addFeature(int feature);

    /// True if the class has the feature.
    bool hasFeature(int feature);

    /// Sets how many children of `type` a node gets; a second call replaces the first.
    void addComponentCount(int type, int count);

    /// How many children of `type` a node gets; 0 without an entry.
    int getComponentCount(int type);

    /// How many nodes a node of this class makes, with itself; children whose type has no class do not count.
    /// The classes must not contain each other in a circle.
    int getComponentCount();

    /// Appends the types of the children, ascending.
    void getComponentTypes(std::vector<int>& types);

    /// The table of properties; null until set.
    PropertyLocator* getPropertyLocator();

    /// Sets the table of properties, owned from now on; the one that it replaces is not deleted.
    void setPropertyLocator(PropertyLocator* locator);

    /// Always empty: a class has no text form.
    std::string toString();

private:
    bool endsBelow(std::unordered_map<ComponentClass*, bool>& ended);

    ComponentClass* next;
    int type;
    std::vector<int> features;
    PropertyLocator* propertyLocator;
    std::map<int, Action*> actions;
    std::map<int, int> componentCounts;

    static ComponentClass* root;
};

} // namespace qz::tavrel
