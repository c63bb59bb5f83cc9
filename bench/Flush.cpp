#include "Flush.h"

#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace tavrel::bench {

namespace {

bool isOff = false;

} // namespace

NoFlush::NoFlush() {
    isOff = true;
}

NoFlush::~NoFlush() {
    isOff = false;
}

} // namespace tavrel::bench

/// Stands before the C library's own, for the library as for the floors.
extern "C" int msync(void* address, size_t length, int flags) {
    return tavrel::bench::isOff ? 0 : static_cast<int>(syscall(SYS_msync, address, length, flags));
}
