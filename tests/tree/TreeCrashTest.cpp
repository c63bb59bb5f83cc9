#include "SharedTree.h"
#include "TreeTest.h"
#include "lock/SharedPage.h"
#include "support/ChildProcess.h"

#include <unistd.h>

#include <csignal>

using namespace tavrel::test;
using namespace qz::tavrel;

namespace {

/// A store whose process is killed at one of its writes.
class DeadlyStore : public BMCRelationalDB {
public:
    std::string before; ///< the process dies before it writes this key
    std::string behind; ///< the process dies when it has written this key

    void setValue(const std::string& key, const std::string& value) override {
        if (key == before) {
            die();
        }
        BMCRelationalDB::setValue(key, value);
        if (key == behind) {
            die();
        }
    }

private:
    static void die() { kill(getpid(), SIGKILL); }
};

Component* at(int id) {
    return Component::getComponent(id);
}

struct Text {
    char bytes[4096];
};

/// A process that starts when it is asked, on what is stored then.
class LateProcess {
public:
    LateProcess()
        : child([this](Talk& talk) {
              if (!talk.waitFor('g')) {
                  return 1;
              }
              const TreeFixture own(sharedParts());
              describe().copy(page->bytes, sizeof page->bytes - 1);
              return faultsOf().empty() ? 0 : 2;
          }) {}

    /// All nodes as it finds them.
    std::string finds() {
        child.talk().tell('g');
        EXPECT_EQ(0, child.wait());
        return page->bytes;
    }

private:
    SharedPage<Text> page;
    ChildProcess child;
};

/// Where in the save of a new child the process dies.
struct Crash {
    const char* name;
    const char* before;
    const char* behind;
    bool isSaved;
};

constexpr Crash crashes[] = {
    {"before the nodes", "tavrel5", "", false},
    {"behind the nodes", "", "tavrel5", false},
    {"behind the owned links", "", "tavrel1", false},
    {"before the tree's own value", "tavrel4", "", false},
    {"behind the tree's own value", "", "tavrel4", true},
};

/// Creates a child of the root when it is asked, and dies while that is saved.
int dieIn(const Crash& crash, Talk& talk) {
    if (!talk.waitFor('g')) {
        return 1;
    }
    auto* const store = new DeadlyStore;
    const TreeFixture own(sharedParts(store));
    store->before = crash.before;
    store->behind = crash.behind;
    at(0)->createComponent(fan);
    return 2; // still alive
}

} // namespace

TEST(TreeCrash, InTheMiddleOfASaveLeavesAllOrNothingToTheOthers) {
    for (const Crash& crash : crashes) {
        SCOPED_TRACE(crash.name);
        forgetStoredTree();
        LateProcess late;
        ChildProcess victim([&crash](Talk& talk) { return dieIn(crash, talk); });
        TreeFixture tree(sharedParts());
        tree.root();
        const std::string before = describe();

        victim.talk().tell('g');
        EXPECT_EQ(-SIGKILL, victim.wait());

        // The lock is free, and the tree is whole.
        if (crash.isSaved) {
            EXPECT_NE(before, describe());
            EXPECT_EQ((Ids{1, 4, 7}), TreeFixture::children(at(0)));
        } else {
            EXPECT_EQ(before, describe());
        }
        EXPECT_EQ("", faultsOf());
        EXPECT_EQ(crash.isSaved ? 8 : 7, TreeFixture::add(at(0), fan)->getComponentId());
        EXPECT_EQ("", faultsOf());
        EXPECT_EQ(describe(), late.finds());
    }
}

TEST(TreeCrash, InTheMiddleOfASaveMisleadsNoProcessThatStartsBehindIt) {
    for (const Crash& crash : crashes) {
        SCOPED_TRACE(crash.name);
        forgetStoredTree();
        SharedPage<Text> page;
        ChildProcess starter([&page](Talk& talk) {
            if (!talk.waitFor('g')) {
                return 1;
            }
            const TreeFixture own(sharedParts());
            at(7)->getRevision(); // what the dead one has saved of it
            talk.tell('r');
            talk.waitFor('c');
            describe().copy(page->bytes, sizeof page->bytes - 1);
            return faultsOf().empty() ? 0 : 2;
        });
        ChildProcess victim([&crash](Talk& talk) { return dieIn(crash, talk); });
        TreeFixture tree(sharedParts());
        tree.root();
        victim.talk().tell('g');
        EXPECT_EQ(-SIGKILL, victim.wait());
        starter.talk().tell('g');
        EXPECT_TRUE(starter.talk().waitFor('r'));

        at(0)->createComponent(sensor);
        const std::string mine = describe();
        starter.talk().tell('c');

        EXPECT_EQ(0, starter.wait());
        EXPECT_EQ(mine, page->bytes);
    }
}

TEST(TreeCrash, WhileTheRootIsHeldGivesTheTreeBackAsItWas) {
    forgetStoredTree();
    LateProcess late;
    ChildProcess victim([](Talk& talk) {
        if (!talk.waitFor('g')) {
            return 1;
        }
        const TreeFixture own(sharedParts());
        at(0)->writeLock();
        at(4)->deleteComponent();
        at(0)->createComponent(fan);
        at(1)->setNo(77);
        talk.tell('h');
        talk.waitFor('e');
        return 2;
    });
    TreeFixture tree(sharedParts());
    Component* const root = tree.root();
    const std::string before = describe();
    victim.talk().tell('g');
    ASSERT_TRUE(victim.talk().waitFor('h'));

    victim.kill();

    EXPECT_EQ(before, describe());
    root->writeLock();
    root->createComponent(fan);
    root->writeUnlock();
    EXPECT_EQ("", faultsOf());
    EXPECT_EQ(describe(), late.finds());
}

TEST(TreeCrash, WhileItWaitsForTheTreeHoldsNobodyUp) {
    forgetStoredTree();
    LateProcess late;
    ChildProcess victim([](Talk& talk) {
        if (!talk.waitFor('g')) {
            return 1;
        }
        const TreeFixture own(sharedParts());
        talk.tell('r');
        talk.waitFor('c');
        talk.tell('t');
        at(0)->createComponent(fan);
        talk.tell('d');
        return 2;
    });
    TreeFixture tree(sharedParts());
    Component* const root = tree.root();
    victim.talk().tell('g');
    ASSERT_TRUE(victim.talk().waitFor('r'));
    root->writeLock();
    victim.talk().tell('c');
    ASSERT_TRUE(victim.talk().waitFor('t'));
    EXPECT_FALSE(victim.talk().hasMark(50));

    victim.kill();
    root->createComponent(sensor);
    root->writeUnlock();

    EXPECT_EQ((Ids{1, 4, 7}), TreeFixture::children(root));
    EXPECT_EQ(describe(), late.finds());
}
