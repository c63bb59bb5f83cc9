#include "InputCheck.h"
#include "Names.h"
#include "Refusal.h"
#include "Stores.h"

#include <qz/base/SemaphoreLock.h>
#include <qz/tavrel/BMCRelationalDB.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <vector>

using qz::tavrel::BMCRelationalDB;

namespace tavrel::tool {

namespace {

struct StoreFile {
    const char* path;
    const char* lock;
    std::size_t size;
};

constexpr StoreFile storeFiles[] = {
    {"/var/nvrdisk/current/db/current.db", "/dblock_current", 3145728},
    {"/conf/qz/db/setup.db", "/dblock_setup", 32768},
    {"/conf/qz/db/fru.db", "/dblock_fru", 786432},
};

/// No property is larger: its value travels through memory as a whole.
constexpr std::size_t sizeLimit = 1048576;
constexpr std::size_t block = 16384;
constexpr std::size_t align = 16;
constexpr std::uint32_t live = 0x4E444200;
constexpr std::uint32_t tombstone = 0x444B4559; // "YEKD"

using Record = BMCRelationalDB::ndb_t;

const StoreFile& fileOf(const std::string& store) {
    return storeFiles[store == "SETUP" ? 1 : store == "FRU" ? 2 : 0];
}

[[noreturn]] void refuse(const StoreFile& file, const std::string& text) {
    throw Refusal(std::string("the database '") + file.path + "' " + text + "; it was left as it is");
}

/// The bytes of a file; none if it does not exist.
std::vector<char> readAll(const StoreFile& file) {
    const int descriptor = open(file.path, O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        if (errno == ENOENT || errno == ENOTDIR) {
            return {};
        }
        refuse(file, std::string("cannot be opened: ") + std::strerror(errno));
    }
    std::vector<char> bytes(file.size);
    std::size_t got = 0;
    ssize_t step = 0;
    while (got < bytes.size() && (step = read(descriptor, bytes.data() + got, bytes.size() - got)) > 0) {
        got += static_cast<std::size_t>(step);
    }
    const int error = errno;
    close(descriptor);
    if (step < 0) {
        refuse(file, std::string("cannot be read: ") + std::strerror(error));
    }
    bytes.resize(got);
    return bytes;
}

Record recordAt(const std::vector<char>& bytes, std::size_t offset) {
    Record record{};
    std::memcpy(&record, bytes.data() + offset, sizeof record);
    return record;
}

/// Why the record at `offset` cannot be one; empty if it is.
std::string fault(const Record& record, std::size_t offset, std::size_t size) {
    if (record.magic != live && record.magic != tombstone) {
        return "a record without its mark";
    }
    if (record.recordOffset != offset) {
        return "a record that says it stands elsewhere";
    }
    if (record.valueLength > size - offset - sizeof record) {
        return "a record longer than the file";
    }
    if (strnlen(record.key, sizeof record.key) != record.keyLength) {
        return "a record with a broken key";
    }
    return "";
}

/// The place behind the last record.
std::size_t walk(const StoreFile& file, const std::vector<char>& bytes) {
    std::size_t offset = sizeof(BMCRelationalDB::FileHeader);
    while (offset + sizeof(Record) < bytes.size() && bytes[offset] != '\0' && bytes[offset] != '\xFF') {
        const Record record = recordAt(bytes, offset);
        const std::string reason = fault(record, offset, bytes.size());
        if (!reason.empty()) {
            refuse(file, "is damaged at byte " + std::to_string(offset) + ": " + reason);
        }
        offset += (sizeof record + record.valueLength + align - 1) / align * align;
    }
    return offset;
}

/// What stands in a file that no process has filled; empty for one that is a database.
std::string emptiness(const std::vector<char>& bytes) {
    if (bytes.empty()) {
        return "is an empty file";
    }
    const char first = bytes.front();
    const bool same = std::all_of(bytes.begin(), bytes.end(), [first](char byte) { return byte == first; });
    return !same ? "" : first == '\0' ? "is all zeros" : "is erased";
}

void check(const StoreFile& file, std::vector<std::string>& notes) {
    const SemaphoreLock lock(file.lock, 0);
    const std::vector<char> bytes = readAll(file);
    if (access(file.path, W_OK) != 0) {
        refuse(file, std::string("cannot be written: ") + std::strerror(errno));
    }
    const std::string empty = emptiness(bytes);
    if (!empty.empty()) {
        notes.push_back(std::string("the database '") + file.path + "' " + empty +
                        ": what it held is lost, and it is begun anew");
    }
    if (bytes.size() % block != 0) {
        refuse(file, "is cut off after " + std::to_string(bytes.size()) + " bytes");
    }
    // A process that dies while it appends leaves a gap of zeros; nothing may stand behind it.
    for (std::size_t offset = bytes.empty() ? 0 : walk(file, bytes) + align;
         offset + sizeof(Record) < bytes.size(); offset += align) {
        const Record record = recordAt(bytes, offset);
        if (record.magic == live && record.recordOffset == offset) {
            refuse(file, "is damaged before byte " + std::to_string(offset) +
                             ": the values from there on are cut off");
        }
    }
}

/// Without the file its folder must take one.
void checkFolder(const StoreFile& file) {
    const std::string path = file.path;
    const std::string folder = path.substr(0, path.rfind('/'));
    if (access(file.path, F_OK) != 0 && access(folder.c_str(), W_OK | X_OK) != 0) {
        throw Refusal("the database '" + path + "' cannot be made: " + std::strerror(errno));
    }
}

} // namespace

void checkStores(const std::set<std::string>& used, std::vector<std::string>& notes) {
    for (const std::string& store : used) {
        checkFolder(fileOf(store));
    }
    for (const StoreFile& file : storeFiles) {
        // Without the file there is nothing to check, and no reason to make its lock.
        if (access(file.path, F_OK) == 0) {
            try {
                check(file, notes);
            } catch (const std::system_error& error) {
                refuse(file, std::string("cannot be locked: ") + error.what());
            }
        }
    }
}

std::string storePath(const std::string& store) {
    return fileOf(store).path;
}

unsigned int Stores::limitOf(const std::string& store) const {
    const std::size_t room = fileOf(store).size - sizeof(BMCRelationalDB::FileHeader) - sizeof(Record);
    return static_cast<unsigned int>(builtIn ? std::min(room, sizeLimit) : sizeLimit);
}

std::string Stores::doubtAbout(const std::string& store) const {
    const std::vector<std::string> known = names();
    if (!builtIn || std::find(known.begin(), known.end(), store) != known.end()) {
        return "";
    }
    return unknownName("store", store, known) + ": its values share the file of '" + byDefault + "'";
}

} // namespace tavrel::tool
