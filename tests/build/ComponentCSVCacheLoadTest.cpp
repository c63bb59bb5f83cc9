#include "build/CacheBytes.h"
#include "build/Files.h"
#include "support/ChildProcess.h"
#include "support/FaultText.h"
#include "support/TraceCapture.h"

#include <qz/tavrel/ComponentCSVCache.h>
#include <qz/tavrel/NameResolver.h>
#include <qz/tavrel/Specification.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

using namespace qz::tavrel;
using namespace tavrel::test;

namespace {

constexpr unsigned long openFailed = 0x90107;
constexpr unsigned long mapFailed = 0x90108;
constexpr unsigned long loadFailed = 0x90109;
constexpr const char* cacheFile = "/tmp/cache";

CacheBytes goodCache() {
    CacheBytes bytes;
    bytes.header();
    bytes.compo(0, 2, 1, 1, 1, 2)
        .property(1, 300, 4)
        .subcompo(2, 3, 4)
        .action(3, 7)
        .feature(4, 5)
        .feature(5, 6);
    bytes.compo(2, 3);
    bytes.compo(6, 0);
    return bytes.end().names({"Chassis", "SETUP", "Fan", "Reset", "Hot", "Cold", "NullComponent"});
}

bool loads(const std::string& content) {
    makeFile(cacheFile, content);
    ComponentCSVCache cache;
    return cache.load(cacheFile);
}

/// The text of the one record that a load of this content leaves, with process, thread and line replaced.
std::string reason(const std::string& content) {
    const TraceCapture capture;
    EXPECT_FALSE(loads(content));
    const auto records = capture.all();
    if (records.size() != 1 || records[0].id != loadFailed || records[0].flags != debugFlags) {
        return "not one record of a bad cache";
    }
    char prefix[40];
    std::snprintf(prefix, sizeof prefix, "[%5d.%5d] ", getpid(), gettid());
    EXPECT_EQ(0U, records[0].text().find(prefix));
    return std::regex_replace(records[0].text().substr(std::string(prefix).size()),
                              std::regex("Builder\\([0-9]+\\)"), "Builder(LINE)");
}

const std::string outOfRange =
    "ComponentCSVCache::load() error. FAULT at Builder(LINE): forward_pointer() out of range.";

/// Expects a load to fail with one record of the system's error.
void expectSystemError(const std::string& path, unsigned long id, int error) {
    ComponentCSVCache cache;
    const TraceCapture capture;

    EXPECT_FALSE(cache.load(path));

    ASSERT_EQ(1U, capture.all().size());
    const TraceRecord record = capture.all().front();
    EXPECT_EQ(id, record.id);
    EXPECT_EQ(debugFlags, record.flags);
    const std::vector<std::uint32_t> words{static_cast<std::uint32_t>(getpid()),
                                           static_cast<std::uint32_t>(gettid()),
                                           static_cast<std::uint32_t>(error), 0};
    EXPECT_EQ(words, record.words());
}

TEST(ComponentCSVCacheLoad, TakesAGoodFileInSilence) {
    const TraceCapture capture;

    EXPECT_TRUE(loads(goodCache().bytes()));

    EXPECT_TRUE(capture.all().empty());
}

TEST(ComponentCSVCacheLoad, TakesAFileWithoutTypes) {
    EXPECT_TRUE(loads(CacheBytes().header().end().names({}).bytes()));
}

TEST(ComponentCSVCacheLoad, RefusesAMissingFile) {
    expectSystemError("/tmp/missing", openFailed, ENOENT);
}

TEST(ComponentCSVCacheLoad, RefusesAnEmptyFile) {
    makeFile(cacheFile, "");

    expectSystemError(cacheFile, mapFailed, EINVAL);
}

TEST(ComponentCSVCacheLoad, RefusesAFolder) {
    expectSystemError("/tmp", mapFailed, ENODEV);
}

TEST(ComponentCSVCacheLoad, RefusesAForeignFile) {
    const std::string wrongMagic =
        "ComponentCSVCache::load() error. FAULT at Builder(LINE): load() invalid magic.";

    EXPECT_EQ(wrongMagic, reason("COMP" + goodCache().bytes().substr(4)));
    EXPECT_EQ(wrongMagic, reason("PMOD" + goodCache().bytes().substr(4)));
    EXPECT_EQ(wrongMagic, reason(std::string(100, '\0')));
}

TEST(ComponentCSVCacheLoad, RefusesAnotherVersion) {
    const std::string wrongVersion =
        "ComponentCSVCache::load() error. FAULT at Builder(LINE): load() different version.";

    EXPECT_EQ(wrongVersion, reason(CacheBytes().header(0x00010002).end().names({}).bytes()));
    EXPECT_EQ(wrongVersion, reason(CacheBytes().header(0x01000100).end().names({}).bytes()));
}

TEST(ComponentCSVCacheLoad, RefusesAFileThatIsCutAnywhereBeforeItsStrings) {
    const std::string whole = goodCache().bytes();
    const std::size_t strings = whole.find(std::string("Chassis\0SETUP", 13));
    ASSERT_NE(std::string::npos, strings);

    for (std::size_t size = 1; size < strings; ++size) {
        EXPECT_EQ(outOfRange, reason(whole.substr(0, size))) << size;
    }
}

TEST(ComponentCSVCacheLoad, TakesAFileThatIsCutInItsStrings) {
    const std::string whole = goodCache().bytes();
    const std::size_t strings = whole.find(std::string("Chassis\0SETUP", 13));

    for (std::size_t size = strings; size < whole.size(); ++size) {
        EXPECT_TRUE(loads(whole.substr(0, size))) << size;
    }
}

TEST(ComponentCSVCacheLoad, RefusesHeaderAndEndMarkWithoutANameTable) {
    EXPECT_EQ(outOfRange, reason(CacheBytes().header().end().bytes()));
}

TEST(ComponentCSVCacheLoad, RefusesAFileWithoutAnEndMark) {
    EXPECT_EQ(outOfRange, reason(CacheBytes().header().compo(0, 2).compo(0, 3).bytes()));
}

TEST(ComponentCSVCacheLoad, RefusesCountsThatRunPastTheEnd) {
    const std::string rest = CacheBytes().end().names({"Fan"}).bytes();

    EXPECT_EQ(outOfRange, reason(CacheBytes().header().compo(0, 2, 65535, 0, 0, 0).raw(rest).bytes()));
    EXPECT_EQ(outOfRange, reason(CacheBytes().header().compo(0, 2, 0, 65535, 0, 0).raw(rest).bytes()));
    EXPECT_EQ(outOfRange, reason(CacheBytes().header().compo(0, 2, 0, 0, 65535, 0).raw(rest).bytes()));
    EXPECT_EQ(outOfRange, reason(CacheBytes().header().compo(0, 2, 0, 0, 0, 65535).raw(rest).bytes()));
}

TEST(ComponentCSVCacheLoad, RefusesACountOfNamesThatRunsPastTheEnd) {
    // The last three times four wrap in 32 bits, to 0, to 4 and to the place where the count stands.
    for (const std::uint32_t count : {2U, 0x7fffffffU, 0x80000000U, 0xffffffffU, 0x40000000U, 0x40000001U}) {
        EXPECT_EQ(outOfRange, reason(CacheBytes().header().end().word(count).word(0).bytes())) << count;
    }
}

TEST(ComponentCSVCacheLoad, TakesAGoodFileAfterABadOne) {
    ComponentCSVCache cache;
    makeFile(cacheFile, CacheBytes().header().compo(0, 2).bytes());
    EXPECT_FALSE(cache.load(cacheFile));
    makeFile(cacheFile, goodCache().bytes());

    EXPECT_TRUE(cache.load(cacheFile));
}

TEST(ComponentCSVCacheLoad, TakesAGoodFileAgain) {
    makeFile(cacheFile, goodCache().bytes());
    ComponentCSVCache cache;

    EXPECT_TRUE(cache.load(cacheFile));
    EXPECT_TRUE(cache.load(cacheFile));
    EXPECT_FALSE(cache.load("/tmp/missing"));
}

/// How often this process has the cache file mapped.
int mappings() {
    std::ifstream maps("/proc/self/maps");
    int found = 0;
    for (std::string line; std::getline(maps, line);) {
        found += line.ends_with(" " + std::string(cacheFile)) ? 1 : 0;
    }
    return found;
}

TEST(ComponentCSVCacheLoad, KeepsOneMappingUntilItsEnd) {
    makeFile(cacheFile, goodCache().bytes());
    {
        ComponentCSVCache cache;
        cache.load(cacheFile);
        EXPECT_EQ(1, mappings());

        cache.load(cacheFile);
        EXPECT_EQ(1, mappings()) << "the one before is gone";
    }

    EXPECT_EQ(0, mappings());
}

TEST(ComponentCSVCacheLoad, KeepsNoMappingOfABadFile) {
    makeFile(cacheFile, goodCache().bytes());
    ComponentCSVCache cache;
    cache.load(cacheFile);
    makeFile(cacheFile, CacheBytes().header().compo(0, 2).bytes());

    EXPECT_FALSE(cache.load(cacheFile));

    EXPECT_EQ(0, mappings());
}

TEST(ComponentCSVCacheLoad, KeepsNoDescriptor) {
    makeFile(cacheFile, goodCache().bytes());
    const int before = dup(0);
    close(before);
    ComponentCSVCache cache;

    cache.load(cacheFile);

    const int after = dup(0);
    close(after);
    EXPECT_EQ(before, after);
}

TEST(ComponentCSVCacheLoad, RefusesWhatADeadWriterHasLeft) {
    class Halting : public NameResolver {
    public:
        explicit Halting(Talk& its) : talk(its) {}
        int getActionId(const std::string&) override {
            talk.tell('h');
            talk.waitFor('g');
            return 1;
        }

    private:
        Talk& talk;
    };
    makeFile("/tmp/spec", "Board\nfeature,Hot\n\nFan\naction,Reset\n");
    ChildProcess child([](Talk& talk) {
        Specification specification;
        specification.load("/tmp/spec");
        Halting resolver(talk);
        return ComponentCSVCacheSave(&specification, &resolver).save(cacheFile) ? 0 : 1;
    });
    ASSERT_TRUE(child.talk().waitFor('h'));

    child.kill();
    ComponentCSVCache cache;

    EXPECT_EQ(0, access(cacheFile, F_OK));
    EXPECT_FALSE(cache.load(cacheFile));
    Specification specification;
    specification.load("/tmp/spec");
    NameResolver resolver;
    EXPECT_TRUE(ComponentCSVCacheSave(&specification, &resolver).save(cacheFile));
    EXPECT_TRUE(cache.load(cacheFile));
}

template <typename T>
class ForwardPointer : public testing::Test {};

using Records = testing::Types<file_header_t, compo_spec_t, property_spec_t, subcompo_spec_t, action_spec_t,
                               feature_spec_t, unsigned int>;
TYPED_TEST_SUITE(ForwardPointer, Records);

TYPED_TEST(ForwardPointer, StepsOverRecordsUpToTheEnd) {
    alignas(8) std::array<unsigned char, 64> bytes{};
    unsigned char* cursor = bytes.data();
    unsigned char* const end = bytes.data() + 3 * sizeof(TypeParam);
    TypeParam* records = nullptr;

    forward_pointer(&cursor, end, &records, 1);

    EXPECT_EQ(static_cast<void*>(bytes.data()), records);
    EXPECT_EQ(bytes.data() + sizeof(TypeParam), cursor);

    forward_pointer(&cursor, end, &records, 2);

    EXPECT_EQ(static_cast<void*>(bytes.data() + sizeof(TypeParam)), records);
    EXPECT_EQ(end, cursor);

    forward_pointer(&cursor, end, &records, 0);

    EXPECT_EQ(static_cast<void*>(end), records);
    EXPECT_EQ(end, cursor);
}

TYPED_TEST(ForwardPointer, RefusesRecordsThatEndBehindTheEnd) {
    alignas(8) std::array<unsigned char, 64> bytes{};
    unsigned char* const begin = bytes.data();
    unsigned char* const end = begin + 2 * sizeof(TypeParam);

    for (const int count : {3, 0x7fffffff, 0x40000000, 0x20000000, 0x10000000, -1, -2, -0x7fffffff - 1}) {
        unsigned char* cursor = begin;
        TypeParam* records = nullptr;
        EXPECT_EQ("FAULT at Builder(LINE): forward_pointer() out of range",
                  faultText([&] { forward_pointer(&cursor, end, &records, count); }))
            << count;
        EXPECT_EQ(begin, cursor);
    }
    unsigned char* cursor = begin;
    TypeParam* records = nullptr;
    EXPECT_EQ("FAULT at Builder(LINE): forward_pointer() out of range",
              faultText([&] { forward_pointer(&cursor, end - 1, &records, 2); }));
    EXPECT_EQ("FAULT at Builder(LINE): forward_pointer() out of range",
              faultText([&] { forward_pointer(&cursor, begin - 1, &records, 0); }));
}

} // namespace
