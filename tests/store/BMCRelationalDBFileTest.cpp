#include "FileStore.h"

#include <qz/tavrel/QZException.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

using qz::tavrel::BMCRelationalDB;
using qz::tavrel::TavrelException;
using namespace tavrel::test;

namespace {

namespace fs = std::filesystem;

constexpr unsigned int blockSize = 16384;
const std::string newSetupPath = std::string(setupPath) + ".new";

class FileStoreOpening : public FileStore {
protected:
    /// The descriptors that this process has open for a path.
    static std::vector<int> descriptorsOf(const std::string& path) {
        std::vector<int> found;
        for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
            std::error_code failed;
            if (fs::read_symlink(entry, failed) == path) {
                found.push_back(std::stoi(entry.path().filename()));
            }
        }
        return found;
    }

    /// The one descriptor for a path; -1 when there is none.
    static int descriptorOf(const std::string& path) {
        const std::vector<int> found = descriptorsOf(path);
        EXPECT_LE(found.size(), 1U);
        return found.empty() ? -1 : found[0];
    }

    static bool isMapped(const std::string& path) {
        std::ifstream maps("/proc/self/maps");
        for (std::string line; std::getline(maps, line);) {
            if (line.find(path) != std::string::npos) {
                return true;
            }
        }
        return false;
    }

    static mode_t modeOf(const std::string& path) {
        struct stat status {};
        EXPECT_EQ(0, stat(path.c_str(), &status));
        return status.st_mode & 07777;
    }

    /// Fails the `count`th write of a block, after `written` bytes of it.
    static void failBlock(int count, ssize_t written) {
        kernel.write = [left = count, written](int fd, const void* data, std::size_t size) mutable {
            if (size == blockSize && --left == 0) {
                errno = ENOSPC;
                return written < 1 ? ssize_t{-1} : real::write(fd, data, static_cast<std::size_t>(written));
            }
            return real::write(fd, data, size);
        };
    }

    BMCRelationalDB store;
};

TEST_F(FileStoreOpening, NamesItself) {
    EXPECT_EQ("BMCRelationalDB", store.toString());
}

TEST_F(FileStoreOpening, MakesTheFileOfEachName) {
    const struct {
        const char* name;
        const char* path;
        std::uint32_t size;
    } rows[] = {{"SETUP", setupPath, setupSize},
                {"FRU", fruPath, fruSize},
                {"anything else", currentPath, currentSize}};
    for (const auto& row : rows) {
        BMCRelationalDB opened;

        opened.initialize(row.name);

        const std::string header = std::string("dbfile\0\0\0\0\0\0", 12) + word(16);
        EXPECT_EQ(header + std::string(row.size - header.size(), '\0'), bytesOf(row.path)) << row.name;
    }
}

TEST_F(FileStoreOpening, TakesAnEmptyNameForTheCurrentFile) {
    store.initialize("");

    EXPECT_TRUE(fs::exists(currentPath));
}

TEST_F(FileStoreOpening, GivesANewFileMode0770LessTheUmask) {
    const mode_t old = umask(0);
    store.initialize("SETUP");
    EXPECT_EQ(0770U, modeOf(setupPath));

    umask(027);
    BMCRelationalDB other;
    other.initialize("FRU");
    EXPECT_EQ(0750U, modeOf(fruPath));
    umask(old);
}

TEST_F(FileStoreOpening, KeepsTheFileOpenCloseOnExec) {
    store.initialize("SETUP");

    const int made = descriptorOf(setupPath);
    ASSERT_NE(-1, made);
    EXPECT_NE(0, fcntl(made, F_GETFD) & FD_CLOEXEC);

    store.initialize("SETUP");

    const int opened = descriptorOf(setupPath);
    ASSERT_NE(-1, opened);
    EXPECT_NE(0, fcntl(opened, F_GETFD) & FD_CLOEXEC);
}

TEST_F(FileStoreOpening, UnmapsAndClosesTheFileAtItsEnd) {
    {
        BMCRelationalDB shortLived;
        shortLived.initialize("SETUP");
        ASSERT_TRUE(isMapped(setupPath));
    }

    EXPECT_FALSE(isMapped(setupPath));
    EXPECT_EQ(-1, descriptorOf(setupPath));
}

TEST_F(FileStoreOpening, LeavesTheOldFileWhenItIsInitializedAgain) {
    store.initialize("SETUP");

    store.initialize("FRU");

    EXPECT_FALSE(isMapped(setupPath));
    EXPECT_EQ(-1, descriptorOf(setupPath));
    store.setValue("a", "b");
    EXPECT_EQ("b", freshValue("FRU", "a"));
}

TEST_F(FileStoreOpening, LeavesAnExistingFileAsItIs) {
    const std::string bytes = std::string(12, 'x') + word(80) + record("key", 16, "value");
    make(setupPath, bytes + std::string(setupSize - bytes.size(), '\0'));
    const std::string before = bytesOf(setupPath);

    store.initialize("SETUP");

    EXPECT_EQ("value", valueOf(store, "key"));
    EXPECT_EQ(before, bytesOf(setupPath));
}

TEST_F(FileStoreOpening, GrowsAShortFileByWholeBlocks) {
    const std::string bytes = std::string(12, 'x') + word(80) + record("key", 16, "value");
    make(setupPath, bytes + std::string(blockSize - bytes.size(), '\0'));

    store.initialize("SETUP");

    EXPECT_EQ(bytes + std::string(setupSize - bytes.size(), '\0'), bytesOf(setupPath));
    EXPECT_EQ("value", valueOf(store, "key"));
}

TEST_F(FileStoreOpening, GrowsAnEmptyFile) {
    make(setupPath, "");

    store.initialize("SETUP");
    store.setValue("key", "value");

    EXPECT_EQ(setupSize, bytesOf(setupPath).size());
    EXPECT_EQ("value", freshValue("SETUP", "key"));
}

TEST_F(FileStoreOpening, LeavesALongerFileAndUsesItsStart) {
    std::string bytes = std::string(12, 'x') + word(80) + record("key", 16, "value");
    bytes += std::string(setupSize + 100 - bytes.size(), '\0');
    make(setupPath, bytes);

    store.initialize("SETUP");

    EXPECT_EQ("value", valueOf(store, "key"));
    EXPECT_EQ(bytes, bytesOf(setupPath));
}

TEST_F(FileStoreOpening, TracesThatNoGrowthIsNeeded) {
    store.initialize("SETUP");
    const TraceCapture capture;

    store.initialize("SETUP");

    expectWords(capture, 0xA0A02, debugFlags, {static_cast<int>(setupSize), 0});
    EXPECT_EQ(1U, capture.count(0xA0A0F));
}

TEST_F(FileStoreOpening, FailsOnAFileThatCannotBeMade) {
    fs::create_symlink("/conf/qz/db/nowhere/file", setupPath);
    const TraceCapture capture;

    expectFault("initialize", "dbfile open failed", [&] { store.initialize("SETUP"); });

    expectWords(capture, 0xA0501, debugFlags, {ENOENT, 0});
    EXPECT_EQ(1U, capture.count(0xA050F));
    EXPECT_EQ(0U, capture.count(0xA020F));
}

TEST_F(FileStoreOpening, FailsOnAFileThatCannotBeOpened) {
    fs::create_directory(setupPath);
    const TraceCapture capture;

    expectFault("initialize", "dbfile open failed", [&] { store.initialize("SETUP"); });

    expectWords(capture, 0xA0504, debugFlags, {EISDIR, 0});
    fs::remove(setupPath);
}

TEST_F(FileStoreOpening, RemovesANewFileWithoutMemoryForABlock) {
    kernel.refusesArray = [](std::size_t size) { return size == blockSize; };
    const TraceCapture capture;

    expectFault("initialize", "dbfile open failed", [&] { store.initialize("SETUP"); });

    expectWords(capture, 0xA0502, debugFlags, {0, 0});
    EXPECT_FALSE(fs::exists(setupPath));
    EXPECT_FALSE(fs::exists(newSetupPath));
    EXPECT_EQ(-1, descriptorOf(newSetupPath + " (deleted)"));
}

TEST_F(FileStoreOpening, RemovesANewFileThatCannotBeFilled) {
    for (const ssize_t written : {-1, 100}) {
        failBlock(2, written);
        const TraceCapture capture;

        expectFault("initialize", "dbfile open failed", [&] { store.initialize("SETUP"); });

        expectWords(capture, 0xA0503, debugFlags, {written == -1 ? ENOSPC : 0, 0});
        EXPECT_FALSE(fs::exists(setupPath));
        EXPECT_FALSE(fs::exists(newSetupPath));
        EXPECT_EQ(-1, descriptorOf(newSetupPath + " (deleted)"));
    }
}

TEST_F(FileStoreOpening, RemovesANewFileThatCannotGetItsName) {
    kernel.write = [](int fd, const void* data, std::size_t size) {
        fs::create_directory(setupPath);
        return real::write(fd, data, size);
    };
    const TraceCapture capture;

    expectFault("initialize", "dbfile open failed", [&] { store.initialize("SETUP"); });

    expectWords(capture, 0xA0503, debugFlags, {EISDIR, 0});
    EXPECT_FALSE(fs::exists(newSetupPath));
    EXPECT_EQ(-1, descriptorOf(newSetupPath + " (deleted)"));
    fs::remove(setupPath);
}

TEST_F(FileStoreOpening, RemovesWhatAnotherMakerLeftThatNobodyMayOpen) {
    make(newSetupPath, std::string(setupSize + 7, 'x'));
    ASSERT_EQ(0, chmod(newSetupPath.c_str(), 0));
    struct stat left {};
    ASSERT_EQ(0, stat(newSetupPath.c_str(), &left));
    const int stillOpen = open(newSetupPath.c_str(), O_RDONLY); // so that its inode is not used again
    const mode_t previous = umask(0022);

    store.initialize("SETUP");

    umask(previous);
    struct stat made {};
    ASSERT_EQ(0, stat(setupPath, &made));
    EXPECT_NE(left.st_ino, made.st_ino) << "not the file of that maker";
    EXPECT_EQ(mode_t{0750}, made.st_mode & 07777);
    EXPECT_EQ(off_t{setupSize}, made.st_size);
    EXPECT_FALSE(fs::exists(newSetupPath));
    close(stillOpen);
}

TEST_F(FileStoreOpening, RemovesALinkThatStandsWhereTheFileIsFilled) {
    const std::string target = "/conf/qz/db/target";
    make(target, "kept");
    fs::create_symlink(target, newSetupPath);

    store.initialize("SETUP");

    EXPECT_EQ("kept", bytesOf(target));
    EXPECT_FALSE(fs::is_symlink(setupPath));
    EXPECT_EQ(setupSize, fs::file_size(setupPath));
    fs::remove(target);
}

TEST_F(FileStoreOpening, MakesTheFileThatALinkLeadsTo) {
    const std::string target = "/conf/qz/db/target";
    fs::create_symlink(target, setupPath);

    store.initialize("SETUP");

    EXPECT_TRUE(fs::is_symlink(setupPath));
    EXPECT_EQ(setupSize, fs::file_size(target));
    fs::remove(target);
}

TEST_F(FileStoreOpening, ClosesAFileThatCannotBeMapped) {
    store.initialize("SETUP"); // so that the lock is there already
    BMCRelationalDB second;
    const int others = descriptorOf(setupPath);
    kernel.mmap = [](std::size_t length, int) {
        EXPECT_EQ(setupSize, length);
        errno = ENOMEM;
        return MAP_FAILED;
    };
    const TraceCapture capture;

    expectFault("initialize", "dbfile open failed", [&] { second.initialize("SETUP"); });

    expectWords(capture, 0xA0505, debugFlags, {ENOMEM, 0});
    EXPECT_EQ(std::vector<int>{others}, descriptorsOf(setupPath));
}

TEST_F(FileStoreOpening, FailsWhenTheFileSizeIsUnknown) {
    store.initialize("SETUP");
    BMCRelationalDB second;
    kernel.fstat = [](int, struct stat*) {
        errno = EIO;
        return -1;
    };
    const TraceCapture capture;

    expectFault("size_adjust", "File Info Get failed.", [&] { second.initialize("SETUP"); });

    expectWords(capture, 0xA0A01, debugFlags, {EIO, 0});
    EXPECT_EQ(0U, capture.count(0xA0A0F));
}

TEST_F(FileStoreOpening, FailsToGrowAFileWithoutMemoryForABlock) {
    make(setupPath, std::string(blockSize, '\0'));
    kernel.refusesArray = [](std::size_t size) { return size == blockSize; };
    const TraceCapture capture;

    expectFault("size_adjust", "Buffer Allocation failed.", [&] { store.initialize("SETUP"); });

    expectWords(capture, 0xA0A03, debugFlags, {0, 0});
    EXPECT_EQ(blockSize, bytesOf(setupPath).size());
    EXPECT_EQ(-1, descriptorOf(setupPath));
}

TEST_F(FileStoreOpening, FailsToGrowAFileWhoseEndIsElsewhere) {
    make(setupPath, std::string(blockSize, '\0'));
    kernel.lseek = [](int, off_t, int) { return off_t{5}; };
    const TraceCapture capture;

    expectFault("size_adjust", "File Seek failed.", [&] { store.initialize("SETUP"); });

    expectWords(capture, 0xA0A04, debugFlags, {5, static_cast<int>(blockSize)});
    EXPECT_EQ(blockSize, bytesOf(setupPath).size());
    EXPECT_EQ(-1, descriptorOf(setupPath));
}

TEST_F(FileStoreOpening, FailsToGrowAFileOnAShortWrite) {
    for (const ssize_t written : {-1, 100}) {
        make(setupPath, std::string(blockSize, '\0'));
        failBlock(1, written);
        const TraceCapture capture;

        expectFault("size_adjust", "File Extend Write failed.", [&] { store.initialize("SETUP"); });

        expectWords(capture, 0xA0A05, debugFlags, {written == -1 ? ENOSPC : 0, 0});
        EXPECT_EQ(-1, descriptorOf(setupPath));
    }
}

TEST_F(FileStoreOpening, FailsAtOnceToGrowByNoWholeNumberOfBlocks) {
    make(setupPath, std::string(blockSize + 1, '\0'));
    const TraceCapture capture;

    expectFault("size_adjust", "File Extend Write failed.", [&] { store.initialize("SETUP"); });

    expectWords(capture, 0xA0A05, debugFlags, {0, 0});
    EXPECT_EQ(blockSize + 1, bytesOf(setupPath).size());
}

TEST_F(FileStoreOpening, RefusesValuesWithoutAFile) {
    std::string value;

    expectFault("getValue", "dbfile open failed", [&] { store.getValue("key", value); });
    expectFault("setValue", "dbfile open failed", [&] { store.setValue("key", "value"); });

    EXPECT_EQ(0U, store.write(1, "x", 1));
    EXPECT_FALSE(store.isValid());
}

TEST_F(FileStoreOpening, RefusesValuesAfterAFailedInitialize) {
    fs::create_directory(setupPath);
    EXPECT_THROW(store.initialize("SETUP"), TavrelException);
    fs::remove(setupPath);

    EXPECT_THROW(store.setValue("key", "value"), TavrelException);

    store.initialize("SETUP");
    store.setValue("key", "value");
    EXPECT_EQ("value", valueOf(store, "key"));
}

TEST_F(FileStoreOpening, TracesItsLifeFromEntryToExit) {
    const TraceCapture capture;
    {
        BMCRelationalDB traced;
        traced.initialize("FRU");
    }

    std::vector<unsigned long> ids;
    for (const TraceRecord& each : capture.all()) {
        ids.push_back(each.id);
        EXPECT_EQ(debugFlags, each.flags);
    }
    EXPECT_EQ((std::vector<unsigned long>{0xA0000, 0xA000F, 0xA0200, 0xA0201, 0xA0500, 0xA050F, 0xA0600,
                                          0xA060F, 0xA020F, 0xA0100, 0xA010F}),
              ids);
    expectWords(capture, 0xA0201, debugFlags, {2, 0});
}

} // namespace
