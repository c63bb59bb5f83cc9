#include "build/BuilderTest.h"

#include <unistd.h>

#include <algorithm>

using namespace qz::tavrel;
using namespace tavrel::test;

namespace {

using Values = std::map<std::string, std::string>;

const Values defaults{
    {"tavrel.compo.ver", ""},
    {"tavrel.compo.max", "4096"},
    {"tavrel.compo.shared", "enable"},
    {"tavrel.compo.type", ""},
    {"tavrel.spec.compo", ""},
    {"tavrel.spec.action", ""},
    {"tavrel.spec.res", ""},
    {"tavrel.res.type", "VolatileDB"},
    {"tavrel.res.name", "tavrel.db"},
    {"tavrel.lock.provider", "TreePathLockProvider"},
    {"tavrel.lock.recursive", "disable"},
    {"tavrel.initializer", "disable"},
    {"tavrel.history", ""},
};

/// Shows the builder's properties through the copy that its lock provider gets.
class BuilderConfigTest : public BuilderTest {
protected:
    ~BuilderConfigTest() override { delete provider; }

    /// All properties; at most once a test.
    Values all() {
        builder->getLockProvider();
        return provider->all();
    }

    std::string value(const std::string& key) { return all()[key]; }
};

/// The configuration as a whole start hands it to the lock provider.
class BuilderLoadedConfigTest : public BuilderTest {};

TEST_F(BuilderConfigTest, HoldsThirteenKeysWithTheirDefaults) {
    EXPECT_EQ(defaults, all());
}

TEST_F(BuilderConfigTest, IsSetBackToTheDefaultsByInit) {
    makeFile(properties, "tavrel.compo.ver = 7\ntavrel.history = /tmp/history\n");
    builder->loadConfig(properties);

    builder->init();

    EXPECT_EQ(defaults, all());
}

TEST_F(BuilderConfigTest, TakesEachKnownKeyFromTheFile) {
    const Values wanted{
        {"tavrel.compo.ver", "1.2"},
        {"tavrel.compo.max", "12"},
        {"tavrel.compo.shared", "disable"},
        {"tavrel.compo.type", "Chassis"},
        {"tavrel.spec.compo", "/a/components"},
        {"tavrel.spec.action", "/a/actions"},
        {"tavrel.spec.res", "/a/redirections"},
        {"tavrel.res.type", "BMCRelationalDB"},
        {"tavrel.res.name", "main"},
        {"tavrel.lock.provider", "Provider"},
        {"tavrel.lock.recursive", "enable"},
        {"tavrel.initializer", "enable"},
        {"tavrel.history", "history"}, // no path key: taken as it is
    };
    std::string content;
    for (const auto& [key, value] : wanted) {
        content += key;
        content += " = ";
        content += value;
        content += '\n';
    }
    makeFile(properties, content);
    factory.makers["Provider"] = factory.makers["TreePathLockProvider"];

    builder->loadConfig(properties);

    EXPECT_EQ(wanted, all());
}

TEST_F(BuilderConfigTest, LeavesOutKeysThatItDoesNotHold) {
    makeFile(properties, "tavrel.spec.compo.cache = /tmp/mine\ntavrel.resolver = mine\nother = 1\n");

    builder->loadConfig(properties);

    EXPECT_EQ(defaults, all());
}

TEST_F(BuilderConfigTest, KeepsWhatItHasWhereTheFileHasAnEmptyValue) {
    makeFile(properties, "tavrel.compo.max =\ntavrel.res.type = \ntavrel.initializer =\t\n");

    builder->loadConfig(properties);

    EXPECT_EQ(defaults, all());
}

TEST_F(BuilderConfigTest, ShowsAFileThatCannotBeReadInTheKeysThatStayEmpty) {
    builder->loadConfig("/tmp/machine/absent");

    EXPECT_EQ(defaults, all());
}

TEST_F(BuilderConfigTest, LetsALaterFileReplaceTheValuesOfAnEarlierOne) {
    makeFile(properties, "tavrel.compo.ver = 1\ntavrel.compo.max = 5\n");
    makeFile("/tmp/machine/later", "tavrel.compo.ver = 2\n");

    builder->loadConfig(properties);
    builder->loadConfig("/tmp/machine/later");

    const Values found = all();
    EXPECT_EQ("2", found.at("tavrel.compo.ver"));
    EXPECT_EQ("5", found.at("tavrel.compo.max"));
}

TEST_F(BuilderConfigTest, TakesRelativePathsFromTheFoldersOfTheFile) {
    makeFile(properties, "tavrel.spec.compo = components\ntavrel.spec.action = sub/actions\n"
                         "tavrel.spec.res = ../redirections\n");

    builder->loadConfig(properties);

    const Values found = all();
    EXPECT_EQ("/tmp/machine/components", found.at("tavrel.spec.compo"));
    EXPECT_EQ("/tmp/machine/sub/actions", found.at("tavrel.spec.action"));
    EXPECT_EQ("/tmp/machine/../redirections", found.at("tavrel.spec.res"));
}

TEST_F(BuilderConfigTest, KeepsAbsolutePaths) {
    makeFile(properties,
             "tavrel.spec.compo = /x/components\ntavrel.spec.action = /actions\ntavrel.spec.res = /r\n");

    builder->loadConfig(properties);

    const Values found = all();
    EXPECT_EQ("/x/components", found.at("tavrel.spec.compo"));
    EXPECT_EQ("/actions", found.at("tavrel.spec.action"));
    EXPECT_EQ("/r", found.at("tavrel.spec.res"));
}

TEST_F(BuilderConfigTest, TakesPathsFromTheWorkingFolderForAFileWithoutOne) {
    makeFile(properties, "tavrel.spec.compo = components\n");
    ASSERT_EQ(0, chdir(folder));

    builder->loadConfig("properties");

    EXPECT_EQ("./components", value("tavrel.spec.compo"));
}

/// A properties file whose path has `length` characters, of which the last is the file's name, in a folder
/// whose name is as long as it takes.
std::string deepFile(std::size_t length) {
    std::string path = "/tmp";
    while (length - path.size() > 130) {
        path += "/" + std::string(99, 'd');
    }
    path += "/" + std::string(length - path.size() - 3, 'e');
    std::filesystem::create_directories(path);
    path += "/f";
    EXPECT_EQ(length, path.size());
    makeFile(path, "tavrel.spec.compo = components\n");
    return path;
}

TEST_F(BuilderConfigTest, UsesAllOfAPathOf512Characters) {
    const std::string path = deepFile(512);

    builder->loadConfig(path);

    EXPECT_EQ(path.substr(0, 510) + "/components", value("tavrel.spec.compo"));
}

TEST_F(BuilderConfigTest, LosesTheTailOfAPathOf513Characters) {
    const std::string path = deepFile(513);

    builder->loadConfig(path);

    // The last character is gone and with it the file's name: the folder stands for the file.
    EXPECT_EQ(std::filesystem::path(path).parent_path().parent_path().string() + "/components",
              value("tavrel.spec.compo"));
}

TEST_F(BuilderConfigTest, MakesOnePathAbsolute) {
    makeFile(properties, "tavrel.history = history\n");
    builder->loadConfig(properties);

    builder->modifyPath("tavrel.history", "/var/log");
    builder->modifyPath("tavrel.history", "/elsewhere"); // it is absolute by now

    EXPECT_EQ("/var/log/history", value("tavrel.history"));
}

TEST_F(BuilderConfigTest, LeavesAnEmptyPathEmpty) {
    builder->modifyPath("tavrel.spec.res", "/var");
    builder->modifyPath("tavrel.resolver", "/var");

    EXPECT_EQ(defaults, all());
}

TEST_F(BuilderLoadedConfigTest, KeepsTheLockTablePrivateByDefault) {
    specify("Chassis\n");

    builder->load(properties);

    EXPECT_EQ("disable", provider->value("tavrel.compo.shared"));
    EXPECT_EQ("", provider->value("tavrel.spec.action"));
}

TEST_F(BuilderLoadedConfigTest, SharesTheLockTableIfTheFileSaysSo) {
    specify("Chassis\n", "tavrel.compo.shared = enable\n");

    builder->load(properties);

    EXPECT_EQ("enable", provider->value("tavrel.compo.shared"));
}

TEST_F(BuilderLoadedConfigTest, SharesTheLockTableByDefaultWhenTheActionsAreNamed) {
    specify("Chassis\n", "tavrel.spec.action = absent\n");

    builder->load(properties, "");

    EXPECT_EQ("enable", provider->value("tavrel.compo.shared"));
}

TEST_F(BuilderLoadedConfigTest, KeepsTheLockTablePrivateIfTheFileSaysSo) {
    specify("Chassis\n", "tavrel.compo.shared = disable\n");

    builder->load(properties, "");

    EXPECT_EQ("disable", provider->value("tavrel.compo.shared"));
}

TEST_F(BuilderLoadedConfigTest, TakesTheNamedActionsAsTheyAreAndBeforeThoseOfTheFile) {
    specify("Chassis\n", "tavrel.spec.action = other\n");
    makeFile("/tmp/relative", "");
    ASSERT_EQ(0, chdir("/tmp"));

    builder->load(properties, "relative");

    EXPECT_EQ("relative", provider->value("tavrel.spec.action"));
}

TEST_F(BuilderLoadedConfigTest, HoldsTheNameOfTheCacheFromThenOn) {
    specify("Chassis\n", "tavrel.spec.compo.cache = /tmp/mine\n");

    builder->load(properties);

    EXPECT_EQ(cache, provider->value("tavrel.spec.compo.cache"));
    EXPECT_EQ(defaults.size() + 1, provider->all().size());
    EXPECT_FALSE(std::filesystem::exists("/tmp/mine"));
}

} // namespace
