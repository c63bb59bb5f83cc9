#include "FileStore.h"

#include "support/FaultText.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <sstream>

namespace tavrel::test {

using qz::tavrel::BMCRelationalDB;

FileStore::FileStore() {
    for (const char* path : {currentPath, setupPath, fruPath}) {
        unlink(path);
        unlink((std::string(path) + ".new").c_str());
    }
    kernel.getPidByName = [](const char*, int*) { return 1; };
}

FileStore::~FileStore() = default;

std::string FileStore::bytesOf(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

void FileStore::patch(const std::string& path, std::uint32_t offset, const std::string& bytes) {
    std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(offset);
    file << bytes << std::flush;
    ASSERT_TRUE(file.good()) << path;
}

void FileStore::make(const std::string& path, const std::string& bytes) {
    std::ofstream file(path, std::ios::binary);
    file << bytes << std::flush;
    ASSERT_TRUE(file.good()) << path;
}

std::string FileStore::word(std::uint32_t value) {
    std::string text(sizeof value, '\0');
    std::memcpy(text.data(), &value, sizeof value);
    return text;
}

namespace {

std::uint32_t wordAt(const std::string& bytes, std::size_t offset) {
    std::uint32_t value = 0;
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

} // namespace

std::uint32_t FileStore::nextOffsetOf(const std::string& path) {
    return wordAt(bytesOf(path), 12);
}

std::vector<FileRecord> FileStore::recordsOf(const std::string& path) {
    const std::string bytes = bytesOf(path);
    std::vector<FileRecord> found;
    std::size_t place = 16;
    while (place + 48 < bytes.size() && bytes[place] != '\0' && bytes[place] != '\xFF') {
        const std::uint32_t length = wordAt(bytes, place + 40);
        found.push_back({bytes.data() + place, wordAt(bytes, place + 32), wordAt(bytes, place + 36), length,
                         bytes.substr(place + 44, 4), bytes.substr(place + 48, length),
                         static_cast<std::uint32_t>(place)});
        place += (48 + length + 15) / 16 * 16;
    }
    return found;
}

std::vector<std::string> FileStore::liveKeysOf(const std::string& path) {
    std::vector<std::string> keys;
    for (const FileRecord& each : recordsOf(path)) {
        if (each.live()) {
            keys.push_back(each.key);
        }
    }
    return keys;
}

std::string FileStore::record(const std::string& key, std::uint32_t place, const std::string& value,
                              const std::string& magic) {
    std::string bytes = key;
    bytes.resize(32, '\0');
    bytes += word(static_cast<std::uint32_t>(key.size())) + word(place) +
             word(static_cast<std::uint32_t>(value.size())) + magic + value;
    bytes.resize((bytes.size() + 15) / 16 * 16, '\0');
    return bytes;
}

std::string FileStore::valueOf(BMCRelationalDB& store, const std::string& key) {
    std::string value = "(absent)";
    store.getValue(key, value);
    return value;
}

std::string FileStore::freshValue(const std::string& name, const std::string& key) {
    BMCRelationalDB store;
    store.initialize(name);
    return valueOf(store, key);
}

void expectFault(const std::string& function, const std::string& message, const std::function<void()>& call) {
    EXPECT_EQ("FAULT at BMCRelationalDB(LINE): " + function + "() " + message, faultText(call));
}

} // namespace tavrel::test
