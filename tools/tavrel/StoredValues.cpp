#include "StoredValues.h"

#include "Values.h"

#include <qz/tavrel/Component.h>
#include <qz/tavrel/ComponentClass.h>
#include <qz/tavrel/NameResolver.h>
#include <qz/tavrel/PropertyLocator.h>
#include <qz/tavrel/TreeConfig.h>

using namespace qz::tavrel;

namespace tavrel::tool {

namespace {

/// Longer values are compared by their start.
constexpr unsigned int readLimit = 65536;

} // namespace

StoredValues storedValues(ValueSize wanted) {
    StoredValues values;
    TreeConfig* tree = Component::getTreeConfig();
    std::string buffer(readLimit, '\0');
    for (int id = 0; id < tree->getNodeCount(); ++id) {
        ComponentClass* type = ComponentClass::get(tree->getNodeType(id));
        PropertyLocator* locator = type == nullptr ? nullptr : type->getPropertyLocator();
        if (locator == nullptr) {
            continue;
        }
        std::vector<int> keys;
        locator->getPropertyKeys(keys);
        for (const int key : keys) {
            const unsigned int size = locator->readData(id, key, buffer.data(), readLimit);
            std::string value = buffer.substr(0, size);
            if (wanted == ValueSize::Configured && size > 0) {
                value.resize(locator->getPropertySize(key));
            }
            values[{id, key}] = std::move(value);
        }
    }
    return values;
}

std::vector<std::string> differences(const StoredValues& before, const StoredValues& after) {
    struct Change {
        int count = 0;
        std::string from;
        std::string to;
    };
    std::map<std::pair<int, int>, Change> changes; // by type and key
    int zeros = 0;
    for (const auto& [place, value] : after) {
        const auto old = before.find(place);
        const std::string from = old == before.end() ? std::string() : old->second;
        if (from == value) {
            continue;
        }
        if (from.empty() && value.find_first_not_of('\0') == std::string::npos) {
            ++zeros; // reads as before
            continue;
        }
        Change& change = changes[{Component::getTreeConfig()->getNodeType(place.first), place.second}];
        // The first value that is not all zero says more than one that is.
        if (change.count++ == 0 || change.from.find_first_not_of('\0') == std::string::npos) {
            change.from = from;
            change.to = value;
        }
    }

    std::vector<std::string> lines;
    lines.reserve(changes.size() + 1);
    NameResolver* names = Component::getNameResolver();
    for (const auto& [what, change] : changes) {
        lines.push_back(names->getComponentName(what.first) + "." + names->getPropertyName(what.second) +
                        ": " + std::to_string(change.count) + (change.count == 1 ? " value" : " values") +
                        ", " + (change.from.empty() ? "nothing" : toHex(change.from)) + " -> " +
                        toHex(change.to));
    }
    if (zeros > 0) {
        lines.push_back(std::to_string(zeros) + (zeros == 1 ? " value" : " values") +
                        " that had not been written: stored as zeros");
    }
    return lines;
}

} // namespace tavrel::tool
