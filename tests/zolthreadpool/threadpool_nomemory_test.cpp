// A worker that cannot allocate while it takes on the submitter's context still runs the task
// (without the context) instead of ending the process with an escaping std::bad_alloc. This
// program links the failing operator new (tests/common/failing_new.cpp) so that it fails on the
// workers while the test says so.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "failing_new.h"
#include "zolthreadcontextmanager.h"
#include "zolthreadpool.h"

namespace {

std::atomic<bool> g_failOnWorkers{false};
std::atomic<pid_t> g_testThread{0};

}  // namespace

bool zoltest::AllocationFails() {
    return g_failOnWorkers.load() && gettid() != g_testThread.load();
}

namespace {

std::atomic<int> g_ran{0};

void Count(void*, uint32_t) {
    g_ran.fetch_add(1);
}

TEST(ThreadPoolOutOfMemory, TaskRunsWithoutTheContextItCouldNotRecord) {
    g_testThread = gettid();
    ZOLThreadContext context{};
    ASSERT_EQ(0, ZOLThreadContextManager::MapContextToThreadId(static_cast<unsigned>(gettid()),
                                                               &context));
    ZOLThreadPool pool;
    ASSERT_TRUE(pool.Init(2));
    g_failOnWorkers = true;
    for (int i = 0; i < 10; ++i) {
        ZOLThreadPoolTask task{ZOLThreadPool::kCmdRun, &Count, std::malloc(8), 8,
                               static_cast<uint32_t>(gettid())};
        {
            std::lock_guard<std::mutex> lock(pool.m_taskMutex);
            pool.m_taskList.push_back(task);
        }
        pool.m_taskCond.notify_one();
    }
    for (int i = 0; i < 60000 && g_ran.load() < 10; ++i) {
        usleep(1000);
    }
    g_failOnWorkers = false;
    EXPECT_EQ(10, g_ran.load());
    pool.DeInit();
}

}  // namespace
