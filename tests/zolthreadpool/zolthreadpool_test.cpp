// Every TEST is a process of its own: the calls recorded below and the context table are
// process-wide.
#include <gtest/gtest.h>

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "zolthreadcontextmanager.h"
#include "zolthreadpool.h"
#include "zoltest.h"

namespace {

using CM = ZOLThreadContextManager;

unsigned Tid() {
    return static_cast<unsigned>(gettid());
}

ZOLThreadContext Context(uint64_t seed) {
    ZOLThreadContext ctx;
    for (uint64_t i = 0; i < 5; ++i) {
        ctx.words[i] = (seed << 8) + i + 1;
    }
    return ctx;
}

// A task's run: its index, its thread and that thread's context entry while it ran.
struct Call {
    int index;
    unsigned tid;
    int contextResult;
    ZOLThreadContext context;
};
std::mutex g_mutex;
std::vector<Call> g_calls;
std::atomic<bool> g_open{true};  // the gate Blocking tasks wait at
std::atomic<int> g_blocked{0};

std::vector<Call> Calls() {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_calls;
}

// The indices of the tasks that ran, sorted, once at least `n` ran.
std::vector<int> Ran(size_t n = 0) {
    EXPECT_TRUE(zoltest::WaitUntil([&] { return Calls().size() >= n; }));
    std::vector<int> out;
    for (const Call& call : Calls()) {
        out.push_back(call.index);
    }
    std::sort(out.begin(), out.end());
    return out;
}

// Task functions; the argument holds the task's index.
void Record(void* arg, uint32_t argSize) {
    EXPECT_EQ(sizeof(int), argSize);
    Call call{*static_cast<const int*>(arg), Tid(), 0, {}};
    call.contextResult = CM::GetContextByThreadId(call.tid, call.context);
    std::lock_guard<std::mutex> lock(g_mutex);
    g_calls.push_back(call);
}
void Blocking(void* arg, uint32_t argSize) {
    ++g_blocked;
    zoltest::WaitUntil([] { return g_open.load(); }, 600);
    Record(arg, argSize);
}
void MapOwn(void* arg, uint32_t argSize) {  // the worker maps a context of its own first
    ZOLThreadContext own = Context(0xC0FFEE);
    CM::MapContextToThreadId(Tid(), &own);
    Record(arg, argSize);
}

void Submit(ZOLThreadPool& pool, const ZOLThreadPoolTask& task) {
    {
        std::lock_guard<std::mutex> lock(pool.m_taskMutex);
        pool.m_taskList.push_back(task);
    }
    pool.m_taskCond.notify_one();
}

void Submit(ZOLThreadPool& pool, int index, void (*func)(void*, uint32_t) = Record,
            unsigned ctxThreadId = 0) {
    int* arg = static_cast<int*>(malloc(sizeof(int)));
    *arg = index;
    Submit(pool, {ZOLThreadPool::kCmdRun, func, arg, sizeof(int), ctxThreadId});
}

std::vector<uint32_t> PendingCommands(ZOLThreadPool& pool) {
    std::lock_guard<std::mutex> lock(pool.m_taskMutex);
    std::vector<uint32_t> out;
    for (const ZOLThreadPoolTask& task : pool.m_taskList) {
        out.push_back(task.cmd);
    }
    return out;
}

// Records pending at DeInit of a pool never initialised are dropped, arguments freed (the leak
// check sees it); those pending at Init are dropped without (ASan reports a free of `unowned`).
// Each task then runs once, on a worker; Init works again after DeInit, and the destructor ends
// the second run.
TEST(ThreadPool, LifecycleRunsEveryTaskOnceOnAWorker) {
    ZOLThreadPool pool;
    Submit(pool, -1);
    pool.DeInit();
    EXPECT_TRUE(PendingCommands(pool).empty()) << "no workers, so no exit records either";
    static int unowned = -2;
    Submit(pool, {ZOLThreadPool::kCmdRun, Record, &unowned, sizeof(int), 0});
    EXPECT_TRUE(pool.Init(0));
    EXPECT_TRUE(pool.m_workers.empty());
    ASSERT_TRUE(pool.Init(4));
    const std::set<long> handles(pool.m_workers.begin(), pool.m_workers.end());
    EXPECT_EQ(4u, handles.size());
    EXPECT_EQ(0u, handles.count(0));
    std::vector<int> all(100);
    for (int i = 0; i < 100; ++i) {
        Submit(pool, all[i] = i);
    }
    EXPECT_EQ(all, Ran(100));
    pool.DeInit();
    EXPECT_TRUE(pool.m_workers.empty());
    EXPECT_TRUE(PendingCommands(pool).empty()) << "every exit record was taken";
    for (const Call& call : Calls()) {
        EXPECT_NE(Tid(), call.tid);
        EXPECT_EQ(3, call.contextResult) << "a record without a submitter lends no context";
    }
    ASSERT_TRUE(pool.Init(2));
    Submit(pool, 100);
    all.push_back(100);
    EXPECT_EQ(all, Ran(101));
}

// With a default stack size no system can map, no thread starts: Init says so and lists none.
TEST(ThreadPool, InitReportsWorkersThatCouldNotStart) {
    pthread_attr_t original, huge;
    ASSERT_EQ(0, pthread_getattr_default_np(&original));
    ASSERT_EQ(0, pthread_attr_init(&huge));
    ASSERT_EQ(0, pthread_attr_setstacksize(&huge, size_t{1} << 60));
    ASSERT_EQ(0, pthread_setattr_default_np(&huge));
    ZOLThreadPool pool;
    const bool started = pool.Init(3);
    const size_t workers = pool.m_workers.size();
    ASSERT_EQ(0, pthread_setattr_default_np(&original));
    EXPECT_FALSE(started);
    EXPECT_EQ(0u, workers);
    EXPECT_TRUE(pool.Init(2));
}

// One worker takes records in order: once the final marker ran, every record before it was
// handled. The leak check shows an argument not freed, ASan a free of `unowned`.
TEST(ThreadPool, RecordsThatMustNotRunAreDropped) {
    static int unowned = -1;
    int* owned[2] = {static_cast<int*>(malloc(4)), static_cast<int*>(malloc(4))};
    const ZOLThreadPoolTask rows[] = {
        {2, Record, &unowned, 4, 0},            // unknown command: taken, argument kept
        {0xFFFFFFFFu, Record, &unowned, 4, 0},  // likewise
        {0, nullptr, owned[0], 4, 0},           // no function: argument freed
        {0, nullptr, nullptr, 0, 0},            // nothing at all
        {0, Record, nullptr, 8, 0},             // a size without a block
        {0, Record, owned[1], 0, 0},            // a block without a size: freed
    };
    ZOLThreadPool pool;
    ASSERT_TRUE(pool.Init(1));
    for (const ZOLThreadPoolTask& row : rows) {
        Submit(pool, row);
    }
    Submit(pool, 99);
    EXPECT_EQ(std::vector<int>{99}, Ran(1));
}

// A record naming a submitter runs with a copy of its context (all zero when it has none; a
// context the worker already has wins), and the worker's entry goes after the task.
TEST(ThreadPool, WorkerTakesOnTheSubmittersContextForOneTask) {
    constexpr unsigned kLender = 4000001, kNobody = 4000002;
    ZOLThreadContext lent = Context(42);
    ASSERT_EQ(0, CM::MapContextToThreadId(kLender, &lent));
    const struct {
        void (*func)(void*, uint32_t);
        unsigned submitter;
        int contextResult;
        uint64_t context;  // seed; 0: all zero
    } rows[] = {
        {Record, kLender, 0, 42}, {Record, 0, 3, 0},        {Record, kNobody, 0, 0},
        {Record, 0, 3, 0},        {MapOwn, 0, 0, 0xC0FFEE}, {Record, kLender, 0, 0xC0FFEE},
        {Record, 0, 3, 0},
    };
    ZOLThreadPool pool;
    ASSERT_TRUE(pool.Init(1));
    for (int i = 0; i < 7; ++i) {
        Submit(pool, i, rows[i].func, rows[i].submitter);
    }
    Ran(7);
    const std::vector<Call> calls = Calls();
    for (int i = 0; i < 7; ++i) {
        ASSERT_EQ(i, calls[i].index);
        EXPECT_EQ(rows[i].contextResult, calls[i].contextResult) << i;
        const ZOLThreadContext want =
            rows[i].context ? Context(rows[i].context) : ZOLThreadContext{};
        if (rows[i].contextResult == 0) {
            EXPECT_EQ(0, memcmp(&want, &calls[i].context, sizeof(want))) << i;
        }
    }
    pool.DeInit();
    EXPECT_EQ(1u, CM::m_threadIdToContextMap.size()) << "only the lender's own entry is left";
}

// An exit record ends exactly one worker; DeInit drops what is pending unrun, then still sends
// one exit record per started worker, behind the tasks running now.
TEST(ThreadPool, ExitRecordsAndDeInitWithBusyWorkers) {
    g_open = false;
    ZOLThreadPool pool;
    ASSERT_TRUE(pool.Init(3));
    Submit(pool, {ZOLThreadPool::kCmdExit, nullptr, nullptr, 0, 0});
    for (int i = 0; i < 6; ++i) {
        Submit(pool, i, i < 3 ? Blocking : Record);
    }
    ASSERT_TRUE(zoltest::WaitUntil([&] { return g_blocked == 2; }));
    EXPECT_EQ(4u, PendingCommands(pool).size()) << "the ended worker took nothing more";
    // DeInit waits for the blocked workers, so it runs aside; the gate opens once the pending
    // records were replaced by the three exit records.
    std::thread deinit([&] { pool.DeInit(); });
    EXPECT_TRUE(zoltest::WaitUntil([&] { return PendingCommands(pool).size() == 3; }));
    EXPECT_EQ(std::vector<uint32_t>(3, ZOLThreadPool::kCmdExit), PendingCommands(pool));
    g_open = true;
    deinit.join();
    EXPECT_EQ((std::vector<int>{0, 1}), Ran());
    EXPECT_NE(Calls()[0].tid, Calls()[1].tid);
    EXPECT_TRUE(pool.m_workers.empty());
    EXPECT_EQ(std::vector<uint32_t>{1}, PendingCommands(pool)) << "three for two live workers";
}

}  // namespace
