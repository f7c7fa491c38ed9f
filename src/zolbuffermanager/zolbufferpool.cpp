#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <iterator>
#include <vector>

#include "platform/uniquefd.h"
#include "zolbuffermanager.h"
#include "zolbuffermanager/internal/zolbufferpoolinternal.h"
#include "zoltoolsdef.h"
#include "zoltoolsdef/internal/zolfatal.h"

// A line of a pool client: "[BufferPool-<client>] <file>:<line> <function>() <message>". The
// function is the public call the line belongs to, named as engineers' tools know it, which is
// not always the member that writes the line.
#define ZOL_POOL_LOG(level, function, fmt, ...)                                                 \
    ZOL_LOG##level("[BufferPool-%s] %s:%d %s() " fmt, m_clientName.c_str(), ZOL_FILE, __LINE__, \
                   function, ##__VA_ARGS__)

namespace {

constexpr unsigned kBufferTypeCount = 2;
// A size and type keeps at most this many free blocks; more are released when put back.
constexpr size_t kMaxFreeBuffersPerSize = 10;
// What a DMA block is called while it waits in the free list.
constexpr const char* kFreeBlockName = "zoltools-free";

// Storage whose object is built but never destroyed.
template <typename T>
union Immortal {
    Immortal() : value() {}
    ~Immortal() {}
    T value;
};

// The process-wide lists, built by this unit's static initialiser when the library is loaded.
// Never destroyed: other threads may still be inside the pool while the process exits, after
// the static destructors have run, and the blocks the lists hold are the process's until then.
// The locks are named by the pool's public references to them, which is how every function
// here takes them, so that the analysis sees one lock under both names.
#define ZOL_FREE_LOCKED ZOL_GUARDED_BY(ZOLBufferPool::m_freeBufferListLock)
#define ZOL_BUSY_LOCKED ZOL_GUARDED_BY(ZOLBufferPool::m_busyBufferListLock)
struct PoolLists {
    ZOLMutex freeLock;
    std::map<uint32_t, std::deque<ZOLBufferPoolBufferInfo>> free[kBufferTypeCount] ZOL_FREE_LOCKED;
    ZOLMutex busyLock;
    std::map<void*, ZOLBufferPoolBufferInfo> busy ZOL_BUSY_LOCKED;
    // Busy address -> lease of its hand-out.
    std::map<void*, uint64_t> leases ZOL_BUSY_LOCKED;
    uint64_t lastLease ZOL_BUSY_LOCKED = 0;
    ZOLMutex countLock;

    // The figures of GetStats. Busy counts per size get their entry when a size is first
    // allocated, so the hand-out and return paths only update counters.
    std::map<uint32_t, uint32_t> busyBySize[kBufferTypeCount] ZOL_FREE_LOCKED;
    uint64_t busyBytes[kBufferTypeCount] ZOL_FREE_LOCKED = {};
    uint64_t heldBytes[kBufferTypeCount] ZOL_FREE_LOCKED = {};
    uint64_t peakBusyBytes[kBufferTypeCount] ZOL_FREE_LOCKED = {};
    uint64_t allocations ZOL_FREE_LOCKED = 0;
    uint64_t reuses ZOL_FREE_LOCKED = 0;
    uint64_t releases ZOL_FREE_LOCKED = 0;
    std::atomic<uint64_t> nameFailures{0};  // renames happen outside the locks
};
Immortal<PoolLists> g_lists;

// The free list of a type that is known to be 0 or 1; anything else is fatal.
std::map<uint32_t, std::deque<ZOLBufferPoolBufferInfo>>& FreeListOf(ZOLBufferType type)
    ZOL_REQUIRES(ZOLBufferPool::m_freeBufferListLock) {
    return g_lists.value.free[zol::CheckedIndex(static_cast<unsigned>(type), kBufferTypeCount)];
}

// Takes `pBuffer` off the busy list into `info`: false when it is not busy, or (with a lease)
// busy under another lease.
bool TakeBusy(void* pBuffer, const uint64_t* lease, ZOLBufferPoolBufferInfo* info)
    ZOL_EXCLUDES(ZOLBufferPool::m_busyBufferListLock) {
    PoolLists& lists = g_lists.value;
    ZOLMutexLocker busyLock(ZOLBufferPool::m_busyBufferListLock);
    auto found = lists.busy.find(pBuffer);
    auto leased = lists.leases.find(pBuffer);
    if (found == lists.busy.end() ||
        (lease != nullptr && (leased == lists.leases.end() || leased->second != *lease))) {
        return false;
    }
    *info = found->second;
    lists.busy.erase(found);
    if (leased != lists.leases.end()) {
        lists.leases.erase(leased);
    }
    return true;
}

// Renames a DMA block; the caller owns it for the moment (it is in neither list).
void NameBlock(const ZOLBufferPoolBufferInfo& info, const char* name) {
    if (info.type == ZOL_BUFFER_TYPE_DMA && zol::SetDmaBufName(info.fd, name) != 0) {
        g_lists.value.nameFailures.fetch_add(1, std::memory_order_relaxed);
    }
}

// A block leaves the free list for a client (freeLock held).
void CountBusy(const ZOLBufferPoolBufferInfo& info)
    ZOL_REQUIRES(ZOLBufferPool::m_freeBufferListLock) {
    PoolLists& lists = g_lists.value;
    const unsigned type = static_cast<unsigned>(info.type);
    ++lists.busyBySize[type][info.size];
    lists.busyBytes[type] += info.size;
    lists.peakBusyBytes[type] = std::max(lists.peakBusyBytes[type], lists.busyBytes[type]);
}

// A busy block comes back, to the free list or to be released (freeLock held). A block the
// figures never saw busy (handed out twice under one address) leaves them as they are.
void CountNotBusy(const ZOLBufferPoolBufferInfo& info)
    ZOL_REQUIRES(ZOLBufferPool::m_freeBufferListLock) {
    PoolLists& lists = g_lists.value;
    const unsigned type = static_cast<unsigned>(info.type);
    auto found = lists.busyBySize[type].find(info.size);
    if (found != lists.busyBySize[type].end() && found->second > 0) {
        --found->second;
        lists.busyBytes[type] -= info.size;
    }
}

// A block of the pool's goes back to the system (freeLock held).
void CountRelease(const ZOLBufferPoolBufferInfo& info)
    ZOL_REQUIRES(ZOLBufferPool::m_freeBufferListLock) {
    PoolLists& lists = g_lists.value;
    lists.heldBytes[static_cast<unsigned>(info.type)] -= info.size;
    ++lists.releases;
}

}  // namespace

void zol::CleanBufferName(const std::string& name, bool token, char (&out)[kDmaBufNameSize]) {
    size_t n = std::min(name.size(), kDmaBufNameSize - 1);
    for (size_t i = 0; i < n; ++i) {
        const unsigned char c = static_cast<unsigned char>(name[i]);
        const bool printable = c >= (token ? 0x21 : 0x20) && c <= 0x7e;
        out[i] = printable && !(token && (c == '=' || c == ';')) ? static_cast<char>(c) : '_';
    }
    if (token && n == 0) {
        out[n++] = '_';
    }
    out[n] = '\0';
}

ZOLMutex& ZOLBufferPool::m_freeBufferListLock = g_lists.value.freeLock;
ZOLMutex& ZOLBufferPool::m_busyBufferListLock = g_lists.value.busyLock;
ZOLMutex& ZOLBufferPool::m_bufferPoolClientNumLock = g_lists.value.countLock;
std::map<uint32_t, std::deque<ZOLBufferPoolBufferInfo>> (&ZOLBufferPool::m_freeBufferList)[2] =
    g_lists.value.free;
std::map<void*, ZOLBufferPoolBufferInfo>& ZOLBufferPool::m_busyBufferList = g_lists.value.busy;
uint32_t ZOLBufferPool::m_bufferPoolClientNum = 0;

bool zol::FindBusyBlock(const void* address, ptrdiff_t* begin, ptrdiff_t* end) {
    PoolLists& lists = g_lists.value;
    ZOLMutexLocker busyLock(ZOLBufferPool::m_busyBufferListLock);
    auto after = lists.busy.upper_bound(const_cast<void*>(address));
    if (after == lists.busy.begin()) {
        return false;
    }
    const ZOLBufferPoolBufferInfo& block = std::prev(after)->second;
    const uintptr_t start = reinterpret_cast<uintptr_t>(block.pBuffer);
    const uintptr_t at = reinterpret_cast<uintptr_t>(address);
    if (at - start >= block.size) {
        return false;
    }
    *begin = -static_cast<ptrdiff_t>(at - start);
    *end = static_cast<ptrdiff_t>(start + block.size - at);
    return true;
}

ZOLBufferPool::ZOLBufferPool() : m_clientName("UnknowBufferManager") {
    zol::CleanBufferName(m_clientName, false, m_dmaBufName);
    ZOLMutexLocker lock(m_bufferPoolClientNumLock);
    m_bufferPoolClientNum = zol::CheckedAdd<uint32_t>(m_bufferPoolClientNum, 1);
}

ZOLBufferPool::ZOLBufferPool(std::string name) {
    // A default client joins and leaves at once, so a named client is never counted itself.
    { ZOLBufferPool transient; }
    SetClientName(std::move(name));
}

ZOLBufferPool::~ZOLBufferPool() {
    ZOLMutexLocker countLock(m_bufferPoolClientNumLock);
    m_bufferPoolClientNum = zol::CheckedSub<uint32_t>(m_bufferPoolClientNum, 1);
    if (m_bufferPoolClientNum != 0) {
        return;  // what this client took stays busy: nothing is tracked per client
    }

    ZOL_POOL_LOG(D, "~ZOLBufferPool", "All client disconnect, release buffer in pool");

    // Every line names the first busy block and index 0, and only that block is given back (the
    // first put returns it, the later ones find it gone): the rest stay busy.
    std::vector<void*> busyBuffers;
    {
        ZOLMutexLocker busyLock(m_busyBufferListLock);
        const unsigned busyCount = static_cast<unsigned>(m_busyBufferList.size());
        if (busyCount > 0) {
            ZOL_POOL_LOG(W, "~ZOLBufferPool",
                         "All client disconnect, but there are %u busy buffer in list:", busyCount);
            const ZOLBufferPoolBufferInfo& first = m_busyBufferList.begin()->second;
            for (unsigned i = 0; i < busyCount; ++i) {
                busyBuffers.push_back(first.pBuffer);
                ZOL_POOL_LOG(W, "~ZOLBufferPool",
                             "   busy buffer[%u]: pBuf: %p, size: %u, fd, %d, type: %d", 0u,
                             first.pBuffer, first.size, first.fd, static_cast<int>(first.type));
            }
        }
    }
    for (void* pBuffer : busyBuffers) {
        PutBufferToPool(pBuffer);
    }

    ZOLMutexLocker freeLock(m_freeBufferListLock);
    for (auto& freeList : m_freeBufferList) {
        for (auto& sizeAndQueue : freeList) {
            for (const ZOLBufferPoolBufferInfo& info : sizeAndQueue.second) {
                ReleaseBuffer(info);
                CountRelease(info);
                ZOL_POOL_LOG(D, "~ZOLBufferPool",
                             "Buffer released: pBuf: %p, size: %u, fd: %d, type: %d", info.pBuffer,
                             info.size, info.fd, static_cast<int>(info.type));
            }
        }
        freeList.clear();
    }
}

void ZOLBufferPool::SetClientName(std::string name) {
    m_clientName = std::move(name);
    zol::CleanBufferName(m_clientName, false, m_dmaBufName);
}

void* ZOLBufferPool::GetBufferFromPool(unsigned size, int& fd, ZOLBufferType type) {
    return GetLeasedBuffer(size, fd, type, nullptr);
}

void* ZOLBufferPool::GetLeasedBuffer(unsigned size, int& fd, ZOLBufferType type, uint64_t* lease) {
    // Seen unsigned, a negative type is "2 or more" too.
    if (size == 0 || static_cast<uint32_t>(type) >= kBufferTypeCount) {
        ZOL_POOL_LOG(E, "GetBufferFromPool", "Invalid args, get buffer failed!");
        fd = 0;
        return nullptr;
    }

    ZOLBufferPoolBufferInfo info;
    unsigned freeLeft;
    {
        ZOLMutexLocker freeLock(m_freeBufferListLock);
        auto& freeList = FreeListOf(type);
        auto found = freeList.find(size);
        if (found == freeList.end() || found->second.empty()) {
            AllocBuffer(size, type);
            found = freeList.find(size);
        } else {
            ++g_lists.value.reuses;
        }
        // A failed allocation leaves nothing to take.
        ZOL_FATAL_IF(found == freeList.end() || found->second.empty());
        info = found->second.back();  // newest first
        found->second.pop_back();
        // Counted here, under the lock, so that the log line reads a settled value.
        freeLeft = static_cast<unsigned>(found->second.size());
        CountBusy(info);
    }
    NameBlock(info, m_dmaBufName);
    {
        PoolLists& lists = g_lists.value;
        ZOLMutexLocker busyLock(m_busyBufferListLock);
        lists.busy.emplace(info.pBuffer, info);
        // A new lease even when the address was still listed: whoever held it before lost it.
        lists.leases[info.pBuffer] = ++lists.lastLease;
        if (lease != nullptr) {
            *lease = lists.lastLease;
        }
    }
    ZOL_POOL_LOG(D, "GetBufferFromPool",
                 "Get buffer type: %d, size: %u, pBuf: %p. Free buf num this size: %u",
                 static_cast<int>(type), size, info.pBuffer, freeLeft);
    fd = info.fd;
    return info.pBuffer;
}

void ZOLBufferPool::PutBufferToPool(void* pBuffer) {
    if (pBuffer == nullptr) {
        ZOL_POOL_LOG(W, "PutBufferToPool", "Put NULL buffer to pool!");
        return;
    }
    ZOL_POOL_LOG(V, "PutBufferToPool", "Put buffer to pool: %p", pBuffer);
    ZOLBufferPoolBufferInfo info;
    if (!TakeBusy(pBuffer, nullptr, &info)) {
        ZOL_POOL_LOG(W, "PutBufferToPool", "Wrong buffer pointer: %p", pBuffer);
        return;
    }
    ReturnToFreeList(info);
}

bool ZOLBufferPool::PutLeasedBuffer(void* pBuffer, uint64_t lease) {
    ZOLBufferPoolBufferInfo info;
    if (!TakeBusy(pBuffer, &lease, &info)) {
        return false;
    }
    ZOL_POOL_LOG(V, "PutBufferToPool", "Put buffer to pool: %p", pBuffer);
    ReturnToFreeList(info);
    return true;
}

void ZOLBufferPool::ReturnToFreeList(const ZOLBufferPoolBufferInfo& info) {
    // Named before it can be seen in the free list: once there, another client may take it.
    NameBlock(info, kFreeBlockName);
    ZOLMutexLocker freeLock(m_freeBufferListLock);
    CountNotBusy(info);
    auto& freeList = FreeListOf(info.type);
    auto found = freeList.find(info.size);
    if (found == freeList.end()) {
        ZOL_POOL_LOG(E, "PutBufferToPool",
                     "Wrong buffer size when put buffer to pool, pBuf: %p, size: %u, fd: %d, type: "
                     "%d, release it!",
                     info.pBuffer, info.size, info.fd, static_cast<int>(info.type));
        ReleaseBuffer(info);
        CountRelease(info);
    } else if (found->second.size() >= kMaxFreeBuffersPerSize) {
        ZOL_POOL_LOG(D, "PutBufferToPool",
                     "Buffer num this size is more than threshold, release buffer, pBuf: %p, size: "
                     "%u, fd: %d, type: %d, ",
                     info.pBuffer, info.size, info.fd, static_cast<int>(info.type));
        ReleaseBuffer(info);
        CountRelease(info);
    } else {
        found->second.push_back(info);
        ZOL_POOL_LOG(D, "PutBufferToPool",
                     "Put buffer to pool success: pBuf: %p, size: %u, fd: %d, type: %d",
                     info.pBuffer, info.size, info.fd, static_cast<int>(info.type));
    }
}

void* ZOLBufferPool::AllocBuffer(unsigned size, ZOLBufferType type) {
    ZOLBufferPoolBufferInfo info = {type, nullptr, 0, size};
    if (type == ZOL_BUFFER_TYPE_DMA) {
        char* pBuffer = nullptr;
        if (m_allocator.AllocDMABuffer(size, &pBuffer, info.fd) != 0 || pBuffer == nullptr) {
            ZOL_POOL_LOG(E, "AllocBuffer", "Alloc buffer failed! Type: %d, size: %u",
                         static_cast<int>(type), size);
            return nullptr;
        }
        info.pBuffer = pBuffer;
    } else if (type == ZOL_BUFFER_TYPE_HEAP) {
        info.pBuffer = malloc(size);
        if (info.pBuffer == nullptr) {
            ZOL_POOL_LOG(E, "AllocBuffer", "Alloc buffer failed! Type: %d, size: %u",
                         static_cast<int>(type), size);
            return nullptr;
        }
    } else {
        ZOL_POOL_LOG(E, "AllocBuffer", "Unsupport alloc buffer type: %d!", static_cast<int>(type));
        return nullptr;
    }
    ZOL_POOL_LOG(D, "AllocBuffer", "Alloc buffer success: type: %d, size: %u, pBuf: %p",
                 static_cast<int>(type), size, info.pBuffer);
    NameBlock(info, kFreeBlockName);
    FreeListOf(type)[size].push_back(info);
    PoolLists& lists = g_lists.value;
    lists.busyBySize[static_cast<unsigned>(type)].emplace(size, 0);
    lists.heldBytes[static_cast<unsigned>(type)] += size;
    ++lists.allocations;
    return info.pBuffer;
}

void ZOLBufferPool::ReleaseBuffer(ZOLBufferPoolBufferInfo info) {
    if (info.type == ZOL_BUFFER_TYPE_DMA) {
        ZOL_POOL_LOG(I, "ReleaseBuffer", "Release buffer: %p", info.pBuffer);
        if (info.pBuffer != nullptr) {
            munmap(info.pBuffer, info.size);
        }
        zol::UniqueFd(info.fd).reset();  // the block's descriptor, if it has one
    } else if (info.type == ZOL_BUFFER_TYPE_HEAP) {
        ZOL_POOL_LOG(I, "ReleaseBuffer", "Release buffer: %p", info.pBuffer);
        free(info.pBuffer);
    } else {
        ZOL_POOL_LOG(E, "ReleaseBuffer", "Unsupport release buffer type: %d!",
                     static_cast<int>(info.type));
    }
}

ZOLBufferAllocator* ZOLBufferPool::GetAllocator() {
    return &m_allocator;
}

ZOLBufferPoolStats ZOLBufferPool::GetStats() {
    ZOLBufferPoolStats stats = {};
    PoolLists& lists = g_lists.value;
    ZOLMutexLocker freeLock(m_freeBufferListLock);
    for (unsigned type = 0; type < kBufferTypeCount; ++type) {
        // Every size with a free queue has a busy count too (both made by AllocBuffer), and the
        // busy counts outlive the queues a last-client release drops.
        for (const auto& [size, busy] : lists.busyBySize[type]) {
            auto queue = lists.free[type].find(size);
            const uint32_t free =
                queue == lists.free[type].end() ? 0 : static_cast<uint32_t>(queue->second.size());
            if (busy == 0 && free == 0) {
                continue;
            }
            ZOLBufferPoolSizeStats row = {static_cast<ZOLBufferType>(type),
                                          size,
                                          busy,
                                          free,
                                          uint64_t{busy} * size,
                                          uint64_t{free} * size};
            stats.sizes.push_back(row);
            stats.busyCount[type] += busy;
            stats.freeCount[type] += free;
            stats.busyBytes[type] += row.busyBytes;
            stats.freeBytes[type] += row.freeBytes;
        }
        stats.heldBytes[type] = lists.heldBytes[type];
        stats.peakBusyBytes[type] = lists.peakBusyBytes[type];
    }
    stats.allocations = lists.allocations;
    stats.reuses = lists.reuses;
    stats.releases = lists.releases;
    stats.nameFailures = lists.nameFailures.load(std::memory_order_relaxed);
    return stats;
}
