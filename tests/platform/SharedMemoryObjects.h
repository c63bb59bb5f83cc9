#pragma once

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace tavrel::test {

/// Path of the POSIX shared memory object `name`.
inline std::string objectPath(const std::string& name) {
    return "/dev/shm" + name;
}

/// Names of all POSIX shared memory objects of the sandbox.
inline std::vector<std::string> objectNames() {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator("/dev/shm")) {
        names.push_back('/' + entry.path().filename().string());
    }
    return names;
}

/// Puts `bytes` where the shared memory object `name` belongs.
inline void writeObject(const std::string& name, const std::string& bytes) {
    std::ofstream(objectPath(name), std::ios::binary) << bytes;
}

} // namespace tavrel::test
