// The logging road when malloc fails on the caller's thread (failing_malloc.h replaces it in
// this program). A caller whose line block cannot be allocated loses that line, silently and
// counted, and nothing else on its side of the road allocates; logging goes on once memory is
// back. (Workers without memory: zolthreadpool_nomemory_test, zolofflinelog_nomemory_test.)
#include <android/log.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "failing_malloc.h"
#include "fault_support.h"
#include "zolofflinelog.h"
#include "zoltest.h"
#include "zoltoolsdef.h"

namespace {

// Counts Android log lines without allocating (a capturing logger would need memory).
std::atomic<int> g_androidLines{0};
void CountingLogger(const struct __android_logger_data*, const char*) {
    g_androidLines.fetch_add(1);
}

TEST(MallocFailure, LineWhoseBlockCannotBeAllocatedIsDroppedAndCounted) {
    zoltest::DeviceRoot root;
    const std::string dir = root.MakeDir(faults::kLogDir);
    __android_log_set_logger(CountingLogger);
    // The log object, its workers and its file exist before any allocation fails, and the C
    // library has loaded what it loads on first use (the time zone for the stamp).
    ZOLOfflineLog* log = ZOLOfflineLog::GetInstance();
    ZOLOfflineLog::ZOLOfflineLogI("first line, opens the file");
    ASSERT_TRUE(log->WaitForQueuedLines());

    faults::SetFailAllocations(faults::FailAllocations::kOnThisThread);
    ZOLDebugLogE("debug line while malloc fails %d", 1);
    ZOLOfflineLog::ZOLOfflineLogW("offline line while malloc fails %d", 2);
    ZOLOfflineLog::ZOLOfflineLogICapture("capture line while malloc fails %d", 3);
    for (int i = 0; i < 1000; ++i) {
        ZOLOfflineLog::ZOLOfflineLogD("line %d while malloc fails", i);
    }
    const unsigned long failed = faults::SetFailAllocations(faults::FailAllocations::kNever);
    // One allocation was attempted per line, the line block; nothing else on the way.
    EXPECT_EQ(1003u, failed);
    EXPECT_EQ(1003u, log->DroppedLinesNoMemory());
    EXPECT_EQ(1, g_androidLines.load()) << "the Android log line is still written";

    ZOLDebugLogE("debug line after %d", 4);
    ASSERT_TRUE(log->WaitForQueuedLines());
    size_t failing = 0;
    size_t after = 0;
    for (const std::string& line : faults::ReadLines(dir)) {
        failing += line.find("while malloc fails") != std::string::npos;
        after += line.find(" ZOL: debug line after 4") != std::string::npos;
    }
    EXPECT_EQ(0u, failing);
    EXPECT_EQ(1u, after);
    EXPECT_EQ(1003u, log->DroppedLinesNoMemory());
    __android_log_set_logger(__android_log_stderr_logger);
}

}  // namespace
