// The buffer subsystem in a hostile process: no descriptor left, an address space too small
// for a mapping, a named pool destroyed while a manager holds blocks, cache syncs of
// descriptors that are not open. (Exit while threads are inside managers: the scenario table.)
#include <sys/resource.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <functional>
#include <string>

#include "fault_support.h"
#include "zolbuffermanager.h"
#include "zolofflinelog.h"
#include "zoltest.h"
#include "zoltoolsdef.h"

namespace {

// With no descriptor left a manager keeps serving the sizes its pool holds and leaks nothing; a
// size the pool must allocate anew is fatal (the pool takes what its failed allocation did not
// make).
TEST(BuffersHostile, NoDescriptorLeftManagerServesWhatThePoolHolds) {
    ZOLOfflineLog::GetInstance();  // its workers start before the exhaustion, not during it
    const int fds = zoltest::CountOpenFds();
    const int mappings = zoltest::CountSharedMappings();  // DMA buffers are the only ones
    {
        ZOLBufferManager manager("faults");
        void* raw = nullptr;
        int rawFd = 0;
        ASSERT_TRUE(manager.AllocBuffer(4096, &raw, rawFd, ZOL_BUFFER_TYPE_DMA));
        ZOLImageBuffer image = {};
        image.width = image.planeStride = 64;
        image.height = image.sliceHeight = 32;
        ASSERT_TRUE(manager.AllocBuffer(image, ZOL_BUFFER_TYPE_DMA));
        const ZOLImageBuffer first = image;
        manager.FreeBuffer(raw);
        manager.FreeBuffer(image);
        faults::NoMoreDescriptors none;
        void* again = nullptr;
        int againFd = 0;
        EXPECT_TRUE(manager.AllocBuffer(4096, &again, againFd, ZOL_BUFFER_TYPE_DMA));
        EXPECT_TRUE(again == raw && againFd == rawFd);
        EXPECT_TRUE(manager.AllocBuffer(image, ZOL_BUFFER_TYPE_DMA));
        EXPECT_TRUE(image.Addr[0] == first.Addr[0] && image.Addr[1] == first.Addr[1]);
        EXPECT_TRUE(manager.StartCPUSync(image.fd[0], ZOL_CPU_SYNC_WRITE));
        EXPECT_TRUE(manager.EndCPUSync(image.fd[0]));
        void* heap = nullptr;  // needs no descriptor at all
        EXPECT_TRUE(manager.AllocBuffer(100, &heap, againFd, ZOL_BUFFER_TYPE_HEAP));
        EXPECT_TRUE(manager.FreeBuffer(heap));
        EXPECT_TRUE(manager.FreeBuffer(again));
        manager.FreeBuffer(image);
    }
    // The manager was the last pool client: every pooled buffer went back to the system.
    EXPECT_EQ(fds, zoltest::CountOpenFds());
    EXPECT_EQ(mappings, zoltest::CountSharedMappings());
}

TEST(BuffersHostile, NoDescriptorLeftANewDmaBufferIsFatal) {
    ZOLOfflineLog::GetInstance();
    ZOLBufferManager manager("faults");
    EXPECT_DEATH(
        {
            faults::NoMoreDescriptors none;
            void* buffer = nullptr;
            int fd = 0;
            manager.AllocBuffer(8192, &buffer, fd, ZOL_BUFFER_TYPE_DMA);
        },
        "fatal: found == freeList.end\\(\\) \\|\\| found->second.empty\\(\\)");
}


TEST(BuffersHostile, AMappingThatFailsIsAFailedAllocation) {
    if (access("/dev/dma_heap/system", R_OK) == 0) {
        GTEST_SKIP() << "a real DMA heap would fail before mapping";
    }
    if (ZOLTEST_EMULATED) {
        GTEST_SKIP() << "user-mode emulation does not hold mappings to the address-space limit";
    }
    ZOLOfflineLog::GetInstance();  // its workers' stacks are mapped before the limit
    unsigned long pages = 0;
    FILE* statm = fopen("/proc/self/statm", "r");
    ASSERT_TRUE(statm != nullptr && fscanf(statm, "%lu", &pages) == 1);
    fclose(statm);
    rlimit saved;
    getrlimit(RLIMIT_AS, &saved);
    rlimit limit = saved;
    // 256 MiB more than is mapped now (a sanitizer's shadow included): 1 GiB cannot be mapped.
    limit.rlim_cur = pages * sysconf(_SC_PAGESIZE) + (256ul << 20);

    ZOLBufferAllocator allocator;
    const int fds = zoltest::CountOpenFds();
    zoltest::LogCapture log;
    char* buffer = nullptr;
    int fd = -1;
    ASSERT_EQ(0, setrlimit(RLIMIT_AS, &limit));
    const int result = allocator.AllocDMABuffer(1ul << 30, &buffer, fd);
    setrlimit(RLIMIT_AS, &saved);
    EXPECT_EQ(-1, result);
    EXPECT_EQ(nullptr, buffer);
    EXPECT_EQ(fds, zoltest::CountOpenFds()) << "the descriptor is given back";
    EXPECT_EQ(1u, log.Count("Mmap DMA Buffer fail, pBuffer is nullptr"));
}

TEST(BuffersHostile, ANamedPoolDestroyedFirstLeavesItsBlocksRefused) {
    // A named pool is not counted as a client but leaves as one: its destruction runs the
    // last-client release while the manager holds blocks. The manager is then kept to the
    // end, as destroying it would take the count below zero (fatal).
    ZOLToolsLogLevel = ZOL_LOG_THRESHOLD_W;  // the refusal's level
    static ZOLBufferManager* held[2];
    for (ZOLBufferType type : {ZOL_BUFFER_TYPE_HEAP, ZOL_BUFFER_TYPE_DMA}) {
        ZOLBufferManager*& manager = held[type];
        manager = new ZOLBufferManager("Held");
        void* blocks[2] = {};
        int fd = 0;
        for (void*& block : blocks) {
            ASSERT_TRUE(manager->AllocBuffer(4096, &block, fd, type));
        }
        // The last client out gives back the lowest busy block, and releases it.
        { ZOLBufferPool named("Named"); }
        const bool firstIsLower = std::less<void*>()(blocks[0], blocks[1]);
        void* taken = blocks[firstIsLower ? 0 : 1];
        zoltest::LogCapture log;
        EXPECT_FALSE(manager->FreeBuffer(taken)) << type;
        EXPECT_EQ(1u, log.Count("Free buffer failed, this buffer not alloced by this buffer "
                                "manager, pBuf: " +
                                zoltest::Address(taken) + ", buffer manager name: Held"));
        EXPECT_TRUE(manager->FreeBuffer(blocks[firstIsLower ? 1 : 0])) << type;
    }
}

TEST(BuffersHostile, HostSyncRefusesDescriptorsThatAreNotOpen) {
    ZOLBufferAllocator allocator;
    char* buffer = nullptr;
    int open = -1;
    ASSERT_EQ(0, allocator.AllocDMABuffer(4096, &buffer, open));
    const int closed = dup(open);
    close(closed);
    const struct {
        const char* what;
        int fd;
        int result;
    } kCases[] = {{"-1", -1, -EBADF}, {"closed", closed, -EBADF}, {"open", open, 0}};
    for (const auto& c : kCases) {
        EXPECT_EQ(c.result, allocator.StartCPUSync(c.fd, ZOL_CPU_SYNC_READ_WRITE)) << c.what;
        EXPECT_EQ(c.result, allocator.EndCPUSync(c.fd)) << c.what;
    }
    allocator.DeallocDMABuffer(4096, buffer, open);
}

}  // namespace
