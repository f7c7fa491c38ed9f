// A worker that cannot allocate while it writes a line (the file paths are strings) drops the
// line and counts it, instead of ending the process; writing resumes once memory is back. This
// program links the failing operator new (tests/common/failing_new.cpp) so that it fails on every
// thread but the test's while asked.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include <string>

#include "failing_new.h"
#include "offlinelog_test_support.h"
#include "zolofflinelog.h"

namespace {

std::atomic<bool> g_failOnOtherThreads{false};
std::atomic<pid_t> g_testThread{0};

}  // namespace

bool zoltest::AllocationFails() {
    return g_failOnOtherThreads.load() && gettid() != g_testThread.load();
}

namespace {

TEST(OfflineLogOutOfMemory, WorkerDropsTheLineItCannotWrite) {
    g_testThread = gettid();
    offlinelogtest::LogRoot root;
    ZOLOfflineLog* log = ZOLOfflineLog::GetInstance();
    ZOLOfflineLog::ZOLOfflineLogI("before");
    ASSERT_TRUE(log->WaitForQueuedLines());

    g_failOnOtherThreads = true;
    for (int i = 0; i < 10; ++i) {
        ZOLOfflineLog::ZOLOfflineLogI("lost %d", i);
    }
    ASSERT_TRUE(log->WaitForQueuedLines());
    g_failOnOtherThreads = false;
    EXPECT_EQ(10u, log->DroppedLinesNoFile());

    ZOLOfflineLog::ZOLOfflineLogI("after");
    ASSERT_TRUE(log->WaitForQueuedLines());
    const std::string text = root.ReadAll();
    EXPECT_NE(std::string::npos, text.find(" ZOL: before\n"));
    EXPECT_NE(std::string::npos, text.find(" ZOL: after\n"));
    EXPECT_EQ(std::string::npos, text.find(" ZOL: lost "));
}

}  // namespace
