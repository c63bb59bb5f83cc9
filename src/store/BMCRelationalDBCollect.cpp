#include "base/Fault.h"
#include "base/Trace.h"
#include "store/RecordScan.h"

#include <qz/tavrel/BMCRelationalDB.h>

#include <cstring>
#include <memory>
#include <new>

namespace qz::tavrel {

void BMCRelationalDB::garbage_collect() {
    internal::trace(internal::point::DbCollect);
    const std::uint32_t size = config->fileSize;
    const std::unique_ptr<char[]> copy(new (std::nothrow) char[size]());
    if (copy == nullptr) {
        internal::trace(internal::point::DbCollectNoMemory);
        internal::raise("BMCRelationalDB", "garbage_collect", "Buffer Allocation failed.");
    }
    std::memcpy(copy.get(), base, size);
    // A process that dies from here on leaves only the records that have been written anew.
    std::memset(base, 0, size);
    index.clear();
    writePosition = internal::firstRecord;
    isCollecting = true;
    try {
        internal::RecordScan scan(copy.get(), size);
        while (scan.next()) {
            if (scan.isLive()) {
                setValue_internal(scan.header().key, std::string(scan.value(), scan.header().valueLength));
            }
        }
    } catch (...) {
        // No record is lost to a lack of memory: the old state comes back, to be read in the next operation.
        std::memcpy(base, copy.get(), size);
        index.clear();
        writePosition = header->nextOffset + 1;
        isCollecting = false;
        throw;
    }
    isCollecting = false;
    tombstoneCount = 0;
    internal::trace(internal::point::DbCollectExit);
}

} // namespace qz::tavrel
