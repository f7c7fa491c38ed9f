// Whole processes that exit, fork, stop pools, run on small stacks or throw. Each row runs many
// times, each run a child (this program again) that runs the row's scenario and returns from the
// test and from main: the exit handlers run with the scenario's threads at work. Every run must
// end by itself within a minute with status 0, its output (the library logs to stderr) holding
// the lines listed, in that order, and none of the lines refused.
#include <android/log.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
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

constexpr const char* kChild = "ZOL_FAULTS_SCENARIO_CHILD";  // in a run's environment
std::atomic<int> g_count{0};
ZOLThreadPool* g_pool = nullptr;

ZOLSignalTask* Loop() {
    return ZOLSignalTask::instance();
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

// Threads that never stop calling `body`, each through it once before the process exits.
void Spin(int threads, void (*body)(int thread)) {
    for (int t = 0; t < threads; ++t) {
        std::thread([t, body] {
            for (bool counted = false;; counted = true) {
                body(t);
                g_count += counted ? 0 : 1;
            }
        }).detach();
    }
    zoltest::WaitUntil([threads] { return g_count.load() >= threads; });
}

// The exit of a process whose signal task is busy: each task raises the next signal.
void Busy() {
    for (unsigned long id = 1; id <= 20; ++id) {
        Loop()->insert(id, Task([id] { Loop()->signal(id + 1); }));
    }
    for (unsigned long id : {1, 100, 101, 102}) {
        Loop()->signal(id);  // 100 and on: nothing registered, consumed
    }
}

// Signals 2 and 3 pending behind task 1, which holds the loop until the exit has taken them off
// the queue (seen through insert(id)'s count): neither may be served.
void Pending() {
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
}

// Four threads register, signal and drop tasks as fast as they can (below stderr's pace).
void Callers() {
    ZOLToolsLogLevel = ZOL_LOG_THRESHOLD_D;
    Spin(4, [](int t) {
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
void Managers() {
    ZOLToolsLogLevel = ZOL_LOG_THRESHOLD_E;
    static ZOLBufferManager* const shared = new ZOLBufferManager("Shared");
    Spin(8, [](int t) {
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
// returns (from main too); the parent checks its status and finds the line in a file, stamped
// with the child's process and thread ids.
void LogAndFork(int loggers) {
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
        EXPECT_TRUE(ZOLOfflineLog::GetInstance()->WaitForQueuedLines()) << "in the child";
        return;
    }
    g_count = 1;
    for (std::thread& thread : *threads) {
        thread.join();
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(0, status) << "the child's";
    for (const zoltool::LogLine& line : zoltest::ReadOfflineLog(getenv("ZOL_DEVICE_ROOT"))) {
        if (line.message == "child line from " + std::to_string(child)) {
            EXPECT_TRUE(line.pid == child && line.tid == child) << line.text;
            return;
        }
    }
    ADD_FAILURE() << "the child's line is in no file";
}

// DeInit, a second DeInit and a FlushTask at once while the exit records wait behind two
// blocked tasks; then a task that stops its own pool. Every call returns.
void PoolStop() {
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
    EXPECT_TRUE(pool.m_workers.empty());
}

// Dump and read back a 64x1400 NV21 image (2,100 rows: more than one system call takes), with
// stride padding and without.
void* DumpAndRead(void*) {
    const std::string path = "/tmp/zolfaults-stack-" + std::to_string(getpid());
    constexpr uint32_t h = 1400;
    for (const uint32_t stride : {80u, 64u}) {
        zoltest::TestImage image(ZOL_IMAGE_FORMAT_YUV420SP, 64, h, stride, stride * h, 1);
        zoltest::TestImage back(ZOL_IMAGE_FORMAT_YUV420SP, 64, h, stride, stride * h, 2);
        g_count += ZOLBufferUtil::ZOLBufferDump(&image.buffer, path.c_str()) &&
                   ZOLBufferUtil::ZOLReadBuffer(&back.buffer, &std::string(path)[0]) &&
                   image.Rows(0, h, 64) == back.Rows(0, h, 64) &&
                   image.Rows(1, h / 2, 64) == back.Rows(1, h / 2, 64);
    }
    unlink(path.c_str());
    return nullptr;
}

void SmallStack() {
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstacksize(&attr, 16 * 1024);
    pthread_t thread;
    ASSERT_EQ(0, pthread_create(&thread, &attr, DumpAndRead, nullptr));
    pthread_join(thread, nullptr);
    EXPECT_EQ(2, g_count.load()) << "images read back as dumped";
}

// A pool task and a signal task that throw: each is logged with its function and the next task
// runs. The pool task's block must be freed (a leak fails the sanitizer build).
void Throw(void*, uint32_t) {
    throw std::runtime_error("pool task");
}
void ThrowOnLoop() {
    throw 1;
}

void Throwing() {
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
    const auto address = [](void* function) { return zoltest::Address(function); };
    EXPECT_EQ(1u, log.Count("WorkerCore() task " + address(reinterpret_cast<void*>(Throw))));
    EXPECT_EQ(1u, log.Count("task 1 (function " + address(reinterpret_cast<void*>(ThrowOnLoop))));
    EXPECT_EQ(2u, log.Count(" threw an exception"));
}

// What a run's process does beyond the scenario: its offline log on (writing below a device root
// of the test's own), and a fork, at rest or while threads log.
enum class Child { kPlain, kLogsToFiles, kForksAtRest, kForksWhileThreadsLog };

struct Scenario {
    const char* name;
    void (*run)();
    int runs;
    Child child;
    std::vector<std::string> inOrder = {};
    std::vector<std::string> refused = {};
};

// The exit of a process that used the signal task: everything dropped, then the loop stopped.
const std::vector<std::string> kExit = {"remove() [", "disconnect all", "loop stop"};
const std::vector<std::string> kPendingServed = {"task 2 done", "task 3 done"};

const Scenario kScenarios[] = {
    {"ExitRightAfterCreation", [] { Loop(); }, 50, Child::kPlain, kExit},
    {"ExitWhileTasksRun", Busy, 50, Child::kPlain, kExit},
    {"ExitServesNoPendingSignal", Pending, 10, Child::kPlain, kExit, kPendingServed},
    {"ExitWhileTheLoopLogsToFiles", Busy, 50, Child::kLogsToFiles, kExit},
    {"ExitWhileThreadsCallTheSignalTask", Callers, 50, Child::kPlain},
    {"ExitWhileThreadsAreInsideBufferManagers", Managers, 50, Child::kPlain},
    {"ForkAtRest", [] { LogAndFork(0); }, 50, Child::kForksAtRest},
    {"ForkUnderEightLoggingThreads", [] { LogAndFork(8); }, 50, Child::kForksWhileThreadsLog},
    {"PoolStoppedFromSeveralThreadsAndFromItsTask", PoolStop, 20, Child::kPlain},
    {"DumpAndReadOnA16KiBStack", SmallStack, 5, Child::kPlain},
    {"ThrowingTasksAreLoggedAndSkipped", Throwing, 5, Child::kPlain},
};

void PrintTo(const Scenario& scenario, std::ostream* os) {
    *os << scenario.name;
}

class ScenarioTest : public ::testing::TestWithParam<Scenario> {};

TEST_P(ScenarioTest, EveryRunEndsCleanly) {
    const Scenario& scenario = GetParam();
    if (getenv(kChild) != nullptr) {
        __android_log_set_logger(__android_log_stderr_logger);
        __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
        return scenario.run();
    }
    // The sanitizers' runtimes in this toolchain are not made for these forks: the thread
    // sanitizer does not follow threads started in the child of a threaded process, and the
    // address sanitizer's allocator can be left locked in a child forked while others allocate.
#if defined(__SANITIZE_THREAD__)
    if (scenario.child >= Child::kForksAtRest) {
        GTEST_SKIP() << "the child starts threads after the fork of a threaded process";
    }
#elif defined(__SANITIZE_ADDRESS__)
    if (scenario.child == Child::kForksWhileThreadsLog) {
        GTEST_SKIP() << "the child can hang in an allocator lock held at the fork";
    }
#endif
    if (ZOLTEST_EMULATED && scenario.child >= Child::kForksAtRest) {
        GTEST_SKIP() << "user-mode emulation cannot fork a process that has threads";
    }
    zoltest::DeviceRoot root;
    root.MakeDir("/data/vendor/camera/offlinelog");
    // The thread sanitizer waits a second at the exit of a process whose threads still run.
    const char* tsan = getenv("TSAN_OPTIONS");
    zoltest::RunOptions options;
    options.env = {std::string(kChild) + "=1",
                   "TSAN_OPTIONS=" + std::string(tsan ? tsan : "") + ":atexit_sleep_ms=0"};
    if (scenario.child != Child::kPlain) {
        options.env.push_back("persist.vendor.camera.zoltools.offlinelog=1");
    }
    if (scenario.child >= Child::kForksAtRest) {
        // A worker that has not yet let go of the last drain record at the fork is not in the
        // child, so the child keeps that record: a leak of the fork, not of the library.
        const char* asan = getenv("ASAN_OPTIONS");
        options.env.push_back("ASAN_OPTIONS=" + std::string(asan ? asan : "") + ":detect_leaks=0");
    }
    const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
    const std::string only =
        std::string("--gtest_filter=") + test->test_suite_name() + "." + test->name();
    for (int run = 0; run < scenario.runs; ++run) {
        const zoltest::RunResult result = zoltest::Run({ZOL_FAULTS_SELF, only}, options);
        const std::string output = result.out + result.err;
        ASSERT_EQ(0, result.status) << "run " << run << ":\n" << output;
        size_t at = 0;
        for (const std::string& line : scenario.inOrder) {
            at = output.find(line, at);
            ASSERT_NE(std::string::npos, at) << "run " << run << ": " << line << "\n" << output;
        }
        for (const std::string& line : scenario.refused) {
            ASSERT_EQ(std::string::npos, output.find(line)) << output;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Faults, ScenarioTest, ::testing::ValuesIn(kScenarios),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
