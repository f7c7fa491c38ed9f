// A worker that cannot allocate while it writes a line (the file paths are strings) drops the
// line and counts it, instead of ending the process; writing resumes once memory is back. The
// program links the failing operator new, which fails on every thread but the test's while
// asked.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>

#include "failing_new.h"
#include "zolofflinelog.h"
#include "zoltest.h"

namespace {

std::atomic<bool> g_failOnOtherThreads{false};
std::atomic<pid_t> g_testThread{0};

}  // namespace

bool zoltest::AllocationFails() {
    return g_failOnOtherThreads && gettid() != g_testThread;
}

TEST(OfflineLogOutOfMemory, WorkerDropsTheLineItCannotWrite) {
    g_testThread = gettid();
    zoltest::DeviceRoot root;
    const std::string dir = root.MakeDir("/data/vendor/camera/offlinelog");
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
    const std::vector<zoltool::LogLine> lines = zoltest::ReadOfflineLog(dir);
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ("before", lines[0].message);
    EXPECT_EQ("after", lines[1].message);
}
