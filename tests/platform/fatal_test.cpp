#include <gtest/gtest.h>

#include <climits>
#include <cstdint>

#include "zoltoolsdef/zolfatal.h"

namespace {

TEST(FatalDeathTest, OverflowingArithmeticAborts) {
    EXPECT_EQ(12u, zol::CheckedMul<uint32_t>(3, 4));
    EXPECT_DEATH(zol::CheckedMul<uint32_t>(65536, 65536), "overflow in multiplication");
    EXPECT_DEATH(zol::CheckedAdd<uint32_t>(UINT32_MAX, 1), "overflow in addition");
    EXPECT_DEATH(zol::CheckedSub<uint32_t>(0, 1), "overflow in subtraction");
    EXPECT_DEATH(zol::CheckedMul<int32_t>(INT32_MAX, 2), "overflow");
}

TEST(FatalDeathTest, IndexPastItsBoundAborts) {
    EXPECT_EQ(3u, zol::CheckedIndex(3, 4));
    EXPECT_DEATH(zol::CheckedIndex(4, 4), "index past its bound");
}

TEST(FatalDeathTest, ExplicitConditionAbortsWithItsText) {
    const int planes = 5;
    EXPECT_DEATH(ZOL_FATAL_IF(planes > 4), "planes > 4");
}

}  // namespace
