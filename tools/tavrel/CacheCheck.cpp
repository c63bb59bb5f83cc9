#include "CacheCheck.h"

#include "Names.h"
#include "Refusal.h"
#include "build/CacheFormat.h"

#include <qz/tavrel/ComponentCSVCache.h>
#include <qz/tavrel/NameResolver.h>
#include <qz/tavrel/Specification.h>

#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <vector>

using qz::tavrel::NameResolver;
using qz::tavrel::Specification;

namespace tavrel::tool {

namespace {

/// A type as the cache has it.
struct CachedType {
    qz::tavrel::compo_spec_t compo{};
    std::vector<qz::tavrel::property_spec_t> properties;
    std::vector<qz::tavrel::subcompo_spec_t> subcompos;
    std::vector<qz::tavrel::action_spec_t> actions;
    std::vector<qz::tavrel::feature_spec_t> features;
};

/// Reads the records of a cache; false as soon as the file ends early or its names lead out of it.
class CacheFile {
public:
    explicit CacheFile(std::string content) : bytes(std::move(content)) {}

    bool read(std::vector<CachedType>& types) {
        qz::tavrel::file_header_t header{};
        if (!take(header) || std::memcmp(header.magic, qz::internal::cacheMagic, sizeof header.magic) != 0 ||
            header.version != qz::internal::cacheVersion) {
            return false;
        }
        CachedType type;
        while (take(type.compo) && type.compo.name != qz::internal::cacheEndMark) {
            if (!take(type.properties, type.compo.propertyCount) ||
                !take(type.subcompos, type.compo.subcompoCount) ||
                !take(type.actions, type.compo.actionCount) ||
                !take(type.features, type.compo.featureCount)) {
                return false;
            }
            types.push_back(type);
        }
        std::uint32_t count = 0;
        return take(count) && count <= bytes.size() && take(offsets, count);
    }

    /// A name of the cache; empty if there is none.
    std::string name(std::int32_t id) const {
        const auto index = static_cast<std::size_t>(id);
        if (id < 0 || index >= offsets.size() || offsets[index] >= bytes.size() - next) {
            return "";
        }
        const char* begin = bytes.data() + next + offsets[index];
        return {begin, strnlen(begin, bytes.size() - next - offsets[index])};
    }

private:
    template <typename Record>
    bool take(Record& record) {
        if (bytes.size() - next < sizeof record) {
            return false;
        }
        std::memcpy(&record, bytes.data() + next, sizeof record);
        next += sizeof record;
        return true;
    }

    template <typename Record>
    bool take(std::vector<Record>& records, std::size_t count) {
        if ((bytes.size() - next) / sizeof(Record) < count) {
            return false;
        }
        records.resize(count);
        for (Record& record : records) {
            take(record);
        }
        return true;
    }

    std::string bytes;
    std::size_t next = 0;
    std::vector<std::uint32_t> offsets;
};

/// One comparison of a cache with the names.
class Comparison {
public:
    Comparison(const std::string& cacheFile, const std::string& namesFile, const CacheFile& content,
               NameResolver& resolver)
        : cachePath(cacheFile), namesPath(namesFile), cache(content), names(resolver) {}

    void compare(const CachedType& type, Specification& specification) const {
        number("type", Types, cache.name(type.compo.name), type.compo.type);
        for (const auto& child : type.subcompos) {
            number("type", Types, cache.name(child.name), child.type);
        }
        for (const auto& action : type.actions) {
            number("action", Actions, cache.name(action.name), action.id);
        }
        for (const auto& feature : type.features) {
            number("feature", Types, cache.name(feature.name), feature.id);
        }
        properties(type, specification);
    }

private:
    void number(const std::string& kind, int dictionary, const std::string& name, int cached) const {
        const int known = names.getValue(dictionary, name);
        if (known != cached) {
            refuse("has " + std::to_string(cached) + " for the " + kind + " '" + name + "' where '" +
                   namesPath + "' has " + (known < 0 ? std::string("no number") : std::to_string(known)));
        }
    }

    // The cache has no names of properties, so they are compared row by row with the specification.
    void properties(const CachedType& type, Specification& specification) const {
        const std::string section = cache.name(type.compo.name);
        const std::unique_ptr<Specification::Entries> rows(specification.getEntries(section, "property"));
        if (rows == nullptr) {
            return;
        }
        std::size_t next = 0;
        while (const std::unique_ptr<Specification::Entry> row{rows->getNextEntry()}) {
            if (row->size() < 3) {
                continue;
            }
            if (next == type.properties.size()) {
                return;
            }
            const int cached = type.properties[next++].key;
            const int known = names.getValue(Properties, (*row)[1]);
            if (known != cached) {
                refuse("has " + std::to_string(cached) + " for the property '" + (*row)[1] + "' of '" +
                       section + "' where '" + namesPath + "' has " + std::to_string(known));
            }
        }
    }

    [[noreturn]] void refuse(const std::string& text) const {
        throw Refusal(
            "the specification cache '" + cachePath + "' " + text +
            ": it was written with other numbers or from other rows; use the names file of the other "
            "processes, or remove the cache");
    }

    const std::string& cachePath;
    const std::string& namesPath;
    const CacheFile& cache;
    NameResolver& names;
};

} // namespace

void checkCache(const std::string& cache, const std::string& specification, const std::string& namesFile,
                NameResolver& names) {
    std::ifstream stream(cache, std::ios::binary);
    std::stringstream content;
    content << stream.rdbuf();
    CacheFile file(content.str());
    std::vector<CachedType> types;
    if (!stream || !file.read(types)) {
        return;
    }
    Specification rows;
    rows.load(specification);
    const Comparison comparison(cache, namesFile, file, names);
    for (const CachedType& type : types) {
        comparison.compare(type, rows);
    }
}

} // namespace tavrel::tool
