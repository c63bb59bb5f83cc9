#include "support/ChildProcess.h"

#include <qz/tavrel/Action.h>
#include <qz/tavrel/ComponentClass.h>
#include <qz/tavrel/PropertyLocator.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <map>
#include <vector>

using namespace qz::tavrel;
using tavrel::test::ChildProcess;
using tavrel::test::Talk;

namespace {

using Ids = std::vector<int>;

constexpr int a = 10;
constexpr int b = 11;
constexpr int c = 12;

/// Adds 1 to a count when it is deleted.
template <typename Base>
class Counted : public Base {
public:
    explicit Counted(int& count) : deleted(count) {}
    ~Counted() override { ++deleted; }

private:
    int& deleted;
};

class Idle : public Action {
public:
    void execute(Component*, int, const void*, unsigned int, void*, unsigned int) override {}
};

class Classes : public testing::Test {
protected:
    ~Classes() override { ComponentClass::deleteAll(); }

    static ComponentClass* add(int type, const std::map<int, int>& counts = {}) {
        auto* const made = new ComponentClass(type);
        for (const auto& [childType, count] : counts) {
            made->addComponentCount(childType, count);
        }
        ComponentClass::add(made);
        return made;
    }
};

} // namespace

TEST_F(Classes, AreNotFoundInAnEmptyList) {
    EXPECT_EQ(nullptr, ComponentClass::get());
    EXPECT_EQ(nullptr, ComponentClass::get(a));
    EXPECT_EQ(0, ComponentClass::getMaxComponentCount());
    EXPECT_TRUE(ComponentClass::isAcyclic());
}

TEST_F(Classes, AreFoundByType) {
    ComponentClass* const first = add(a);
    ComponentClass* const second = add(b);

    EXPECT_EQ(first, ComponentClass::get(a));
    EXPECT_EQ(second, ComponentClass::get(b));
    EXPECT_EQ(nullptr, ComponentClass::get(c));
}

TEST_F(Classes, StandAtTheHeadOfTheListWhenAdded) {
    add(a);
    ComponentClass* const second = add(b);

    EXPECT_EQ(second, ComponentClass::get());
}

TEST_F(Classes, AreHiddenByALaterOneOfTheirType) {
    add(a);
    ComponentClass* const later = add(a);
    add(b);

    EXPECT_EQ(later, ComponentClass::get(a));
}

TEST_F(Classes, AreAllGoneAfterDeleteAll) {
    add(a);
    add(b);

    ComponentClass::deleteAll();

    EXPECT_EQ(nullptr, ComponentClass::get());
    EXPECT_EQ(nullptr, ComponentClass::get(a));
    EXPECT_EQ(nullptr, ComponentClass::get(b));
    EXPECT_EQ(0, ComponentClass::getMaxComponentCount());
}

TEST_F(Classes, LoseEachActionOnceHoweverOftenItIsBound) {
    int deleted = 0;
    auto* const action = new Counted<Idle>(deleted);
    ComponentClass* const first = add(a);
    first->addAction(1, action);
    first->addAction(2, action);
    add(b)->addAction(1, action);

    ComponentClass::deleteAll();

    EXPECT_EQ(1, deleted);
}

TEST_F(Classes, LoseTheActionsOfAHiddenClassAsWell) {
    int deleted = 0;
    add(a)->addAction(1, new Counted<Idle>(deleted));
    add(a)->addAction(1, new Counted<Idle>(deleted));

    ComponentClass::deleteAll();

    EXPECT_EQ(2, deleted);
}

TEST_F(Classes, KeepAnActionThatAnotherHasReplaced) {
    int replaced = 0;
    int bound = 0;
    Counted<Idle> former(replaced);
    ComponentClass* const holder = add(a);
    holder->addAction(1, &former);
    holder->addAction(1, new Counted<Idle>(bound));

    ComponentClass::deleteAll();

    EXPECT_EQ(0, replaced);
    EXPECT_EQ(1, bound);
}

TEST_F(Classes, LoseTheirPropertyLocators) {
    int deleted = 0;
    add(a)->setPropertyLocator(new Counted<PropertyLocator>(deleted));
    add(b)->setPropertyLocator(new Counted<PropertyLocator>(deleted));
    add(c);

    ComponentClass::deleteAll();

    EXPECT_EQ(2, deleted);
}

TEST(ComponentClass, KeepsItsActionsWhenItIsDestroyedAlone) {
    int actions = 0;
    int locators = 0;
    Counted<Idle> action(actions);
    {
        ComponentClass lone(a);
        lone.addAction(1, &action);
        lone.setPropertyLocator(new Counted<PropertyLocator>(locators));
    }

    EXPECT_EQ(0, actions);
    EXPECT_EQ(1, locators);
}

TEST(ComponentClass, HasTheFeatureOfItsOwnType) {
    ComponentClass made(7);

    EXPECT_TRUE(made.hasFeature(7));
    EXPECT_FALSE(made.hasFeature(8));
    made.addFeature(7);
    EXPECT_TRUE(made.hasFeature(7));
}

TEST(ComponentClass, GetsFeatures) {
    ComponentClass made(a);

    made.addFeature(0);
    made.addFeature(-5);

    EXPECT_TRUE(made.hasFeature(0));
    EXPECT_TRUE(made.hasFeature(-5));
    EXPECT_FALSE(made.hasFeature(1));
}

TEST(ComponentClass, GivesTheNullActionForAnUnboundId) {
    ComponentClass made(a);

    EXPECT_EQ(NullAction::getInstance(), made.getAction(1));
}

TEST(ComponentClass, GivesTheNullActionWhereNoActionIsBound) {
    ComponentClass made(a);
    made.addAction(1, nullptr);

    EXPECT_EQ(NullAction::getInstance(), made.getAction(1));
}

TEST(ComponentClass, GivesTheActionBoundLast) {
    Idle first;
    Idle second;
    ComponentClass made(a);

    made.addAction(1, &first);
    EXPECT_EQ(&first, made.getAction(1));
    made.addAction(1, &second);

    EXPECT_EQ(&second, made.getAction(1));
}

TEST(ComponentClass, SortsTheActionIdsTogetherWithWhatTheListHeld) {
    Idle action;
    ComponentClass made(a);
    made.addAction(20, &action);
    made.addAction(3, &action);
    Ids ids{9};

    made.getActionIds(ids);

    EXPECT_EQ((Ids{3, 9, 20}), ids);
}

TEST(ComponentClass, SetsACountAnewInsteadOfAddingToIt) {
    ComponentClass made(a);

    made.addComponentCount(b, 2);
    made.addComponentCount(b, 5);

    EXPECT_EQ(5, made.getComponentCount(b));
    EXPECT_EQ(0, made.getComponentCount(c));
}

TEST(ComponentClass, ListsTheTypesOfItsChildrenInAscendingOrder) {
    ComponentClass made(a);
    made.addComponentCount(30, 1);
    made.addComponentCount(-4, 1);
    made.addComponentCount(7, 0);
    Ids types{100};

    made.getComponentTypes(types);

    EXPECT_EQ((Ids{100, -4, 7, 30}), types);
}

TEST(ComponentClass, CountsOnlyItselfWithoutChildren) {
    EXPECT_EQ(1, ComponentClass(a).getComponentCount());
}

TEST_F(Classes, CountTheirSubtreeWithoutTypesThatHaveNoClass) {
    add(c);
    add(a, {{c, 3}}); // 4 in all
    ComponentClass* const whole = add(20, {{a, 2}, {b, 3}});

    EXPECT_EQ(9, whole->getComponentCount());
}

TEST_F(Classes, TellTheLargestSubtree) {
    add(c);
    add(a, {{c, 3}});
    add(20, {{a, 2}});
    add(21);

    EXPECT_EQ(9, ComponentClass::getMaxComponentCount());
}

TEST_F(Classes, TakeNodesAwayForANegativeCount) {
    add(c);
    ComponentClass* const odd = add(a, {{c, -3}});

    EXPECT_EQ(-2, odd->getComponentCount());
    EXPECT_EQ(1, ComponentClass::getMaxComponentCount());
}

TEST_F(Classes, WrapACountThatPassesThirtyTwoBits) {
    add(c);
    add(a, {{c, 65536}});
    ComponentClass* const huge = add(b, {{a, 65536}}); // 1 + 65536 x 65537

    EXPECT_EQ(65537, huge->getComponentCount());
}

TEST_F(Classes, AreAcyclicWhenNoneContainsItself) {
    add(c);
    add(b, {{c, 1}});
    add(a, {{b, 1}, {c, 1}, {99, 1}});

    EXPECT_TRUE(ComponentClass::isAcyclic());
}

TEST_F(Classes, AreNotAcyclicWhenOneContainsItself) {
    add(a, {{a, 1}});

    EXPECT_FALSE(ComponentClass::isAcyclic());
}

TEST_F(Classes, AreNotAcyclicWhenTwoContainEachOther) {
    add(a, {{b, 1}});
    add(b, {{a, 0}});
    add(c, {{a, 1}});

    EXPECT_FALSE(ComponentClass::isAcyclic());
}

TEST(ComponentClass, HoldsAPropertyLocator) {
    ComponentClass made(a);
    EXPECT_EQ(nullptr, made.getPropertyLocator());
    int replaced = 0;
    Counted<PropertyLocator> first(replaced);
    auto* const second = new PropertyLocator;

    made.setPropertyLocator(&first);
    EXPECT_EQ(&first, made.getPropertyLocator());
    made.setPropertyLocator(second);

    EXPECT_EQ(second, made.getPropertyLocator());
    EXPECT_EQ(0, replaced);
}

TEST(ComponentClass, CanBeDeletedByAnObjectThatOutlivesMain) {
    ChildProcess child([](Talk&) {
        struct Owner {
            ~Owner() {
                ComponentClass::deleteAll();
                ComponentClass::add(new ComponentClass(a));
                const bool isFound = ComponentClass::get(a) != nullptr && ComponentClass::get(b) == nullptr;
                ComponentClass::deleteAll();
                _exit(isFound ? 0 : 1);
            }
        };
        static const Owner owner; // destroyed behind what the first class brings up
        ComponentClass::add(new ComponentClass(b));
        std::exit(2);
        return 3;
    });

    EXPECT_EQ(0, child.wait());
}

TEST(ComponentClass, HasNoTextForm) {
    Idle action;
    ComponentClass made(a);
    made.addComponentCount(b, 2);
    made.addAction(1, &action);

    EXPECT_EQ("", made.toString());
}
