// Which severities the level read at load lets through. Built once per level; the binary's
// environment gives the property and ZOLTEST_EXPECTED_LEVEL, the level it must produce.
#include <gtest/gtest.h>

#include <android/log.h>

#include <cstdlib>
#include <string>

#include "zoltest.h"
#include "zoltoolsdef.h"

namespace {

TEST(DebugLogLevel, ReadAtLoadAndAppliedPerSeverity) {
    const char* expected = std::getenv("ZOLTEST_EXPECTED_LEVEL");
    ASSERT_NE(nullptr, expected);
    const int level = std::atoi(expected);
    EXPECT_EQ(level, ZOLToolsLogLevel);

    zoltest::LogCapture capture;
    ZOL_LOGE("message E");
    ZOL_LOGW("message W");
    ZOL_LOGD("message D");
    ZOL_LOGI("message I");
    ZOL_LOGV("message V");
    // Debug passes at 3, info only at 4.
    EXPECT_EQ(level >= 1, capture.Contains("message E"));
    EXPECT_EQ(level >= 2, capture.Contains("message W"));
    EXPECT_EQ(level >= 3, capture.Contains("message D"));
    EXPECT_EQ(level >= 4, capture.Contains("message I"));
    EXPECT_EQ(level >= 5, capture.Contains("message V"));
}

}  // namespace
