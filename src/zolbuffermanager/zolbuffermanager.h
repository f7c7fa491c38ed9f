// Buffer management: raw buffers and multi-plane images (zolimagebuffer.h) for algorithm
// wrapper code, from process heap memory (type 0) or DMA-buf memory of the system heap mapped
// into the process (type 1), recycled by exact size through one process-wide pool.
//
// Three layers, bottom up:
//
//   ZOLBufferAllocator  allocates and maps DMA-buf memory, wraps it as a graphic or hardware
//                       buffer, brackets CPU access with cache syncs. Keeps no record of what
//                       it handed out: the caller holds address, descriptor and size and hands
//                       them back for release.
//   ZOLBufferPool       a client of the process-wide free and busy lists (static members). Hands
//                       out the most recently returned free block of exactly the requested size
//                       and type, or a new one; keeps at most ten free blocks per size and type.
//                       When the last client object goes, every free block is released.
//   ZOLBufferManager    what users hold: a named pool client that remembers what it handed out,
//                       takes it back, and returns whatever is left when it is destroyed.
//
//   ZOLBufferManager manager("MyAlgo");
//   ZOLImageBuffer image = {};
//   image.format = ZOL_IMAGE_FORMAT_YUV420SP;
//   image.width = image.planeStride = 4000;
//   image.height = 3000;
//   // The chroma plane is planeStride * sliceHeight / 2 bytes. yuv420sp2rgba reads
//   // ZOLYuv420spChromaBytes(planeStride, height) of it, half a chroma row more than height / 2
//   // rows: two more slice rows hold that.
//   image.sliceHeight = image.height + 2;
//   std::vector<unsigned char> rgba(size_t{4} * image.width * image.height);
//   if (manager.AllocBuffer(image, ZOL_BUFFER_TYPE_DMA)) {
//       manager.StartCPUSync(image.fd[0], ZOL_CPU_SYNC_READ_WRITE);
//       manager.StartCPUSync(image.fd[1], ZOL_CPU_SYNC_READ_WRITE);
//       ...  // write through image.Addr[0], image.Addr[1]
//       yuv420sp2rgba(static_cast<unsigned char*>(image.Addr[0]),
//                     static_cast<unsigned char*>(image.Addr[1]), rgba.data(), 4000, 4000, 4000,
//                     3000);
//       manager.EndCPUSync(image.fd[1]);
//       manager.EndCPUSync(image.fd[0]);
//       manager.FreeBuffer(image);
//   }
//
// Ownership: the caller owns every ZOLImageBuffer record; the memory behind a handed-out address
// belongs to the manager that handed it out until it is freed through that manager; free blocks
// belong to the process-wide pool. Nothing here throws; failures are a result plus a log line.
// A few conditions are fatal (the process aborts): a fifth plane, a plane-size product that does
// not fit in 32 bits, a pool client count that would wrap, and a failed allocation on the pool's
// get path.
#pragma once

#include <BufferAllocator/BufferAllocator.h>
#include <android/hardware_buffer.h>
#include <ui/GraphicBuffer.h>
#include <utils/StrongPointer.h>

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "zolexport.h"
#include "zolimagebuffer.h"
#include "zolmutex.h"

// A thin layer over the platform's DMA-buf heap allocator. One per pool client; no lock of its
// own (its owner serialises allocation; the platform allocator serialises its own state). The
// failures log one short fixed line at level E.
class ZOL_EXPORT ZOLBufferAllocator {
public:
    ZOLBufferAllocator();
    ~ZOLBufferAllocator();
    ZOLBufferAllocator(const ZOLBufferAllocator&) = delete;
    ZOLBufferAllocator& operator=(const ZOLBufferAllocator&) = delete;

    // A new system-heap buffer of `size` bytes mapped shared read-write: 0 with *ppBuffer and
    // fd set, or -1. A mapping that fails (null or MAP_FAILED) leaves *ppBuffer null and the
    // descriptor closed, its number still in fd.
    int AllocDMABuffer(unsigned long size, char** ppBuffer, int& fd);
    // Unmaps pBuffer (when non-null) and closes fd (when not negative; fd becomes -1). Returns
    // close's result, or the negative fd unchanged.
    int DeallocDMABuffer(unsigned long size, char* pBuffer, int& fd);

    // A DMA buffer of info.size bytes (as AllocDMABuffer) wrapped as a graphic buffer of
    // info.width x info.height, stride info.stride; null when ppBuffer is null.
    android::sp<android::GraphicBuffer> AllocGraphicBuffer(BufferInfo info, char** ppBuffer,
                                                           int& fd);
    // As DeallocDMABuffer with info.size; the graphic buffer object is not touched.
    int DeallocGraphicBuffer(BufferInfo info, char* pBuffer, int& fd);
    // AllocGraphicBuffer seen as a hardware buffer. The local strong reference is dropped before
    // returning and none is taken for the caller, so the object behind the pointer is already
    // gone: the pointer is a token, not a buffer to use. The DMA buffer in *ppBuffer / fd stays.
    AHardwareBuffer* AllocHardwareBuffer(BufferInfo info, char** ppBuffer, int& fd);
    int DeallocHardwareBuffer(BufferInfo info, char* pBuffer, int& fd);

    // Cache synchronisation around CPU access: the platform call's result (0 on success). The
    // start uses `type` (read, write, read-write; any other value means read-write); the end
    // always uses read.
    int StartCPUSync(int fd, CPUSyncType type);
    int EndCPUSync(int fd);

    // A new shared read-write mapping of `size` bytes of fd, or null for fd 0. Other
    // descriptors, negative ones included, go to mmap and its result comes back unchecked.
    void* MapFDToBufferPointer(int fd, unsigned long size);

private:
    std::unique_ptr<BufferAllocator> m_bufferAllocator;
};

// Wraps an existing DMA-buf descriptor as a graphic buffer (camera-write usage, implementation-
// defined format); the result holds the one strong reference. The descriptor stays the caller's.
ZOL_EXPORT android::sp<android::GraphicBuffer> DMABufferToGraphicBuffer(unsigned width,
                                                                        unsigned height,
                                                                        unsigned stride, int fd);

// One pooled block, copied by value into the pool's lists.
struct ZOLBufferPoolBufferInfo {
    ZOLBufferType type;
    void* pBuffer;  // the key of the busy list
    int fd;         // DMA-buf descriptor for type 1; 0 for type 0
    uint32_t size;  // bytes; the key of the free list
};

// One size of one type in the pool's figures.
struct ZOLBufferPoolSizeStats {
    ZOLBufferType type;
    uint32_t size;
    uint32_t busyCount;  // handed out of the pool and not back yet
    uint32_t freeCount;  // waiting in the free list
    uint64_t busyBytes;
    uint64_t freeBytes;
};

// The process-wide pool at one instant (ZOLBufferPool::GetStats). Arrays are indexed by
// ZOLBufferType (0 heap, 1 DMA). A block counts as busy from the moment it leaves the free list
// until it is back in it or released, so busyBytes + freeBytes == heldBytes per type, always.
struct ZOLBufferPoolStats {
    std::vector<ZOLBufferPoolSizeStats> sizes;  // by type, then size; empty sizes left out
    uint32_t busyCount[2];
    uint32_t freeCount[2];
    uint64_t busyBytes[2];
    uint64_t freeBytes[2];
    uint64_t heldBytes[2];      // allocated and not yet given back to the system
    uint64_t peakBusyBytes[2];  // highest busyBytes since the library was loaded
    uint64_t allocations;       // new blocks made (malloc, DMA heap)
    uint64_t reuses;            // hand-outs of a free block
    uint64_t releases;          // blocks given back to the system
    uint64_t nameFailures;      // DMA buffers the platform refused to rename
};

// A client of the process-wide buffer pool. Any thread may call any operation, except
// SetClientName: the client name is read without a lock by every operation that logs or hands
// out a block, so a client is named while no other thread uses it (right after construction).
//
// The lists are static: one set per process, built when the library is loaded and never
// destroyed, so that threads still getting and putting blocks while the process exits find
// them intact. Locks: m_freeBufferListLock guards m_freeBufferList, m_busyBufferListLock guards
// m_busyBufferList, m_bufferPoolClientNumLock guards m_bufferPoolClientNum. The count lock may be
// held while the busy or the free lock is taken (last-client release); the busy and free locks
// are never held together.
//
// Every DMA block is named for the platform's memory tools after whoever holds it: the client
// name of the pool client that handed it out (for a manager, the manager's name), and
// "zoltools-free" while it waits in the free list. Bytes outside printable ASCII become '_' and
// the name is cut to 31 bytes. A rename the platform refuses (a buffer attached to a device)
// is left as it is and counted in ZOLBufferPoolStats::nameFailures.
//
// Every hand-out of a block carries a lease number, kept beside the busy list. A manager puts
// a block back under the lease it got, so a block the pool has taken back in between (a
// last-client release, a put by another client) is refused instead of being returned twice,
// possibly while it already belongs to someone else.
//
// Clients are counted by the default constructor only. The named constructor builds and drops a
// default client on the way (so it is not counted, while its destructor still leaves): if that
// was the only client, the last-client release runs then and there.
class ZOL_EXPORT ZOLBufferPool {
public:
    ZOLBufferPool();
    explicit ZOLBufferPool(std::string name);
    ~ZOLBufferPool();
    ZOLBufferPool(const ZOLBufferPool&) = delete;
    ZOLBufferPool& operator=(const ZOLBufferPool&) = delete;

    // The name printed as "[BufferPool-<name>]" in this client's log lines.
    void SetClientName(std::string name);

    // The most recently returned free block of exactly `size` bytes and `type`, or a new one;
    // it is recorded as busy. Null with fd 0 for size 0 or a type other than 0 and 1.
    void* GetBufferFromPool(unsigned size, int& fd, ZOLBufferType type)
        ZOL_EXCLUDES(m_freeBufferListLock, m_busyBufferListLock);
    // Returns a busy block to the free list, or releases it when ten of its size and type are
    // already free. An address that is not busy is logged and left alone.
    void PutBufferToPool(void* pBuffer) ZOL_EXCLUDES(m_freeBufferListLock, m_busyBufferListLock);
    // Allocates a new block and appends it to the free list; null on failure. The caller holds
    // m_freeBufferListLock.
    void* AllocBuffer(unsigned size, ZOLBufferType type) ZOL_REQUIRES(m_freeBufferListLock);
    // Gives a block's memory (and descriptor) back to the system.
    void ReleaseBuffer(ZOLBufferPoolBufferInfo info);
    // This client's allocator (for cache synchronisation).
    ZOLBufferAllocator* GetAllocator();

    // The pool's figures, all read at one instant under m_freeBufferListLock (which every
    // change of them holds). Takes no other lock; the hand-out and return paths only update
    // counters for it.
    static ZOLBufferPoolStats GetStats() ZOL_EXCLUDES(m_freeBufferListLock);

    // Writes the figures as one line at level I, to be read back by tools:
    //
    //   [BufferPool] <file>:<line> LogStats() pool stats: busy heap=<B> dma=<B>;
    //       free heap=<B> dma=<B>; peak heap=<B> dma=<B>;
    //       allocs=<N> reuses=<N> releases=<N>; managers[ <name>=<B>]...[ +<N>]
    //
    // (one line, single blanks where it is broken here), each <B> a byte count and <N> a count in
    // decimal. The managers are the live ZOLBufferManager objects, by name in byte order, each
    // with the bytes it holds (BusyBytes); managers of one name are summed. A name is written
    // with every byte outside '!'..'~', and every '=' and ';', replaced by '_', cut to 31 bytes,
    // "_" when empty. The list stops before it would pass 600 bytes, and " +<N>" then counts the
    // names left out, so the line always fits the log's line whole.
    static void LogStats();

    // Free blocks per type (index 0 heap, 1 DMA), by size; newest at the back.
    ZOL_GUARDED_BY(m_freeBufferListLock)
    static std::map<uint32_t, std::deque<ZOLBufferPoolBufferInfo>> (&m_freeBufferList)[2];
    static ZOLMutex& m_freeBufferListLock;
    // Blocks handed out and not yet returned, by address.
    static std::map<void*, ZOLBufferPoolBufferInfo>& m_busyBufferList
        ZOL_GUARDED_BY(m_busyBufferListLock);
    static ZOLMutex& m_busyBufferListLock;
    // Live default-constructed clients.
    static uint32_t m_bufferPoolClientNum ZOL_GUARDED_BY(m_bufferPoolClientNumLock);
    static ZOLMutex& m_bufferPoolClientNumLock;

private:
    friend class ZOLBufferManager;
    // GetBufferFromPool, also giving the lease of this hand-out.
    void* GetLeasedBuffer(unsigned size, int& fd, ZOLBufferType type, uint64_t* lease)
        ZOL_EXCLUDES(m_freeBufferListLock, m_busyBufferListLock);
    // PutBufferToPool for a block still busy under `lease`; false, with nothing logged or
    // touched, for any other block.
    bool PutLeasedBuffer(void* pBuffer, uint64_t lease)
        ZOL_EXCLUDES(m_freeBufferListLock, m_busyBufferListLock);
    // Steps of PutBufferToPool after the block left the busy list: back to its free queue, or
    // released when there is none or it is full.
    void ReturnToFreeList(const ZOLBufferPoolBufferInfo& info) ZOL_EXCLUDES(m_freeBufferListLock);

    std::string m_clientName;
    ZOLBufferAllocator m_allocator;
    char m_dmaBufName[32];  // m_clientName cleaned for naming DMA blocks
};

// A named source of raw buffers and images. Several threads may use one manager at once, except
// for SetManagerName: the name is read without a lock by every call that logs (the per-frame
// calls among them), so a manager is renamed only while no other thread uses it (right after
// construction). Only the pool's stats line reads the name from other threads, and it reads a
// copy kept under m_lock.
//
// Owns one pool client, whose client name follows the manager's name. m_lock guards only
// m_allocatedBuffers and its figures; pool calls run with it released, except in the
// destructor. Every log line
// starts with "[<name>]". Freeing goes through the manager that handed the buffer out; a manager
// that is destroyed returns to the pool whatever is still out.
class ZOL_EXPORT ZOLBufferManager {
public:
    // Named "UnknowBufferManager".
    ZOLBufferManager();
    explicit ZOLBufferManager(const std::string& name);
    virtual ~ZOLBufferManager();
    ZOLBufferManager(const ZOLBufferManager&) = delete;
    ZOLBufferManager& operator=(const ZOLBufferManager&) = delete;

    // Renames the manager and its pool client.
    void SetManagerName(const std::string& name) ZOL_EXCLUDES(m_lock);

    // Bytes of the blocks this manager has handed out and not taken back.
    uint64_t BusyBytes() ZOL_EXCLUDES(m_lock);

    // A raw block of `size` bytes: true with *ppBuffer and fd (0 for type 0) set.
    bool AllocBuffer(unsigned size, void** ppBuffer, int& fd, ZOLBufferType type)
        ZOL_EXCLUDES(m_lock);
    // One separately allocated block per plane of a YUV 4:2:0 semi-planar image, sized from
    // planeStride and sliceHeight (GetImgBufferSize). On success numberOfPlanes, Addr, fd (type
    // 1 only) and pNativeHandle (null) are set. When a plane fails, the planes already obtained
    // stay with the manager (freed by address or at destruction) and false is returned.
    bool AllocBuffer(ZOLImageBuffer& image, ZOLBufferType type);
    // Returns a block handed out by this manager to the pool; false for null, a foreign
    // address, or a block the pool took back meanwhile (its last client left).
    bool FreeBuffer(const void* pBuffer) ZOL_EXCLUDES(m_lock);
    // Frees each plane below numberOfPlanes; the record is left as it is. Always true.
    bool FreeBuffer(const ZOLImageBuffer& image);

    // Plane sizes of a format 0 or 1 image: 2 planes, planeStride x sliceHeight bytes and half
    // of that, rounded down. With fewer than 2 entries of room: planeCount 0, the room zeroed.
    // Other formats: a log line, outputs untouched (so callers start planeCount at 0).
    void GetImgBufferSize(const ZOLImageBuffer& image, unsigned& planeCount, unsigned* planeSizes,
                          unsigned maxPlanes);

    // Cache synchronisation of one DMA buffer: true when the platform call returned 0.
    bool StartCPUSync(int fd, CPUSyncType type);
    bool EndCPUSync(int fd);
    // The image forms synchronise fd[0] only, and return true only for an image without planes.
    bool StartCPUSync(const ZOLImageBuffer& image, CPUSyncType type);
    bool EndCPUSync(const ZOLImageBuffer& image);

private:
    friend void ZOLBufferPool::LogStats();
    struct Allocated {
        uint64_t lease;  // of the pool's hand-out
        uint32_t size;
    };

    std::string m_name;
    ZOLBufferPool m_bufferPool;
    ZOLMutex m_lock;
    std::map<void*, Allocated> m_allocatedBuffers ZOL_GUARDED_BY(m_lock);
    uint64_t m_busyBytes ZOL_GUARDED_BY(m_lock) = 0;  // sizes in m_allocatedBuffers
    std::string m_statsName ZOL_GUARDED_BY(m_lock);   // m_name as LogStats writes it
};
