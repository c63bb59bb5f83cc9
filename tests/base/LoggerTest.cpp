#include "support/TraceCapture.h"

#include <qz/tavrel/Logger.h>

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstring>
#include <string>

using qz::tavrel::Logger;
using namespace tavrel::test;

namespace {

constexpr unsigned long id = 0x12345;

std::string bytesOf(std::initializer_list<std::uint32_t> words) {
    return {reinterpret_cast<const char*>(words.begin()), words.size() * sizeof(std::uint32_t)};
}

/// Calls `write` for each of the four levels and expects four records of `data`.
template <typename Write>
void expectFourLevels(const std::string& data, Write write) {
    const TraceCapture capture;

    write(*Logger::getLogger());

    const auto records = capture.all();
    ASSERT_EQ(4U, records.size());
    const int flags[] = {errorFlags, infoFlags, debugFlags, debug2Flags};
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(13, records[i].channel);
        EXPECT_EQ(37U, records[i].module);
        EXPECT_EQ(flags[i], records[i].flags);
        EXPECT_EQ(id, records[i].id);
        EXPECT_EQ(data, records[i].data);
    }
}

/// As a static object of another library sees it, before `main`.
Logger* const early = Logger::getLogger();

TEST(Logger, IsOneObject) {
    EXPECT_EQ(early, Logger::getLogger());
    EXPECT_EQ(Logger::getLogger(), Logger::getLogger());
}

TEST(Logger, IsNoMemoryThatIsAllocated) {
    Dl_info found{};

    EXPECT_NE(0, dladdr(Logger::getLogger(), &found)) << "it lies in the library";
}

TEST(QZTrace, WritesFourUnsignedWords) {
    expectFourLevels(bytesOf({1, 2, 3, 0xffffffff}), [](QZTrace& t) {
        t.error(id, 1UL, 2UL, 3UL, 0xffffffffUL);
        t.info(id, 1UL, 2UL, 3UL, 0xffffffffUL);
        t.debug(id, 1UL, 2UL, 3UL, 0xffffffffUL);
        t.debug2(id, 1UL, 2UL, 3UL, 0xffffffffUL);
    });
}

TEST(QZTrace, WritesEightUnsignedWords) {
    expectFourLevels(bytesOf({1, 2, 3, 4, 5, 6, 7, 8}), [](QZTrace& t) {
        t.error(id, 1UL, 2UL, 3UL, 4UL, 5UL, 6UL, 7UL, 8UL);
        t.info(id, 1UL, 2UL, 3UL, 4UL, 5UL, 6UL, 7UL, 8UL);
        t.debug(id, 1UL, 2UL, 3UL, 4UL, 5UL, 6UL, 7UL, 8UL);
        t.debug2(id, 1UL, 2UL, 3UL, 4UL, 5UL, 6UL, 7UL, 8UL);
    });
}

TEST(QZTrace, WritesFourSignedWords) {
    expectFourLevels(bytesOf({1, 0xffffffff, 3, 4}), [](QZTrace& t) {
        t.error(id, 1, -1, 3, 4);
        t.info(id, 1, -1, 3, 4);
        t.debug(id, 1, -1, 3, 4);
        t.debug2(id, 1, -1, 3, 4);
    });
}

TEST(QZTrace, WritesEightSignedWords) {
    expectFourLevels(bytesOf({1, 2, 3, 4, 5, 6, 7, 0xfffffff8}), [](QZTrace& t) {
        t.error(id, 1, 2, 3, 4, 5, 6, 7, -8);
        t.info(id, 1, 2, 3, 4, 5, 6, 7, -8);
        t.debug(id, 1, 2, 3, 4, 5, 6, 7, -8);
        t.debug2(id, 1, 2, 3, 4, 5, 6, 7, -8);
    });
}

TEST(QZTrace, WritesGivenBytes) {
    const unsigned char data[] = {1, 0, 2};
    expectFourLevels(std::string("\1\0\2", 3), [&](const QZTrace& t) {
        t.error(id, data, 3);
        t.info(id, data, 3);
        t.debug(id, data, 3);
        t.debug2(id, data, 3);
    });
}

TEST(QZTrace, WritesTextWithItsTerminatingZero) {
    expectFourLevels(std::string("text\0", 5), [](const QZTrace& t) {
        t.error(id, "text");
        t.info(id, "text");
        t.debug(id, "text");
        t.debug2(id, "text");
    });
}

const void* address(std::uintptr_t value) {
    return reinterpret_cast<const void*>(value); // NOLINT(performance-no-int-to-ptr)
}

TEST(QZTrace, WritesTheLow32BitsOfOneAddress) {
    expectFourLevels(bytesOf({0x10000001, 2, 3, 4}), [](const QZTrace& t) {
        t.error(id, address(0x10000001), 2UL, 3UL, 4UL);
        t.info(id, address(0x10000001), 2UL, 3UL, 4UL);
        t.debug(id, address(0x10000001), 2UL, 3UL, 4UL);
        t.debug2(id, address(0x10000001), 2UL, 3UL, 4UL);
    });
}

TEST(QZTrace, WritesTheLow32BitsOfTwoAddresses) {
    expectFourLevels(bytesOf({0x10000001, 0x10000002, 3, 4}), [](const QZTrace& t) {
        t.error(id, address(0x10000001), address(0x10000002), 3UL, 4UL);
        t.info(id, address(0x10000001), address(0x10000002), 3UL, 4UL);
        t.debug(id, address(0x10000001), address(0x10000002), 3UL, 4UL);
        t.debug2(id, address(0x10000001), address(0x10000002), 3UL, 4UL);
    });
}

TEST(QZTrace, WritesTheLow32BitsOfThreeAddresses) {
    expectFourLevels(bytesOf({0x10000001, 0x10000002, 0x10000003, 4}), [](const QZTrace& t) {
        t.error(id, address(0x10000001), address(0x10000002), address(0x10000003), 4UL);
        t.info(id, address(0x10000001), address(0x10000002), address(0x10000003), 4UL);
        t.debug(id, address(0x10000001), address(0x10000002), address(0x10000003), 4UL);
        t.debug2(id, address(0x10000001), address(0x10000002), address(0x10000003), 4UL);
    });
}

TEST(QZTrace, WritesTheLow32BitsOfFourAddresses) {
    expectFourLevels(bytesOf({0x10000001, 0x10000002, 0x10000003, 0x10000004}), [](const QZTrace& t) {
        t.error(id, address(0x10000001), address(0x10000002), address(0x10000003), address(0x10000004));
        t.info(id, address(0x10000001), address(0x10000002), address(0x10000003), address(0x10000004));
        t.debug(id, address(0x10000001), address(0x10000002), address(0x10000003), address(0x10000004));
        t.debug2(id, address(0x10000001), address(0x10000002), address(0x10000003), address(0x10000004));
    });
}

class LoggerText : public testing::Test {
protected:
    LoggerText() { testing::internal::CaptureStdout(); }

    static std::string output() {
        std::fflush(stdout);
        return testing::internal::GetCapturedStdout();
    }

    Logger& logger = *Logger::getLogger();
};

TEST_F(LoggerText, PrintsEachLevelFiveCharactersWide) {
    logger.fatal("x");
    logger.error("x");
    logger.warn("x");
    logger.info("x");
    logger.debug("x");
    logger.trace("x");

    EXPECT_EQ("[fatal] x\n[error] x\n[warn ] x\n[info ] x\n[debug] x\n[trace] x\n", output());
}

TEST_F(LoggerText, PrintsAnyLevel) {
    logger.logging("level", "message");

    EXPECT_EQ("[level] message\n", output());
}

TEST_F(LoggerText, StaysOnTheStandardOutputAfterSetFilename) {
    logger.setFilename("/nowhere/at/all");
    logger.info("x");

    EXPECT_EQ("[info ] x\n", output());
}

TEST_F(LoggerText, FormatsALogLine) {
    logger.log("%s %d", "a", 5);

    EXPECT_EQ("[trace] a 5\n", output());
}

TEST_F(LoggerText, LogsNothingForAnEmptyText) {
    logger.log("%s", "");

    EXPECT_EQ("", output());
}

TEST_F(LoggerText, CutsALogLineAt510Characters) {
    logger.log("%s", std::string(600, 'x').c_str());

    EXPECT_EQ("[trace] " + std::string(510, 'x') + "\n", output());
}

} // namespace
