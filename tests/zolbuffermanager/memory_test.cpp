// Memory the platform's tools can see: DMA buffers named after their holder, the pool's
// figures, and its stats line (the figures under many threads: the soak). Every TEST runs in a
// process of its own (fresh pool).
#include <android/log.h>
#include <gtest/gtest.h>

#include <deque>
#include <sstream>
#include <string>

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

// The pool's figures in one line: per type (heap, then dma) busy+free=held and the peak of busy;
// allocations, reuses and releases; "<type>/<size>:<busy>+<free>" per size.
std::string Describe(const ZOLBufferPoolStats& s) {
    std::ostringstream out;
    for (int type = 0; type < 2; ++type) {
        out << s.busyBytes[type] << "+" << s.freeBytes[type] << "=" << s.heldBytes[type] << " peak "
            << s.peakBusyBytes[type] << ", ";
    }
    out << s.allocations << " " << s.reuses << " " << s.releases << ";";
    for (const ZOLBufferPoolSizeStats& row : s.sizes) {
        out << " " << row.type << "/" << row.size << ":" << row.busyCount << "+" << row.freeCount;
    }
    return out.str();
}

// One manager, the pool's only client, takes and gives back blocks and ends (which releases the
// pool); then three managers, two of the same name, hold blocks while the pool logs its line.
TEST(PoolStats, FollowAScriptedSequenceAndItsLine) {
    auto* manager = new ZOLBufferManager("m");
    void* slot[3] = {};
    int fd = 0;
    struct Step {
        char op;  // 'A' alloc into slot, 'F' free slot, 'D' destroy the manager
        int slot;
        ZOLBufferType type;
        unsigned size;
        const char* figures;  // then "; manager <bytes it holds>" while it lives
    } const steps[] = {
        {'A', 0, kHeap, 100, "100+0=100 peak 100, 0+0=0 peak 0, 1 0 0; 0/100:1+0; manager 100"},
        {'A', 1, kHeap, 100, "200+0=200 peak 200, 0+0=0 peak 0, 2 0 0; 0/100:2+0; manager 200"},
        {'A', 2, kDma, 4096,
         "200+0=200 peak 200, 4096+0=4096 peak 4096, 3 0 0; 0/100:2+0 1/4096:1+0; manager 4296"},
        {'F', 0, kHeap, 0,
         "100+100=200 peak 200, 4096+0=4096 peak 4096, 3 0 0; 0/100:1+1 1/4096:1+0; manager 4196"},
        {'A', 0, kHeap, 100,
         "200+0=200 peak 200, 4096+0=4096 peak 4096, 3 1 0; 0/100:2+0 1/4096:1+0; manager 4296"},
        {'F', 2, kDma, 0,
         "200+0=200 peak 200, 0+4096=4096 peak 4096, 3 1 0; 0/100:2+0 1/4096:0+1; manager 200"},
        {'F', 1, kHeap, 0,
         "100+100=200 peak 200, 0+4096=4096 peak 4096, 3 1 0; 0/100:1+1 1/4096:0+1; manager 100"},
        {'D', 0, kHeap, 0, "0+0=0 peak 200, 0+0=0 peak 4096, 3 1 3;"},  // slot 0 forced back
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
        const std::string held = manager ? "; manager " + std::to_string(manager->BusyBytes()) : "";
        EXPECT_EQ(step.figures, Describe(ZOLBufferPool::GetStats()) + held);
    }
    // An unnamed manager is listed too; names past the line's room of 600 are counted instead.
    ZOLBufferManager preview("preview"), capture("cap ture=1;"), again("preview"), unnamed;
    std::deque<ZOLBufferManager> more;  // never moved
    for (int i = 10; i < 30; ++i) {
        more.emplace_back("x" + std::to_string(i) + std::string(28, 'z'));  // 31: kept whole
    }
    ASSERT_TRUE(preview.AllocBuffer(300, &slot[0], fd, kHeap));
    ASSERT_TRUE(again.AllocBuffer(4096, &slot[1], fd, kDma));
    ASSERT_TRUE(unnamed.AllocBuffer(8, &slot[2], fd, kHeap));
    zoltest::LogCapture log;
    ZOLBufferPool::LogStats();
    std::string listed;
    for (int i = 10; i < 26; ++i) {
        listed += " x" + std::to_string(i) + std::string(28, 'z') + "=0";
    }
    EXPECT_EQ(1u, log.Matching(ANDROID_LOG_INFO,
                               "[BufferPool] zolbuffermanager.cpp:# LogStats() pool stats: busy "
                               "heap=308 dma=4096; free heap=0 dma=0; peak heap=308 dma=4096; "
                               "allocs=6 reuses=1 releases=3; managers UnknowBufferManager=8 "
                               "cap_ture_1_=0 preview=4396" +
                                   listed + " +4"))
        << ::testing::PrintToString(log.Texts());
}

}  // namespace
