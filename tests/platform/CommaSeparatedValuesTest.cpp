#include <qz/util/config/CommaSeparatedValues.h>

#include <gtest/gtest.h>

#include <sstream>

using qz::util::config::CommaSeparatedValues;

namespace {

using Row = std::vector<std::string>;
using Rows = std::vector<Row>;

Rows rowsOf(CommaSeparatedValues& table) {
    Rows rows;
    for (int i = 0; i < table.size(); ++i) {
        rows.push_back(table[i]);
    }
    return rows;
}

Rows parse(const std::string& text) {
    std::istringstream stream(text);
    CommaSeparatedValues table;
    table.load(stream);
    return rowsOf(table);
}

TEST(CommaSeparatedValues, IsEmptyAtFirst) {
    EXPECT_EQ(0, CommaSeparatedValues().size());
}

TEST(CommaSeparatedValues, SplitsRowsAtCommas) {
    EXPECT_EQ((Rows{{"a", "b", "c"}, {"d"}}), parse("a,b,c\nd\n"));
}

TEST(CommaSeparatedValues, NeedsNoEndOfTheLastLine) {
    EXPECT_EQ((Rows{{"a"}, {"b", "c"}}), parse("a\nb,c"));
}

TEST(CommaSeparatedValues, HasNoRowsForAnEmptyStream) {
    EXPECT_EQ((Rows{}), parse(""));
}

TEST(CommaSeparatedValues, KeepsABlankLineAsARowOfOneEmptyCell) {
    EXPECT_EQ((Rows{{""}}), parse("\n"));
    EXPECT_EQ((Rows{{"a"}, {""}, {""}, {"b"}, {""}}), parse("a\n\n \t \nb\n\n"));
}

TEST(CommaSeparatedValues, KeepsEmptyCells) {
    EXPECT_EQ((Rows{{"", "a", "", "b"}}), parse(",a,,b"));
    EXPECT_EQ((Rows{{"", ""}}), parse(","));
}

TEST(CommaSeparatedValues, YieldsAnEmptyLastCellBehindATrailingComma) {
    EXPECT_EQ((Rows{{"a", ""}, {"b", ""}, {"c", ""}}), parse("a,\nb,\r\nc, "));
}

TEST(CommaSeparatedValues, TrimsCells) {
    EXPECT_EQ((Rows{{"a b", "c", ""}}), parse(" \ta b\v , c\f,  "));
}

TEST(CommaSeparatedValues, TakesLinesThatEndInCarriageReturnAndLineFeed) {
    EXPECT_EQ((Rows{{"a", "b"}, {""}, {"c"}}), parse("a,b\r\n\r\nc\r\n"));
}

TEST(CommaSeparatedValues, TakesCommasInsideQuotes) {
    EXPECT_EQ((Rows{{"a,b", "c", ",", ""}}), parse("\"a,b\",c,\",\",\"\""));
}

TEST(CommaSeparatedValues, TakesDoubledQuotesAsOne) {
    EXPECT_EQ((Rows{{"say \"x\"", "\"", "\"\""}}), parse(R"("say ""x""","""","""""")"));
}

TEST(CommaSeparatedValues, TrimsAroundQuotesAndNotInsideThem) {
    EXPECT_EQ((Rows{{" a ", "b"}}), parse("  \" a \"\t, b"));
}

TEST(CommaSeparatedValues, EndsAnOpenQuoteAtTheEndOfTheLine) {
    EXPECT_EQ((Rows{{"a", "b,c"}, {"d", "e"}}), parse("a,\"b,c\r\nd,e\n"));
    EXPECT_EQ((Rows{{"a\""}, {"b"}}), parse("\"a\"\"\nb"));
    EXPECT_EQ((Rows{{""}, {"b"}}), parse("\"\nb"));
}

TEST(CommaSeparatedValues, KeepsAQuoteInsideACellThatDoesNotBeginWithOne) {
    EXPECT_EQ((Rows{{"a\"b", "c\""}}), parse("a\"b,c\""));
}

TEST(CommaSeparatedValues, KeepsWhatFollowsAClosingQuote) {
    EXPECT_EQ((Rows{{"a b", "c"}}), parse("\"a\" b ,c"));
}

TEST(CommaSeparatedValues, DropsAByteOrderMark) {
    EXPECT_EQ((Rows{{"a", "\xEF\xBB\xBF"}}), parse("\xEF\xBB\xBF"
                                                   "a,\xEF\xBB\xBF"));
    EXPECT_EQ((Rows{{"a,b"}}), parse("\xEF\xBB\xBF\"a,b\""));
    EXPECT_EQ((Rows{}), parse("\xEF\xBB\xBF"));
    EXPECT_EQ((Rows{{""}}), parse("\xEF\xBB\xBF\n"));
    EXPECT_EQ((Rows{{"\xEF\xBB"}}), parse("\xEF\xBB"));
}

TEST(CommaSeparatedValues, ReplacesItsRowsAtEachLoad) {
    CommaSeparatedValues table;
    std::istringstream first("a\nb\n");
    std::istringstream second("c");

    table.load(first);
    table.load(second);

    EXPECT_EQ((Rows{{"c"}}), rowsOf(table));
}

TEST(CommaSeparatedValues, LetsItsRowsBeChanged) {
    CommaSeparatedValues table;
    std::istringstream stream("a,b");
    table.load(stream);

    table[0][1] = "c";

    EXPECT_EQ((Rows{{"a", "c"}}), rowsOf(table));
}

TEST(CommaSeparatedValues, KeepsEveryByteOfACell) {
    const std::string bytes("a\0\xff\x80z", 5);

    EXPECT_EQ((Rows{{bytes, "b"}}), parse(bytes + ",b"));
}

} // namespace
