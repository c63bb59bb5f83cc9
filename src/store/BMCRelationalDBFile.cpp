#include "base/Fault.h"
#include "base/Guards.h"
#include "base/Trace.h"
#include "store/RecordScan.h"

#include <qz/tavrel/BMCRelationalDB.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>

namespace qz::tavrel {

namespace {

constexpr unsigned int blockSize = 16384;
constexpr mode_t creationMode = 0770;
constexpr char magicText[] = "dbfile";

using Block = std::unique_ptr<char[]>;

/// A block of zeros, or null.
Block makeBlock() {
    return Block(new (std::nothrow) char[blockSize]());
}

/// @return false after a failure; errno then says why, and is 0 when only a part has been written
bool writeBlock(int fd, const Block& block) {
    const ssize_t written = write(fd, block.get(), blockSize);
    if (written != -1 && written != ssize_t{blockSize}) {
        errno = 0;
    }
    return written == ssize_t{blockSize};
}

/// Writes a new file: blocks of zeros, with the file header at the start of the first one.
bool fill(int fd, const Block& block, unsigned int size) {
    BMCRelationalDB::FileHeader header{};
    std::memcpy(header.magic, magicText, sizeof magicText);
    header.nextOffset = internal::firstRecord;
    std::memcpy(block.get(), &header, sizeof header);
    for (unsigned int written = 0; written < size; written += blockSize) {
        if (!writeBlock(fd, block)) {
            return false;
        }
        std::memset(block.get(), 0, sizeof header);
    }
    return true;
}

/// The name under which a file is filled: another one, so that the file is there whole or not at all. What is
/// there but cannot be used keeps its name, and is never replaced by an empty file. Under the other name
/// there may be what a maker left that died, perhaps of another user: it goes.
std::string nameToFill(const std::string& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) == 0) {
        return path;
    }
    std::string other = path + ".new";
    unlink(other.c_str());
    return other;
}

/// Makes the file. The file's lock keeps other makers away.
/// @return its descriptor, or none after a failure, which has been traced
internal::Descriptor createFile(const char* path, unsigned int size) {
    const std::string filled = nameToFill(path);
    internal::Descriptor file(open(filled.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, creationMode));
    if (!file.isOpen()) {
        internal::trace(internal::point::DbOpenCreateFailed, errno);
        return file;
    }
    const Block block = makeBlock();
    if (block == nullptr) {
        internal::trace(internal::point::DbOpenNoBlock);
        unlink(filled.c_str());
        return {};
    }
    // A process that dies on the way leaves remains under the other name, which the next one removes.
    if (!fill(file.number(), block, size) || rename(filled.c_str(), path) != 0) {
        internal::trace(internal::point::DbOpenFillFailed, errno);
        unlink(filled.c_str());
        return {};
    }
    return file;
}

} // namespace

int BMCRelationalDB::dbfile_open() {
    internal::trace(internal::point::DbOpen);
    internal::Descriptor file;
    if (access(config->path, R_OK | W_OK) != 0) {
        file = createFile(config->path, config->fileSize);
    } else {
        file = internal::Descriptor(open(config->path, O_RDWR | O_CLOEXEC));
        if (file.isOpen()) {
            size_adjust(file.number(), config->fileSize);
        } else {
            internal::trace(internal::point::DbOpenOpenFailed, errno);
        }
    }
    int result = -1;
    if (file.isOpen()) {
        void* mapping = mmap(nullptr, config->fileSize, PROT_READ | PROT_WRITE, MAP_SHARED, file.number(), 0);
        if (mapping == MAP_FAILED) {
            internal::trace(internal::point::DbOpenMapFailed, errno);
        } else {
            base = static_cast<char*>(mapping);
            header = static_cast<FileHeader*>(mapping);
            result = file.release();
        }
    }
    internal::trace(internal::point::DbOpenExit);
    return result;
}

void BMCRelationalDB::size_adjust(int fd, unsigned int size) {
    internal::trace(internal::point::DbAdjust);
    struct stat status {};
    if (fstat(fd, &status) != 0) {
        internal::trace(internal::point::DbAdjustStatFailed, errno);
        internal::raise("BMCRelationalDB", "size_adjust", "File Info Get failed.");
    }
    if (status.st_size >= static_cast<off_t>(size)) {
        internal::trace(internal::point::DbAdjustNotNeeded, status.st_size);
        internal::trace(internal::point::DbAdjustExit);
        return;
    }
    const Block block = makeBlock();
    if (block == nullptr) {
        internal::trace(internal::point::DbAdjustNoBlock);
        internal::raise("BMCRelationalDB", "size_adjust", "Buffer Allocation failed.");
    }
    const off_t end = lseek(fd, 0, SEEK_END);
    if (end != status.st_size) {
        internal::trace(internal::point::DbAdjustSeekFailed, end, status.st_size);
        internal::raise("BMCRelationalDB", "size_adjust", "File Seek failed.");
    }
    unsigned int missing = size - static_cast<unsigned int>(status.st_size);
    if (missing % blockSize != 0) {
        // Blocks would never fill the gap exactly, and go on until the disk is full.
        internal::trace(internal::point::DbAdjustWriteFailed);
        internal::raise("BMCRelationalDB", "size_adjust", "File Extend Write failed.");
    }
    for (; missing != 0; missing -= blockSize) {
        if (!writeBlock(fd, block)) {
            internal::trace(internal::point::DbAdjustWriteFailed, errno);
            internal::raise("BMCRelationalDB", "size_adjust", "File Extend Write failed.");
        }
    }
    internal::trace(internal::point::DbAdjustExit);
}

void BMCRelationalDB::datasync(unsigned int offset, unsigned int length) {
    internal::trace(internal::point::DbSync);
    const std::size_t page = pageSize;
    const std::size_t start = offset / page * page;
    const std::size_t end = (std::size_t{offset} + length + page - 1) / page * page;
    msync(base + start, end - start, MS_SYNC);
    if (config->backupSync != 0 && syncSignal != 0) {
        notifySyncDaemon();
    }
    internal::trace(internal::point::DbSyncExit);
}

} // namespace qz::tavrel
