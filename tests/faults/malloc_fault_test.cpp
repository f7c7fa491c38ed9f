// The logging road when malloc fails on the caller's thread: malloc, calloc and realloc are
// replaced in this program and forward to the C library's own (__libc_malloc ...) unless told
// to fail (sanitizer builds replace malloc themselves: there this program is not built). A
// caller whose line block cannot be allocated loses that line, silently and counted, and
// nothing else on its side of the road allocates; logging goes on once memory is back. Raw
// files are written and read without the heap too.
#include <android/log.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <vector>

#include "zolbufferutil.h"
#include "zolofflinelog.h"
#include "zoltest.h"
#include "zoltoolsdef.h"

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
}

namespace {

thread_local bool t_failing = false;  // set on the test's thread only
std::atomic<unsigned long> g_failed{0};

bool ShouldFail() {
    if (!t_failing) {
        return false;
    }
    g_failed.fetch_add(1);
    errno = ENOMEM;
    return true;
}

// Counts Android log lines without allocating (a capturing logger would need memory).
std::atomic<int> g_androidLines{0};
void CountingLogger(const struct __android_logger_data*, const char*) {
    g_androidLines.fetch_add(1);
}

TEST(MallocFailure, LineWhoseBlockCannotBeAllocatedIsDroppedAndCounted) {
    zoltest::DeviceRoot root;
    const std::string dir = root.MakeDir("/data/vendor/camera/offlinelog");
    __android_log_set_logger(CountingLogger);
    // The log object, its workers and its file exist before any allocation fails, and the C
    // library has loaded what it loads on first use (the time zone for the stamp).
    ZOLOfflineLog* log = ZOLOfflineLog::GetInstance();
    ZOLOfflineLog::ZOLOfflineLogI("first line, opens the file");
    ASSERT_TRUE(log->WaitForQueuedLines());

    t_failing = true;
    ZOLDebugLogE("debug line while malloc fails %d", 1);
    ZOLOfflineLog::ZOLOfflineLogW("offline line while malloc fails %d", 2);
    ZOLOfflineLog::ZOLOfflineLogICapture("capture line while malloc fails %d", 3);
    for (int i = 0; i < 1000; ++i) {
        ZOLOfflineLog::ZOLOfflineLogD("line %d while malloc fails", i);
    }
    t_failing = false;
    // One allocation was attempted per line, the line block; nothing else on the way.
    EXPECT_EQ(1003u, g_failed.load());
    EXPECT_EQ(1003u, log->DroppedLinesNoMemory());
    EXPECT_EQ(1, g_androidLines.load()) << "the Android log line is still written";

    ZOLDebugLogE("debug line after %d", 4);
    ASSERT_TRUE(log->WaitForQueuedLines());
    std::vector<std::string> written;
    for (const zoltool::LogLine& line : zoltest::ReadOfflineLog(dir)) {
        written.push_back(line.message);
    }
    EXPECT_EQ((std::vector<std::string>{"first line, opens the file", "debug line after 4"}),
              written);
}

// Without memory for their lists of rows, dump and read-back still move every row, a few dozen
// a system call from a list on the stack.
TEST(MallocFailure, DumpAndReadBackWithoutTheHeapMoveEveryRow) {
    zoltest::TempDir dir;
    std::string path = dir / "frame";
    zoltest::TestImage image(ZOL_IMAGE_FORMAT_YUV420SP, 64, 400, 80, 80 * 400, 1);
    zoltest::TestImage back(ZOL_IMAGE_FORMAT_YUV420SP, 64, 400, 80, 80 * 400, 2);
    t_failing = true;
    const bool done = ZOLBufferUtil::ZOLBufferDump(&image.buffer, path.c_str()) &&
                      ZOLBufferUtil::ZOLReadBuffer(&back.buffer, &path[0]);
    t_failing = false;
    EXPECT_TRUE(done);
    EXPECT_LT(0u, g_failed.load()) << "the lists of rows were asked for";
    EXPECT_EQ(image.Rows(0, 400, 64) + image.Rows(1, 200, 64),
              back.Rows(0, 400, 64) + back.Rows(1, 200, 64));
}

}  // namespace

extern "C" void* malloc(size_t size) {
    return ShouldFail() ? nullptr : __libc_malloc(size);
}

extern "C" void* calloc(size_t count, size_t size) {
    return ShouldFail() ? nullptr : __libc_calloc(count, size);
}

extern "C" void* realloc(void* block, size_t size) {
    return ShouldFail() ? nullptr : __libc_realloc(block, size);
}
