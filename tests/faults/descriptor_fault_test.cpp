// DMA allocation through a manager when the process has no descriptor left (RLIMIT_NOFILE): the
// manager keeps serving sizes the pool already holds and leaks nothing; a size the pool must
// allocate anew is fatal, since the pool's get path takes the buffer its failed allocation did
// not make.
#include <gtest/gtest.h>

#include <string>

#include "fault_support.h"
#include "zolbuffermanager.h"
#include "zolofflinelog.h"
#include "zoltest.h"

namespace {

TEST(DescriptorExhaustion, ManagerServesWhatThePoolHolds) {
    // The offline log starts its workers on its first line: they must not be what the
    // exhaustion hits. DMA buffers are the only shared mappings of the process.
    ZOLOfflineLog::GetInstance();
    const int fds = zoltest::CountOpenFds();
    const int mappings = zoltest::CountSharedMappings();
    {
        ZOLBufferManager manager("faults");
        void* raw = nullptr;
        int rawFd = 0;
        ASSERT_TRUE(manager.AllocBuffer(4096, &raw, rawFd, ZOL_BUFFER_TYPE_DMA));
        ZOLImageBuffer image = {};
        image.format = ZOL_IMAGE_FORMAT_YUV420SP;
        image.width = image.planeStride = 64;
        image.height = image.sliceHeight = 32;
        ASSERT_TRUE(manager.AllocBuffer(image, ZOL_BUFFER_TYPE_DMA));
        const ZOLImageBuffer first = image;
        manager.FreeBuffer(raw);
        manager.FreeBuffer(image);
        {
            faults::NoMoreDescriptors none;
            void* again = nullptr;
            int againFd = 0;
            EXPECT_TRUE(manager.AllocBuffer(4096, &again, againFd, ZOL_BUFFER_TYPE_DMA));
            EXPECT_EQ(raw, again);
            EXPECT_EQ(rawFd, againFd);
            ZOLImageBuffer reused = first;
            EXPECT_TRUE(manager.AllocBuffer(reused, ZOL_BUFFER_TYPE_DMA));
            EXPECT_EQ(first.Addr[0], reused.Addr[0]);
            EXPECT_EQ(first.Addr[1], reused.Addr[1]);
            EXPECT_TRUE(manager.StartCPUSync(reused.fd[0], ZOL_CPU_SYNC_WRITE));
            EXPECT_TRUE(manager.EndCPUSync(reused.fd[0]));
            // Heap buffers need no descriptor at all.
            void* heap = nullptr;
            int heapFd = -1;
            EXPECT_TRUE(manager.AllocBuffer(100, &heap, heapFd, ZOL_BUFFER_TYPE_HEAP));
            EXPECT_TRUE(manager.FreeBuffer(heap));
            EXPECT_TRUE(manager.FreeBuffer(again));
            manager.FreeBuffer(reused);
        }
    }
    // The manager was the last pool client: every pooled buffer went back to the system.
    EXPECT_EQ(fds, zoltest::CountOpenFds());
    EXPECT_EQ(mappings, zoltest::CountSharedMappings());
}

TEST(DescriptorExhaustion, NewDmaBufferThroughAManagerIsFatal) {
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

}  // namespace
