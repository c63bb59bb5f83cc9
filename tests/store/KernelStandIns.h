#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <functional>

namespace tavrel::test {

/// What the calls of the kernel and of the base library do in this program: the real thing, unless a test
/// sets a function in its place. A function may call the real thing through `real`.
struct Kernel {
    std::function<int(void* start, std::size_t length, int flags)> msync;
    std::function<void*(std::size_t length, int fd)> mmap; ///< for shared file mappings alone
    std::function<ssize_t(int fd, const void* data, std::size_t size)> write;
    std::function<int(int fd, struct stat* status)> fstat;
    std::function<off_t(int fd, off_t offset, int whence)> lseek;
    std::function<int(pid_t pid, int signal)> kill;
    std::function<int(const char* name, int* pid)> getPidByName;
    std::function<bool(std::size_t size)> refusesArray; ///< true: `new (std::nothrow) T[]` gets no memory
    std::function<bool(std::size_t size)>
        refusesObject; ///< true: `new` of this size raises; allocates nothing
};

/// The functions in force; set back to empty ones by the destructor of `KernelScope`.
extern Kernel kernel;

/// How often this program has asked for memory with `new`.
std::size_t allocationCount();

/// Takes all functions out of force at its end.
class KernelScope {
public:
    KernelScope() = default;
    ~KernelScope() { kernel = {}; }
    KernelScope(const KernelScope&) = delete;
    KernelScope& operator=(const KernelScope&) = delete;
};

namespace real {

int msync(void* start, std::size_t length, int flags);
ssize_t write(int fd, const void* data, std::size_t size);
int kill(pid_t pid, int signal);

} // namespace real

} // namespace tavrel::test
