#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "buftest.h"
#include "zolbuffermanager.h"
#include "zoltest.h"

namespace {

using buftest::CountLines;
using buftest::Fmt;

constexpr ZOLBufferType kHeap = ZOL_BUFFER_TYPE_HEAP;
constexpr ZOLBufferType kDma = ZOL_BUFFER_TYPE_DMA;

ZOLImageBuffer Image(uint32_t format, uint32_t stride, uint32_t sliceHeight) {
    ZOLImageBuffer image = {};
    image.format = format;
    image.width = stride;
    image.height = sliceHeight;
    image.planeStride = stride;
    image.sliceHeight = sliceHeight;
    return image;
}

// ---- Plane sizing ----

TEST(ImageBufferSize, TwoPlanesOfLumaAndHalfOfItRoundedDown) {
    ZOLBufferManager manager;
    unsigned count = 0;
    unsigned sizes[4] = {};
    manager.GetImgBufferSize(Image(0, 4096, 3072), count, sizes, 4);
    EXPECT_EQ(2u, count);
    EXPECT_EQ(12582912u, sizes[0]);
    EXPECT_EQ(6291456u, sizes[1]);
    EXPECT_EQ(0u, sizes[2]);

    ZOLImageBuffer odd = Image(1, 3, 3);
    odd.width = 1000;  // width and height do not enter the sizes
    odd.height = 1;
    manager.GetImgBufferSize(odd, count, sizes, 4);
    EXPECT_EQ(2u, count);
    EXPECT_EQ(9u, sizes[0]);
    EXPECT_EQ(4u, sizes[1]);
}

TEST(ImageBufferSize, TooLittleRoomGivesNoPlanesAndZeroedRoom) {
    ZOLBufferManager manager;
    unsigned count = 9;
    unsigned sizes[2] = {77, 88};
    manager.GetImgBufferSize(Image(0, 64, 48), count, sizes, 1);
    EXPECT_EQ(0u, count);
    EXPECT_EQ(0u, sizes[0]);
    EXPECT_EQ(88u, sizes[1]);
}

TEST(ImageBufferSize, UnsupportedFormatIsLoggedAndTouchesNothing) {
    ZOLBufferManager manager("Sizer");
    zoltest::LogCapture log;
    unsigned count = 0;
    unsigned sizes[4] = {1, 2, 3, 4};
    manager.GetImgBufferSize(Image(2, 64, 48), count, sizes, 4);
    EXPECT_EQ(0u, count);
    EXPECT_EQ(1u, sizes[0]);
    EXPECT_EQ(2u, sizes[1]);
    ASSERT_EQ(1u, log.Texts().size());
    EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_DEBUG,
                             "[Sizer] zolbuffermanager.cpp:# GetImgBufferSize() Get img buffer "
                             "size fail, unsupport format: 2"));
}

TEST(ImageBufferSizeDeathTest, LumaPlaneOf4GiBOrMoreIsFatal) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    ZOLBufferManager manager;
    unsigned count = 0;
    unsigned sizes[4] = {};
    manager.GetImgBufferSize(Image(0, 65535, 65537), count, sizes, 4);  // 2^32 - 1 still fits
    EXPECT_EQ(4294967295u, sizes[0]);
    EXPECT_DEATH(
        {
            __android_log_set_logger(__android_log_stderr_logger);
            manager.GetImgBufferSize(Image(0, 65536, 65536), count, sizes, 4);
        },
        "fatal");
}

// ---- Raw buffers ----

TEST(BufferManager, RawBufferComesFromThePoolAndGoesBack) {
    ZOLBufferManager manager("Raw");
    zoltest::LogCapture log;
    void* p = nullptr;
    int fd = -1;
    ASSERT_TRUE(manager.AllocBuffer(2048, &p, fd, kDma));
    ASSERT_NE(nullptr, p);
    EXPECT_GT(fd, 0);
    std::memset(p, 0xa5, 2048);
    EXPECT_TRUE(buftest::IsBusy(p));
    EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_DEBUG,
                             Fmt("[Raw] zolbuffermanager.cpp:# AllocBuffer() Alloc buffer "
                                 "success, get buffer from pool: %p",
                                 p)));
    // The pool's lines (a new block, then the hand-out) carry the manager's name.
    EXPECT_EQ(2u, log.Count("[BufferPool-Raw] zolbufferpool.cpp:"));

    EXPECT_TRUE(manager.FreeBuffer(p));
    EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_DEBUG,
                             Fmt("[Raw] zolbuffermanager.cpp:# FreeBuffer() Free buffer: %p", p)));
    EXPECT_EQ(std::vector<void*>{p}, buftest::FreeBlocks(kDma, 2048));
    EXPECT_FALSE(manager.FreeBuffer(p));  // no longer this manager's

    void* again = nullptr;
    ASSERT_TRUE(manager.AllocBuffer(2048, &again, fd, kHeap));
    EXPECT_EQ(0, fd);
    EXPECT_TRUE(manager.FreeBuffer(again));
}

TEST(BufferManager, InvalidRawRequestsWriteNothing) {
    ZOLBufferManager manager("Bad");
    zoltest::LogCapture log;
    int marker = 0;
    void* p = &marker;
    int fd = 42;
    EXPECT_FALSE(manager.AllocBuffer(0, &p, fd, kHeap));
    EXPECT_FALSE(manager.AllocBuffer(16, nullptr, fd, kHeap));
    EXPECT_EQ(&marker, p);
    EXPECT_EQ(42, fd);
    EXPECT_EQ(2u, CountLines(log, ANDROID_LOG_WARN,
                             "[Bad] zolbuffermanager.cpp:# AllocBuffer() Alloc buffer invaild "
                             "args"));

    // A type the pool refuses: the outputs are cleared first.
    EXPECT_FALSE(manager.AllocBuffer(16, &p, fd, static_cast<ZOLBufferType>(2)));
    EXPECT_EQ(nullptr, p);
    EXPECT_EQ(0, fd);
    EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_ERROR,
                             "[Bad] zolbuffermanager.cpp:# AllocBuffer() Alloc buffer failed, get "
                             "buffer from pool is NULL!"));

    EXPECT_FALSE(manager.FreeBuffer(static_cast<const void*>(nullptr)));
    EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_WARN,
                             "[Bad] zolbuffermanager.cpp:# FreeBuffer() Free buffer is NULL!"));
}

TEST(BufferManager, BufferOfAnotherManagerIsRefusedAndStaysBusy) {
    ZOLBufferManager owner("Owner");
    ZOLBufferManager other("Other");
    void* p = nullptr;
    int fd = 0;
    ASSERT_TRUE(owner.AllocBuffer(4096, &p, fd, kDma));
    zoltest::LogCapture log;
    EXPECT_FALSE(other.FreeBuffer(p));
    EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_WARN,
                             Fmt("[Other] zolbuffermanager.cpp:# FreeBuffer() Free buffer failed, "
                                 "this buffer not alloced by this buffer manager, pBuf: %p, buffer "
                                 "manager name: Other",
                                 p)));
    EXPECT_TRUE(buftest::IsBusy(p));
    EXPECT_TRUE(owner.FreeBuffer(p));
    EXPECT_FALSE(buftest::IsBusy(p));
}

TEST(BufferManager, BufferHandedOutTwiceIsRefused) {
    ZOLBufferManager manager("Twice");
    void* p = nullptr;
    int fd = 0;
    ASSERT_TRUE(manager.AllocBuffer(128, &p, fd, kHeap));
    // Someone returns it to the pool behind the manager's back...
    ZOLBufferPool bystander;
    bystander.PutBufferToPool(p);
    // ...so the pool hands it out again while the manager still counts it as out.
    zoltest::LogCapture log;
    void* q = nullptr;
    EXPECT_FALSE(manager.AllocBuffer(128, &q, fd, kHeap));
    EXPECT_EQ(nullptr, q);
    EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_ERROR,
                             Fmt("[Twice] zolbuffermanager.cpp:# AllocBuffer() Get repetitive "
                                 "buffer from buffer pool: %p",
                                 p)));
    EXPECT_TRUE(buftest::IsBusy(p));
    EXPECT_TRUE(manager.FreeBuffer(p));
}

TEST(BufferManager, NamesFollowTheManagerAndNamedOnesCountOnce) {
    EXPECT_EQ(0u, buftest::ClientCount());
    zoltest::LogCapture log;
    {
        ZOLBufferManager named("First");
        EXPECT_EQ(1u, buftest::ClientCount());
        // The transient unnamed manager's client came and went without a last-client release.
        EXPECT_EQ(0u, log.Count("All client disconnect"));
        named.SetManagerName("Renamed");
        void* p = nullptr;
        int fd = 0;
        ASSERT_TRUE(named.AllocBuffer(32, &p, fd, kHeap));
        EXPECT_TRUE(named.FreeBuffer(p));
        EXPECT_EQ(0u, log.Count("First"));
        EXPECT_EQ(2u, log.Count("[Renamed] zolbuffermanager.cpp:"));
        EXPECT_EQ(4u, log.Count("[BufferPool-Renamed] zolbufferpool.cpp:"));
    }
    EXPECT_EQ(0u, buftest::ClientCount());
    EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_DEBUG,
                             "[BufferPool-Renamed] zolbufferpool.cpp:# ~ZOLBufferPool() All client "
                             "disconnect, release buffer in pool"));
    ZOLBufferManager unnamed;
    EXPECT_EQ(1u, buftest::ClientCount());
}

// ---- Images ----

TEST(BufferManager, HeapImageGetsOneBlockPerPlane) {
    ZOLBufferManager manager("Img");
    zoltest::LogCapture log;
    ZOLImageBuffer image = Image(0, 64, 48);
    image.width = 60;
    image.height = 40;
    image.fd[2] = 7;
    image.pNativeHandle = &image;
    ASSERT_TRUE(manager.AllocBuffer(image, kHeap));
    EXPECT_EQ(2u, image.numberOfPlanes);
    ASSERT_NE(nullptr, image.Addr[0]);
    ASSERT_NE(nullptr, image.Addr[1]);
    EXPECT_EQ(nullptr, image.Addr[2]);
    EXPECT_EQ(nullptr, image.Addr[3]);
    EXPECT_EQ(nullptr, image.pNativeHandle);
    for (int fd : image.fd) {
        EXPECT_EQ(0, fd);
    }
    // Each plane is a block of its own size (a sanitizer run catches any overrun).
    std::memset(image.Addr[0], 0x10, 3072);
    std::memset(image.Addr[1], 0x80, 1536);
    EXPECT_TRUE(buftest::IsBusy(image.Addr[0]));
    EXPECT_TRUE(buftest::IsBusy(image.Addr[1]));
    EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_DEBUG,
                             Fmt("[Img] zolbuffermanager.cpp:# AllocBuffer() Alloc buffer success: "
                                 "type: 0, format: 0, width: 60, height: 40, planeStride: 64, "
                                 "sliceHeight: 48, numberOfPlanes: 2, Addr0: %p, Addr1: %p, Addr2: "
                                 "%p, Addr3: %p, pNativeHandle: %p, fd0: 0, fd1: 0, fd2: 0, fd3: 0",
                                 image.Addr[0], image.Addr[1], nullptr, nullptr, nullptr)));

    const ZOLImageBuffer before = image;
    EXPECT_TRUE(manager.FreeBuffer(image));
    EXPECT_EQ(0, std::memcmp(&before, &image, sizeof(image)));  // the record is left as it was
    EXPECT_EQ(1u, buftest::FreeBlocks(kHeap, 3072).size());
    EXPECT_EQ(1u, buftest::FreeBlocks(kHeap, 1536).size());
    EXPECT_EQ(0u, buftest::BusyCount());
}

TEST(BufferManager, DmaImageCarriesOneDescriptorPerPlane) {
    ZOLBufferManager manager("Dma");
    ZOLImageBuffer image = Image(1, 128, 96);
    ASSERT_TRUE(manager.AllocBuffer(image, kDma));
    EXPECT_EQ(2u, image.numberOfPlanes);
    EXPECT_GT(image.fd[0], 0);
    EXPECT_GT(image.fd[1], 0);
    EXPECT_NE(image.fd[0], image.fd[1]);
    EXPECT_EQ(0, image.fd[2]);
    EXPECT_EQ(0, image.fd[3]);
    std::memset(image.Addr[0], 1, 128 * 96);
    std::memset(image.Addr[1], 2, 128 * 96 / 2);
    EXPECT_TRUE(manager.FreeBuffer(image));
    EXPECT_EQ(1u, buftest::FreeBlocks(kDma, 128 * 96).size());
    EXPECT_EQ(1u, buftest::FreeBlocks(kDma, 128 * 96 / 2).size());
}

TEST(BufferManager, ImageRequestsThatCannotBeSized) {
    ZOLBufferManager manager("Fmt");
    zoltest::LogCapture log;
    ZOLImageBuffer image = Image(3, 64, 48);
    EXPECT_FALSE(manager.AllocBuffer(image, kHeap));
    const std::vector<std::string> texts = log.Texts();
    ASSERT_EQ(2u, texts.size());
    EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_DEBUG,
                             "[Fmt] zolbuffermanager.cpp:# GetImgBufferSize() Get img buffer size "
                             "fail, unsupport format: 3"));
    EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_ERROR,
                             "[Fmt] zolbuffermanager.cpp:# AllocBuffer() Alloc buffer fail, get "
                             "buffer size fail"));
    EXPECT_NE(std::string::npos, texts[0].find("unsupport format"));

    log.Clear();
    for (int which = 0; which < 4; ++which) {
        ZOLImageBuffer zero = Image(0, 64, 48);
        uint32_t* fields[] = {&zero.width, &zero.height, &zero.planeStride, &zero.sliceHeight};
        *fields[which] = 0;
        EXPECT_FALSE(manager.AllocBuffer(zero, kHeap));
        EXPECT_EQ(0u, zero.numberOfPlanes);
    }
    EXPECT_EQ(4u, CountLines(log, ANDROID_LOG_ERROR,
                             "[Fmt] zolbuffermanager.cpp:# AllocBuffer() Alloc buffer fail, "
                             "invalid size args"));
    EXPECT_EQ(0u, buftest::BusyCount());
}

// A 1 x 1 luma plane has a chroma plane of 0 bytes, which cannot be allocated: the clean-up frees
// the failing plane's null slot twice (once per plane tried) and the luma plane stays with the
// manager until it is destroyed.
TEST(BufferManager, FailingSecondPlaneKeepsTheFirstUntilDestruction) {
    zoltest::LogCapture log;
    void* luma = nullptr;
    {
        ZOLBufferManager manager("Half");
        ZOLImageBuffer image = Image(0, 1, 1);
        EXPECT_FALSE(manager.AllocBuffer(image, kHeap));
        EXPECT_EQ(0u, image.numberOfPlanes);
        EXPECT_EQ(nullptr, image.Addr[0]);
        EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_WARN,
                                 "[Half] zolbuffermanager.cpp:# AllocBuffer() Alloc buffer invaild "
                                 "args"));
        EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_ERROR,
                                 "[Half] zolbuffermanager.cpp:# AllocBuffer() Alloc buffer fail, "
                                 "can not alloc new buf: size: 0, type: 0"));
        EXPECT_EQ(2u,
                  CountLines(log, ANDROID_LOG_WARN,
                             "[Half] zolbuffermanager.cpp:# FreeBuffer() Free buffer is NULL!"));
        ASSERT_EQ(1u, buftest::BusyCount());
        {
            std::lock_guard<std::mutex> lock(ZOLBufferPool::m_busyBufferListLock);
            luma = ZOLBufferPool::m_busyBufferList.begin()->first;
        }
        log.Clear();
    }
    EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_WARN,
                             "[Half] zolbuffermanager.cpp:# ~ZOLBufferManager() 1 buffer not free "
                             "when buffer manager destory, release them forcibly"));
    EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_WARN,
                             Fmt("[Half] zolbuffermanager.cpp:# ~ZOLBufferManager()   release "
                                 "buffer forcibly: %p",
                                 luma)));
    EXPECT_EQ(0u, buftest::BusyCount());
}

TEST(BufferManager, RefusedTypeFailsOnTheFirstPlane) {
    ZOLBufferManager manager("Type");
    zoltest::LogCapture log;
    ZOLImageBuffer image = Image(0, 64, 48);
    EXPECT_FALSE(manager.AllocBuffer(image, static_cast<ZOLBufferType>(2)));
    EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_ERROR,
                             "[Type] zolbuffermanager.cpp:# AllocBuffer() Alloc buffer fail, can "
                             "not alloc new buf: size: 3072, type: 2"));
    EXPECT_EQ(1u, log.Count("Free buffer is NULL!"));
    EXPECT_EQ(0u, buftest::BusyCount());
}

TEST(BufferManagerDeathTest, FreeingAFifthPlaneIsFatal) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    ZOLBufferManager manager;
    ZOLImageBuffer image = Image(0, 64, 48);
    image.numberOfPlanes = 5;
    EXPECT_DEATH(
        {
            __android_log_set_logger(__android_log_stderr_logger);
            manager.FreeBuffer(image);
        },
        "Free buffer is NULL!.*index past its bound");
}

// ---- CPU synchronisation ----

TEST(BufferManager, ImageSyncTouchesOnlyTheFirstPlaneAndReportsFalse) {
    ZOLBufferManager manager("Sync");
    ZOLImageBuffer image = Image(0, 64, 48);
    ASSERT_TRUE(manager.AllocBuffer(image, kDma));
    zoltest::LogCapture log;
    EXPECT_FALSE(manager.StartCPUSync(image, ZOL_CPU_SYNC_WRITE));
    EXPECT_FALSE(manager.EndCPUSync(image));
    const std::vector<std::string> texts = log.Texts();
    ASSERT_EQ(2u, texts.size());
    EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_DEBUG,
                             Fmt("[Sync] zolbuffermanager.cpp:# StartCPUSync() Start CPU Sync "
                                 "Buffer, fd: %d, sync type: 2, result: 0",
                                 image.fd[0])));
    EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_DEBUG,
                             Fmt("[Sync] zolbuffermanager.cpp:# EndCPUSync() End CPU Sync Buffer, "
                                 "fd: %d, result: 0",
                                 image.fd[0])));

    // No planes: nothing to do, and true. Many planes: still only fd0.
    log.Clear();
    ZOLImageBuffer empty = {};
    EXPECT_TRUE(manager.StartCPUSync(empty, ZOL_CPU_SYNC_READ));
    EXPECT_TRUE(manager.EndCPUSync(empty));
    ZOLImageBuffer many = image;
    many.numberOfPlanes = 9;
    EXPECT_FALSE(manager.StartCPUSync(many, ZOL_CPU_SYNC_READ));
    EXPECT_EQ(1u, log.Texts().size());
    manager.FreeBuffer(image);
}

TEST(BufferManager, DescriptorSyncLogsTheRequestedType) {
    ZOLBufferManager manager("Fd");
    void* p = nullptr;
    int fd = 0;
    ASSERT_TRUE(manager.AllocBuffer(4096, &p, fd, kDma));
    zoltest::LogCapture log;
    EXPECT_TRUE(manager.StartCPUSync(fd, static_cast<CPUSyncType>(7)));
    EXPECT_TRUE(manager.EndCPUSync(fd));
    EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_DEBUG,
                             Fmt("[Fd] zolbuffermanager.cpp:# StartCPUSync() Start CPU Sync "
                                 "Buffer, fd: %d, sync type: 7, result: 0",
                                 fd)));
    manager.FreeBuffer(p);
}

// ---- Destruction ----

TEST(BufferManager, DestructionReturnsWhatIsStillOut) {
    ZOLBufferManager survivor("Survivor");  // keeps the free lists alive for inspection
    zoltest::LogCapture log;
    std::vector<void*> out;
    {
        ZOLBufferManager manager("Forgetful");
        for (unsigned size : {100u, 200u, 100u}) {
            void* p = nullptr;
            int fd = 0;
            ASSERT_TRUE(manager.AllocBuffer(size, &p, fd, size == 100 ? kDma : kHeap));
            out.push_back(p);
        }
        log.Clear();
    }
    EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_WARN,
                             "[Forgetful] zolbuffermanager.cpp:# ~ZOLBufferManager() 3 buffer not "
                             "free when buffer manager destory, release them forcibly"));
    std::vector<void*> sorted = out;
    std::sort(sorted.begin(), sorted.end());
    std::vector<std::string> forcedLines;
    for (const std::string& text : log.Texts(ANDROID_LOG_WARN)) {
        if (text.find("release buffer forcibly: ") != std::string::npos) {
            forcedLines.push_back(text);
        }
    }
    ASSERT_EQ(3u, forcedLines.size());
    for (size_t i = 0; i < 3; ++i) {  // in ascending address order
        EXPECT_TRUE(buftest::MatchesLine(forcedLines[i],
                                         Fmt("[Forgetful] zolbuffermanager.cpp:# "
                                             "~ZOLBufferManager()   release buffer forcibly: %p",
                                             sorted[i])));
    }
    EXPECT_EQ(0u, buftest::BusyCount());
    EXPECT_EQ(2u, buftest::FreeBlocks(kDma, 100).size());
    EXPECT_EQ(1u, buftest::FreeBlocks(kHeap, 200).size());
}

}  // namespace
