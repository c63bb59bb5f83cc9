#include "build/BuilderTest.h"
#include "tree/TreeTest.h"

#include <qz/tavrel/Action.h>
#include <qz/tavrel/Component.h>
#include <qz/tavrel/ComponentClass.h>
#include <qz/tavrel/PrintMessage.h>

#include <gtest/gtest.h>

#include <iostream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <vector>

using qz::tavrel::Component;
using qz::tavrel::ComponentClass;
using qz::tavrel::NameResolver;
using qz::tavrel::PrintMessage;
using namespace tavrel::test;

namespace {

/// Takes what is written on the standard output as long as it lives.
class Output : private std::streambuf {
public:
    Output() : before(std::cout.rdbuf(this)) {}
    ~Output() override { std::cout.rdbuf(before); }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    /// What had been written at each flush since the one before.
    Texts flushed;

    /// What has been written since the last flush.
    std::string pending;

    int writes = 0;

private:
    int_type overflow(int_type character) override {
        ++writes;
        pending += traits_type::to_char_type(character);
        return character;
    }

    std::streamsize xsputn(const char* text, std::streamsize size) override {
        ++writes;
        pending.append(text, static_cast<std::size_t>(size));
        return size;
    }

    int sync() override {
        flushed.push_back(pending);
        pending.clear();
        return 0;
    }

    std::streambuf* before;
};

/// What an action without a target prints and flushes.
Texts printed(PrintMessage& action) {
    const Output output;
    action.execute(nullptr, 7, nullptr, 0, nullptr, 0);
    EXPECT_EQ("", output.pending) << "was not flushed";
    return output.flushed;
}

TEST(PrintMessage, PrintsItsStringsEachWithACommaBehindIt) {
    PrintMessage action;
    action.setAttribute(nullptr, {"a", "b"});

    EXPECT_EQ(Texts{"a,b,\n"}, printed(action));
}

TEST(PrintMessage, PrintsTheStringThatItWasMadeWith) {
    PrintMessage action("power is on");

    EXPECT_EQ(Texts{"power is on,\n"}, printed(action));
}

TEST(PrintMessage, PrintsAnEmptyStringAsAComma) {
    PrintMessage one("");
    PrintMessage two;
    two.setAttribute(nullptr, {"", ""});

    EXPECT_EQ(Texts{",\n"}, printed(one));
    EXPECT_EQ(Texts{",,\n"}, printed(two));
}

TEST(PrintMessage, TakesAllAttributes) {
    PrintMessage action;

    EXPECT_EQ(0, action.setAttribute(nullptr, {}));
    EXPECT_EQ(1, action.setAttribute(nullptr, {"a"}));
    EXPECT_EQ(3, action.setAttribute(nullptr, {"a", "", "c"}));
}

TEST(PrintMessage, ReplacesItsStringsByTheAttributes) {
    PrintMessage action("first");
    action.setAttribute(nullptr, {"second", "third"});

    EXPECT_EQ(1, action.setAttribute(nullptr, {"fourth"}));

    EXPECT_EQ(Texts{"fourth,\n"}, printed(action));
}

TEST(PrintMessage, PrintsALineInEachRun) {
    PrintMessage action("again");

    EXPECT_EQ(Texts{"again,\n"}, printed(action));
    EXPECT_EQ(Texts{"again,\n"}, printed(action));
}

TEST(PrintMessage, WritesItsLineInOnePiece) {
    PrintMessage action;
    action.setAttribute(nullptr, {"a", "b"});
    const Output output;

    action.execute(nullptr, 7, nullptr, 0, nullptr, 0);

    EXPECT_EQ(1, output.writes);
}

TEST(PrintMessage, ReachesTheStandardOutput) {
    PrintMessage action("here");
    testing::internal::CaptureStdout();

    action.execute(nullptr, 7, nullptr, 0, nullptr, 0);

    EXPECT_EQ("here,\n", testing::internal::GetCapturedStdout());
}

TEST(PrintMessage, HasItsNameAsText) {
    EXPECT_EQ("PrintMessage", PrintMessage().toString());
    EXPECT_EQ("PrintMessage", PrintMessage("text").toString());
}

/// Without strings it tells where it runs.
class PrintMessageTest : public TreeTest {
protected:
    static constexpr int actionId = 7;

    PrintMessageTest() {
        tree.resolver->setActionId("Report", actionId);
        for (const int type : {chassis, sensor}) {
            ComponentClass::get(type)->addAction(actionId, new PrintMessage);
        }
    }
};

TEST_F(PrintMessageTest, PrintsPathAndActionOfTheRoot) {
    const Output output;

    root->doAction(actionId);

    EXPECT_EQ(Texts{"[/Chassis#0] Report\n"}, output.flushed);
}

TEST_F(PrintMessageTest, PrintsPathAndActionOfAComponentBelow) {
    const Output output;

    at(6)->doAction(actionId);

    EXPECT_EQ(Texts{"[/Chassis#0/Board#1/Sensor#1] Report\n"}, output.flushed);
}

TEST_F(PrintMessageTest, PrintsTheNameOfTheActionThatItRunsAs) {
    tree.resolver->setActionId("Show", 8);
    PrintMessage action;
    const Output output;

    action.execute(root, 8, nullptr, 0, nullptr, 0);
    action.execute(root, 99, nullptr, 0, nullptr, 0);

    EXPECT_EQ((Texts{"[/Chassis#0] Show\n", "[/Chassis#0] \n"}), output.flushed);
}

TEST_F(PrintMessageTest, PrintsPathAndActionAgainOnceItHasNoStrings) {
    PrintMessage action("text");
    action.setAttribute(tree.resolver, {});
    const Output output;

    action.execute(root, actionId, nullptr, 0, nullptr, 0);

    EXPECT_EQ(Texts{"[/Chassis#0] Report\n"}, output.flushed);
}

TEST_F(PrintMessageTest, PrintsNoNamesWhileThereIsNoResolver) {
    PrintMessage action;
    const Output output;
    Component::setNameResolver(nullptr);

    action.execute(root, actionId, nullptr, 0, nullptr, 0);

    Component::setNameResolver(tree.resolver);
    EXPECT_EQ(Texts{"[/#0] \n"}, output.flushed);
}

TEST_F(PrintMessageTest, PassesOnWhatTheTreeRaisesAndPrintsNothing) {
    const Output output;
    config->before = [](const std::string& operation) {
        if (operation == "getSrc") {
            throw std::runtime_error("no way up");
        }
    };

    EXPECT_THROW(root->doAction(actionId), std::runtime_error);

    config->before = nullptr;
    EXPECT_EQ(Texts{}, output.flushed);
    EXPECT_EQ("", output.pending);
}

using PrintMessageBySpecification = BuilderTest;

TEST_F(PrintMessageBySpecification, RunsAsItsRowSays) {
    specify("Chassis\naction,Reset\n,Stop\n", "tavrel.spec.action = actions\n");
    makeFile(
        actions,
        "Chassis::Reset\naction,PrintMessage\n\n::Stop\naction,PrintMessage,a,b\n,PrintMessage,\"c, d\"\n");
    ASSERT_EQ("nothing raised", start());
    const Output output;

    Component::getRoot()->doAction(1);
    Component::getRoot()->doAction(2);

    EXPECT_EQ((Texts{"[/Chassis#0] Reset\n", "a,b,\n", "c, d,\n"}), output.flushed);
}

} // namespace
