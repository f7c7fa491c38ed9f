// Whole-subsystem behaviour under load: nothing leaks once the last manager is gone, and managers
// shared between threads never hand one block to two users at once. Run with the log level at 1
// (errors only), so that any error line would stand out and the loops are not dominated by logging.
#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <mutex>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "buftest.h"
#include "zolbuffermanager.h"
#include "zoltest.h"

namespace {

constexpr ZOLBufferType kHeap = ZOL_BUFFER_TYPE_HEAP;
constexpr ZOLBufferType kDma = ZOL_BUFFER_TYPE_DMA;

ZOLImageBuffer Image(uint32_t stride, uint32_t sliceHeight) {
    ZOLImageBuffer image = {};
    image.width = image.planeStride = stride;
    image.height = image.sliceHeight = sliceHeight;
    return image;
}

// Allocates, frees and forgets buffers and images of both types through two managers.
void ManagerCycle() {
    ZOLBufferManager a("LeakA");
    ZOLBufferManager b("LeakB");
    for (ZOLBufferType type : {kHeap, kDma}) {
        ZOLImageBuffer freed = Image(64, 48);
        ZOLImageBuffer forgotten = Image(1024, 1024);  // large enough for its own heap mapping
        ASSERT_TRUE(a.AllocBuffer(freed, type));
        ASSERT_TRUE(a.AllocBuffer(forgotten, type));
        std::memset(forgotten.Addr[0], 1, 1024 * 1024);
        EXPECT_TRUE(a.StartCPUSync(freed, ZOL_CPU_SYNC_WRITE) || true);
        a.FreeBuffer(freed);
        std::vector<void*> raw(12);
        for (void*& p : raw) {
            int fd = 0;
            ASSERT_TRUE(b.AllocBuffer(8192, &p, fd, type));
        }
        for (size_t i = 0; i < raw.size(); i += 2) {
            EXPECT_TRUE(b.FreeBuffer(raw[i]));  // the odd ones are forgotten
        }
    }
}

TEST(BufferLifetime, NoDescriptorOrMappingOutlivesTheLastManager) {
    ManagerCycle();  // first use: the log, the allocator and the heap settle
    const int fdsBefore = zoltest::CountOpenFds();
    const int mapsBefore = buftest::CountMappingsForLeakCheck();
    for (int round = 0; round < 3; ++round) {
        ManagerCycle();
        EXPECT_EQ(fdsBefore, zoltest::CountOpenFds()) << "round " << round;
        EXPECT_EQ(mapsBefore, buftest::CountMappingsForLeakCheck()) << "round " << round;
    }
    EXPECT_EQ(0u, buftest::BusyCount());
    EXPECT_EQ(0u, buftest::FreeBlockCount());
}

TEST(BufferLifetime, FreeBlocksHoldTheirDescriptorsUntilTheLastClientGoes) {
    const int fdsBefore = zoltest::CountOpenFds();
    {
        ZOLBufferManager keeper("Keeper");
        {
            ZOLBufferManager user("User");
            ZOLImageBuffer image = Image(256, 256);
            ASSERT_TRUE(user.AllocBuffer(image, kDma));
            EXPECT_EQ(fdsBefore + 2, zoltest::CountOpenFds());
        }
        // Forcibly returned: free in the pool, still open.
        EXPECT_EQ(fdsBefore + 2, zoltest::CountOpenFds());
        EXPECT_EQ(2u, buftest::FreeBlockCount());
    }
    EXPECT_EQ(fdsBefore, zoltest::CountOpenFds());
}

// One block handed out: where it came from and what its user wrote into it.
struct Held {
    ZOLBufferManager* manager;
    bool isImage;
    ZOLImageBuffer image;  // isImage
    void* raw;             // !isImage
    unsigned rawSize;
    uint64_t stamp;
};

class Outstanding {
public:
    // False when the block is already out: handed to two users at once.
    bool Add(void* p) {
        std::lock_guard<std::mutex> lock(m_lock);
        return m_blocks.insert(p).second;
    }
    bool Remove(void* p) {
        std::lock_guard<std::mutex> lock(m_lock);
        return m_blocks.erase(p) == 1;
    }
    size_t Size() {
        std::lock_guard<std::mutex> lock(m_lock);
        return m_blocks.size();
    }

private:
    std::mutex m_lock;
    std::set<void*> m_blocks;  // guarded by m_lock
};

void Stamp(void* p, unsigned size, uint64_t stamp) {
    std::memcpy(p, &stamp, sizeof(stamp));
    std::memcpy(static_cast<char*>(p) + size - sizeof(stamp), &stamp, sizeof(stamp));
}

bool HasStamp(const void* p, unsigned size, uint64_t stamp) {
    uint64_t head;
    uint64_t tail;
    std::memcpy(&head, p, sizeof(head));
    std::memcpy(&tail, static_cast<const char*>(p) + size - sizeof(tail), sizeof(tail));
    return head == stamp && tail == stamp;
}

size_t LongestFreeQueue() {
    std::lock_guard<std::mutex> lock(ZOLBufferPool::m_freeBufferListLock);
    size_t longest = 0;
    for (const auto& freeList : ZOLBufferPool::m_freeBufferList) {
        for (const auto& sizeAndQueue : freeList) {
            longest = std::max(longest, sizeAndQueue.second.size());
        }
    }
    return longest;
}

struct Failures {
    std::atomic<int> allocations{0};
    std::atomic<int> handedOutTwice{0};
    std::atomic<int> overwritten{0};
    std::atomic<int> frees{0};
    std::atomic<size_t> longestQueue{0};
};

void Worker(int id, std::vector<ZOLBufferManager*> managers, int cycles, Outstanding& outstanding,
            Failures& failures) {
    static const unsigned kRawSizes[] = {64, 4096, 12288, 65536};
    static const uint32_t kImageGeometry[][2] = {{64, 48}, {320, 240}, {1024, 64}};
    std::mt19937 random(static_cast<unsigned>(id) * 7919u + 1u);
    std::deque<Held> held;

    auto release = [&](Held& h) {
        if (h.isImage) {
            for (unsigned i = 0; i < h.image.numberOfPlanes; ++i) {
                const unsigned size = i == 0 ? h.image.planeStride * h.image.sliceHeight
                                             : h.image.planeStride * h.image.sliceHeight / 2;
                if (!HasStamp(h.image.Addr[i], size, h.stamp)) {
                    ++failures.overwritten;
                }
                if (!outstanding.Remove(h.image.Addr[i])) {
                    ++failures.frees;
                }
            }
            h.manager->FreeBuffer(h.image);
        } else {
            if (!HasStamp(h.raw, h.rawSize, h.stamp)) {
                ++failures.overwritten;
            }
            if (!outstanding.Remove(h.raw) || !h.manager->FreeBuffer(h.raw)) {
                ++failures.frees;
            }
        }
    };

    for (int cycle = 0; cycle < cycles; ++cycle) {
        Held h = {};
        h.manager = managers[random() % managers.size()];
        h.stamp = (static_cast<uint64_t>(id) << 32) | static_cast<uint64_t>(cycle);
        const ZOLBufferType type = (random() & 1) != 0 ? kDma : kHeap;
        h.isImage = random() % 3 == 0;
        if (h.isImage) {
            const auto& geometry = kImageGeometry[random() % 3];
            h.image = Image(geometry[0], geometry[1]);
            if (!h.manager->AllocBuffer(h.image, type)) {
                ++failures.allocations;
                continue;
            }
            for (unsigned i = 0; i < h.image.numberOfPlanes; ++i) {
                const unsigned size =
                    i == 0 ? geometry[0] * geometry[1] : geometry[0] * geometry[1] / 2;
                if (!outstanding.Add(h.image.Addr[i])) {
                    ++failures.handedOutTwice;
                }
                Stamp(h.image.Addr[i], size, h.stamp);
            }
        } else {
            h.rawSize = kRawSizes[random() % 4];
            int fd = -1;
            if (!h.manager->AllocBuffer(h.rawSize, &h.raw, fd, type)) {
                ++failures.allocations;
                continue;
            }
            if (!outstanding.Add(h.raw)) {
                ++failures.handedOutTwice;
            }
            Stamp(h.raw, h.rawSize, h.stamp);
        }
        held.push_back(h);
        if (held.size() > 3) {
            release(held.front());
            held.pop_front();
        }
        if (cycle % 1000 == 0) {
            const size_t longest = LongestFreeQueue();
            size_t seen = failures.longestQueue.load();
            while (longest > seen && !failures.longestQueue.compare_exchange_weak(seen, longest)) {
            }
        }
    }
    for (Held& h : held) {
        release(h);
    }
}

TEST(BufferConcurrency, FourThreadsShareFourManagers) {
    constexpr int kThreads = 4;
    constexpr int kCycles = 20000;
    const int fdsBefore = zoltest::CountOpenFds();
    Outstanding outstanding;
    Failures failures;
    {
        ZOLBufferManager m0("M0"), m1("M1"), m2("M2"), m3("M3");
        std::vector<ZOLBufferManager*> managers = {&m0, &m1, &m2, &m3};
        std::vector<std::thread> threads;
        for (int id = 0; id < kThreads; ++id) {
            threads.emplace_back(Worker, id, managers, kCycles, std::ref(outstanding),
                                 std::ref(failures));
        }
        for (std::thread& t : threads) {
            t.join();
        }
        EXPECT_EQ(0, failures.allocations.load());
        EXPECT_EQ(0, failures.handedOutTwice.load());
        EXPECT_EQ(0, failures.overwritten.load());
        EXPECT_EQ(0, failures.frees.load());
        EXPECT_LE(failures.longestQueue.load(), 10u);
        EXPECT_EQ(0u, outstanding.Size());

        // No loss: nothing is busy, every queue is within its cap, and the only descriptors
        // still open are those of the free DMA blocks.
        EXPECT_EQ(0u, buftest::BusyCount());
        EXPECT_LE(LongestFreeQueue(), 10u);
        size_t freeDma = 0;
        {
            std::lock_guard<std::mutex> lock(ZOLBufferPool::m_freeBufferListLock);
            for (const auto& sizeAndQueue : ZOLBufferPool::m_freeBufferList[kDma]) {
                freeDma += sizeAndQueue.second.size();
            }
        }
        EXPECT_GT(freeDma, 0u);
        EXPECT_EQ(fdsBefore + static_cast<int>(freeDma), zoltest::CountOpenFds());
    }
    EXPECT_EQ(fdsBefore, zoltest::CountOpenFds());
    EXPECT_EQ(0u, buftest::FreeBlockCount());
}

}  // namespace
