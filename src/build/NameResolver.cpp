#include "base/FileText.h"
#include "base/Trace.h"

#include <qz/tavrel/NameResolver.h>

#include <locale>
#include <sstream>

namespace qz::tavrel {

namespace {

constexpr int componentTypes = 0;
constexpr int actionIds = 1;
constexpr int propertyKeys = 2;

constexpr int unknown = -1;
constexpr int failed = -1;

int position(std::streamoff offset) {
    return static_cast<int>(offset);
}

} // namespace

NameResolver::Dictionary::Dictionary() = default;
NameResolver::Dictionary::~Dictionary() = default;

NameResolver::Dictionary::Dictionary(const Dictionary& other)
    : dictionary(other.dictionary ? std::make_unique<NameResolverDictionary>(*other.dictionary) : nullptr) {}

NameResolver::Dictionary& NameResolver::Dictionary::operator=(Dictionary other) noexcept {
    dictionary.swap(other.dictionary);
    return *this;
}

NameResolverDictionary* NameResolver::Dictionary::impl() {
    if (!dictionary) {
        dictionary = std::make_unique<NameResolverDictionary>();
    }
    return dictionary.get();
}

std::string NameResolver::Dictionary::getName(int value) {
    return impl()->getName(value);
}

int NameResolver::Dictionary::getValue(const std::string& name) {
    return impl()->getValue(name);
}

void NameResolver::Dictionary::setValue(const std::string& name, int value) {
    impl()->setValue(name, value);
}

int NameResolver::Dictionary::addName(const std::string& name) {
    return impl()->addName(name);
}

std::istream& NameResolver::Dictionary::read(std::istream& stream) {
    return impl()->read(stream);
}

std::ostream& NameResolver::Dictionary::write(std::ostream& stream) {
    return impl()->write(stream);
}

std::string NameResolver::Dictionary::toString() {
    return impl()->toString();
}

NameResolver::NameResolver() {
    dictionaries[componentTypes].setValue("NullComponent", 0);
    dictionaries[componentTypes].setValue("Exclusive", 1);
    dictionaries[actionIds].setValue("NoOperation", 0);
}

NameResolver::~NameResolver() = default;

int NameResolver::getComponentType(const std::string& name) {
    Dictionary& types = dictionaries[componentTypes];
    int type = types.getValue(name);
    if (type == unknown) {
        type = types.addName(name);
        internal::traceFormat(internal::point::ComponentTypeAdded, "%s is added.", name.c_str());
    }
    return type;
}

std::string NameResolver::getComponentName(int type) {
    return dictionaries[componentTypes].getName(type);
}

int NameResolver::getActionId(const std::string& name) {
    const int id = dictionaries[actionIds].getValue(name);
    if (id == unknown) {
        internal::traceFormat(internal::point::ActionIdUnknown, "%s is not found.", name.c_str());
    }
    return id;
}

std::string NameResolver::getActionName(int id) {
    return dictionaries[actionIds].getName(id);
}

int NameResolver::getPropertyKey(const std::string& name) {
    const int key = dictionaries[propertyKeys].getValue(name);
    if (key == unknown) {
        internal::traceFormat(internal::point::PropertyKeyUnknown, "%s is not found.", name.c_str());
    }
    return key;
}

std::string NameResolver::getPropertyName(int key) {
    return dictionaries[propertyKeys].getName(key);
}

int NameResolver::getValue(int dictionary, const std::string& name) {
    const auto found = dictionaries.find(dictionary);
    return found == dictionaries.end() ? unknown : found->second.getValue(name);
}

std::string NameResolver::getName(int dictionary, int value) {
    const auto found = dictionaries.find(dictionary);
    return found == dictionaries.end() ? std::string() : found->second.getName(value);
}

void NameResolver::setComponentType(const std::string& name, int value) {
    setDictionaryEntry(componentTypes, name, value);
}

void NameResolver::setActionId(const std::string& name, int value) {
    setDictionaryEntry(actionIds, name, value);
}

void NameResolver::setPropertyKey(const std::string& name, int value) {
    setDictionaryEntry(propertyKeys, name, value);
}

void NameResolver::setDictionaryEntry(int dictionary, const std::string& name, int value) {
    dictionaries[dictionary].setValue(name, value);
}

std::ostream& NameResolver::write(std::ostream& stream) {
    stream << dictionaries.size() << std::endl;
    for (auto& [number, dictionary] : dictionaries) {
        stream << number << std::endl;
        dictionary.write(stream);
    }
    return stream;
}

std::istream& NameResolver::read(std::istream& stream) {
    dictionaries.clear();
    int count = 0;
    stream >> count;
    // Every number that a dry stream cannot give is -1: one empty dictionary, whatever the count says.
    for (int i = 0; i < count && stream; ++i) {
        int number = unknown;
        stream >> number;
        dictionaries[number].read(stream);
    }
    return stream;
}

int NameResolver::save(const std::string& path) {
    if (path.empty()) {
        return 0;
    }
    std::ostringstream text;
    text.imbue(std::locale::classic());
    write(text);
    return internal::writeFile(path, text.str()) ? position(text.tellp()) : failed;
}

int NameResolver::load(const std::string& path) {
    if (path.empty()) {
        return 0;
    }
    std::string content;
    if (!internal::readFile(path, content)) {
        return failed;
    }
    std::istringstream text(content);
    text.imbue(std::locale::classic());
    read(text);
    if (text.fail()) {
        return failed;
    }
    text.clear(); // the last entry may end with the file
    return position(text.tellg());
}

std::string NameResolver::toString() {
    const auto textOf = [this](int number) {
        const auto found = dictionaries.find(number);
        return found == dictionaries.end() ? std::string() : found->second.toString();
    };
    return "Component\n" + textOf(componentTypes) + "\nAction\n" + textOf(actionIds) + "\nProperty\n" +
           textOf(propertyKeys) + "\n";
}

} // namespace qz::tavrel
