#include "Running.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

using namespace tavrel::test;

namespace {

const std::string database = "/var/nvrdisk/current/db/current.db";
const std::string damagedTree = "tavrel: the tree in '" + database + "' is damaged: ";
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

std::string bigEndian(unsigned int number) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8) {
        bytes += static_cast<char>(number >> shift & 0xFF);
    }
    return bytes;
}

/// Where the stored node of a component begins.
std::size_t nodeAt(unsigned int id, unsigned int type) {
    const std::string bytes = content(database);
    const std::string head = bigEndian(id);
    const std::string tail = bigEndian(type);
    for (std::size_t place = bytes.rfind(head); place != std::string::npos && place > 0;
         place = bytes.rfind(head, place - 1)) {
        if (bytes.compare(place + 8, 4, tail) == 0 && bytes[place + 4] == 0) {
            return place;
        }
    }
    ADD_FAILURE() << "no node " << id;
    return 0;
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
    overwrite(database, end - 4, bigEndian(id));
}

void makeReadOnly(const std::string& folder) {
    const std::string mount =
        "mount --bind " + folder + ' ' + folder + " && mount -o remount,bind,ro " + folder;
    ASSERT_EQ(std::system(mount.c_str()), 0);
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
    EXPECT_EQ(result.err, "tavrel: the store '" + database +
                              "' holds version '1.0' but no tree: it is damaged, or belongs to another "
                              "specification\n");
    EXPECT_EQ(content(database), damaged);
}

TEST_F(ToolDamagedStore, WithACircleInTheTreeIsNotWalked) {
    for (const unsigned int id : {0U, 49U}) {
        relink(id);

        for (const char* command : {"tree", "start"}) {
            const Result result = tool({command});

            EXPECT_EQ(result.code, 1);
            EXPECT_EQ(result.err, damagedTree + "component " + std::to_string(id) + " is beneath itself\n");
        }
        relink(51);
    }
    EXPECT_EQ(tool({"tree"}).code, 0);
}

TEST_F(ToolDamagedStore, WithADamagedNodeIsNotShown) {
    constexpr unsigned int fan = 40;
    const std::size_t node = nodeAt(fan, 7);
    const std::string whole = content(database).substr(node, 20);
    const struct {
        std::size_t field;
        unsigned int value;
        const char* reason;
    } damages[] = {{8, 0xABABABAB, "component 40 is linked and has no record\n"},
                   {8, 99, "component 40 has the type 99\n"},
                   {12, 0xABABABAB, "component 40 has the number -1414812757\n"},
                   {0, 0xABABABAB, "component 40 is linked and has no record\n"}};
    for (const auto& damage : damages) {
        overwrite(database, node + damage.field, bigEndian(damage.value));

        for (const char* command : {"start", "tree"}) {
            const Result result = tool({command});

            EXPECT_EQ(result.code, 1) << damage.reason;
            EXPECT_EQ(result.out, "");
            EXPECT_EQ(result.err, damagedTree + damage.reason);
        }
        overwrite(database, node, whole);
    }
    EXPECT_EQ(tool({"tree"}).code, 0);
}

TEST_F(ToolDamagedStore, WithANodeOfATypeThatIsNoneIsNotShown) {
    overwrite(database, nodeAt(40, 7) + 8, bigEndian(100)); // Hotplug, a feature

    EXPECT_EQ(tool({"tree"}).err, "tavrel: component 40 in '" + database +
                                      "' is of the type 'Hotplug', which the specification does not have\n");
}

TEST_F(ToolDamagedStore, WithALinkToAComponentThatIsFreeIsNone) {
    overwrite(database, nodeAt(40, 7) + 8, bigEndian(0) + bigEndian(0xFFFFFFFF));

    EXPECT_EQ(tool({"start"}).code, 0) << "a process killed while it removes a component leaves this";
}

TEST_F(ToolDamagedStore, ThatHoldsNothingIsBegunAnewWithANote) {
    const std::size_t size = content(database).size();
    const struct {
        std::string bytes;
        const char* what;
    } wiped[] = {{std::string(size, '\0'), "is all zeros"},
                 {std::string(size, '\xFF'), "is erased"},
                 {"", "is an empty file"}};
    for (const auto& [bytes, what] : wiped) {
        for (const char* command : {"start", "tree"}) {
            std::ofstream(database, std::ios::binary) << bytes;

            const Result result = tool({command});

            EXPECT_EQ(result.code, 0) << what;
            EXPECT_NE(result.err.find("tavrel: note: the database '" + database + "' " + what +
                                      ": what it held is lost, and it is begun anew\n"),
                      std::string::npos)
                << result.err;
        }
        EXPECT_EQ(tool({"start"}).err, "") << "it is a database again";
    }
}

TEST_F(ToolDamagedStore, WithALinkBeyondTheLimitIsNotWalked) {
    relink(256);

    const Result result = tool({"tree"});

    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.err, "tavrel: component 49 links to component 256: the tree in '" + database +
                              "' is damaged, or "
                              "tavrel.compo.max = 256 was lowered\n");
}

TEST_F(ToolDamagedStore, OnADiskThatCannotBeWrittenIsRefused) {
    makeReadOnly("/var/nvrdisk/current/db");

    expectRefusal(database, "cannot be written: Read-only file system");
}

TEST_F(ToolDamagedStore, CannotBeMadeOnADiskThatCannotBeWritten) {
    std::filesystem::remove(database);
    makeReadOnly("/var/nvrdisk/current/db");

    const Result result = tool({"start"});

    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.err, "tavrel: the database '" + database + "' cannot be made: Read-only file system\n");
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
