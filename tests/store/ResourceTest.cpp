#include <qz/tavrel/Resource.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using qz::tavrel::Resource;

namespace {

/// Notes every method call as text, answers `result`, and raises when told to.
class NotingResource : public Resource {
public:
    std::vector<std::string> notes;
    unsigned int result = 7;
    bool raising = false;

    unsigned int readMethod(int key, int subkey, long offset, void* buffer, unsigned int size) override {
        return note("read", key, subkey, offset, buffer, size);
    }

    unsigned int writeMethod(int key, int subkey, long offset, const void* buffer,
                             unsigned int size) override {
        return note("write", key, subkey, offset, buffer, size);
    }

    void clearMethod(int key, int subkey) override { note("clear", key, subkey, 0, nullptr, 0); }

    std::string toString() override { return "NotingResource"; }
    void lock() override { notes.emplace_back("lock"); }
    void unlock() override { notes.emplace_back("unlock"); }
    void initialize(const std::string& /*name*/) override {}

    const void* given = nullptr;

private:
    unsigned int note(const char* what, int key, int subkey, long offset, const void* buffer,
                      unsigned int size) {
        given = buffer;
        notes.push_back(std::string(what) + ' ' + std::to_string(key) + ' ' + std::to_string(subkey) + ' ' +
                        std::to_string(offset) + ' ' + std::to_string(size));
        if (raising) {
            throw 42; // no standard exception: anything at all ends in the wrapper
        }
        return result;
    }
};

using Notes = std::vector<std::string>;

TEST(Resource, IsValidFromTheStart) {
    const NotingResource resource;

    EXPECT_TRUE(resource.isValid());
}

TEST(Resource, ReadsAtSubkeyAndOffset0WhenNeitherIsGiven) {
    NotingResource resource;
    char buffer[4];

    const unsigned int result = resource.read(5, buffer, 4);

    EXPECT_EQ(7U, result);
    EXPECT_EQ((Notes{"read 5 0 0 4"}), resource.notes);
    EXPECT_EQ(buffer, resource.given);
}

TEST(Resource, ReadsAtSubkey0WhenOnlyAnOffsetIsGiven) {
    NotingResource resource;
    char buffer[4];

    const unsigned int result = resource.read(5, 6L, buffer, 4);

    EXPECT_EQ(7U, result);
    EXPECT_EQ((Notes{"read 5 0 6 4"}), resource.notes);
    EXPECT_EQ(buffer, resource.given);
}

TEST(Resource, HandsAllArgumentsOfAReadOn) {
    NotingResource resource;
    char buffer[4];

    const unsigned int result = resource.read(5, -6, 7, buffer, 4);

    EXPECT_EQ(7U, result);
    EXPECT_EQ((Notes{"read 5 -6 7 4"}), resource.notes);
    EXPECT_EQ(buffer, resource.given);
}

TEST(Resource, WritesAtSubkeyAndOffset0WhenNeitherIsGiven) {
    NotingResource resource;
    const char buffer[4] = {};

    const unsigned int result = resource.write(5, buffer, 4);

    EXPECT_EQ(7U, result);
    EXPECT_EQ((Notes{"write 5 0 0 4"}), resource.notes);
    EXPECT_EQ(buffer, resource.given);
}

TEST(Resource, WritesAtSubkey0WhenOnlyAnOffsetIsGiven) {
    NotingResource resource;
    const char buffer[4] = {};

    const unsigned int result = resource.write(5, 6L, buffer, 4);

    EXPECT_EQ(7U, result);
    EXPECT_EQ((Notes{"write 5 0 6 4"}), resource.notes);
    EXPECT_EQ(buffer, resource.given);
}

TEST(Resource, HandsAllArgumentsOfAWriteOn) {
    NotingResource resource;
    const char buffer[4] = {};

    const unsigned int result = resource.write(-5, 6, 7, buffer, 4);

    EXPECT_EQ(7U, result);
    EXPECT_EQ((Notes{"write -5 6 7 4"}), resource.notes);
    EXPECT_EQ(buffer, resource.given);
}

TEST(Resource, HandsKeyAndSubkeyOfAClearOn) {
    NotingResource resource;

    resource.clear(5, 6);

    EXPECT_EQ((Notes{"clear 5 6 0 0"}), resource.notes);
}

TEST(Resource, TakesNoLockItself) {
    NotingResource resource;
    char buffer[1] = {};

    resource.read(1, buffer, 1);
    resource.write(1, buffer, 1);
    resource.clear(1, 1);

    EXPECT_EQ((Notes{"read 1 0 0 1", "write 1 0 0 1", "clear 1 1 0 0"}), resource.notes);
}

TEST(Resource, AnswersAnyExceptionOfAReadWith0AndIsInvalid) {
    NotingResource resource;
    resource.raising = true;
    char buffer[1];

    EXPECT_EQ(0U, resource.read(1, 2, 3, buffer, 1));
    EXPECT_FALSE(resource.isValid());
}

TEST(Resource, AnswersAnyExceptionOfAWriteWith0AndIsInvalid) {
    NotingResource resource;
    resource.raising = true;
    const char buffer[1] = {};

    EXPECT_EQ(0U, resource.write(1, 2, 3, buffer, 1));
    EXPECT_FALSE(resource.isValid());
}

TEST(Resource, SwallowsAnyExceptionOfAClearAndIsInvalid) {
    NotingResource resource;
    resource.raising = true;

    EXPECT_NO_THROW(resource.clear(1, 2));
    EXPECT_FALSE(resource.isValid());
}

TEST(Resource, IsValidAgainAfterTheNextGoodCallOfAnyKind) {
    NotingResource resource;
    char buffer[1] = {};
    const auto fail = [&] {
        resource.raising = true;
        resource.clear(1, 2);
        ASSERT_FALSE(resource.isValid());
        resource.raising = false;
    };

    fail();
    resource.read(1, buffer, 1);
    EXPECT_TRUE(resource.isValid());
    fail();
    resource.write(1, buffer, 1);
    EXPECT_TRUE(resource.isValid());
    fail();
    resource.clear(1, 2);
    EXPECT_TRUE(resource.isValid());
}

TEST(Resource, IsValidWhileAMethodRuns) {
    class Looking : public NotingResource {
    public:
        bool seen = false;
        unsigned int readMethod(int, int, long, void*, unsigned int) override {
            seen = isValid();
            return 0;
        }
    } resource;
    resource.raising = true;
    resource.clear(1, 2);
    char buffer[1];

    resource.read(1, buffer, 1);

    EXPECT_TRUE(resource.seen);
}

} // namespace
