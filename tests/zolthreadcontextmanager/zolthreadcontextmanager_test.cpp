#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "zolthreadcontextmanager.h"

namespace {

using M = ZOLThreadContextManager;

// Every byte differs from context to context and from word to word, the last word included.
ZOLThreadContext Context(uint64_t seed) {
    const uint64_t s = seed * 0x0101010101010101ull;
    return {{s ^ 0xF1, s ^ 0xF2 << 8, s ^ 0xF3ull << 24, s ^ 0xF4ull << 40, s ^ 0xF5ull << 56}};
}

enum Op { kMap, kUnmap, kGet, kMove };

// One table, run in order: each step's result, and for kGet the context read (0: left as it
// was, which the step checks by reading into a context of seed 99).
TEST(ThreadContextManager, OperationsAndTheirResults) {
    const struct {
        Op op;
        unsigned a, b;  // thread id(s); for kMap, b is the context's seed (0: a null pointer)
        int result;
        uint64_t seen;
    } steps[] = {
        {kMap, 100, 1, 0, 0},   {kMap, 100, 2, 2, 0},    {kGet, 100, 0, 0, 1},
        {kMap, 101, 0, 4, 0},   {kMap, 100, 0, 4, 0},    {kGet, 101, 0, 3, 0},
        {kGet, 100, 0, 0, 1},   {kMove, 100, 200, 0, 0}, {kGet, 100, 0, 3, 0},
        {kGet, 200, 0, 0, 1},   {kMap, 300, 3, 0, 0},    {kMove, 200, 300, 0, 0},
        {kGet, 200, 0, 3, 0},   {kGet, 300, 0, 0, 3},    {kMove, 300, 300, 0, 0},
        {kGet, 300, 0, 0, 3},   {kMove, 999, 1, 3, 0},   {kGet, 1, 0, 3, 0},
        {kUnmap, 300, 0, 0, 0}, {kUnmap, 300, 0, 3, 0},  {kGet, 300, 0, 3, 0},
        {kMap, 300, 4, 0, 0},   {kGet, 300, 0, 0, 4},    {kUnmap, 999, 0, 3, 0},
    };
    for (size_t i = 0; i < sizeof(steps) / sizeof(steps[0]); ++i) {
        const auto& s = steps[i];
        ZOLThreadContext ctx = Context(s.op == kMap ? s.b : 99);
        const int result = s.op == kMap     ? M::MapContextToThreadId(s.a, s.b ? &ctx : nullptr)
                           : s.op == kUnmap ? M::UnmapContextToThreadId(s.a)
                           : s.op == kGet   ? M::GetContextByThreadId(s.a, ctx)
                                            : M::TransitionMapping(s.a, s.b);
        EXPECT_EQ(s.result, result) << "step " << i;
        if (s.op == kGet) {
            const ZOLThreadContext want = Context(s.seen != 0 ? s.seen : 99);
            EXPECT_EQ(0, std::memcmp(&want, &ctx, sizeof(ctx))) << "step " << i;
        }
    }
    EXPECT_EQ(1u, M::m_threadIdToContextMap.size());
}

}  // namespace
