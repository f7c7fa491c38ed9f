#include <gtest/gtest.h>

#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstring>

#include "buftest.h"
#include "zolbuffermanager.h"
#include "zoltest.h"

namespace {

using buftest::CountLines;

constexpr unsigned long kSize = 3 * 4096 + 100;

TEST(BufferAllocator, DmaBufferIsASharedMappingReleasedByDealloc) {
    const int fdsBefore = zoltest::CountOpenFds();
    const int mapsBefore = buftest::CountMappingsForLeakCheck();
    ZOLBufferAllocator allocator;
    char* buffer = nullptr;
    int fd = -1;
    ASSERT_EQ(0, allocator.AllocDMABuffer(kSize, &buffer, fd));
    ASSERT_NE(nullptr, buffer);
    ASSERT_GE(fd, 0);
    std::memset(buffer, 0x3c, kSize);

    // A second mapping of the descriptor sees the same pages.
    auto* again = static_cast<unsigned char*>(allocator.MapFDToBufferPointer(fd, kSize));
    ASSERT_NE(MAP_FAILED, again);
    EXPECT_EQ(0x3c, again[0]);
    EXPECT_EQ(0x3c, again[kSize - 1]);
    munmap(again, kSize);

    EXPECT_EQ(0, allocator.StartCPUSync(fd, ZOL_CPU_SYNC_WRITE));
    EXPECT_EQ(0, allocator.StartCPUSync(fd, static_cast<CPUSyncType>(7)));
    EXPECT_EQ(0, allocator.EndCPUSync(fd));

    EXPECT_EQ(0, allocator.DeallocDMABuffer(kSize, buffer, fd));
    EXPECT_EQ(-1, fd);
    EXPECT_EQ(fdsBefore + 0, zoltest::CountOpenFds());
    EXPECT_EQ(mapsBefore, buftest::CountMappingsForLeakCheck());
}

// Only a null mapping is a failure: mmap's failure address comes back as a buffer.
TEST(BufferAllocator, MmapFailureAddressIsHandedBackAsABuffer) {
    const int fdsBefore = zoltest::CountOpenFds();
    ZOLBufferAllocator allocator;
    char* buffer = nullptr;
    int fd = -1;
    EXPECT_EQ(0, allocator.AllocDMABuffer(0, &buffer, fd));  // mmap refuses a length of 0
    EXPECT_EQ(MAP_FAILED, static_cast<void*>(buffer));
    EXPECT_GE(fd, 0);
    EXPECT_EQ(0, allocator.DeallocDMABuffer(0, buffer, fd));  // munmap refuses it quietly
    EXPECT_EQ(fdsBefore, zoltest::CountOpenFds());
}

TEST(BufferAllocator, DeallocWithoutBufferOrDescriptorDoesNothing) {
    ZOLBufferAllocator allocator;
    int fd = -1;
    EXPECT_EQ(-1, allocator.DeallocDMABuffer(kSize, nullptr, fd));
    EXPECT_EQ(-1, fd);
    fd = -22;
    EXPECT_EQ(-22, allocator.DeallocGraphicBuffer(BufferInfo{}, nullptr, fd));
    EXPECT_EQ(-22, fd);
}

TEST(BufferAllocator, MapFdRefusesOnlyDescriptorZero) {
    zoltest::LogCapture log;
    ZOLBufferAllocator allocator;
    EXPECT_EQ(nullptr, allocator.MapFDToBufferPointer(0, 4096));
    EXPECT_EQ(1u,
              CountLines(log, ANDROID_LOG_ERROR, "Map FD to Bufer Pointer fail, fd is invalid"));
    // A negative descriptor goes to mmap, whose failure comes back as it is.
    EXPECT_EQ(MAP_FAILED, allocator.MapFDToBufferPointer(-1, 4096));
    EXPECT_EQ(1u, log.Texts().size());
}

TEST(BufferAllocator, GraphicBufferWrapsTheNewDescriptor) {
    ZOLBufferAllocator allocator;
    BufferInfo info = {};
    info.width = 640;
    info.height = 480;
    info.stride = 704;
    info.size = 704 * 480;
    char* buffer = nullptr;
    int fd = -1;
    android::sp<android::GraphicBuffer> graphic = allocator.AllocGraphicBuffer(info, &buffer, fd);
    ASSERT_NE(nullptr, graphic.get());
    ASSERT_NE(nullptr, buffer);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(1, graphic->getStrongCount());
    EXPECT_EQ(android::GraphicBuffer::WRAP_HANDLE, graphic->getWrapMethod());
    EXPECT_EQ(640u, graphic->getWidth());
    EXPECT_EQ(480u, graphic->getHeight());
    EXPECT_EQ(704u, graphic->getStride());
    EXPECT_EQ(34, graphic->getPixelFormat());
    EXPECT_EQ(0u, graphic->getLayerCount());
    EXPECT_EQ(0x20000u, graphic->getUsage());
    ASSERT_TRUE(graphic->hadHandle());
    EXPECT_EQ(0, graphic->handleVersion());
    EXPECT_EQ(0, graphic->handleNumFds());
    EXPECT_EQ(0, graphic->handleNumInts());
    EXPECT_EQ(fd, graphic->handleData0());
    buffer[info.size - 1] = 1;
    graphic.clear();
    EXPECT_EQ(0, allocator.DeallocGraphicBuffer(info, buffer, fd));
    EXPECT_EQ(-1, fd);
}

TEST(BufferAllocator, GraphicBufferNeedsSomewhereToPutTheAddress) {
    zoltest::LogCapture log;
    const int fdsBefore = zoltest::CountOpenFds();
    ZOLBufferAllocator allocator;
    BufferInfo info = {};
    info.size = 4096;
    int fd = 5;
    EXPECT_EQ(nullptr, allocator.AllocGraphicBuffer(info, nullptr, fd).get());
    EXPECT_EQ(nullptr, allocator.AllocHardwareBuffer(info, nullptr, fd));
    EXPECT_EQ(2u,
              CountLines(log, ANDROID_LOG_ERROR, "Alloc Graphic Buffer fail, pBuffer is nullptr"));
    EXPECT_EQ(fdsBefore, zoltest::CountOpenFds());
}

TEST(BufferAllocator, HardwareBufferLeavesTheDmaBufferWithTheCaller) {
    const int fdsBefore = zoltest::CountOpenFds();
    const int mapsBefore = buftest::CountMappingsForLeakCheck();
    ZOLBufferAllocator allocator;
    BufferInfo info = {};
    info.width = info.stride = 64;
    info.height = 64;
    info.size = 64 * 64;
    char* buffer = nullptr;
    int fd = -1;
    // The pointer is only a token: no reference is held for it.
    EXPECT_NE(nullptr, allocator.AllocHardwareBuffer(info, &buffer, fd));
    ASSERT_NE(nullptr, buffer);
    ASSERT_GE(fd, 0);
    buffer[0] = 1;
    EXPECT_EQ(0, allocator.DeallocHardwareBuffer(info, buffer, fd));
    EXPECT_EQ(fdsBefore, zoltest::CountOpenFds());
    EXPECT_EQ(mapsBefore, buftest::CountMappingsForLeakCheck());
}

TEST(BufferAllocator, DmaBufferToGraphicBufferHoldsOneReference) {
    android::sp<android::GraphicBuffer> graphic = DMABufferToGraphicBuffer(32, 16, 48, 9);
    ASSERT_NE(nullptr, graphic.get());
    EXPECT_EQ(1, graphic->getStrongCount());
    EXPECT_EQ(32u, graphic->getWidth());
    EXPECT_EQ(16u, graphic->getHeight());
    EXPECT_EQ(48u, graphic->getStride());
    EXPECT_EQ(34, graphic->getPixelFormat());
    EXPECT_EQ(0x20000u, graphic->getUsage());
    EXPECT_EQ(0, graphic->handleVersion());
    EXPECT_EQ(0, graphic->handleNumFds());
    EXPECT_EQ(9, graphic->handleData0());
}

TEST(BufferAllocator, FailedSystemAllocationLeavesTheNegativeDescriptor) {
    if (!buftest::DmaBuffersAreMemfd()) {
        GTEST_SKIP() << "a kernel DMA heap cannot be made to fail here";
    }
    zoltest::LogCapture log;
    ZOLBufferAllocator allocator;
    char* buffer = nullptr;
    int fd = 0;
    const rlimit saved = buftest::LimitFileSize();
    const int result = allocator.AllocDMABuffer(4096, &buffer, fd);
    setrlimit(RLIMIT_FSIZE, &saved);
    EXPECT_EQ(-1, result);
    EXPECT_LT(fd, 0);
    EXPECT_EQ(nullptr, buffer);
    EXPECT_EQ(1u,
              CountLines(log, ANDROID_LOG_ERROR, "Alloc System fail, m_fileDescriptor is invalid"));
}

}  // namespace
