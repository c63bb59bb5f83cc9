#include "FileStore.h"
#include "support/ChildProcess.h"

#include <unistd.h>

#include <list>

using qz::tavrel::BMCRelationalDB;
using namespace tavrel::test;

namespace {

class FileStoreProcesses : public FileStore {
protected:
    FileStoreProcesses() { store.initialize("FRU"); }

    /// Lets another process work on the file from its opening to its end.
    static void elsewhere(const std::function<void(BMCRelationalDB&)>& work) {
        ChildProcess other([&](Talk&) {
            BMCRelationalDB opened;
            opened.initialize("FRU");
            work(opened);
            return 0;
        });
        EXPECT_EQ(0, other.wait());
    }

    BMCRelationalDB store;
};

TEST_F(FileStoreProcesses, FindWhatAnotherHasAppended) {
    store.setValue("a", "1");
    elsewhere([](BMCRelationalDB& other) { other.setValue("b", "2"); });
    const TraceCapture capture;

    EXPECT_EQ("2", valueOf(store, "b"));

    expectWords(capture, 0xA0302, debugFlags, {144, 80});
    EXPECT_EQ("1", valueOf(store, "a"));
    EXPECT_EQ(1U, capture.count(0xA0302));
}

TEST_F(FileStoreProcesses, AppendBehindWhatAnotherHasAppended) {
    store.setValue("a", "1");
    elsewhere([](BMCRelationalDB& other) { other.setValue("b", "2"); });
    const TraceCapture capture;

    store.setValue("c", "3");

    EXPECT_EQ(1U, capture.count(0xA0402));
    EXPECT_EQ((std::vector<std::string>{"a", "b", "c"}), liveKeysOf(fruPath));
}

TEST_F(FileStoreProcesses, SeeAChangeInPlaceAtOnce) {
    store.setValue("a", "1234");
    elsewhere([](BMCRelationalDB& other) { other.setValue("a", "5678"); });
    const TraceCapture capture;

    EXPECT_EQ("5678", valueOf(store, "a"));

    EXPECT_EQ(0U, capture.count(0xA0600));
}

TEST_F(FileStoreProcesses, FindAValueThatAnotherHasMadeLonger) {
    store.setValue("a", "1234");
    elsewhere([](BMCRelationalDB& other) { other.setValue("a", "12345"); });

    EXPECT_EQ("12345", valueOf(store, "a"));
}

TEST_F(FileStoreProcesses, FindAValueThatAnotherHasMovedByACompaction) {
    for (const char* key : {"a", "b", "c"}) {
        store.setValue(key, key);
    }
    const std::uint32_t end = nextOffsetOf(fruPath);
    elsewhere([](BMCRelationalDB& other) {
        other.setValue("a", "aa");
        other.setValue("a", "aaa");
        valueOf(other, "a");
    });
    ASSERT_EQ(end, nextOffsetOf(fruPath));
    ASSERT_EQ((std::vector<std::string>{"b", "c", "a"}), liveKeysOf(fruPath));
    const TraceCapture capture;

    EXPECT_EQ("b", valueOf(store, "b"));

    EXPECT_EQ(0U, capture.count(0xA0302));
    EXPECT_EQ(1U, capture.count(0xA0311));
    EXPECT_EQ("aaa", valueOf(store, "a"));
    EXPECT_EQ("c", valueOf(store, "c"));
}

TEST_F(FileStoreProcesses, KeepTheirViewsAfterAFork) {
    store.setValue("a", "1234");
    ChildProcess other([this](Talk&) {
        EXPECT_EQ("1234", valueOf(store, "a"));
        store.setValue("a", "from the child");
        return 0;
    });
    EXPECT_EQ(0, other.wait());

    EXPECT_EQ("from the child", valueOf(store, "a"));
}

TEST_F(FileStoreProcesses, WaitForOneThatIsInsideAWrite) {
    ChildProcess writer([](Talk& talk) {
        BMCRelationalDB opened;
        opened.initialize("FRU");
        bool told = false;
        kernel.msync = [&](void* start, std::size_t length, int flags) {
            if (!told) {
                told = true;
                talk.tell('i');
                talk.waitFor('g');
            }
            return real::msync(start, length, flags);
        };
        opened.setValue("a", "1234");
        return 0;
    });
    ASSERT_TRUE(writer.talk().waitFor('i'));
    ChildProcess reader([](Talk& talk) {
        BMCRelationalDB opened;
        talk.tell('b');
        opened.initialize("FRU");
        talk.tell('o');
        EXPECT_EQ("1234", valueOf(opened, "a"));
        return 0;
    });
    ASSERT_TRUE(reader.talk().waitFor('b'));

    EXPECT_FALSE(reader.talk().hasMark(100));

    writer.talk().tell('g');
    EXPECT_EQ(0, writer.wait());
    EXPECT_TRUE(reader.talk().waitFor('o'));
    EXPECT_EQ(0, reader.wait());
}

TEST_F(FileStoreProcesses, AllSucceedWhenTheyStartAtTheSameMoment) {
    unlink(setupPath);
    constexpr int count = 8;
    std::list<ChildProcess> starters;
    for (int i = 0; i < count; ++i) {
        starters.emplace_back([i](Talk& talk) {
            talk.tell('r');
            talk.waitFor('g');
            BMCRelationalDB opened;
            opened.initialize("SETUP");
            opened.setValue(std::to_string(i), "started");
            return 0;
        });
    }
    for (ChildProcess& each : starters) {
        ASSERT_TRUE(each.talk().waitFor('r'));
    }

    for (ChildProcess& each : starters) {
        each.talk().tell('g');
    }

    for (ChildProcess& each : starters) {
        EXPECT_EQ(0, each.wait());
    }
    EXPECT_EQ(setupSize, bytesOf(setupPath).size());
    for (int i = 0; i < count; ++i) {
        EXPECT_EQ("started", freshValue("SETUP", std::to_string(i)));
    }
}

} // namespace
