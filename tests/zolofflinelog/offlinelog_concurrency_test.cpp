// Threads logging at once, across file rotations: every line reaches the files once and whole.
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "zolofflinelog.h"
#include "zoltest.h"

namespace {

#if defined(__SANITIZE_THREAD__)
constexpr int kLinesEach = 4000;  // fewer, longer lines still fill several 10 MB files
constexpr size_t kPad = 1800;
#else
constexpr int kLinesEach = 50000;
constexpr size_t kPad = 60;
#endif

TEST(OfflineLogConcurrency, EveryLineOnceAndWholeAcrossRotations) {
    zoltest::DeviceRoot root;
    const std::string dir = root.MakeDir("/data/vendor/camera/offlinelog");
    const std::string pad(kPad, '.');
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t, &pad] {
            for (int i = 0; i < kLinesEach; ++i) {
                ZOLOfflineLog::ZOLOfflineLogI("T%d L%06d %s end", t, i, pad.c_str());
                if (i % 10000 == 9999) {
                    ZOLOfflineLog::GetInstance()->WaitForQueuedLines();  // bounds the queue
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    ASSERT_TRUE(ZOLOfflineLog::GetInstance()->WaitForQueuedLines());
    EXPECT_LE(2u, zoltest::ListDir(dir).size()) << "the lines must cross a rotation";
    std::vector<zoltool::DamagedLine> damaged;
    std::set<std::string> seen;
    for (const zoltool::LogLine& line : zoltest::ReadOfflineLog(dir, &damaged)) {
        ASSERT_TRUE(zoltest::MatchesPattern(line.message, "T# L# " + pad + " end")) << line.text;
        ASSERT_TRUE(seen.insert(line.message).second) << "written twice: " << line.text;
    }
    EXPECT_TRUE(damaged.empty()) << damaged.front().Describe();
    EXPECT_EQ(4u * kLinesEach, seen.size());
    EXPECT_EQ(0u, ZOLOfflineLog::GetInstance()->DroppedLinesNoFile());
}

}  // namespace
