#include "support/TraceCapture.h"

#include <qz/tavrel/Action.h>
#include <qz/tavrel/Component.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <array>
#include <string>
#include <vector>

using qz::tavrel::Action;
using qz::tavrel::Component;
using qz::tavrel::NullAction;
using namespace tavrel::test;

namespace {

constexpr unsigned long run = 0x50000;

TEST(NullAction, IsOneObject) {
    Action* const first = NullAction::getInstance();

    EXPECT_NE(nullptr, first);
    EXPECT_EQ(first, NullAction::getInstance());
}

TEST(NullAction, TakesNoAttribute) {
    EXPECT_EQ(0, NullAction::getInstance()->setAttribute(nullptr, {"1", "2"}));
}

TEST(NullAction, HasItsNameAsText) {
    EXPECT_EQ("NullAction", NullAction::getInstance()->toString());
}

TEST(NullAction, LeavesOneRecordOfComponentAndActionAndDoesNothing) {
    Component::setMaxCount(10);
    Component* const target = Component::getComponent(3);
    std::array<char, 2> out{'a', 'b'};
    const TraceCapture capture;

    NullAction::getInstance()->execute(target, 42, "in", 2, out.data(), 2);

    ASSERT_EQ(1U, capture.all().size());
    const TraceRecord record = capture.all().front();
    EXPECT_EQ(run, record.id);
    EXPECT_EQ(infoFlags, record.flags);
    const std::vector<std::uint32_t> words{static_cast<std::uint32_t>(getpid()),
                                           static_cast<std::uint32_t>(gettid()), 3, 42};
    EXPECT_EQ(words, record.words());
    EXPECT_EQ((std::array<char, 2>{'a', 'b'}), out);
    Component::deleteAll();
}

} // namespace
