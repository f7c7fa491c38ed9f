#include "zolsignaltask.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <new>
#include <utility>

#include "zolofflinelog.h"
#include "zoltoolsdef.h"
#include "zoltoolsdef/internal/zolfatal.h"

namespace {

// The instance, for the handlers of exit and fork (which take no argument). Set once.
ZOLSignalTask* g_instance = nullptr;

// Logs a task that threw, naming its callable: the function's address for a plain function,
// else the callable's type.
void LogThrowingTask(const void* self, unsigned long id, const std::function<void()>& task) {
    if (void (*const* function)() = task.target<void (*)()>()) {
        ZOL_LOGE("%s:%d %s() [%p] task %lu (function %p) threw an exception", ZOL_FILE, __LINE__,
                 "loop", self, id, reinterpret_cast<void*>(*function));
    } else {
        ZOL_LOGE("%s:%d %s() [%p] task %lu (%s) threw an exception", ZOL_FILE, __LINE__, "loop",
                 self, id, task.target_type().name());
    }
}

}  // namespace

ZOLSignalTask* ZOLSignalTask::instance() {
    // Constructed once, thread-safely, in storage that is never given back: threads that call
    // in while the process exits must not find a destroyed object. At exit (or unload) the loop
    // is stopped instead, by the handler registered here.
    static ZOLSignalTask* const signalTask = [] {
        alignas(ZOLSignalTask) static unsigned char storage[sizeof(ZOLSignalTask)];
        g_instance = new (storage) ZOLSignalTask();
        std::atexit(StopAtExit);
        // After the offline log's (built by the constructor): these run first at a fork.
        pthread_atfork(ForkPrepare, ForkParent, ForkChild);
        return g_instance;
    }();
    return signalTask;
}

ZOLSignalTask::ZOLSignalTask() {
    // The loop logs until it has been joined, and every line also goes to the offline log.
    // Constructing that singleton first makes it outlive the loop (exit handlers run in reverse
    // order), so the loop never writes into an offline log being torn down.
    ZOLOfflineLog::GetInstance();
    // Started last, once every member is ready for the loop.
    m_threads.emplace_back(&ZOLSignalTask::loop, this);
    m_loopId = m_threads.back().get_id();
    m_loopPid = getpid();
}

ZOLSignalTask::~ZOLSignalTask() {
    Stop();
}

void ZOLSignalTask::StopAtExit() {
    g_instance->Stop();
}

void ZOLSignalTask::Stop() {
    remove();
    // The stop request is made under the loop's lock and followed by a wake-up, so the loop
    // sees it whether it is waiting, about to wait or still serving a task.
    {
        ZOLMutexLocker lock(m_signalMutex);
        m_stop = true;
    }
    m_cond.notify_one();
    if (m_loopPid != getpid()) {
        return;  // a forked child: the loop thread was the parent's
    }
    for (std::thread& thread : m_threads) {
        if (thread.joinable()) {
            thread.join();
        }
    }
}

// Held across fork in the order the loop nests them. A task that forks runs on the loop
// thread, which holds m_taskMutex already and keeps it in the child. Taken here and let go in
// the other two handlers, which the analysis cannot follow.
void ZOLSignalTask::ForkPrepare() ZOL_NO_THREAD_SAFETY_ANALYSIS {
    if (std::this_thread::get_id() != g_instance->m_loopId) {
        g_instance->m_taskMutex.lock();
    }
    g_instance->m_signalMutex.lock();
}

void ZOLSignalTask::ForkParent() ZOL_NO_THREAD_SAFETY_ANALYSIS {
    g_instance->m_signalMutex.unlock();
    if (std::this_thread::get_id() != g_instance->m_loopId) {
        g_instance->m_taskMutex.unlock();
    }
}

// The loop thread that waited on m_cond is the parent's: the condition variable is made anew,
// since a waiter that no longer exists could hold up its next notification.
void ZOLSignalTask::ForkChild() {
    new (&g_instance->m_cond) ZOLConditionVariable();
    ForkParent();
}

unsigned long ZOLSignalTask::insert(unsigned long id, WrapperTask&& task) {
    ZOL_LOGI("%s:%d %s() [%p] try connect %lu", ZOL_FILE, __LINE__, "insert", this, id);
    unsigned long size = 0;
    {
        ZOLMutexLocker lock(m_taskMutex);
        // Copied, not moved: the caller's object keeps sharing the flags.
        m_tasks[id] = task;
        size = m_tasks.size();
    }
    ZOL_LOGI("%s:%d %s() [%p] success connect %lu with %lu tasks left", ZOL_FILE, __LINE__,
             "insert", this, id, size);
    return size;
}

unsigned long ZOLSignalTask::insert(unsigned long id) {
    ZOL_LOGI("%s:%d %s() [%p] try signal %lu", ZOL_FILE, __LINE__, "insert", this, id);
    unsigned long size = 0;
    {
        ZOLMutexLocker lock(m_signalMutex);
        if (std::find(m_signals.begin(), m_signals.end(), id) != m_signals.end()) {
            return m_signals.size();
        }
        m_signals.push_back(id);
        size = m_signals.size();
    }
    ZOL_LOGI("%s:%d %s() [%p] success signal %lu with %lu signals left", ZOL_FILE, __LINE__,
             "insert", this, id, size);
    return size;
}

void ZOLSignalTask::signal(unsigned long id) {
    insert(id);
    m_cond.notify_one();
}

void ZOLSignalTask::notify() {
    m_cond.notify_one();
}

void ZOLSignalTask::remove(unsigned long id) {
    {
        ZOLMutexLocker lock(m_signalMutex);
        m_signals.remove(id);
    }
    {
        ZOLMutexLocker lock(m_taskMutex);
        m_tasks.erase(id);
    }
    ZOL_LOGI("%s:%d %s() [%p] disconnect %lu", ZOL_FILE, __LINE__, "remove", this, id);
}

void ZOLSignalTask::remove() {
    {
        ZOLMutexLocker lock(m_signalMutex);
        m_signals.clear();
    }
    {
        ZOLMutexLocker lock(m_taskMutex);
        m_tasks.clear();
        // Give the bucket array back as well.
        std::unordered_map<unsigned long, WrapperTask>().swap(m_tasks);
    }
    ZOL_LOGI("%s:%d %s() [%p] disconnect all", ZOL_FILE, __LINE__, "remove", this);
}

void ZOLSignalTask::disconnect(unsigned long id) {
    remove(id);
    m_cond.notify_one();
}

void ZOLSignalTask::disconnect() {
    remove();
    m_cond.notify_one();
}

void ZOLSignalTask::loop() {
    for (;;) {
        ZOL_LOGI("%s:%d %s() [%p] loop alive", ZOL_FILE, __LINE__, "loop", this);
        unsigned long id = 0;
        {
            ZOLMutexLocker lock(m_signalMutex);
            while (!m_stop && m_signals.empty()) {
                m_cond.wait(lock);
            }
            // A stop request wins over signals still pending: they are not served.
            if (m_stop) {
                lock.unlock();
                ZOL_LOGI("%s:%d %s() [%p] loop stop", ZOL_FILE, __LINE__, "loop", this);
                return;
            }
            id = m_signals.front();
            m_signals.pop_front();
        }

        // Declared before the lock, so that it is destroyed after the lock is released.
        WrapperTask local;
        ZOLMutexLocker lock(m_taskMutex);
        auto entry = m_tasks.find(id);
        if (entry == m_tasks.end()) {
            continue;  // nothing registered: the signal is consumed
        }
        local = entry->second;
        // The local copy shares `holders`, so erasing the entry leaves `alive` true.
        m_tasks.erase(entry);
        // An empty std::function would throw, which this library never lets out of a thread.
        if (!local.task) {
            ZOL_FATAL("signalled task has no callable");
        }
        try {
            local.task();
        } catch (...) {
            // Let out of the loop thread, the exception would end the process.
            LogThrowingTask(this, id, local.task);
        }
        if (local.done) {  // empty only if the caller reset it
            local.done->store(true);
        }
        ZOL_LOGI("%s:%d %s() [%p] task %lu done", ZOL_FILE, __LINE__, "loop", this, id);
    }
}
