#include "Stores.h"

#include <qz/tavrel/Configuration.h>

#include <gtest/gtest.h>

#include <limits>
#include <sstream>

using namespace tavrel::test;

namespace {

/// A configuration whose body is any text.
class Text : public qz::tavrel::Configuration {
public:
    std::string text;
    int reads = 0;
    std::function<void()> beforeBody;

    std::istream& read(std::istream& stream) override {
        ++reads;
        if (beforeBody) {
            beforeBody();
        }
        std::ostringstream all;
        all << stream.rdbuf();
        text = all.str();
        return stream;
    }

    std::ostream& write(std::ostream& stream) override {
        if (beforeBody) {
            beforeBody();
        }
        return stream << text;
    }
};

[[noreturn]] void fail() {
    throw std::runtime_error("no");
}

using Calls = std::vector<std::string>;

class Configuration : public testing::Test {
protected:
    Configuration() {
        config.assign(&store, 7);
        config.addListener(&listener);
    }

    RecordingStore store;
    RecordingListener listener;
    Text config;
};

TEST_F(Configuration, StartsWithNothingLoaded) {
    Text fresh;

    EXPECT_EQ(-1, fresh.getRevision());
    EXPECT_EQ(0, fresh.getNextRevision());
    EXPECT_FALSE(fresh.isModified());
    EXPECT_EQ(nullptr, fresh.getResource());
    EXPECT_EQ(-1, fresh.getKey());
}

TEST_F(Configuration, KnowsItsStoreAndKey) {
    EXPECT_EQ(&store, config.getResource());
    EXPECT_EQ(7, config.getKey());
}

TEST_F(Configuration, LoadsNothingFromAnEmptyStore) {
    EXPECT_EQ(0U, config.load());

    EXPECT_EQ(-1, config.getRevision());
    EXPECT_EQ(0, config.reads);
    EXPECT_TRUE(listener.events.empty());
    EXPECT_EQ((Calls{"lock", "read 7 8", "unlock"}), store.calls);
}

TEST_F(Configuration, LoadsNothingFromFewerThanEightBytes) {
    store.values[7] = bigEndian({3}) + "abc";

    EXPECT_EQ(0U, config.load());

    EXPECT_EQ(-1, config.getRevision());
    EXPECT_EQ(0, config.reads);
    EXPECT_TRUE(listener.events.empty());
}

TEST_F(Configuration, LoadsNothingWhenTheStoreRaises) {
    store.values[7] = framed(3, "body");
    store.beforeRead = [](int) { fail(); };

    EXPECT_EQ(0U, config.load());

    EXPECT_EQ(-1, config.getRevision());
    EXPECT_EQ(0, store.depth);
}

TEST_F(Configuration, LoadsAStoredValueWithOneShortReadAndOneFullOne) {
    store.values[7] = framed(3, std::string(1000, 'x'));

    EXPECT_EQ(1008U, config.load());

    EXPECT_EQ(std::string(1000, 'x'), config.text);
    EXPECT_EQ(3, config.getRevision());
    EXPECT_EQ((Calls{"lock", "read 7 8", "read 7 1008", "unlock"}), store.calls);
}

TEST_F(Configuration, LoadsWithOneReadOnceItKnowsTheSize) {
    store.values[7] = framed(3, std::string(1000, 'x'));
    config.load();
    store.values[7] = framed(4, std::string(900, 'y'));
    store.calls.clear();

    EXPECT_EQ(908U, config.load());

    EXPECT_EQ(std::string(900, 'y'), config.text);
    EXPECT_EQ((Calls{"lock", "read 7 1008", "unlock"}), store.calls);
}

TEST_F(Configuration, RemembersTheSizeThatItHasSaved) {
    config.text = std::string(100, 'x');
    config.setModified(true);
    config.save();
    store.calls.clear();

    config.load();

    EXPECT_EQ((Calls{"lock", "read 7 108", "unlock"}), store.calls);
}

TEST_F(Configuration, LoadsNothingWhenItHoldsTheStoredRevision) {
    store.values[7] = framed(3, "body");
    config.load();
    store.values[7] = framed(3, "another");
    listener.events.clear();
    config.setModified(true);

    EXPECT_EQ(0U, config.load());

    EXPECT_EQ("body", config.text);
    EXPECT_EQ(1, config.reads);
    EXPECT_TRUE(config.isModified());
    EXPECT_TRUE(listener.events.empty());
}

TEST_F(Configuration, TakesTheRevisionOfAnEmptyBodyWithoutReadingIt) {
    store.values[7] = framed(5, "");
    config.text = "mine";
    config.setModified(true);

    EXPECT_EQ(8U, config.load());

    EXPECT_EQ(5, config.getRevision());
    EXPECT_FALSE(config.isModified());
    EXPECT_EQ(0, config.reads);
    EXPECT_EQ("mine", config.text);
    EXPECT_EQ(1U, listener.events.size());
}

TEST_F(Configuration, IgnoresWhatTheStoreHoldsBehindTheBody) {
    store.values[7] = framed(3, "body") + "rest of a longer one";

    EXPECT_EQ(12U, config.load());

    EXPECT_EQ("body", config.text);
}

TEST_F(Configuration, LoadsNothingWhenTheStoreHoldsLessThanTheBody) {
    store.values[7] = bigEndian({3, 100}) + "only this";
    config.text = "mine";

    EXPECT_EQ(0U, config.load());

    EXPECT_EQ("mine", config.text);
    EXPECT_EQ(-1, config.getRevision());
    EXPECT_EQ(0, config.reads);
    EXPECT_TRUE(listener.events.empty());
}

TEST_F(Configuration, LoadsNothingForALengthThatNoTreeNeeds) {
    for (const int length : {(64 << 20) + 1, std::numeric_limits<int>::max(), -1, -8}) {
        store.values[7] = bigEndian({3, length}) + "body";
        store.calls.clear();

        EXPECT_EQ(0U, config.load()) << length;

        EXPECT_EQ(-1, config.getRevision());
        EXPECT_EQ((Calls{"lock", "read 7 8", "unlock"}), store.calls) << "no second read";
    }
}

TEST_F(Configuration, LoadsTheLongestBody) {
    store.values[7] = framed(3, std::string(64 << 20, 'x'));

    EXPECT_EQ((64U << 20) + 8, config.load());

    EXPECT_EQ(64U << 20, config.text.size());
}

TEST_F(Configuration, TellsItsListenersOfALoadWhileTheStoreIsLocked) {
    store.values[7] = framed(3, "body");
    listener.also = [&] {
        EXPECT_EQ(1, store.depth);
        EXPECT_EQ(3, config.getRevision());
        EXPECT_EQ("body", config.text);
        EXPECT_FALSE(config.isModified());
    };
    config.setModified(true);

    config.load();

    ASSERT_EQ(1U, listener.events.size());
    EXPECT_EQ(&config, listener.events[0].first);
    EXPECT_EQ(0, listener.events[0].second);
    EXPECT_EQ(0, store.depth);
}

TEST_F(Configuration, UnlocksTheStoreWhenReadingRaises) {
    store.values[7] = framed(3, "body");
    config.beforeBody = fail;

    EXPECT_THROW(config.load(), std::runtime_error);

    EXPECT_EQ(0, store.depth);
    EXPECT_EQ(-1, config.getRevision()) << "so that the next load tries again";
}

TEST_F(Configuration, UnlocksTheStoreWhenAListenerRaises) {
    store.values[7] = framed(3, "body");
    listener.also = fail;

    EXPECT_THROW(config.load(), std::runtime_error);
    EXPECT_EQ(0, store.depth);

    config.setModified(true);
    EXPECT_THROW(config.save(), std::runtime_error);
    EXPECT_EQ(0, store.depth);
    EXPECT_EQ(framed(4, "body"), store.values[7]);
    EXPECT_EQ(4, config.getRevision()) << "it is what the store holds";
}

TEST_F(Configuration, SavesNothingWhenNothingIsModified) {
    EXPECT_EQ(0U, config.save());

    EXPECT_EQ(-1, config.getRevision());
    EXPECT_TRUE(store.calls.empty());
    EXPECT_TRUE(listener.events.empty());
}

TEST_F(Configuration, SavesRevisionLengthAndBody) {
    config.text = "body";
    config.setModified(true);

    EXPECT_EQ(12U, config.save());

    EXPECT_EQ(std::string("\0\0\0\0\0\0\0\4body", 12), store.values[7]);
    EXPECT_EQ(0, config.getRevision());
    EXPECT_FALSE(config.isModified());
    EXPECT_EQ((Calls{"lock", "write 7 12", "unlock"}), store.calls);
}

TEST_F(Configuration, SavesUnderTheNextRevision) {
    store.values[7] = framed(0x01020304, "body");
    config.load();
    config.setModified(true);

    config.save();

    EXPECT_EQ(std::string("\1\2\3\5\0\0\0\4body", 12), store.values[7]);
}

TEST_F(Configuration, WritesItsBodyBeforeItLocksTheStore) {
    config.beforeBody = [&] {
        EXPECT_EQ(0, store.depth);
        EXPECT_EQ(0, config.getRevision());
    };
    config.setModified(true);

    EXPECT_EQ(8U, config.save());
}

TEST_F(Configuration, TellsItsListenersOfASaveWhileTheStoreIsLocked) {
    listener.also = [&] {
        EXPECT_EQ(1, store.depth);
        EXPECT_EQ(0, config.getRevision());
        EXPECT_FALSE(config.isModified());
    };
    config.setModified(true);

    config.save();

    EXPECT_EQ(1U, listener.events.size());
}

TEST_F(Configuration, LosesASaveThatTheStoreRefuses) {
    store.values[7] = framed(3, "body");
    config.load();
    store.beforeWrite = [](int) { fail(); };
    config.setModified(true);

    EXPECT_EQ(0U, config.save());

    EXPECT_EQ(4, config.getRevision());
    EXPECT_FALSE(config.isModified());
    EXPECT_EQ(framed(3, "body"), store.values[7]);
    EXPECT_EQ(2U, listener.events.size());
}

TEST_F(Configuration, KeepsItsRevisionWhenWritingRaises) {
    store.values[7] = framed(3, "body");
    config.load();
    config.setModified(true);
    config.beforeBody = fail;

    EXPECT_THROW(config.save(), std::runtime_error);

    EXPECT_EQ(3, config.getRevision());
    EXPECT_TRUE(config.isModified());
    EXPECT_EQ(0, store.depth);
}

TEST_F(Configuration, KeepsItsRevisionWhenTheStoreCannotBeLocked) {
    config.setModified(true);
    store.beforeLock = fail;

    EXPECT_THROW(config.save(), std::runtime_error);
    EXPECT_THROW(config.load(), std::runtime_error);

    EXPECT_EQ(-1, config.getRevision());
    EXPECT_TRUE(config.isModified());
}

TEST_F(Configuration, GoesOnAtZeroBehindTheLargestRevision) {
    store.values[7] = framed(std::numeric_limits<int>::max(), "");
    config.load();
    EXPECT_EQ(0, config.getNextRevision());
    config.setModified(true);

    config.save();

    EXPECT_EQ(0, config.getRevision());
}

TEST_F(Configuration, GoesOnAtZeroBehindAnyNegativeRevision) {
    store.values[7] = framed(-5, "");
    config.load();

    EXPECT_EQ(-5, config.getRevision());
    EXPECT_EQ(0, config.getNextRevision());
}

TEST_F(Configuration, ReadsAndWritesBigEndianValues) {
    std::stringstream stream;

    config.writeValue(config.writeValue(stream, 0x01020304), -2);

    EXPECT_EQ(std::string("\1\2\3\4\xff\xff\xff\xfe", 8), stream.str());
    int first = 0;
    int second = 0;
    EXPECT_EQ(&stream, &config.readValue(stream, first));
    config.readValue(stream, second);
    EXPECT_EQ(0x01020304, first);
    EXPECT_EQ(-2, second);
}

TEST_F(Configuration, LeavesAValueAloneAtTheEndOfTheStream) {
    std::istringstream stream(std::string("\1\2\3", 3));
    int value = 77;

    config.readValue(stream, value);
    EXPECT_EQ(77, value);
    EXPECT_TRUE(stream.fail());

    config.readValue(stream, value);
    EXPECT_EQ(77, value);
}

TEST_F(Configuration, TellsListenersInTheOrderOfAddingAndOnceForEachTime) {
    std::vector<int> order;
    RecordingListener other;
    listener.also = [&] { order.push_back(1); };
    other.also = [&] { order.push_back(2); };
    config.addListener(&other);
    config.addListener(&listener);

    config.notify(42);

    EXPECT_EQ((std::vector<int>{1, 2, 1}), order);
    EXPECT_EQ(42, other.events[0].second);
    EXPECT_EQ(&config, other.events[0].first);
}

TEST_F(Configuration, TakesAListenerThatAnotherOneAddsWhileItIsTold) {
    RecordingListener added;
    listener.also = [&] {
        for (int i = 0; i < 20; ++i) { // so that the list has to move
            config.addListener(&added);
        }
        listener.also = nullptr;
    };

    config.notify(42);
    EXPECT_TRUE(added.events.empty()) << "it hears of the next event";
    config.notify(43);

    EXPECT_EQ(2U, listener.events.size());
    EXPECT_EQ(20U, added.events.size());
}

} // namespace
