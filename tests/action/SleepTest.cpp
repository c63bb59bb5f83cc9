#include "build/BuilderTest.h"
#include "lock/KernelStandIn.h"
#include "support/TraceCapture.h"

#include <qz/tavrel/Component.h>
#include <qz/tavrel/Sleep.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

using qz::tavrel::Component;
using qz::tavrel::Sleep;
using namespace tavrel::test;

namespace {

using Waits = std::vector<useconds_t>;

/// Keeps the waits of the library, in microseconds, and lets none of them happen.
class NoWaits {
public:
    const Waits& asked() const { return waits; }

private:
    Waits waits;
    KernelStandIn standIn{"usleep", [this](const KernelCall& call) {
                              waits.push_back(static_cast<useconds_t>(call.arguments[0]));
                              return KernelStandIn::succeed;
                          }};
};

void run(Sleep& action) {
    action.execute(nullptr, 7, nullptr, 0, nullptr, 0);
}

/// The waits of an action of this one attribute.
Waits waitsOf(const std::string& time) {
    const NoWaits kernel;
    Sleep action;
    EXPECT_EQ(1, action.setAttribute(nullptr, {time}));
    run(action);
    return kernel.asked();
}

TEST(Sleep, HasNoTimeAtFirst) {
    const NoWaits kernel;
    Sleep action;

    run(action);

    EXPECT_EQ(0U, action.getTime());
    EXPECT_EQ(Waits{0}, kernel.asked());
}

TEST(Sleep, WaitsForItsTimeInMilliseconds) {
    const NoWaits kernel;
    Sleep action;

    EXPECT_EQ(1, action.setAttribute(nullptr, {"250"}));
    run(action);

    EXPECT_EQ(250U, action.getTime());
    EXPECT_EQ(Waits{250000}, kernel.asked());
}

TEST(Sleep, WaitsAgainInEachRun) {
    const NoWaits kernel;
    Sleep action;
    action.setAttribute(nullptr, {"2"});

    run(action);
    run(action);

    EXPECT_EQ((Waits{2000, 2000}), kernel.asked());
}

TEST(Sleep, TakesTheFirstOfSeveralAttributes) {
    Sleep action;

    EXPECT_EQ(1, action.setAttribute(nullptr, {"250", "10", "x"}));

    EXPECT_EQ(250U, action.getTime());
}

TEST(Sleep, KeepsItsTimeWithoutAttributes) {
    Sleep action;
    EXPECT_EQ(0, action.setAttribute(nullptr, {}));
    EXPECT_EQ(0U, action.getTime());
    action.setAttribute(nullptr, {"250"});

    EXPECT_EQ(0, action.setAttribute(nullptr, {}));

    EXPECT_EQ(250U, action.getTime());
}

TEST(Sleep, TakesTheNumberThatATextBeginsWith) {
    EXPECT_EQ(Waits{0}, waitsOf("soon"));
    EXPECT_EQ(Waits{0}, waitsOf(""));
    EXPECT_EQ(Waits{0}, waitsOf("0x10"));
    EXPECT_EQ(Waits{5000}, waitsOf(" 5 ms"));
    EXPECT_EQ(Waits{10000}, waitsOf("010"));
}

TEST(Sleep, WaitsForWhat32BitsHoldOfItsMicroseconds) {
    EXPECT_EQ(Waits{4294967000}, waitsOf("4294967"));
    EXPECT_EQ(Waits{704}, waitsOf("4294968"));
    EXPECT_EQ(Waits{4294966296}, waitsOf("2147483647"));
    EXPECT_EQ(Waits{4294966296}, waitsOf("3000000000")) << "the nearest number of 32 bits";
    EXPECT_EQ(Waits{4294966296}, waitsOf("-1"));
}

TEST(Sleep, EndsEarlyWhenASignalIsHandled) {
    const KernelStandIn kernel("usleep", failing(EINTR));
    Sleep action;
    action.setAttribute(nullptr, {"250"});

    EXPECT_NO_THROW(run(action));

    EXPECT_EQ(1, kernel.calls());
}

TEST(Sleep, WaitsInTheKernel) {
    const KernelStandIn kernel("usleep", [](const KernelCall&) { return 0; });
    Sleep action;
    action.setAttribute(nullptr, {"1"});

    run(action);

    EXPECT_EQ(1, kernel.calls());
}

TEST(Sleep, HasItsNameAsText) {
    EXPECT_EQ("Sleep", Sleep().toString());
}

using SleepBySpecification = BuilderTest;

TEST_F(SleepBySpecification, RunsAsItsRowSays) {
    specify("Chassis\naction,Reset\n,Stop\n", "tavrel.spec.action = actions\n");
    makeFile(actions, "Chassis::Reset\naction,Sleep,250\n\nChassis::Stop\naction,Sleep\n,Sleep,40\n");
    ASSERT_EQ("nothing raised", start());
    const NoWaits kernel;

    Component::getRoot()->doAction(1);
    Component::getRoot()->doAction(2);

    EXPECT_EQ((Waits{250000, 0, 40000}), kernel.asked());
}

} // namespace
