#include <qz/util/config/CppProperties.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

using qz::util::config::CppProperties;

namespace {

using Keys = std::vector<std::string>;

/// A file that holds `text`, gone at the end of the test.
class File {
public:
    explicit File(const std::string& text) { std::ofstream(place, std::ios::binary) << text; }
    ~File() { std::filesystem::remove(place); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    const std::string& path() const { return place; }

private:
    std::string place = testing::TempDir() + "properties";
};

CppProperties loaded(const std::string& text, bool inFileOrder = true) {
    const File file(text);
    CppProperties properties(inFileOrder);
    properties.load(file.path());
    return properties;
}

Keys keysOf(const CppProperties& properties) {
    Keys keys;
    properties.getKeys(keys);
    return keys;
}

TEST(CppProperties, IsEmptyAtFirst) {
    const CppProperties properties;

    EXPECT_TRUE(keysOf(properties).empty());
    EXPECT_EQ("", properties.getProperty("key"));
}

TEST(CppProperties, TakesOnePairALine) {
    const CppProperties properties = loaded("a=1\nb=2");

    EXPECT_EQ((Keys{"a", "b"}), keysOf(properties));
    EXPECT_EQ("1", properties.getProperty("a"));
    EXPECT_EQ("2", properties.getProperty("b"));
}

TEST(CppProperties, DropsWhiteSpaceAroundKeyAndValue) {
    const CppProperties properties = loaded(" \t key of two words \t =\t value of three words \v\f\n");

    EXPECT_EQ((Keys{"key of two words"}), keysOf(properties));
    EXPECT_EQ("value of three words", properties.getProperty("key of two words"));
}

TEST(CppProperties, SplitsAtTheFirstEqualsSign) {
    EXPECT_EQ("b=c=", loaded("a=b=c=").getProperty("a"));
}

TEST(CppProperties, TakesCommentsAtTheStartOfALineOnly) {
    const CppProperties properties = loaded("# a=1\n!b=2\n  #c=3\n\t! d=4\ne#!=5#!\nf=#6\n");

    EXPECT_EQ((Keys{"e#!", "f"}), keysOf(properties));
    EXPECT_EQ("5#!", properties.getProperty("e#!"));
    EXPECT_EQ("#6", properties.getProperty("f"));
}

TEST(CppProperties, TakesLinesThatEndInCarriageReturnAndLineFeed) {
    const CppProperties properties = loaded("a=1\r\n\r\nb=\r\n");

    EXPECT_EQ((Keys{"a", "b"}), keysOf(properties));
    EXPECT_EQ("1", properties.getProperty("a"));
    EXPECT_EQ("", properties.getProperty("b"));
}

TEST(CppProperties, IgnoresALineWithoutEqualsSignOrKey) {
    EXPECT_EQ((Keys{"a"}), keysOf(loaded("alone\n\n   \n=1\n  = 2\na=\n")));
}

TEST(CppProperties, KeepsAKeyWithAnEmptyValue) {
    CppProperties properties = loaded("a =\n");
    properties.setProperty("b", "");

    EXPECT_EQ((Keys{"a", "b"}), keysOf(properties));
}

TEST(CppProperties, TakesTheLastValueOfARepeatedKeyAtItsFirstPlace) {
    const CppProperties properties = loaded("b=1\na=2\nb=3\n");

    EXPECT_EQ((Keys{"b", "a"}), keysOf(properties));
    EXPECT_EQ("3", properties.getProperty("b"));
}

TEST(CppProperties, ListsKeysInTheOrderOfTheFileOrOfTheAlphabet) {
    EXPECT_EQ((Keys{"c", "a", "b"}), keysOf(loaded("c=\na=\nb=\n", true)));
    EXPECT_EQ((Keys{"a", "b", "c"}), keysOf(loaded("c=\na=\nb=\n", false)));
    EXPECT_EQ((Keys{"B", "a"}), keysOf(loaded("a=\nB=\n", false)));
}

TEST(CppProperties, ListsAlphabeticallyUnlessToldOtherwise) {
    CppProperties properties;

    properties.setProperty("b", "1");
    properties.setProperty("a", "2");

    EXPECT_EQ((Keys{"a", "b"}), keysOf(properties));
}

TEST(CppProperties, AppendsKeysToTheList) {
    Keys keys = {"before"};

    loaded("a=").getKeys(keys);

    EXPECT_EQ((Keys{"before", "a"}), keys);
}

TEST(CppProperties, SetsAtTheSamePlaceOrAtTheEnd) {
    CppProperties properties = loaded("b=1\nc=2\n");

    properties.setProperty("b", "3");
    properties.setProperty("a", "4");

    EXPECT_EQ((Keys{"b", "c", "a"}), keysOf(properties));
    EXPECT_EQ("3", properties.getProperty("b"));
    EXPECT_EQ("4", properties.getProperty("a"));
}

TEST(CppProperties, AddsAFileToWhatIsThere) {
    CppProperties properties = loaded("a=1\nb=1\n");
    const File file("b=2\nc=3\n");

    properties.load(file.path());

    EXPECT_EQ((Keys{"a", "b", "c"}), keysOf(properties));
    EXPECT_EQ("1", properties.getProperty("a"));
    EXPECT_EQ("2", properties.getProperty("b"));
}

TEST(CppProperties, StaysAsItWasWhenTheFileCannotBeRead) {
    CppProperties properties = loaded("a=1\n");

    EXPECT_NO_THROW(properties.load("/nowhere/at/all"));
    EXPECT_NO_THROW(properties.load("/"));
    EXPECT_NO_THROW(properties.load(""));

    EXPECT_EQ((Keys{"a"}), keysOf(properties));
    EXPECT_EQ("1", properties.getProperty("a"));
}

TEST(CppProperties, TakesAnEmptyFile) {
    EXPECT_TRUE(keysOf(loaded("")).empty());
}

TEST(CppProperties, IsCopiedWithAllItHolds) {
    CppProperties original = loaded("b=1\na=2\n");

    const CppProperties copy = original;
    original.clear();

    EXPECT_EQ((Keys{"b", "a"}), keysOf(copy));
    EXPECT_EQ("1", copy.getProperty("b"));
}

TEST(CppProperties, StartsAnewAfterItIsCleared) {
    CppProperties properties = loaded("b=1\na=2\n");

    properties.clear();
    EXPECT_TRUE(keysOf(properties).empty());
    EXPECT_EQ("", properties.getProperty("b"));

    properties.setProperty("a", "3");
    properties.setProperty("b", "4");
    EXPECT_EQ((Keys{"a", "b"}), keysOf(properties));
}

} // namespace
