// The buffer subsystem: allocator, process-wide pool and named managers. Every TEST runs in a
// process of its own, so each starts with empty pool lists and no clients.
#include <android/log.h>
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

std::string Hex(const void* p) {
    return zoltest::Address(p);
}

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
        // mmap refuses a length of 0: its failure address comes back as the buffer.
        ASSERT_EQ(0, allocator.AllocDMABuffer(0, &buffer, fd));
        EXPECT_EQ(MAP_FAILED, static_cast<void*>(buffer));
        EXPECT_EQ(0, allocator.DeallocDMABuffer(0, buffer, fd));
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
    EXPECT_NE(heap[2], pool.GetBufferFromPool(4000, fd, kHeap));  // never a larger block
    EXPECT_EQ(0, fd);
    EXPECT_EQ(heap[2], pool.GetBufferFromPool(4096, fd, kHeap));
    EXPECT_EQ(heap[0], pool.GetBufferFromPool(4096, fd, kHeap));
    EXPECT_EQ(std::vector<void*>{heap[1]}, FreeBlocks(kHeap, 4096));
    EXPECT_TRUE(IsBusy(heap[0]) && !IsBusy(heap[1]));
}

TEST(BufferPoolDeathTest, CountsPlaneSizesAndFailedAllocationsAreFatal) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    __android_log_set_logger(__android_log_stderr_logger);
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    EXPECT_DEATH(ZOLBufferPool("Alone"),
                 "BufferPool-UnknowBufferManager.*All client disconnect.*overflow in subtraction");
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

TEST(BufferLifetime, FreeBlocksKeepTheirDescriptorsUntilTheLastClientGoes) {
    const int fds = zoltest::CountOpenFds(), maps = zoltest::CountSharedMappings();
    for (int round = 0; round < 2; ++round) {
        ZOLBufferManager keeper("Keeper");
        {
            ZOLBufferManager user("User");
            ZOLImageBuffer image = Image(0, 1024, 1024);
            ASSERT_TRUE(user.AllocBuffer(image, kDma));
            EXPECT_TRUE(image.fd[0] > 0 && image.fd[1] > 0 && image.fd[0] != image.fd[1]);
            ASSERT_TRUE(user.AllocBuffer(image, kHeap));
            void* raw = nullptr;
            int fd = 0;
            ASSERT_TRUE(user.AllocBuffer(8192, &raw, fd, kDma));
        }
        EXPECT_EQ(fds + 3, zoltest::CountOpenFds());  // forcibly returned, free, still open
        EXPECT_EQ(5u, BlockCount());
    }
    EXPECT_EQ(fds, zoltest::CountOpenFds());
    EXPECT_EQ(maps, zoltest::CountSharedMappings());
    EXPECT_EQ(0u, BlockCount());
}

// The log lines, as engineers' tools parse them. Check() expects exactly the given rows since
// the previous check, whole and in order. A row is "<level> <owner> <function>: <message>", the
// owner "Pool-<client>" for a pool line, a manager's name, or "-" (no function) for an allocator
// line; "{x}" stands for vars["x"] and the source line number is left open.
class Transcript {
public:
    void Check(const char* step, const std::vector<std::string>& rows) {
        const std::vector<zoltest::LogLine> got = log.Lines();
        bool same = got.size() == rows.size();
        std::string text = std::string(step) + "\ngot:\n";
        for (size_t i = 0; i < got.size(); ++i) {
            same = same && Letter(got[i].priority) == rows[i][0] &&
                   zoltest::MatchesPattern(got[i].text, Expand(rows[i]));
            text += Letter(got[i].priority) + (" " + got[i].text + "\n");
        }
        for (const std::string& row : rows) {
            text += "want: " + row + "\n";
        }
        EXPECT_TRUE(same) << text;
        log.Clear();
    }
    std::map<std::string, std::string> vars;
    zoltest::LogCapture log;

private:
    static char Letter(int priority) {
        return priority >= ANDROID_LOG_VERBOSE && priority <= ANDROID_LOG_ERROR
                   ? "VDIWE"[priority - ANDROID_LOG_VERBOSE]
                   : '?';
    }
    std::string Expand(const std::string& row) const {
        std::string text;
        for (size_t at = 2; at < row.size(); ++at) {
            const size_t close = row.find('}', at);
            text +=
                row[at] == '{' ? vars.at(row.substr(at + 1, close - at - 1)) : row.substr(at, 1);
            at = row[at] == '{' ? close : at;
        }
        const size_t ownerEnd = text.find(' '), functionEnd = text.find(": ");
        const std::string owner = text.substr(0, ownerEnd);
        if (owner == "-") {
            return text.substr(2);
        }
        return (owner.rfind("Pool-", 0) == 0 ? "[Buffer" + owner + "] zolbufferpool.cpp:# "
                                             : "[" + owner + "] zolbuffermanager.cpp:# ") +
               text.substr(ownerEnd + 1, functionEnd - ownerEnd - 1) + "() " +
               text.substr(functionEnd + 2);
    }
};

TEST(BufferLog, EveryLineWholeAndInOrder) {
    Transcript t;
    auto& v = t.vars;
    int fd = 0;
    ZOLBufferAllocator allocator;
    allocator.MapFDToBufferPointer(0, 4096);
    allocator.MapFDToBufferPointer(-1, 4096);  // goes to mmap, which fails quietly
    BufferInfo info = {};
    info.size = 4096;
    EXPECT_EQ(nullptr, allocator.AllocGraphicBuffer(info, nullptr, fd).get());
    std::vector<std::string> rows = {"E - Map FD to Bufer Pointer fail, fd is invalid",
                                     "E - Alloc Graphic Buffer fail, pBuffer is nullptr"};
    if (DmaCanFail()) {
        char* buffer = nullptr;
        SetFileSizeLimit(1024);
        EXPECT_EQ(-1, allocator.AllocDMABuffer(4096, &buffer, fd));
        EXPECT_LT(fd, 0);
        SetFileSizeLimit(RLIM_INFINITY);
        rows.push_back("E - Alloc System fail, m_fileDescriptor is invalid");
    }
    t.Check("allocator refusals", rows);

    std::vector<std::pair<void*, int>> busy(2);
    void* heap = nullptr;
    {
        ZOLBufferPool last;
        last.SetClientName("Last");
        last.PutBufferToPool(heap = last.GetBufferFromPool(512, fd, kHeap));
        for (auto& [p, blockFd] : busy) {
            p = last.GetBufferFromPool(4096, blockFd, kDma);
        }
        std::sort(busy.begin(), busy.end());
        t.log.Clear();
    }
    EXPECT_TRUE(!IsBusy(busy[0].first) && IsBusy(busy[1].first));
    EXPECT_EQ(1u, BlockCount());
    v = {{"h", Hex(heap)},
         {"b0", Hex(busy[0].first)},
         {"fd0", std::to_string(busy[0].second)},
         {"b1", Hex(busy[1].first)},
         {"fd1", std::to_string(busy[1].second)}};
    t.Check("the last client out names the lowest busy block per busy block",
            {"D Pool-Last ~ZOLBufferPool: All client disconnect, release buffer in pool",
             "W Pool-Last ~ZOLBufferPool: All client disconnect, but there are 2 busy buffer in "
             "list:",
             "W Pool-Last ~ZOLBufferPool:    busy buffer[0]: pBuf: {b0}, size: 4096, fd, {fd0}, "
             "type: 1",
             "W Pool-Last ~ZOLBufferPool:    busy buffer[0]: pBuf: {b0}, size: 4096, fd, {fd0}, "
             "type: 1",
             "V Pool-Last PutBufferToPool: Put buffer to pool: {b0}",
             "D Pool-Last PutBufferToPool: Put buffer to pool success: pBuf: {b0}, size: 4096, "
             "fd: {fd0}, type: 1",
             "V Pool-Last PutBufferToPool: Put buffer to pool: {b0}",
             "W Pool-Last PutBufferToPool: Wrong buffer pointer: {b0}",
             "I Pool-Last ReleaseBuffer: Release buffer: {h}",
             "D Pool-Last ~ZOLBufferPool: Buffer released: pBuf: {h}, size: 512, fd: 0, type: 0",
             "I Pool-Last ReleaseBuffer: Release buffer: {b0}",
             "D Pool-Last ~ZOLBufferPool: Buffer released: pBuf: {b0}, size: 4096, fd: {fd0}, "
             "type: 1"});
    {
        ZOLBufferPool later;
        later.SetClientName("Later");
        later.PutBufferToPool(busy[1].first);
    }
    t.Check("a later client releases a block of a size no longer listed",
            {"V Pool-Later PutBufferToPool: Put buffer to pool: {b1}",
             "E Pool-Later PutBufferToPool: Wrong buffer size when put buffer to pool, pBuf: "
             "{b1}, size: 4096, fd: {fd1}, type: 1, release it!",
             "I Pool-Later ReleaseBuffer: Release buffer: {b1}",
             "D Pool-Later ~ZOLBufferPool: All client disconnect, release buffer in pool"});

    auto m = std::make_unique<ZOLBufferManager>("Cam");
    void *a = nullptr, *b = nullptr;
    int fdA = 0;
    ASSERT_TRUE(m->AllocBuffer(4096, &a, fdA, kDma));
    EXPECT_TRUE(m->StartCPUSync(fdA, static_cast<CPUSyncType>(7)));
    EXPECT_TRUE(m->EndCPUSync(fdA));
    EXPECT_TRUE(m->FreeBuffer(a));
    EXPECT_FALSE(m->FreeBuffer(a));
    EXPECT_FALSE(m->FreeBuffer(nullptr));
    v = {{"a", Hex(a)}, {"fd", std::to_string(fdA)}};
    t.Check("a raw DMA buffer",
            {"D Pool-Cam AllocBuffer: Alloc buffer success: type: 1, size: 4096, pBuf: {a}",
             "D Pool-Cam GetBufferFromPool: Get buffer type: 1, size: 4096, pBuf: {a}. Free buf "
             "num this size: 0",
             "D Cam AllocBuffer: Alloc buffer success, get buffer from pool: {a}",
             "D Cam StartCPUSync: Start CPU Sync Buffer, fd: {fd}, sync type: 7, result: 0",
             "D Cam EndCPUSync: End CPU Sync Buffer, fd: {fd}, result: 0",
             "V Pool-Cam PutBufferToPool: Put buffer to pool: {a}",
             "D Pool-Cam PutBufferToPool: Put buffer to pool success: pBuf: {a}, size: 4096, fd: "
             "{fd}, type: 1",
             "D Cam FreeBuffer: Free buffer: {a}",
             "W Cam FreeBuffer: Free buffer failed, this buffer not alloced by this buffer "
             "manager, pBuf: {a}, buffer manager name: Cam",
             "W Cam FreeBuffer: Free buffer is NULL!"});

    m->SetManagerName("Raw");
    int marker = 0;
    b = &marker;
    fd = 42;
    EXPECT_FALSE(m->AllocBuffer(0, &b, fd, kHeap));
    EXPECT_FALSE(m->AllocBuffer(16, nullptr, fd, kHeap));
    EXPECT_TRUE(b == &marker && fd == 42);
    EXPECT_FALSE(m->AllocBuffer(16, &b, fd, static_cast<ZOLBufferType>(2)));
    EXPECT_TRUE(b == nullptr && fd == 0);  // cleared before the pool refused
    t.Check("refused raw requests, under the new name",
            {"W Raw AllocBuffer: Alloc buffer invaild args",
             "W Raw AllocBuffer: Alloc buffer invaild args",
             "E Pool-Raw GetBufferFromPool: Invalid args, get buffer failed!",
             "E Raw AllocBuffer: Alloc buffer failed, get buffer from pool is NULL!"});

    auto pool = std::make_unique<ZOLBufferPool>();
    {
        ZOLBufferManager other("Other");
        ASSERT_TRUE(m->AllocBuffer(4096, &b, fd, kDma));  // the free block `a`
        EXPECT_FALSE(other.FreeBuffer(b));
        EXPECT_TRUE(IsBusy(b));
        pool->PutBufferToPool(b);  // behind the manager's back
        t.log.Clear();
    }
    EXPECT_FALSE(m->AllocBuffer(4096, &b, fd, kDma));
    t.Check("a block handed out twice",
            {"D Pool-Raw GetBufferFromPool: Get buffer type: 1, size: 4096, pBuf: {a}. Free buf "
             "num this size: 0",
             "E Raw AllocBuffer: Get repetitive buffer from buffer pool: {a}"});

    m->SetManagerName("Img");
    ZOLImageBuffer image = Image(0, 64, 48);
    image.width = 60;
    image.height = 40;
    image.fd[2] = 7;
    image.pNativeHandle = &image;
    ASSERT_TRUE(m->AllocBuffer(image, kHeap));
    const ZOLImageBuffer before = image;
    EXPECT_TRUE(m->FreeBuffer(image));
    EXPECT_EQ(0, std::memcmp(&before, &image, sizeof(image)));  // the record stays as it was
    t.log.Clear();
    ASSERT_TRUE(m->AllocBuffer(image, kHeap));  // the same blocks, from the free lists
    v = {{"y", Hex(image.Addr[0])}, {"uv", Hex(image.Addr[1])}, {"null", Hex(nullptr)}};
    t.Check("an image",
            {"D Pool-Img GetBufferFromPool: Get buffer type: 0, size: 3072, pBuf: {y}. Free buf "
             "num this size: 0",
             "D Img AllocBuffer: Alloc buffer success, get buffer from pool: {y}",
             "D Pool-Img GetBufferFromPool: Get buffer type: 0, size: 1536, pBuf: {uv}. Free buf "
             "num this size: 0",
             "D Img AllocBuffer: Alloc buffer success, get buffer from pool: {uv}",
             "D Img AllocBuffer: Alloc buffer success: type: 0, format: 0, width: 60, height: 40, "
             "planeStride: 64, sliceHeight: 48, numberOfPlanes: 2, Addr0: {y}, Addr1: {uv}, "
             "Addr2: {null}, Addr3: {null}, pNativeHandle: {null}, fd0: 0, fd1: 0, fd2: 0, fd3: "
             "0"});

    ZOLImageBuffer dma = Image(1, 64, 48), none = {};
    ASSERT_TRUE(m->AllocBuffer(dma, kDma));
    ZOLImageBuffer many = dma;
    many.numberOfPlanes = 9;
    m->FreeBuffer(dma);
    t.log.Clear();
    EXPECT_FALSE(m->StartCPUSync(dma, ZOL_CPU_SYNC_WRITE));
    EXPECT_FALSE(m->EndCPUSync(many));
    EXPECT_TRUE(m->StartCPUSync(none, ZOL_CPU_SYNC_READ) && m->EndCPUSync(none));
    v["fd"] = std::to_string(dma.fd[0]);
    t.Check("image syncs: the first plane only, and true only without planes",
            {"D Img StartCPUSync: Start CPU Sync Buffer, fd: {fd}, sync type: 2, result: 0",
             "D Img EndCPUSync: End CPU Sync Buffer, fd: {fd}, result: 0"});

    ZOLImageBuffer tiny = Image(0, 1, 1);  // a chroma plane of 0 bytes
    EXPECT_FALSE(m->AllocBuffer(tiny, kHeap));
    EXPECT_EQ(0u, tiny.numberOfPlanes);
    const std::string luma = t.log.Texts()[0].substr(t.log.Texts()[0].find("pBuf: ") + 6);
    v["luma"] = luma;
    t.Check("an image whose second plane fails keeps the first",
            {"D Pool-Img AllocBuffer: Alloc buffer success: type: 0, size: 1, pBuf: {luma}",
             "D Pool-Img GetBufferFromPool: Get buffer type: 0, size: 1, pBuf: {luma}. Free buf "
             "num this size: 0",
             "D Img AllocBuffer: Alloc buffer success, get buffer from pool: {luma}",
             "W Img AllocBuffer: Alloc buffer invaild args",
             "E Img AllocBuffer: Alloc buffer fail, can not alloc new buf: size: 0, type: 0",
             "W Img FreeBuffer: Free buffer is NULL!", "W Img FreeBuffer: Free buffer is NULL!"});

    for (auto [refused, type] :
         {std::make_pair(Image(3, 64, 48), kHeap), std::make_pair(Image(0, 64, 0), kHeap),
          std::make_pair(Image(0, 0, 48), kDma),
          std::make_pair(Image(0, 64, 48), ZOLBufferType(2))}) {
        EXPECT_FALSE(m->AllocBuffer(refused, type));
        EXPECT_EQ(0u, refused.numberOfPlanes);
    }
    t.Check("images refused before any block",
            {"D Img GetImgBufferSize: Get img buffer size fail, unsupport format: 3",
             "E Img AllocBuffer: Alloc buffer fail, get buffer size fail",
             "E Img AllocBuffer: Alloc buffer fail, invalid size args",
             "E Img AllocBuffer: Alloc buffer fail, invalid size args",
             "E Pool-Img GetBufferFromPool: Invalid args, get buffer failed!",
             "E Img AllocBuffer: Alloc buffer failed, get buffer from pool is NULL!",
             "E Img AllocBuffer: Alloc buffer fail, can not alloc new buf: size: 3072, type: 2",
             "W Img FreeBuffer: Free buffer is NULL!"});

    pool->SetClientName("P");
    std::vector<std::pair<void*, int>> blocks(11);
    for (auto& [p, blockFd] : blocks) {
        p = pool->GetBufferFromPool(8192, blockFd, kDma);
    }
    for (int i = 0; i < 9; ++i) {
        pool->PutBufferToPool(blocks[i].first);
    }
    t.log.Clear();
    pool->PutBufferToPool(nullptr);
    pool->PutBufferToPool(&marker);
    {
        std::lock_guard<std::mutex> lock(ZOLBufferPool::m_freeBufferListLock);
        EXPECT_EQ(nullptr, pool->AllocBuffer(4096, static_cast<ZOLBufferType>(2)));
    }
    pool->ReleaseBuffer({static_cast<ZOLBufferType>(3), nullptr, -1, 16});
    pool->PutBufferToPool(blocks[9].first);
    pool->PutBufferToPool(blocks[10].first);
    EXPECT_EQ(10u, FreeBlocks(kDma, 8192).size());
    v = {{"m", Hex(&marker)},
         {"b9", Hex(blocks[9].first)},
         {"b10", Hex(blocks[10].first)},
         {"fd9", std::to_string(blocks[9].second)},
         {"fd10", std::to_string(blocks[10].second)}};
    t.Check("pool refusals, and the tenth and eleventh free block",
            {"W Pool-P PutBufferToPool: Put NULL buffer to pool!",
             "V Pool-P PutBufferToPool: Put buffer to pool: {m}",
             "W Pool-P PutBufferToPool: Wrong buffer pointer: {m}",
             "E Pool-P AllocBuffer: Unsupport alloc buffer type: 2!",
             "E Pool-P ReleaseBuffer: Unsupport release buffer type: 3!",
             "V Pool-P PutBufferToPool: Put buffer to pool: {b9}",
             "D Pool-P PutBufferToPool: Put buffer to pool success: pBuf: {b9}, size: 8192, fd: "
             "{fd9}, type: 1",
             "V Pool-P PutBufferToPool: Put buffer to pool: {b10}",
             "D Pool-P PutBufferToPool: Buffer num this size is more than threshold, release "
             "buffer, pBuf: {b10}, size: 8192, fd: {fd10}, type: 1, ",
             "I Pool-P ReleaseBuffer: Release buffer: {b10}"});

    EXPECT_TRUE(m->FreeBuffer(image));
    void* lumaBlock = nullptr;
    std::sscanf(luma.c_str(), "%p", &lumaBlock);
    std::vector<std::pair<void*, std::string>> out = {
        {a, "size: 4096, fd: " + std::to_string(fdA) + ", type: 1"},
        {lumaBlock, "size: 1, fd: 0, type: 0"}};
    std::sort(out.begin(), out.end());
    v = {{"o0", Hex(out[0].first)},
         {"o0rest", out[0].second},
         {"o1", Hex(out[1].first)},
         {"o1rest", out[1].second}};
    t.log.Clear();
    m.reset();
    t.Check("a manager destroyed with blocks out returns them in address order",
            {"W Img ~ZOLBufferManager: 2 buffer not free when buffer manager destory, release "
             "them forcibly",
             "V Pool-Img PutBufferToPool: Put buffer to pool: {o0}",
             "D Pool-Img PutBufferToPool: Put buffer to pool success: pBuf: {o0}, {o0rest}",
             "W Img ~ZOLBufferManager:   release buffer forcibly: {o0}",
             "V Pool-Img PutBufferToPool: Put buffer to pool: {o1}",
             "D Pool-Img PutBufferToPool: Put buffer to pool success: pBuf: {o1}, {o1rest}",
             "W Img ~ZOLBufferManager:   release buffer forcibly: {o1}"});
}

}  // namespace
