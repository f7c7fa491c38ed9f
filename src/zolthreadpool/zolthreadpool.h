// ZOLThreadPool: plain function-pointer tasks run on a fixed set of POSIX worker threads.
//
// The owner embeds the pool, calls Init(n) once to start n workers, and submits work itself:
// there is no submit method. To submit, build a ZOLThreadPoolTask, lock m_taskMutex, append the
// record at the back of m_taskList, unlock, then notify one waiter on m_taskCond. A record's
// argument block is allocated with malloc by the submitter and from then on belongs to the
// pool, which frees it after the task ran or when it drops the record. A record that names the
// submitting thread (ctxThreadId) runs under that thread's ZOLThreadContext.
//
// Locks: m_workerMutex guards m_workers; m_taskMutex guards m_taskList and is the lock of
// m_taskCond. DeInit() (also run by the destructor) drops pending records, then stops and joins
// every worker.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <list>
#include <mutex>
#include <vector>

#include "zolexport.h"

struct ZOLThreadPoolTask {
    uint32_t cmd;                               // 0 run, 1 the worker taking it ends
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

    // Starts up to n workers; true when all n started.
    bool Init(unsigned int n);
    // Drops pending records (freeing their arguments), stops and joins every worker.
    void DeInit();
    // Drops pending records, freeing their arguments. Running tasks are not waited for.
    void FlushTask();
    // Blocks until a record is pending and moves the front record into task. Always true.
    bool GetTaskFromList(ZOLThreadPoolTask& task);
    // Thread function of each worker; its argument is the pool.
    static void* WorkerCore(void* pool);

    std::mutex m_workerMutex;
    std::vector<long> m_workers;  // pthread_t of each started worker, in start order
    std::list<ZOLThreadPoolTask> m_taskList;
    std::mutex m_taskMutex;
    std::condition_variable m_taskCond;
};
