#include "SharedTree.h"
#include "TreeTest.h"
#include "lock/Children.h"
#include "lock/SharedPage.h"

#include <qz/tavrel/ComponentAccessor.h>
#include <qz/tavrel/QZException.h>

#include <algorithm>
#include <array>
#include <random>
#include <thread>

using namespace tavrel::test;
using namespace qz::tavrel;

namespace {

constexpr int steps = 300;
constexpr int sampleSize = 7;
constexpr std::size_t workerCount = 4;

/// A node that a worker has made and nobody else changes.
struct Made {
    int id;
    int type;
    int parent;
    int speed; ///< as it was set; 0 at first
};

/// What a worker leaves at its end.
struct Report {
    int count;
    Made made[TreeFixture::maxCount];
    int created;
    int deleted;
    int refused; ///< creations for which the tree was too full
};

using Reports = std::array<Report, workerCount>;

Component* at(int id) {
    return Component::getComponent(id);
}

/// A write section, as a client would hold it around steps that belong together.
class Together {
public:
    explicit Together(TreeConfig* held) : config(held) {
        config->writeLock();
        config->lock();
    }
    ~Together() {
        config->unlock();
        config->writeUnlock();
    }
    Together(const Together&) = delete;
    Together& operator=(const Together&) = delete;

private:
    TreeConfig* config;
};

/// Creates under the root and beneath its own nodes, deletes its own nodes, shares them, and sets their
/// properties, among others who do the same. It notes what should be there, and looks whether it is.
class Worker {
public:
    explicit Worker(unsigned int seed) : random(seed), config(Component::getTreeConfig()) {}

    void run(Report& report) {
        for (int step = 0; step < steps; ++step) {
            const int kind = pick(10);
            if (made.empty() || kind < 5) {
                create();
            } else if (kind < 7) {
                remove();
            } else if (kind < 8) {
                share();
            } else {
                setSpeed(step);
            }
        }
        check();
        report.count = static_cast<int>(made.size());
        std::copy(made.begin(), made.end(), report.made);
        report.created = created;
        report.deleted = deleted;
        report.refused = refused;
    }

private:
    int pick(int end) { return std::uniform_int_distribution<int>(0, end - 1)(random); }
    Made& pickMade() { return made[static_cast<std::size_t>(pick(static_cast<int>(made.size())))]; }

    void create() {
        const int parent = made.empty() || pick(2) == 0 ? 0 : pickMade().id;
        const int type = std::array<int, 3>{fan, sensor, board}[static_cast<std::size_t>(pick(3))];
        const Together section(config);
        const std::size_t before = TreeFixture::children(at(parent)).size();
        try {
            at(parent)->createComponent(type);
        } catch (const TavrelException&) {
            ++refused; // the tree is full; a part of the subtree may stand
        }
        const Ids children = TreeFixture::children(at(parent));
        for (std::size_t i = before; i < children.size(); ++i) {
            note(children[i], parent);
        }
    }

    void note(int id, int parent) {
        ++created;
        made.push_back({id, at(id)->getType(), parent, 0});
        for (const int child : TreeFixture::children(at(id))) {
            note(child, id);
        }
    }

    void remove() {
        const int id = pickMade().id;
        const Together section(config);
        at(id)->deleteComponent();
        // Before the section ends nobody else can have taken a freed id.
        const auto freed = [](const Made& each) { return at(each.id)->getType() == 0; };
        deleted += static_cast<int>(std::count_if(made.begin(), made.end(), freed));
        made.erase(std::remove_if(made.begin(), made.end(), freed), made.end());
    }

    void share() {
        Component* const parent = at(pickMade().id);
        Component* const child = at(pickMade().id);
        parent->addComponent(child);
        if (pick(2) == 0) {
            parent->removeComponent(child);
        }
    }

    void setSpeed(int step) {
        Made& chosen = pickMade();
        ComponentAccessor accessor(at(chosen.id));
        const char data[4] = {0, static_cast<char>(step >> 8), static_cast<char>(step), 1};
        EXPECT_EQ(4, accessor.setProperty(speedKey, data, 4));
        chosen.speed = step << 8 | 1;
        EXPECT_EQ(chosen.type, accessor.getType());
        EXPECT_EQ(chosen.parent, accessor.getParent().getComponentId());
    }

    void check() {
        for (const Made& each : made) {
            EXPECT_EQ(each.type, at(each.id)->getType()) << each.id;
            EXPECT_EQ(at(each.parent), at(each.id)->getParent()) << each.id;
            if (each.speed != 0) {
                EXPECT_EQ(each.speed, at(each.id)->getProperty(speedKey)) << each.id;
            }
        }
    }

    std::mt19937 random;
    TreeConfig* config;
    std::vector<Made> made;
    int created = 0;
    int deleted = 0;
    int refused = 0;
};

/// The tree holds the sample, and what the workers say they have made, and nothing else.
void expectTreeOf(Reports& reports) {
    EXPECT_EQ("", faultsOf());
    std::map<int, int> types;
    int refused = 0;
    int deleted = 0;
    for (const Report& report : reports) {
        for (int i = 0; i < report.count; ++i) {
            const Made& each = report.made[i];
            EXPECT_TRUE(types.emplace(each.id, each.type).second) << each.id << " was made twice";
        }
        refused += report.refused;
        deleted += report.deleted;
        EXPECT_EQ(report.created - report.deleted, report.count);
    }
    int live = 0;
    for (int id = sampleSize; id < Component::getTreeConfig()->getNodeCount(); ++id) {
        const auto expected = types.find(id);
        EXPECT_EQ(expected == types.end() ? 0 : expected->second, at(id)->getType()) << id;
        live += at(id)->getType() != 0 ? 1 : 0;
    }
    EXPECT_EQ(static_cast<int>(types.size()), live);
    // Or the test would have missed what it is for.
    EXPECT_LT(0, refused) << "the tree was never full";
    EXPECT_LT(0, deleted);
}

} // namespace

TEST(TreeLoad, LeavesAWholeTreeWhenManyProcessesChangeIt) {
    forgetStoredTree();
    SharedPage<Reports> reports;
    Children workers(workerCount, [&](int index) {
        const TreeFixture own(sharedParts());
        Worker(static_cast<unsigned int>(index)).run((*reports)[static_cast<std::size_t>(index)]);
        return 0;
    });
    TreeFixture tree(sharedParts());
    tree.root();

    workers.go();
    workers.expectSuccess();

    expectTreeOf(*reports);
}

TEST(TreeLoad, LeavesAWholeTreeWhenOneIsKilledInTheMiddleOfAChange) {
    forgetStoredTree();
    SharedPage<Reports> reports;
    Children workers(workerCount, [&](int index) {
        const TreeFixture own(sharedParts());
        Worker(static_cast<unsigned int>(index) + 10).run((*reports)[static_cast<std::size_t>(index)]);
        return 0;
    });
    ChildProcess victim([](Talk& talk) {
        if (!talk.waitFor('g')) {
            return 1;
        }
        const TreeFixture own(sharedParts());
        at(0)->writeLock();
        at(1)->deleteComponent();
        at(4)->setType(fan);
        at(0)->createComponent(undefined);
        talk.tell('h');
        talk.waitFor('e');
        return 2;
    });
    TreeFixture tree(sharedParts());
    tree.root();

    workers.go();
    victim.talk().tell('g');
    EXPECT_TRUE(victim.talk().waitFor('h'));
    victim.kill();
    workers.expectSuccess();

    expectTreeOf(*reports);
    EXPECT_EQ(board, at(1)->getType());
    EXPECT_EQ(board, at(4)->getType());
}

TEST(TreeLoad, LeavesAWholeTreeWhenManyThreadsOfTwoProcessesChangeIt) {
    forgetStoredTree();
    SharedPage<Reports> reports;
    Children processes(2, [&](int index) {
        const TreeFixture own(sharedParts());
        std::vector<std::thread> threads;
        for (const int worker : {2 * index, 2 * index + 1}) {
            threads.emplace_back([&reports, worker] {
                Worker(static_cast<unsigned int>(worker) + 20)
                    .run((*reports)[static_cast<std::size_t>(worker)]);
            });
        }
        for (std::thread& each : threads) {
            each.join();
        }
        return 0;
    });
    TreeFixture tree(sharedParts());
    tree.root();

    processes.go();
    processes.expectSuccess();

    expectTreeOf(*reports);
}
