// DMA allocation when the process has no descriptor left (RLIMIT_NOFILE): the allocator fails
// with its documented result and line and leaks nothing; a manager keeps serving sizes the pool
// already holds; and a size the pool must allocate anew is fatal, since the pool's get path
// takes the buffer its failed allocation did not make.
#include <gtest/gtest.h>

#include <string>

#include "fault_support.h"
#include "zolbuffermanager.h"
#include "zolofflinelog.h"
#include "zoltest.h"

namespace {

// Mappings of DMA buffers (memfd stand-ins are named "zoltools-dmabuf"); counted instead of
// every mapping because the sanitizers' allocators map memory of their own as the test runs.
int CountDmaMappings() {
    const std::string maps = zoltest::ReadFile("/proc/self/maps");
    int count = 0;
    for (size_t at = 0; (at = maps.find("dmabuf", at)) != std::string::npos; ++at) {
        ++count;
    }
    return count;
}

class DescriptorExhaustion : public ::testing::Test {
protected:
    void SetUp() override {
        // The offline log starts its workers on the first log line; start them now so that
        // they are not what the exhaustion hits.
        ZOLOfflineLog::GetInstance();
        m_fds = zoltest::CountOpenFds();
        m_mappings = CountDmaMappings();
    }
    void ExpectNothingLeaked() {
        EXPECT_EQ(m_fds, zoltest::CountOpenFds());
        EXPECT_EQ(m_mappings, CountDmaMappings());
    }

    int m_fds = 0;
    int m_mappings = 0;
};

TEST_F(DescriptorExhaustion, AllocatorFailsWithItsResultAndLine) {
    zoltest::LogCapture log;
    {
        ZOLBufferAllocator allocator;
        char* buffer = nullptr;
        int fd = 1234;
        {
            faults::NoMoreDescriptors none;
            EXPECT_EQ(-1, allocator.AllocDMABuffer(4096, &buffer, fd));
        }
        EXPECT_LT(fd, 0) << "the failed descriptor is handed back";
        EXPECT_EQ(nullptr, buffer);

        BufferInfo info = {};
        info.width = info.height = info.stride = 64;
        info.size = 4096;
        {
            faults::NoMoreDescriptors none;
            android::sp<android::GraphicBuffer> graphic =
                allocator.AllocGraphicBuffer(info, &buffer, fd);
            EXPECT_LT(fd, 0);
        }
    }
    EXPECT_EQ(2u, log.Count("Alloc System fail, m_fileDescriptor is invalid"));
    ExpectNothingLeaked();
}

TEST_F(DescriptorExhaustion, ManagerServesWhatThePoolHolds) {
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
    ExpectNothingLeaked();
}

TEST_F(DescriptorExhaustion, NewDmaBufferThroughAManagerIsFatal) {
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
