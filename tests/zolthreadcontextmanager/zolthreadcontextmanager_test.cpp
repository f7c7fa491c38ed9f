#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

#include "zolthreadcontextmanager.h"

namespace {

using M = ZOLThreadContextManager;

ZOLThreadContext MakeContext(uint64_t seed) {
    ZOLThreadContext ctx;
    for (int i = 0; i < 5; ++i) {
        ctx.words[i] = seed * 0x0101010101010101ull + static_cast<uint64_t>(i);
    }
    return ctx;
}

bool Same(const ZOLThreadContext& a, const ZOLThreadContext& b) {
    return std::memcmp(&a, &b, sizeof(ZOLThreadContext)) == 0;
}

// The table is process-wide: every test starts from an empty one, however the tests are run.
class ZOLThreadContextManagerTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::lock_guard<std::mutex> lock(M::m_threadIdToContextMapLock);
        M::m_threadIdToContextMap.clear();
    }
};

bool HasEntry(unsigned int threadId) {
    ZOLThreadContext ignored{};
    return M::GetContextByThreadId(threadId, ignored) == M::kDone;
}

TEST_F(ZOLThreadContextManagerTest, MapStoresACopyAndNeverOverwrites) {
    ZOLThreadContext first = MakeContext(0xA5);
    first.words[4] = UINT64_MAX;  // every byte is kept, whatever its value
    const ZOLThreadContext original = first;
    ASSERT_EQ(0, M::MapContextToThreadId(100, &first));

    first.words[0] = 0;  // the table holds its own copy
    ZOLThreadContext out{};
    ASSERT_EQ(0, M::GetContextByThreadId(100, out));
    EXPECT_TRUE(Same(original, out));

    ZOLThreadContext second = MakeContext(0x5A);
    EXPECT_EQ(2, M::MapContextToThreadId(100, &second));
    ASSERT_EQ(0, M::GetContextByThreadId(100, out));
    EXPECT_TRUE(Same(original, out));
}

TEST_F(ZOLThreadContextManagerTest, NullContextIsRefusedWhetherOrNotMapped) {
    EXPECT_EQ(4, M::MapContextToThreadId(200, nullptr));
    EXPECT_FALSE(HasEntry(200));

    ZOLThreadContext ctx = MakeContext(1);
    ASSERT_EQ(0, M::MapContextToThreadId(201, &ctx));
    EXPECT_EQ(4, M::MapContextToThreadId(201, nullptr));
    ZOLThreadContext out{};
    ASSERT_EQ(0, M::GetContextByThreadId(201, out));
    EXPECT_TRUE(Same(ctx, out));
}

TEST_F(ZOLThreadContextManagerTest, UnknownThreadGivesNoContext) {
    ZOLThreadContext out = MakeContext(7);
    const ZOLThreadContext before = out;
    EXPECT_EQ(3, M::GetContextByThreadId(300, out));
    EXPECT_TRUE(Same(before, out));  // left untouched
    EXPECT_EQ(3, M::UnmapContextToThreadId(300));
    EXPECT_EQ(3, M::TransitionMapping(300, 301));
    EXPECT_FALSE(HasEntry(301));
    EXPECT_TRUE(M::m_threadIdToContextMap.empty());
}

TEST_F(ZOLThreadContextManagerTest, UnmapRemovesTheEntryOnce) {
    ZOLThreadContext ctx = MakeContext(2);
    ASSERT_EQ(0, M::MapContextToThreadId(400, &ctx));
    ASSERT_EQ(0, M::MapContextToThreadId(401, &ctx));
    EXPECT_EQ(0, M::UnmapContextToThreadId(400));
    EXPECT_FALSE(HasEntry(400));
    EXPECT_TRUE(HasEntry(401));  // lookups are by exact identifier
    EXPECT_EQ(3, M::UnmapContextToThreadId(400));

    ZOLThreadContext again = MakeContext(3);  // a removed thread may be mapped afresh
    EXPECT_EQ(0, M::MapContextToThreadId(400, &again));
}

TEST_F(ZOLThreadContextManagerTest, TransitionMovesTheContext) {
    ZOLThreadContext ctx = MakeContext(4);
    ASSERT_EQ(0, M::MapContextToThreadId(500, &ctx));
    EXPECT_EQ(0, M::TransitionMapping(500, 501));
    EXPECT_FALSE(HasEntry(500));
    ZOLThreadContext out{};
    ASSERT_EQ(0, M::GetContextByThreadId(501, out));
    EXPECT_TRUE(Same(ctx, out));
}

TEST_F(ZOLThreadContextManagerTest, TransitionKeepsTheTargetsOwnContext) {
    ZOLThreadContext moving = MakeContext(5);
    ZOLThreadContext resident = MakeContext(6);
    ASSERT_EQ(0, M::MapContextToThreadId(600, &moving));
    ASSERT_EQ(0, M::MapContextToThreadId(601, &resident));
    EXPECT_EQ(0, M::TransitionMapping(600, 601));
    EXPECT_FALSE(HasEntry(600));  // the moved context is discarded
    ZOLThreadContext out{};
    ASSERT_EQ(0, M::GetContextByThreadId(601, out));
    EXPECT_TRUE(Same(resident, out));
    EXPECT_EQ(1u, M::m_threadIdToContextMap.size());
}

TEST_F(ZOLThreadContextManagerTest, TransitionToItselfKeepsTheContext) {
    ZOLThreadContext ctx = MakeContext(8);
    ASSERT_EQ(0, M::MapContextToThreadId(700, &ctx));
    EXPECT_EQ(0, M::TransitionMapping(700, 700));
    ZOLThreadContext out{};
    ASSERT_EQ(0, M::GetContextByThreadId(700, out));
    EXPECT_TRUE(Same(ctx, out));
}

// Many threads racing to map the same identifier: exactly one wins, and its context is the one
// kept. Each thread also works its own identifiers through every operation.
TEST_F(ZOLThreadContextManagerTest, ConcurrentCallersSeeOneConsistentTable) {
    constexpr int kThreads = 8;
    constexpr unsigned int kShared = 900;
    std::atomic<int> winners{0};
    std::atomic<int> refused{0};
    std::atomic<int> winner{-1};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            ZOLThreadContext mine = MakeContext(static_cast<uint64_t>(t));
            const int rc = M::MapContextToThreadId(kShared, &mine);
            if (rc == 0) {
                ++winners;
                winner = t;
            } else if (rc == 2) {
                ++refused;
            }
            const unsigned int a = 1000 + 2 * static_cast<unsigned int>(t);
            for (int i = 0; i < 200; ++i) {
                ZOLThreadContext out{};
                ASSERT_EQ(0, M::MapContextToThreadId(a, &mine));
                ASSERT_EQ(0, M::TransitionMapping(a, a + 1));
                ASSERT_EQ(0, M::GetContextByThreadId(a + 1, out));
                ASSERT_TRUE(Same(mine, out));
                ASSERT_EQ(0, M::UnmapContextToThreadId(a + 1));
                ASSERT_EQ(3, M::GetContextByThreadId(a, out));
            }
        });
    }
    for (std::thread& th : threads) {
        th.join();
    }
    EXPECT_EQ(1, winners.load());
    EXPECT_EQ(kThreads - 1, refused.load());
    ZOLThreadContext out{};
    ASSERT_EQ(0, M::GetContextByThreadId(kShared, out));
    EXPECT_TRUE(Same(MakeContext(static_cast<uint64_t>(winner.load())), out));
    EXPECT_EQ(1u, M::m_threadIdToContextMap.size());
}

}  // namespace
