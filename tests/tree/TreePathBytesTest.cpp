#include "TreeTest.h"

#include <cstring>
#include <sstream>

using namespace tavrel::test;
using namespace qz::tavrel;

namespace {

using PathBytes = TreeTest;

/// The fields of the binary form, as this machine keeps them.
std::string bytes(const std::vector<int>& values) {
    return {reinterpret_cast<const char*>(values.data()), values.size() * sizeof(int)};
}

} // namespace

// --- in memory ---

TEST_F(PathBytes, IsWrittenToMemoryAsCountAndSteps) {
    TreePath path;
    path.add(board, 3);
    path.add(-5, 0x01020304);
    char memory[21];
    std::memset(memory, 0x5a, sizeof memory);

    EXPECT_EQ(20, path.write(memory, 20));

    EXPECT_EQ(bytes({2, board, 3, -5, 0x01020304}), std::string(memory, 20));
    EXPECT_EQ(0x5a, memory[20]);
}

TEST_F(PathBytes, IsRefusedByAMemoryThatIsMuchTooSmall) {
    TreePath path;
    path.add(board, 3);
    path.add(board, 4);
    char memory[20];
    std::memset(memory, 0x5a, sizeof memory);

    EXPECT_EQ(0, path.write(memory, 16));
    EXPECT_EQ(0, path.write(memory, 0));

    EXPECT_EQ(std::string(20, 0x5a), std::string(memory, 20));
}

TEST_F(PathBytes, IsWrittenPastAMemoryThatIsALittleTooSmall) {
    TreePath path;
    path.add(board, 3);
    path.add(board, 4);
    char memory[20]; // of which the path is told 17

    EXPECT_EQ(20, path.write(memory, 17));

    EXPECT_EQ(bytes({2, board, 3, board, 4}), std::string(memory, 20));
}

TEST_F(PathBytes, IsWrittenAsItsCountWhenItIsEmpty) {
    TreePath path;
    char memory[4] = {1, 1, 1, 1};

    EXPECT_EQ(0, path.write(memory, 0));
    EXPECT_EQ(1, memory[0]);
    EXPECT_EQ(4, path.write(memory, 1));

    EXPECT_EQ(bytes({0}), std::string(memory, 4));
}

TEST_F(PathBytes, IsReadFromMemory) {
    TreePath path;
    path.add(at(4));
    const std::string memory = bytes({2, chassis, 0, board, 0}) + "what follows";

    EXPECT_EQ(20, path.read(memory.data(), static_cast<unsigned int>(memory.size())));

    EXPECT_EQ((Steps{{chassis, 0}, {board, 0}}), stepsOf(path));
    EXPECT_EQ(at(1), path.getComponent()) << "the end that it remembered is forgotten";
}

TEST_F(PathBytes, ComesBackFromItsExactBytes) {
    TreePath path("/Chassis#0/Board#1/Sensor#0");
    char memory[28];
    TreePath back;

    EXPECT_EQ(28, path.write(memory, sizeof memory));
    EXPECT_EQ(28, back.read(memory, sizeof memory));

    EXPECT_EQ(stepsOf(path), stepsOf(back));
}

TEST_F(PathBytes, NeedsAFifthByteToBeReadEmpty) {
    TreePath path;
    path.add(at(4));
    const std::string memory = bytes({0}) + "x";

    EXPECT_EQ(-1, path.read(memory.data(), 4));
    EXPECT_EQ(1, path.getPathCount());
    EXPECT_EQ(4, path.read(memory.data(), 5));

    EXPECT_EQ(0, path.getPathCount());
    EXPECT_EQ(nullptr, path.getComponent());
}

TEST_F(PathBytes, StaysAsItIsWhenTheBytesCannotHoldIt) {
    TreePath path;
    path.add(at(4));
    const TraceCapture trace;
    const std::string one = bytes({1, board, 0});

    EXPECT_EQ(-1, path.read(one.data(), 0));
    EXPECT_EQ(-1, path.read(one.data(), 4));
    EXPECT_EQ(-1, path.read(one.data(), 11));
    const std::string negative = bytes({-1, board, 0});
    EXPECT_EQ(-1, path.read(negative.data(), 12));
    const std::string two = bytes({2, board, 0});
    EXPECT_EQ(-1, path.read(two.data(), 12));
    // 8 times this count is 8 in 32 bits.
    const std::string wraps = bytes({0x20000001, board, 0});
    EXPECT_EQ(-1, path.read(wraps.data(), 12));
    const std::string largest = bytes({0x7fffffff, board, 0});
    EXPECT_EQ(-1, path.read(largest.data(), 12));

    EXPECT_EQ((Steps{{board, 1}}), stepsOf(path));
    EXPECT_EQ(at(4), path.getComponent());
    EXPECT_TRUE(trace.all().empty());
}

TEST_F(PathBytes, IsEmptiedByANegativeValueInMemory) {
    for (const auto& [type, number] : Steps{{-1, 0}, {board, -2}}) {
        TreePath path;
        path.add(at(4));
        const std::string memory = bytes({2, chassis, 0, type, number});
        const TraceCapture trace;

        EXPECT_EQ(-1, path.read(memory.data(), 20));

        EXPECT_EQ(0, path.getPathCount());
        EXPECT_EQ(nullptr, path.getComponent());
        ASSERT_EQ(1U, trace.all().size());
        EXPECT_EQ(0x2040aU, trace.all()[0].id);
        EXPECT_EQ(errorFlags, trace.all()[0].flags);
        EXPECT_EQ((Words{type, number}), trace.all()[0].arguments());
    }
}

// --- in a stream ---

TEST_F(PathBytes, IsWrittenToAStreamAsCountAndSteps) {
    std::ostringstream stream;
    TreePath path;
    path.add(board, 3);
    path.add(-5, -6);

    EXPECT_EQ(&stream, &path.write(stream));
    TreePath().write(stream);

    EXPECT_EQ(bytes({2, board, 3, -5, -6, 0}), stream.str());
}

TEST_F(PathBytes, IsReadFromAStreamUpToItsEnd) {
    std::istringstream stream(bytes({2, chassis, 0, board, 0}) + "rest");
    TreePath path;
    path.add(at(4));

    EXPECT_EQ(&stream, &path.read(stream));

    EXPECT_EQ((Steps{{chassis, 0}, {board, 0}}), stepsOf(path));
    EXPECT_EQ(at(1), path.getComponent());
    EXPECT_EQ(20, stream.tellg());
}

TEST_F(PathBytes, IsEmptyForACountBelowOneInAStream) {
    for (const int count : {0, -1, -2147483647 - 1}) {
        std::istringstream stream(bytes({count, board, 0}));
        TreePath path;
        path.add(at(4));
        const TraceCapture trace;

        path.read(stream);

        EXPECT_EQ(0, path.getPathCount());
        EXPECT_EQ(nullptr, path.getComponent());
        EXPECT_EQ(4, stream.tellg());
        EXPECT_TRUE(trace.all().empty());
    }
}

TEST_F(PathBytes, IsEmptyForAStreamWithoutAWholeCount) {
    for (const std::string& content : {std::string(), bytes({1}).substr(0, 3)}) {
        std::istringstream stream(content);
        TreePath path;
        path.add(board, 3);
        const TraceCapture trace;

        path.read(stream);

        EXPECT_EQ(0, path.getPathCount());
        EXPECT_TRUE(trace.all().empty());
    }
}

TEST_F(PathBytes, IsEmptiedByANegativeValueInAStreamWhichStopsThere) {
    for (const auto& [type, number] : Steps{{-1, 0}, {board, -2}}) {
        std::istringstream stream(bytes({3, chassis, 0, type, number, board, 0}));
        TreePath path;
        path.add(at(4));
        const TraceCapture trace;

        path.read(stream);

        EXPECT_EQ(0, path.getPathCount());
        EXPECT_EQ(nullptr, path.getComponent());
        EXPECT_EQ(20, stream.tellg());
        ASSERT_EQ(1U, trace.all().size());
        EXPECT_EQ(0x20409U, trace.all()[0].id);
        EXPECT_EQ(errorFlags, trace.all()[0].flags);
        EXPECT_EQ((Words{type, number}), trace.all()[0].arguments());
    }
}

TEST_F(PathBytes, IsEmptiedByAStreamThatEndsEarly) {
    const std::string whole = bytes({2, chassis, 0, board, 1});
    for (std::size_t length = 4; length < whole.size(); ++length) {
        SCOPED_TRACE(length);
        std::istringstream stream(whole.substr(0, length));
        TreePath path;
        const TraceCapture trace;

        path.read(stream);

        EXPECT_EQ(0, path.getPathCount());
        ASSERT_EQ(1U, trace.count(0x20409));
        // What came whole before the end is kept in the record; the rest is -1.
        const std::size_t step = (length - 4) / 8 * 8 + 4;
        const bool hasType = length - step >= 4;
        EXPECT_EQ((Words{hasType ? (step == 4 ? chassis : board) : -1, -1}),
                  trace.of(0x20409)[0].arguments());
    }
}

TEST_F(PathBytes, IsNotLedAstrayByAHugeCountInAStream) {
    std::istringstream stream(bytes({0x7fffffff, chassis, 0}));
    TreePath path;

    path.read(stream);

    EXPECT_EQ(0, path.getPathCount());
}

TEST_F(PathBytes, ComesBackFromAStream) {
    std::stringstream stream;
    TreePath path("/Chassis#0/Board#1/Sensor#0");
    TreePath back;

    path.write(stream);
    back.read(stream);

    EXPECT_EQ(stepsOf(path), stepsOf(back));
}
