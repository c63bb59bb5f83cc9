#pragma once

#include "KernelStandIns.h"
#include "support/TraceExpect.h"

#include <qz/tavrel/BMCRelationalDB.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace tavrel::test {

constexpr char currentPath[] = "/var/nvrdisk/current/db/current.db";
constexpr char setupPath[] = "/conf/qz/db/setup.db";
constexpr char fruPath[] = "/conf/qz/db/fru.db";

constexpr std::uint32_t currentSize = 3145728;
constexpr std::uint32_t setupSize = 32768;
constexpr std::uint32_t fruSize = 786432;

/// A record as it stands in a file.
struct FileRecord {
    std::string key; ///< the 32-byte field up to its first zero
    std::uint32_t keyLength;
    std::uint32_t recordOffset;
    std::uint32_t valueLength;
    std::string magic; ///< four bytes
    std::string value;
    std::uint32_t place; ///< where it stands

    bool live() const { return magic == std::string("\0BDN", 4); }
};

/// Looks at database files with no help of the library. Each test begins without files and without a sync
/// daemon.
class FileStore : public testing::Test {
public:
    FileStore();
    ~FileStore() override;

protected:
    static std::string bytesOf(const std::string& path);

    /// Writes `bytes` over what the file has at `offset`; a new file gets zeros before it.
    static void patch(const std::string& path, std::uint32_t offset, const std::string& bytes);

    /// Makes a file of exactly `bytes`.
    static void make(const std::string& path, const std::string& bytes);

    static std::uint32_t nextOffsetOf(const std::string& path);

    /// All records, tombstones included, that follow one another from offset 16 on.
    static std::vector<FileRecord> recordsOf(const std::string& path);

    /// Keys of the live records in their order.
    static std::vector<std::string> liveKeysOf(const std::string& path);

    /// Bytes of a record.
    static std::string record(const std::string& key, std::uint32_t place, const std::string& value,
                              const std::string& magic = std::string("\0BDN", 4));

    /// Bytes of a 32-bit word.
    static std::string word(std::uint32_t value);

    /// The value of a key in a store that has been opened anew; "(absent)" if there is none.
    static std::string freshValue(const std::string& name, const std::string& key);

    /// The value of a key; "(absent)" if there is none.
    static std::string valueOf(qz::tavrel::BMCRelationalDB& store, const std::string& key);

private:
    KernelScope kernelScope;
};

/// Expects a fault "FAULT at BMCRelationalDB(LINE): FUNCTION() MESSAGE" of `call`.
void expectFault(const std::string& function, const std::string& message, const std::function<void()>& call);

} // namespace tavrel::test
