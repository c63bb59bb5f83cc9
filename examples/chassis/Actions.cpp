#include "Actions.h"

#include "LockGuard.h"

#include <qz/tavrel/Component.h>
#include <qz/tavrel/NameResolver.h>
#include <qz/tavrel/TreePath.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <stdexcept>
#include <system_error>

using qz::tavrel::Component;
using qz::tavrel::NameResolver;
using qz::tavrel::TreePath;

namespace chassis {

namespace {

[[noreturn]] void refuse(const std::string& action, const std::string& reason) {
    throw std::runtime_error(action + ": " + reason);
}

// The cells of a row are checked here: a wrong row is then refused at the start, with its
// reason, and not when the action runs. Each throws std::runtime_error.

/// A cell of a row.
const std::string& cellOf(const std::vector<std::string>& attributes, std::size_t index,
                          const std::string& action, const std::string& wanted) {
    if (index >= attributes.size() || attributes[index].empty()) {
        refuse(action, wanted + " is missing");
    }
    return attributes[index];
}

/// The key of a property.
int propertyOf(NameResolver* resolver, const std::string& name, const std::string& action) {
    const int key = resolver->getPropertyKey(name);
    if (key == -1) {
        refuse(action, "unknown property '" + name + "'");
    }
    return key;
}

/// The number of a type. `getComponentType` would give an unknown name a number; this only looks it up.
int typeOf(NameResolver* resolver, const std::string& name, const std::string& action) {
    constexpr int types = 0; // dictionary of the types
    const int type = resolver->getValue(types, name);
    if (type == -1) {
        refuse(action, "unknown type '" + name + "'");
    }
    return type;
}

/// The number that a whole text is.
int numberOf(const std::string& text, const std::string& action) {
    int number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end) {
        refuse(action, "'" + text + "' is no number");
    }
    return number;
}

} // namespace

int SetProperty::setAttribute(NameResolver* resolver, const std::vector<std::string>& attributes) {
    name = cellOf(attributes, 0, "SetProperty", "the property");
    key = propertyOf(resolver, name, "SetProperty");
    value = numberOf(cellOf(attributes, 1, "SetProperty", "the number"), "SetProperty");
    return 2;
}

void SetProperty::execute(Component* target, int, const void*, unsigned int, void*, unsigned int) {
    if (target->setProperty(key, value) == 0) {
        throw std::runtime_error("SetProperty: " + name + " was not stored");
    }
}

int LinkShared::setAttribute(NameResolver* resolver, const std::vector<std::string>& attributes) {
    holderType =
        typeOf(resolver, cellOf(attributes, 0, "LinkShared", "the type of the holders"), "LinkShared");
    sharedType = typeOf(resolver, cellOf(attributes, 1, "LinkShared", "the type to share"), "LinkShared");
    return 2;
}

void LinkShared::execute(Component* target, int, const void*, unsigned int, void*, unsigned int) {
    const WriteLock lock(target);
    std::vector<Component*> holders;
    std::vector<Component*> shared;
    target->findComponent(holderType, holders, false);
    target->findComponent(sharedType, shared, false);

    for (Component* holder : holders) {
        for (Component* child : shared) {
            if (!holder->contains(child)) {
                holder->addComponent(child);
            }
        }
    }
}

// A row without attributes never comes here, so whatever an action needs has to stand in its row.
int Identify::setAttribute(NameResolver* resolver, const std::vector<std::string>& attributes) {
    serialNumberKey = propertyOf(resolver, cellOf(attributes, 0, "Identify", "the property"), "Identify");
    return 1;
}

void Identify::execute(Component* target, int, const void*, unsigned int, void* out, unsigned int outSize) {
    TreePath path;
    target->getTreePath(path);
    std::string text = path.toString();

    std::string serial(target->getPropertySize(serialNumberKey), '\0');
    if (!serial.empty()) {
        target->getProperty(serialNumberKey, serial.data(), static_cast<unsigned int>(serial.size()));
        text += " serial number '" + serial.substr(0, serial.find('\0')) + "'";
    }

    if (outSize > 0) {
        const std::size_t length = std::min<std::size_t>(text.size(), outSize - 1);
        std::memcpy(out, text.data(), length);
        static_cast<char*>(out)[length] = '\0';
    }
}

qz::tavrel::Action* createAction(const std::string& name) {
    if (name == "SetProperty") {
        return new SetProperty;
    }
    if (name == "LinkShared") {
        return new LinkShared;
    }
    if (name == "Identify") {
        return new Identify;
    }
    return nullptr;
}

} // namespace chassis
