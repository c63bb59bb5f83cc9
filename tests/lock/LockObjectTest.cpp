#include <qz/tavrel/LockObject.h>

#include <gtest/gtest.h>

using qz::tavrel::LockObject;

namespace {

TEST(LockObject, HasNoDeadlineAtStart) {
    timespec value{7, 8};

    LockObject::setupTimeoutValue(&value);

    EXPECT_EQ(7, value.tv_sec);
    EXPECT_EQ(8, value.tv_nsec);
}

TEST(LockObject, HandsOutTheDeadlineThatWasSet) {
    const timespec seconds{5, 0};
    const timespec nanoseconds{0, 6};
    timespec value{7, 8};

    LockObject::setTimeoutValue(&seconds);
    LockObject::setupTimeoutValue(&value);
    EXPECT_EQ(5, value.tv_sec);
    EXPECT_EQ(0, value.tv_nsec);

    LockObject::setTimeoutValue(&nanoseconds);
    LockObject::setupTimeoutValue(&value);
    EXPECT_EQ(0, value.tv_sec);
    EXPECT_EQ(6, value.tv_nsec);
}

TEST(LockObject, TakesADeadlineOfZeroForNone) {
    const timespec seconds{5, 0};
    const timespec none{};
    timespec value{7, 8};
    LockObject::setTimeoutValue(&seconds);

    LockObject::setTimeoutValue(&none);
    LockObject::setupTimeoutValue(&value);

    EXPECT_EQ(7, value.tv_sec);
    EXPECT_EQ(8, value.tv_nsec);
}

} // namespace
