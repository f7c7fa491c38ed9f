// ZOLThreadPool: plain function-pointer tasks run on a fixed set of POSIX worker threads.
//
// The owner embeds the pool, calls Init(n) once to start n workers, and submits work itself:
// there is no submit method. To submit, build a ZOLThreadPoolTask, lock m_taskMutex, append the
// record at the back of m_taskList, unlock, then notify one waiter on m_taskCond:
//
//   ZOLThreadPoolTask task{ZOLThreadPool::kCmdRun, Work, block, blockSize, gettid()};
//   {
//       ZOLMutexLocker lock(pool.m_taskMutex);
//       pool.m_taskList.push_back(task);
//   }
//   pool.m_taskCond.notify_one();
//
// Records are taken in submission order, each by exactly one worker; with several workers the
// tasks overlap and may finish in any order. A worker that takes a record and leaves others
// pending wakes one more waiter, so a submitter that appends to a list that was not empty may
// skip its notify: the workers wake each other. The pool writes no log lines.
//
// Ownership: a record's argument block is allocated with malloc by the submitter and from then
// on belongs to the pool, which frees it after the task ran or when it drops the record, with
// these exceptions kept on purpose: records still queued when Init runs are dropped without
// freeing, and a record whose cmd is neither 0 nor 1 is taken and ignored without freeing.
//
// A worker drops, without running it, a record whose func is null (arg freed) or whose arg and
// argSize disagree (arg null with a size: nothing to free; arg set with size 0: arg freed).
//
// Context: a record that names the submitting thread (ctxThreadId, its gettid(); 0 for none)
// runs with that thread's ZOLThreadContext mapped to the worker: a copy of the submitter's
// entry, all zero when it has none, and a context the worker already has is kept. After the
// task the worker's entry is removed. The worker takes the context table's lock for this.
//
// Lifecycle: constructed (records wait, no workers) -> Init(n) -> running -> DeInit() ->
// stopped, and Init may follow again. Init forgets the handles of an earlier Init without
// joining them. DeInit (also run by the destructor) frees and drops the pending records, then
// queues one exit record (cmd 1) per started worker behind anything submitted meanwhile, and
// joins the workers in start order. FlushTask never drops exit records, so a flush cannot keep
// a worker from ending.
//
// Any thread may call DeInit and FlushTask at any time. DeInit calls are serialised: a second
// one waits for the first to finish and then finds nothing left to stop. A task may even call
// DeInit on its own pool: the other workers are stopped and joined, and its own worker ends
// after the task, to be joined by a later DeInit (the destructor's at the latest).
//
// A task that throws is caught by its worker, which logs "task <function address> threw an
// exception" at error level, frees the block and goes on with the next record.
//
// fork: the pools' locks are held across fork (fork handlers, taken in a fixed order), so the
// child finds every list whole and every lock free. The child has none of the workers: each
// pool there has no workers and no pending records (they were the parent's work), and DeInit
// has nothing to join. Init starts workers in the child as anywhere else.
//
// Locks: m_workerMutex guards m_workers and the DeInit in progress; m_taskMutex guards
// m_taskList and is the lock of m_taskCond. The two are never held together, except by the
// fork handlers (m_workerMutex first). Joining happens with neither held. A std::lock_guard on
// m_taskMutex works as well (ZOLMutex is a std::mutex), but only ZOLMutexLocker lets clang check
// the access to m_taskList (zolmutex.h).
#pragma once

#include <cstdint>
#include <list>
#include <vector>

#include "zolexport.h"
#include "zolmutex.h"

struct ZOLThreadPoolTask {
    uint32_t cmd;                               // 0 run, 1 the worker ends, others ignored
    void (*func)(void* arg, uint32_t argSize);  // may be null
    void* arg;                                  // malloc'ed by the submitter, freed by the pool
    uint32_t argSize;                           // 0 exactly when arg is null
    uint32_t ctxThreadId;                       // submitter's kernel thread id, 0 for none
};

class ZOL_EXPORT ZOLThreadPool {
public:
    static constexpr uint32_t kCmdRun = 0;
    static constexpr uint32_t kCmdExit = 1;

    ZOLThreadPool();
    ~ZOLThreadPool();
    ZOLThreadPool(const ZOLThreadPool&) = delete;
    ZOLThreadPool& operator=(const ZOLThreadPool&) = delete;

    // Starts up to n workers, stopping at the first that cannot be created (those already
    // started keep running and are listed). True when all n started; Init(0) starts nothing.
    bool Init(unsigned int n) ZOL_EXCLUDES(m_workerMutex, m_taskMutex);
    // Drops pending records (freeing their arguments), stops and joins every worker. Waits for
    // a DeInit already running on another thread, then returns.
    void DeInit() ZOL_EXCLUDES(m_workerMutex, m_taskMutex);
    // Drops pending records, freeing their arguments; exit records stay. Running tasks are not
    // waited for.
    void FlushTask() ZOL_EXCLUDES(m_taskMutex);
    // Blocks until a record is pending and moves the front record into task. Always true.
    bool GetTaskFromList(ZOLThreadPoolTask& task) ZOL_EXCLUDES(m_taskMutex);
    // Thread function of each worker (for pthread_create); its argument is the pool. Returns
    // null when the worker takes an exit record.
    static void* WorkerCore(void* pool);

    ZOLMutex m_workerMutex;
    // pthread_t of each started worker, in start order.
    std::vector<long> m_workers ZOL_GUARDED_BY(m_workerMutex);
    std::list<ZOLThreadPoolTask> m_taskList ZOL_GUARDED_BY(m_taskMutex);
    ZOLMutex m_taskMutex;
    ZOLConditionVariable m_taskCond;

private:
    static void ForkPrepare();
    static void ForkParent();
    static void ForkChild();

    bool m_deInitRunning ZOL_GUARDED_BY(m_workerMutex) = false;
    ZOLConditionVariable m_deInitEnd;  // waited on with m_workerMutex
    // The list of live pools the fork handlers walk (guarded by its own lock).
    ZOLThreadPool* m_prevPool = nullptr;
    ZOLThreadPool* m_nextPool = nullptr;
};
