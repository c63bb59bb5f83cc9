#include "Running.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <regex>

using namespace tavrel::test;

namespace {

/// The lines of the ring that a process has written.
std::string linesOf(const std::string& trace, pid_t pid) {
    std::istringstream stream(trace);
    std::string found;
    const std::regex writer(R"(^\S+ \S+ +)" + std::to_string(pid) + " ");
    for (std::string line; std::getline(stream, line);) {
        if (std::regex_search(line, writer)) {
            found += line + '\n';
        }
    }
    return found;
}

} // namespace

TEST(ToolTrace, PrintsEachRecordInWords) {
    const Sample sample;
    ASSERT_EQ(tool({"start"}).code, 0);
    Running adding(toolWords({"add", "/Chassis#0/SystemBoard#0/Slot#0", "Card"}));
    const std::string pid = std::to_string(adding.pid());
    ASSERT_EQ(adding.wait().code, 0);

    const Result result = run({TAVREL_TOOL, "trace"});

    EXPECT_EQ(result.code, 0) << result.err;
    const std::regex line(R"((^|\n)\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6} +)" + pid + " +" + pid +
                          R"( info   Component: component created: parent id \d+, id 54, type 10\n)");
    EXPECT_TRUE(std::regex_search(result.out, line)) << result.out;
}

TEST(ToolTrace, ShowsWhatAKilledProcessDidLast) {
    const Sample sample;
    Running holder(
        {CHASSIS_CLIENT, "chassis.properties", "chassis.names", "hold", "/Chassis#0/SystemBoard#1"},
        {"QZ_TRACE_LEVEL=debug"});
    holder.hear("holds");
    const pid_t pid = holder.pid();
    holder.signal(SIGKILL);
    EXPECT_EQ(holder.wait().code, -SIGKILL);

    const std::string lines = linesOf(run({TAVREL_TOOL, "trace"}).out, pid);

    EXPECT_TRUE(std::regex_search(lines, std::regex(R"( debug  Component: writeLock taken: id \d+\n$)")))
        << lines;
}

TEST(ToolTrace, PrintsTextRecordsAsText) {
    const Sample sample;
    ASSERT_EQ(run({TAVREL_TOOL, "-c", "chassis.properties", "start"}, {"QZ_TRACE_LEVEL=debug2"}).code, 0);

    const std::string trace = run({TAVREL_TOOL, "trace"}).out;

    EXPECT_NE(trace.find(" debug  Builder: version of a fresh tree: 1.0\n"), std::string::npos) << trace;
    EXPECT_NE(trace.find(" debug2 Factory: unknown class name: SetProperty\n"), std::string::npos);
}

TEST(ToolTrace, PrintsAddressesInHex) {
    const Sample sample;
    ASSERT_EQ(tool({"start"}).code, 0);

    const std::string trace = run({TAVREL_TOOL, "trace"}).out;

    EXPECT_TRUE(std::regex_search(trace, std::regex(R"(SharedMemory: allocated: .*address 0x[0-9A-F]{8}\n)")))
        << trace;
}

TEST(ToolTrace, ReadsACopyOfTheRing) {
    const Sample sample;
    ASSERT_EQ(tool({"start"}).code, 0);
    std::filesystem::copy_file("/dev/shm/qz_trace", sample.path("ring"));
    const std::string before = run({TAVREL_TOOL, "trace"}).out;
    ASSERT_EQ(tool({"add", "/Chassis#0/SystemBoard#0/Slot#0", "Card"}).code, 0);

    const Result copy = run({TAVREL_TOOL, "trace", "ring"});

    EXPECT_NE(copy.out, "");
    EXPECT_EQ(copy.out, before);
    EXPECT_NE(run({TAVREL_TOOL, "trace"}).out, before);
}

TEST(ToolTrace, RefusesWithoutARing) {
    const Result result = run({TAVREL_TOOL, "trace"});

    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.err,
              "tavrel: there is no trace ring: no process has written a record since the machine started\n");
}

TEST(ToolTrace, RefusesWhatIsNoRing) {
    const Sample sample;
    std::ofstream("/tmp/no-ring") << "no ring";

    for (const char* file : {"/tmp/no-ring", "/tmp/missing", "/tmp"}) {
        const Result result = run({TAVREL_TOOL, "trace", file});

        EXPECT_EQ(result.code, 1) << file;
        EXPECT_EQ(result.err.rfind("tavrel: the trace ring cannot be read: ", 0), 0U) << result.err;
    }
}
