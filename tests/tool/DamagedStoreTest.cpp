#include "Running.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>

using namespace tavrel::test;

namespace {

const std::string database = "/var/nvrdisk/current/db/current.db";
constexpr std::size_t firstRecord = 16;

void overwrite(const std::string& path, std::size_t offset, const std::string& bytes) {
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(offset));
    file << bytes;
}

/// Where the second record begins.
std::size_t secondRecord() {
    const std::string bytes = content(database);
    const auto length = static_cast<unsigned char>(bytes[firstRecord + 40]) +
                        (static_cast<std::size_t>(static_cast<unsigned char>(bytes[firstRecord + 41])) << 8);
    return (firstRecord + 48 + length + 15) / 16 * 16;
}

/// Writes `id` in place of the last link of the stored tree, that of the second sensor of power supply 1,
/// component 49.
void relink(unsigned int id) {
    const std::string bytes = content(database);
    const std::string live("\0BDN", 4);
    std::size_t record = bytes.find(std::string("tavrel1") + '\0');
    while (bytes.substr(record + 44, 4) != live) {
        record = bytes.find(std::string("tavrel1") + '\0', record + 1);
    }
    const auto byte = [&](std::size_t i) {
        return static_cast<std::size_t>(static_cast<unsigned char>(bytes[record + 40 + i]));
    };
    const std::size_t end = record + 48 + (byte(0) | byte(1) << 8);
    std::string link;
    for (int shift = 24; shift >= 0; shift -= 8) {
        link += static_cast<char>(id >> shift & 0xFF);
    }
    overwrite(database, end - 4, link);
}

void expectRefusal(const std::string& path, const std::string& reason) {
    const std::string damaged = content(path);
    const std::string refusal = "tavrel: the database '" + path + "' " + reason + "; it was left as it is\n";

    for (const char* command : {"start", "tree"}) {
        const Result result = tool({command});

        EXPECT_EQ(result.code, 1);
        EXPECT_EQ(result.err, refusal);
    }
    EXPECT_EQ(content(path), damaged);
}

} // namespace

class ToolDamagedStore : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(tool({"start"}).code, 0); }

    const Sample sample;
};

TEST_F(ToolDamagedStore, WithABrokenMarkIsLeftAsItIs) {
    const std::size_t second = secondRecord();
    overwrite(database, second + 44, "XXXX");

    expectRefusal(database, "is damaged at byte " + std::to_string(second) + ": a record without its mark");
}

TEST_F(ToolDamagedStore, WithARecordLongerThanTheFileIsLeftAsItIs) {
    overwrite(database, firstRecord + 40, "\xFF\xFF\xFF\x7F");

    expectRefusal(database, "is damaged at byte 16: a record longer than the file");
}

TEST_F(ToolDamagedStore, WithABrokenKeyIsLeftAsItIs) {
    overwrite(database, firstRecord + 32, "\x1F");

    expectRefusal(database, "is damaged at byte 16: a record with a broken key");
}

TEST_F(ToolDamagedStore, WithAWrongPlaceIsLeftAsItIs) {
    overwrite(database, firstRecord + 36, "\x20");

    expectRefusal(database, "is damaged at byte 16: a record that says it stands elsewhere");
}

TEST_F(ToolDamagedStore, WithARecordWipedInTheMiddleIsLeftAsItIs) {
    const std::size_t second = secondRecord();
    overwrite(database, firstRecord, std::string(second - firstRecord, '\0'));

    expectRefusal(database, "is damaged before byte " + std::to_string(second) +
                                ": the values from there on are cut off");
}

TEST_F(ToolDamagedStore, ThatIsCutOffIsLeftAsItIs) {
    std::filesystem::resize_file(database, 5000);

    expectRefusal(database, "is cut off after 5000 bytes");
}

TEST_F(ToolDamagedStore, OfSettingsIsLeftAsItIsToo) {
    overwrite("/conf/qz/db/setup.db", firstRecord + 44, "XXXX");

    expectRefusal("/conf/qz/db/setup.db", "is damaged at byte 16: a record without its mark");
}

TEST_F(ToolDamagedStore, IsNoneAfterAnAppendThatWasCutShort) {
    const std::string bytes = content(database);
    const auto at = [&](std::size_t i) {
        return static_cast<std::size_t>(static_cast<unsigned char>(bytes[12 + i]));
    };
    const std::size_t end = at(0) | at(1) << 8 | at(2) << 16;
    const std::size_t longer = end + 64;
    overwrite(database, 12,
              {static_cast<char>(longer & 0xFF), static_cast<char>(longer >> 8 & 0xFF),
               static_cast<char>(longer >> 16 & 0xFF)});

    const Result result = tool({"start"});

    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_EQ(result.out.rfind("joined the tree", 0), 0U) << result.out;
}

TEST_F(ToolDamagedStore, WithAVersionButNoTreeIsNotUsed) {
    std::string bytes = content(database);
    for (const char* key : {"tavrel4", "tavrel5"}) {
        for (std::size_t place = bytes.find(std::string(key) + '\0'); place != std::string::npos;
             place = bytes.find(std::string(key) + '\0', place + 1)) {
            overwrite(database, place + 44, "YEKD");
        }
    }
    const std::string damaged = content(database);

    const Result result = tool({"start"});

    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.err,
              "tavrel: the store holds version '1.0' but no tree: it is damaged, or belongs to another "
              "specification\n");
    EXPECT_EQ(content(database), damaged);
}

TEST_F(ToolDamagedStore, WithACircleInTheTreeIsNotWalked) {
    for (const unsigned int id : {0U, 49U}) {
        relink(id);

        for (const char* command : {"tree", "start"}) {
            const Result result = tool({command});

            EXPECT_EQ(result.code, 1);
            EXPECT_EQ(result.err, "tavrel: the stored tree is damaged: component " + std::to_string(id) +
                                      " is beneath itself\n");
        }
        relink(51);
    }
    EXPECT_EQ(tool({"tree"}).code, 0);
}

TEST_F(ToolDamagedStore, WithALinkBeyondTheLimitIsNotWalked) {
    relink(256);

    const Result result = tool({"tree"});

    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(
        result.err,
        "tavrel: component 49 links to component 256: the stored tree is damaged, or tavrel.compo.max = "
        "256 was lowered\n");
}

TEST_F(ToolDamagedStore, IsNoneWhileOthersWriteIt) {
    Running writer(
        {"/bin/sh", "-c",
         "i=0; echo begins; while [ $i -lt 20 ]; do " TAVREL_TOOL
         " -c chassis.properties set /Chassis#0 SerialNumber text:$i || exit 1; i=$((i + 1)); done"});
    writer.hear("begins");

    for (int i = 0; i < 20; ++i) {
        const Result result = tool({"start"});
        EXPECT_EQ(result.code, 0) << result.err;
    }
    EXPECT_EQ(writer.wait().code, 0);
}
