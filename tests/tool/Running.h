#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace tavrel::test {

using Words = std::vector<std::string>;

/// What a command that has ended leaves.
struct Result {
    int code; ///< exit code, or minus the signal that ended it
    std::string out;
    std::string err;
};

/// A program that runs while the test goes on. Killed at the end at the latest.
class Running {
public:
    /// @param words        the program and its arguments
    /// @param environment  "NAME=VALUE" entries that it gets besides the test's own
    explicit Running(const Words& words, const Words& environment = {});
    ~Running();
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;

    pid_t pid() const { return child; }

    /// Writes a line to its standard input.
    void tell(const std::string& line) const;

    /// Reads lines of its standard output until one holds `text`, at most 30 seconds.
    /// @return that line; empty, and a failed test, when none comes
    std::string hear(const std::string& text);

    /// Sends a signal.
    void signal(int number) const;

    /// Ends its standard input, and waits until it has ended.
    Result wait();

private:
    pid_t child = -1;
    int input = -1;
    int output = -1;
    int errors = -1;
    std::string pending;
};

/// Runs a program to its end.
Result run(const Words& words, const Words& environment = {});

/// Runs the tool on the sample machine, with its classes.
Result tool(const Words& words, const Words& environment = {});

/// The words of `tool` above, for a program that goes on.
Words toolWords(const Words& words);

/// A folder of its own with a copy of the sample machine, which the test may change; it becomes the working
/// directory.
class Sample {
public:
    Sample();

    /// Replaces the first `before` in a file by `after`; fails the test if there is none.
    void edit(const std::string& file, const std::string& before, const std::string& after) const;

    /// Number of the first line of a file that holds `text`.
    int lineOf(const std::string& file, const std::string& text) const;

    /// Absolute path of a file.
    std::string path(const std::string& file) const { return folder + "/" + file; }

private:
    std::string folder;
};

/// The same with its tree built, so that no command has to say that it built one.
class StartedSample : public Sample {
public:
    StartedSample();
};

/// All bytes of a file.
std::string content(const std::string& path);

} // namespace tavrel::test
