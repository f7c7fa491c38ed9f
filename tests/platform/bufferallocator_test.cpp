#include <gtest/gtest.h>

#include <BufferAllocator/BufferAllocator.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>

#include "zoltest.h"

namespace {

TEST(BufferAllocator, SystemBufferIsOneSetOfPagesSharedByEveryMapping) {
    const int fdsBefore = zoltest::CountOpenFds();
    const int mapsBefore = zoltest::CountSharedMappings();
    {
        BufferAllocator allocator;
        if (allocator.UsesDmaHeap()) {
            GTEST_SKIP() << "this machine has a DMA heap; the memfd path is not in use";
        }
        const size_t len = 3 * 4096 + 100;
        const int fd = allocator.AllocSystem(true, len, 0, 0);
        ASSERT_GE(fd, 0);
        EXPECT_EQ(FD_CLOEXEC, fcntl(fd, F_GETFD) & FD_CLOEXEC);
        auto* a = static_cast<unsigned char*>(
            mmap(nullptr, len, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
        auto* b = static_cast<unsigned char*>(
            mmap(nullptr, len, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
        ASSERT_NE(MAP_FAILED, a);
        ASSERT_NE(MAP_FAILED, b);
        ASSERT_NE(a, b);
        EXPECT_EQ(0, a[len - 1]);  // new buffers read as zeros
        std::memset(a, 0x5a, len);
        EXPECT_EQ(0x5a, b[0]);
        EXPECT_EQ(0x5a, b[len - 1]);
        b[4096] = 7;
        EXPECT_EQ(7, a[4096]);

        EXPECT_EQ(0, allocator.CpuSyncStart(fd, kSyncReadWrite));
        EXPECT_EQ(0, allocator.CpuSyncEnd(fd, kSyncRead));
        munmap(a, len);
        munmap(b, len);
        close(fd);
    }
    EXPECT_EQ(fdsBefore, zoltest::CountOpenFds());
    EXPECT_EQ(mapsBefore, zoltest::CountSharedMappings());
}

TEST(BufferAllocator, ManyAllocationsLeakNothing) {
    const int fdsBefore = zoltest::CountOpenFds();
    for (int i = 0; i < 200; ++i) {
        BufferAllocator allocator;
        const int fd = allocator.AllocSystem(true, 4096 * (1 + i % 4));
        ASSERT_GE(fd, 0);
        close(fd);
    }
    EXPECT_EQ(fdsBefore, zoltest::CountOpenFds());
}

}  // namespace
