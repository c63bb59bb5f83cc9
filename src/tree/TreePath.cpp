#include "base/Decimal.h"
#include "base/Fault.h"
#include "base/Trace.h"

#include <qz/tavrel/Component.h>
#include <qz/tavrel/NameResolver.h>
#include <qz/tavrel/TreePath.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace qz::tavrel {

namespace point = internal::point;
using internal::trace;
using internal::traceText;

namespace {

/// The binary form of a step.
struct StoredStep {
    std::int32_t type;
    std::int32_t number;
};
static_assert(sizeof(StoredStep) == 8);
static_assert(offsetof(StoredStep, type) == 0 && offsetof(StoredStep, number) == 4);

using StoredCount = std::int32_t;

/// Reads one 32-bit field; `value` stays when the stream holds it only in part.
void readField(std::istream& stream, std::int32_t& value) {
    std::int32_t whole = 0;
    if (stream.read(reinterpret_cast<char*>(&whole), sizeof whole)) {
        value = whole;
    }
}

void writeField(std::ostream& stream, std::int32_t value) {
    stream.write(reinterpret_cast<const char*>(&value), sizeof value);
}

// A process that is being torn down has a tree without names for a moment, and listeners that ask for paths.

int typeOf(const std::string& name) {
    NameResolver* const names = Component::getNameResolver();
    return names == nullptr ? 0 : names->getComponentType(name);
}

std::string nameOf(int type) {
    NameResolver* const names = Component::getNameResolver();
    return names == nullptr ? std::string() : names->getComponentName(type);
}

} // namespace

char TreePath::delimita = '/';
char TreePath::binder = '#';

TreePath::TreePath() : component(nullptr) {}

TreePath::TreePath(const std::string& text) : component(nullptr) {
    fromString(text);
}

TreePath::~TreePath() = default;

void TreePath::add(Component* added) {
    if (added == nullptr) {
        trace(point::TreePathAddNull);
        internal::raise("TreePath", "add", "TreePath::add");
    }
    add(added->getType(), added->getNo());
    component = added;
}

void TreePath::add(int type, int number) {
    steps.emplace_back(type, number);
}

void TreePath::clear() {
    steps.clear();
    component = nullptr;
}

int TreePath::getPathCount() {
    return static_cast<int>(steps.size());
}

int TreePath::getTypeAt(unsigned int index) {
    if (index >= steps.size()) {
        trace(point::TreePathTypeIndex, index, 0);
        return 0;
    }
    return steps[index].first;
}

int TreePath::getNumberAt(unsigned int index) {
    if (index >= steps.size()) {
        trace(point::TreePathNumberIndex, index, 0);
        return -1;
    }
    return steps[index].second;
}

void TreePath::fromString(const std::string& text) {
    std::vector<std::pair<int, int>> parsed;
    std::size_t position = 0;
    while ((position = text.find(delimita, position)) != std::string::npos) {
        const std::size_t nameStart = position + 1;
        const std::size_t bind = text.find(binder, nameStart);
        if (bind == std::string::npos) {
            trace(point::TreePathNoBinder);
            traceText(point::TreePathNoBinderText, text.c_str());
            parsed.clear();
            break;
        }
        position = std::min(text.find_first_not_of("0123456789", bind + 1), text.size());
        const std::string digits = text.substr(bind + 1, position - (bind + 1));
        const int type = typeOf(text.substr(nameStart, bind - nameStart));
        const int number = internal::decimal(digits);
        if (number < 0) {
            trace(point::TreePathBadNumber);
            traceText(point::TreePathBadNumberText, digits.c_str());
            parsed.clear();
            break;
        }
        parsed.emplace_back(type, number);
    }
    steps = std::move(parsed);
    component = nullptr;
}

std::string TreePath::toString() {
    std::string text;
    for (const auto& [type, number] : steps) {
        text += delimita;
        text += nameOf(type);
        text += binder;
        text += std::to_string(number);
    }
    return text;
}

std::istream& TreePath::read(std::istream& stream) {
    std::vector<std::pair<int, int>> found;
    StoredCount count = 0;
    readField(stream, count);
    for (StoredCount i = 0; i < count; ++i) {
        StoredStep step{-1, -1};
        readField(stream, step.type);
        readField(stream, step.number);
        if (step.type < 0 || step.number < 0) {
            trace(point::TreePathStreamBadStep, step.type, step.number);
            found.clear();
            break;
        }
        found.emplace_back(step.type, step.number);
    }
    steps = std::move(found);
    component = nullptr;
    return stream;
}

std::ostream& TreePath::write(std::ostream& stream) {
    writeField(stream, static_cast<StoredCount>(steps.size()));
    for (const auto& [type, number] : steps) {
        writeField(stream, type);
        writeField(stream, number);
    }
    return stream;
}

int TreePath::read(const void* data, unsigned int size) {
    if (size <= sizeof(StoredCount)) {
        return -1;
    }
    const auto* const bytes = static_cast<const unsigned char*>(data);
    StoredCount count = 0;
    std::memcpy(&count, bytes, sizeof count);
    if (count < 0 || (size - sizeof count) / sizeof(StoredStep) < static_cast<std::uint32_t>(count)) {
        return -1;
    }
    std::vector<std::pair<int, int>> found;
    for (std::uint32_t i = 0; i < static_cast<std::uint32_t>(count); ++i) {
        StoredStep step{};
        std::memcpy(&step, bytes + sizeof count + i * sizeof step, sizeof step);
        if (step.type < 0 || step.number < 0) {
            trace(point::TreePathMemoryBadStep, step.type, step.number);
            steps.clear();
            component = nullptr;
            return -1;
        }
        found.emplace_back(step.type, step.number);
    }
    steps = std::move(found);
    component = nullptr;
    return static_cast<int>(sizeof count + steps.size() * sizeof(StoredStep));
}

int TreePath::write(void* data, unsigned int size) {
    const std::size_t body = steps.size() * sizeof(StoredStep);
    if (body >= size) {
        return 0;
    }
    auto* const bytes = static_cast<unsigned char*>(data);
    const auto count = static_cast<StoredCount>(steps.size());
    std::memcpy(bytes, &count, sizeof count);
    std::size_t position = sizeof count;
    for (const auto& [type, number] : steps) {
        const StoredStep step{type, number};
        std::memcpy(bytes + position, &step, sizeof step);
        position += sizeof step;
    }
    return static_cast<int>(position);
}

bool TreePath::getComponentList(std::vector<Component*>& out) {
    Component* current = nullptr;
    for (const auto& [type, number] : steps) {
        if (current == nullptr) {
            Component* const root = Component::getRoot();
            const int rootType = root->getType();
            const int rootNumber = root->getNo();
            if (rootType != type || rootNumber != number) {
                trace(point::TreePathRootDiffers, type, number, rootType, rootNumber);
                return false;
            }
            current = root;
        } else {
            Component* const next = current->getComponent(type, number);
            if (next == nullptr) {
                trace(point::TreePathStepNotFound, type, number, current->getComponentId());
                return false;
            }
            current = next;
        }
        out.push_back(current);
    }
    return true;
}

Component* TreePath::getComponent() {
    if (component == nullptr) {
        std::vector<Component*> found;
        if (getComponentList(found) && !found.empty()) {
            component = found.back();
        }
    }
    return component;
}

} // namespace qz::tavrel
