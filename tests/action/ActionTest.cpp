#include <qz/tavrel/Action.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

using qz::tavrel::Action;
using qz::tavrel::Component;

namespace {

class Idle : public Action {
public:
    void execute(Component*, int, const void*, unsigned int, void*, unsigned int) override {}
};

TEST(Action, TakesNoAttributeByDefault) {
    Idle action;
    const std::vector<std::string> attributes{"1", "2"};

    EXPECT_EQ(0, action.setAttribute(nullptr, attributes));
}

TEST(Action, HasNoTextByDefault) {
    Idle action;

    EXPECT_EQ("", action.toString());
}

} // namespace
