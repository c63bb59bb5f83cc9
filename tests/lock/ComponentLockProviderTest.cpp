#include "support/RecordingProvider.h"

#include <qz/tavrel/ComponentLockProvider.h>

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

using qz::tavrel::ComponentLockProvider;
using qz::tavrel::EventListener;
using qz::util::config::CppProperties;

namespace {

/// Overrides what a provider must, counts its configurations and shows its properties.
class PlainProvider : public tavrel::test::RecordingProvider {
public:
    void configure() override { ++configured; }

    CppProperties& properties() { return configuration; }
    std::string get(const std::string& key) { return configuration.getProperty(key); }

    int configured = 0;
};

std::vector<std::string> keysOf(const CppProperties& properties) {
    std::vector<std::string> keys;
    properties.getKeys(keys);
    return keys;
}

static_assert(std::is_base_of_v<EventListener, ComponentLockProvider>);
static_assert(std::is_abstract_v<ComponentLockProvider>);
static_assert(std::has_virtual_destructor_v<ComponentLockProvider>);

TEST(ComponentLockProvider, ConfiguresWhenTheTreeHasChanged) {
    PlainProvider provider;

    provider.update(nullptr, 0);
    provider.update(&provider, 0);

    EXPECT_EQ(2, provider.configured);
}

TEST(ComponentLockProvider, IgnoresEveryOtherEvent) {
    PlainProvider provider;

    provider.update(&provider, 1);
    provider.update(nullptr, -1);

    EXPECT_EQ(0, provider.configured);
}

TEST(ComponentLockProvider, SetsOneKeyOfItsConfiguration) {
    PlainProvider provider;

    provider.setConfiguration("tavrel.compo.max", "8");
    provider.setConfiguration("tavrel.compo.shared", "enable");
    provider.setConfiguration("tavrel.compo.max", "16");

    EXPECT_EQ("16", provider.get("tavrel.compo.max"));
    EXPECT_EQ("enable", provider.get("tavrel.compo.shared"));
    EXPECT_EQ("", provider.get("tavrel.lock.provider"));
}

TEST(ComponentLockProvider, ReplacesItsConfigurationByACopy) {
    PlainProvider provider;
    provider.setConfiguration("old", "1");
    CppProperties inFileOrder(true);
    inFileOrder.setProperty("b", "2");
    inFileOrder.setProperty("a", "3");

    provider.setConfigurations(inFileOrder);
    inFileOrder.setProperty("b", "changed");

    EXPECT_EQ("", provider.get("old"));
    EXPECT_EQ("2", provider.get("b"));
    EXPECT_EQ((std::vector<std::string>{"b", "a"}), keysOf(provider.properties())) << "its options too";
}

TEST(ComponentLockProvider, KeepsItsConfigurationWhenItIsGivenItsOwn) {
    PlainProvider provider;
    provider.setConfiguration("a", "1");
    provider.setConfiguration("b", "2");

    provider.setConfigurations(provider.properties());

    EXPECT_EQ((std::vector<std::string>{"a", "b"}), keysOf(provider.properties()));
    EXPECT_EQ("1", provider.get("a"));
    EXPECT_EQ("2", provider.get("b"));
}

TEST(ComponentLockProvider, PrintsNothingAndLeavesTheStreamAlone) {
    PlainProvider provider;
    std::ostringstream stream;
    stream.setf(std::ios::hex, std::ios::basefield);
    const auto flags = stream.flags();

    testing::internal::CaptureStdout();
    provider.write(stream);

    EXPECT_EQ("", testing::internal::GetCapturedStdout());
    EXPECT_EQ("", stream.str());
    EXPECT_TRUE(stream.good());
    EXPECT_EQ(flags, stream.flags());
}

TEST(ComponentLockProvider, HasASetupThatDoesNothing) {
    PlainProvider provider;
    provider.setConfiguration("a", "1");

    provider.setup();

    EXPECT_EQ(0, provider.configured);
    EXPECT_TRUE(provider.calls.empty());
    EXPECT_EQ("1", provider.get("a"));
}

} // namespace
