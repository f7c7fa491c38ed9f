// Links against the installed libzoltools and uses a little of every kind of its API.
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "zolthreadcontextmanager.h"
#include "zolthreadpool.h"
#include "zoltoolsdef.h"

namespace {

std::atomic<int> g_ran{0};

void Task(void* arg, uint32_t size) {
    if (arg != nullptr && size == sizeof(int)) {
        g_ran += *static_cast<int*>(arg);
    }
}

}  // namespace

int main() {
    std::printf("log level %d\n", ZOLToolsLogLevel);

    ZOLThreadContext context{{1, 2, 3, 4, 5}};
    if (ZOLThreadContextManager::MapContextToThreadId(gettid(), &context) != 0) {
        return 1;
    }

    ZOLThreadPool pool;
    if (!pool.Init(2)) {
        return 1;
    }
    for (int i = 0; i < 10; ++i) {
        int* arg = static_cast<int*>(std::malloc(sizeof(int)));
        *arg = 1;
        {
            std::lock_guard<std::mutex> lock(pool.m_taskMutex);
            pool.m_taskList.push_back(
                {ZOLThreadPool::kCmdRun, Task, arg, sizeof(int), static_cast<uint32_t>(gettid())});
        }
        pool.m_taskCond.notify_one();
    }
    for (int i = 0; i < 500 && g_ran < 10; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    pool.DeInit();
    ZOL_LOGI("consumer ran %d tasks", g_ran.load());
    std::printf("consumer ran %d tasks\n", g_ran.load());
    return g_ran == 10 ? 0 : 1;
}
