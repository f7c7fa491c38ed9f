// A worker that cannot allocate while it takes on the submitter's context still runs the task
// (without the context) instead of ending the process with an escaping std::bad_alloc. The
// program links the failing operator new, which fails on the workers while the test says so.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>

#include "failing_new.h"
#include "zolthreadcontextmanager.h"
#include "zolthreadpool.h"
#include "zoltest.h"

namespace {

std::atomic<bool> g_failOnWorkers{false};
std::atomic<pid_t> g_testThread{0};
std::atomic<int> g_ran{0};

void Count(void*, uint32_t) {
    ++g_ran;
}

}  // namespace

bool zoltest::AllocationFails() {
    return g_failOnWorkers && gettid() != g_testThread;
}

TEST(ThreadPoolOutOfMemory, TaskRunsWithoutTheContextItCouldNotRecord) {
    g_testThread = gettid();
    ZOLThreadContext context{};
    ASSERT_EQ(0, ZOLThreadContextManager::MapContextToThreadId(gettid(), &context));
    ZOLThreadPool pool;
    ASSERT_TRUE(pool.Init(2));
    g_failOnWorkers = true;
    for (int i = 0; i < 10; ++i) {
        {
            std::lock_guard<std::mutex> lock(pool.m_taskMutex);
            pool.m_taskList.push_back({0, &Count, malloc(8), 8, static_cast<uint32_t>(gettid())});
        }
        pool.m_taskCond.notify_one();
    }
    EXPECT_TRUE(zoltest::WaitUntil([] { return g_ran == 10; }, 60));
    g_failOnWorkers = false;
    pool.DeInit();
}
