#include <gtest/gtest.h>

#include <pthread.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "zolthreadcontextmanager.h"
#include "zolthreadpool.h"

namespace {

unsigned int Tid() {
    return static_cast<unsigned int>(gettid());
}

// What the tasks of a test report back: every call with the thread that made it and the
// context that thread had while the task ran. Tasks reach it through their argument block.
// Declare it before the pool, so that it outlives the workers that report to it.
struct Probe {
    struct Call {
        int index;
        unsigned int tid;
        int contextResult;
        ZOLThreadContext context;
    };

    std::mutex mutex;
    std::condition_variable cond;
    std::vector<Call> calls;
    bool open = true;  // a gate that blocking tasks wait on
    int blocked = 0;   // blocking tasks currently waiting at the gate

    void WaitForCalls(size_t n) {
        std::unique_lock<std::mutex> lock(mutex);
        cond.wait(lock, [&] { return calls.size() >= n; });
    }
    void WaitForBlocked(int n) {
        std::unique_lock<std::mutex> lock(mutex);
        cond.wait(lock, [&] { return blocked >= n; });
    }
    void Close() {
        std::lock_guard<std::mutex> lock(mutex);
        open = false;
    }
    void Open() {
        {
            std::lock_guard<std::mutex> lock(mutex);
            open = true;
        }
        cond.notify_all();
    }
    std::vector<Call> Calls() {
        std::lock_guard<std::mutex> lock(mutex);
        return calls;
    }
};

struct Arg {
    Probe* probe;
    int index;
};

// Records the call, with the context of the running thread as the table has it now.
void Record(void* arg, uint32_t argSize) {
    EXPECT_EQ(sizeof(Arg), argSize);
    const Arg* a = static_cast<const Arg*>(arg);
    Probe::Call call{a->index, Tid(), 0, {}};
    call.contextResult = ZOLThreadContextManager::GetContextByThreadId(call.tid, call.context);
    std::lock_guard<std::mutex> lock(a->probe->mutex);
    a->probe->calls.push_back(call);
    a->probe->cond.notify_all();
}

// Waits at the probe's gate, then records the call.
void BlockThenRecord(void* arg, uint32_t argSize) {
    Probe* probe = static_cast<const Arg*>(arg)->probe;
    {
        std::unique_lock<std::mutex> lock(probe->mutex);
        ++probe->blocked;
        probe->cond.notify_all();
        probe->cond.wait(lock, [&] { return probe->open; });
        --probe->blocked;
    }
    Record(arg, argSize);
}

// Gives the running worker a context of its own.
void MapOwnContext(void* arg, uint32_t argSize) {
    ZOLThreadContext own{};
    own.words[0] = 0x0DDC0FFEE;
    ZOLThreadContextManager::MapContextToThreadId(Tid(), &own);
    Record(arg, argSize);
}

void Submit(ZOLThreadPool& pool, const ZOLThreadPoolTask& task) {
    {
        std::lock_guard<std::mutex> lock(pool.m_taskMutex);
        pool.m_taskList.push_back(task);
    }
    pool.m_taskCond.notify_one();
}

// A record whose malloc'ed argument block points back at the probe.
ZOLThreadPoolTask MakeTask(Probe& probe, int index, void (*func)(void*, uint32_t) = Record,
                           unsigned int ctxThreadId = 0) {
    Arg* arg = static_cast<Arg*>(malloc(sizeof(Arg)));
    *arg = Arg{&probe, index};
    return ZOLThreadPoolTask{ZOLThreadPool::kCmdRun, func, arg, sizeof(Arg), ctxThreadId};
}

size_t PendingRecords(ZOLThreadPool& pool) {
    std::lock_guard<std::mutex> lock(pool.m_taskMutex);
    return pool.m_taskList.size();
}

ZOLThreadContext MakeContext(uint64_t seed) {
    ZOLThreadContext ctx;
    for (int i = 0; i < 5; ++i) {
        ctx.words[i] = (seed << 8) + static_cast<uint64_t>(i) + 1;
    }
    return ctx;
}

bool Same(const ZOLThreadContext& a, const ZOLThreadContext& b) {
    return std::memcmp(&a, &b, sizeof(ZOLThreadContext)) == 0;
}

// Workers and submitters share the process-wide context table: every test starts from an empty
// one, however the tests are run.
class ZOLThreadPoolTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::lock_guard<std::mutex> lock(ZOLThreadContextManager::m_threadIdToContextMapLock);
        ZOLThreadContextManager::m_threadIdToContextMap.clear();
    }
};

TEST_F(ZOLThreadPoolTest, DeInitWithoutInitOnlyFlushes) {
    Probe probe;
    ZOLThreadPool pool;
    EXPECT_TRUE(pool.m_workers.empty());
    EXPECT_TRUE(pool.m_taskList.empty());
    for (int i = 0; i < 3; ++i) {
        Submit(pool, MakeTask(probe, i));  // arguments freed by the flush (leak check)
    }
    pool.DeInit();
    EXPECT_EQ(0u, PendingRecords(pool));  // no workers, so no exit records either
    EXPECT_TRUE(pool.m_workers.empty());
    EXPECT_TRUE(probe.Calls().empty());
    pool.DeInit();  // and again, harmlessly
}

TEST_F(ZOLThreadPoolTest, InitStartsEveryWorkerAndEachTaskRunsOnce) {
    Probe probe;
    ZOLThreadPool pool;
    EXPECT_TRUE(pool.Init(0));
    EXPECT_TRUE(pool.m_workers.empty());

    ASSERT_TRUE(pool.Init(4));
    ASSERT_EQ(4u, pool.m_workers.size());
    const std::set<long> handles(pool.m_workers.begin(), pool.m_workers.end());
    EXPECT_EQ(4u, handles.size());
    EXPECT_EQ(0u, handles.count(0));

    constexpr int kTasks = 200;
    for (int i = 0; i < kTasks; ++i) {
        Submit(pool, MakeTask(probe, i));
    }
    probe.WaitForCalls(kTasks);
    std::vector<int> runs(kTasks, 0);
    for (const Probe::Call& call : probe.Calls()) {
        ++runs[call.index];
        EXPECT_NE(Tid(), call.tid);
        EXPECT_EQ(3, call.contextResult);  // records without a submitter carry no context
    }
    EXPECT_EQ(std::vector<int>(kTasks, 1), runs);

    pool.DeInit();
    EXPECT_TRUE(pool.m_workers.empty());
    EXPECT_EQ(0u, PendingRecords(pool));  // every exit record was taken
}

// With a default stack size no system can map, no thread can be created: Init reports it and
// lists no worker; once threads can start again, the same pool initialises normally.
TEST_F(ZOLThreadPoolTest, InitReportsWorkersThatCouldNotStart) {
    pthread_attr_t original;
    ASSERT_EQ(0, pthread_getattr_default_np(&original));
    pthread_attr_t huge;
    ASSERT_EQ(0, pthread_attr_init(&huge));
    ASSERT_EQ(0, pthread_attr_setstacksize(&huge, size_t{1} << 60));
    ASSERT_EQ(0, pthread_setattr_default_np(&huge));

    Probe probe;
    ZOLThreadPool pool;
    const bool started = pool.Init(3);
    const size_t workers = pool.m_workers.size();
    ASSERT_EQ(0, pthread_setattr_default_np(&original));
    pthread_attr_destroy(&huge);
    pthread_attr_destroy(&original);
    EXPECT_FALSE(started);
    EXPECT_EQ(0u, workers);

    ASSERT_TRUE(pool.Init(2));
    EXPECT_EQ(2u, pool.m_workers.size());
    Submit(pool, MakeTask(probe, 0));
    probe.WaitForCalls(1);
}

// One worker takes records strictly in order, so a final marker task shows that everything
// before it has been handled.
TEST_F(ZOLThreadPoolTest, WorkerDropsRecordsItMustNotRun) {
    // A block the pool must not free: ASan reports any free() of it.
    static char unknownCmdArg[16];

    Probe probe;
    ZOLThreadPool pool;
    ASSERT_TRUE(pool.Init(1));

    // Unknown commands are taken and ignored: not run, argument not freed.
    Submit(pool, ZOLThreadPoolTask{2, Record, unknownCmdArg, sizeof(unknownCmdArg), 0});
    Submit(pool, ZOLThreadPoolTask{0xFFFFFFFFu, Record, unknownCmdArg, 1, 0});
    // No function: the argument is freed (leak check), nothing runs.
    ZOLThreadPoolTask noFunc = MakeTask(probe, 10);
    noFunc.func = nullptr;
    Submit(pool, noFunc);
    Submit(pool, ZOLThreadPoolTask{0, nullptr, nullptr, 0, 0});
    // Size without a block: dropped, nothing to free.
    Submit(pool, ZOLThreadPoolTask{0, Record, nullptr, 8, 0});
    // Block without a size: freed (leak check) and not run.
    ZOLThreadPoolTask noSize = MakeTask(probe, 11);
    noSize.argSize = 0;
    Submit(pool, noSize);

    Submit(pool, MakeTask(probe, 99));
    probe.WaitForCalls(1);
    const std::vector<Probe::Call> calls = probe.Calls();
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ(99, calls[0].index);
    pool.DeInit();
}

TEST_F(ZOLThreadPoolTest, WorkerAdoptsTheSubmittersContextForOneTask) {
    Probe probe;
    ZOLThreadPool pool;
    ASSERT_TRUE(pool.Init(1));
    ZOLThreadContext mine = MakeContext(42);
    ASSERT_EQ(0, ZOLThreadContextManager::MapContextToThreadId(Tid(), &mine));

    Submit(pool, MakeTask(probe, 0, Record, Tid()));
    Submit(pool, MakeTask(probe, 1));  // runs after the first task's context was dropped
    probe.WaitForCalls(2);
    const std::vector<Probe::Call> calls = probe.Calls();
    ASSERT_EQ(0, calls[0].index);
    EXPECT_EQ(0, calls[0].contextResult);
    EXPECT_TRUE(Same(mine, calls[0].context));
    EXPECT_EQ(3, calls[1].contextResult);

    // The submitter keeps its own entry; the worker's is gone.
    ZOLThreadContext out{};
    EXPECT_EQ(0, ZOLThreadContextManager::GetContextByThreadId(Tid(), out));
    EXPECT_TRUE(Same(mine, out));
    EXPECT_EQ(1u, ZOLThreadContextManager::m_threadIdToContextMap.size());
    pool.DeInit();
}

TEST_F(ZOLThreadPoolTest, SubmitterWithoutContextGivesAnAllZeroOne) {
    Probe probe;
    ZOLThreadPool pool;
    ASSERT_TRUE(pool.Init(1));
    Submit(pool, MakeTask(probe, 0, Record, Tid()));  // this thread has no entry
    Submit(pool, MakeTask(probe, 1));
    probe.WaitForCalls(2);
    const std::vector<Probe::Call> calls = probe.Calls();
    EXPECT_EQ(0, calls[0].contextResult);
    EXPECT_TRUE(Same(ZOLThreadContext{}, calls[0].context));
    EXPECT_EQ(3, calls[1].contextResult);
    EXPECT_TRUE(ZOLThreadContextManager::m_threadIdToContextMap.empty());
    pool.DeInit();
}

// A worker that already has a context keeps it through the task, and loses it afterwards
// like any adopted one.
TEST_F(ZOLThreadPoolTest, WorkersOwnContextIsKeptDuringTheTask) {
    Probe probe;
    ZOLThreadPool pool;
    ASSERT_TRUE(pool.Init(1));
    ZOLThreadContext mine = MakeContext(7);
    ASSERT_EQ(0, ZOLThreadContextManager::MapContextToThreadId(Tid(), &mine));

    Submit(pool, MakeTask(probe, 0, MapOwnContext));
    Submit(pool, MakeTask(probe, 1, Record, Tid()));
    Submit(pool, MakeTask(probe, 2));
    probe.WaitForCalls(3);
    const std::vector<Probe::Call> calls = probe.Calls();
    ASSERT_EQ(0, calls[0].contextResult);
    EXPECT_EQ(0x0DDC0FFEEu, calls[0].context.words[0]);
    ASSERT_EQ(0, calls[1].contextResult);
    EXPECT_TRUE(Same(calls[0].context, calls[1].context));
    EXPECT_EQ(3, calls[2].contextResult);
    pool.DeInit();
}

TEST_F(ZOLThreadPoolTest, ExitRecordEndsOneWorkerAndDeInitStillSendsOnePerWorker) {
    Probe probe;
    ZOLThreadPool pool;
    ASSERT_TRUE(pool.Init(3));
    probe.Close();
    Submit(pool, ZOLThreadPoolTask{ZOLThreadPool::kCmdExit, nullptr, nullptr, 0, 0});
    for (int i = 0; i < 3; ++i) {
        Submit(pool, MakeTask(probe, i, BlockThenRecord));
    }
    // Records are taken in order: once two tasks wait, the exit record is gone, and with one
    // worker ended the third task has nobody to take it.
    probe.WaitForBlocked(2);
    EXPECT_EQ(1u, PendingRecords(pool));
    probe.Open();
    probe.WaitForCalls(3);
    std::set<unsigned int> tids;
    for (const Probe::Call& call : probe.Calls()) {
        tids.insert(call.tid);
    }
    EXPECT_EQ(2u, tids.size());

    pool.DeInit();  // joins all three, the ended one included
    EXPECT_TRUE(pool.m_workers.empty());
    // Three exit records for two live workers: one is left over.
    std::lock_guard<std::mutex> lock(pool.m_taskMutex);
    ASSERT_EQ(1u, pool.m_taskList.size());
    EXPECT_EQ(ZOLThreadPool::kCmdExit, pool.m_taskList.front().cmd);
}

TEST_F(ZOLThreadPoolTest, DeInitDropsPendingRecordsWithoutRunningThem) {
    Probe probe;
    ZOLThreadPool pool;
    ASSERT_TRUE(pool.Init(2));
    probe.Close();
    Submit(pool, MakeTask(probe, 0, BlockThenRecord));
    Submit(pool, MakeTask(probe, 1, BlockThenRecord));
    probe.WaitForBlocked(2);  // both workers are busy; what follows stays pending
    for (int i = 10; i < 15; ++i) {
        Submit(pool, MakeTask(probe, i));
    }
    ASSERT_EQ(5u, PendingRecords(pool));

    // DeInit flushes, queues the exit records and then waits to join the blocked workers: it
    // must run on another thread. Open the gate only once the pending records were replaced by
    // the two exit records.
    std::thread deinit([&] { pool.DeInit(); });
    for (;;) {
        {
            std::lock_guard<std::mutex> lock(pool.m_taskMutex);
            if (pool.m_taskList.size() == 2 &&
                pool.m_taskList.front().cmd == ZOLThreadPool::kCmdExit &&
                pool.m_taskList.back().cmd == ZOLThreadPool::kCmdExit) {
                break;
            }
        }
        std::this_thread::yield();
    }
    probe.Open();
    deinit.join();

    std::set<int> ran;
    for (const Probe::Call& call : probe.Calls()) {
        ran.insert(call.index);
    }
    EXPECT_EQ((std::set<int>{0, 1}), ran);  // the dropped records never ran (and were freed)
    EXPECT_TRUE(pool.m_workers.empty());
    EXPECT_EQ(0u, PendingRecords(pool));
}

TEST_F(ZOLThreadPoolTest, InitDropsRecordsQueuedBeforeIt) {
    static char notOwnedByThePool[4];  // Init must not free it, nor run its task
    Probe probe;
    ZOLThreadPool pool;
    Submit(pool, ZOLThreadPoolTask{0, Record, notOwnedByThePool, 4, 0});
    ASSERT_TRUE(pool.Init(1));
    Submit(pool, MakeTask(probe, 1));
    probe.WaitForCalls(1);
    ASSERT_EQ(1u, probe.Calls().size());
    EXPECT_EQ(1, probe.Calls()[0].index);
}

TEST_F(ZOLThreadPoolTest, InitDeInitCyclesAndDestructorJoin) {
    Probe probe;
    int submitted = 0;
    {
        ZOLThreadPool pool;
        for (int cycle = 0; cycle < 3; ++cycle) {
            ASSERT_TRUE(pool.Init(3));
            ASSERT_EQ(3u, pool.m_workers.size());
            for (int i = 0; i < 20; ++i) {
                Submit(pool, MakeTask(probe, submitted++));
            }
            probe.WaitForCalls(static_cast<size_t>(submitted));
            pool.DeInit();
            EXPECT_TRUE(pool.m_workers.empty());
        }
        // Running again when the pool goes away: the destructor stops and joins the workers.
        ASSERT_TRUE(pool.Init(2));
        for (int i = 0; i < 20; ++i) {
            Submit(pool, MakeTask(probe, submitted++));
        }
        probe.WaitForCalls(static_cast<size_t>(submitted));
    }
    EXPECT_EQ(static_cast<size_t>(submitted), probe.Calls().size());
}

// Several submitters, each with its own context, share four workers: every task sees exactly
// its submitter's context, and no worker entry survives.
TEST_F(ZOLThreadPoolTest, ConcurrentSubmittersEachLendTheirOwnContext) {
    constexpr int kSubmitters = 4;
    constexpr int kTasksEach = 250;
    Probe probe;
    ZOLThreadPool pool;
    ASSERT_TRUE(pool.Init(4));
    std::vector<std::thread> submitters;
    for (int s = 0; s < kSubmitters; ++s) {
        submitters.emplace_back([&, s] {
            ZOLThreadContext ctx = MakeContext(static_cast<uint64_t>(s));
            ASSERT_EQ(0, ZOLThreadContextManager::MapContextToThreadId(Tid(), &ctx));
            for (int i = 0; i < kTasksEach; ++i) {
                Submit(pool, MakeTask(probe, s * kTasksEach + i, Record, Tid()));
            }
            probe.WaitForCalls(kSubmitters * kTasksEach);  // keep the entry until all ran
        });
    }
    for (std::thread& t : submitters) {
        t.join();
    }
    pool.DeInit();  // after the join, every worker has dropped its adopted context

    std::vector<int> runs(kSubmitters * kTasksEach, 0);
    for (const Probe::Call& call : probe.Calls()) {
        ++runs[call.index];
        ASSERT_EQ(0, call.contextResult);
        EXPECT_TRUE(
            Same(MakeContext(static_cast<uint64_t>(call.index / kTasksEach)), call.context));
    }
    EXPECT_EQ(std::vector<int>(kSubmitters * kTasksEach, 1), runs);
    EXPECT_EQ(static_cast<size_t>(kSubmitters),
              ZOLThreadContextManager::m_threadIdToContextMap.size());
}

}  // namespace
