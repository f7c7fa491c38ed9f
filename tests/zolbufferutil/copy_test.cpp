// Plane copy between image buffers: size matching, the format paths, strides.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "bufferutil_test_support.h"
#include "zolbufferutil.h"
#include "zoltest.h"

namespace {

using bufferutiltest::TestImage;

TEST(BufferCopy, Nv21PayloadMovesBetweenDifferentStridesAndPaddingStays) {
    TestImage src(0, 6, 4, 8, 32, 1);
    TestImage dst(1, 6, 4, 11, 44, 0);
    dst.Fill(0xEE);
    zoltest::LogCapture log;
    ASSERT_TRUE(ZOLBufferUtil::ZOLBufferCopy(&dst.buffer, &src.buffer));
    EXPECT_EQ(src.Rows(0, 4, 6), dst.Rows(0, 4, 6));
    EXPECT_EQ(src.Rows(1, 2, 6), dst.Rows(1, 2, 6));
    // Everything outside the payload rows is left as it was.
    for (int p = 0; p < 2; ++p) {
        for (size_t i = 0; i < dst.planes[p].size(); ++i) {
            const bool payload = i % 11 < 6 && i / 11 < (p == 0 ? 4u : 2u);
            if (!payload) {
                ASSERT_EQ(0xEE, dst.planes[p][i]) << "plane " << p << " byte " << i;
            }
        }
    }
    EXPECT_TRUE(log.Lines().empty());
}

TEST(BufferCopy, TransposedSizesMatchButNothingRotates) {
    TestImage src(0, 640, 480, 640, 640 * 480, 2);
    TestImage dst(0, 480, 640, 640, 640 * 480, 0);
    dst.Fill(0);
    ASSERT_TRUE(ZOLBufferUtil::ZOLBufferCopy(&dst.buffer, &src.buffer));
    // The source's rows, source width long, land in the destination's rows.
    EXPECT_EQ(src.Rows(0, 480, 640), dst.Rows(0, 480, 640));
    EXPECT_EQ(src.Rows(1, 240, 640), dst.Rows(1, 240, 640));

    TestImage other(0, 640, 360, 640, 640 * 480, 0);
    other.Fill(0x11);
    EXPECT_FALSE(ZOLBufferUtil::ZOLBufferCopy(&other.buffer, &src.buffer));
    EXPECT_EQ(std::vector<uint8_t>(640 * 480, 0x11), other.planes[0]);
}

TEST(BufferCopy, SixteenBitPathCopiesTwoBytesPerPixelOfOnePlane) {
    TestImage src(7, 5, 3, 12, 36, 3);
    TestImage dst(5, 5, 3, 16, 48, 0);
    dst.Fill(0);
    ASSERT_TRUE(ZOLBufferUtil::ZOLBufferCopy(&dst.buffer, &src.buffer));
    EXPECT_EQ(src.Rows(0, 3, 10), dst.Rows(0, 3, 10));
    EXPECT_EQ(std::vector<uint8_t>(48, 0), dst.planes[1]);

    // No rows: nothing to copy, still a success.
    src.buffer.height = dst.buffer.height = 0;
    EXPECT_TRUE(ZOLBufferUtil::ZOLBufferCopy(&dst.buffer, &src.buffer));
}

TEST(BufferCopy, TwoPlanePathWinsAndTakesRowSizesFromTheSource) {
    // A format-0 destination with a format-5 source: the two-plane 8-bit path, width bytes.
    TestImage src(5, 4, 1, 8, 8, 4);
    TestImage dst(0, 1, 4, 8, 32, 0);
    dst.Fill(0);
    ASSERT_TRUE(ZOLBufferUtil::ZOLBufferCopy(&dst.buffer, &src.buffer));
    EXPECT_EQ(src.Rows(0, 1, 4), dst.Rows(0, 1, 4));
    EXPECT_EQ(0, dst.planes[0][4]);
    // A one-row source has no second-plane row to give.
    EXPECT_EQ(std::vector<uint8_t>(32, 0), dst.planes[1]);
}

TEST(BufferCopy, OtherFormatPairsAreRefused) {
    for (uint32_t a : {2u, 3u, 4u, 6u, 7u, 8u, 15u}) {
        for (uint32_t b : {3u, 7u, 14u}) {
            TestImage src(a, 4, 2, 4, 8, 5);
            TestImage dst(b, 4, 2, 4, 8, 0);
            dst.Fill(0x22);
            EXPECT_FALSE(ZOLBufferUtil::ZOLBufferCopy(&dst.buffer, &src.buffer)) << a << "," << b;
            EXPECT_EQ(std::vector<uint8_t>(8, 0x22), dst.planes[0]);
        }
    }
}

TEST(BufferCopy, CopyPlaneHonoursBothStridesAndIgnoresEmptyRequests) {
    const uint8_t src[9] = {1, 2, 0, 3, 4, 0, 5, 6, 0};
    uint8_t dst[8] = {};
    ZOLBufferUtil::ZOLCopyPlane(dst, const_cast<uint8_t*>(src), 2, 3, 3, 3);
    ZOLBufferUtil::ZOLCopyPlane(dst, const_cast<uint8_t*>(src), 2, 0, 3, 3);
    ZOLBufferUtil::ZOLCopyPlane(dst, const_cast<uint8_t*>(src), -5, 3, 3, 3);
    EXPECT_EQ(std::vector<uint8_t>({1, 2, 0, 3, 4, 0, 5, 6}), std::vector<uint8_t>(dst, dst + 8));
}

TEST(BufferCopyDeathTest, SixteenBitRowSizeThatOverflowsAborts) {
    uint8_t plane[4] = {};
    ZOLImageBuffer src = {};
    src.format = 5;
    src.width = 0x80000000u;
    src.height = 1;
    src.Addr[0] = plane;
    ZOLImageBuffer dst = src;
    EXPECT_DEATH(ZOLBufferUtil::ZOLBufferCopy(&dst, &src), "overflow");
}

}  // namespace
