// Whole processes for the scenario test: each scenario exits, forks, stops pools or runs on a
// small stack, and checks what only it can see; a failed check prints "FAIL: <why>" and exits 1.
// The library's log lines go to stderr.
//
//   faults_scenario_helper idle|busy|pending|callers|fork|fork-loaded|pool-stop|small-stack|throw
#include <android/log.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "fault_support.h"
#include "zolbufferutil.h"
#include "zolofflinelog.h"
#include "zolsignaltask.h"
#include "zolthreadpool.h"
#include "zoltest.h"
#include "zoltoolsdef.h"

namespace {

std::atomic<int> g_count{0};
ZOLThreadPool* g_pool = nullptr;

int Fail(const std::string& why) {
    std::fprintf(stderr, "FAIL: %s\n", why.c_str());
    return 1;
}

template <typename F>
void WaitUntil(F done) {
    while (!done()) {
        usleep(200);
    }
}

WrapperTask Task(std::function<void()> work) {
    WrapperTask task;
    task.task = std::move(work);
    return task;
}

void Submit(void (*func)(void*, uint32_t), void* arg = nullptr, uint32_t size = 0) {
    {
        std::lock_guard<std::mutex> lock(g_pool->m_taskMutex);
        g_pool->m_taskList.push_back({ZOLThreadPool::kCmdRun, func, arg, size, 0});
    }
    g_pool->m_taskCond.notify_one();
}

// The exit of a process whose signal task is busy: each task raises the next signal.
int Busy() {
    ZOLSignalTask* loop = ZOLSignalTask::instance();
    for (unsigned long id = 1; id <= 20; ++id) {
        loop->insert(id, Task([loop, id] { loop->signal(id + 1); }));
    }
    loop->signal(1);
    for (unsigned long id = 100; id < 110; ++id) {
        loop->signal(id);  // nothing registered: consumed
    }
    return 0;
}

// Signals 2 and 3 pending behind task 1, which holds the loop until the exit has taken them off
// the queue (seen through insert(id)'s count): neither may be served.
int Pending() {
    ZOLSignalTask* loop = ZOLSignalTask::instance();
    loop->insert(1, Task([loop] {
                     WaitUntil([] { return g_count.load() == 1; });
                     while (loop->insert(99) != 1) {  // 99: never registered
                         usleep(1000);
                     }
                 }));
    loop->insert(2, Task([] {}));
    loop->insert(3, Task([] {}));
    for (unsigned long id : {1, 2, 3}) {
        loop->signal(id);
    }
    g_count = 1;
    return 0;
}

// Four threads are still inside the signal task while the process exits.
int Callers() {
    ZOLToolsLogLevel = ZOL_LOG_THRESHOLD_D;  // as fast as they can, not as fast as stderr takes
    ZOLSignalTask* loop = ZOLSignalTask::instance();
    for (unsigned long t = 0; t < 4; ++t) {
        std::thread([loop, t] {
            for (unsigned long i = 0;; ++i) {
                loop->insert(t, Task([] {}));
                loop->signal(t);
                if (i % 16 == 0) {
                    loop->disconnect(t);
                }
            }
        }).detach();
    }
    usleep(2000);
    return 0;
}

// fork while `loggers` threads log. The child logs a line, waits for it to be written and
// returns from main; the parent checks the child's status and finds the line in a file,
// stamped with the child's process and thread ids.
int Fork(int loggers) {
    // At rest nothing allocates at the fork (an allocator that is not fork-safe, as some
    // sanitizers' are, could otherwise hang the child): the loop does not log below level I.
    ZOLToolsLogLevel = ZOL_LOG_THRESHOLD_D;
    ZOLOfflineLog::ZOLOfflineLogI("parent line");
    ZOLSignalTask::instance()->signal(1);
    ZOLOfflineLog::GetInstance()->WaitForQueuedLines();
    static auto* threads = new std::vector<std::thread>();  // not destroyed by the child
    for (int i = 0; i < loggers; ++i) {
        threads->emplace_back([] {
            while (g_count.load() == 0) {
                ZOLOfflineLog::ZOLOfflineLogD("parent logger");
                usleep(20);
            }
        });
    }
    usleep(loggers > 0 ? 2000 : 50000);  // the loggers run; the workers finish the drain
    const pid_t child = fork();
    if (child == 0) {
        ZOLOfflineLog::ZOLOfflineLogI("child line from %d", getpid());
        return ZOLOfflineLog::GetInstance()->WaitForQueuedLines() ? 0 : Fail("child: not written");
    }
    g_count = 1;
    for (std::thread& thread : *threads) {
        thread.join();
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        return Fail("child ended with status " + std::to_string(status));
    }
    for (const std::string& line :
         faults::ReadLines(std::string(getenv("ZOL_DEVICE_ROOT")) + faults::kLogDir)) {
        int pid = 0;
        int tid = 0;
        int from = 0;
        if (std::sscanf(line.c_str(), "%*s %*s %d %d I ZOL: child line from %d", &pid, &tid,
                        &from) == 3 &&
            from == child) {
            return pid == child && tid == child ? 0 : Fail("stamped " + line);
        }
    }
    return Fail("the child's line is in no file");
}

size_t ExitRecords() {
    std::lock_guard<std::mutex> lock(g_pool->m_taskMutex);
    size_t n = 0;
    for (const ZOLThreadPoolTask& task : g_pool->m_taskList) {
        n += task.cmd == ZOLThreadPool::kCmdExit;
    }
    return n;
}

// DeInit, a second DeInit and a FlushTask at once while the exit records wait behind two
// blocked tasks; then a task that stops its own pool. Every call returns.
int PoolStop() {
    ZOLThreadPool pool;
    g_pool = &pool;
    pool.Init(2);
    for (int i = 0; i < 2; ++i) {
        Submit([](void*, uint32_t) {
            ++g_count;
            WaitUntil([] { return g_count.load() > 2; });
        });
    }
    WaitUntil([] { return g_count.load() == 2; });
    std::thread first([&] { pool.DeInit(); });
    WaitUntil([] { return ExitRecords() == 2; });
    std::thread second([&] { pool.DeInit(); });
    pool.FlushTask();
    g_count = 3;
    first.join();
    second.join();
    pool.Init(2);
    Submit([](void*, uint32_t) {
        g_pool->DeInit();
        g_count = 0;
    });
    WaitUntil([] { return g_count.load() == 0; });
    pool.DeInit();
    return pool.m_workers.empty() ? 0 : Fail("workers left after DeInit");
}

// Dump and read back an NV21 image on a 16 KiB thread stack, with stride padding and without.
void* DumpAndRead(void*) {
    const std::string path = "/tmp/zolfaults-stack-" + std::to_string(getpid());
    for (const uint32_t stride : {80u, 64u}) {
        std::vector<unsigned char> planes[4];
        for (std::vector<unsigned char>& plane : planes) {
            plane.assign(stride * 48, 0);
        }
        for (uint32_t i = 0; i < 48 * 64; ++i) {  // the payload; padding is not in the file
            planes[0][i / 64 * stride + i % 64] = static_cast<unsigned char>(i * 7);
            planes[1][i / 128 * stride + i % 64] = static_cast<unsigned char>(i * 13);
        }
        ZOLImageBuffer image = {};
        image.width = 64;
        image.height = 48;
        image.planeStride = stride;
        ZOLImageBuffer back = image;
        image.Addr[0] = planes[0].data();
        image.Addr[1] = planes[1].data();
        back.Addr[0] = planes[2].data();
        back.Addr[1] = planes[3].data();
        g_count += ZOLBufferUtil::ZOLBufferDump(&image, path.c_str()) &&
                   ZOLBufferUtil::ZOLReadBuffer(&back, &std::string(path)[0]) &&
                   planes[0] == planes[2] && planes[1] == planes[3];
    }
    unlink(path.c_str());
    return nullptr;
}

int SmallStack() {
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstacksize(&attr, 16 * 1024);
    pthread_t thread;
    if (pthread_create(&thread, &attr, DumpAndRead, nullptr) != 0) {
        return Fail("no thread");
    }
    pthread_join(thread, nullptr);
    return g_count.load() == 2 ? 0 : Fail("read back differs from the dump");
}

// A pool task and a signal task that throw: each is logged with its function and the next task
// runs. The pool task's block must be freed (a leak fails the sanitizer build).
void Throw(void*, uint32_t) {
    throw std::runtime_error("pool task");
}
void ThrowOnLoop() {
    throw 1;
}

int Throwing() {
    zoltest::LogCapture log;
    {
        ZOLThreadPool pool;
        g_pool = &pool;
        pool.Init(1);
        Submit(Throw, malloc(16), 16);
        Submit([](void*, uint32_t) { g_count = 1; });
        WaitUntil([] { return g_count.load() == 1; });
    }
    WrapperTask after = Task([] {});
    ZOLSignalTask::instance()->insert(1, Task(ThrowOnLoop));
    ZOLSignalTask::instance()->insert(2, WrapperTask(after));
    ZOLSignalTask::instance()->signal(1);
    ZOLSignalTask::instance()->signal(2);
    WaitUntil([&] { return after.done->load(); });
    const auto named = [&](const std::string& task, void* function) {
        return log.Count(task + zoltest::Address(function)) == 1;
    };
    return named("WorkerCore() task ", reinterpret_cast<void*>(Throw)) &&
                   named("task 1 (function ", reinterpret_cast<void*>(ThrowOnLoop)) &&
                   log.Count(" threw an exception") == 2
               ? 0
               : Fail("no line naming the task that threw");
}

const struct {
    const char* name;
    int (*run)();
} kScenarios[] = {
    {"idle", [] { return ZOLSignalTask::instance() != nullptr ? 0 : 1; }},
    {"busy", Busy},
    {"pending", Pending},
    {"callers", Callers},
    {"fork", [] { return Fork(0); }},
    {"fork-loaded", [] { return Fork(8); }},
    {"pool-stop", PoolStop},
    {"small-stack", SmallStack},
    {"throw", Throwing},
};

}  // namespace

int main(int argc, char** argv) {
    __android_log_set_logger(__android_log_stderr_logger);
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    for (const auto& scenario : kScenarios) {
        if (argc == 2 && std::string(argv[1]) == scenario.name) {
            return scenario.run();  // returning from main: the exit handlers run
        }
    }
    return Fail("no such scenario");
}
