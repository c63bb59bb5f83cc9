#include "base/Trace.h"

#include <qz/tavrel/Action.h>
#include <qz/tavrel/Builder.h>
#include <qz/tavrel/Factory.h>
#include <qz/tavrel/Specification.h>

#include <memory>

namespace qz::tavrel {

namespace point = internal::point;
using internal::traceText;

namespace {

/// The cells of a row behind its class name.
std::vector<std::string> attributesOf(Specification::Entry& entry) {
    std::vector<std::string> attributes;
    for (int i = 1; i < static_cast<int>(entry.size()); ++i) {
        attributes.push_back(entry[static_cast<unsigned int>(i)]);
    }
    return attributes;
}

/// Makes the action of one row. Null when the factory gives none.
std::unique_ptr<Action> makeAction(Factory& factory, NameResolver* resolver, Specification::Entry& entry) {
    const std::string& className = entry[0];
    std::unique_ptr<Action> action;
    try {
        action.reset(static_cast<Action*>(factory.createInstance(className)));
    } catch (...) {
        traceText(point::BuilderActionNotMade, className.c_str());
        throw;
    }
    const std::vector<std::string> attributes = attributesOf(entry);
    if (action == nullptr || attributes.empty()) {
        return action;
    }
    try {
        action->setAttribute(resolver, attributes);
    } catch (...) {
        traceText(point::BuilderAttributesFailed, className.c_str());
        for (const std::string& attribute : attributes) {
            traceText(point::BuilderAttribute, attribute.c_str());
        }
        throw;
    }
    return action;
}

} // namespace

Action* Builder::getAction(const std::string& section) {
    const std::unique_ptr<Specification::Entries> entries(getActionSpec()->getEntries(section, "action"));
    if (entries == nullptr) {
        return nullptr;
    }
    std::vector<std::unique_ptr<Action>> made;
    try {
        while (const auto entry = std::unique_ptr<Specification::Entry>(entries->getNextEntry())) {
            if (auto action = makeAction(*factory, getResolver(), *entry)) {
                made.push_back(std::move(action));
            }
        }
        if (made.size() < 2) {
            return made.empty() ? nullptr : made.front().release();
        }
        auto* const list =
            static_cast<ActionList*>(static_cast<Action*>(factory->createInstance("ActionList")));
        std::vector<Action*> actions;
        actions.reserve(made.size());
        for (auto& action : made) {
            actions.push_back(action.release());
        }
        list->addAction(actions);
        return list;
    } catch (...) {
        traceText(point::BuilderActionSectionFailed, section.c_str());
        throw;
    }
}

Action* Builder::getAction(const std::string& className, const std::string& actionName) {
    const std::string key = className + "::" + actionName;
    const auto own = actionTable.find(key);
    if (own != actionTable.end() && own->second != nullptr) {
        return own->second;
    }
    if (own == actionTable.end()) {
        if (Action* const action = getAction(key)) {
            actionTable[key] = action;
            return action;
        }
    }
    const std::string genericKey = "::" + actionName;
    const auto generic = actionTable.find(genericKey);
    if (generic != actionTable.end()) {
        return generic->second;
    }
    // Not kept: every class that falls back gets its own. A miss is, so that it is searched for once.
    Action* const action = getAction(genericKey);
    if (action == nullptr) {
        actionTable[genericKey] = nullptr;
    }
    return action;
}

} // namespace qz::tavrel
