#include "Text.h"

#include <qz/util/config/CppProperties.h>

#include <fstream>
#include <utility>

namespace qz::util::config {

namespace {

using platform::trimmed;

bool isComment(std::string_view line) {
    return line.front() == '#' || line.front() == '!';
}

} // namespace

CppProperties::CppProperties(bool inFileOrder) : fileOrder(inFileOrder) {}

void CppProperties::load(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    std::vector<std::pair<std::string, std::string>> read;
    std::string text;
    while (std::getline(stream, text)) {
        const std::string_view line = trimmed(text);
        const std::size_t split = line.find('=');
        if (split == std::string_view::npos || split == 0 || isComment(line)) {
            continue;
        }
        read.emplace_back(platform::trimmedEnd(line.substr(0, split)),
                          platform::trimmedStart(line.substr(split + 1)));
    }
    if (stream.bad()) {
        return;
    }
    for (const auto& [key, value] : read) {
        setProperty(key, value);
    }
}

std::string CppProperties::getProperty(const std::string& key) const {
    const auto entry = values.find(key);
    return entry == values.end() ? std::string() : entry->second;
}

void CppProperties::setProperty(const std::string& key, const std::string& value) {
    if (values.insert_or_assign(key, value).second) {
        order.push_back(key);
    }
}

void CppProperties::getKeys(std::vector<std::string>& keys) const {
    if (fileOrder) {
        keys.insert(keys.end(), order.begin(), order.end());
        return;
    }
    for (const auto& entry : values) {
        keys.push_back(entry.first);
    }
}

void CppProperties::clear() {
    values.clear();
    order.clear();
}

} // namespace qz::util::config
