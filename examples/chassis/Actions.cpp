#include "Actions.h"

#include "LockGuard.h"

#include <qz/tavrel/Component.h>
#include <qz/tavrel/NameResolver.h>
#include <qz/tavrel/TreePath.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

using qz::tavrel::Component;
using qz::tavrel::NameResolver;
using qz::tavrel::TreePath;

namespace chassis {

int SetProperty::setAttribute(NameResolver* resolver, const std::vector<std::string>& attributes) {
    if (attributes.size() < 2) {
        throw std::runtime_error("SetProperty needs a property and a number");
    }
    name = attributes[0];
    key = resolver->getPropertyKey(name);
    value = static_cast<int>(std::strtol(attributes[1].c_str(), nullptr, 10));
    return 2;
}

void SetProperty::execute(Component* target, int, const void*, unsigned int, void*, unsigned int) {
    if (target->setProperty(key, value) == 0) {
        throw std::runtime_error("SetProperty: " + name + " was not stored");
    }
}

int LinkShared::setAttribute(NameResolver* resolver, const std::vector<std::string>& attributes) {
    if (attributes.size() < 2) {
        throw std::runtime_error("LinkShared needs the type of the holders and the type to share");
    }
    holderType = resolver->getComponentType(attributes[0]);
    sharedType = resolver->getComponentType(attributes[1]);
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
    serialNumberKey = resolver->getPropertyKey(attributes[0]);
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
