#include "zolthreadpool.h"

#include <pthread.h>
#include <unistd.h>

#include <cstdlib>
#include <new>

#include "zolthreadcontextmanager.h"

namespace {

unsigned int CurrentThreadId() {
    return static_cast<unsigned int>(gettid());
}

// Gives the calling worker the context of the submitting thread for the duration of a task: a
// copy of the submitter's entry, or an all-zero context when it has none. A context the worker
// already has is kept. The table lock is taken twice and never held while calling out.
void AdoptContext(unsigned int submitterThreadId) {
    ZOLThreadContext context{};
    {
        std::lock_guard<std::mutex> lock(ZOLThreadContextManager::m_threadIdToContextMapLock);
        const auto& map = ZOLThreadContextManager::m_threadIdToContextMap;
        const auto it = map.find(submitterThreadId);
        if (it != map.end()) {
            context = it->second;
        }
    }
    const unsigned int self = CurrentThreadId();
    std::lock_guard<std::mutex> lock(ZOLThreadContextManager::m_threadIdToContextMapLock);
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
        std::lock_guard<std::mutex> lock(m_workerMutex);
        m_workers.clear();
    }
    std::lock_guard<std::mutex> lock(m_taskMutex);
    m_taskList.clear();
}

ZOLThreadPool::~ZOLThreadPool() {
    DeInit();
}

bool ZOLThreadPool::Init(unsigned int n) {
    {
        // Handles of an earlier Init are forgotten, not joined: Init is meant to be called once.
        std::lock_guard<std::mutex> lock(m_workerMutex);
        m_workers.clear();
    }
    {
        // Records queued before Init are dropped as they are; their arguments are not freed.
        std::lock_guard<std::mutex> lock(m_taskMutex);
        m_taskList.clear();
    }
    std::lock_guard<std::mutex> lock(m_workerMutex);
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

    size_t workers = 0;
    {
        std::lock_guard<std::mutex> lock(m_workerMutex);
        workers = m_workers.size();
    }

    std::unique_lock<std::mutex> workersLock(m_workerMutex, std::defer_lock);
    if (workers != 0) {
        // One exit record per started worker, behind anything submitted since the flush.
        for (size_t i = 0; i < workers; ++i) {
            {
                std::lock_guard<std::mutex> lock(m_taskMutex);
                m_taskList.push_back(ZOLThreadPoolTask{kCmdExit, nullptr, nullptr, 0, 0});
            }
            m_taskCond.notify_one();
        }
        // Workers never take m_workerMutex, so holding it while joining cannot block them.
        workersLock.lock();
        for (const long handle : m_workers) {
            pthread_join(static_cast<pthread_t>(handle), nullptr);
        }
    } else {
        workersLock.lock();
    }
    m_workers.clear();
}

void ZOLThreadPool::FlushTask() {
    std::lock_guard<std::mutex> lock(m_taskMutex);
    for (const ZOLThreadPoolTask& task : m_taskList) {
        if (task.arg != nullptr) {
            free(task.arg);
        }
    }
    m_taskList.clear();
}

bool ZOLThreadPool::GetTaskFromList(ZOLThreadPoolTask& task) {
    std::unique_lock<std::mutex> lock(m_taskMutex);
    m_taskCond.wait(lock, [this] { return !m_taskList.empty(); });
    task = m_taskList.front();
    m_taskList.pop_front();
    return true;
}

void* ZOLThreadPool::WorkerCore(void* pool) {
    auto* self = static_cast<ZOLThreadPool*>(pool);
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
        task.func(task.arg, task.argSize);
        if (task.ctxThreadId != 0) {
            ZOLThreadContextManager::UnmapContextToThreadId(CurrentThreadId());
        }
        if (task.arg != nullptr) {
            free(task.arg);
        }
    }
    return nullptr;
}
