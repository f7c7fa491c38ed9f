#include "zolbuffermanager.h"

#include <cinttypes>
#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "zolbuffermanager/internal/zolbufferpoolinternal.h"
#include "zoltoolsdef.h"
#include "zoltoolsdef/internal/zolfatal.h"

// A line of a manager: "[<manager>] <file>:<line> <function>() <message>", the function named as
// engineers' tools know it.
#define ZOL_MANAGER_LOG(level, function, fmt, ...)                                       \
    ZOL_LOG##level("[%s] %s:%d %s() " fmt, m_name.c_str(), ZOL_FILE, __LINE__, function, \
                   ##__VA_ARGS__)

namespace {

constexpr unsigned kMaxPlanes = 4;

// The live managers, for the pool's stats line. Never destroyed: managers may still come and go
// on other threads while the process exits. Lock order: registry lock, then a manager's m_lock.
struct ManagerRegistry {
    ZOLMutex lock;
    std::set<ZOLBufferManager*> managers ZOL_GUARDED_BY(lock);
};

ManagerRegistry& Registry() {
    static ManagerRegistry* registry = new ManagerRegistry;
    return *registry;
}

void Register(ZOLBufferManager* manager) {
    ManagerRegistry& registry = Registry();
    ZOLMutexLocker lock(registry.lock);
    registry.managers.insert(manager);
}

void Unregister(ZOLBufferManager* manager) {
    ManagerRegistry& registry = Registry();
    ZOLMutexLocker lock(registry.lock);
    registry.managers.erase(manager);
}

std::string StatsName(const std::string& name) {
    char cleaned[zol::kDmaBufNameSize];
    zol::CleanBufferName(name, true, cleaned);
    return cleaned;
}

// Describes the planes just allocated in `image`: their addresses, and for DMA their
// descriptors; every other plane field cleared. False, with only the plane count set and the
// planes cleared, for a type that has no such description.
bool SetPlanes(ZOLImageBuffer& image, unsigned planeCount, void* const* address, const int* fd,
               ZOLBufferType type) {
    image.numberOfPlanes = planeCount;
    for (unsigned i = 0; i < kMaxPlanes; ++i) {
        image.Addr[i] = nullptr;
        image.fd[i] = 0;
    }
    image.pNativeHandle = nullptr;
    if (type != ZOL_BUFFER_TYPE_HEAP && type != ZOL_BUFFER_TYPE_DMA) {
        return false;
    }
    for (unsigned i = 0; i < planeCount; ++i) {
        image.Addr[i] = address[i];
        image.fd[i] = type == ZOL_BUFFER_TYPE_DMA ? fd[i] : 0;
    }
    return true;
}

}  // namespace

ZOLBufferManager::ZOLBufferManager() : m_name("UnknowBufferManager") {
    {
        ZOLMutexLocker lock(m_lock);
        m_allocatedBuffers.clear();
        m_statsName = StatsName(m_name);
    }
    Register(this);
}

ZOLBufferManager::ZOLBufferManager(const std::string& name) {
    // An unnamed manager comes and goes first; its pool client joins and leaves while this
    // manager's own client keeps the count above zero, so the pool is never released here.
    { ZOLBufferManager transient; }
    m_name = name;
    m_bufferPool.SetClientName(std::string(name));
    {
        ZOLMutexLocker lock(m_lock);
        m_statsName = StatsName(m_name);
    }
    Register(this);
}

ZOLBufferManager::~ZOLBufferManager() {
    Unregister(this);
    ZOLMutexLocker lock(m_lock);
    if (!m_allocatedBuffers.empty()) {
        ZOL_MANAGER_LOG(W, "~ZOLBufferManager",
                        "%d buffer not free when buffer manager destory, release them forcibly",
                        static_cast<int>(m_allocatedBuffers.size()));
        for (const auto& [pBuffer, allocated] : m_allocatedBuffers) {
            // A block the pool took back meanwhile is not returned again.
            m_bufferPool.PutLeasedBuffer(pBuffer, allocated.lease);
            ZOL_MANAGER_LOG(W, "~ZOLBufferManager", "  release buffer forcibly: %p", pBuffer);
        }
        m_allocatedBuffers.clear();
        m_busyBytes = 0;
    }
}

void ZOLBufferManager::SetManagerName(const std::string& name) {
    m_name = name;
    m_bufferPool.SetClientName(std::string(name));
    ZOLMutexLocker lock(m_lock);
    m_statsName = StatsName(m_name);
}

uint64_t ZOLBufferManager::BusyBytes() {
    ZOLMutexLocker lock(m_lock);
    return m_busyBytes;
}

// Here rather than beside GetStats: the line names the managers, whose registry this file keeps.
void ZOLBufferPool::LogStats() {
    std::map<std::string, uint64_t> managers;
    {
        ManagerRegistry& registry = Registry();
        ZOLMutexLocker lock(registry.lock);
        for (ZOLBufferManager* manager : registry.managers) {
            ZOLMutexLocker managerLock(manager->m_lock);
            managers[manager->m_statsName] += manager->m_busyBytes;
        }
    }
    // The figures take at most some 330 bytes: the managers get what the log's 1,024-byte line
    // leaves with room to spare, and those that do not fit are counted instead.
    constexpr size_t kListRoom = 600;
    std::string list;
    size_t leftOut = 0;
    for (const auto& [name, bytes] : managers) {
        const std::string entry = " " + name + "=" + std::to_string(bytes);
        if (leftOut > 0 || list.size() + entry.size() > kListRoom) {
            ++leftOut;
        } else {
            list += entry;
        }
    }
    if (leftOut > 0) {
        list += " +" + std::to_string(leftOut);
    }
    const ZOLBufferPoolStats stats = GetStats();
    ZOL_LOGI("[BufferPool] %s:%d %s() pool stats: busy heap=%" PRIu64 " dma=%" PRIu64
             "; free heap=%" PRIu64 " dma=%" PRIu64 "; peak heap=%" PRIu64 " dma=%" PRIu64
             "; allocs=%" PRIu64 " reuses=%" PRIu64 " releases=%" PRIu64 "; managers%s",
             ZOL_FILE, __LINE__, "LogStats", stats.busyBytes[0], stats.busyBytes[1],
             stats.freeBytes[0], stats.freeBytes[1], stats.peakBusyBytes[0], stats.peakBusyBytes[1],
             stats.allocations, stats.reuses, stats.releases, list.c_str());
}

bool ZOLBufferManager::AllocBuffer(unsigned size, void** ppBuffer, int& fd, ZOLBufferType type) {
    if (size == 0 || ppBuffer == nullptr) {
        ZOL_MANAGER_LOG(W, "AllocBuffer", "Alloc buffer invaild args");
        return false;
    }
    *ppBuffer = nullptr;
    fd = 0;

    int localFd = 0;
    uint64_t lease = 0;
    void* pBuffer = m_bufferPool.GetLeasedBuffer(size, localFd, type, &lease);
    if (pBuffer == nullptr) {
        ZOL_MANAGER_LOG(E, "AllocBuffer", "Alloc buffer failed, get buffer from pool is NULL!");
        return false;
    }
    {
        ZOLMutexLocker lock(m_lock);
        const auto inserted = m_allocatedBuffers.emplace(pBuffer, Allocated{lease, size});
        if (!inserted.second) {
            // Still on record here although the pool handed it out again: keep the one record,
            // now under the new lease (which a free returns), and hand out nothing.
            m_busyBytes -= inserted.first->second.size;
            m_busyBytes += size;
            inserted.first->second = Allocated{lease, size};
            ZOL_MANAGER_LOG(E, "AllocBuffer", "Get repetitive buffer from buffer pool: %p",
                            pBuffer);
            return false;
        }
        m_busyBytes += size;
    }
    *ppBuffer = pBuffer;
    fd = localFd;
    ZOL_MANAGER_LOG(D, "AllocBuffer", "Alloc buffer success, get buffer from pool: %p", pBuffer);
    return true;
}

bool ZOLBufferManager::AllocBuffer(ZOLImageBuffer& image, ZOLBufferType type) {
    if (image.width == 0 || image.height == 0 || image.planeStride == 0 || image.sliceHeight == 0) {
        ZOL_MANAGER_LOG(E, "AllocBuffer", "Alloc buffer fail, invalid size args");
        return false;
    }
    unsigned planeCount = 0;
    unsigned sizes[kMaxPlanes] = {};
    GetImgBufferSize(image, planeCount, sizes, kMaxPlanes);
    if (planeCount == 0) {
        ZOL_MANAGER_LOG(E, "AllocBuffer", "Alloc buffer fail, get buffer size fail");
        return false;
    }

    void* address[kMaxPlanes] = {};
    int fd[kMaxPlanes] = {};
    for (unsigned i = 0; i < planeCount; ++i) {
        const unsigned plane = zol::CheckedIndex(i, kMaxPlanes);
        if (!AllocBuffer(sizes[plane], &address[plane], fd[plane], type) ||
            address[plane] == nullptr) {
            ZOL_MANAGER_LOG(E, "AllocBuffer",
                            "Alloc buffer fail, can not alloc new buf: size: %u, type: %d",
                            sizes[plane], static_cast<int>(type));
            // The clean-up frees the failing plane's own (null) slot, once per plane tried; the
            // planes obtained so far stay with this manager until freed or destroyed.
            for (unsigned attempt = 0; attempt <= plane; ++attempt) {
                FreeBuffer(address[plane]);
            }
            return false;
        }
    }

    if (!SetPlanes(image, planeCount, address, fd, type)) {
        ZOL_MANAGER_LOG(E, "AllocBuffer", "Alloc buffer fail, unsupport type: %d",
                        static_cast<int>(type));
        return false;
    }
    ZOL_MANAGER_LOG(D, "AllocBuffer",
                    "Alloc buffer success: type: %d, format: %d, width: %u, height: %u, "
                    "planeStride: %u, sliceHeight: %u, numberOfPlanes: %u, Addr0: %p, Addr1: %p, "
                    "Addr2: %p, Addr3: %p, pNativeHandle: %p, fd0: %d, fd1: %d, fd2: %d, fd3: %d",
                    static_cast<int>(type), static_cast<int>(image.format), image.width,
                    image.height, image.planeStride, image.sliceHeight, image.numberOfPlanes,
                    image.Addr[0], image.Addr[1], image.Addr[2], image.Addr[3], image.pNativeHandle,
                    image.fd[0], image.fd[1], image.fd[2], image.fd[3]);
    return true;
}

bool ZOLBufferManager::FreeBuffer(const void* pBuffer) {
    if (pBuffer == nullptr) {
        ZOL_MANAGER_LOG(W, "FreeBuffer", "Free buffer is NULL!");
        return false;
    }
    // The refusal of an address this manager cannot give back: never handed out by it, or taken
    // back by the pool in the meantime.
    auto refuse = [this, pBuffer] {
        ZOL_MANAGER_LOG(W, "FreeBuffer",
                        "Free buffer failed, this buffer not alloced by this buffer manager, pBuf: "
                        "%p, buffer manager name: %s",
                        pBuffer, m_name.c_str());
        return false;
    };
    void* key = const_cast<void*>(pBuffer);
    uint64_t lease = 0;
    {
        ZOLMutexLocker lock(m_lock);
        auto found = m_allocatedBuffers.find(key);
        if (found == m_allocatedBuffers.end()) {
            return refuse();
        }
        lease = found->second.lease;
        m_busyBytes -= found->second.size;
        m_allocatedBuffers.erase(found);
    }
    // The pool may have taken the block back (its last client left): then it is no longer
    // this manager's to return, and may already be released or someone else's.
    if (!m_bufferPool.PutLeasedBuffer(key, lease)) {
        return refuse();
    }
    ZOL_MANAGER_LOG(D, "FreeBuffer", "Free buffer: %p", pBuffer);
    return true;
}

bool ZOLBufferManager::FreeBuffer(const ZOLImageBuffer& image) {
    for (unsigned i = 0; i < image.numberOfPlanes; ++i) {
        FreeBuffer(image.Addr[zol::CheckedIndex(i, kMaxPlanes)]);
    }
    return true;
}

void ZOLBufferManager::GetImgBufferSize(const ZOLImageBuffer& image, unsigned& planeCount,
                                        unsigned* planeSizes, unsigned maxPlanes) {
    if (image.format != ZOL_IMAGE_FORMAT_YUV420SP &&
        image.format != ZOL_IMAGE_FORMAT_YUV420SP_ALT) {
        ZOL_MANAGER_LOG(D, "GetImgBufferSize", "Get img buffer size fail, unsupport format: %d",
                        static_cast<int>(image.format));
        return;
    }
    planeCount = 2;
    if (maxPlanes < 2) {
        planeCount = 0;
        for (unsigned i = 0; i < maxPlanes; ++i) {
            planeSizes[i] = 0;
        }
        return;
    }
    // Formed in 64 bits; a luma plane of 4 GiB or more cannot be described and is fatal.
    const uint64_t lumaSize = static_cast<uint64_t>(image.planeStride) * image.sliceHeight;
    ZOL_FATAL_IF(lumaSize > UINT32_MAX);
    planeSizes[0] = static_cast<unsigned>(lumaSize);
    planeSizes[1] = static_cast<unsigned>(lumaSize / 2);
}

bool ZOLBufferManager::StartCPUSync(int fd, CPUSyncType type) {
    const int ret = m_bufferPool.GetAllocator()->StartCPUSync(fd, type);
    ZOL_MANAGER_LOG(D, "StartCPUSync", "Start CPU Sync Buffer, fd: %d, sync type: %d, result: %d",
                    fd, static_cast<int>(type), ret);
    return ret == 0;
}

bool ZOLBufferManager::EndCPUSync(int fd) {
    const int ret = m_bufferPool.GetAllocator()->EndCPUSync(fd);
    ZOL_MANAGER_LOG(D, "EndCPUSync", "End CPU Sync Buffer, fd: %d, result: %d", fd, ret);
    return ret == 0;
}

bool ZOLBufferManager::StartCPUSync(const ZOLImageBuffer& image, CPUSyncType type) {
    // Only the first plane is synchronised, and then the result is false whatever the call
    // returned; the later planes are never looked at.
    if (image.numberOfPlanes == 0) {
        return true;
    }
    StartCPUSync(image.fd[0], type);
    return false;
}

bool ZOLBufferManager::EndCPUSync(const ZOLImageBuffer& image) {
    if (image.numberOfPlanes == 0) {
        return true;
    }
    EndCPUSync(image.fd[0]);
    return false;
}
