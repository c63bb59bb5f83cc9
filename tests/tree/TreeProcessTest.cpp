#include "SharedTree.h"
#include "TreeTest.h"
#include "support/ChildProcess.h"

#include <qz/tavrel/ComponentAccessor.h>
#include <qz/tavrel/QZException.h>

using namespace tavrel::test;
using namespace qz::tavrel;

namespace {

const std::string dead = "FAULT at ComponentAccessor(LINE): evaluate() unavailable accessor.";
const std::string stale = "FAULT at ComponentAccessor(LINE): evaluate() revision mismatched.";

constexpr int sampleSize = 7;

Component* at(int id) {
    return Component::getComponent(id);
}

/// Two processes on one stored tree: this one, and a child that is forked before anything is made.
class TwoProcesses {
public:
    /// @param work  what the child does, once this process has made the sample tree
    explicit TwoProcesses(const std::function<void()>& work)
        : child([&work](Talk& talk) {
              if (!talk.waitFor('g')) {
                  return 1;
              }
              TreeFixture own(sharedParts());
              work();
              talk.tell('d');
              return talk.waitFor('e') ? 0 : 1;
          }) {
        forgetStoredTree();
        tree = std::make_unique<TreeFixture>(sharedParts());
        root = tree->root();
    }

    /// Lets the child do its work. The next call of this process refreshes.
    void letTheOtherWork() {
        child.talk().tell('g');
        child.talk().waitFor('d');
        root->readUnlock();
    }

    ~TwoProcesses() {
        child.talk().tell('e');
        EXPECT_EQ(0, child.wait());
    }
    TwoProcesses(const TwoProcesses&) = delete;
    TwoProcesses& operator=(const TwoProcesses&) = delete;

private:
    ChildProcess child;
    std::unique_ptr<TreeFixture> tree;

public:
    Component* root = nullptr;
};

/// What another process may do to board 4.
struct Change {
    const char* name;
    std::function<void()> make;
};

const std::vector<Change>& changes() {
    static const std::vector<Change> all{
        {"another number", [] { at(4)->setNo(9); }},
        {"another type", [] { at(4)->setType(fan); }},
        {"the same type anew", [] { at(4)->setType(board); }},
        {"no longer there", [] { at(4)->deleteComponent(); }},
        {"no longer there, nor what was above it", [] { at(0)->setType(fan); }},
    };
    return all;
}

} // namespace

TEST(TreeProcesses, StartOnTheStoredTree) {
    TwoProcesses both([] {
        EXPECT_EQ(sampleSize, Component::getTreeConfig()->getNodeCount());
        EXPECT_EQ((Ids{1, 4}), TreeFixture::children(at(0)));
        EXPECT_EQ(sensor, at(6)->getType());
        EXPECT_EQ(1, at(6)->getNo());
        EXPECT_EQ(at(4), at(6)->getParent());
    });

    both.letTheOtherWork();
}

TEST(TreeProcesses, SeeWhatTheOtherCreates) {
    TwoProcesses both([] {
        at(4)->createComponent(board);
        at(1)->addComponent(at(7));
    });

    both.letTheOtherWork();

    EXPECT_EQ(at(7), at(4)->getComponent(board, 0));
    EXPECT_EQ((Ids{8, 9}), TreeFixture::children(at(7)));
    EXPECT_TRUE(at(1)->contains(at(7)));
    EXPECT_EQ("", faultsOf());
    EXPECT_EQ(10, TreeFixture::add(at(7), fan)->getComponentId());
}

TEST(TreeProcesses, SeeThePropertiesThatTheOtherSets) {
    TwoProcesses both([] {
        EXPECT_EQ(3, at(4)->getProperty(speedKey));
        at(4)->setProperty(speedKey, 5);
    });
    at(4)->setProperty(speedKey, 3);

    both.letTheOtherWork();

    EXPECT_EQ(5, at(4)->getProperty(speedKey));
}

TEST(TreeProcesses, LearnOfAChangeOnceForEachComponent) {
    for (const Change& change : changes()) {
        SCOPED_TRACE(change.name);
        TwoProcesses both(change.make);
        at(4)->setProperty(speedKey, 3);
        at(1)->setProperty(speedKey, 3);

        both.letTheOtherWork();

        const TraceCapture trace;
        EXPECT_EQ(revisionChanged, faultText([] { at(4)->getProperty(speedKey); }));
        EXPECT_EQ("nothing raised", faultText([] { at(4)->getProperty(speedKey); }));
        EXPECT_EQ("nothing raised", faultText([] { at(4)->setProperty(speedKey, 4); }));
        EXPECT_EQ(1U, trace.count(0x2011a));
        EXPECT_EQ("", faultsOf());
    }
}

TEST(TreeProcesses, LearnNothingOfAComponentThatDidNotChange) {
    TwoProcesses both([] { at(4)->deleteComponent(); });
    at(1)->setProperty(speedKey, 3);
    ComponentAccessor accessor(at(1));

    both.letTheOtherWork();

    EXPECT_EQ(3, at(1)->getProperty(speedKey));
    EXPECT_TRUE(accessor.isAvailable());
}

TEST(TreeProcesses, LeaveAStaleAccessorDead) {
    for (const Change& change : changes()) {
        SCOPED_TRACE(change.name);
        TwoProcesses both(change.make);
        ComponentAccessor accessor(at(4));
        EXPECT_EQ(board, accessor.getType());

        both.letTheOtherWork();

        EXPECT_EQ(stale, faultText([&] { accessor.getType(); }));
        EXPECT_EQ(dead, faultText([&] { accessor.getType(); }));
        EXPECT_EQ(at(4), accessor.getComponent());
        EXPECT_FALSE(accessor.isAvailable());
    }
}

TEST(TreeProcesses, FindTheParentOfWhatTheOtherDeleted) {
    TwoProcesses both([] { at(5)->deleteComponent(); });
    ComponentAccessor accessor(at(5));

    both.letTheOtherWork();

    EXPECT_FALSE(accessor.isAvailable());
    ComponentAccessor parent = accessor.getEnableComponent();
    EXPECT_EQ(4, parent.getComponentId());
    EXPECT_TRUE(parent.isAvailable());
    EXPECT_EQ("/Chassis#0/Board#1", parent.getPath());
}

TEST(TreeProcesses, FindTheRootWhenTheOtherDeletedAllBetween) {
    TwoProcesses both([] { at(4)->deleteComponent(); });
    ComponentAccessor accessor(at(5));

    both.letTheOtherWork();

    EXPECT_EQ(0, accessor.getEnableComponent().getComponentId());
}

TEST(TreeProcesses, FindNothingWhenTheOtherMadeTheTreeAnew) {
    TwoProcesses both([] { at(0)->setType(chassis); });
    ComponentAccessor accessor(at(5));

    both.letTheOtherWork();

    EXPECT_FALSE(accessor.getEnableComponent().isAvailable());
}

TEST(TreeProcesses, SeeARecycledIdAsAnotherComponent) {
    TwoProcesses both([] {
        Component::setMaxCount(sampleSize);
        at(5)->deleteComponent();
        at(1)->createComponent(fan);
    });
    ComponentAccessor accessor(at(5));
    Component* const before = at(5);
    const int revision = before->getRevision();

    both.letTheOtherWork();

    EXPECT_EQ(stale, faultText([&] { accessor.getType(); }));
    EXPECT_EQ(before, at(5));
    EXPECT_EQ(fan, at(5)->getType());
    EXPECT_EQ(at(1), at(5)->getParent());
    EXPECT_FALSE(ComponentAccessor(5, revision).isAvailable());
    EXPECT_EQ("/Chassis#0/Board#0/Fan#0", ComponentAccessor(at(5)).getPath());
    EXPECT_EQ(4, accessor.getEnableComponent().getComponentId());
}

TEST(TreeProcesses, GiveTheSameIdToNobodyTwice) {
    TwoProcesses both([] { at(0)->createComponent(fan); });
    both.letTheOtherWork();

    // No refresh of its own is needed: the section loads what is new.
    EXPECT_EQ(8, TreeFixture::add(both.root, fan)->getComponentId());
    EXPECT_EQ(1, at(8)->getNo());
    EXPECT_EQ("", faultsOf());
}

TEST(TreeProcesses, WaitForTheOneThatHoldsTheRoot) {
    ChildProcess other([](Talk& talk) {
        if (!talk.waitFor('g')) {
            return 1;
        }
        TreeFixture own(sharedParts()); // loads the tree
        talk.tell('r');
        talk.waitFor('c');
        talk.tell('t');
        at(4)->createComponent(fan);
        talk.tell('d');
        return 0;
    });
    forgetStoredTree();
    TreeFixture tree(sharedParts());
    Component* const root = tree.root();
    other.talk().tell('g');
    other.talk().waitFor('r');

    root->writeLock();
    other.talk().tell('c');
    other.talk().waitFor('t');
    EXPECT_FALSE(other.talk().hasMark(100));
    at(4)->deleteComponent();
    root->createComponent(board);
    EXPECT_FALSE(other.talk().hasMark(20));
    root->writeUnlock();

    EXPECT_TRUE(other.talk().waitFor('d'));
    EXPECT_EQ(0, other.wait());
    refresh();
    EXPECT_EQ((Ids{1, 7}), TreeFixture::children(root)) << "the other's board is free by then";
}

TEST(TreeProcesses, ShowTheOtherNothingBeforeTheRootIsGivenBack) {
    ChildProcess other([](Talk& talk) {
        if (!talk.waitFor('g')) {
            return 1;
        }
        TreeFixture own(sharedParts());
        const int nodes = own.config->getNodeCount();
        talk.tell('d');
        return nodes == sampleSize + 2 ? 0 : 2;
    });
    forgetStoredTree();
    TreeFixture tree(sharedParts());
    Component* const root = tree.root();

    root->writeLock();
    other.talk().tell('g');
    root->createComponent(fan);
    EXPECT_FALSE(other.talk().hasMark(100));
    root->createComponent(fan);
    root->writeUnlock();

    EXPECT_TRUE(other.talk().waitFor('d'));
    EXPECT_EQ(0, other.wait());
}
