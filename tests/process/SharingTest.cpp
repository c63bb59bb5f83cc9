#include "process/Machine.h"
#include "support/ChildProcess.h"
#include "support/FaultText.h"
#include "support/TraceCapture.h"

#include <qz/tavrel/ComponentAccessor.h>
#include <qz/tavrel/TreeConfig.h>

#include <gtest/gtest.h>

#include <csignal>

using namespace qz::tavrel;
using namespace tavrel::test;

namespace {

constexpr const char* mismatched = "FAULT at ComponentAccessor(LINE): evaluate() revision mismatched.";
constexpr const char* unavailable = "FAULT at ComponentAccessor(LINE): evaluate() unavailable accessor.";

/// A process that starts, tells 's', and goes on with `body` when it is told 'g'.
ChildProcess started(const std::function<void(Talk&)>& body, bool tidy = true) {
    return ChildProcess([body, tidy](Talk& talk) {
        Process process;
        process.start();
        talk.tell('s');
        talk.waitFor('g');
        body(talk);
        if (!tidy) {
            die();
        }
        return 0;
    });
}

/// Lets a started process do its work, and waits for its end.
int finish(ChildProcess& process) {
    process.talk().tell('g');
    return process.wait();
}

class Sharing : public testing::Test {
protected:
    Sharing() { specify("1"); }
};

TEST_F(Sharing, LetsAProcessReadWhatAnotherHasSet) {
    ChildProcess reader = started([](Talk& talk) {
        Component* const target = all(sensor)[3];
        EXPECT_EQ(0U, valueOf(target).value);
        talk.tell('0');
        talk.waitFor('w');
        EXPECT_EQ(41U, valueOf(target).value);
        EXPECT_TRUE(valueOf(target).isWhole());
        EXPECT_EQ(0x0a0b0c0d, Component::getRoot()->getProperty(serialKey));
    });
    reader.talk().waitFor('s');
    reader.talk().tell('g');
    reader.talk().waitFor('0');
    ChildProcess writer = started([](Talk&) {
        setValue(all(sensor)[3], 41);
        Component::getRoot()->setProperty(serialKey, 0x0a0b0c0d);
    });
    writer.talk().waitFor('s');
    EXPECT_EQ(0, finish(writer));

    reader.talk().tell('w');

    EXPECT_EQ(0, reader.wait());
}

TEST_F(Sharing, ShowsAProcessTheComponentsThatAnotherMakes) {
    ChildProcess watching = started([](Talk& talk) {
        EXPECT_TRUE(all(fan).empty());
        talk.tell('0');
        talk.waitFor('w');
        Component::getRoot()->getRevision(); // whatever was seen a moment ago
        const std::vector<Component*> fans = all(fan);
        ASSERT_EQ(1U, fans.size());
        EXPECT_EQ(all(board)[1], fans[0]->getParent());
        EXPECT_EQ(5U, valueOf(fans[0]).value);
    });
    watching.talk().waitFor('s');
    watching.talk().tell('g');
    watching.talk().waitFor('0');
    ChildProcess making = started([](Talk&) {
        all(board)[1]->createComponent(fan);
        setValue(all(fan)[0], 5);
    });
    making.talk().waitFor('s');
    EXPECT_EQ(0, finish(making));

    watching.talk().tell('w');

    EXPECT_EQ(0, watching.wait());
}

TEST_F(Sharing, RefusesTheHandleOfAComponentThatAnotherProcessHasDeleted) {
    ChildProcess holder = started([](Talk& talk) {
        Component* const parent = all(board)[2];
        ComponentAccessor deleted(all(sensor)[4]);
        const std::string parentPath = ComponentAccessor(parent).getPath();
        EXPECT_TRUE(deleted.isAvailable());
        talk.tell('0');
        talk.waitFor('d');

        EXPECT_EQ(mismatched, faultText([&] { deleted.getType(); }));
        EXPECT_EQ(unavailable, faultText([&] { deleted.getType(); }));
        EXPECT_FALSE(deleted.isAvailable());
        ComponentAccessor nearest = deleted.getEnableComponent();
        EXPECT_TRUE(nearest.isAvailable());
        EXPECT_EQ(parent, nearest.getComponent());
        EXPECT_EQ(parentPath, nearest.getPath());
        EXPECT_EQ(board, nearest.getType());
    });
    holder.talk().waitFor('s');
    holder.talk().tell('g');
    holder.talk().waitFor('0');
    ChildProcess deleting = started([](Talk&) { all(sensor)[4]->deleteComponent(); });
    deleting.talk().waitFor('s');
    EXPECT_EQ(0, finish(deleting));

    holder.talk().tell('d');

    EXPECT_EQ(0, holder.wait());
}

TEST_F(Sharing, RefusesTheHandleOfAComponentWhoseIdAnotherProcessHasGivenAway) {
    ChildProcess holder = started([](Talk& talk) {
        all(board)[0]->createComponent(fan);
        ComponentAccessor handle(all(fan)[0]);
        const int id = handle.getComponentId();
        talk.tell('0');
        talk.waitFor('d');

        EXPECT_EQ(mismatched, faultText([&] { handle.getType(); }));
        EXPECT_EQ(unavailable, faultText([&] { handle.setNumber(1); }));
        EXPECT_EQ(Component::getRoot(), Component::getComponent(id)->getParent()); // another one by now
        EXPECT_EQ(all(board)[0], handle.getEnableComponent().getComponent());
    });
    holder.talk().waitFor('s');
    holder.talk().tell('g');
    holder.talk().waitFor('0');
    ChildProcess giving = started([](Talk&) {
        Component* const freed = all(fan)[0];
        const int id = freed->getComponentId();
        freed->deleteComponent();
        // Fills the table up until the freed id comes round again.
        for (int i = 0; i < 64 && Component::getComponent(id)->getType() == 0; ++i) {
            Component::getRoot()->createComponent(fan);
        }
    });
    giving.talk().waitFor('s');
    EXPECT_EQ(0, finish(giving));

    holder.talk().tell('d');

    EXPECT_EQ(0, holder.wait());
}

// --- locks ---

TEST_F(Sharing, KeepsProcessesApartThatLockTheSameSubtree) {
    ChildProcess first = started([](Talk& talk) {
        all(board)[0]->writeLock();
        talk.tell('h');
        talk.waitFor('u');
        all(board)[0]->writeUnlock();
    });
    first.talk().waitFor('s');
    first.talk().tell('g');
    first.talk().waitFor('h');
    ChildProcess second = started([](Talk& talk) {
        all(board)[1]->writeLock(); // beside it
        all(board)[1]->writeUnlock();
        talk.tell('b');
        all(sensor)[1]->readLock(); // beneath it
        talk.tell('h');
        all(sensor)[1]->readUnlock();
    });
    second.talk().waitFor('s');
    second.talk().tell('g');
    second.talk().waitFor('b');
    EXPECT_FALSE(second.talk().hasMark(100));

    first.talk().tell('u');

    EXPECT_TRUE(second.talk().waitFor('h'));
    EXPECT_EQ(0, first.wait());
    EXPECT_EQ(0, second.wait());
}

TEST_F(Sharing, TakesTheLockOfADeadProcessOffItsSubtree) {
    ChildProcess holder = started([](Talk& talk) {
        all(board)[0]->writeLock();
        talk.tell('h');
        talk.waitFor('-'); // for ever
    });
    holder.talk().waitFor('s');
    ChildProcess other = started([](Talk&) {
        const TraceCapture capture;
        all(sensor)[0]->writeLock();
        EXPECT_EQ(1U, capture.count(0x40201));
        EXPECT_EQ(1U, capture.count(0x40202));
        all(sensor)[0]->writeUnlock();
        EXPECT_EQ("", damage());
    });
    other.talk().waitFor('s');
    holder.talk().tell('g');
    holder.talk().waitFor('h');

    holder.kill();

    EXPECT_EQ(0, finish(other));
}

TEST_F(Sharing, WakesThoseWhoWaitForADeadProcessWhenSomebodyAsksForALock) {
    ChildProcess holder = started([](Talk& talk) {
        all(board)[0]->writeLock();
        talk.tell('h');
        talk.waitFor('-'); // for ever
    });
    holder.talk().waitFor('s');
    holder.talk().tell('g');
    holder.talk().waitFor('h');
    ChildProcess waiting = started([](Talk& talk) {
        talk.tell('b');
        all(sensor)[0]->readLock();
        talk.tell('h');
        all(sensor)[0]->readUnlock();
    });
    waiting.talk().waitFor('s');
    waiting.talk().tell('g');
    waiting.talk().waitFor('b');
    EXPECT_FALSE(waiting.talk().hasMark(100));
    holder.kill();

    ChildProcess asking = started([](Talk&) {
        all(board)[2]->readLock(); // anywhere
        all(board)[2]->readUnlock();
    });
    asking.talk().waitFor('s');
    EXPECT_EQ(0, finish(asking));

    EXPECT_TRUE(waiting.talk().waitFor('h'));
    EXPECT_EQ(0, waiting.wait());
}

TEST_F(Sharing, DropsTheChangesOfAProcessThatDiesBeforeTheyAreSaved) {
    ChildProcess dying = started(
        [](Talk&) {
            Component::getRoot()->writeLock(); // the whole tree, until it is unlocked
            all(board)[0]->deleteComponent();
            Component::getRoot()->createComponent(fan);
        },
        false);
    dying.talk().waitFor('s');
    ChildProcess other = started([](Talk&) {
        EXPECT_EQ(3U, all(board).size());
        EXPECT_TRUE(all(fan).empty());
        Component::getRoot()->createComponent(fan);
        EXPECT_EQ(1U, all(fan).size());
        EXPECT_EQ("", damage());
    });
    other.talk().waitFor('s');

    EXPECT_EQ(-SIGKILL, finish(dying));

    EXPECT_EQ(0, finish(other));
}

// --- what stays when all processes have gone ---

/// Leaves marks in the tree and in both stores.
void leaveMarks(Talk&) {
    Component* const parent = all(board)[1];
    parent->createComponent(fan);
    setValue(all(fan)[0], 123);
    all(board)[0]->addComponent(all(fan)[0]);
    all(sensor)[5]->deleteComponent();
    setValue(all(sensor)[0], 99);
    Component::getRoot()->setProperty(serialKey, 77);
}

void expectMarks() {
    ChildProcess next([](Talk&) {
        Process process;
        const Work work = process.start();
        EXPECT_FALSE(work.builtTree);
        EXPECT_FALSE(work.raisedVersion);
        EXPECT_EQ(3U, all(board).size());
        EXPECT_EQ(5U, all(sensor).size());
        const std::vector<Component*> fans = all(fan);
        EXPECT_EQ(1U, fans.size());
        EXPECT_EQ(all(board)[1], fans.at(0)->getParent());
        std::vector<Component*> parents;
        fans[0]->getParents(parents);
        EXPECT_EQ((std::vector<Component*>{all(board)[1], all(board)[0]}), parents);
        EXPECT_EQ(123U, valueOf(fans[0]).value);
        EXPECT_EQ(99U, valueOf(all(sensor)[0]).value);
        EXPECT_EQ(77, Component::getRoot()->getProperty(serialKey));
        EXPECT_EQ("", damage());
        return 0;
    });
    EXPECT_EQ(0, next.wait());
}

TEST_F(Sharing, KeepsTreeAndValuesWhenTheLastProcessHasEnded) {
    ChildProcess last = started(leaveMarks);
    last.talk().waitFor('s');
    EXPECT_EQ(0, finish(last));

    expectMarks();
}

TEST_F(Sharing, KeepsTreeAndValuesWhenTheLastProcessWasKilled) {
    ChildProcess last = started(leaveMarks, false);
    last.talk().waitFor('s');
    EXPECT_EQ(-SIGKILL, finish(last));

    expectMarks();
}

TEST_F(Sharing, KeepsTreeAndValuesWhenTheMachineIsSwitchedOff) {
    ChildProcess last = started(leaveMarks, false);
    last.talk().waitFor('s');
    EXPECT_EQ(-SIGKILL, finish(last));
    restartMachine();

    expectMarks();
}

} // namespace
