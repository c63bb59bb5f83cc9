#include "FileStore.h"

#include <qz/tavrel/QZException.h>

#include <random>

using qz::tavrel::BMCRelationalDB;
using qz::tavrel::TavrelException;
using namespace tavrel::test;

namespace {

/// Files that no sound process leaves. Works on "SETUP".
class FileStoreDamage : public FileStore {
protected:
    static constexpr std::uint32_t keyLengthField = 32;
    static constexpr std::uint32_t placeField = 36;
    static constexpr std::uint32_t lengthField = 40;

    FileStoreDamage() {
        BMCRelationalDB store;
        store.initialize("SETUP");
        store.setValue("first", "1234");
        store.setValue("second", "5678");
        store.setValue("third", "9012");
    }

    static constexpr std::uint32_t second = 16 + 64;
    static constexpr std::uint32_t third = 16 + 128;

    /// Expects that the records end before the second one, and that a new one takes its place.
    static void expectEndBeforeSecond() {
        BMCRelationalDB store;
        store.initialize("SETUP");
        EXPECT_EQ("1234", valueOf(store, "first"));
        EXPECT_EQ("(absent)", valueOf(store, "second"));
        EXPECT_EQ("(absent)", valueOf(store, "third"));

        store.setValue("new", "v");

        EXPECT_EQ("1234", freshValue("SETUP", "first"));
        EXPECT_EQ("v", freshValue("SETUP", "new"));
        EXPECT_EQ((std::vector<std::string>{"first", "new"}), liveKeysOf(setupPath));
    }
};

TEST_F(FileStoreDamage, EndsTheRecordsAtAKeyThatBeginsWithFF) {
    patch(setupPath, second, "\xFF");

    expectEndBeforeSecond();
}

TEST_F(FileStoreDamage, EndsTheRecordsAtAKeyThatBeginsWith00) {
    patch(setupPath, second, std::string(1, '\0'));

    expectEndBeforeSecond();
}

TEST_F(FileStoreDamage, EndsTheRecordsAtALengthPastTheFile) {
    for (const std::uint32_t length : {setupSize - second - 48 + 1, setupSize, 0x7FFFFFFFU, 0x80000000U,
                                       0xFFFFFFC0U, 0xFFFFFFD0U, 0xFFFFFFFFU}) {
        patch(setupPath, second + lengthField, word(length));

        EXPECT_EQ("1234", freshValue("SETUP", "first"));
        EXPECT_EQ("(absent)", freshValue("SETUP", "second"));
        EXPECT_EQ("(absent)", freshValue("SETUP", "third"));
    }
    expectEndBeforeSecond();
}

TEST_F(FileStoreDamage, EndsTheRecordsAtATombstoneWithALengthPastTheFile) {
    patch(setupPath, second + lengthField, word(0xFFFFFFFFU) + "YEKD");

    expectEndBeforeSecond();
}

TEST_F(FileStoreDamage, EndsTheRecordsAtARecordThatClaimsAnotherPlace) {
    for (const std::uint32_t place : {0U, 16U, setupSize, 0xFFFFFFF0U}) {
        patch(setupPath, second + placeField, word(place));

        EXPECT_EQ("(absent)", freshValue("SETUP", "second"));
    }
    expectEndBeforeSecond();
}

TEST_F(FileStoreDamage, EndsTheRecordsAtAKeyWithoutEnd) {
    patch(setupPath, second, std::string(32, 'k'));

    expectEndBeforeSecond();
}

TEST_F(FileStoreDamage, DoesNotCareForTheKeyLengthOfARecord) {
    patch(setupPath, second + keyLengthField, word(0xFFFFFFFFU));

    EXPECT_EQ("5678", freshValue("SETUP", "second"));
    EXPECT_EQ("9012", freshValue("SETUP", "third"));
}

TEST_F(FileStoreDamage, TakesARecordWithAnyOtherMagicForATombstone) {
    patch(setupPath, second + 44, "abcd");

    EXPECT_EQ("(absent)", freshValue("SETUP", "second"));
    EXPECT_EQ("9012", freshValue("SETUP", "third"));
}

TEST_F(FileStoreDamage, ReadsNoRecordFromTheLast48BytesOn) {
    const std::uint32_t last = setupSize - 48;
    const std::uint32_t filler = third + 64;
    const std::string fill(last - filler - 48, 'f');
    patch(setupPath, filler, record("filler", filler, fill));
    patch(setupPath, last, record("last", last, ""));

    EXPECT_EQ(fill, freshValue("SETUP", "filler"));
    EXPECT_EQ("(absent)", freshValue("SETUP", "last"));
}

TEST_F(FileStoreDamage, ReadsARecordThatEndsWithTheFile) {
    const std::uint32_t last = setupSize - 64;
    const std::uint32_t filler = third + 64;
    patch(setupPath, filler, record("filler", filler, std::string(last - filler - 48, 'f')));
    patch(setupPath, last, record("last", last, "0123456789abcdef"));

    EXPECT_EQ("0123456789abcdef", freshValue("SETUP", "last"));
}

TEST_F(FileStoreDamage, TakesTheLaterOfTwoRecordsOfOneKey) {
    patch(setupPath, third, record("first", third, "abc"));

    EXPECT_EQ("abc", freshValue("SETUP", "first"));
}

TEST_F(FileStoreDamage, IgnoresWhatNextOffsetSays) {
    for (const std::uint32_t next : {0U, 1U, 16U, third, setupSize - 1, setupSize, 0xFFFFFFFFU}) {
        patch(setupPath, 12, word(next));
        BMCRelationalDB store;
        store.initialize("SETUP");

        EXPECT_EQ("9012", valueOf(store, "third"));
        store.setValue("new", "v");
        store.setValue("third", "90123");
        store.setValue("third", "9012");
        EXPECT_EQ("v", freshValue("SETUP", "new"));
        EXPECT_EQ("9012", freshValue("SETUP", "third"));
    }
}

TEST_F(FileStoreDamage, ReloadsWhenARecordHasBecomeLongerUnderAnOpenStore) {
    BMCRelationalDB store;
    store.initialize("SETUP");
    patch(setupPath, second + lengthField, word(0xFFFFFFFFU));
    const TraceCapture capture;

    EXPECT_EQ("(absent)", valueOf(store, "second"));

    expectWords(capture, 0xA0311, debugFlags, {second, 0});
    EXPECT_EQ(1U, capture.count(0xA0312));
}

TEST_F(FileStoreDamage, WritesInPlaceOnlyWithTheLengthThatTheRecordHas) {
    BMCRelationalDB store;
    store.initialize("SETUP");
    patch(setupPath, third + lengthField, word(2));
    const TraceCapture capture;

    store.setValue("third", "abcd");

    EXPECT_EQ(1U, capture.count(0xA0411));
    EXPECT_EQ(0U, capture.count(0xA0412));
    const auto records = recordsOf(setupPath);
    ASSERT_EQ(4U, records.size());
    EXPECT_EQ("YEKD", records[2].magic);
    EXPECT_EQ("90", records[2].value);
    EXPECT_EQ("abcd", records[3].value);
    EXPECT_EQ("abcd", freshValue("SETUP", "third"));
}

TEST_F(FileStoreDamage, AppendsAKeyThatHasGoneUnderAnOpenStore) {
    BMCRelationalDB store;
    store.initialize("SETUP");
    patch(setupPath, second + 44, "YEKD");
    const TraceCapture capture;

    store.setValue("second", "5678");

    EXPECT_EQ(1U, capture.count(0xA0411));
    EXPECT_EQ(1U, capture.count(0xA0412));
    EXPECT_EQ("5678", freshValue("SETUP", "second"));
    EXPECT_EQ((std::vector<std::string>{"first", "third", "second"}), liveKeysOf(setupPath));
}

TEST_F(FileStoreDamage, TakesTheValueAfterAReloadWithoutAnotherCheck) {
    BMCRelationalDB store;
    store.initialize("SETUP");
    // Bytes behind the end of the key text: no padded key equals this field, yet the text is the key.
    patch(setupPath, second + 31, "x");
    const TraceCapture capture;

    EXPECT_EQ("5678", valueOf(store, "second"));

    EXPECT_EQ(1U, capture.count(0xA0311));
    EXPECT_EQ(0U, capture.count(0xA0312));
}

TEST_F(FileStoreDamage, LetsNoLeftoversPassForARecordBehindANewOne) {
    // As a process leaves it that dies while it writes a longer value here.
    const std::uint32_t place = third + 64;
    patch(setupPath, place + 48, std::string(100, 'x'));
    BMCRelationalDB store;
    store.initialize("SETUP");

    store.setValue("new", "v");
    store.setValue("newer", "w");

    EXPECT_EQ((std::vector<std::string>{"first", "second", "third", "new", "newer"}), liveKeysOf(setupPath));
    const auto records = recordsOf(setupPath);
    EXPECT_EQ(5U, records.size());
    EXPECT_EQ("v", freshValue("SETUP", "new"));
    EXPECT_EQ("w", freshValue("SETUP", "newer"));
    EXPECT_EQ(std::string(15, '\0'), bytesOf(setupPath).substr(place + 49, 15));
}

TEST_F(FileStoreDamage, SurvivesAnyBytes) {
    std::mt19937 generator(4711); // NOLINT: the same files in every run
    const auto random = [&] { return static_cast<std::uint32_t>(generator()); };
    const std::string sound = bytesOf(setupPath);
    for (int round = 0; round < 300; ++round) {
        std::string bytes = sound;
        for (int i = 0; i < 12; ++i) {
            const std::uint32_t at = random() % 256 + (random() % 4 == 0 ? random() % (setupSize - 260) : 0);
            bytes.replace(at, 4, random() % 2 == 0 ? word(random()) : word(random() % setupSize));
        }
        make(setupPath, bytes);
        BMCRelationalDB store;
        store.initialize("SETUP");
        for (const char* key : {"first", "second", "third", "fourth"}) {
            const std::string value(random() % 600, static_cast<char>('a' + round % 26));
            try {
                store.setValue(key, value);
            } catch (const TavrelException&) {
                continue; // full of what cannot be told from records
            }
            EXPECT_EQ(value, valueOf(store, key));
            EXPECT_EQ(value, freshValue("SETUP", key));
        }
    }
}

} // namespace
