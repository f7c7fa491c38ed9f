// The offline log object: its lifetime, the entry points that stamp and queue lines, and the
// operations around the queue (waiting for it, counting what was dropped, the memory pool).
#include "zolofflinelog.h"

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>

#include "platform/properties.h"
#include "zolofflinelog/internal/zolofflinelogline.h"

namespace {

using zol::offlinelog::kLineBlockSize;

// Set once the object has been destroyed at process exit. Static destructors that run later
// may still log; with this set the entry points, SaveLog and the other operations do nothing
// instead of touching a destroyed object. Constant-initialised and trivially destructible, so
// it is valid during the whole of exit.
std::atomic<bool> g_destroyed{false};

bool Destroyed() {
    return g_destroyed.load(std::memory_order_acquire);
}

// The object, for the fork handlers (which take no argument). Set once by the constructor.
ZOLOfflineLog* g_instance = nullptr;

// Nice value of a worker that writes lines. Ten writers that open, append and close a file for
// every line would otherwise take the CPU from the threads that log (a capture thread in a
// burst was preempted by them for tens of microseconds); at this value they run on what those
// threads leave, and still keep up with a burst once it ends.
constexpr int kWriterNice = 10;

// Puts the calling worker at the writers' priority, once per thread. Only ever lowers it (a
// thread may not raise its own priority back without privilege); failure leaves it as it was.
void WriterPriority() {
    thread_local bool done = false;
    if (!done) {
        done = true;
        const int saved = errno;
        const auto tid = static_cast<id_t>(gettid());
        errno = 0;
        const int now = getpriority(PRIO_PROCESS, tid);
        if (errno == 0 && now < kWriterNice) {
            setpriority(PRIO_PROCESS, tid, kWriterNice);
        }
        errno = saved;
    }
}

// The decision of the constructor: the property, and when it is unset (or -1) the settings file.
bool DecideEnable() {
    const int32_t property = property_get_int32("persist.vendor.camera.zoltools.offlinelog", -1);
    if (property == -1) {
        return ZOLOfflineLog::ReadEnableFromOverrideSettingsFile();
    }
    return property >= 1;
}

// `count` run records of `task`, each with its own copy of `pointer` as argument (malloc'ed: the
// pool frees the argument of a record it has run or dropped). Empty when memory runs out, with
// nothing left allocated.
template <typename T>
std::list<ZOLThreadPoolTask> PointerRecords(T* pointer, uint32_t count,
                                            void (*task)(void*, uint32_t)) {
    std::list<ZOLThreadPoolTask> records;
    for (uint32_t i = 0; i < count; ++i) {
        void* arg = std::malloc(sizeof(pointer));
        bool built = arg != nullptr;
        if (built) {
            std::memcpy(arg, &pointer, sizeof(pointer));
            try {
                records.push_back(
                    {ZOLThreadPool::kCmdRun, task, arg, static_cast<uint32_t>(sizeof(pointer)), 0});
            } catch (const std::bad_alloc&) {
                std::free(arg);
                built = false;
            }
        }
        if (!built) {
            for (ZOLThreadPoolTask& record : records) {
                std::free(record.arg);
            }
            records.clear();
            break;
        }
    }
    return records;
}

}  // namespace

// Built on first use, after the library's static initialisers have run (none of them logs), so
// it is destroyed before them at exit: in particular before the thread-context map that its
// workers use, which must outlive the workers' last task.
ZOLOfflineLog* ZOLOfflineLog::GetInstance() {
    static ZOLOfflineLog instance;
    return &instance;
}

void ZOLOfflineLog::Enter(ZOLOfflineLogLevel level, bool capture, const char* fmt, va_list args) {
    if (Destroyed()) {
        return;
    }
    ZOLOfflineLog* log = GetInstance();
    // A closed gate skips the formatting as well: the debug log calls in here for every message
    // it writes, and the offline log is off on most devices.
    if (!(capture ? log->m_captureEnable : log->m_enable)) {
        return;
    }
    // vsnprintf always terminates; the buffer needs no zeroing first. A message is cut to
    // 2,047 characters here.
    char message[kLineBlockSize];
    vsnprintf(message, sizeof(message), fmt, args);
    log->PushLogToLogPool(message, level, capture);
}

ZOLOfflineLog::ZOLOfflineLog() {
    try {
        m_threadPool.Init(kWorkerCount);  // the workers run whether or not the log is enabled
    } catch (const std::bad_alloc&) {
        // Init's result is not looked at either: the workers that did start serve the log.
    }
    m_logFileList.clear();
    m_enable = false;
    try {
        m_enable = DecideEnable();
    } catch (const std::bad_alloc&) {
        m_enable = false;  // the settings file could not be read: off, as when it is absent
    }
    m_captureEnable = m_enable;
    if (m_enable) {
        m_logPool = static_cast<char*>(std::malloc(kLogPoolSize));
        if (m_logPool != nullptr) {
            std::memset(m_logPool, 0, 8);
        }
    }
    {
        ZOLMutexLocker lock(m_logFileMutex);
        m_curLogFileName.clear();
        m_curLogFileSize = kMaxLogFileSize;
    }
    // Registered after the pool's handlers, so these run first at a fork: the locks of this
    // object are taken before the pool's.
    g_instance = this;
    pthread_atfork(ForkPrepare, ForkParent, ForkChild);
}

// Held across fork, in the order in which the rest of the object nests them. Taken here and let
// go in the other two handlers, which the analysis cannot follow.
void ZOLOfflineLog::ForkPrepare() ZOL_NO_THREAD_SAFETY_ANALYSIS {
    if (Destroyed()) {
        return;
    }
    g_instance->m_restartMutex.lock();
    g_instance->m_logFileMutex.lock();
    g_instance->m_fileListMutex.lock();
    g_instance->m_drainMutex.lock();
    g_instance->m_logPoolMutex.lock();
}

void ZOLOfflineLog::ForkParent() ZOL_NO_THREAD_SAFETY_ANALYSIS {
    if (Destroyed()) {
        return;
    }
    g_instance->m_logPoolMutex.unlock();
    g_instance->m_drainMutex.unlock();
    g_instance->m_fileListMutex.unlock();
    g_instance->m_logFileMutex.unlock();
    g_instance->m_restartMutex.unlock();
}

// The pool has forgotten its workers and the parent's queued lines by now. Threads that waited
// for a drain are gone with them, so the condition variable is made anew.
void ZOLOfflineLog::ForkChild() {
    if (Destroyed()) {
        return;
    }
    new (&g_instance->m_drainCond) ZOLConditionVariable();
    g_instance->m_workersGone.store(true, std::memory_order_release);
    ForkParent();
}

void ZOLOfflineLog::RestartWorkers() {
    ZOLMutexLocker lock(m_restartMutex);
    if (m_workersGone.load(std::memory_order_relaxed)) {
        try {
            m_threadPool.Init(kWorkerCount);
        } catch (const std::bad_alloc&) {
            // As in the constructor: the workers that did start serve the log.
        }
        m_workersGone.store(false, std::memory_order_release);
    }
}

ZOLOfflineLog::~ZOLOfflineLog() {
    {
        // Releases workers held by a WaitForQueuedLines that can no longer complete.
        ZOLMutexLocker lock(m_drainMutex);
        m_stopping = true;
    }
    m_drainCond.notify_all();
    m_threadPool.DeInit();  // drops queued lines; a line being written is finished first
    std::free(m_logPool);
    m_logPool = nullptr;
    g_destroyed.store(true, std::memory_order_release);
}

#define ZOL_OFFLINE_ENTRY(name, level, capture)      \
    void ZOLOfflineLog::name(const char* fmt, ...) { \
        va_list args;                                \
        va_start(args, fmt);                         \
        Enter(level, capture, fmt, args);            \
        va_end(args);                                \
    }
ZOL_OFFLINE_ENTRY(ZOLOfflineLogE, ZOL_OFFLINE_LOG_E, false)
ZOL_OFFLINE_ENTRY(ZOLOfflineLogW, ZOL_OFFLINE_LOG_W, false)
ZOL_OFFLINE_ENTRY(ZOLOfflineLogD, ZOL_OFFLINE_LOG_D, false)
ZOL_OFFLINE_ENTRY(ZOLOfflineLogI, ZOL_OFFLINE_LOG_I, false)
ZOL_OFFLINE_ENTRY(ZOLOfflineLogV, ZOL_OFFLINE_LOG_V, false)
ZOL_OFFLINE_ENTRY(ZOLOfflineLogECapture, ZOL_OFFLINE_LOG_E, true)
ZOL_OFFLINE_ENTRY(ZOLOfflineLogWCapture, ZOL_OFFLINE_LOG_W, true)
ZOL_OFFLINE_ENTRY(ZOLOfflineLogDCapture, ZOL_OFFLINE_LOG_D, true)
ZOL_OFFLINE_ENTRY(ZOLOfflineLogICapture, ZOL_OFFLINE_LOG_I, true)
ZOL_OFFLINE_ENTRY(ZOLOfflineLogVCapture, ZOL_OFFLINE_LOG_V, true)
#undef ZOL_OFFLINE_ENTRY

void ZOLOfflineLog::PushLogToLogPool(const char* msg, ZOLOfflineLogLevel level, bool capture) {
    if (Destroyed() || !(capture ? m_captureEnable : m_enable)) {
        return;  // a closed gate reads no time and takes no memory
    }
    if (msg == nullptr) {
        msg = "";  // nothing to print rather than a null dereference
    }
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    const pid_t tid = zol::offlinelog::ThreadId();
    char stamp[zol::offlinelog::kStampSize];
    const size_t stampLen = zol::offlinelog::FormatStamp(stamp, now, zol::offlinelog::ProcessId(),
                                                         tid, zol::offlinelog::LevelLetter(level));

    if (m_workersGone.load(std::memory_order_acquire)) {
        RestartWorkers();
    }
    char* block = static_cast<char*>(std::calloc(1, kLineBlockSize));
    if (block == nullptr) {
        m_droppedNoMemory.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    zol::offlinelog::ComposeLine(block, stamp, stampLen, msg);

    // From here the block belongs to the pool, which frees it once SaveLog has run (or when it
    // drops the record).
    const ZOLThreadPoolTask task = {ZOLThreadPool::kCmdRun, &ZOLOfflineLog::SaveLog, block,
                                    static_cast<uint32_t>(kLineBlockSize),
                                    static_cast<uint32_t>(tid)};
    bool wasEmpty = false;
    try {
        ZOLMutexLocker lock(m_threadPool.m_taskMutex);
        wasEmpty = m_threadPool.m_taskList.empty();
        m_threadPool.m_taskList.push_back(task);
    } catch (const std::bad_alloc&) {
        // No memory for the queue's node either: dropped like a line without a block.
        std::free(block);
        m_droppedNoMemory.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    // Lines behind others are for the worker that takes the one before to pass on: a notify
    // can make the caller wait until workers it woke earlier (at background priority) have run,
    // which in a burst was most of a slow line's time.
    if (wasEmpty) {
        m_threadPool.m_taskCond.notify_one();
    }
}

void ZOLOfflineLog::SaveLog(void* data, unsigned int size) {
    if (Destroyed()) {
        return;
    }
    WriterPriority();
    ZOLOfflineLog* log = GetInstance();
    if (data != nullptr && size == kLineBlockSize) {
        log->FlushLogPoolToFile2(static_cast<ZOLOfflineLogParameter*>(data));
    }
}

bool ZOLOfflineLog::AppendToLogPool(const char* text, uint32_t len) {
    if (Destroyed() || m_logPool == nullptr || (text == nullptr && len != 0)) {
        return false;
    }
    ZOLMutexLocker lock(m_logPoolMutex);
    // Room for the text and the zero after it.
    if (len >= kLogPoolSize - m_logPoolSize) {
        return false;
    }
    std::memcpy(m_logPool + m_logPoolSize, text, len);
    m_logPoolSize += len;
    m_logPool[m_logPoolSize] = '\0';
    return true;
}

uint64_t ZOLOfflineLog::DroppedLinesNoMemory() const {
    return m_droppedNoMemory.load(std::memory_order_relaxed);
}

uint64_t ZOLOfflineLog::DroppedLinesNoFile() const {
    return m_droppedNoFile.load(std::memory_order_relaxed);
}

uint64_t ZOLOfflineLog::DroppedLinesNoSpace() const {
    return m_droppedNoSpace.load(std::memory_order_relaxed);
}

// WaitForQueuedLines queues one drain record per worker, all in one go. Records are taken in
// order and a worker that takes a drain record holds on to it until every worker has taken
// one; so once all have arrived, every record queued before them has been taken and finished.
struct ZOLOfflineLog::Drain {
    ZOLOfflineLog* log;
    uint32_t expected;  // workers to gather
    uint32_t arrived ZOL_GUARDED_BY(log->m_drainMutex);
    // The waiter and each record not yet finished.
    uint32_t users ZOL_GUARDED_BY(log->m_drainMutex);
};

void ZOLOfflineLog::DrainTask(void* data, unsigned int size) {
    Drain* drain = nullptr;
    if (data == nullptr || size != sizeof(drain)) {
        return;
    }
    std::memcpy(&drain, data, sizeof(drain));
    ZOLOfflineLog* log = drain->log;
    ZOLMutexLocker lock(drain->log->m_drainMutex);  // named as the lock of the drain's counts
    if (++drain->arrived == drain->expected) {
        log->m_drainCond.notify_all();
    }
    while (drain->arrived != drain->expected && !drain->log->m_stopping) {
        log->m_drainCond.wait(lock);
    }
    const bool last = --drain->users == 0;
    lock.unlock();
    if (last) {
        delete drain;
    }
}

bool ZOLOfflineLog::WaitForQueuedLines() {
    if (Destroyed()) {
        return false;
    }
    size_t workers;
    {
        ZOLMutexLocker lock(m_threadPool.m_workerMutex);
        workers = m_threadPool.m_workers.size();
    }
    if (workers == 0) {
        return false;
    }
    const uint32_t count = static_cast<uint32_t>(workers);
    Drain* drain = new (std::nothrow) Drain{this, count, 0, count + 1};
    if (drain == nullptr) {
        return false;
    }
    std::list<ZOLThreadPoolTask> records = PointerRecords(drain, count, &ZOLOfflineLog::DrainTask);
    if (records.empty()) {
        delete drain;
        return false;
    }
    {
        // All at once: two waiters' records interleaved could each hold some of the workers
        // and wait for the rest for ever.
        ZOLMutexLocker lock(m_threadPool.m_taskMutex);
        m_threadPool.m_taskList.splice(m_threadPool.m_taskList.end(), records);
    }
    for (uint32_t i = 0; i < count; ++i) {
        m_threadPool.m_taskCond.notify_one();
    }

    // Locked through the drain's log, which is this object: the analysis then sees the lock
    // that guards the drain's counts.
    ZOLMutexLocker lock(drain->log->m_drainMutex);
    while (drain->arrived != drain->expected && !drain->log->m_stopping) {
        m_drainCond.wait(lock);
    }
    const bool done = drain->arrived == drain->expected;
    const bool last = --drain->users == 0;
    lock.unlock();
    if (last) {
        delete drain;
    }
    return done;
}
