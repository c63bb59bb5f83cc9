#include "TreeTest.h"

#include <qz/tavrel/ComponentAccessor.h>
#include <qz/tavrel/QZException.h>

using namespace tavrel::test;
using namespace qz::tavrel;

namespace {

using Accessors = std::vector<ComponentAccessor>;

/// One operation with the check, and what it writes when it refuses: the trace id, and the words before id
/// and revision.
struct Checked {
    const char* name;
    unsigned long point;
    Words words;
    std::function<void(ComponentAccessor&)> run;
};

const std::vector<Checked>& checkedOperations() {
    static ComponentAccessor other;
    static const std::vector<Checked> all{
        {"setType", 0x20505, {71}, [](auto& a) { a.setType(71); }},
        {"getType", 0x20506, {}, [](auto& a) { a.getType(); }},
        {"setNumber", 0x20507, {72}, [](auto& a) { a.setNumber(72); }},
        {"getNumber", 0x20508, {}, [](auto& a) { a.getNumber(); }},
        {"getProperty", 0x20509, {73}, [](auto& a) { a.getProperty(73, nullptr, 0); }},
        {"setProperty", 0x2050a, {74}, [](auto& a) { a.setProperty(74, nullptr, 0); }},
        {"getPropertyKeys",
         0x2050b,
         {},
         [](auto& a) {
             Ids keys;
             a.getPropertyKeys(keys);
         }},
        {"getPropertySize", 0x2050c, {75}, [](auto& a) { a.getPropertySize(75); }},
        {"createComponent", 0x2050d, {76}, [](auto& a) { a.createComponent(76); }},
        {"deleteComponent", 0x2050e, {}, [](auto& a) { a.deleteComponent(); }},
        {"contains", 0x2050f, {}, [](auto& a) { a.contains(&other); }},
        {"getComponent",
         0x20510,
         {},
         [](auto& a) {
             Accessors out;
             a.getComponent(out, true);
         }},
        {"getComponent of a type",
         0x20511,
         {},
         [](auto& a) {
             Accessors out;
             a.getComponent(77, out);
         }},
        {"getComponent by number", 0x20512, {78, 79}, [](auto& a) { a.getComponent(78, 79); }},
        {"getFeatured",
         0x20513,
         {},
         [](auto& a) {
             Accessors out;
             a.getFeatured(80, out);
         }},
        {"findComponent",
         0x20514,
         {},
         [](auto& a) {
             Accessors out;
             a.findComponent(81, out, true);
         }},
        {"findFeatured",
         0x20515,
         {},
         [](auto& a) {
             Accessors out;
             a.findFeatured(82, out, true);
         }},
        {"getParent", 0x20516, {}, [](auto& a) { a.getParent(); }},
        {"getParents",
         0x20517,
         {},
         [](auto& a) {
             Accessors out;
             a.getParents(out);
         }},
        {"getParents of a type",
         0x20518,
         {},
         [](auto& a) {
             Accessors out;
             a.getParents(83, out);
         }},
        {"getTreePath",
         0x20519,
         {},
         [](auto& a) {
             TreePath path;
             a.getTreePath(path);
         }},
        {"doAction", 0x2051a, {84}, [](auto& a) { a.doAction(84, nullptr, 0, nullptr, 0); }},
        {"hasAction", 0x2051b, {85}, [](auto& a) { a.hasAction(85); }},
        {"getActionIds",
         0x2051c,
         {},
         [](auto& a) {
             Ids ids;
             a.getActionIds(ids);
         }},
    };
    return all;
}

const std::string dead = "FAULT at ComponentAccessor(LINE): evaluate() unavailable accessor.";
const std::string stale = "FAULT at ComponentAccessor(LINE): evaluate() revision mismatched.";

/// As they stand in a record: two words alone, or filled up to six.
Words filled(Words words) {
    if (words.size() > 2) {
        words.resize(6);
    }
    return words;
}

using AccessorRefusal = TreeTest;

} // namespace

TEST_F(AccessorRefusal, IsTracedAndRaisedAnewByEveryOperation) {
    for (const Checked& each : checkedOperations()) {
        SCOPED_TRACE(each.name);
        ComponentAccessor accessor(at(4));
        const int pinned = accessor.getRevision();
        const int found = changeElsewhere(4, board, 8);
        Words words = each.words;
        words.insert(words.end(), {4, pinned});
        const TraceCapture trace;

        EXPECT_EQ(stale, faultText([&] { each.run(accessor); }));

        ASSERT_EQ(3U, trace.all().size());
        EXPECT_EQ(0x2011aU, trace.all()[0].id) << "the component has taken the change over";
        EXPECT_EQ(0x20504U, trace.all()[1].id);
        EXPECT_EQ((Words{4, pinned, found, 0, 0, 0}), trace.all()[1].arguments());
        EXPECT_EQ(each.point, trace.all()[2].id);
        EXPECT_EQ(errorFlags, trace.all()[2].flags);
        EXPECT_EQ(filled(words), trace.all()[2].arguments());
    }
}

TEST_F(AccessorRefusal, IsRaisedAsAnUnavailableComponent) {
    for (const Checked& each : checkedOperations()) {
        SCOPED_TRACE(each.name);
        ComponentAccessor accessor(at(4));
        changeElsewhere(4, board, 8);

        EXPECT_THROW(each.run(accessor), UnavailableComponentException) << "stale";
        EXPECT_THROW(each.run(accessor), UnavailableComponentException) << "dead";
    }
}

TEST_F(AccessorRefusal, LeavesTheAccessorDeadForEveryOperation) {
    for (const Checked& each : checkedOperations()) {
        SCOPED_TRACE(each.name);
        ComponentAccessor accessor(at(4));
        const int pinned = accessor.getRevision();
        changeElsewhere(4, board, 8);
        faultText([&] { each.run(accessor); });
        Words words = each.words;
        words.insert(words.end(), {4, pinned});
        const TraceCapture trace;

        EXPECT_EQ(dead, faultText([&] { each.run(accessor); }));

        ASSERT_EQ(2U, trace.all().size());
        EXPECT_EQ(0x20503U, trace.all()[0].id);
        EXPECT_EQ(each.point, trace.all()[1].id);
        EXPECT_EQ(filled(words), trace.all()[1].arguments());
        EXPECT_FALSE(accessor.isAvailable());
    }
}

TEST_F(AccessorRefusal, NamesNoComponentWhenThereIsNone) {
    for (const Checked& each : checkedOperations()) {
        SCOPED_TRACE(each.name);
        ComponentAccessor nothing;
        Words words = each.words;
        words.insert(words.end(), {-1, -1});
        const TraceCapture trace;

        EXPECT_THROW(each.run(nothing), UnavailableComponentException);

        ASSERT_EQ(1U, trace.count(each.point));
        EXPECT_EQ(filled(words), trace.of(each.point)[0].arguments());
    }
}

TEST_F(AccessorRefusal, ChangesNothingInTheTree) {
    const auto nodes = store->values;
    ComponentAccessor accessor(at(4), 12345);

    for (const Checked& each : checkedOperations()) {
        SCOPED_TRACE(each.name);
        EXPECT_EQ(dead, faultText([&] { each.run(accessor); }));
    }

    EXPECT_EQ(nodes, store->values);
}

TEST_F(AccessorRefusal, NeverHappensWhileTheNodeIsUnchanged) {
    for (const Checked& each : checkedOperations()) {
        SCOPED_TRACE(each.name);
        ComponentAccessor accessor(at(4));
        const TraceCapture trace;

        EXPECT_EQ("nothing raised", faultText([&] { each.run(accessor); }));

        EXPECT_EQ(0U, trace.count(each.point));
        EXPECT_EQ(0U, trace.count(0x20504));
    }
}
