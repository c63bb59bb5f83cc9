#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tavrel::test {

/// The bytes of a cache file, put together record by record in the byte order of the machine.
class CacheBytes {
public:
    CacheBytes& raw(const std::string& more) {
        content += more;
        return *this;
    }
    CacheBytes& word(std::uint32_t value) { return value32(value); }
    CacheBytes& header(std::uint32_t version = 0x00010001) { return raw("PMOC").word(version); }
    CacheBytes& compo(int name, int type, int properties = 0, int subcompos = 0, int actions = 0,
                      int features = 0) {
        return number(name).number(type).half(properties).half(subcompos).half(actions).half(features);
    }
    CacheBytes& property(int name, int key, std::uint32_t size) {
        return number(name).number(key).word(size);
    }
    CacheBytes& subcompo(int name, int type, int count) {
        return number(name).number(type).half(count).half(0);
    }
    CacheBytes& action(int name, int id) { return number(name).number(id); }
    CacheBytes& feature(int name, int id) { return number(name).number(id); }
    CacheBytes& end() { return compo(-1, 0); }
    CacheBytes& names(const std::vector<std::string>& all) {
        word(static_cast<std::uint32_t>(all.size()));
        std::uint32_t offset = 0;
        for (const std::string& name : all) {
            word(offset);
            offset += static_cast<std::uint32_t>(name.size() + 1);
        }
        for (const std::string& name : all) {
            content.append(name.c_str(), name.size() + 1);
        }
        return *this;
    }

    const std::string& bytes() const { return content; }

private:
    CacheBytes& number(int value) { return value32(static_cast<std::uint32_t>(value)); }
    CacheBytes& half(int value) {
        const auto bits = static_cast<std::uint16_t>(value);
        return raw({reinterpret_cast<const char*>(&bits), sizeof bits});
    }
    CacheBytes& value32(std::uint32_t value) {
        return raw({reinterpret_cast<const char*>(&value), sizeof value});
    }

    std::string content;
};

} // namespace tavrel::test
