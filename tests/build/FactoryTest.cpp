#include "support/FaultText.h"
#include "support/TraceCapture.h"

#include <qz/tavrel/Action.h>
#include <qz/tavrel/AddComponent.h>
#include <qz/tavrel/BMCRelationalDB.h>
#include <qz/tavrel/ControlTarget.h>
#include <qz/tavrel/Factory.h>
#include <qz/tavrel/Initializer.h>
#include <qz/tavrel/NameResolver.h>
#include <qz/tavrel/PrintMessage.h>
#include <qz/tavrel/PropertyLocator.h>
#include <qz/tavrel/SemLockProvider.h>
#include <qz/tavrel/ShareComponent.h>
#include <qz/tavrel/Sleep.h>
#include <qz/tavrel/Specification.h>
#include <qz/tavrel/TreePathLockProvider.h>

#include <gtest/gtest.h>

#include <memory>
#include <typeinfo>

using namespace qz::tavrel;
using namespace tavrel::test;

namespace {

/// True if `name` makes a `Made` that can be used as a `Used`.
template <typename Made, typename Used = Made>
bool makes(const std::string& name) {
    Factory factory;
    const std::unique_ptr<Used> made(static_cast<Used*>(factory.createInstance(name)));
    const Used& object = *made;
    return typeid(object) == typeid(Made);
}

std::string refusal(const std::string& name) {
    Factory factory;
    return faultText([&] { factory.createInstance(name); });
}

constexpr const char* refused = "FAULT at Factory(LINE): createInstance() invalid args";

TEST(Factory, MakesEachClassByItsName) {
    EXPECT_TRUE((makes<ActionList, Action>("ActionList")));
    EXPECT_TRUE((makes<AddComponent, Action>("AddComponent")));
    EXPECT_TRUE((makes<ShareComponent, Action>("ShareComponent")));
    EXPECT_TRUE((makes<ControlTarget, Action>("ControlTarget")));
    EXPECT_TRUE((makes<ControlComponents, Action>("ControlComponents")));
    EXPECT_TRUE((makes<ControlOnComponents, Action>("ControlOnComponents")));
    EXPECT_TRUE((makes<ControlSubset, Action>("ControlSubset")));
    EXPECT_TRUE((makes<Sleep, Action>("Sleep")));
    EXPECT_TRUE((makes<PrintMessage, Action>("PrintMessage")));
    EXPECT_TRUE((makes<TreePathLockProvider, ComponentLockProvider>("TreePathLockProvider")));
    EXPECT_TRUE((makes<SemLockProvider, ComponentLockProvider>("SemLockProvider")));
    EXPECT_TRUE((makes<BMCRelationalDB, Resource>("BMCRelationalDB")));
    EXPECT_TRUE(makes<PropertyLocator>("PropertyLocator"));
    EXPECT_TRUE(makes<NameResolver>("NameResolver"));
    EXPECT_TRUE(makes<Specification>("Specification"));
    EXPECT_TRUE(makes<Initializer>("Initializer"));
}

TEST(Factory, MakesAnObjectForEachCaller) {
    Factory factory;

    const std::unique_ptr<NameResolver> first(
        static_cast<NameResolver*>(factory.createInstance("NameResolver")));
    const std::unique_ptr<NameResolver> second(
        static_cast<NameResolver*>(factory.createInstance("NameResolver")));

    EXPECT_NE(first, second);
}

TEST(Factory, RefusesNamesThatItDoesNotKnow) {
    for (const char* const name :
         {"", "VolatileDB", "NullAction", "Unknown", "ActionList ", "qz::tavrel::ActionList"}) {
        EXPECT_EQ(refused, refusal(name)) << name;
    }
}

TEST(Factory, TellsUpperFromLowerCase) {
    for (const char* const name :
         {"actionlist", "Actionlist", "controlTarget", "NAMERESOLVER", "initializer"}) {
        EXPECT_EQ(refused, refusal(name)) << name;
    }
}

TEST(Factory, TracesANameThatItDoesNotKnow) {
    const TraceCapture capture;

    refusal("VolatileDB");

    ASSERT_EQ(1U, capture.all().size());
    EXPECT_EQ(0x10001U, capture.all().front().id);
    EXPECT_EQ(debug2Flags, capture.all().front().flags);
    EXPECT_EQ("VolatileDB", capture.all().front().text());
}

TEST(Factory, TracesNothingOfANameThatItKnows) {
    const TraceCapture capture;

    EXPECT_TRUE(makes<Initializer>("Initializer"));

    EXPECT_EQ(0U, capture.count(0x10001));
}

TEST(Factory, LetsAClientAddNamesAndTakeNamesOver) {
    class OwnNames : public NameResolver {};
    class OwnFactory : public Factory {
    public:
        void* createInstance(const std::string& name) override {
            if (name == "NameResolver") {
                return static_cast<NameResolver*>(new OwnNames);
            }
            if (name == "Volatile") {
                return static_cast<Resource*>(new BMCRelationalDB);
            }
            return Factory::createInstance(name);
        }
    };
    const std::unique_ptr<Factory> factory = std::make_unique<OwnFactory>();

    const std::unique_ptr<NameResolver> names(
        static_cast<NameResolver*>(factory->createInstance("NameResolver")));
    const std::unique_ptr<Resource> store(static_cast<Resource*>(factory->createInstance("Volatile")));
    const std::unique_ptr<Initializer> passedOn(
        static_cast<Initializer*>(factory->createInstance("Initializer")));

    EXPECT_NE(nullptr, dynamic_cast<OwnNames*>(names.get()));
    EXPECT_EQ("BMCRelationalDB", store->toString());
    EXPECT_NE(nullptr, passedOn);
    EXPECT_EQ(refused, faultText([&] { factory->createInstance("Other"); }));
}

} // namespace
