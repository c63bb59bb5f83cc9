#include "TreeTest.h"
#include "action/RecordingAction.h"

#include <qz/tavrel/PropertyLocator.h>
#include <qz/tavrel/ResourceManager.h>

using namespace tavrel::test;
using namespace qz::tavrel;

namespace {

class ComponentBuild : public TreeTest {
protected:
    /// Configures a free node inside a write section.
    Component* configure(int type, int number) {
        config->writeLock();
        config->lock();
        Component* const made = Component::getComponent();
        config->add(0, made->getComponentId(), owned);
        made->configure(type, number);
        config->unlock();
        config->writeUnlock();
        return made;
    }
};

/// Writes its end down.
template <typename Base>
class Mortal : public Base {
public:
    Mortal(std::vector<std::string>& ends, std::string ownName) : list(ends), name(std::move(ownName)) {}
    ~Mortal() override { list.push_back(name); }

private:
    std::vector<std::string>& list;
    std::string name;
};

} // namespace

// --- configuring ---

TEST_F(ComponentBuild, HandsIdsOutDepthFirst) {
    EXPECT_EQ((Ids{1, 4}), TreeFixture::children(at(0)));
    EXPECT_EQ((Ids{2, 3}), TreeFixture::children(at(1)));
    EXPECT_EQ((Ids{5, 6}), TreeFixture::children(at(4)));
}

TEST_F(ComponentBuild, NumbersTheChildrenOfATypeFromZero) {
    for (const auto& [id, number] : std::vector<std::pair<int, int>>{{1, 0}, {4, 1}, {5, 0}, {6, 1}}) {
        EXPECT_EQ(number, at(id)->getNo()) << id;
    }
}

TEST_F(ComponentBuild, MakesTheChildrenInAscendingOrderOfType) {
    ComponentClass& whole = tree.define(undefined, "Whole");
    whole.addComponentCount(sensor, 1);
    whole.addComponentCount(fan, 2);

    Component* const made = configure(undefined, 3);

    EXPECT_EQ(3, made->getNo());
    std::vector<int> types;
    for (const int id : TreeFixture::children(made)) {
        types.push_back(at(id)->getType());
    }
    EXPECT_EQ((std::vector<int>{fan, fan, sensor}), types);
}

TEST_F(ComponentBuild, MakesNoChildrenForACountBelowOne) {
    ComponentClass& whole = tree.define(undefined, "Whole");
    whole.addComponentCount(sensor, 0);
    whole.addComponentCount(fan, -3);

    EXPECT_EQ((Ids{}), TreeFixture::children(configure(undefined, 0)));
}

TEST_F(ComponentBuild, StampsANodeOfNoClassAndBuildsNothing) {
    const TraceCapture trace;

    Component* const made = configure(undefined, 4);

    EXPECT_EQ(undefined, made->getType());
    EXPECT_EQ(4, made->getNo());
    EXPECT_EQ((Ids{}), TreeFixture::children(made));
    ASSERT_EQ(1U, trace.count(0x2011b));
    EXPECT_EQ(errorFlags, trace.of(0x2011b)[0].flags);
    EXPECT_EQ((std::vector<int>{sampleSize, undefined}), trace.of(0x2011b)[0].arguments());
}

TEST_F(ComponentBuild, LinksEachChildBeforeItIsStamped) {
    config->before = [&](const std::string& operation) {
        if (operation == "add") {
            EXPECT_EQ(0, config->getNodeType(config->getNodeCount()));
        }
    };

    Component* const made = configure(board, 5);

    config->before = nullptr;
    TreePath path;
    ASSERT_TRUE(config->getTreePath(config->getNodeRevision(9), 9, path));
    EXPECT_EQ("/Chassis#0/Board#5/Sensor#1", path.toString());
    EXPECT_EQ(7, made->getComponentId());
}

TEST_F(ComponentBuild, TakesNoSectionForConfiguring) {
    Component* const free = Component::getComponent();

    EXPECT_EQ(0, taken([&] { free->configure(fan, 0); }));
}

TEST_F(ComponentBuild, ChangesTheRevisionsOfTheWholeSubtreeAtOnce) {
    const int before = revisionOf(0);

    configure(board, 0);

    for (const int id : {7, 8, 9}) {
        EXPECT_EQ(before + 1, revisionOf(id)) << id;
    }
}

// --- the end ---

TEST(ComponentDeleteAll, DestroysEverythingInOrder) {
    std::vector<std::string> ends;
    ActionLog log;
    {
        ResourceManager* const resources = ResourceManager::getInstance();
        resources->addResource("main", new Mortal<MemoryDatabase>(ends, "store"));
        Component::setNameResolver(new Mortal<NameResolver>(ends, "resolver"));
        Component::setTreeConfig(new Mortal<TreeConfig>(ends, "tree"));
        Component::setLockProvider(new Mortal<RecordingProvider>(ends, "provider"));
        auto* const made = new ComponentClass(2);
        made->setPropertyLocator(new Mortal<PropertyLocator>(ends, "properties"));
        made->addAction(1, new RecordingAction(log, "action"));
        ComponentClass::add(made);
        Component::setMaxCount(10);
        Component::BASE_COMPO_NUMBER = 5;
        Component::getComponent(9);
    }

    Component::deleteAll();

    EXPECT_EQ((std::vector<std::string>{"resolver", "tree", "provider", "properties", "store"}), ends);
    EXPECT_EQ((std::vector<std::string>{"action"}), log.deleted);
    EXPECT_EQ(nullptr, Component::getNameResolver());
    EXPECT_EQ(nullptr, Component::getTreeConfig());
    EXPECT_EQ(nullptr, Component::getLockProvider());
    EXPECT_EQ(nullptr, ComponentClass::get());
    EXPECT_EQ(0, Component::BASE_COMPO_NUMBER);
    EXPECT_EQ("FAULT at Component(LINE): getComponent() invalid id in getComponent.",
              faultText([] { Component::getComponent(1); }));
    EXPECT_EQ(0, ResourceManager::getInstance()->addResource("other", new MemoryDatabase));
    Component::deleteAll();
}

TEST(ComponentDeleteAll, LeavesNothingOfTheOldComponents) {
    int revision = 0;
    {
        TreeFixture first;
        Component* const old = first.root();
        revision = old->getRevision();
        EXPECT_LE(0, revision);
    }

    TreeFixture second;

    EXPECT_EQ(-1, Component::getComponent(0)->getCurrentRevision());
    EXPECT_EQ(chassis, second.root()->getType());
    second.root()->createComponent(fan);
}

TEST(ComponentDeleteAll, LeavesTheRefreshOfItsThreadAsItWas) {
    const StoppedClock clock;
    {
        TreeFixture first;
        first.root()->readUnlock();
        Component::getRoot(); // refreshes
    }
    auto* const lock = new RecordingLock;
    TreeParts parts;
    parts.lock = lock;
    const TreeFixture second(parts);
    const int taken = lock->taken;

    Component::getComponent(0)->getParent();

    EXPECT_EQ(taken, lock->taken) << "within the time of the look at the tree before";
}

TEST(ComponentDeleteAll, DoesNothingTwice) {
    Component::deleteAll();
    Component::deleteAll();

    EXPECT_EQ(0, Component::getComponent(0)->getComponentId());
    Component::deleteAll();
}

TEST_F(ComponentBuild, SavesWhatIsStillOpenWhenAllIsDeleted) {
    ResourceManager::getInstance()->addRedirection("/Chassis#0", 0, 0); // looked for at each save
    root->writeLock();
    root->createComponent(fan);
    int saved = 0;
    store->beforeSet = [&] { ++saved; };
    const TraceCapture trace;

    Component::deleteAll();

    EXPECT_EQ(3, saved) << "nodes, owned links, the tree's own value";
    EXPECT_EQ(1U, trace.count(0x20381));
}
