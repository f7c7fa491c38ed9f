#include "zolthreadpool.h"

#include <pthread.h>
#include <unistd.h>

#include <cstdlib>
#include <mutex>
#include <new>

#include "zolthreadcontextmanager.h"
#include "zoltoolsdef.h"

namespace {

// Every live pool, for the fork handlers: a list through the pools themselves, so that joining
// it allocates nothing and it needs no destructor at exit.
ZOLMutex g_poolsMutex;
ZOLThreadPool* g_firstPool ZOL_GUARDED_BY(g_poolsMutex) = nullptr;
std::once_flag g_forkHandlers;

// The pool whose worker the calling thread is, if any: DeInit called from a task must not wait
// for its own worker.
thread_local const ZOLThreadPool* t_workerOf = nullptr;

unsigned int CurrentThreadId() {
    return static_cast<unsigned int>(gettid());
}

// Gives the calling worker the context of the submitting thread for the duration of a task: a
// copy of the submitter's entry, or an all-zero context when it has none. A context the worker
// already has is kept. The table lock is taken twice and never held while calling out.
void AdoptContext(unsigned int submitterThreadId) {
    ZOLThreadContext context{};
    {
        ZOLMutexLocker lock(ZOLThreadContextManager::m_threadIdToContextMapLock);
        const auto& map = ZOLThreadContextManager::m_threadIdToContextMap;
        const auto it = map.find(submitterThreadId);
        if (it != map.end()) {
            context = it->second;
        }
    }
    const unsigned int self = CurrentThreadId();
    ZOLMutexLocker lock(ZOLThreadContextManager::m_threadIdToContextMapLock);
    // Out of memory, the task runs without the submitter's context rather than the exception
    // ending the process from a worker thread.
    try {
        ZOLThreadContextManager::m_threadIdToContextMap.emplace(self, context);
    } catch (const std::bad_alloc&) {
    }
}

}  // namespace

ZOLThreadPool::ZOLThreadPool() {
    {
        ZOLMutexLocker lock(m_workerMutex);
        m_workers.clear();
    }
    {
        ZOLMutexLocker lock(m_taskMutex);
        m_taskList.clear();
    }
    // The handlers are registered once, by the first pool. Later users of the pools (the offline
    // log, the signal task) register theirs afterwards, so that their prepare handlers run first
    // and their locks are taken before the pools'.
    std::call_once(g_forkHandlers, [] { pthread_atfork(ForkPrepare, ForkParent, ForkChild); });
    ZOLMutexLocker lock(g_poolsMutex);
    m_nextPool = g_firstPool;
    if (g_firstPool != nullptr) {
        g_firstPool->m_prevPool = this;
    }
    g_firstPool = this;
}

ZOLThreadPool::~ZOLThreadPool() {
    DeInit();
    ZOLMutexLocker lock(g_poolsMutex);
    (m_prevPool != nullptr ? m_prevPool->m_nextPool : g_firstPool) = m_nextPool;
    if (m_nextPool != nullptr) {
        m_nextPool->m_prevPool = m_prevPool;
    }
}

// Across fork, every pool's two locks and the context table's lock are held, pools in list
// order, so that no list is caught half changed. Called by fork only. The locks are taken here
// and let go in the other two handlers, which the analysis cannot follow.
void ZOLThreadPool::ForkPrepare() ZOL_NO_THREAD_SAFETY_ANALYSIS {
    g_poolsMutex.lock();
    for (ZOLThreadPool* pool = g_firstPool; pool != nullptr; pool = pool->m_nextPool) {
        pool->m_workerMutex.lock();
        pool->m_taskMutex.lock();
    }
    ZOLThreadContextManager::m_threadIdToContextMapLock.lock();
}

void ZOLThreadPool::ForkParent() ZOL_NO_THREAD_SAFETY_ANALYSIS {
    ZOLThreadContextManager::m_threadIdToContextMapLock.unlock();
    for (ZOLThreadPool* pool = g_firstPool; pool != nullptr; pool = pool->m_nextPool) {
        pool->m_taskMutex.unlock();
        pool->m_workerMutex.unlock();
    }
    g_poolsMutex.unlock();
}

// Only the thread that forked lives on in the child. The workers are gone, and so are the
// threads that waited on the condition variables: those are made anew, since waiters that no
// longer exist could hold up their next notification. The pending records were the parent's
// work, which the parent does; here they are dropped. The locks are ForkPrepare's.
void ZOLThreadPool::ForkChild() ZOL_NO_THREAD_SAFETY_ANALYSIS {
    ZOLThreadContextManager::m_threadIdToContextMapLock.unlock();
    for (ZOLThreadPool* pool = g_firstPool; pool != nullptr; pool = pool->m_nextPool) {
        pool->m_workers.clear();
        pool->m_deInitRunning = false;
        for (const ZOLThreadPoolTask& task : pool->m_taskList) {
            free(task.arg);
        }
        pool->m_taskList.clear();
        new (&pool->m_taskCond) ZOLConditionVariable();
        new (&pool->m_deInitEnd) ZOLConditionVariable();
        pool->m_taskMutex.unlock();
        pool->m_workerMutex.unlock();
    }
    g_poolsMutex.unlock();
}

bool ZOLThreadPool::Init(unsigned int n) {
    {
        // Handles of an earlier Init are forgotten, not joined: Init is meant to be called once.
        ZOLMutexLocker lock(m_workerMutex);
        m_workers.clear();
    }
    {
        // Records queued before Init are dropped as they are; their arguments are not freed.
        ZOLMutexLocker lock(m_taskMutex);
        m_taskList.clear();
    }
    ZOLMutexLocker lock(m_workerMutex);
    unsigned int started = 0;
    while (started < n) {
        pthread_t thread{};
        if (pthread_create(&thread, nullptr, WorkerCore, this) != 0 || thread == 0) {
            break;
        }
        m_workers.push_back(static_cast<long>(thread));
        ++started;
    }
    return started == n;
}

void ZOLThreadPool::DeInit() {
    FlushTask();

    const bool onOwnWorker = t_workerOf == this;
    std::vector<long> workers;
    {
        ZOLMutexLocker lock(m_workerMutex);
        if (onOwnWorker && m_deInitRunning) {
            return;  // the DeInit running stops this worker too, once its task is done
        }
        while (m_deInitRunning) {
            m_deInitEnd.wait(lock);
        }
        if (m_workers.empty()) {
            return;
        }
        m_deInitRunning = true;
        workers.swap(m_workers);
    }
    // One exit record per started worker, behind anything submitted since the flush.
    for (size_t i = 0; i < workers.size(); ++i) {
        {
            ZOLMutexLocker lock(m_taskMutex);
            m_taskList.push_back(ZOLThreadPoolTask{kCmdExit, nullptr, nullptr, 0, 0});
        }
        m_taskCond.notify_one();
    }
    bool keepOwnWorker = false;
    for (const long handle : workers) {
        const pthread_t thread = static_cast<pthread_t>(handle);
        if (onOwnWorker && pthread_equal(thread, pthread_self())) {
            keepOwnWorker = true;  // ends after this task, on the exit record left for it
        } else {
            pthread_join(thread, nullptr);
        }
    }
    {
        ZOLMutexLocker lock(m_workerMutex);
        if (keepOwnWorker) {
            m_workers.push_back(static_cast<long>(pthread_self()));  // for a later DeInit to join
        }
        m_deInitRunning = false;
    }
    m_deInitEnd.notify_all();
}

void ZOLThreadPool::FlushTask() {
    ZOLMutexLocker lock(m_taskMutex);
    // Exit records stay: a DeInit under way waits for the workers that are to take them.
    for (auto it = m_taskList.begin(); it != m_taskList.end();) {
        if (it->cmd == kCmdExit) {
            ++it;
            continue;
        }
        free(it->arg);
        it = m_taskList.erase(it);
    }
}

bool ZOLThreadPool::GetTaskFromList(ZOLThreadPoolTask& task) {
    ZOLMutexLocker lock(m_taskMutex);
    while (m_taskList.empty()) {
        m_taskCond.wait(lock);
    }
    task = m_taskList.front();
    m_taskList.pop_front();
    const bool more = !m_taskList.empty();
    lock.unlock();
    if (more) {
        // A submitter that found the list busy may not have woken anyone for what it added
        // (the offline log's callers do not): the next idle worker is woken from here.
        m_taskCond.notify_one();
    }
    return true;
}

void* ZOLThreadPool::WorkerCore(void* pool) {
    auto* self = static_cast<ZOLThreadPool*>(pool);
    t_workerOf = self;
    for (;;) {
        ZOLThreadPoolTask task{};
        self->GetTaskFromList(task);
        if (task.cmd == kCmdExit) {
            break;
        }
        if (task.cmd != kCmdRun) {
            // Unknown commands are taken and ignored; their argument stays with the submitter.
            continue;
        }
        if (task.func == nullptr) {
            if (task.arg != nullptr) {
                free(task.arg);
            }
            continue;
        }
        if (task.arg == nullptr && task.argSize != 0) {
            continue;  // inconsistent record: nothing to free, nothing run
        }
        if (task.arg != nullptr && task.argSize == 0) {
            free(task.arg);  // inconsistent record: dropped without running
            continue;
        }
        if (task.ctxThreadId != 0) {
            AdoptContext(task.ctxThreadId);
        }
        try {
            task.func(task.arg, task.argSize);
        } catch (...) {
            // Let out of the thread, the exception would end the process with every other user
            // of the pool; the task counts as done and its block is freed below.
            ZOL_LOGE("[ThreadPool] %s:%d %s() task %p threw an exception", ZOL_FILE, __LINE__,
                     "WorkerCore", reinterpret_cast<void*>(task.func));
        }
        if (task.ctxThreadId != 0) {
            ZOLThreadContextManager::UnmapContextToThreadId(CurrentThreadId());
        }
        if (task.arg != nullptr) {
            free(task.arg);
        }
    }
    return nullptr;
}
