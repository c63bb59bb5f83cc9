#include "SharedObject.h"

#include "Descriptor.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace qz::platform {

namespace {

constexpr char directory[] = "/dev/shm"; // where the C library keeps POSIX shared memory objects
constexpr char temporaryName[] = "/dev/shm/.qz-XXXXXX";
constexpr mode_t everybody = 0666;
constexpr int openAttempts = 16; // above one only where somebody keeps removing the object

/// The path of a shared memory object.
class ObjectPath {
public:
    /// @return 0, or the error number that tells what is wrong with `name`
    int set(const char* name) {
        const std::size_t length = std::strlen(name);
        if (length < 2 || name[0] != '/' || std::strchr(name + 1, '/') != nullptr) {
            return EINVAL;
        }
        if (length > NAME_MAX + 1) {
            return ENAMETOOLONG;
        }
        std::memcpy(text, directory, sizeof directory - 1);
        std::memcpy(text + sizeof directory - 1, name, length + 1);
        return 0;
    }

    const char* get() const { return text; }

private:
    char text[sizeof directory + NAME_MAX + 1] = {};
};

/// A file of a name that nobody else uses, which goes at the end of the scope.
class [[nodiscard]] TemporaryFile {
public:
    TemporaryFile() : file(mkostemp(path, O_CLOEXEC)), error(file.get() == -1 ? errno : 0) {}
    ~TemporaryFile() {
        if (error == 0) {
            unlink(path);
        }
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    int descriptor() const { return file.get(); }
    const char* name() const { return path; }
    int failure() const { return error; }

private:
    char path[sizeof temporaryName] = "/dev/shm/.qz-XXXXXX";
    Descriptor file;
    int error;
};

int allocate(int file, std::size_t size) {
    // Takes the memory now: a store into a sparse object of a full file system would end the process.
    int error = EINTR;
    while (error == EINTR) {
        error = posix_fallocate(file, 0, static_cast<off_t>(size));
    }
    return error;
}

SharedObject map(int file, std::size_t size) {
    void* const address = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    return address == MAP_FAILED ? SharedObject{nullptr, errno} : SharedObject{address, 0};
}

/// Makes the object in a file of its own and then gives it its name.
/// @return 0 when an object has the name now, also one made by somebody else; otherwise an error number
int publish(const ObjectPath& path, std::size_t size, int (*initialise)(void*)) {
    const TemporaryFile file; // death here and below leaves this file behind, which nobody looks at
    if (file.failure() != 0) {
        return file.failure();
    }
    if (const int error = allocate(file.descriptor(), size)) {
        return error;
    }
    const SharedObject made = map(file.descriptor(), size);
    if (made.address == nullptr) {
        return made.error;
    }
    const int failure = initialise(made.address);
    munmap(made.address, size);
    if (failure != 0) {
        return failure;
    }
    if (fchmod(file.descriptor(), everybody) != 0) {
        return errno;
    }
    if (link(file.name(), path.get()) != 0 && errno != EEXIST) {
        return errno;
    }
    return 0; // death from here on leaves a second name of the complete object
}

} // namespace

SharedObject mapSharedObject(const char* name, std::size_t size, int (*initialise)(void* object)) noexcept {
    ObjectPath path;
    if (const int error = path.set(name)) {
        return {nullptr, error};
    }
    for (int attempt = 0; attempt < openAttempts; ++attempt) {
        // Without O_CREAT, which a sticky directory may refuse for a file of another user.
        const Descriptor file(open(path.get(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
        if (file.get() != -1) {
            struct stat status {};
            if (fstat(file.get(), &status) != 0) {
                return {nullptr, errno};
            }
            if (!S_ISREG(status.st_mode) || static_cast<std::size_t>(status.st_size) != size) {
                return {nullptr, EBADMSG};
            }
            return map(file.get(), size);
        }
        if (errno != ENOENT) {
            return {nullptr, errno};
        }
        if (const int error = publish(path, size, initialise)) {
            return {nullptr, error};
        }
    }
    return {nullptr, ENOENT};
}

} // namespace qz::platform
