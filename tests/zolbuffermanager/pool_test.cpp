#include <gtest/gtest.h>

#include <sys/resource.h>

#include <climits>
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

TEST(BufferPool, ReturnedBufferIsReusedForTheSameSizeAndType) {
    ZOLBufferPool pool;
    pool.SetClientName("Cam");
    zoltest::LogCapture log;
    int fd = -1;
    void* first = pool.GetBufferFromPool(4096, fd, kDma);
    ASSERT_NE(nullptr, first);
    const int firstFd = fd;
    EXPECT_GT(firstFd, 0);
    EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_DEBUG,
                             Fmt("[BufferPool-Cam] zolbufferpool.cpp:# AllocBuffer() Alloc buffer "
                                 "success: type: 1, size: 4096, pBuf: %p",
                                 first)));
    EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_DEBUG,
                             Fmt("[BufferPool-Cam] zolbufferpool.cpp:# GetBufferFromPool() Get "
                                 "buffer type: 1, size: 4096, pBuf: %p. Free buf num this size: 0",
                                 first)));
    EXPECT_TRUE(buftest::IsBusy(first));

    pool.PutBufferToPool(first);
    EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_VERBOSE,
                             Fmt("[BufferPool-Cam] zolbufferpool.cpp:# PutBufferToPool() Put "
                                 "buffer to pool: %p",
                                 first)));
    EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_DEBUG,
                             Fmt("[BufferPool-Cam] zolbufferpool.cpp:# PutBufferToPool() Put "
                                 "buffer to pool success: pBuf: %p, size: 4096, fd: %d, type: 1",
                                 first, firstFd)));
    EXPECT_FALSE(buftest::IsBusy(first));

    fd = -1;
    EXPECT_EQ(first, pool.GetBufferFromPool(4096, fd, kDma));
    EXPECT_EQ(firstFd, fd);
    EXPECT_EQ(1u, log.Count("Alloc buffer success"));  // no second allocation

    // Heap buffers have no descriptor, and their own free list.
    void* heap = pool.GetBufferFromPool(4096, fd, kHeap);
    ASSERT_NE(nullptr, heap);
    EXPECT_NE(first, heap);
    EXPECT_EQ(0, fd);
    pool.PutBufferToPool(heap);
    pool.PutBufferToPool(first);
    EXPECT_EQ(std::vector<void*>{heap}, buftest::FreeBlocks(kHeap, 4096));
    EXPECT_EQ(std::vector<void*>{first}, buftest::FreeBlocks(kDma, 4096));
}

TEST(BufferPool, MostRecentlyReturnedBufferComesBackFirst) {
    ZOLBufferPool pool;
    int fd = 0;
    void* a = pool.GetBufferFromPool(1000, fd, kHeap);
    void* b = pool.GetBufferFromPool(1000, fd, kHeap);
    void* c = pool.GetBufferFromPool(1000, fd, kHeap);
    pool.PutBufferToPool(b);
    pool.PutBufferToPool(a);
    pool.PutBufferToPool(c);
    EXPECT_EQ(c, pool.GetBufferFromPool(1000, fd, kHeap));
    EXPECT_EQ(a, pool.GetBufferFromPool(1000, fd, kHeap));
    EXPECT_EQ(b, pool.GetBufferFromPool(1000, fd, kHeap));
    for (void* p : {a, b, c}) {
        pool.PutBufferToPool(p);
    }
}

TEST(BufferPool, SmallerRequestNeverGetsALargerBuffer) {
    ZOLBufferPool pool;
    int fd = 0;
    void* large = pool.GetBufferFromPool(4096, fd, kDma);
    pool.PutBufferToPool(large);
    void* small = pool.GetBufferFromPool(4000, fd, kDma);
    ASSERT_NE(nullptr, small);
    EXPECT_NE(large, small);
    EXPECT_EQ(std::vector<void*>{large}, buftest::FreeBlocks(kDma, 4096));
    std::memset(small, 1, 4000);
    pool.PutBufferToPool(small);
}

TEST(BufferPool, KeepsAtMostTenFreeBuffersPerSizeAndType) {
    ZOLBufferPool pool;
    pool.SetClientName("Cap");
    std::vector<void*> buffers;
    std::vector<int> fds;
    for (int i = 0; i < 11; ++i) {
        int fd = 0;
        buffers.push_back(pool.GetBufferFromPool(8192, fd, kDma));
        fds.push_back(fd);
    }
    zoltest::LogCapture log;
    for (void* p : buffers) {
        pool.PutBufferToPool(p);
    }
    EXPECT_EQ(std::vector<void*>(buffers.begin(), buffers.begin() + 10),
              buftest::FreeBlocks(kDma, 8192));
    EXPECT_EQ(10u, log.Count("Put buffer to pool success"));
    // The trailing ", " belongs to the message.
    EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_DEBUG,
                             Fmt("[BufferPool-Cap] zolbufferpool.cpp:# PutBufferToPool() Buffer "
                                 "num this size is more than threshold, release buffer, pBuf: %p, "
                                 "size: 8192, fd: %d, type: 1, ",
                                 buffers[10], fds[10])));
    EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_INFO,
                             Fmt("[BufferPool-Cap] zolbufferpool.cpp:# ReleaseBuffer() Release "
                                 "buffer: %p",
                                 buffers[10])));
    // The same cap holds for heap buffers, independently.
    int fd = 0;
    void* heap = pool.GetBufferFromPool(8192, fd, kHeap);
    pool.PutBufferToPool(heap);
    EXPECT_EQ(1u, buftest::FreeBlocks(kHeap, 8192).size());
}

TEST(BufferPool, UnknownOrRepeatedPointerIsLoggedAndLeftAlone) {
    ZOLBufferPool pool;
    pool.SetClientName("W");
    int fd = 0;
    void* p = pool.GetBufferFromPool(64, fd, kHeap);
    int notPooled = 0;
    zoltest::LogCapture log;
    pool.PutBufferToPool(&notPooled);
    pool.PutBufferToPool(p);
    pool.PutBufferToPool(p);
    pool.PutBufferToPool(nullptr);
    EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_WARN,
                             Fmt("[BufferPool-W] zolbufferpool.cpp:# PutBufferToPool() Wrong "
                                 "buffer pointer: %p",
                                 static_cast<void*>(&notPooled))));
    EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_WARN,
                             Fmt("[BufferPool-W] zolbufferpool.cpp:# PutBufferToPool() Wrong "
                                 "buffer pointer: %p",
                                 p)));
    EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_WARN,
                             "[BufferPool-W] zolbufferpool.cpp:# PutBufferToPool() Put NULL "
                             "buffer to pool!"));
    EXPECT_EQ(std::vector<void*>{p}, buftest::FreeBlocks(kHeap, 64));
    EXPECT_EQ(0u, log.Count("Release buffer"));
}

TEST(BufferPool, InvalidArgumentsGiveNullAndDescriptorZero) {
    ZOLBufferPool pool;
    pool.SetClientName("Args");
    zoltest::LogCapture log;
    for (int type : {2, 7, -1}) {
        int fd = 123;
        EXPECT_EQ(nullptr, pool.GetBufferFromPool(4096, fd, static_cast<ZOLBufferType>(type)));
        EXPECT_EQ(0, fd);
    }
    int fd = 123;
    EXPECT_EQ(nullptr, pool.GetBufferFromPool(0, fd, kHeap));
    EXPECT_EQ(0, fd);
    EXPECT_EQ(4u, CountLines(log, ANDROID_LOG_ERROR,
                             "[BufferPool-Args] zolbufferpool.cpp:# GetBufferFromPool() Invalid "
                             "args, get buffer failed!"));
    EXPECT_EQ(0u, buftest::BusyCount());

    // The lower-level operations name the type they refuse.
    std::lock_guard<std::mutex> lock(ZOLBufferPool::m_freeBufferListLock);
    EXPECT_EQ(nullptr, pool.AllocBuffer(4096, static_cast<ZOLBufferType>(2)));
    pool.ReleaseBuffer({static_cast<ZOLBufferType>(3), nullptr, -1, 16});
    EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_ERROR,
                             "[BufferPool-Args] zolbufferpool.cpp:# AllocBuffer() Unsupport alloc "
                             "buffer type: 2!"));
    EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_ERROR,
                             "[BufferPool-Args] zolbufferpool.cpp:# ReleaseBuffer() Unsupport "
                             "release buffer type: 3!"));
}

// The last client out names the lowest busy buffer once per busy buffer, at index 0, and gives
// back only that one; the others stay busy. A later client finds the free lists empty, so
// putting those back releases them as being of an unknown size.
TEST(BufferPool, LastClientReleaseWithThreeBusyBuffers) {
    std::vector<void*> busy;
    std::vector<int> fds;
    zoltest::LogCapture log;
    {
        ZOLBufferPool pool;
        pool.SetClientName("Last");
        int fd = 0;
        void* kept = pool.GetBufferFromPool(512, fd, kHeap);
        pool.PutBufferToPool(kept);  // one free buffer, released at the end too
        for (unsigned size : {4096u, 8192u, 4096u}) {
            busy.push_back(pool.GetBufferFromPool(size, fd, kDma));
            fds.push_back(fd);
        }
        log.Clear();
    }
    EXPECT_EQ(0u, buftest::ClientCount());
    size_t lowest = 0;
    for (size_t i = 1; i < busy.size(); ++i) {
        if (busy[i] < busy[lowest]) {
            lowest = i;
        }
    }
    const unsigned lowestSize = lowest == 1 ? 8192 : 4096;
    EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_DEBUG,
                             "[BufferPool-Last] zolbufferpool.cpp:# ~ZOLBufferPool() All client "
                             "disconnect, release buffer in pool"));
    EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_WARN,
                             "[BufferPool-Last] zolbufferpool.cpp:# ~ZOLBufferPool() All client "
                             "disconnect, but there are 3 busy buffer in list:"));
    EXPECT_EQ(3u, CountLines(log, ANDROID_LOG_WARN,
                             Fmt("[BufferPool-Last] zolbufferpool.cpp:# ~ZOLBufferPool()    busy "
                                 "buffer[0]: pBuf: %p, size: %u, fd, %d, type: 1",
                                 busy[lowest], lowestSize, fds[lowest])));
    EXPECT_EQ(2u, CountLines(log, ANDROID_LOG_WARN,
                             Fmt("[BufferPool-Last] zolbufferpool.cpp:# PutBufferToPool() Wrong "
                                 "buffer pointer: %p",
                                 busy[lowest])));
    // Heap sizes first, then DMA sizes in ascending order.
    std::vector<std::string> releasedLines;
    for (const std::string& text : log.Texts(ANDROID_LOG_DEBUG)) {
        if (text.find("Buffer released: ") != std::string::npos) {
            releasedLines.push_back(text.substr(text.find("Buffer released: ")));
        }
    }
    ASSERT_EQ(2u, releasedLines.size());
    EXPECT_NE(std::string::npos, releasedLines[0].find("size: 512, fd: 0, type: 0"));
    EXPECT_EQ(Fmt("Buffer released: pBuf: %p, size: %u, fd: %d, type: 1", busy[lowest], lowestSize,
                  fds[lowest]),
              releasedLines[1]);

    EXPECT_EQ(2u, buftest::BusyCount());
    EXPECT_FALSE(buftest::IsBusy(busy[lowest]));
    EXPECT_EQ(0u, buftest::FreeBlockCount());

    log.Clear();
    {
        ZOLBufferPool later;
        later.SetClientName("Later");
        for (size_t i = 0; i < busy.size(); ++i) {
            if (i != lowest) {
                later.PutBufferToPool(busy[i]);
                EXPECT_EQ(1u, CountLines(log, ANDROID_LOG_ERROR,
                                         Fmt("[BufferPool-Later] zolbufferpool.cpp:# "
                                             "PutBufferToPool() Wrong buffer size when put buffer "
                                             "to pool, pBuf: %p, size: %u, fd: %d, type: 1, "
                                             "release it!",
                                             busy[i], i == 1 ? 8192u : 4096u, fds[i])));
            }
        }
    }
    EXPECT_EQ(0u, buftest::BusyCount());
}

TEST(BufferPool, NamedClientIsNotCountedButStillLeaves) {
    ZOLBufferPool first;
    EXPECT_EQ(1u, buftest::ClientCount());
    {
        zoltest::LogCapture log;
        ZOLBufferPool named("Named");
        EXPECT_EQ(1u, buftest::ClientCount());
        EXPECT_EQ(0u, log.Count("All client disconnect"));
        int fd = 0;
        void* p = named.GetBufferFromPool(256, fd, kHeap);
        named.PutBufferToPool(p);
        EXPECT_EQ(4u, log.Count("[BufferPool-Named] zolbufferpool.cpp:"));
    }
    // The named client's departure took the count to 0 (and released the free lists).
    EXPECT_EQ(0u, buftest::ClientCount());
    EXPECT_EQ(0u, buftest::FreeBlockCount());
    // Give `first` its count back, or its own departure would underflow it.
    {
        std::lock_guard<std::mutex> lock(ZOLBufferPool::m_bufferPoolClientNumLock);
        ZOLBufferPool::m_bufferPoolClientNum = 1;
    }
}

// Death tests write to stderr, where the death assertion reads the log.
void LogToStderr() {
    __android_log_set_logger(__android_log_stderr_logger);
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
}

TEST(BufferPoolDeathTest, NamedClientAloneReleasesThePoolAndThenUnderflows) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            LogToStderr();
            ZOLBufferPool named("Alone");
        },
        "BufferPool-UnknowBufferManager.*All client disconnect, release buffer in pool.*"
        "overflow in subtraction");
}

TEST(BufferPoolDeathTest, ClientCountNeverWraps) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    {
        std::lock_guard<std::mutex> lock(ZOLBufferPool::m_bufferPoolClientNumLock);
        ZOLBufferPool::m_bufferPoolClientNum = UINT32_MAX;
    }
    EXPECT_DEATH(
        {
            LogToStderr();
            ZOLBufferPool one;
        },
        "overflow in addition");
    {
        std::lock_guard<std::mutex> lock(ZOLBufferPool::m_bufferPoolClientNumLock);
        ZOLBufferPool::m_bufferPoolClientNum = 0;
    }
}

TEST(BufferPoolDeathTest, FailedAllocationOnTheGetPathIsFatal) {
    if (!buftest::DmaBuffersAreMemfd()) {
        GTEST_SKIP() << "a kernel DMA heap cannot be made to fail here";
    }
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    ZOLBufferPool pool;
    EXPECT_DEATH(
        {
            LogToStderr();
            buftest::LimitFileSize();
            int fd = 0;
            pool.GetBufferFromPool(4096, fd, kDma);
        },
        "Alloc System fail.*Alloc buffer failed! Type: 1, size: 4096.*fatal");
}

}  // namespace
