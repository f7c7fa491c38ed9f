// Every TEST is a process of its own: the calls recorded below and the context table are
// process-wide. A worker out of memory is an offline-log test, whose lines take on contexts.
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

ZOLThreadContext Context(uint64_t seed) {
    return {{seed, seed << 8, seed << 16, seed << 24, seed << 32}};
}

// A task's run: its index (the argument) and its thread's context entry then.
struct Call {
    int index;
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

void Record(void* arg, uint32_t argSize) {
    EXPECT_EQ(sizeof(int), argSize);
    Call call{*static_cast<const int*>(arg), 0, {}};
    call.contextResult = CM::GetContextByThreadId(gettid(), call.context);
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
    CM::MapContextToThreadId(gettid(), &own);
    Record(arg, argSize);
}
ZOLThreadPool* g_pool = nullptr;
void StopOwnPool(void* arg, uint32_t argSize) {  // a task that stops the pool running it
    g_pool->DeInit();
    Record(arg, argSize);
}

void Submit(ZOLThreadPool& pool, const ZOLThreadPoolTask& task) {
    {
        std::lock_guard<std::mutex> lock(pool.m_taskMutex);
        pool.m_taskList.push_back(task);
    }
    pool.m_taskCond.notify_one();
}

// A malloc'ed argument holding a task's index.
void* Index(int index) {
    return memcpy(malloc(sizeof(int)), &index, sizeof(int));
}

void Submit(ZOLThreadPool& pool, int index, void (*func)(void*, uint32_t) = Record) {
    Submit(pool, {ZOLThreadPool::kCmdRun, func, Index(index), sizeof(int), 0});
}

std::vector<uint32_t> PendingCommands(ZOLThreadPool& pool) {
    std::lock_guard<std::mutex> lock(pool.m_taskMutex);
    std::vector<uint32_t> out;
    for (const ZOLThreadPoolTask& task : pool.m_taskList) {
        out.push_back(task.cmd);
    }
    return out;
}

// The life of a pool. Records pending at DeInit of a pool never initialised are dropped,
// arguments freed (the leak check sees it); those pending at Init are dropped without (ASan
// reports a free of `unowned`). Init reports workers that could not start. An exit record ends
// exactly one worker; every other task runs once. DeInit drops what is pending unrun, then
// still sends one exit record per started worker, behind the tasks running now. Init works
// again after DeInit; a task may stop its own pool, and the destructor then ends its worker.
TEST(ThreadPool, Lifecycle) {
    ZOLThreadPool pool;
    Submit(pool, -1);
    pool.DeInit();
    EXPECT_TRUE(PendingCommands(pool).empty()) << "no workers, so no exit records either";
    static int unowned = -2;
    Submit(pool, {ZOLThreadPool::kCmdRun, Record, &unowned, sizeof(int), 0});
    EXPECT_TRUE(pool.Init(0));
    EXPECT_TRUE(pool.m_workers.empty());
    // With a default stack size no system can map, no thread starts.
    pthread_attr_t original, huge;
    ASSERT_EQ(0, pthread_getattr_default_np(&original));
    ASSERT_EQ(0, pthread_attr_init(&huge));
    ASSERT_EQ(0, pthread_attr_setstacksize(&huge, size_t{1} << 60));
    ASSERT_EQ(0, pthread_setattr_default_np(&huge));
    const bool started = pool.Init(3);
    const size_t workers = pool.m_workers.size();
    ASSERT_EQ(0, pthread_setattr_default_np(&original));
    EXPECT_FALSE(started);
    EXPECT_EQ(0u, workers);

    ASSERT_TRUE(pool.Init(3));
    EXPECT_EQ(3u, std::set<long>(pool.m_workers.begin(), pool.m_workers.end()).size());
    Submit(pool, {ZOLThreadPool::kCmdExit, nullptr, nullptr, 0, 0});
    std::vector<int> all(100);
    for (int i = 0; i < 100; ++i) {
        Submit(pool, all[i] = i);
    }
    EXPECT_EQ(all, Ran(100));
    g_open = false;
    for (int i = 100; i < 105; ++i) {
        Submit(pool, i, i < 103 ? Blocking : Record);
    }
    ASSERT_TRUE(zoltest::WaitUntil([&] { return g_blocked == 2; }));
    EXPECT_EQ(3u, PendingCommands(pool).size()) << "the ended worker took nothing more";
    // DeInit waits for the blocked workers, so it runs aside; the gate opens once the pending
    // records were replaced by the three exit records.
    std::thread deinit([&] { pool.DeInit(); });
    EXPECT_TRUE(zoltest::WaitUntil([&] {
        return PendingCommands(pool) == std::vector<uint32_t>(3, ZOLThreadPool::kCmdExit);
    }));
    g_open = true;
    deinit.join();
    all.insert(all.end(), {100, 101});
    EXPECT_EQ(all, Ran());
    EXPECT_TRUE(pool.m_workers.empty());
    EXPECT_EQ(std::vector<uint32_t>{1}, PendingCommands(pool)) << "three for two live workers";
    ASSERT_TRUE(pool.Init(2));
    g_pool = &pool;
    Submit(pool, 105, StopOwnPool);
    all.push_back(105);
    EXPECT_EQ(all, Ran(103));
    EXPECT_EQ(1u, pool.m_workers.size()) << "the task's own worker, kept for a later DeInit";
}

// One worker takes the records in order. Records that must not run are dropped (the leak check
// shows an argument not freed, ASan a free of `unowned`); a record naming a submitter runs with
// a copy of its context (all zero when it has none; a context the worker already has wins),
// and the worker's entry goes after the task.
TEST(ThreadPool, RecordsRunOrAreDroppedAndLendTheSubmittersContext) {
    constexpr unsigned kLender = 4000001, kNobody = 4000002;
    ZOLThreadContext lent = Context(42);
    ASSERT_EQ(0, CM::MapContextToThreadId(kLender, &lent));
    static int unowned = -1;
    enum Arg { kNone, kIndex, kOwned, kUnowned };
    const struct {
        uint32_t cmd;
        void (*func)(void*, uint32_t);
        Arg arg;
        uint32_t argSize;
        unsigned submitter;
        int contextResult;  // seen by the task; -1: the record does not run
        uint64_t context;   // its seed; 0: all zero
    } rows[] = {
        {2, Record, kUnowned, 4, 0, -1, 0},  // unknown command: taken, argument kept
        {0xFFFFFFFFu, Record, kUnowned, 4, 0, -1, 0},
        {0, nullptr, kOwned, 4, 0, -1, 0},  // no function: argument freed
        {0, nullptr, kNone, 0, 0, -1, 0},
        {0, Record, kNone, 8, 0, -1, 0},   // a size without a block
        {0, Record, kOwned, 0, 0, -1, 0},  // a block without a size: freed
        {0, Record, kIndex, 4, kLender, 0, 42},
        {0, Record, kIndex, 4, 0, 3, 0},
        {0, Record, kIndex, 4, kNobody, 0, 0},
        {0, Record, kIndex, 4, 0, 3, 0},
        {0, MapOwn, kIndex, 4, 0, 0, 0xC0FFEE},
        {0, Record, kIndex, 4, kLender, 0, 0xC0FFEE},
        {0, Record, kIndex, 4, 0, 3, 0},
    };
    ZOLThreadPool pool;
    ASSERT_TRUE(pool.Init(1));
    std::vector<int> runs;
    for (int i = 0; i < static_cast<int>(std::size(rows)); ++i) {
        const auto& row = rows[i];
        void* const arg = row.arg == kIndex     ? Index(i)
                          : row.arg == kOwned   ? malloc(4)
                          : row.arg == kUnowned ? &unowned
                                                : nullptr;
        Submit(pool, {row.cmd, row.func, arg, row.argSize, row.submitter});
        if (row.contextResult >= 0) {
            runs.push_back(i);
        }
    }
    ASSERT_EQ(runs, Ran(runs.size()));
    for (const Call& call : Calls()) {
        const auto& row = rows[call.index];
        EXPECT_EQ(row.contextResult, call.contextResult) << call.index;
        const ZOLThreadContext want = row.context ? Context(row.context) : ZOLThreadContext{};
        if (row.contextResult == 0) {
            EXPECT_EQ(0, memcmp(&want, &call.context, sizeof(want))) << call.index;
        }
    }
    pool.DeInit();
    EXPECT_EQ(1u, CM::m_threadIdToContextMap.size()) << "only the lender's own entry is left";
    EXPECT_EQ(runs, Ran()) << "nothing ran after the last record";
}

}  // namespace
