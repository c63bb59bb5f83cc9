#include "base/FileText.h"

#include "base/Guards.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <utility>

namespace qz::internal {

namespace {

constexpr std::size_t blockSize = 16384;
constexpr mode_t createMode = 0666;
constexpr const char* sharedFolder = "/tmp";

/// Repeats a system call that a signal has broken off.
template <typename Call>
auto uninterrupted(Call call) {
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

/// The path without symbolic links; empty if there is no such file.
std::string realPath(const std::string& path) {
    const std::unique_ptr<char, decltype(&std::free)> found(realpath(path.c_str(), nullptr), &std::free);
    return found == nullptr ? std::string() : std::string(found.get());
}

/// True if a file of this path lies beneath the shared folder, whatever way the path takes there.
bool liesInSharedFolder(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    const std::string parent = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    return (realPath(parent) + '/').starts_with(realPath(sharedFolder) + '/');
}

} // namespace

int openEmptied(const std::string& path) {
    const bool isShared = liesInSharedFolder(path);
    const int flags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | (isShared ? O_NOFOLLOW : 0);
    return uninterrupted([&] { return open(path.c_str(), flags, createMode); });
}

bool writeFile(const std::string& path, const std::string& text) {
    Descriptor file(openEmptied(path));
    if (!file.isOpen()) {
        return false;
    }
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t length =
            uninterrupted([&] { return write(file.number(), text.data() + written, text.size() - written); });
        if (length <= 0) {
            return false;
        }
        written += static_cast<std::size_t>(length);
    }
    return close(file.release()) == 0;
}

bool readFile(const std::string& path, std::string& text) {
    const Descriptor file(uninterrupted([&] { return open(path.c_str(), O_RDONLY | O_CLOEXEC); }));
    if (!file.isOpen()) {
        return false;
    }
    std::string content;
    char block[blockSize];
    for (;;) {
        const ssize_t length = uninterrupted([&] { return read(file.number(), block, sizeof block); });
        if (length == 0) {
            text = std::move(content);
            return true;
        }
        if (length < 0) {
            return false;
        }
        content.append(block, static_cast<std::size_t>(length));
    }
}

} // namespace qz::internal
