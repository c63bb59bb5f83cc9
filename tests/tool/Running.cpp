#include "Running.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace tavrel::test {

namespace {

constexpr int patience = 30000; // milliseconds

std::array<int, 2> makePipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    return ends;
}

/// Appends what a descriptor has; false at its end.
bool readSome(int descriptor, std::string& text) {
    char buffer[4096];
    const ssize_t got = read(descriptor, buffer, sizeof buffer);
    if (got > 0) {
        text.append(buffer, static_cast<std::size_t>(got));
    }
    return got > 0;
}

} // namespace

Running::Running(const Words& words, const Words& environment) {
    const auto in = makePipe();
    const auto out = makePipe();
    const auto err = makePipe();
    std::vector<char*> arguments;
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);

    child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(in[0], STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        dup2(err[1], STDERR_FILENO);
        for (const std::string& entry : environment) {
            putenv(const_cast<char*>(entry.c_str()));
        }
        execv(arguments[0], arguments.data());
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    close(err[1]);
    input = in[1];
    output = out[0];
    errors = err[0];
}

Running::~Running() {
    if (child > 0) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    for (const int descriptor : {input, output, errors}) {
        if (descriptor >= 0) {
            close(descriptor);
        }
    }
}

void Running::tell(const std::string& line) const {
    const std::string text = line + '\n';
    EXPECT_EQ(write(input, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

std::string Running::hear(const std::string& text) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(patience);
    std::string heard;
    while (true) {
        for (std::size_t line = pending.find('\n'); line != std::string::npos; line = pending.find('\n')) {
            std::string found = pending.substr(0, line);
            pending.erase(0, line + 1);
            heard += found + '\n';
            if (found.find(text) != std::string::npos) {
                return found;
            }
        }
        pollfd wanted{output, POLLIN, 0};
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        if (left.count() <= 0 || poll(&wanted, 1, static_cast<int>(left.count())) <= 0 ||
            !readSome(output, pending)) {
            break;
        }
    }
    ADD_FAILURE() << "no line with '" << text << "' but:\n" << heard << pending;
    return "";
}

void Running::signal(int number) const {
    ::kill(child, number);
}

Result Running::wait() {
    close(input);
    input = -1;
    Result result{-1, pending, ""};
    bool outOpen = true;
    bool errOpen = true;
    while (outOpen || errOpen) {
        pollfd wanted[2] = {{outOpen ? output : -1, POLLIN, 0}, {errOpen ? errors : -1, POLLIN, 0}};
        if (poll(wanted, 2, patience) <= 0) {
            ADD_FAILURE() << "the program does not end";
            ::kill(child, SIGKILL);
            break;
        }
        if (wanted[0].revents != 0) {
            outOpen = readSome(output, result.out);
        }
        if (wanted[1].revents != 0) {
            errOpen = readSome(errors, result.err);
        }
    }
    int status = 0;
    waitpid(child, &status, 0);
    child = -1;
    result.code = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    return result;
}

Result run(const Words& words, const Words& environment) {
    return Running(words, environment).wait();
}

Words toolWords(const Words& words) {
    Words all = {TAVREL_TOOL, "-c", "chassis.properties", "--classes", CHASSIS_CLASSES};
    all.insert(all.end(), words.begin(), words.end());
    return all;
}

Result tool(const Words& words, const Words& environment) {
    return run(toolWords(words), environment);
}

Sample::Sample() {
    char name[] = "/tmp/sample.XXXXXX";
    folder = mkdtemp(name);
    std::filesystem::copy(CHASSIS_FOLDER, folder);
    std::filesystem::current_path(folder);
}

void Sample::edit(const std::string& file, const std::string& before, const std::string& after) const {
    std::string text = content(path(file));
    const std::size_t place = text.find(before);
    ASSERT_NE(place, std::string::npos) << before << " is not in " << file;
    text.replace(place, before.size(), after);
    std::ofstream(path(file)) << text;
}

int Sample::lineOf(const std::string& file, const std::string& text) const {
    std::ifstream stream(path(file));
    int number = 1;
    for (std::string line; std::getline(stream, line); ++number) {
        if (line.find(text) != std::string::npos) {
            return number;
        }
    }
    ADD_FAILURE() << text << " is not in " << file;
    return 0;
}

StartedSample::StartedSample() {
    const Result started = tool({"start"});
    EXPECT_EQ(started.code, 0) << started.err;
}

std::string content(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    std::stringstream bytes;
    bytes << stream.rdbuf();
    return bytes.str();
}

} // namespace tavrel::test
