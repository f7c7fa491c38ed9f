// The buffer subsystem: allocator, process-wide pool and named managers. Every TEST runs in a
// process of its own, so each starts with empty pool lists and no clients.
#include <android/log.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <tuple>
#include <vector>

#include "zolbuffermanager.h"
#include "zolbuffermanager/internal/zolbufferpoolinternal.h"
#include "zoltest.h"

namespace {

constexpr ZOLBufferType kHeap = ZOL_BUFFER_TYPE_HEAP;
constexpr ZOLBufferType kDma = ZOL_BUFFER_TYPE_DMA;

ZOLImageBuffer Image(uint32_t format, uint32_t stride, uint32_t sliceHeight) {
    ZOLImageBuffer image = {};
    image.format = format;
    image.width = image.planeStride = stride;
    image.height = image.sliceHeight = sliceHeight;
    return image;
}

// What the process holds of the system: descriptors, shared mappings and the blocks malloc maps
// for large requests (64 MiB always is one; a sanitizer's allocator leaves this at 0).
std::tuple<int, int, size_t> SystemHoldings() {
    return {zoltest::CountOpenFds(), zoltest::CountSharedMappings(), mallinfo2().hblkhd};
}

TEST(BufferAllocator, DmaAndGraphicBuffersLeaveNothingBehind) {
    const auto before = SystemHoldings();
    {
        constexpr unsigned long kSize = 3 * 4096 + 100;
        ZOLBufferAllocator allocator;
        char* buffer = nullptr;
        int fd = -1;
        ASSERT_EQ(0, allocator.AllocDMABuffer(kSize, &buffer, fd));
        EXPECT_EQ(FD_CLOEXEC, fcntl(fd, F_GETFD) & FD_CLOEXEC);
        std::memset(buffer, 0x3c, kSize);
        auto* again = static_cast<unsigned char*>(allocator.MapFDToBufferPointer(fd, kSize));
        ASSERT_NE(MAP_FAILED, again);
        EXPECT_EQ(0x3c, again[kSize - 1]);
        munmap(again, kSize);
        EXPECT_EQ(MAP_FAILED, allocator.MapFDToBufferPointer(-1, 4096));  // only 0 is refused
        // A cache sync of a descriptor that is not open is refused as the kernel refuses it.
        const int closed = dup(fd);
        close(closed);
        for (const auto& [syncFd, result] : {std::pair(-1, -EBADF), {closed, -EBADF}, {fd, 0}}) {
            EXPECT_EQ(result, allocator.StartCPUSync(syncFd, ZOL_CPU_SYNC_READ_WRITE)) << syncFd;
            EXPECT_EQ(result, allocator.EndCPUSync(syncFd)) << syncFd;
        }
        EXPECT_EQ(0, allocator.DeallocDMABuffer(kSize, buffer, fd));
        EXPECT_EQ(-1, fd);
        EXPECT_EQ(-1, allocator.DeallocDMABuffer(kSize, nullptr, fd));  // nothing to give back
        BufferInfo info = {640, 480, 704, 0, 0, 704 * 480};
        EXPECT_NE(nullptr, allocator.AllocHardwareBuffer(info, &buffer, fd));  // no reference kept
        buffer[info.size - 1] = 1;
        EXPECT_EQ(0, allocator.DeallocHardwareBuffer(info, buffer, fd));
        // A graphic buffer wraps the descriptor as a camera output.
        const android::sp<android::GraphicBuffer> g =
            allocator.AllocGraphicBuffer(info, &buffer, fd);
        EXPECT_EQ(
            std::make_tuple(1, 0, 640u, 480u, 704u, 34, 0u, 0x20000u, fd, 0),
            std::make_tuple(g->getStrongCount(), static_cast<int>(g->getWrapMethod()),
                            g->getWidth(), g->getHeight(), g->getStride(), g->getPixelFormat(),
                            g->getLayerCount(), g->getUsage(), g->handleData0(),
                            g->handleVersion() | g->handleNumFds() | g->handleNumInts()));
        const android::sp<android::GraphicBuffer> given = DMABufferToGraphicBuffer(32, 16, 48, 9);
        EXPECT_EQ(std::make_tuple(32u, 16u, 48u, 9),
                  std::make_tuple(given->getWidth(), given->getHeight(), given->getStride(),
                                  given->handleData0()));
        EXPECT_EQ(0, allocator.DeallocGraphicBuffer(info, buffer, fd));
    }
    EXPECT_EQ(before, SystemHoldings());
    // With stdin closed a new buffer's descriptor is 0: a descriptor like any other, given back
    // (in a child: here stdin stays).
    const auto stdinClosed = [] {
        ZOLBufferAllocator allocator;
        char* buffer = nullptr;
        int fd = (close(0), -1);
        const bool made = allocator.AllocDMABuffer(4096, &buffer, fd) == 0 && fd == 0;
        allocator.DeallocDMABuffer(4096, buffer, fd);
        return made && fd == -1 ? 0 : 1;
    };
    EXPECT_EQ(0, zoltest::RunInChild(stdinClosed));
}

// Blocks come back by exact size and type, newest first; the last client out gives every free
// block back to the system.
TEST(BufferPool, RecyclesExactSizeAndTypeLastInFirstOutUntilTheLastClientLeaves) {
    const auto before = SystemHoldings();
    {
        ZOLBufferPool pool;
        int fd = -1;
        void* heap[3];
        for (void*& p : heap) {
            p = pool.GetBufferFromPool(4096, fd, kHeap);
        }
        void* dma = pool.GetBufferFromPool(4096, fd, kDma);
        const int dmaFd = fd;
        void* large = pool.GetBufferFromPool(64 << 20, fd, kHeap);
        for (void* p : {heap[1], heap[0], dma, heap[2], large}) {
            pool.PutBufferToPool(p);
        }
        EXPECT_EQ(dma, pool.GetBufferFromPool(4096, fd, kDma));
        EXPECT_EQ(dmaFd, fd);
        void* smaller = pool.GetBufferFromPool(4000, fd, kHeap);
        EXPECT_NE(heap[2], smaller);  // never a larger block
        EXPECT_EQ(0, fd);
        for (void* p : {heap[2], heap[0], heap[1]}) {
            EXPECT_EQ(p, pool.GetBufferFromPool(4096, fd, kHeap));
        }
        // The busy block around an address (how a replay bounds its reads), from its start to
        // its end; none past the end of one.
        ptrdiff_t begin = 0, end = 0;
        ASSERT_TRUE(zol::FindBusyBlock(static_cast<char*>(dma) + 100, &begin, &end));
        EXPECT_EQ(std::make_pair(ptrdiff_t{-100}, ptrdiff_t{3996}), std::make_pair(begin, end));
        EXPECT_FALSE(zol::FindBusyBlock(static_cast<char*>(smaller) + 4000, &begin, &end));
        for (void* p : {dma, smaller, heap[0], heap[1], heap[2]}) {
            pool.PutBufferToPool(p);
        }
    }
    EXPECT_EQ(before, SystemHoldings());
}

TEST(BufferPoolDeathTest, CountAndPlaneOverflowsAreFatal) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    __android_log_set_logger(__android_log_stderr_logger);
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    EXPECT_DEATH(ZOLBufferPool("Alone"),
                 "BufferPool-UnknowBufferManager.*All client disconnect.*zolbufferpool.cpp:[0-9]+ "
                 "fatal: integer overflow in subtraction");
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
        {1, 3, 3, 4, 2, 9, 4},         {0, 65535, 65537, 4, 2, 4294967295u, 2147483647},
        {0, 64, 48, 2, 2, 3072, 1536}, {0, 64, 48, 1, 0, 0, 88},
        {2, 64, 48, 4, 9, 77, 88},     {5, 64, 48, 4, 9, 77, 88},
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
// the allocator; '#' stands for a run of digits, '@' for an address ("0x..." in the line).
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

std::string WithoutAddresses(std::string text) {  // every "0x..." as '@'
    for (size_t at = text.find("0x"); at != std::string::npos; at = text.find("0x", at + 1)) {
        text.replace(at, text.find_first_not_of("0123456789abcdef", at + 2) - at, "@");
    }
    return text;
}

// Every line of the subsystem: the scenario writes each row's line exactly `count` times, and
// no other line.
TEST(BufferLog, EveryLineAsToolsParseIt) {
    zoltest::LogCapture log;
    int fd = 0;
    ZOLBufferAllocator allocator;
    allocator.MapFDToBufferPointer(0, 4096);
    EXPECT_EQ(nullptr, allocator.AllocGraphicBuffer(BufferInfo{}, nullptr, fd).get());
    rlimit limit = {};  // no descriptor left for a new buffer
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit saved = limit;
    limit.rlim_cur = 0;
    setrlimit(RLIMIT_NOFILE, &limit);
    char* buffer = nullptr;
    EXPECT_EQ(-1, allocator.AllocDMABuffer(4096, &buffer, fd));
    setrlimit(RLIMIT_NOFILE, &saved);
    EXPECT_LT(fd, 0);

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
    EXPECT_EQ(2u, log.Count("busy buffer[0]: pBuf: " + zoltest::Address(busy[0]) + ","));
    {
        ZOLBufferPool later;
        later.SetClientName("Cam");
        later.PutBufferToPool(busy[1]);
    }

    auto m = std::make_unique<ZOLBufferManager>("Old");
    m->SetManagerName("Cam");  // the pool client's name follows
    void* a = nullptr;
    ASSERT_TRUE(m->AllocBuffer(4096, &a, fd, kDma));
    EXPECT_TRUE(m->FreeBuffer(a));
    EXPECT_FALSE(m->FreeBuffer(a));
    EXPECT_FALSE(m->FreeBuffer(nullptr));
    int marker = 0;
    void* b = &marker;
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
    EXPECT_TRUE(m->FreeBuffer(image));
    ASSERT_TRUE(m->AllocBuffer(dma, kDma));
    EXPECT_TRUE(dma.fd[0] > 0 && dma.fd[1] > 0 && dma.fd[0] != dma.fd[1]) << "each plane's own";
    ZOLImageBuffer many = dma, none = {}, noWidth = Image(0, 64, 48);
    noWidth.width = 0;  // any one size of 0 is refused
    many.numberOfPlanes = 9;
    EXPECT_EQ(1u, log.Count("Addr0: " + zoltest::Address(dma.Addr[0]) +
                            ", Addr1: " + zoltest::Address(dma.Addr[1]) +
                            ", Addr2: (nil), Addr3: (nil), pNativeHandle: (nil), fd0: " +
                            std::to_string(dma.fd[0]) + ", fd1: " + std::to_string(dma.fd[1])));
    EXPECT_FALSE(m->StartCPUSync(dma, ZOL_CPU_SYNC_WRITE));  // the first plane only
    EXPECT_FALSE(m->EndCPUSync(many));
    EXPECT_TRUE(m->StartCPUSync(none, ZOL_CPU_SYNC_READ));
    EXPECT_TRUE(m->EndCPUSync(none));
    EXPECT_FALSE(m->AllocBuffer(tiny, kHeap));  // a chroma plane of 0 bytes: the luma stays out
    EXPECT_EQ(0u, tiny.numberOfPlanes);
    for (auto [refused, type] :
         {std::make_pair(Image(3, 64, 48), kHeap), std::make_pair(Image(0, 64, 0), kHeap),
          std::make_pair(Image(0, 0, 48), kDma), std::make_pair(noWidth, kHeap),
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
    pool->PutBufferToPool(nullptr);
    pool->PutBufferToPool(&marker);
    {
        std::lock_guard<std::mutex> lock(ZOLBufferPool::m_freeBufferListLock);
        EXPECT_EQ(nullptr, pool->AllocBuffer(4096, static_cast<ZOLBufferType>(2)));
    }
    pool->ReleaseBuffer({static_cast<ZOLBufferType>(3), nullptr, -1, 16});
    m.reset();  // with four blocks out: a, the DMA image's planes and the lone luma block

    const std::pair<size_t, const char*> rows[] = {
        {1, "E - Map FD to Bufer Pointer fail, fd is invalid"},
        {1, "E - Alloc Graphic Buffer fail, pBuffer is nullptr"},
        {1, "E - Alloc System fail, m_fileDescriptor is invalid"},
        {20, "D P AllocBuffer: Alloc buffer success: type: #, size: #, pBuf: @"},
        {22,
         "D P GetBufferFromPool: Get buffer type: #, size: #, pBuf: @. Free buf num this size: 0"},
        {2, "E P GetBufferFromPool: Invalid args, get buffer failed!"},
        {1, "E P AllocBuffer: Unsupport alloc buffer type: 2!"},
        {24, "V P PutBufferToPool: Put buffer to pool: @"},
        {20, "D P PutBufferToPool: Put buffer to pool success: pBuf: @, size: #, fd: #, type: #"},
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
        {2, "D P ~ZOLBufferPool: Buffer released: pBuf: @, size: #, fd: #, type: #"},
        {3, "W M AllocBuffer: Alloc buffer invaild args"},
        {2, "E M AllocBuffer: Alloc buffer failed, get buffer from pool is NULL!"},
        {1, "E M AllocBuffer: Get repetitive buffer from buffer pool: @"},
        {7, "D M AllocBuffer: Alloc buffer success, get buffer from pool: @"},
        {3, "E M AllocBuffer: Alloc buffer fail, invalid size args"},
        {1, "D M GetImgBufferSize: Get img buffer size fail, unsupport format: 3"},
        {1, "E M AllocBuffer: Alloc buffer fail, get buffer size fail"},
        {2, "E M AllocBuffer: Alloc buffer fail, can not alloc new buf: size: #, type: #"},
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
        {1, "D M StartCPUSync: Start CPU Sync Buffer, fd: #, sync type: 2, result: 0"},
        {1, "D M EndCPUSync: End CPU Sync Buffer, fd: #, result: 0"},
        {1,
         "W M ~ZOLBufferManager: 4 buffer not free when buffer manager destory, release them "
         "forcibly"},
        {4, "W M ~ZOLBufferManager:   release buffer forcibly: @"},
    };
    const std::vector<zoltest::LogLine> lines = log.Lines();
    size_t matched = 0;
    for (const auto& [count, row] : rows) {
        const auto [priority, pattern] = Expand(row);
        const size_t found = std::count_if(lines.begin(), lines.end(), [&](const auto& line) {
            return line.priority == priority &&
                   zoltest::MatchesPattern(WithoutAddresses(line.text), pattern);
        });
        EXPECT_EQ(count, found) << row;
        matched += found;
    }
    EXPECT_EQ(lines.size(), matched) << "lines that no row expects";
}

}  // namespace
