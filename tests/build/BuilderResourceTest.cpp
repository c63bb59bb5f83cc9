#include "build/BuilderTest.h"

#include <qz/tavrel/ComponentClass.h>
#include <qz/tavrel/PropertyLocator.h>
#include <qz/tavrel/ResourceManager.h>

using namespace qz::tavrel;
using namespace tavrel::test;

namespace {

/// The stores: made by being named, redirected by path.
class BuilderResourceTest : public BuilderTest {
protected:
    static ResourceManager& manager() { return *ResourceManager::getInstance(); }

    Resource* redirected(const std::string& path, const std::string& source) {
        return manager().getResource(path, builder->getResourceId(source));
    }

    void redirect(const std::string& content) {
        makeFile(redirections, content);
        makeFile(properties, "tavrel.spec.res = redirections\n");
        builder->loadConfig(properties);
        builder->configResource();
    }
};

TEST_F(BuilderResourceTest, MakesAResourceOfEachTypeAndNameOnce) {
    factory.makers["OtherDB"] = factory.makers["VolatileDB"];

    const std::unique_ptr<Resource> first(builder->getResource("VolatileDB", "first"));
    const std::unique_ptr<Resource> second(builder->getResource("VolatileDB", "second"));
    const std::unique_ptr<Resource> other(builder->getResource("OtherDB", "first"));

    EXPECT_EQ(first.get(), builder->getResource("VolatileDB", "first"));
    EXPECT_EQ(second.get(), builder->getResource("VolatileDB", "second"));
    EXPECT_EQ(other.get(), builder->getResource("OtherDB", "first"));
    EXPECT_EQ((Texts{"VolatileDB", "VolatileDB", "OtherDB"}), factory.asked);
    EXPECT_EQ("first", stores[0]->name);
    EXPECT_EQ("second", stores[1]->name);
    EXPECT_EQ("first", stores[2]->name);
}

TEST_F(BuilderResourceTest, DoesNotRegisterWhatItMakesByTypeAndName) {
    const std::unique_ptr<Resource> made(builder->getResource("VolatileDB", "first"));

    EXPECT_EQ(-1, manager().getResourceId("first"));
}

TEST_F(BuilderResourceTest, GivesUpWhenTheFactoryGivesNone) {
    factory.makers["NoDB"] = []() -> void* { return nullptr; };
    const TraceCapture capture;

    EXPECT_EQ("FAULT at Builder(LINE): getResource() build aborted.",
              faultText([this] { builder->getResource("NoDB", "first"); }));

    ASSERT_EQ(1U, capture.count(0x1010d));
    EXPECT_EQ(errorFlags, capture.of(0x1010d).front().flags);
    EXPECT_EQ("NoDB", capture.of(0x1010d).front().text());
    EXPECT_EQ("FAULT at Builder(LINE): getResource() build aborted.",
              faultText([this] { builder->getResource("NoDB", "first"); })); // not kept
    EXPECT_EQ(2, factory.timesAsked("NoDB"));
}

TEST_F(BuilderResourceTest, PassesOnThatTheFactoryDoesNotKnowTheType) {
    const TraceCapture capture;

    EXPECT_EQ("FAULT at Factory(LINE): createInstance() invalid args",
              faultText([this] { builder->getResource("NoDB", "first"); }));

    EXPECT_EQ(0U, capture.count(0x1010d));
}

/// A store that does not initialize, and counts how many of its kind there are.
class BrokenDatabase : public MemoryDatabase {
public:
    explicit BrokenDatabase(int& itsAlive) : alive(itsAlive) { ++alive; }
    ~BrokenDatabase() override { --alive; }
    BrokenDatabase(const BrokenDatabase&) = delete;
    BrokenDatabase& operator=(const BrokenDatabase&) = delete;

    void initialize(const std::string&) override { throw std::runtime_error("no disk"); }

private:
    int& alive;
};

TEST_F(BuilderResourceTest, DeletesAResourceThatDoesNotInitialize) {
    int alive = 0;
    factory.makers["BrokenDB"] = [&] { return static_cast<Resource*>(new BrokenDatabase(alive)); };
    const TraceCapture capture;

    EXPECT_THROW(builder->getResource("BrokenDB", "first"), std::runtime_error);

    EXPECT_EQ(0, alive);
    ASSERT_EQ(1U, capture.count(0x1010e));
    EXPECT_EQ(errorFlags, capture.of(0x1010e).front().flags);
    EXPECT_EQ("first", capture.of(0x1010e).front().text());
    EXPECT_THROW(builder->getResource("BrokenDB", "first"), std::runtime_error); // not kept
    EXPECT_EQ(2, factory.timesAsked("BrokenDB"));
}

TEST_F(BuilderResourceTest, RegistersAResourceWhenItsIdIsAskedFor) {
    EXPECT_EQ(0, builder->getResourceId("first"));
    EXPECT_EQ(1, builder->getResourceId("second"));
    EXPECT_EQ(0, builder->getResourceId("first"));

    EXPECT_EQ(store("first"), manager().getResource(0));
    EXPECT_EQ("second", manager().getResourceName(1));
    EXPECT_EQ((Texts{"VolatileDB", "VolatileDB"}), factory.asked);
}

TEST_F(BuilderResourceTest, AsksTheManagerBeforeItMakesAResource) {
    auto* const known = new MemoryDatabase;
    manager().addResource("first", known);

    EXPECT_EQ(0, builder->getResourceId("first"));

    EXPECT_TRUE(factory.asked.empty());
}

TEST_F(BuilderResourceTest, RegistersWhatItHasMadeAlready) {
    Resource* const made = builder->getResource("VolatileDB", "first");

    EXPECT_EQ(0, builder->getResourceId("first"));

    EXPECT_EQ(made, manager().getResource(0));
    EXPECT_EQ(1, factory.timesAsked("VolatileDB"));
}

TEST_F(BuilderResourceTest, MakesResourcesOfTheConfiguredType) {
    makeFile(properties, "tavrel.res.type = OtherDB\ntavrel.res.name = main\n");
    builder->loadConfig(properties);
    factory.makers["OtherDB"] = factory.makers["VolatileDB"];

    EXPECT_EQ(0, builder->getResourceId());
    EXPECT_EQ(store("main"), builder->getResource());

    EXPECT_EQ((Texts{"OtherDB"}), factory.asked);
}

TEST_F(BuilderResourceTest, HasADefaultResource) {
    EXPECT_EQ(0, builder->getResourceId());

    EXPECT_EQ(store(defaultStore), builder->getResource());
    EXPECT_EQ(defaultStore, manager().getResourceName(0));
    EXPECT_EQ(1U, stores.size());
}

// --- redirections ---

TEST_F(BuilderResourceTest, ReadsNoRedirectionsFromAnUnsetPath) {
    const TraceCapture capture;

    builder->configResource();

    ASSERT_EQ(1U, capture.count(0x1010f));
    EXPECT_EQ(debugFlags, capture.of(0x1010f).front().flags);
    EXPECT_EQ((std::vector<int>{0, 0}), capture.of(0x1010f).front().arguments());
    EXPECT_TRUE(factory.asked.empty());
}

TEST_F(BuilderResourceTest, RedirectsAStoreBelowAPath) {
    const TraceCapture capture;

    redirect("/Chassis#0/Board#1.main = board\n");

    EXPECT_EQ(0U, capture.count(0x1010f));
    EXPECT_EQ(store("board"), redirected("/Chassis#0/Board#1", "main"));
    EXPECT_EQ(store("board"), redirected("/Chassis#0/Board#1/Fan#0", "main"));
    EXPECT_EQ(store("main"), redirected("/Chassis#0/Board#0", "main"));
}

TEST_F(BuilderResourceTest, SplitsARedirectionAtItsLastDot) {
    redirect("/Rack.2#0/Board.a#1.main = board\n");

    EXPECT_EQ(store("board"), redirected("/Rack.2#0/Board.a#1", "main"));
    EXPECT_EQ(store("main"), redirected("/Rack", "main"));
    EXPECT_EQ(2U, stores.size());
}

TEST_F(BuilderResourceTest, TakesATargetWithDots) {
    redirect("/Chassis#0.main = board.db\n");

    EXPECT_EQ(store("board.db"), redirected("/Chassis#0", "main"));
}

TEST_F(BuilderResourceTest, IgnoresARedirectionWithoutADot) {
    redirect("main = board\n/Chassis#0 = board\n");

    EXPECT_TRUE(stores.empty());
}

TEST_F(BuilderResourceTest, RedirectsTheWholeTreeBelowAnEmptyPath) {
    redirect(".main = board\n");

    EXPECT_EQ(store("board"), redirected("/Chassis#0", "main"));
}

TEST_F(BuilderResourceTest, MakesTheSourceThenTheTargetInTheOrderOfTheFile) {
    redirect("/Z#0.first = second\n/A#0.third = first\n");

    Texts made;
    for (const DiskDatabase* const each : stores) {
        made.push_back(each->name);
    }
    EXPECT_EQ((Texts{"first", "second", "third"}), made);
}

TEST_F(BuilderResourceTest, RedirectsToNoStoreForAnEmptyValue) {
    const TraceCapture capture;

    redirect("/Chassis#0.main =\n");

    const std::unique_ptr<Resource> unnamed(store("")); // made, but known to nobody
    EXPECT_NE(nullptr, unnamed);
    EXPECT_EQ(1U, capture.count(0x30009));
    EXPECT_EQ(-1, manager().getResourceId(""));
    EXPECT_EQ(nullptr, redirected("/Chassis#0", "main"));
    EXPECT_EQ(store("main"), redirected("/Board#0", "main"));
}

TEST_F(BuilderResourceTest, BindsAPropertyOfAnUnnamedResourceToNoStore) {
    specify("Chassis\nproperty,,Speed,4\n,main,Label,4\n");

    EXPECT_EQ("nothing raised", faultText([this] { builder->load(properties); }));

    const std::unique_ptr<Resource> unnamed(store(""));
    PropertyLocator& locator = *ComponentClass::get(2)->getPropertyLocator();
    EXPECT_NE(nullptr, unnamed);
    EXPECT_EQ(-1, locator.getAccessor(300).getResourceId());
    EXPECT_EQ(manager().getResourceId("main"), locator.getAccessor(301).getResourceId());
}

TEST_F(BuilderResourceTest, PassesOnThatARedirectionsStoreCannotBeMade) {
    factory.makers.erase("VolatileDB");

    EXPECT_EQ("FAULT at Factory(LINE): createInstance() invalid args",
              faultText([this] { redirect("/Chassis#0.main = board\n"); }));
}

TEST_F(BuilderResourceTest, KeepsPropertiesOfRedirectedComponentsInTheTarget) {
    specify("Chassis\ncomponent,Board,2\n\nBoard\nproperty,main,Speed,4\n,main,Bound,4\n",
            "tavrel.spec.res = redirections\n");
    makeFile(redirections, "/Chassis#0/Board#1.main = board\n");
    ASSERT_EQ("nothing raised", start());
    std::vector<Component*> boards;
    Component::getRoot()->getComponent(3, boards);
    ASSERT_EQ(2U, boards.size());

    for (Component* const board : boards) {
        board->setProperty(300, 7);
        board->setProperty(10, 9);
    }

    // Component 1 keeps its values under key 4, component 2 under key 5; a key below 256 stays where it is.
    const auto hasValue = [this](const char* name, const char* key) {
        return store(name)->values.count(key) != 0;
    };
    EXPECT_TRUE(hasValue("main", "tavrel4.300"));
    EXPECT_FALSE(hasValue("main", "tavrel5.300"));
    EXPECT_TRUE(hasValue("board", "tavrel5.300"));
    EXPECT_TRUE(hasValue("main", "tavrel4.10"));
    EXPECT_TRUE(hasValue("main", "tavrel5.10"));
    EXPECT_EQ(7, boards[1]->getProperty(300));
}

} // namespace
