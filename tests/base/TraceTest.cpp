#include "base/TracePoints.h"
#include "support/ChildProcess.h"
#include "support/TraceCapture.h"

#include <qz/tavrel/Logger.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <set>
#include <string>
#include <thread>

using namespace tavrel::test;

TEST(TracePoints, GiveEachIdAndEachPlaceOnce) {
    std::set<unsigned long> ids;
    std::set<std::string> events;

    for (const auto& point : qz::internal::tracePoints) {
        EXPECT_TRUE(ids.insert(point.id).second) << std::hex << point.id;
        events.insert(point.event);
    }

    EXPECT_GT(ids.size(), 200U);
}

TEST(QZTraceUtil, HoldsProcessIdThenThreadId) {
    const QZTraceUtil<int> here;

    EXPECT_EQ(getpid(), here.pid);
    EXPECT_EQ(gettid(), here.tid);
    EXPECT_EQ(static_cast<const void*>(&here), &here.pid);
    EXPECT_EQ(2 * sizeof(int), sizeof here);
}

TEST(QZTraceUtil, TellsThreadsApart) {
    const QZTraceUtil<int> here;
    int pid = 0;
    int tid = 0;

    std::thread([&] {
        const QZTraceUtil<int> there;
        pid = there.pid;
        tid = there.tid;
        EXPECT_EQ(gettid(), tid);
    }).join();

    EXPECT_EQ(here.pid, pid);
    EXPECT_NE(here.tid, tid);
}

TEST(QZTraceUtil, ForgetsItsIdsInAForkedChild) {
    const QZTraceUtil<int> before;

    ChildProcess child([&](Talk&) {
        const QZTraceUtil<int> here;
        return here.pid == getpid() && here.tid == gettid() && here.pid != before.pid ? 0 : 1;
    });

    EXPECT_EQ(0, child.wait());
}
