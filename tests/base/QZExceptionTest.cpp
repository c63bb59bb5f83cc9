#include <qz/tavrel/QZException.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

using qz::tavrel::TavrelException;
using qz::tavrel::UnavailableComponentException;

namespace {

constexpr std::uint32_t tavrelCode = 0x250000;

TEST(QZException, WithoutAMessageTakesTheFaultTextAlone) {
    QZException fault;

    fault.setFaultPoint("File", "function", 12);

    EXPECT_STREQ("FAULT at File(12): function()", fault.what());
}

TEST(QZException, PutsTheFaultTextBeforeTheMessage) {
    TavrelException fault("semget failed.");

    fault.setFaultPoint("Semaphore", "initialize", 104);

    EXPECT_STREQ("FAULT at Semaphore(104): initialize() semget failed.", fault.what());
}

TEST(QZException, ReadsNewestFirstAfterTwoFaultPoints) {
    TavrelException fault("text");

    fault.setFaultPoint("A", "a", 1);
    fault.setFaultPoint("B", "b", 2);

    EXPECT_STREQ("FAULT at B(2): b() FAULT at A(1): a() text", fault.what());
}

TEST(QZException, CutsALongFaultTextTo511Characters) {
    TavrelException fault("text");

    fault.setFaultPoint(std::string(600, 'f').c_str(), "function", 1);

    const std::string what = fault.what();
    EXPECT_EQ(511U + 1 + 4, what.size());
    EXPECT_EQ("FAULT at " + std::string(502, 'f') + " text", what);
}

TEST(QZException, CarriesCodeAndTextInACopy) {
    QZException fault("text", 77);

    const QZException copy(fault);

    EXPECT_EQ(77U, copy.getCode());
    EXPECT_STREQ("text", copy.what());
}

TEST(TavrelException, HasTheLibrarysCode) {
    EXPECT_EQ(tavrelCode, TavrelException("x").getCode());
    EXPECT_EQ(tavrelCode, UnavailableComponentException("x").getCode());
    EXPECT_EQ(0x250000, 37 << 16);
}

TEST(TavrelException, TakesTheSystemsTextOfAnErrorNumber) {
    TavrelException fault(ENOENT);

    EXPECT_STREQ(std::strerror(ENOENT), fault.what());

    fault.setFaultPoint("F", "f", 3);
    EXPECT_EQ("FAULT at F(3): f() " + std::string(std::strerror(ENOENT)), fault.what());
}

template <typename Raised, typename Caught>
std::string textCaughtAs() {
    try {
        throw Raised("text");
    } catch (const Caught& fault) {
        return fault.what();
    }
}

TEST(TavrelException, IsCaughtAsEachOfItsBases) {
    EXPECT_EQ("text", (textCaughtAs<QZException, std::exception>()));
    EXPECT_EQ("text", (textCaughtAs<TavrelException, std::exception>()));
    EXPECT_EQ("text", (textCaughtAs<UnavailableComponentException, std::exception>()));
    EXPECT_EQ("text", (textCaughtAs<TavrelException, QZException>()));
    EXPECT_EQ("text", (textCaughtAs<UnavailableComponentException, TavrelException>()));
}

} // namespace
