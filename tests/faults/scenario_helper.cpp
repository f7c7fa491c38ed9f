// Whole processes for the scenario table: each scenario exits, forks, stops pools, runs on a
// small stack or throws, and checks what only it can see; a failed check prints "FAIL: <why>"
// and exits 1. The library's log lines go to stderr.
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

#include "zolbuffermanager.h"
#include "zolbufferutil.h"
#include "zolofflinelog.h"
#include "zolsignaltask.h"
#include "zolthreadpool.h"
#include "zoltest.h"
#include "zoltoolsdef.h"

namespace {

std::atomic<int> g_count{0};
ZOLThreadPool* g_pool = nullptr;

ZOLSignalTask* Loop() {
    return ZOLSignalTask::instance();
}

int Check(bool ok, const std::string& why) {
    if (!ok) {
        std::fprintf(stderr, "FAIL: %s\n", why.c_str());
    }
    return ok ? 0 : 1;
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

// Threads that never stop calling `body`; returns once each has been through it once.
int Spin(int threads, void (*body)(int thread)) {
    for (int t = 0; t < threads; ++t) {
        std::thread([t, body] {
            for (bool counted = false;; counted = true) {
                body(t);
                g_count += counted ? 0 : 1;
            }
        }).detach();
    }
    zoltest::WaitUntil([threads] { return g_count.load() >= threads; });
    return 0;  // the process exits with them inside
}

// The exit of a process whose signal task is busy: each task raises the next signal.
int Busy() {
    for (unsigned long id = 1; id <= 20; ++id) {
        Loop()->insert(id, Task([id] { Loop()->signal(id + 1); }));
    }
    for (unsigned long id : {1, 100, 101, 102}) {
        Loop()->signal(id);  // 100 and on: nothing registered, consumed
    }
    return 0;
}

// Signals 2 and 3 pending behind task 1, which holds the loop until the exit has taken them off
// the queue (seen through insert(id)'s count): neither may be served.
int Pending() {
    Loop()->insert(
        1, Task([] {
            zoltest::WaitUntil([] { return g_count.load() == 1; });
            zoltest::WaitUntil([] { return Loop()->insert(99) == 1; });  // 99: never registered
        }));
    Loop()->insert(2, Task([] {}));
    Loop()->insert(3, Task([] {}));
    for (unsigned long id : {1, 2, 3}) {
        Loop()->signal(id);
    }
    g_count = 1;
    return 0;
}

// Four threads register, signal and drop tasks as fast as they can (below stderr's pace).
int Callers() {
    ZOLToolsLogLevel = ZOL_LOG_THRESHOLD_D;
    return Spin(4, [](int t) {
        const unsigned long id = static_cast<unsigned long>(t);
        Loop()->insert(id, Task([] {}));
        Loop()->signal(id);
        static thread_local unsigned calls = 0;
        if (++calls % 16 == 0) {
            Loop()->disconnect(id);
        }
    });
}

// Eight threads allocate and free through a manager of their own and a shared one (never
// destroyed).
int Managers() {
    ZOLToolsLogLevel = 1;
    static ZOLBufferManager* const shared = new ZOLBufferManager("Shared");
    return Spin(8, [](int t) {
        static thread_local ZOLBufferManager own("Own");
        const ZOLBufferType type = t % 2 == 0 ? ZOL_BUFFER_TYPE_HEAP : ZOL_BUFFER_TYPE_DMA;
        for (ZOLBufferManager* manager : {&own, shared}) {
            ZOLImageBuffer image = {};
            image.width = image.height = image.planeStride = image.sliceHeight = 32;
            void* raw = nullptr;
            int fd = 0;
            manager->AllocBuffer(image, type);
            manager->AllocBuffer(4096, &raw, fd, type);
            manager->FreeBuffer(raw);
            manager->FreeBuffer(image);
        }
    });
}

// fork while `loggers` threads log. The child logs a line, waits for it to be written and
// returns from main; the parent checks its status and finds the line in a file, stamped with
// the child's process and thread ids.
int Fork(int loggers) {
    // At rest nothing allocates at the fork (an allocator that is not fork-safe, as some
    // sanitizers' are, could otherwise hang the child): the loop does not log below level I.
    ZOLToolsLogLevel = ZOL_LOG_THRESHOLD_D;
    ZOLOfflineLog::ZOLOfflineLogI("parent line");
    Loop()->signal(1);
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
        return Check(ZOLOfflineLog::GetInstance()->WaitForQueuedLines(), "child: not written");
    }
    g_count = 1;
    for (std::thread& thread : *threads) {
        thread.join();
    }
    int status = -1;
    waitpid(child, &status, 0);  // 0: it exited with 0
    const std::string about = "child (status " + std::to_string(status) + ") ";
    for (const zoltool::LogLine& line : zoltest::ReadOfflineLog(getenv("ZOL_DEVICE_ROOT"))) {
        if (line.message == "child line from " + std::to_string(child)) {
            return Check(status == 0 && line.pid == child && line.tid == child,
                         about + "stamped " + line.text);
        }
    }
    return Check(false, about + "line in no file");
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
            zoltest::WaitUntil([] { return g_count.load() > 2; });
        });
    }
    zoltest::WaitUntil([] { return g_count.load() == 2; });
    std::thread first([&] { pool.DeInit(); });
    zoltest::WaitUntil([&] {
        std::lock_guard<std::mutex> lock(pool.m_taskMutex);
        return pool.m_taskList.size() == 2;  // the two exit records
    });
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
    zoltest::WaitUntil([] { return g_count.load() == 0; });
    pool.DeInit();
    return Check(pool.m_workers.empty(), "workers left after DeInit");
}

// Dump and read back a 64x48 NV21 image, with stride padding and without.
void* DumpAndRead(void*) {
    const std::string path = "/tmp/zolfaults-stack-" + std::to_string(getpid());
    for (const uint32_t stride : {80u, 64u}) {
        zoltest::TestImage image(ZOL_IMAGE_FORMAT_YUV420SP, 64, 48, stride, stride * 48, 1);
        zoltest::TestImage back(ZOL_IMAGE_FORMAT_YUV420SP, 64, 48, stride, stride * 48, 2);
        g_count += ZOLBufferUtil::ZOLBufferDump(&image.buffer, path.c_str()) &&
                   ZOLBufferUtil::ZOLReadBuffer(&back.buffer, &std::string(path)[0]) &&
                   image.Rows(0, 48, 64) == back.Rows(0, 48, 64) &&
                   image.Rows(1, 24, 64) == back.Rows(1, 24, 64);
    }
    unlink(path.c_str());
    return nullptr;
}

int SmallStack() {
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstacksize(&attr, 16 * 1024);
    pthread_t thread;
    if (Check(pthread_create(&thread, &attr, DumpAndRead, nullptr) == 0, "no thread")) {
        return 1;
    }
    pthread_join(thread, nullptr);
    return Check(g_count.load() == 2, "read back differs from the dump");
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
        zoltest::WaitUntil([] { return g_count.load() == 1; });
    }
    WrapperTask after = Task([] {});
    Loop()->insert(1, Task(ThrowOnLoop));
    Loop()->insert(2, WrapperTask(after));
    Loop()->signal(1);
    Loop()->signal(2);
    zoltest::WaitUntil([&] { return after.done->load(); });
    const std::string pool = "WorkerCore() task " + zoltest::Address((void*)Throw);
    const std::string loop = "task 1 (function " + zoltest::Address((void*)ThrowOnLoop);
    return Check(
        log.Count(pool) == 1 && log.Count(loop) == 1 && log.Count(" threw an exception") == 2,
        "no line naming the task that threw");
}

const struct {
    const char* name;
    int (*run)();
} kScenarios[] = {
    {"idle", [] { return Check(ZOLSignalTask::instance() != nullptr, "no instance"); }},
    {"busy", Busy},
    {"pending", Pending},
    {"callers", Callers},
    {"managers", Managers},
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
    return Check(false, "no such scenario");
}
