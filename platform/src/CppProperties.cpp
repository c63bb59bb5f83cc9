#include "Text.h"

#include <qz/util/config/CppProperties.h>

#include <fstream>

namespace qz::util::config {

CppProperties::CppProperties(bool listInFileOrder) : fileOrder(listInFileOrder) {}

void CppProperties::load(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    while (std::getline(file, line)) {
        const std::string text = trimmed(line);
        if (text.empty() || text.front() == '#' || text.front() == '!') {
            continue;
        }
        const std::size_t split = text.find('=');
        if (split == std::string::npos) {
            continue;
        }
        const std::string key = trimmed(text.substr(0, split));
        if (!key.empty()) {
            setProperty(key, trimmed(text.substr(split + 1)));
        }
    }
}

std::string CppProperties::getProperty(const std::string& key) const {
    const auto found = values.find(key);
    return found == values.end() ? std::string() : found->second;
}

void CppProperties::setProperty(const std::string& key, const std::string& value) {
    const auto [entry, isNew] = values.insert_or_assign(key, value);
    if (isNew) {
        order.push_back(entry->first);
    }
}

void CppProperties::getKeys(std::vector<std::string>& keys) const {
    if (fileOrder) {
        keys.insert(keys.end(), order.begin(), order.end());
        return;
    }
    for (const auto& [key, value] : values) {
        keys.push_back(key);
    }
}

void CppProperties::clear() {
    values.clear();
    order.clear();
}

} // namespace qz::util::config
