#include "base/Fault.h"
#include "base/Trace.h"
#include "store/RecordScan.h"

#include <qz/base/SemaphoreLock.h>
#include <qz/tavrel/BMCRelationalDB.h>

#include <sys/mman.h>
#include <unistd.h>

#include <csignal>

namespace qz::tavrel {

namespace {

constexpr int typeCurrent = 0;
constexpr int typeSetup = 1;
constexpr int typeFru = 2;

constexpr BMCRelationalDB::DbFileConfig files[] = {
    {"/var/nvrdisk/current/db/current.db", 3145728, "/dblock_current", 100, 0},
    {"/conf/qz/db/setup.db", 32768, "/dblock_setup", 5, 1},
    {"/conf/qz/db/fru.db", 786432, "/dblock_fru", 2, 1},
};

constexpr int signals[] = {0, SIGUSR1, SIGUSR2};

int typeOf(const std::string& name) {
    if (name == "FRU") {
        return typeFru;
    }
    return name == "SETUP" ? typeSetup : typeCurrent;
}

} // namespace

BMCRelationalDB::BMCRelationalDB()
    : dbType(typeCurrent),
      pageSize(0),
      row{},
      config(nullptr),
      descriptor(-1),
      base(nullptr),
      header(nullptr),
      writePosition(0),
      tombstoneCount(0),
      syncDaemonPid(0),
      syncSignal(0),
      isCollecting(false) {
    internal::trace(internal::point::DbConstruct);
    internal::trace(internal::point::DbConstructExit);
}

BMCRelationalDB::~BMCRelationalDB() {
    internal::trace(internal::point::DbDestruct);
    release();
    internal::trace(internal::point::DbDestructExit);
}

void BMCRelationalDB::release() {
    if (base != nullptr) {
        munmap(base, config->fileSize);
        base = nullptr;
        header = nullptr;
    }
    if (descriptor != -1) {
        close(descriptor);
        descriptor = -1;
    }
    index.clear();
    writePosition = internal::firstRecord;
}

std::string BMCRelationalDB::toString() {
    return "BMCRelationalDB";
}

void BMCRelationalDB::lock() {}

void BMCRelationalDB::unlock() {}

void BMCRelationalDB::initialize(const std::string& name) {
    internal::trace(internal::point::DbInitialize);
    release();
    pageSize = static_cast<unsigned int>(getpagesize());
    dbType = typeOf(name);
    row = files[dbType];
    config = &row;
    syncSignal = 0;
    internal::trace(internal::point::DbInitializeTypeChosen, dbType);
    try {
        const SemaphoreLock held(config->lockName, 0);
        descriptor = dbfile_open();
        if (descriptor == -1) {
            internal::raise("BMCRelationalDB", "initialize", "dbfile open failed");
        }
        dbfile_load();
        syncSignal = signals[dbType];
    } catch (...) {
        release();
        throw;
    }
    internal::trace(internal::point::DbInitializeExit);
}

void BMCRelationalDB::getValue(const std::string& key, std::string& value) {
    internal::trace(internal::point::DbGetValue);
    if (base == nullptr) {
        internal::raise("BMCRelationalDB", "getValue", "dbfile open failed");
    }
    {
        const SemaphoreLock held(config->lockName, 0);
        prepare(false);
        getValue_internal(key, value);
    }
    internal::trace(internal::point::DbGetValueExit);
}

void BMCRelationalDB::setValue(const std::string& key, const std::string& value) {
    internal::trace(internal::point::DbSetValue);
    if (base == nullptr) {
        internal::raise("BMCRelationalDB", "setValue", "dbfile open failed");
    }
    {
        const SemaphoreLock held(config->lockName, 0);
        prepare(true);
        setValue_internal(key, value);
    }
    internal::trace(internal::point::DbSetValueExit);
}

void BMCRelationalDB::clearValue(const std::string& /*key*/) {}

/// What each value operation does first: compacts the file when that is due, and takes up what other
/// processes have appended.
void BMCRelationalDB::prepare(bool writing) {
    if (tombstoneCount >= config->tombstoneLimit) {
        internal::trace(writing ? internal::point::DbSetValueCollectDue
                                : internal::point::DbGetValueCollectDue,
                        tombstoneCount, config->tombstoneLimit);
        garbage_collect();
    }
    if (header->nextOffset != writePosition) {
        internal::trace(writing ? internal::point::DbSetValueReloadDue : internal::point::DbGetValueReloadDue,
                        header->nextOffset, writePosition);
        dbfile_load();
    }
}

} // namespace qz::tavrel
