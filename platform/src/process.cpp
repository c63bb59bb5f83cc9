#include <qz/base/process.h>

#include <dirent.h>

#include <charconv>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>

namespace {

/// A file below /proc of one process, up to its first zero byte; empty when the process has gone.
std::string textOf(int pid, const char* file) {
    std::ifstream stream("/proc/" + std::to_string(pid) + '/' + file, std::ios::binary);
    std::string text;
    std::getline(stream, text, '\0');
    return text;
}

bool hasShortName(int pid, const std::string& name) {
    return textOf(pid, "comm") == name + '\n';
}

bool hasFirstArgument(int pid, const std::string& name) {
    const std::string argument = textOf(pid, "cmdline");
    return argument.substr(argument.rfind('/') + 1) == name;
}

/// True if the process has gone, or is a zombie that waits for its parent.
bool hasEnded(int pid) {
    const std::string stat = textOf(pid, "stat");
    const std::size_t nameEnd = stat.rfind(") "); // the name before it may hold anything
    return nameEnd == std::string::npos || stat.compare(nameEnd, 3, ") Z") == 0 ||
           stat.compare(nameEnd, 3, ") X") == 0;
}

/// The process id that a folder of /proc is named after, 0 for other folders.
int processIdOf(const char* folder) {
    const char* const end = folder + std::strlen(folder);
    int pid = 0;
    const auto [rest, error] = std::from_chars(folder, end, pid);
    return error == std::errc() && rest == end ? pid : 0;
}

} // namespace

int get_pid_by_name(const char* name, int* pid) {
    const std::string wanted = name;
    const std::unique_ptr<DIR, int (*)(DIR*)> processes(opendir("/proc"), closedir);
    if (processes == nullptr || wanted.empty()) {
        return -1;
    }
    int found = 0;
    while (const dirent* const entry = readdir(processes.get())) {
        const int candidate = processIdOf(entry->d_name);
        if (candidate > 0 && (found == 0 || candidate < found) &&
            (hasShortName(candidate, wanted) || hasFirstArgument(candidate, wanted)) &&
            !hasEnded(candidate)) {
            found = candidate;
        }
    }
    if (found == 0) {
        return -1;
    }
    *pid = found;
    return 0;
}
