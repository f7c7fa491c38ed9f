// A worker that cannot allocate while it writes a line (the file paths are strings) drops the
// line and counts it, instead of ending the process; writing resumes once memory is back. This
// program replaces operator new so that it fails on every thread but the test's while asked.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <string>

#include "offlinelog_test_support.h"
#include "zolofflinelog.h"

namespace {

std::atomic<bool> g_failOnOtherThreads{false};
std::atomic<pid_t> g_testThread{0};

bool FailHere() {
    return g_failOnOtherThreads.load() && gettid() != g_testThread.load();
}

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

// Every form of new and delete is replaced, so that each block is allocated and freed by the
// same pair whichever form the code uses (the sanitizers check that).
void* operator new(std::size_t size) {
    void* p = FailHere() ? nullptr : std::malloc(size == 0 ? 1 : size);
    if (p == nullptr) {
        throw std::bad_alloc();
    }
    return p;
}

void* operator new[](std::size_t size) {
    return operator new(size);
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return FailHere() ? nullptr : std::malloc(size == 0 ? 1 : size);
}

void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept {
    return operator new(size, tag);
}

// GCC takes the free() in a replacement operator delete for a mismatched pair; it is the
// counterpart of the malloc() in operator new above.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

void operator delete(void* p) noexcept {
    std::free(p);
}

void operator delete[](void* p) noexcept {
    std::free(p);
}

void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}

void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}

void operator delete(void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}

void operator delete[](void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
