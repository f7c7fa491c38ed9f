// The host log switch, read when the library is loaded. Built once per environment row (see
// CMakeLists.txt); ZOLTEST_EXPECTED_PRIORITY is the minimum priority the row must leave.
#include <android/log.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "zoltoolsdef.h"

TEST(HostLogPriority, OneLetterSetsLiblogsMinimumAnythingElseLeavesIt) {
    const char* expected = std::getenv("ZOLTEST_EXPECTED_PRIORITY");
    ASSERT_NE(nullptr, expected);
    ASSERT_EQ(5, ZOLToolsLogLevel);  // the library is loaded (and linked: a symbol is used)
    EXPECT_EQ(std::atoi(expected), __android_log_get_minimum_priority());
}
