#include "soak_workload.h"

#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <random>
#include <thread>
#include <vector>

#include "zolofflinelog.h"
#include "zolpsi.h"
#include "zolsignaltask.h"
#include "zolthreadcontextmanager.h"
#include "zoltoolsdef.h"

namespace soak {

namespace {

constexpr unsigned kRawSizes[] = {1000, 4096, 8192, 65536, 123457};
constexpr uint32_t kImageStrides[] = {64, 256};
constexpr uint32_t kImageSlices[] = {48, 64};
constexpr size_t kMaxHeld = 8;              // buffers and images a thread holds at once
constexpr size_t kMaxPendingTasks = 32;     // signalled tasks not yet seen done
constexpr uint64_t kMaxPoolBacklog = 1024;  // thread-pool tasks queued before a submitter waits
constexpr uint64_t kLinesPerWait = 128;     // a thread waits for its lines to be written this often

struct HeldBuffer {
    ZOLBufferManager* manager;
    void* address;
    int fd;
    unsigned size;
    ZOLBufferType type;
    uint8_t pattern;
};

struct HeldImage {
    ZOLBufferManager* manager;
    ZOLImageBuffer image;
    unsigned sizes[2];
    uint8_t pattern;
};

struct PendingTask {
    WrapperTask wrapper;  // shares the flags with the registered copy
    std::shared_ptr<std::atomic<int>> runs;
};

struct PoolArg {
    Workload* workload;
    uint64_t expectedContext;            // words[0] of the submitter's context
    std::atomic<uint64_t>* outstanding;  // the submitter's tasks not yet run
};

bool AllBytesAre(const void* address, size_t size, uint8_t value) {
    const uint8_t* p = static_cast<const uint8_t*>(address);
    for (size_t i = 0; i < size; ++i) {
        if (p[i] != value) {
            return false;
        }
    }
    return true;
}

// Waits, yielding, until `done` holds; false after half a minute.
template <typename F>
bool WaitFor(F done) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    return true;
}

void PoolTask(void* data, uint32_t size) {
    PoolArg arg;
    if (size != sizeof(arg)) {
        return;
    }
    std::memcpy(&arg, data, sizeof(arg));
    ZOLThreadContext context{};
    if (ZOLThreadContextManager::GetContextByThreadId(static_cast<unsigned>(gettid()), context) !=
            ZOLThreadContextManager::kDone ||
        context.words[0] != arg.expectedContext) {
        arg.workload->Violation("a pool task ran without its submitter's context");
    }
    arg.workload->counts().poolTasksRun.fetch_add(1);
    arg.outstanding->fetch_sub(1);
}

// One soak thread's state and steps.
class Worker {
public:
    Worker(Workload& workload, ZOLBufferManager& shared, ZOLThreadPool& pool, int index)
        : m_w(workload),
          m_counts(workload.counts()),
          m_shared(shared),
          m_pool(pool),
          m_index(index),
          m_random(static_cast<unsigned>(index) * 7919u + 1u),
          m_own("soak-" + std::to_string(index)) {
        m_context.words[0] = 0x50000000u + static_cast<uint64_t>(index);
        ZOLThreadContextManager::MapContextToThreadId(static_cast<unsigned>(gettid()), &m_context);
    }

    ~Worker() {
        while (!m_buffers.empty()) {
            FreeRaw();
        }
        while (!m_images.empty()) {
            FreeImage();
        }
        while (!m_tasks.empty()) {
            FinishOldestTask();
        }
        // The context goes last: queued pool tasks of this thread still take it on.
        if (!WaitFor([&] { return m_poolOutstanding.load() == 0; })) {
            m_w.Violation("thread-pool tasks never ran");
        }
        ZOLThreadContextManager::UnmapContextToThreadId(static_cast<unsigned>(gettid()));
    }

    void Step() {
        const unsigned r = m_random() % 100;
        if (r < 25) {
            m_buffers.size() < kMaxHeld && (r & 1) ? AllocRaw() : FreeRaw();
        } else if (r < 38) {
            m_images.size() < kMaxHeld / 2 && (r & 1) ? AllocImage() : FreeImage();
        } else if (r < 58) {
            Log();
        } else if (r < 75) {
            SignalTask();
        } else if (r < 95) {
            SubmitPoolTask();
        } else if (r < 96) {
            ReadPsi();
        } else if (r == 96) {
            CheckStats();
        } else if (r == 97) {
            ShortLivedManager();
        } else {
            ForeignFree();
        }
    }

private:
    ZOLBufferManager& PickManager() { return m_random() % 10 < 7 ? m_own : m_shared; }

    ZOLBufferType PickType() { return m_random() % 2 ? ZOL_BUFFER_TYPE_DMA : ZOL_BUFFER_TYPE_HEAP; }

    uint8_t NextPattern() { return static_cast<uint8_t>(1 + (m_sequence++ % 254)); }

    void AllocRaw() {
        HeldBuffer held = {&PickManager(),
                           nullptr,
                           -1,
                           kRawSizes[m_random() % (sizeof(kRawSizes) / sizeof(kRawSizes[0]))],
                           PickType(),
                           NextPattern()};
        if (!held.manager->AllocBuffer(held.size, &held.address, held.fd, held.type) ||
            held.address == nullptr) {
            m_w.Violation("a raw buffer could not be allocated");
            return;
        }
        m_w.BlockOut(held.address);
        if (held.type == ZOL_BUFFER_TYPE_DMA &&
            !held.manager->StartCPUSync(held.fd, ZOL_CPU_SYNC_WRITE)) {
            m_w.Violation("StartCPUSync failed on a DMA buffer");
        }
        std::memset(held.address, held.pattern, held.size);
        if (held.type == ZOL_BUFFER_TYPE_DMA && !held.manager->EndCPUSync(held.fd)) {
            m_w.Violation("EndCPUSync failed on a DMA buffer");
        }
        m_buffers.push_back(held);
    }

    void FreeRaw() {
        if (m_buffers.empty()) {
            return;
        }
        const HeldBuffer held = m_buffers.front();
        m_buffers.pop_front();
        // Another thread writing into a buffer this one holds would show here.
        if (!AllBytesAre(held.address, held.size, held.pattern)) {
            m_w.Violation("a held raw buffer changed under its holder");
        }
        m_w.BlockBack(held.address);
        if (!held.manager->FreeBuffer(held.address)) {
            m_w.Violation("FreeBuffer refused a buffer of its own manager");
        }
        m_counts.rawBuffers.fetch_add(1);
    }

    void AllocImage() {
        HeldImage held = {};
        held.manager = &PickManager();
        held.pattern = NextPattern();
        ZOLImageBuffer& image = held.image;
        image.format = ZOL_IMAGE_FORMAT_YUV420SP;
        image.width = image.planeStride = kImageStrides[m_random() % 2];
        image.height = image.sliceHeight = kImageSlices[m_random() % 2];
        const ZOLBufferType type = PickType();
        if (!held.manager->AllocBuffer(image, type) || image.numberOfPlanes != 2 ||
            image.Addr[0] == nullptr || image.Addr[1] == nullptr || image.Addr[2] != nullptr) {
            m_w.Violation("an image could not be allocated as documented");
            return;
        }
        m_w.BlockOut(image.Addr[0]);
        m_w.BlockOut(image.Addr[1]);
        held.sizes[0] = image.planeStride * image.sliceHeight;
        held.sizes[1] = held.sizes[0] / 2;
        // The image form synchronises fd0 only and reports false for an image with planes.
        if (type == ZOL_BUFFER_TYPE_DMA && held.manager->StartCPUSync(image, ZOL_CPU_SYNC_WRITE)) {
            m_w.Violation("StartCPUSync on a two-plane image returned true");
        }
        for (int p = 0; p < 2; ++p) {
            std::memset(image.Addr[p], held.pattern, held.sizes[p]);
        }
        if (type == ZOL_BUFFER_TYPE_DMA) {
            held.manager->EndCPUSync(image);
        }
        m_images.push_back(held);
    }

    void FreeImage() {
        if (m_images.empty()) {
            return;
        }
        const HeldImage held = m_images.front();
        m_images.pop_front();
        for (int p = 0; p < 2; ++p) {
            if (!AllBytesAre(held.image.Addr[p], held.sizes[p], held.pattern)) {
                m_w.Violation("a held image plane changed under its holder");
            }
            m_w.BlockBack(held.image.Addr[p]);
        }
        held.manager->FreeBuffer(held.image);
        m_counts.images.fetch_add(1);
    }

    void Log() {
        const unsigned long long n = m_lines++;
        const std::string& padding = m_w.linePadding();
        const char* pad = padding.c_str();
        // The debug log formats into 1,024 bytes: its lines take at most 900 of the padding.
        const char* debugPad = pad + (padding.size() > 900 ? padding.size() - 900 : 0);
        switch (m_random() % 4) {
            case 0:
                ZOLDebugLogD("%s thread %d line %llu%s end", Workload::kLineMark, m_index, n,
                             debugPad);
                m_counts.debugLines.fetch_add(1);
                break;
            case 1:
                ZOLDebugLogW("%s thread %d line %llu with %%s and %%n%s end", Workload::kLineMark,
                             m_index, n, debugPad);
                m_counts.debugLines.fetch_add(1);
                break;
            case 2:
                ZOLOfflineLog::ZOLOfflineLogI("%s thread %d line %llu%s end", Workload::kLineMark,
                                              m_index, n, pad);
                m_counts.offlineLines.fetch_add(1);
                break;
            default:
                ZOLOfflineLog::ZOLOfflineLogVCapture("%s thread %d line %llu%s end",
                                                     Workload::kLineMark, m_index, n, pad);
                m_counts.offlineLines.fetch_add(1);
                break;
        }
        // The queue has no bound: the soak paces itself as a real caller would have to.
        if (m_lines % kLinesPerWait == 0 && !ZOLOfflineLog::GetInstance()->WaitForQueuedLines()) {
            m_w.Violation("WaitForQueuedLines failed");
        }
    }

    void SignalTask() {
        PendingTask pending{WrapperTask(), std::make_shared<std::atomic<int>>(0)};
        auto runs = pending.runs;
        pending.wrapper.task = [runs] { runs->fetch_add(1); };
        const unsigned long id = (static_cast<unsigned long>(m_index + 1) << 40) |
                                 static_cast<unsigned long>(m_sequence++);
        ZOLSignalTask* signal = ZOLSignalTask::instance();
        WrapperTask registered = pending.wrapper;
        signal->insert(id, std::move(registered));
        if (m_random() % 8 == 0) {
            signal->disconnect(id);
            if (*pending.wrapper.done || runs->load() != 0) {
                m_w.Violation("a disconnected task ran");
            }
            m_counts.disconnected.fetch_add(1);
            return;
        }
        signal->signal(id);
        m_tasks.push_back(std::move(pending));
        if (m_tasks.size() > kMaxPendingTasks) {
            FinishOldestTask();
        }
    }

    void FinishOldestTask() {
        PendingTask& oldest = m_tasks.front();
        if (!WaitFor([&] { return oldest.wrapper.done->load(); })) {
            m_w.Violation("a signalled task never ran");
        } else if (oldest.runs->load() != 1) {
            m_w.Violation("a signalled task did not run exactly once");
        } else {
            m_counts.signalTasks.fetch_add(1);
        }
        m_tasks.pop_front();
    }

    void SubmitPoolTask() {
        if (m_counts.poolTasks.load() - m_counts.poolTasksRun.load() > kMaxPoolBacklog) {
            std::this_thread::yield();
            return;
        }
        PoolArg arg = {&m_w, m_context.words[0], &m_poolOutstanding};
        void* block = std::malloc(sizeof(arg));
        std::memcpy(block, &arg, sizeof(arg));
        const ZOLThreadPoolTask task = {ZOLThreadPool::kCmdRun, &PoolTask, block,
                                        static_cast<uint32_t>(sizeof(arg)),
                                        static_cast<uint32_t>(gettid())};
        m_counts.poolTasks.fetch_add(1);
        m_poolOutstanding.fetch_add(1);
        {
            std::lock_guard<std::mutex> lock(m_pool.m_taskMutex);
            m_pool.m_taskList.push_back(task);
        }
        m_pool.m_taskCond.notify_one();
    }

    void ReadPsi() {
        ZOLPSI psi;
        const float values[] = {psi.GetPsiCpuSomeAvg10(), psi.GetPsiMemSomeAvg10(),
                                psi.GetPsiIoSomeAvg10()};
        for (float v : values) {
            if (!(v >= 0.0f && v <= 100.0f)) {
                m_w.Violation("a pressure reading outside 0..100");
            }
        }
        m_counts.psiReads.fetch_add(1);
    }

    // The pool's figures are one instant, whatever the other threads do: what it holds is busy
    // plus free, and busy never passes its peak.
    void CheckStats() {
        const ZOLBufferPoolStats stats = ZOLBufferPool::GetStats();
        for (int type = 0; type < 2; ++type) {
            if (stats.heldBytes[type] != stats.busyBytes[type] + stats.freeBytes[type] ||
                stats.busyBytes[type] > stats.peakBusyBytes[type]) {
                m_w.Violation("the pool's figures are not those of one instant");
            }
        }
        ZOLBufferPool::LogStats();
    }

    void ShortLivedManager() {
        ZOLBufferManager manager("soak-short");
        void* address = nullptr;
        int fd = -1;
        const ZOLBufferType type = PickType();
        if (!manager.AllocBuffer(4096, &address, fd, type)) {
            m_w.Violation("a short-lived manager could not allocate");
            return;
        }
        m_w.BlockOut(address);
        m_w.BlockBack(address);
        // Left for the destructor to return half of the time.
        if (m_random() % 2 && !manager.FreeBuffer(address)) {
            m_w.Violation("a short-lived manager refused its own buffer");
        }
        m_counts.shortManagers.fetch_add(1);
    }

    // A buffer freed through a manager that did not hand it out is refused and stays held.
    void ForeignFree() {
        for (const HeldBuffer& held : m_buffers) {
            if (held.manager == &m_shared) {
                if (m_own.FreeBuffer(held.address)) {
                    m_w.Violation("a manager freed a buffer it did not hand out");
                }
                return;
            }
        }
    }

    Workload& m_w;
    Counts& m_counts;
    ZOLBufferManager& m_shared;
    ZOLThreadPool& m_pool;
    const int m_index;
    std::minstd_rand m_random;
    ZOLBufferManager m_own;
    ZOLThreadContext m_context{};
    std::deque<HeldBuffer> m_buffers;
    std::deque<HeldImage> m_images;
    std::deque<PendingTask> m_tasks;
    uint64_t m_sequence = 0;
    uint64_t m_lines = 0;
    std::atomic<uint64_t> m_poolOutstanding{0};
};

}  // namespace

uint64_t Counts::Operations() const {
    return rawBuffers + images + debugLines + offlineLines + signalTasks + disconnected +
           poolTasks + psiReads + shortManagers;
}

Workload::Workload(size_t linePadding) : m_linePadding(linePadding, '.') {
    m_pool.Init(4);
}

Workload::~Workload() {
    m_pool.DeInit();
}

void Workload::Run(int index, const std::atomic<bool>& stop) {
    Worker worker(*this, m_shared, m_pool, index);
    while (!stop.load(std::memory_order_relaxed)) {
        worker.Step();
    }
}

bool Workload::DrainPool() {
    if (!WaitFor([&] { return m_counts.poolTasksRun.load() == m_counts.poolTasks.load(); })) {
        Violation("thread-pool tasks never ran");
        return false;
    }
    return true;
}

void Workload::Violation(const char* what) {
    m_counts.violations.fetch_add(1);
    std::lock_guard<std::mutex> lock(m_violationMutex);
    if (m_firstViolation.empty()) {
        m_firstViolation = what;
    }
}

void Workload::BlockOut(const void* block) {
    std::lock_guard<std::mutex> lock(m_ledgerMutex);
    if (!m_ledger.insert(block).second) {
        Violation("a block was handed out while another holder had it");
    }
}

void Workload::BlockBack(const void* block) {
    std::lock_guard<std::mutex> lock(m_ledgerMutex);
    if (m_ledger.erase(block) != 1) {
        Violation("a block was given back that was not out");
    }
}

size_t Workload::CheckPool() {
    {
        std::lock_guard<std::mutex> lock(m_ledgerMutex);
        if (!m_ledger.empty()) {
            Violation("blocks are still out after every thread gave its blocks back");
        }
    }
    {
        std::lock_guard<std::mutex> lock(ZOLBufferPool::m_busyBufferListLock);
        if (!ZOLBufferPool::m_busyBufferList.empty()) {
            Violation("the pool counts blocks as busy that every holder freed");
        }
    }
    const ZOLBufferPoolStats stats = ZOLBufferPool::GetStats();
    if (stats.busyBytes[0] + stats.busyBytes[1] != 0 ||
        stats.busyCount[0] + stats.busyCount[1] != 0) {
        Violation("the pool's figures count blocks as busy that every holder freed");
    }
    size_t freeDma = 0;
    std::lock_guard<std::mutex> lock(ZOLBufferPool::m_freeBufferListLock);
    for (const auto& freeList : ZOLBufferPool::m_freeBufferList) {
        for (const auto& sizeAndQueue : freeList) {
            if (sizeAndQueue.second.size() > 10) {
                Violation("more than ten free blocks of one size and type");
            }
            if (&freeList == &ZOLBufferPool::m_freeBufferList[ZOL_BUFFER_TYPE_DMA]) {
                freeDma += sizeAndQueue.second.size();
            }
        }
    }
    return freeDma;
}

std::string Workload::FirstViolation() const {
    std::lock_guard<std::mutex> lock(m_violationMutex);
    return m_firstViolation;
}

}  // namespace soak
