#include "support/ChildProcess.h"

#include <qz/tavrel/BMCRelationalDB.h>
#include <qz/tavrel/LockObject.h>
#include <qz/tavrel/TreeConfig.h>

#include <gtest/gtest.h>

#include <sys/time.h>

#include <functional>
#include <string>
#include <vector>

using qz::tavrel::BMCRelationalDB;
using qz::tavrel::SemRWLock;
using qz::tavrel::TreeConfig;
using namespace tavrel::test;

namespace {

using Ids = std::vector<int>;

constexpr int owned = 0;
constexpr int shared = 1;
constexpr char historyPath[] = "/tmp/history";

/// The file store, with a look at each value on its way.
class WatchedStore : public BMCRelationalDB {
public:
    std::function<void(const std::string& key)> beforeSet;
    std::function<void(const std::string& key)> afterSet;

    void setValue(const std::string& key, const std::string& value) override {
        if (beforeSet) {
            beforeSet(key);
        }
        BMCRelationalDB::setValue(key, value);
        if (afterSet) {
            afterSet(key);
        }
    }
};

/// What one process has: the store, and the tree under the lock of all processes.
struct View {
    View() {
        SemRWLock::initialize(1);
        store.initialize("state");
        tree.assign(&store, new SemRWLock(0));
        tree.assign(historyPath);
    }

    /// Sees what others have saved.
    void refresh() {
        change([] {});
    }

    void change(const std::function<void()>& body) {
        tree.writeLock();
        tree.lock();
        body();
        tree.unlock();
        tree.writeUnlock();
    }

    Ids targetsOf(int src, int relation) {
        Ids out;
        tree.get(src, out, relation);
        return out;
    }

    Ids sourcesOf(int dst) {
        Ids out;
        tree.getSrcs(dst, out);
        return out;
    }

    WatchedStore store;
    TreeConfig tree;
};

TEST(TreeConfigProcesses, ShowEachOtherTheirChanges) {
    const auto work = [](int id) {
        return [id](Talk& talk) {
            View view;
            view.refresh();
            talk.tell('r');
            talk.waitFor('g');
            view.change([&] {
                EXPECT_EQ(id, view.tree.getNodeCount()) << "what the processes before have done";
                EXPECT_EQ(id - 1, view.tree.getNodeRevision(id - 1));
                view.tree.add(id - 1, id, owned);
                EXPECT_EQ(id, view.tree.setNodeInfo(id, 10 + id, 100 + id));
            });
            talk.tell('d');
            talk.waitFor('e');
            view.refresh();
            EXPECT_EQ(4, view.tree.getNodeCount());
            EXPECT_EQ(13, view.tree.getNodeType(3));
            EXPECT_EQ(103, view.tree.getNodeNumber(3));
            EXPECT_EQ(2, view.tree.getSrc(3));
            return 0;
        };
    };
    ChildProcess first(work(1));
    ChildProcess second(work(2));
    ChildProcess third(work(3));
    View view;
    for (ChildProcess* process : {&first, &second, &third}) {
        ASSERT_TRUE(process->talk().waitFor('r'));
    }

    view.change([&] { view.tree.setNodeInfo(0, 10, 100); });
    for (ChildProcess* process : {&first, &second, &third}) {
        process->talk().tell('g');
        ASSERT_TRUE(process->talk().waitFor('d'));
    }
    view.refresh();

    EXPECT_EQ(4, view.tree.getNodeCount());
    EXPECT_EQ(Ids{2}, view.targetsOf(1, owned));
    for (ChildProcess* process : {&first, &second, &third}) {
        process->talk().tell('e');
        EXPECT_EQ(0, process->wait());
    }
}

TEST(TreeConfigProcesses, KeepTheTreeForTheNextOne) {
    ChildProcess first([](Talk&) {
        View view;
        view.change([&] {
            view.tree.setNodeInfo(0, 10, 100);
            view.tree.add(0, 1, owned);
            view.tree.add(5, 1, shared);
        });
        return 0;
    });
    ASSERT_EQ(0, first.wait());

    View view;
    view.refresh();

    EXPECT_EQ(10, view.tree.getNodeType(0));
    EXPECT_EQ((Ids{0, 5}), view.sourcesOf(1));
}

TEST(TreeConfigProcesses, TellTheirListenersOfAChangeOfOthers) {
    class Counting : public qz::tavrel::EventListener {
    public:
        int calls = 0;
        void update(void*, int) override { ++calls; }
    };
    View view;
    Counting listener;
    view.tree.addListener(&listener);
    view.refresh();
    EXPECT_EQ(0, listener.calls);

    ChildProcess other([](Talk&) {
        View another;
        another.change([&] { another.tree.setNodeInfo(0, 10, 100); });
        return 0;
    });
    ASSERT_EQ(0, other.wait());
    view.refresh();
    view.refresh();

    EXPECT_EQ(1, listener.calls);
}

TEST(TreeConfigProcesses, WaitForEachOtherInTheLockAlone) {
    View view;
    view.tree.lock();
    ChildProcess other([](Talk& talk) {
        View another;
        talk.tell('t');
        another.tree.lock();
        EXPECT_EQ(10, another.tree.getNodeType(0));
        another.tree.unlock();
        talk.tell('d');
        return 0;
    });
    ASSERT_TRUE(other.talk().waitFor('t'));
    EXPECT_FALSE(other.talk().hasMark(50));

    view.tree.setNodeInfo(0, 10, 100);
    view.tree.unlock();

    EXPECT_TRUE(other.talk().waitFor('d'));
    EXPECT_EQ(0, other.wait());
}

/// How far a process has come with its save when it is killed.
enum class Saved { nothing, nodes, ownedLinks, sharedLinks, history, everything };

/// A place in a save, named by the value that is stored just before it or just behind it.
struct CrashPoint {
    const char* name;
    Saved saved;
    const char* key;
    bool isBehind; ///< the place lies behind the value
};

std::ostream& operator<<(std::ostream& stream, const CrashPoint& point) {
    return stream << point.name;
}

class KilledProcess : public testing::TestWithParam<CrashPoint> {
protected:
    /// A root, its child, and the history of both.
    static void build(View& view) {
        view.change([&] {
            view.tree.add(0, 1, owned);
            view.tree.setNodeInfo(0, 10, 0);
            view.tree.setNodeInfo(1, 11, 0);
        });
    }

    /// Adds node 2 in all parts and is killed on the way.
    static void killWhileSaving(const CrashPoint& point) {
        ChildProcess victim([&](Talk& talk) {
            View view;
            view.refresh();
            const auto stop = [&](const std::string& key) {
                if (key == point.key) {
                    talk.tell('s');
                    talk.waitFor('-'); // never comes
                }
            };
            (point.isBehind ? view.store.afterSet : view.store.beforeSet) = stop;
            view.change([&] {
                view.tree.add(1, 2, owned);
                view.tree.add(0, 2, shared);
                view.tree.setNodeInfo(2, 12, 0);
            });
            return 1;
        });
        ASSERT_TRUE(victim.talk().waitFor('s'));
        victim.kill();
    }

    static int newestRevision(View& view) {
        timeval late{};
        gettimeofday(&late, nullptr);
        late.tv_sec += 10;
        return view.tree.getRevision(late);
    }
};

TEST_P(KilledProcess, LeavesTheOldTreeToRunningProcessesUntilItsRevisionIsStored) {
    View survivor;
    build(survivor);

    killWhileSaving(GetParam());
    survivor.refresh();

    const bool isStored = GetParam().saved == Saved::everything;
    EXPECT_EQ(isStored ? 3 : 2, survivor.tree.getNodeCount());
    EXPECT_EQ(isStored ? (Ids{1, 0}) : Ids{}, survivor.sourcesOf(2));
}

TEST_P(KilledProcess, LeavesTheNextProcessWhatItHasSaved) {
    {
        View builder;
        build(builder);
    }
    const Saved saved = GetParam().saved;

    killWhileSaving(GetParam());
    View next;
    next.refresh();

    EXPECT_EQ(saved >= Saved::nodes ? 12 : 0, next.tree.getNodeType(2));
    EXPECT_EQ(saved >= Saved::ownedLinks ? Ids{2} : Ids{}, next.targetsOf(1, owned));
    EXPECT_EQ(saved >= Saved::sharedLinks ? Ids{2} : Ids{}, next.targetsOf(0, shared));
    EXPECT_EQ(saved >= Saved::history ? 1 : 0, newestRevision(next));
}

TEST_P(KilledProcess, LetsAllAgreeAfterTheNextChange) {
    View survivor;
    View idle;
    build(survivor);
    idle.refresh();
    killWhileSaving(GetParam());
    View restarted; // holds whatever was saved
    restarted.refresh();
    const int before = restarted.tree.getNodeRevision(2);

    survivor.change([&] {
        survivor.tree.remove(1, 2, owned);
        survivor.tree.add(0, 2, owned);
        survivor.tree.remove(0, 2, shared);
        survivor.tree.add(1, 2, shared);
        survivor.tree.setNodeInfo(2, 13, 5);
    });
    idle.refresh();
    restarted.refresh();
    View next;
    next.refresh();

    for (View* view : {&survivor, &idle, &restarted, &next}) {
        EXPECT_EQ(3, view->tree.getNodeCount());
        EXPECT_EQ(13, view->tree.getNodeType(2));
        EXPECT_EQ((Ids{0, 1}), view->sourcesOf(2));
        EXPECT_EQ(Ids{}, view->targetsOf(0, shared));
        EXPECT_EQ(survivor.tree.getNodeRevision(2), view->tree.getNodeRevision(2));
    }
    EXPECT_NE(before, restarted.tree.getNodeRevision(2))
        << "no component would find that its node is another";
}

TEST_P(KilledProcess, LetsAllAgreeWhenTheRestartedOneMakesTheNextChange) {
    View survivor;
    build(survivor);
    killWhileSaving(GetParam());
    View restarted;
    restarted.refresh();

    restarted.change([&] {
        restarted.tree.removeAll(0);
        restarted.tree.removeAll(1);
        restarted.tree.add(1, 0, owned);
        restarted.tree.add(0, 1, shared);
        restarted.tree.setNodeInfo(1, 14, 6);
    });
    survivor.refresh();

    for (View* view : {&survivor, &restarted}) {
        EXPECT_EQ(14, view->tree.getNodeType(1));
        EXPECT_EQ(Ids{0}, view->targetsOf(1, owned));
        EXPECT_EQ(Ids{1}, view->targetsOf(0, shared));
    }
    EXPECT_EQ(restarted.tree.getNodeCount(), survivor.tree.getNodeCount());
}

INSTANTIATE_TEST_SUITE_P(TreeConfigProcesses, KilledProcess,
                         testing::Values(CrashPoint{"BeforeAnyPart", Saved::nothing, "tavrel5", false},
                                         CrashPoint{"AfterTheNodes", Saved::nodes, "tavrel5", true},
                                         CrashPoint{"AfterTheOwnedLinks", Saved::ownedLinks, "tavrel1", true},
                                         CrashPoint{"AfterTheSharedLinks", Saved::sharedLinks, "tavrel2",
                                                    true},
                                         CrashPoint{"AfterTheHistory", Saved::history, "tavrel4", false},
                                         CrashPoint{"AfterItsRevision", Saved::everything, "tavrel4", true}),
                         [](const auto& chosen) { return chosen.param.name; });

} // namespace
