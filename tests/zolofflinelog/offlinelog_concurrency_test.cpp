// Several threads logging at once, across file rotations: every line reaches the files exactly
// once and whole.
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "offlinelog_test_support.h"
#include "zolofflinelog.h"

namespace {

using offlinelogtest::LogRoot;
using offlinelogtest::MessageOf;
using offlinelogtest::SplitLines;

#if defined(__SANITIZE_THREAD__)
#define ZOLTEST_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define ZOLTEST_TSAN 1
#endif
#endif

// Under ThreadSanitizer fewer, longer lines still fill several 10 MB files in CI time.
#ifdef ZOLTEST_TSAN
constexpr int kLinesPerThread = 4000;
constexpr size_t kPad = 1800;
#else
constexpr int kLinesPerThread = 50000;
constexpr size_t kPad = 60;
#endif
constexpr int kThreads = 4;

TEST(OfflineLogConcurrency, EveryLineOnceAndWholeAcrossRotations) {
    LogRoot root;
    const std::string pad(kPad, '.');
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, &pad] {
            for (int i = 0; i < kLinesPerThread; ++i) {
                ZOLOfflineLog::ZOLOfflineLogI("T%d L%06d %s end", t, i, pad.c_str());
                if (i % 10000 == 9999) {
                    // Keeps the queue (2 KB a line) from growing without bound.
                    ZOLOfflineLog::GetInstance()->WaitForQueuedLines();
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    ASSERT_TRUE(ZOLOfflineLog::GetInstance()->WaitForQueuedLines());

    const std::vector<std::string> files = root.Files();
    EXPECT_GE(files.size(), 2u) << "the lines must cross at least one rotation";
    std::vector<std::vector<bool>> seen(kThreads, std::vector<bool>(kLinesPerThread, false));
    size_t total = 0;
    for (const std::string& name : files) {
        const std::string text = root.Read(name);
        ASSERT_FALSE(text.empty());
        ASSERT_EQ('\n', text.back()) << name << " ends inside a line";
        for (const std::string& line : SplitLines(text)) {
            int t = -1;
            int i = -1;
            const std::string msg = MessageOf(line);
            ASSERT_EQ(2, std::sscanf(msg.c_str(), "T%d L%d", &t, &i)) << line;
            ASSERT_TRUE(t >= 0 && t < kThreads && i >= 0 && i < kLinesPerThread) << line;
            char expected[32];
            std::snprintf(expected, sizeof(expected), "T%d L%06d ", t, i);
            ASSERT_EQ(std::string(expected) + pad + " end", msg) << "torn or interleaved line";
            ASSERT_FALSE(seen[t][i]) << "written twice: " << line;
            seen[t][i] = true;
            ++total;
        }
    }
    EXPECT_EQ(static_cast<size_t>(kThreads) * kLinesPerThread, total);
    EXPECT_EQ(0u, ZOLOfflineLog::GetInstance()->DroppedLinesNoFile());
    EXPECT_EQ(0u, ZOLOfflineLog::GetInstance()->DroppedLinesNoMemory());
}

}  // namespace
