#include "TreeTest.h"

#include <qz/tavrel/QZException.h>
using namespace tavrel::test;
using namespace qz::tavrel;

namespace {

class Path : public TreeTest {
protected:
    static Steps parsed(const std::string& text) {
        TreePath path(text);
        return stepsOf(path);
    }

    static std::string pathOf(Component* component) {
        TreePath path;
        component->getTreePath(path);
        return path.toString();
    }
};

/// Gives both characters back at the end.
class OtherCharacters {
public:
    OtherCharacters(char delimiter, char binder) {
        TreePath::delimita = delimiter;
        TreePath::binder = binder;
    }
    ~OtherCharacters() {
        TreePath::delimita = '/';
        TreePath::binder = '#';
    }
    OtherCharacters(const OtherCharacters&) = delete;
    OtherCharacters& operator=(const OtherCharacters&) = delete;
};

} // namespace

// --- text ---

TEST_F(Path, PrintsItsSteps) {
    TreePath path;
    path.add(chassis, 0);
    path.add(board, 12);

    EXPECT_EQ("/Chassis#0/Board#12", path.toString());
}

TEST_F(Path, PrintsNothingWhenItIsEmpty) {
    EXPECT_EQ("", TreePath().toString());
}

TEST_F(Path, PrintsANegativeNumberThatDoesNotParseBack) {
    TreePath path;
    path.add(board, -3);

    EXPECT_EQ("/Board#-3", path.toString());
    EXPECT_EQ((Steps{{board, 0}}), parsed("/Board#-3"));
}

TEST_F(Path, PrintsAnUnknownTypeWithoutAName) {
    TreePath path;
    path.add(undefined, 1);

    EXPECT_EQ("/#1", path.toString());
}

TEST_F(Path, ParsesItsSteps) {
    EXPECT_EQ((Steps{{chassis, 0}, {board, 12}}), parsed("/Chassis#0/Board#12"));
}

TEST_F(Path, IsEmptyForATextWithoutADelimiter) {
    EXPECT_EQ((Steps{}), parsed(""));
    EXPECT_EQ((Steps{}), parsed("Chassis#0"));
}

TEST_F(Path, IsEmptyWhenABinderIsMissing) {
    const TraceCapture trace;

    EXPECT_EQ((Steps{}), parsed("/Chassis"));
    EXPECT_EQ((Steps{}), parsed("/Chassis#0/Board"));

    ASSERT_EQ(2U, trace.count(0x20401));
    EXPECT_EQ(errorFlags, trace.of(0x20401)[1].flags);
    EXPECT_EQ((Words{0, 0}), trace.of(0x20401)[1].arguments());
    ASSERT_EQ(2U, trace.count(0x20402));
    EXPECT_EQ(errorFlags, trace.of(0x20402)[1].flags);
    EXPECT_EQ("/Chassis#0/Board", trace.of(0x20402)[1].text());
}

TEST_F(Path, HasNumberZeroWithoutDigits) {
    EXPECT_EQ((Steps{{chassis, 0}}), parsed("/Chassis#"));
    EXPECT_EQ((Steps{{chassis, 0}, {board, 3}}), parsed("/Chassis#x/Board#3"));
}

TEST_F(Path, SkipsWhatStandsBesideItsSteps) {
    EXPECT_EQ((Steps{{chassis, 12}, {board, 3}}), parsed("/Chassis#12x/Board#3"));
    EXPECT_EQ((Steps{{chassis, 1}}), parsed("before/Chassis#1 after"));
}

TEST_F(Path, TakesEverythingUpToTheBinderAsAName) {
    tree.resolver->setComponentType("A/B", 77);

    EXPECT_EQ((Steps{{77, 4}}), parsed("/A/B#4"));
}

TEST_F(Path, StopsANumberAtWhatItCanHold) {
    EXPECT_EQ((Steps{{chassis, 2147483647}}), parsed("/Chassis#2147483647"));
    EXPECT_EQ((Steps{{chassis, 2147483647}}), parsed("/Chassis#2147483648"));
    EXPECT_EQ((Steps{{chassis, 2147483647}}), parsed("/Chassis#99999999999999999999999"));
    EXPECT_EQ((Steps{{chassis, 8}}), parsed("/Chassis#0008"));
}

TEST_F(Path, AddsAnUnknownNameToTheResolver) {
    TreePath path("/Rack#2");

    EXPECT_EQ(tree.resolver->getComponentType("Rack"), path.getTypeAt(0));
    EXPECT_EQ("/Rack#2", path.toString());
}

TEST_F(Path, ReplacesItsStepsByATextAndForgetsItsEnd) {
    TreePath path;
    path.add(at(4));

    path.fromString("/Chassis#0");

    EXPECT_EQ((Steps{{chassis, 0}}), stepsOf(path));
    EXPECT_EQ(root, path.getComponent());
    path.fromString("/bad");
    EXPECT_EQ((Steps{}), stepsOf(path));
    EXPECT_EQ(nullptr, path.getComponent());
}

TEST_F(Path, UsesTheCharactersOfTheMoment) {
    TreePath path("/Chassis#0/Board#1");
    const OtherCharacters other(':', '=');

    EXPECT_EQ(":Chassis=0:Board=1", path.toString());
    EXPECT_EQ((Steps{{chassis, 0}, {board, 1}}), parsed(":Chassis=0:Board=1"));
    EXPECT_EQ((Steps{}), parsed("/Chassis#0"));
}

TEST_F(Path, LooksForTheBinderBehindTheDelimiterThoughTheyAreAlike) {
    const OtherCharacters other('/', '/');

    EXPECT_EQ((Steps{{chassis, 3}, {board, 4}}), parsed("/Chassis/3/Board/4"));
}

// --- steps ---

TEST_F(Path, GrowsByAComponent) {
    TreePath path;

    path.add(at(4));

    EXPECT_EQ((Steps{{board, 1}}), stepsOf(path));
}

TEST_F(Path, RefusesNoComponent) {
    TreePath path;
    const TraceCapture trace;

    EXPECT_EQ("FAULT at TreePath(LINE): add() TreePath::add", faultText([&] { path.add(nullptr); }));

    EXPECT_EQ(0, path.getPathCount());
    ASSERT_EQ(1U, trace.all().size());
    EXPECT_EQ(0x20400U, trace.all()[0].id);
    EXPECT_EQ(errorFlags, trace.all()[0].flags);
    EXPECT_EQ((Words{0, 0}), trace.all()[0].arguments());
}

TEST_F(Path, HasNeutralStepsOutsideItself) {
    TreePath path;
    path.add(board, 5);
    const TraceCapture trace;

    EXPECT_EQ(0, path.getTypeAt(1));
    EXPECT_EQ(-1, path.getNumberAt(7));

    ASSERT_EQ(2U, trace.all().size());
    EXPECT_EQ(0x20407U, trace.all()[0].id);
    EXPECT_EQ(errorFlags, trace.all()[0].flags);
    EXPECT_EQ((Words{1, 0}), trace.all()[0].arguments());
    EXPECT_EQ(0x20408U, trace.all()[1].id);
    EXPECT_EQ(errorFlags, trace.all()[1].flags);
    EXPECT_EQ((Words{7, 0}), trace.all()[1].arguments());
}

TEST_F(Path, IsEmptyOnceCleared) {
    TreePath path;
    path.add(at(4));

    path.clear();

    EXPECT_EQ(0, path.getPathCount());
    EXPECT_EQ(nullptr, path.getComponent());
}

TEST_F(Path, IsCopiedWithItsEnd) {
    TreePath path;
    path.add(at(4));

    TreePath copy(path);
    path.clear();

    EXPECT_EQ((Steps{{board, 1}}), stepsOf(copy));
    EXPECT_EQ(at(4), copy.getComponent());
}

// --- of a component ---

TEST_F(Path, LeadsFromTheRootToAComponent) {
    EXPECT_EQ("/Chassis#0/Board#1/Sensor#0", pathOf(at(5)));
    EXPECT_EQ("/Chassis#0", pathOf(root));
}

TEST_F(Path, FollowsOwnersAlone) {
    Component* const lone = TreeFixture::add(at(4), fan);
    at(1)->addComponent(lone);

    EXPECT_EQ("/Chassis#0/Board#1/Fan#0", pathOf(lone));
}

TEST_F(Path, OfAComponentIsAppendedRootFirst) {
    class Recorder : public TreePath {
    public:
        using TreePath::add;
        void add(Component* step) override { ids.push_back(step->getComponentId()); }
        Ids ids;
    } recorder;

    at(6)->getTreePath(recorder);
    at(4)->getTreePath(recorder);

    EXPECT_EQ((Ids{0, 4, 6, 0, 4}), recorder.ids);
    TreePath path("/Fan#9");
    at(4)->getTreePath(path);
    EXPECT_EQ("/Fan#9/Chassis#0/Board#1", path.toString());
}

TEST_F(Path, OfAnObjectWithoutANodeIsEmpty) {
    Component lone;

    EXPECT_EQ("", pathOf(&lone));
}

TEST_F(Path, OfAFreeNodeIsItsOneStep) {
    at(6)->deleteComponent();

    EXPECT_EQ("/NullComponent#-1", pathOf(at(6)));
}

TEST_F(Path, OfAStoredCircleEnds) {
    // Owned links 0 -> 1 -> 2 -> 1, as found in the store.
    const std::string links(
        "\0\0\0\3\0\0\0\0\0\0\0\1\0\0\0\1\0\0\0\1\0\0\0\1\0\0\0\2\0\0\0\2\0\0\0\1\0\0\0\1", 40);
    std::string value = store->values["tavrel1"].substr(0, 4);
    ++value[3];
    store->values["tavrel1"] = value + std::string("\0\0\0\50", 4) + links;
    ++store->values["tavrel4"][3];
    root->getRevision();
    config->remove(0, 1, owned); // or 1 would have its first owner above the circle
    TreePath path;

    at(1)->getTreePath(path);

    EXPECT_EQ(TreeFixture::maxCount, path.getPathCount());
}

// --- walking ---

TEST_F(Path, IsWalkedFromTheRoot) {
    TreePath path("/Chassis#0/Board#1/Sensor#0");
    Components out{at(2)};

    EXPECT_TRUE(path.getComponentList(out));

    EXPECT_EQ((Ids{2, 0, 4, 5}), idsOf(out));
    EXPECT_EQ(at(5), path.getComponent());
}

TEST_F(Path, IsWalkedToNothingWhenItIsEmpty) {
    TreePath path;
    Components out;

    EXPECT_TRUE(path.getComponentList(out));

    EXPECT_TRUE(out.empty());
    EXPECT_EQ(nullptr, path.getComponent());
}

TEST_F(Path, MustBeginWithTheRoot) {
    for (const auto& [type, number] : Steps{{board, 0}, {chassis, 1}}) {
        TreePath path;
        path.add(type, number);
        Components out;
        const TraceCapture trace;

        EXPECT_FALSE(path.getComponentList(out));

        EXPECT_TRUE(out.empty());
        ASSERT_EQ(1U, trace.count(0x20405));
        EXPECT_EQ(errorFlags, trace.of(0x20405)[0].flags);
        EXPECT_EQ((Words{type, number, chassis, 0, 0, 0}), trace.of(0x20405)[0].arguments());
    }
}

TEST_F(Path, KeepsWhatWasFoundBeforeAMissingStep) {
    TreePath path("/Chassis#0/Board#1/Sensor#9/Fan#0");
    Components out;
    const TraceCapture trace;

    EXPECT_FALSE(path.getComponentList(out));

    EXPECT_EQ((Ids{0, 4}), idsOf(out));
    ASSERT_EQ(1U, trace.count(0x20406));
    EXPECT_EQ(errorFlags, trace.of(0x20406)[0].flags);
    EXPECT_EQ((Words{sensor, 9, 4, 0, 0, 0}), trace.of(0x20406)[0].arguments());
    EXPECT_EQ(nullptr, path.getComponent());
}

TEST_F(Path, WalksASharedStepByItsPosition) {
    Component* const lone = TreeFixture::add(at(4), fan);
    lone->setNo(40);
    at(1)->addComponent(lone);

    EXPECT_EQ(lone, TreePath("/Chassis#0/Board#0/Fan#0").getComponent());
    EXPECT_EQ(lone, TreePath("/Chassis#0/Board#1/Fan#40").getComponent());
    EXPECT_EQ(nullptr, TreePath("/Chassis#0/Board#0/Fan#40").getComponent());
}

TEST_F(Path, RemembersItsEndWithoutLookingAtTheTree) {
    TreePath path("/Chassis#0/Board#1");
    EXPECT_EQ(at(4), path.getComponent());
    at(4)->deleteComponent();
    forgetRefresh();

    EXPECT_EQ(0, taken([&] { EXPECT_EQ(at(4), path.getComponent()); }));
    Components out;
    EXPECT_FALSE(path.getComponentList(out));
}

TEST_F(Path, RemembersTheComponentThatWasAddedLast) {
    TreePath path;
    path.add(at(6));
    EXPECT_EQ(at(6), path.getComponent());

    path.add(fan, 3); // changes nothing in what is remembered

    EXPECT_EQ(at(6), path.getComponent());
    path.add(at(5));
    EXPECT_EQ(at(5), path.getComponent());
}

TEST_F(Path, LooksAgainWhileItsEndIsNotThere) {
    TreePath path("/Chassis#0/Fan#0");
    EXPECT_EQ(nullptr, path.getComponent());

    Component* const late = TreeFixture::add(root, fan);

    EXPECT_EQ(late, path.getComponent());
}
