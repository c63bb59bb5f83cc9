#include "KernelStandIns.h"

#include <qz/base/process.h>

#include <dlfcn.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <new>

namespace tavrel::test {

Kernel kernel;

namespace {

std::atomic<std::size_t> allocations{0};

/// The function that the next library in the search order has under `name`.
template <typename Function>
Function next(const char* name) {
    void* found = dlsym(RTLD_NEXT, name);
    if (found == nullptr) {
        std::fprintf(stderr, "no other %s than the stand-in\n", name);
        std::abort();
    }
    return reinterpret_cast<Function>(found);
}

} // namespace

std::size_t allocationCount() {
    return allocations;
}

namespace real {

int msync(void* start, std::size_t length, int flags) {
    static const auto function = next<int (*)(void*, std::size_t, int)>("msync");
    return function(start, length, flags);
}

ssize_t write(int fd, const void* data, std::size_t size) {
    static const auto function = next<ssize_t (*)(int, const void*, std::size_t)>("write");
    return function(fd, data, size);
}

int kill(pid_t pid, int signal) {
    static const auto function = next<int (*)(pid_t, int)>("kill");
    return function(pid, signal);
}

} // namespace real

} // namespace tavrel::test

using tavrel::test::kernel;
namespace real = tavrel::test::real;

extern "C" {

int msync(void* start, std::size_t length, int flags) {
    return kernel.msync ? kernel.msync(start, length, flags) : real::msync(start, length, flags);
}

ssize_t write(int fd, const void* data, std::size_t size) {
    return kernel.write ? kernel.write(fd, data, size) : real::write(fd, data, size);
}

int kill(pid_t pid, int signal) noexcept {
    return kernel.kill ? kernel.kill(pid, signal) : real::kill(pid, signal);
}

int fstat(int fd, struct stat* status) noexcept {
    static const auto function = tavrel::test::next<int (*)(int, struct stat*)>("fstat");
    return kernel.fstat ? kernel.fstat(fd, status) : function(fd, status);
}

off_t lseek(int fd, off_t offset, int whence) noexcept {
    static const auto function = tavrel::test::next<off_t (*)(int, off_t, int)>("lseek");
    return kernel.lseek ? kernel.lseek(fd, offset, whence) : function(fd, offset, whence);
}

void* mmap(void* start, std::size_t length, int protection, int flags, int fd, off_t offset) noexcept {
    static const auto function =
        tavrel::test::next<void* (*)(void*, std::size_t, int, int, int, off_t)>("mmap");
    // The flags first: a sanitizer maps memory before anything of this program may run.
    if (fd != -1 && (flags & MAP_SHARED) != 0 && kernel.mmap) {
        return kernel.mmap(length, fd);
    }
    return function(start, length, protection, flags, fd, offset);
}

} // extern "C"

int get_pid_by_name(const char* name, int* pid) {
    if (kernel.getPidByName) {
        return kernel.getPidByName(name, pid);
    }
    static const auto function = tavrel::test::next<int (*)(const char*, int*)>("_Z15get_pid_by_namePKcPi");
    return function(name, pid);
}

void* operator new(std::size_t size) {
    ++tavrel::test::allocations;
    if (kernel.refusesObject && kernel.refusesObject(size)) {
        throw std::bad_alloc();
    }
    void* memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

void* operator new[](std::size_t size, const std::nothrow_t& /*unused*/) noexcept {
    if (kernel.refusesArray && kernel.refusesArray(size)) {
        return nullptr;
    }
    try {
        return ::operator new[](size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
