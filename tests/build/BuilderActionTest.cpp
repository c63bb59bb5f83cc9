#include "build/BuilderTest.h"

#include <qz/tavrel/Action.h>
#include <qz/tavrel/ComponentClass.h>
#include <qz/tavrel/Specification.h>

using namespace qz::tavrel;
using namespace tavrel::test;

namespace {

/// What the actions of a test have seen.
struct Log {
    int alive = 0;
    std::vector<Texts> attributes;
    NameResolver* resolver = nullptr;
    Texts executed;
};

/// Counts itself, keeps its attributes, refuses the attribute "bad".
class LoggedAction : public Action {
public:
    explicit LoggedAction(Log& itsLog) : log(itsLog) { ++log.alive; }
    ~LoggedAction() override { --log.alive; }
    LoggedAction(const LoggedAction&) = delete;
    LoggedAction& operator=(const LoggedAction&) = delete;

    int setAttribute(NameResolver* resolver, const std::vector<std::string>& attributes) override {
        log.attributes.push_back(attributes);
        log.resolver = resolver;
        own = attributes;
        if (attributes.back() == "bad") {
            throw std::runtime_error("bad attribute");
        }
        return 0;
    }
    void execute(Component*, int, const void*, unsigned int, void*, unsigned int) override {
        log.executed.push_back(own.empty() ? "" : own.front());
    }

private:
    Log& log;
    Texts own;
};

/// Actions from the action specification.
class BuilderActionTest : public BuilderTest {
protected:
    BuilderActionTest() {
        factory.makers["Logged"] = [this] { return static_cast<Action*>(new LoggedAction(log)); };
    }

    ~BuilderActionTest() override {
        delete names;
        names = nullptr;
        EXPECT_EQ(0, log.alive);
    }

    void specifyActions(const std::string& content) {
        makeFile(actions, content);
        makeFile(properties, "tavrel.spec.action = actions\n");
        builder->loadConfig(properties);
    }

    Log log;
};

TEST_F(BuilderActionTest, GivesNoneForASectionThatIsNotThere) {
    specifyActions("Chassis::Reset\naction,Logged\n");

    EXPECT_EQ(nullptr, builder->getAction("Chassis::Stop"));
    EXPECT_EQ(nullptr, builder->getAction("Board::Reset"));
}

TEST_F(BuilderActionTest, GivesNoneForASectionWithoutActions) {
    specifyActions("Chassis::Reset\nother,Logged\n");

    EXPECT_EQ(nullptr, builder->getAction("Chassis::Reset"));
}

TEST_F(BuilderActionTest, MakesTheActionOfOneRowWithoutAList) {
    specifyActions("Chassis::Reset\naction,Logged\n");

    const std::unique_ptr<Action> made(builder->getAction("Chassis::Reset"));

    EXPECT_NE(nullptr, dynamic_cast<LoggedAction*>(made.get()));
    EXPECT_TRUE(log.attributes.empty()); // there are none to set
    EXPECT_EQ(0, factory.timesAsked("ActionList"));
}

TEST_F(BuilderActionTest, GivesAnActionTheCellsBehindItsClass) {
    specifyActions("Chassis::Reset\naction,Logged,a, b ,,c\n");

    const std::unique_ptr<Action> made(builder->getAction("Chassis::Reset"));

    EXPECT_EQ((std::vector<Texts>{{"a", "b", "", "c"}}), log.attributes);
    EXPECT_EQ(names, log.resolver);
    EXPECT_NE(nullptr, names);
}

TEST_F(BuilderActionTest, MakesAListOfSeveralRowsInTheirOrder) {
    specifyActions("Chassis::Reset\naction,Logged,first\n,Logged,second\n,Logged\n");

    const std::unique_ptr<Action> made(builder->getAction("Chassis::Reset"));

    EXPECT_NE(nullptr, dynamic_cast<ActionList*>(made.get()));
    EXPECT_EQ(3, log.alive);
    made->execute(nullptr, 1, nullptr, 0, nullptr, 0);
    EXPECT_EQ((Texts{"first", "second", ""}), log.executed);
    EXPECT_EQ(1, factory.timesAsked("ActionList"));
    EXPECT_EQ("ActionList", factory.asked.back());
}

TEST_F(BuilderActionTest, MakesAnActionAnewForEachQuestionAboutASection) {
    specifyActions("Chassis::Reset\naction,Logged\n");

    const std::unique_ptr<Action> first(builder->getAction("Chassis::Reset"));
    const std::unique_ptr<Action> second(builder->getAction("Chassis::Reset"));

    EXPECT_NE(first, second);
}

TEST_F(BuilderActionTest, LeavesOutARowWhoseActionTheFactoryDoesNotGive) {
    factory.makers["None"] = []() -> void* { return nullptr; };
    specifyActions("Chassis::Reset\naction,None,a\n,Logged,b\n");

    const std::unique_ptr<Action> made(builder->getAction("Chassis::Reset"));

    EXPECT_NE(nullptr, dynamic_cast<LoggedAction*>(made.get()));
}

TEST_F(BuilderActionTest, GivesUpASectionWithAnUnknownClass) {
    specifyActions("Chassis::Reset\naction,Logged,a\n,Unknown,b\n,Logged,c\n");
    const TraceCapture capture;

    EXPECT_EQ("FAULT at Factory(LINE): createInstance() invalid args",
              faultText([this] { builder->getAction("Chassis::Reset"); }));

    EXPECT_EQ(0, log.alive);
    EXPECT_EQ((std::vector<Texts>{{"a"}}), log.attributes); // the third row is not reached
    EXPECT_EQ((std::vector<unsigned long>{0x1010a, 0x10112}), builderTraces(capture));
    EXPECT_EQ(errorFlags, capture.of(0x1010a).front().flags);
    EXPECT_EQ("Unknown", capture.of(0x1010a).front().text());
    EXPECT_EQ(errorFlags, capture.of(0x10112).front().flags);
    EXPECT_EQ("Chassis::Reset", capture.of(0x10112).front().text());
}

TEST_F(BuilderActionTest, GivesUpASectionWhoseAttributesAreRefused) {
    specifyActions("Chassis::Reset\naction,Logged,a\n,Logged,b,c,bad\n,Logged,d\n");
    const TraceCapture capture;

    EXPECT_THROW(builder->getAction("Chassis::Reset"), std::runtime_error);

    EXPECT_EQ(0, log.alive);
    EXPECT_EQ((std::vector<unsigned long>{0x10110, 0x10111, 0x10111, 0x10111, 0x10112}),
              builderTraces(capture));
    EXPECT_EQ("Logged", capture.of(0x10110).front().text());
    EXPECT_EQ(errorFlags, capture.of(0x10110).front().flags);
    Texts attributes;
    for (const TraceRecord& record : capture.of(0x10111)) {
        EXPECT_EQ(errorFlags, record.flags);
        attributes.push_back(record.text());
    }
    EXPECT_EQ((Texts{"b", "c", "bad"}), attributes);
    EXPECT_EQ("Chassis::Reset", capture.of(0x10112).front().text());
}

TEST_F(BuilderActionTest, DeletesTheActionsOfAListThatCannotBeMade) {
    factory.makers["ActionList"] = []() -> void* { throw std::runtime_error("no list"); };
    specifyActions("Chassis::Reset\naction,Logged\n,Logged\n");

    EXPECT_THROW(builder->getAction("Chassis::Reset"), std::runtime_error);

    EXPECT_EQ(0, log.alive);
}

// --- by class and name ---

TEST_F(BuilderActionTest, MakesTheActionOfAClassOnce) {
    specifyActions("Chassis::Reset\naction,Logged\n\n::Reset\naction,Logged,generic\n");

    const std::unique_ptr<Action> made(builder->getAction("Chassis", "Reset"));

    EXPECT_EQ(made.get(), builder->getAction("Chassis", "Reset"));
    EXPECT_EQ(1, log.alive);
    EXPECT_TRUE(log.attributes.empty()); // not the generic one
}

TEST_F(BuilderActionTest, GivesEachClassItsOwnGenericAction) {
    specifyActions("::Reset\naction,Logged\n");

    const std::unique_ptr<Action> first(builder->getAction("Chassis", "Reset"));
    const std::unique_ptr<Action> second(builder->getAction("Board", "Reset"));
    const std::unique_ptr<Action> third(builder->getAction("Board", "Reset")); // not kept either

    EXPECT_NE(nullptr, first);
    EXPECT_NE(first, second);
    EXPECT_NE(second, third);
    EXPECT_EQ(3, log.alive);
}

TEST_F(BuilderActionTest, GivesNoneWithoutAnOwnAndAGenericSection) {
    specifyActions("Fan::Reset\naction,Logged\n");

    EXPECT_EQ(nullptr, builder->getAction("Chassis", "Reset"));
    EXPECT_EQ(nullptr, builder->getAction("Chassis", "Reset"));
}

TEST_F(BuilderActionTest, KeepsTheGenericActionThatIsAskedForWithoutAClass) {
    specifyActions("::Reset\naction,Logged\n");

    const std::unique_ptr<Action> made(builder->getAction("", "Reset"));

    EXPECT_NE(nullptr, made);
    EXPECT_EQ(made.get(), builder->getAction("", "Reset"));
    EXPECT_EQ(made.get(), builder->getAction("Chassis", "Reset"));
    EXPECT_EQ(1, log.alive);
}

TEST_F(BuilderActionTest, PassesOnWhatASectionRaisesAndTriesItAgain) {
    specifyActions("Chassis::Reset\naction,Unknown\n\n::Reset\naction,Logged\n");
    const TraceCapture capture;

    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ("FAULT at Factory(LINE): createInstance() invalid args",
                  faultText([this] { builder->getAction("Chassis", "Reset"); }));
    }

    EXPECT_EQ(2U, capture.count(0x10112));
}

/// A specification that counts the questions about each section.
class AskedSpecification : public Specification {
public:
    explicit AskedSpecification(std::map<std::string, int>& itsQuestions) : questions(itsQuestions) {}

    Entries* getEntries(const std::string& section, const std::string& subsection) override {
        ++questions[section];
        return Specification::getEntries(section, subsection);
    }

private:
    std::map<std::string, int>& questions;
};

TEST_F(BuilderActionTest, SearchesAGenericSectionThatIsNotThereOnce) {
    std::map<std::string, int> questions;
    factory.makers["Specification"] = [&] {
        return static_cast<Specification*>(new AskedSpecification(questions));
    };
    specifyActions("Fan::Reset\naction,Logged\n");

    EXPECT_EQ(nullptr, builder->getAction("Chassis", "Reset"));
    EXPECT_EQ(nullptr, builder->getAction("Board", "Reset"));
    EXPECT_EQ(nullptr, builder->getAction("Board", "Reset"));

    const std::map<std::string, int> expected{{"Chassis::Reset", 1}, {"Board::Reset", 2}, {"::Reset", 1}};
    EXPECT_EQ(expected, questions);
}

TEST_F(BuilderActionTest, SearchesAMissingGenericSectionNoMoreOnceItWasAskedForWithoutAClass) {
    std::map<std::string, int> questions;
    factory.makers["Specification"] = [&] {
        return static_cast<Specification*>(new AskedSpecification(questions));
    };
    specifyActions("Fan::Reset\naction,Logged\n");

    EXPECT_EQ(nullptr, builder->getAction("", "Reset"));
    EXPECT_EQ(nullptr, builder->getAction("", "Reset"));
    EXPECT_EQ(nullptr, builder->getAction("Board", "Reset"));

    EXPECT_EQ((std::map<std::string, int>{{"::Reset", 2}, {"Board::Reset", 1}}), questions);
}

TEST_F(BuilderActionTest, SearchesAGenericSectionAgainForEachClassThatFallsBackToIt) {
    std::map<std::string, int> questions;
    factory.makers["Specification"] = [&] {
        return static_cast<Specification*>(new AskedSpecification(questions));
    };
    specifyActions("::Reset\naction,Logged\n");

    const std::unique_ptr<Action> first(builder->getAction("Fan", "Reset"));
    const std::unique_ptr<Action> second(builder->getAction("Fan", "Reset"));

    EXPECT_NE(first, second);
    EXPECT_EQ((std::map<std::string, int>{{"Fan::Reset", 2}, {"::Reset", 2}}), questions);
}

TEST_F(BuilderActionTest, SearchesASectionOfAClassOnceWhenItIsThere) {
    std::map<std::string, int> questions;
    factory.makers["Specification"] = [&] {
        return static_cast<Specification*>(new AskedSpecification(questions));
    };
    specifyActions("Fan::Reset\naction,Logged\n");

    const std::unique_ptr<Action> made(builder->getAction("Fan", "Reset"));
    builder->getAction("Fan", "Reset");

    EXPECT_EQ((std::map<std::string, int>{{"Fan::Reset", 1}}), questions);
}

TEST_F(BuilderActionTest, BindsOwnAndGenericActionsToTheClasses) {
    specify("Chassis\naction,Reset\n,Stop\n\nBoard\naction,Reset\n\nFan\naction,Reset\n",
            "tavrel.spec.action = actions\n");
    makeFile(actions, "Chassis::Reset\naction,Logged,own\n\n::Reset\naction,Logged,generic\n");

    builder->load(properties);

    Action* const own = ComponentClass::get(2)->getAction(1);
    Action* const ofBoard = ComponentClass::get(3)->getAction(1);
    Action* const ofFan = ComponentClass::get(4)->getAction(1);
    EXPECT_NE(ofBoard, ofFan);
    for (Action* const each : {own, ofBoard, ofFan}) {
        each->execute(nullptr, 1, nullptr, 0, nullptr, 0);
    }
    EXPECT_EQ((Texts{"own", "generic", "generic"}), log.executed);
    EXPECT_EQ(NullAction::getInstance(), ComponentClass::get(2)->getAction(2)); // Stop has no section
    Component::deleteAll();
    names = nullptr;
}

TEST_F(BuilderActionTest, LeavesTheActionsToTheClasses) {
    specify("Chassis\naction,Reset\n", "tavrel.spec.action = actions\n");
    makeFile(actions, "::Reset\naction,Logged\n,Logged\n");
    builder->load(properties);

    builder.reset();

    EXPECT_EQ(2, log.alive);
    Component::getComponent(0);
    ComponentClass::get(2)->getAction(1)->execute(nullptr, 1, nullptr, 0, nullptr, 0);
    EXPECT_EQ((Texts{"", ""}), log.executed);
    Component::deleteAll();
    EXPECT_EQ(0, log.alive);
    names = nullptr;
}

} // namespace
