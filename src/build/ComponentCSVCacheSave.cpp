#include "base/Decimal.h"
#include "base/FileText.h"
#include "base/Guards.h"
#include "build/CacheFormat.h"
#include "build/ComponentNames.h"

#include <qz/tavrel/ComponentCSVCache.h>
#include <qz/tavrel/NameResolver.h>
#include <qz/tavrel/Specification.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <memory>

namespace qz::tavrel {

namespace {

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

/// Opens a file for writing and empties it. @return null on failure
File openFile(const std::string& path) {
    internal::Descriptor descriptor(internal::openEmptied(path));
    File file(descriptor.isOpen() ? fdopen(descriptor.number(), "w") : nullptr);
    if (file) {
        static_cast<void>(descriptor.release()); // closed with the file
    }
    return file;
}

/// Writes one record. What goes wrong is kept by the file and asked for at its end.
template <typename T>
void put(std::FILE* file, const T& record) {
    std::fwrite(&record, sizeof record, 1, file);
}

template <typename T>
void putAll(std::FILE* file, const std::vector<T>& records) {
    for (const T& record : records) {
        put(file, record);
    }
}

/// Writes a header without its magic text, which makes the file a valid one.
void putHeader(std::FILE* file) {
    file_header_t header{};
    header.version = internal::cacheVersion;
    put(file, header);
}

/// Writes the magic text, once all else has reached the file. @return false if it could not
bool putMagic(std::FILE* file) {
    static_assert(sizeof internal::cacheMagic == sizeof file_header_t::magic);
    static_assert(offsetof(file_header_t, magic) == 0);
    if (std::fflush(file) != 0 || std::ferror(file) != 0 || std::fseek(file, 0, SEEK_SET) != 0) {
        return false;
    }
    put(file, internal::cacheMagic);
    return std::ferror(file) == 0;
}

void putEndMark(std::FILE* file) {
    compo_spec_t mark{};
    mark.name = internal::cacheEndMark;
    put(file, mark);
}

void putNames(std::FILE* file, const std::vector<std::string>& names) {
    put(file, static_cast<std::uint32_t>(names.size()));
    std::uint32_t offset = 0;
    for (const std::string& name : names) {
        put(file, offset);
        offset += static_cast<std::uint32_t>(name.size() + 1);
    }
    for (const std::string& name : names) {
        std::fwrite(name.c_str(), name.size() + 1, 1, file);
    }
}

/// Calls `use` for every entry of a subsection that has at least `fewest` cells.
template <typename Use>
void eachEntry(Specification& spec, const std::string& section, const char* subsection, unsigned int fewest,
               Use use) {
    const std::unique_ptr<Specification::Entries> entries(spec.getEntries(section, subsection));
    if (entries == nullptr) {
        return;
    }
    while (const std::unique_ptr<Specification::Entry> entry{entries->getNextEntry()}) {
        if (entry->size() >= fewest) {
            use(*entry);
        }
    }
}

template <typename T>
std::uint16_t countOf(const std::vector<T>& records) {
    return static_cast<std::uint16_t>(records.size());
}

} // namespace

ComponentCSVCacheSave::ComponentCSVCacheSave(Specification* itsSpec, NameResolver* itsResolver)
    : spec(itsSpec), resolver(itsResolver) {}

bool ComponentCSVCacheSave::save(const std::string& path) {
    File file = openFile(path);
    if (!file) {
        return false;
    }
    bool isWhole = false;
    try {
        writeTo(file.get());
        isWhole = putMagic(file.get());
    } catch (...) {
        return false; // what has been written does not load
    }
    return std::fclose(file.release()) == 0 && isWhole;
}

void ComponentCSVCacheSave::writeTo(std::FILE* file) {
    putHeader(file);
    std::vector<std::string> types;
    getComponentNames(types);
    types.emplace_back("NullComponent");
    for (const std::string& type : types) {
        compo_spec_t compo{};
        std::vector<property_spec_t> properties;
        std::vector<subcompo_spec_t> subcompos;
        std::vector<action_spec_t> actions;
        std::vector<feature_spec_t> features;
        buildClass(type, compo);
        buildProperties(type, properties);
        buildComposition(type, subcompos);
        buildAction(type, actions);
        buildFeature(type, features);
        compo.propertyCount = countOf(properties);
        compo.subcompoCount = countOf(subcompos);
        compo.actionCount = countOf(actions);
        compo.featureCount = countOf(features);
        put(file, compo);
        putAll(file, properties);
        putAll(file, subcompos);
        putAll(file, actions);
        putAll(file, features);
    }
    putEndMark(file);
    putNames(file, names);
}

void ComponentCSVCacheSave::getComponentNames(std::vector<std::string>& out) {
    internal::appendComponentNames(*spec, out, internal::point::CacheSaveRowSkipped);
}

int ComponentCSVCacheSave::getNameId(const std::string& name) {
    const auto found = std::find(names.begin(), names.end(), name);
    const auto id = static_cast<int>(found - names.begin());
    if (found == names.end()) {
        names.push_back(name);
    }
    return id;
}

void ComponentCSVCacheSave::buildClass(const std::string& name, compo_spec_t& compo) {
    compo.name = getNameId(name);
    compo.type = resolver->getComponentType(name);
}

void ComponentCSVCacheSave::buildProperties(const std::string& name,
                                            std::vector<property_spec_t>& properties) {
    eachEntry(*spec, name, "property", 3, [&](Specification::Entry& entry) {
        property_spec_t property{};
        property.name = getNameId(entry[0]);
        property.key = resolver->getPropertyKey(entry[1]);
        property.size = static_cast<std::uint32_t>(internal::decimal(entry[2]));
        properties.push_back(property);
    });
}

void ComponentCSVCacheSave::buildComposition(const std::string& name,
                                             std::vector<subcompo_spec_t>& subcompos) {
    eachEntry(*spec, name, "component", 2, [&](Specification::Entry& entry) {
        subcompo_spec_t subcompo{};
        subcompo.name = getNameId(entry[0]);
        subcompo.type = resolver->getComponentType(entry[0]);
        subcompo.count = static_cast<std::uint16_t>(internal::decimal(entry[1]));
        subcompos.push_back(subcompo);
    });
}

void ComponentCSVCacheSave::buildAction(const std::string& name, std::vector<action_spec_t>& actions) {
    eachEntry(*spec, name, "action", 1, [&](Specification::Entry& entry) {
        action_spec_t action{};
        action.name = getNameId(entry[0]);
        action.id = resolver->getActionId(entry[0]);
        actions.push_back(action);
    });
}

void ComponentCSVCacheSave::buildFeature(const std::string& name, std::vector<feature_spec_t>& features) {
    eachEntry(*spec, name, "feature", 1, [&](Specification::Entry& entry) {
        for (unsigned int i = 0; i < entry.size(); ++i) {
            feature_spec_t feature{};
            feature.name = getNameId(entry[i]);
            feature.id = resolver->getComponentType(entry[i]);
            features.push_back(feature);
        }
    });
}

} // namespace qz::tavrel
