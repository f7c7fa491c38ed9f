// The logging road when malloc fails (failing_malloc.h replaces it in this program). A caller
// whose line block cannot be allocated loses that line, silently and counted, and nothing else
// on its side of the road allocates; logging goes on once memory is back.
#include <android/log.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "failing_malloc.h"
#include "fault_support.h"
#include "zolofflinelog.h"
#include "zoltest.h"
#include "zoltoolsdef.h"

namespace {

constexpr const char* kLogDir = "/data/vendor/camera/offlinelog";

// Counts Android log lines without allocating (a capturing logger would need memory).
std::atomic<int> g_androidLines{0};
void CountingLogger(const struct __android_logger_data*, const char*) {
    g_androidLines.fetch_add(1);
}

size_t CountContaining(const std::vector<std::string>& lines, const std::string& needle) {
    size_t n = 0;
    for (const std::string& line : lines) {
        n += line.find(needle) != std::string::npos;
    }
    return n;
}

class MallocFailure : public ::testing::Test {
protected:
    void SetUp() override {
        m_dir = m_root.MakeDir(kLogDir);
        __android_log_set_logger(CountingLogger);
        // The log object, its workers and its file exist before any allocation fails, and the
        // C library has loaded what it loads on first use (the time zone for the stamp).
        ZOLOfflineLog::ZOLOfflineLogI("first line, opens the file");
        ASSERT_TRUE(ZOLOfflineLog::GetInstance()->WaitForQueuedLines());
    }
    void TearDown() override {
        faults::SetFailAllocations(faults::FailAllocations::kNever);
        ZOLOfflineLog::GetInstance()->WaitForQueuedLines();
        __android_log_set_logger(__android_log_stderr_logger);
    }

    zoltest::DeviceRoot m_root;
    std::string m_dir;
};

TEST_F(MallocFailure, LineWhoseBlockCannotBeAllocatedIsDropped) {
    ZOLOfflineLog* log = ZOLOfflineLog::GetInstance();
    const int androidBefore = g_androidLines.load();

    faults::SetFailAllocations(faults::FailAllocations::kOnThisThread);
    ZOLDebugLogE("debug line while malloc fails %d", 1);
    ZOLOfflineLog::ZOLOfflineLogW("offline line while malloc fails %d", 2);
    ZOLOfflineLog::ZOLOfflineLogICapture("capture line while malloc fails %d", 3);
    const unsigned long failed = faults::SetFailAllocations(faults::FailAllocations::kNever);

    // One allocation was attempted per line, the line block; nothing else on the way.
    EXPECT_EQ(3u, failed);
    EXPECT_EQ(3u, log->DroppedLinesNoMemory());
    EXPECT_EQ(androidBefore + 1, g_androidLines.load()) << "the Android log line is still written";

    ZOLDebugLogE("debug line after %d", 4);
    ASSERT_TRUE(log->WaitForQueuedLines());
    const std::vector<std::string> lines = faults::ReadLines(m_dir);
    EXPECT_EQ(0u, CountContaining(lines, "while malloc fails"));
    EXPECT_EQ(1u, CountContaining(lines, " ZOL: debug line after 4"));
    EXPECT_EQ(3u, log->DroppedLinesNoMemory());
}

TEST_F(MallocFailure, ManyThreadsLoggingWhileEveryAllocationFails) {
    ZOLOfflineLog* log = ZOLOfflineLog::GetInstance();
    // The workers are idle (nothing is queued) and the callers allocate nothing that succeeds:
    // every line is dropped on its caller's side.
    faults::SetFailAllocations(faults::FailAllocations::kOnThisThread);
    for (int i = 0; i < 1000; ++i) {
        ZOLOfflineLog::ZOLOfflineLogD("line %d", i);
    }
    EXPECT_EQ(1000u, faults::SetFailAllocations(faults::FailAllocations::kNever));
    EXPECT_EQ(1000u, log->DroppedLinesNoMemory());
}

TEST_F(MallocFailure, WorkersThatCannotAllocateDoNotCrash) {
    ZOLOfflineLog* log = ZOLOfflineLog::GetInstance();
    // Lines reach the queue (this thread allocates their blocks) but the workers that write
    // them cannot allocate anything.
    faults::SetFailAllocations(faults::FailAllocations::kOnOtherThreads);
    for (int i = 0; i < 20; ++i) {
        ZOLOfflineLog::ZOLOfflineLogI("line %d written without memory", i);
    }
    ASSERT_TRUE(log->WaitForQueuedLines());
    faults::SetFailAllocations(faults::FailAllocations::kNever);
    EXPECT_EQ(20u, log->DroppedLinesNoFile()) << "a worker without memory drops its line";

    ZOLOfflineLog::ZOLOfflineLogI("last line");
    ASSERT_TRUE(log->WaitForQueuedLines());
    const std::vector<std::string> lines = faults::ReadLines(m_dir);
    EXPECT_EQ(1u, CountContaining(lines, " ZOL: last line"));
}

}  // namespace
