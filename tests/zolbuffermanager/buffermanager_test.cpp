// The buffer subsystem: allocator, process-wide pool and named managers. Every TEST runs in a
// process of its own, so each starts with empty pool lists and no clients.
#include <android/log.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <map>
#include <tuple>
#include <vector>

#include "zolbuffermanager.h"
#include "zoltest.h"

namespace {

constexpr ZOLBufferType kHeap = ZOL_BUFFER_TYPE_HEAP;
constexpr ZOLBufferType kDma = ZOL_BUFFER_TYPE_DMA;

std::vector<void*> FreeBlocks(ZOLBufferType type, uint32_t size) {  // oldest first
    std::lock_guard<std::mutex> lock(ZOLBufferPool::m_freeBufferListLock);
    std::vector<void*> out;
    for (const ZOLBufferPoolBufferInfo& info : ZOLBufferPool::m_freeBufferList[type][size]) {
        out.push_back(info.pBuffer);
    }
    return out;
}

size_t BlockCount() {  // free and busy
    std::lock_guard<std::mutex> freeLock(ZOLBufferPool::m_freeBufferListLock);
    size_t count = 0;
    for (const auto& freeList : ZOLBufferPool::m_freeBufferList) {
        for (const auto& sizeAndQueue : freeList) {
            count += sizeAndQueue.second.size();
        }
    }
    std::lock_guard<std::mutex> busyLock(ZOLBufferPool::m_busyBufferListLock);
    return count + ZOLBufferPool::m_busyBufferList.size();
}

bool IsBusy(const void* p) {
    std::lock_guard<std::mutex> lock(ZOLBufferPool::m_busyBufferListLock);
    return ZOLBufferPool::m_busyBufferList.count(const_cast<void*>(p)) == 1;
}

void SetClientCount(uint32_t count) {
    std::lock_guard<std::mutex> lock(ZOLBufferPool::m_bufferPoolClientNumLock);
    ZOLBufferPool::m_bufferPoolClientNum = count;
}

// DMA buffers that are memfd files (no kernel DMA heap here) can be made to fail: they cannot
// grow past the file size limit.
bool DmaCanFail() {
    return !BufferAllocator().UsesDmaHeap();
}
void SetFileSizeLimit(rlim_t bytes) {
    signal(SIGXFSZ, SIG_IGN);
    rlimit limit = {};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = bytes;
    setrlimit(RLIMIT_FSIZE, &limit);
}

ZOLImageBuffer Image(uint32_t format, uint32_t stride, uint32_t sliceHeight) {
    ZOLImageBuffer image = {};
    image.format = format;
    image.width = image.planeStride = stride;
    image.height = image.sliceHeight = sliceHeight;
    return image;
}

TEST(BufferAllocator, DmaBufferIsOneSharedMappingAndDeallocLeavesNothing) {
    const int fds = zoltest::CountOpenFds(), maps = zoltest::CountSharedMappings();
    {
        constexpr unsigned long kSize = 3 * 4096 + 100;
        ZOLBufferAllocator allocator;
        char* buffer = nullptr;
        int fd = -1;
        ASSERT_EQ(0, allocator.AllocDMABuffer(kSize, &buffer, fd));
        EXPECT_EQ(FD_CLOEXEC, fcntl(fd, F_GETFD) & FD_CLOEXEC);
        EXPECT_EQ(0, buffer[kSize - 1]);  // new buffers read as zeros
        std::memset(buffer, 0x3c, kSize);
        auto* again = static_cast<unsigned char*>(allocator.MapFDToBufferPointer(fd, kSize));
        ASSERT_NE(MAP_FAILED, again);
        EXPECT_EQ(0x3c, again[kSize - 1]);
        munmap(again, kSize);
        EXPECT_EQ(MAP_FAILED, allocator.MapFDToBufferPointer(-1, 4096));  // only 0 is refused
        EXPECT_EQ(0, allocator.StartCPUSync(fd, static_cast<CPUSyncType>(7)));
        EXPECT_EQ(0, allocator.EndCPUSync(fd));
        EXPECT_EQ(0, allocator.DeallocDMABuffer(kSize, buffer, fd));
        EXPECT_EQ(-1, fd);
        EXPECT_EQ(-1, allocator.DeallocDMABuffer(kSize, nullptr, fd));  // nothing to give back
        // mmap refuses a length of 0: a failed mapping, its descriptor given back.
        EXPECT_EQ(-1, allocator.AllocDMABuffer(0, &buffer, fd));
        EXPECT_EQ(nullptr, buffer);
        EXPECT_EQ(-1, fcntl(fd, F_GETFD));
        BufferInfo info = {};
        info.size = 4096;
        EXPECT_NE(nullptr, allocator.AllocHardwareBuffer(info, &buffer, fd));  // no reference kept
        buffer[info.size - 1] = 1;
        EXPECT_EQ(0, allocator.DeallocHardwareBuffer(info, buffer, fd));
    }
    EXPECT_EQ(fds, zoltest::CountOpenFds());
    EXPECT_EQ(maps, zoltest::CountSharedMappings());
}

TEST(BufferAllocator, GraphicBuffersWrapTheDescriptorAsCameraOutput) {
    ZOLBufferAllocator allocator;
    BufferInfo info = {};
    info.width = 640;
    info.height = 480;
    info.stride = 704;
    info.size = 704 * 480;
    char* buffer = nullptr;
    int fd = -1;
    const struct {
        android::sp<android::GraphicBuffer> graphic;
        unsigned width, height, stride;
        int fd;
    } rows[] = {{allocator.AllocGraphicBuffer(info, &buffer, fd), 640, 480, 704, fd},
                {DMABufferToGraphicBuffer(32, 16, 48, 9), 32, 16, 48, 9}};
    for (const auto& row : rows) {
        const android::GraphicBuffer& g = *row.graphic;
        EXPECT_EQ(
            std::make_tuple(1, 0, row.width, row.height, row.stride, 34, 0u, 0x20000u, row.fd),
            std::make_tuple(g.getStrongCount(), static_cast<int>(g.getWrapMethod()), g.getWidth(),
                            g.getHeight(), g.getStride(), g.getPixelFormat(), g.getLayerCount(),
                            g.getUsage(), g.handleData0()));
        EXPECT_EQ(0, g.handleVersion() | g.handleNumFds() | g.handleNumInts());
    }
    EXPECT_EQ(0, allocator.DeallocGraphicBuffer(info, buffer, fd));
}

TEST(BufferPool, RecyclesExactSizeAndTypeLastInFirstOut) {
    ZOLBufferPool pool;
    int fd = -1;
    std::vector<void*> heap;
    for (int i = 0; i < 3; ++i) {
        heap.push_back(pool.GetBufferFromPool(4096, fd, kHeap));
    }
    void* dma = pool.GetBufferFromPool(4096, fd, kDma);
    const int dmaFd = fd;
    for (void* p : {heap[1], heap[0], dma, heap[2]}) {
        pool.PutBufferToPool(p);
    }
    EXPECT_EQ(dma, pool.GetBufferFromPool(4096, fd, kDma));
    EXPECT_EQ(dmaFd, fd);
    void* smaller = pool.GetBufferFromPool(4000, fd, kHeap);
    EXPECT_NE(heap[2], smaller);  // never a larger block
    EXPECT_EQ(0, fd);
    EXPECT_EQ(heap[2], pool.GetBufferFromPool(4096, fd, kHeap));
    EXPECT_EQ(heap[0], pool.GetBufferFromPool(4096, fd, kHeap));
    EXPECT_EQ(std::vector<void*>{heap[1]}, FreeBlocks(kHeap, 4096));
    EXPECT_TRUE(IsBusy(heap[0]) && !IsBusy(heap[1]));
    for (void* p : {dma, smaller, heap[0], heap[2]}) {
        pool.PutBufferToPool(p);  // for the last client to release
    }
}

TEST(BufferPoolDeathTest, CountsPlaneSizesAndFailedAllocationsAreFatal) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    __android_log_set_logger(__android_log_stderr_logger);
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    EXPECT_DEATH(ZOLBufferPool("Alone"),
                 "BufferPool-UnknowBufferManager.*All client disconnect.*zolbufferpool.cpp:[0-9]+ "
                 "fatal: integer overflow in subtraction");
    SetClientCount(UINT32_MAX);
    EXPECT_DEATH(ZOLBufferPool(), "overflow in addition");
    SetClientCount(0);
    ZOLBufferPool pool;
    int fd = 0;
    if (DmaCanFail()) {
        EXPECT_DEATH((SetFileSizeLimit(1024), pool.GetBufferFromPool(4096, fd, kDma)),
                     "Alloc System fail.*Alloc buffer failed! Type: 1, size: 4096.*fatal");
    }
    ZOLBufferManager manager;
    unsigned count = 0, sizes[4] = {};
    EXPECT_DEATH(manager.GetImgBufferSize(Image(0, 65536, 65536), count, sizes, 4), "fatal");
    ZOLImageBuffer fifth = Image(0, 64, 48);
    fifth.numberOfPlanes = 5;
    EXPECT_DEATH(manager.FreeBuffer(fifth), "Free buffer is NULL!.*index past its bound");
}

TEST(BufferManager, PlaneSizesFollowStrideAndSliceHeightOnly) {
    const struct {
        uint32_t format, stride, slice, room;
        unsigned count, size0, size1;  // count 9, sizes 77 and 88: untouched
    } rows[] = {
        {0, 4096, 3072, 4, 2, 12582912, 6291456},
        {1, 3, 3, 4, 2, 9, 4},
        {0, 65535, 65537, 4, 2, 4294967295u, 2147483647},
        {0, 64, 48, 2, 2, 3072, 1536},
        {0, 64, 48, 1, 0, 0, 88},
        {2, 64, 48, 4, 9, 77, 88},
        {5, 64, 48, 4, 9, 77, 88},
    };
    ZOLBufferManager manager;
    for (const auto& row : rows) {
        ZOLImageBuffer image = Image(row.format, row.stride, row.slice);
        image.width = 1000;
        image.height = 1;
        unsigned count = 9, sizes[4] = {77, 88, 99, 99};
        manager.GetImgBufferSize(image, count, sizes, row.room);
        EXPECT_EQ(std::make_tuple(row.count, row.size0, row.size1, 99u),
                  std::make_tuple(count, sizes[0], sizes[1], sizes[2]))
            << row.format << " " << row.stride << "x" << row.slice;
    }
}

// The log lines as engineers' tools parse them. A row is "<level> <owner> <function>: <message>"
// with the owner P for the pool client "Cam", M for the manager "Cam", or "-" (no function) for
// the allocator; '#' stands for a run of digits, '@' for an address.
std::pair<int, std::string> Expand(const std::string& row) {
    const int priority = ANDROID_LOG_VERBOSE + static_cast<int>(std::string("VDIWE").find(row[0]));
    if (row[2] == '-') {
        return {priority, row.substr(4)};
    }
    const size_t function = row.find(' ', 2) + 1, message = row.find(": ", function);
    return {priority, (row[2] == 'P' ? "[BufferPool-Cam] zolbufferpool.cpp:# "
                                     : "[Cam] zolbuffermanager.cpp:# ") +
                          row.substr(function, message - function) + "() " +
                          row.substr(message + 2)};
}

// The line with every "0x..." address as '@'.
std::string WithoutAddresses(const std::string& text) {
    std::string out;
    for (size_t at = 0; at < text.size(); ++at) {
        if (text.compare(at, 2, "0x") == 0) {
            at = text.find_first_not_of("0123456789abcdef", at + 2) - 1;
            out += '@';
        } else {
            out += text[at];
        }
    }
    return out;
}

// Every line of the subsystem: the scenario writes each row's line exactly `count` times, and
// no other line.
TEST(BufferLog, EveryLineAsToolsParseIt) {
    zoltest::LogCapture log;
    int fd = 0;
    ZOLBufferAllocator allocator;
    allocator.MapFDToBufferPointer(0, 4096);
    allocator.MapFDToBufferPointer(-1, 4096);  // goes to mmap, which fails quietly
    BufferInfo info = {};
    info.size = 4096;
    EXPECT_EQ(nullptr, allocator.AllocGraphicBuffer(info, nullptr, fd).get());
    char* buffer = nullptr;
    if (DmaCanFail()) {
        SetFileSizeLimit(1024);
        EXPECT_EQ(-1, allocator.AllocDMABuffer(4096, &buffer, fd));
        EXPECT_LT(fd, 0);
        SetFileSizeLimit(RLIM_INFINITY);
    }

    // The last client out names the lowest busy block once per busy block, returns only that
    // one and empties the lists; a later client releases the other as of a size not listed.
    std::vector<void*> busy(2);
    {
        ZOLBufferPool last;
        last.SetClientName("Cam");
        last.PutBufferToPool(last.GetBufferFromPool(512, fd, kHeap));
        for (void*& p : busy) {
            p = last.GetBufferFromPool(4096, fd, kDma);
        }
        std::sort(busy.begin(), busy.end());
    }
    EXPECT_TRUE(!IsBusy(busy[0]) && IsBusy(busy[1]));
    EXPECT_EQ(1u, BlockCount());
    EXPECT_EQ(2u, log.Count("busy buffer[0]: pBuf: " + zoltest::Address(busy[0]) + ","));
    {
        ZOLBufferPool later;
        later.SetClientName("Cam");
        later.PutBufferToPool(busy[1]);
    }

    auto m = std::make_unique<ZOLBufferManager>("Old");
    m->SetManagerName("Cam");  // the pool client's name follows
    void *a = nullptr, *b = nullptr;
    ASSERT_TRUE(m->AllocBuffer(4096, &a, fd, kDma));
    EXPECT_TRUE(m->StartCPUSync(fd, static_cast<CPUSyncType>(7)));
    EXPECT_TRUE(m->EndCPUSync(fd));
    EXPECT_TRUE(m->FreeBuffer(a));
    EXPECT_FALSE(m->FreeBuffer(a));
    EXPECT_FALSE(m->FreeBuffer(nullptr));
    int marker = 0;
    b = &marker;
    fd = 42;
    EXPECT_FALSE(m->AllocBuffer(0, &b, fd, kHeap));
    EXPECT_FALSE(m->AllocBuffer(16, nullptr, fd, kHeap));
    EXPECT_TRUE(b == &marker && fd == 42);
    EXPECT_FALSE(m->AllocBuffer(16, &b, fd, static_cast<ZOLBufferType>(2)));
    EXPECT_TRUE(b == nullptr && fd == 0);  // cleared before the pool refused
    auto pool = std::make_unique<ZOLBufferPool>();
    pool->SetClientName("Cam");
    ASSERT_TRUE(m->AllocBuffer(4096, &b, fd, kDma));   // the free block `a`
    pool->PutBufferToPool(b);                          // behind the manager's back
    EXPECT_FALSE(m->AllocBuffer(4096, &b, fd, kDma));  // handed out again while still out

    ZOLImageBuffer image = Image(0, 64, 48), dma = Image(1, 64, 48), tiny = Image(0, 1, 1);
    image.width = 60;
    image.height = 40;
    image.fd[2] = 7;
    image.pNativeHandle = &image;
    ASSERT_TRUE(m->AllocBuffer(image, kHeap));
    const ZOLImageBuffer before = image;
    EXPECT_TRUE(m->FreeBuffer(image));
    EXPECT_EQ(0, std::memcmp(&before, &image, sizeof(image)));  // the record stays as it was
    ASSERT_TRUE(m->AllocBuffer(dma, kDma));
    ZOLImageBuffer many = dma, none = {};
    many.numberOfPlanes = 9;
    EXPECT_EQ(1u, log.Count("fd0: " + std::to_string(dma.fd[0]) +
                            ", fd1: " + std::to_string(dma.fd[1]) + ", fd2: 0, fd3: 0"));
    EXPECT_FALSE(m->StartCPUSync(dma, ZOL_CPU_SYNC_WRITE));  // the first plane only
    EXPECT_FALSE(m->EndCPUSync(many));
    EXPECT_TRUE(m->StartCPUSync(none, ZOL_CPU_SYNC_READ));
    EXPECT_TRUE(m->EndCPUSync(none));
    EXPECT_FALSE(m->AllocBuffer(tiny, kHeap));  // a chroma plane of 0 bytes: the luma stays out
    EXPECT_EQ(0u, tiny.numberOfPlanes);
    for (auto [refused, type] :
         {std::make_pair(Image(3, 64, 48), kHeap), std::make_pair(Image(0, 64, 0), kHeap),
          std::make_pair(Image(0, 0, 48), kDma),
          std::make_pair(Image(0, 64, 48), ZOLBufferType(2))}) {
        EXPECT_FALSE(m->AllocBuffer(refused, type));
        EXPECT_EQ(0u, refused.numberOfPlanes);
    }

    std::vector<void*> blocks(11);
    for (void*& p : blocks) {
        p = pool->GetBufferFromPool(8192, fd, kDma);
    }
    for (void* p : blocks) {
        pool->PutBufferToPool(p);  // the eleventh goes back to the system
    }
    EXPECT_EQ(10u, FreeBlocks(kDma, 8192).size());
    pool->PutBufferToPool(nullptr);
    pool->PutBufferToPool(&marker);
    {
        std::lock_guard<std::mutex> lock(ZOLBufferPool::m_freeBufferListLock);
        EXPECT_EQ(nullptr, pool->AllocBuffer(4096, static_cast<ZOLBufferType>(2)));
    }
    pool->ReleaseBuffer({static_cast<ZOLBufferType>(3), nullptr, -1, 16});
    m.reset();  // with four blocks out: a, the DMA image's planes and the lone luma block

    const struct {
        size_t count;
        const char* row;
    } rows[] = {
        {1, "E - Map FD to Bufer Pointer fail, fd is invalid"},
        {1, "E - Alloc Graphic Buffer fail, pBuffer is nullptr"},
        {DmaCanFail() ? 1u : 0u, "E - Alloc System fail, m_fileDescriptor is invalid"},
        {4, "D P AllocBuffer: Alloc buffer success: type: 0, size: #, pBuf: @"},
        {16, "D P AllocBuffer: Alloc buffer success: type: 1, size: #, pBuf: @"},
        {4,
         "D P GetBufferFromPool: Get buffer type: 0, size: #, pBuf: @. Free buf num this size: 0"},
        {18,
         "D P GetBufferFromPool: Get buffer type: 1, size: #, pBuf: @. Free buf num this size: 0"},
        {2, "E P GetBufferFromPool: Invalid args, get buffer failed!"},
        {1, "E P AllocBuffer: Unsupport alloc buffer type: 2!"},
        {24, "V P PutBufferToPool: Put buffer to pool: @"},
        {4, "D P PutBufferToPool: Put buffer to pool success: pBuf: @, size: #, fd: 0, type: 0"},
        {16, "D P PutBufferToPool: Put buffer to pool success: pBuf: @, size: #, fd: #, type: 1"},
        {1,
         "D P PutBufferToPool: Buffer num this size is more than threshold, release buffer, pBuf: "
         "@, size: 8192, fd: #, type: 1, "},
        {1,
         "E P PutBufferToPool: Wrong buffer size when put buffer to pool, pBuf: @, size: 4096, "
         "fd: #, type: 1, release it!"},
        {2, "W P PutBufferToPool: Wrong buffer pointer: @"},
        {1, "W P PutBufferToPool: Put NULL buffer to pool!"},
        {4, "I P ReleaseBuffer: Release buffer: @"},
        {1, "E P ReleaseBuffer: Unsupport release buffer type: 3!"},
        {2, "D P ~ZOLBufferPool: All client disconnect, release buffer in pool"},
        {1, "W P ~ZOLBufferPool: All client disconnect, but there are 2 busy buffer in list:"},
        {2, "W P ~ZOLBufferPool:    busy buffer[0]: pBuf: @, size: 4096, fd, #, type: 1"},
        {1, "D P ~ZOLBufferPool: Buffer released: pBuf: @, size: 512, fd: 0, type: 0"},
        {1, "D P ~ZOLBufferPool: Buffer released: pBuf: @, size: 4096, fd: #, type: 1"},
        {3, "W M AllocBuffer: Alloc buffer invaild args"},
        {2, "E M AllocBuffer: Alloc buffer failed, get buffer from pool is NULL!"},
        {1, "E M AllocBuffer: Get repetitive buffer from buffer pool: @"},
        {7, "D M AllocBuffer: Alloc buffer success, get buffer from pool: @"},
        {2, "E M AllocBuffer: Alloc buffer fail, invalid size args"},
        {1, "D M GetImgBufferSize: Get img buffer size fail, unsupport format: 3"},
        {1, "E M AllocBuffer: Alloc buffer fail, get buffer size fail"},
        {1, "E M AllocBuffer: Alloc buffer fail, can not alloc new buf: size: 0, type: 0"},
        {1, "E M AllocBuffer: Alloc buffer fail, can not alloc new buf: size: 3072, type: 2"},
        {1,
         "D M AllocBuffer: Alloc buffer success: type: 0, format: 0, width: 60, height: 40, "
         "planeStride: 64, sliceHeight: 48, numberOfPlanes: 2, Addr0: @, Addr1: @, Addr2: "
         "(nil), Addr3: (nil), pNativeHandle: (nil), fd0: 0, fd1: 0, fd2: 0, fd3: 0"},
        {1,
         "D M AllocBuffer: Alloc buffer success: type: 1, format: 1, width: 64, height: 48, "
         "planeStride: 64, sliceHeight: 48, numberOfPlanes: 2, Addr0: @, Addr1: @, Addr2: "
         "(nil), Addr3: (nil), pNativeHandle: (nil), fd0: #, fd1: #, fd2: 0, fd3: 0"},
        {4, "W M FreeBuffer: Free buffer is NULL!"},
        {3, "D M FreeBuffer: Free buffer: @"},
        {1,
         "W M FreeBuffer: Free buffer failed, this buffer not alloced by this buffer manager, "
         "pBuf: @, buffer manager name: Cam"},
        {1, "D M StartCPUSync: Start CPU Sync Buffer, fd: #, sync type: 7, result: 0"},
        {1, "D M StartCPUSync: Start CPU Sync Buffer, fd: #, sync type: 2, result: 0"},
        {2, "D M EndCPUSync: End CPU Sync Buffer, fd: #, result: 0"},
        {1,
         "W M ~ZOLBufferManager: 4 buffer not free when buffer manager destory, release them "
         "forcibly"},
        {4, "W M ~ZOLBufferManager:   release buffer forcibly: @"},
    };
    const std::vector<zoltest::LogLine> lines = log.Lines();
    size_t matched = 0;
    for (const auto& row : rows) {
        const auto [priority, pattern] = Expand(row.row);
        const size_t count = std::count_if(lines.begin(), lines.end(), [&](const auto& line) {
            return line.priority == priority &&
                   zoltest::MatchesPattern(WithoutAddresses(line.text), pattern);
        });
        EXPECT_EQ(row.count, count) << row.row;
        matched += count;
    }
    EXPECT_EQ(lines.size(), matched) << "lines that no row expects";
    std::vector<void*> forced;  // returned in ascending address order
    for (const std::string& text : log.Texts(ANDROID_LOG_WARN)) {
        if (text.find("release buffer forcibly: ") != std::string::npos) {
            forced.push_back(nullptr);
            std::sscanf(text.c_str() + text.rfind(' ') + 1, "%p", &forced.back());
        }
    }
    EXPECT_TRUE(forced.size() == 4 && std::is_sorted(forced.begin(), forced.end()));
}

}  // namespace
