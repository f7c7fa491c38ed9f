// Memory the platform's tools can see: DMA buffers named after their holder, the pool's
// figures, and its stats line. Every TEST runs in a process of its own (fresh pool).
#include <android/log.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "platform/dmabufname.h"
#include "zolbuffermanager.h"
#include "zoltest.h"

namespace {

constexpr ZOLBufferType kHeap = ZOL_BUFFER_TYPE_HEAP;
constexpr ZOLBufferType kDma = ZOL_BUFFER_TYPE_DMA;

// One DMA block of 4096 bytes moves between managers; after each step the name it carries.
TEST(BufferNames, FollowTheManagerHoldingTheBlock) {
    ZOLBufferManager managers[] = {
        ZOLBufferManager("preview"), ZOLBufferManager("capture"),
        ZOLBufferManager(std::string("bad\x01name\t\xff") + std::string(40, 'x'))};
    struct Step {
        int manager;
        bool alloc;  // else free what the manager holds
        const char* name;
    } const steps[] = {
        {0, true, "preview"},
        {0, false, "zoltools-free"},
        {1, true, "capture"},  // the same block, re-issued
        {1, false, "zoltools-free"},
        {2, true, "bad_name__xxxxxxxxxxxxxxxxxxxxx"},  // cleaned, cut to 31 bytes
        {2, false, "zoltools-free"},
    };
    void* held[3] = {};
    int fd = -1;
    for (const Step& step : steps) {
        SCOPED_TRACE(step.name);
        if (step.alloc) {
            int got = -1;
            ASSERT_TRUE(managers[step.manager].AllocBuffer(4096, &held[step.manager], got, kDma));
            EXPECT_TRUE(fd < 0 || got == fd) << "a new block instead of the free one";
            fd = got;
        } else {
            ASSERT_TRUE(managers[step.manager].FreeBuffer(held[step.manager]));
        }
        EXPECT_EQ(step.name, zol::GetDmaBufName(fd));
    }
    EXPECT_EQ(0u, ZOLBufferPool::GetStats().nameFailures);
}

struct Figures {
    uint64_t busy[2], free[2], peak[2];
    uint64_t allocations, reuses, releases;
    const char* sizes;  // "<type>/<size>:<busy>+<free>" per size
};

std::string Sizes(const ZOLBufferPoolStats& stats) {
    std::string out;
    for (const ZOLBufferPoolSizeStats& row : stats.sizes) {
        out += (out.empty() ? "" : " ") + std::to_string(row.type) + "/" +
               std::to_string(row.size) + ":" + std::to_string(row.busyCount) + "+" +
               std::to_string(row.freeCount);
    }
    return out;
}

TEST(PoolStats, FollowAScriptedSequence) {
    auto* manager = new ZOLBufferManager("m");  // the only client: its end releases the pool
    void* slot[3] = {};
    int fd = 0;
    struct Step {
        char op;  // 'A' alloc into slot, 'F' free slot, 'D' destroy the manager
        int slot;
        ZOLBufferType type;
        unsigned size;
        Figures expected;
    } const steps[] = {
        {'A', 0, kHeap, 100, {{100, 0}, {0, 0}, {100, 0}, 1, 0, 0, "0/100:1+0"}},
        {'A', 1, kHeap, 100, {{200, 0}, {0, 0}, {200, 0}, 2, 0, 0, "0/100:2+0"}},
        {'A', 2, kDma, 4096, {{200, 4096}, {0, 0}, {200, 4096}, 3, 0, 0, "0/100:2+0 1/4096:1+0"}},
        {'F', 0, kHeap, 0, {{100, 4096}, {100, 0}, {200, 4096}, 3, 0, 0, "0/100:1+1 1/4096:1+0"}},
        {'A', 0, kHeap, 100, {{200, 4096}, {0, 0}, {200, 4096}, 3, 1, 0, "0/100:2+0 1/4096:1+0"}},
        {'F', 2, kDma, 0, {{200, 0}, {0, 4096}, {200, 4096}, 3, 1, 0, "0/100:2+0 1/4096:0+1"}},
        {'F', 1, kHeap, 0, {{100, 0}, {100, 4096}, {200, 4096}, 3, 1, 0, "0/100:1+1 1/4096:0+1"}},
        {'D', 0, kHeap, 0, {{0, 0}, {0, 0}, {200, 4096}, 3, 1, 3, ""}},  // slot 0 forced back
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(std::string(1, step.op) + std::to_string(step.slot));
        if (step.op == 'A') {
            ASSERT_TRUE(manager->AllocBuffer(step.size, &slot[step.slot], fd, step.type));
        } else if (step.op == 'F') {
            ASSERT_TRUE(manager->FreeBuffer(slot[step.slot]));
        } else {
            delete manager;
            manager = nullptr;
        }
        const ZOLBufferPoolStats stats = ZOLBufferPool::GetStats();
        const Figures& want = step.expected;
        for (int type = 0; type < 2; ++type) {
            EXPECT_EQ(want.busy[type], stats.busyBytes[type]) << "type " << type;
            EXPECT_EQ(want.free[type], stats.freeBytes[type]) << "type " << type;
            EXPECT_EQ(want.busy[type] + want.free[type], stats.heldBytes[type]) << "type " << type;
            EXPECT_EQ(want.peak[type], stats.peakBusyBytes[type]) << "type " << type;
        }
        EXPECT_EQ(want.allocations, stats.allocations);
        EXPECT_EQ(want.reuses, stats.reuses);
        EXPECT_EQ(want.releases, stats.releases);
        EXPECT_EQ(want.sizes, Sizes(stats));
        if (manager != nullptr) {
            EXPECT_EQ(want.busy[0] + want.busy[1], manager->BusyBytes());
        }
    }
}

TEST(PoolStats, LineNamesManagersAfterTheFigures) {
    ZOLBufferManager preview("preview"), capture("cap ture=1;"), again("preview");
    void* p = nullptr;
    int fd = 0;
    ASSERT_TRUE(preview.AllocBuffer(300, &p, fd, kHeap));
    ASSERT_TRUE(again.AllocBuffer(4096, &p, fd, kDma));
    zoltest::LogCapture log;
    ZOLBufferPool::LogStats();
    EXPECT_EQ(1u, log.Matching(ANDROID_LOG_INFO,
                               "[BufferPool] zolbuffermanager.cpp:# LogStats() pool stats: busy "
                               "heap=300 dma=4096; free heap=0 dma=0; peak heap=300 dma=4096; "
                               "allocs=2 reuses=0 releases=0; managers cap_ture_1_=0 "
                               "preview=4396"))
        << ::testing::PrintToString(log.Texts());
}

// Four threads take and give back blocks while the figures are read: every reading is one
// instant (busy + free is what the pool holds), and at the end the busy bytes are the managers'.
TEST(PoolStats, ConsistentWhileFourThreadsAllocate) {
    constexpr int kThreads = 4;
    constexpr unsigned kSizes[] = {64, 4096, 12288};
    std::vector<ZOLBufferManager*> managers;
    for (int t = 0; t < kThreads; ++t) {
        managers.push_back(new ZOLBufferManager("t" + std::to_string(t)));
    }
    std::atomic<int> running{kThreads};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            std::vector<void*> held;
            for (unsigned i = 0; i < 400; ++i) {
                void* p = nullptr;
                int fd = 0;
                const ZOLBufferType type = (i + t) % 3 == 0 ? kDma : kHeap;
                if (managers[t]->AllocBuffer(kSizes[(i * 7 + t) % 3], &p, fd, type)) {
                    held.push_back(p);
                }
                if (held.size() > 3) {  // keeps the last three
                    managers[t]->FreeBuffer(held.front());
                    held.erase(held.begin());
                }
            }
            running.fetch_sub(1);
        });
    }
    int readings = 0;
    while (running.load() > 0 || readings == 0) {
        const ZOLBufferPoolStats stats = ZOLBufferPool::GetStats();
        for (int type = 0; type < 2; ++type) {
            ASSERT_EQ(stats.heldBytes[type], stats.busyBytes[type] + stats.freeBytes[type]);
            ASSERT_LE(stats.busyBytes[type], stats.peakBusyBytes[type]);
        }
        ZOLBufferPool::LogStats();
        ++readings;
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const ZOLBufferPoolStats stats = ZOLBufferPool::GetStats();
    uint64_t held = 0;
    for (ZOLBufferManager* manager : managers) {
        held += manager->BusyBytes();
    }
    EXPECT_EQ(held, stats.busyBytes[0] + stats.busyBytes[1]);
    EXPECT_EQ(uint32_t{3 * kThreads}, stats.busyCount[0] + stats.busyCount[1]);
    for (ZOLBufferManager* manager : managers) {
        delete manager;
    }
}

}  // namespace
