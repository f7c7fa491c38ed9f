// Colour conversion: every kernel set this CPU can run, against the plain double formulas of
// colorconvert_reference.h, exhaustively over all pixel values and on whole random images.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "colorconvert_reference.h"
#include "zolbufferutil.h"
#include "zolbufferutil/internal/zolcolorconvert_rows.h"

namespace cc = zol::colorconvert;
namespace ref = colorconvert_reference;

namespace {

using Bytes = std::vector<unsigned char>;

// Each test runs once per kernel set (an index into SupportedRowKernels()), forced on the public
// functions too.
class ColorConvertKernels : public testing::TestWithParam<int> {
protected:
    void SetUp() override { cc::OverrideRowKernelsForTest(Kernels()); }
    void TearDown() override { cc::OverrideRowKernelsForTest(nullptr); }
    const cc::RowKernels* Kernels() const { return cc::SupportedRowKernels().items[GetParam()]; }
};

// All 2^24 (Y, U, V): one 256-pixel row per chroma pair, Y running 0..255.
TEST_P(ColorConvertKernels, YuvToRgbaMatchesReferenceForEveryYuv) {
    Bytes y(256), uv(256), out(1024), want(1024);
    for (int uvPair = 0; uvPair < 65536; ++uvPair) {
        const int u = uvPair >> 8, v = uvPair & 255;
        for (int i = 0; i < 256; ++i) {
            y[i] = static_cast<unsigned char>(i);
            uv[i] = static_cast<unsigned char>(i % 2 == 0 ? v : u);
            ref::YuvToRgbaPixel(i, u, v, &want[4 * i]);
        }
        Kernels()->yuvToRgba(y.data(), uv.data(), out.data(), 256);
        ASSERT_EQ(want, out) << "U " << u << " V " << v;
    }
}

// All 2^24 (R, G, B): per (R, G) one row with B = k (luma of every B, chroma of even B) and one
// with B = k ^ 1 (chroma of odd B). Alpha varies and must not matter.
TEST_P(ColorConvertKernels, RgbaToYuvMatchesReferenceForEveryRgb) {
    Bytes rgba(1024), y(256), uv(256), wantY(256), wantUv(256);
    for (int rgFlip = 0; rgFlip < 2 * 65536; ++rgFlip) {
        const int r = rgFlip >> 9, g = (rgFlip >> 1) & 255, flip = rgFlip & 1;
        for (int k = 0; k < 256; ++k) {
            const int b = k ^ flip;
            const unsigned char px[4] = {
                static_cast<unsigned char>(r), static_cast<unsigned char>(g),
                static_cast<unsigned char>(b), static_cast<unsigned char>(k * 37 + r)};
            std::memcpy(&rgba[4 * k], px, 4);
            wantY[k] = ref::Luma(r, g, b);
            wantUv[k] = k % 2 == 0 ? ref::ChromaV(r, g, b) : ref::ChromaU(r, g, b ^ 1);
        }
        Kernels()->rgbaToYuv(rgba.data(), y.data(), uv.data(), 256);
        ASSERT_TRUE(y == wantY && uv == wantUv) << "R " << r << " G " << g << " flip " << flip;
    }
}

// Random bytes, laced with the chroma pairs whose green term is an integer (with luma in the
// range where it matters): the kernels redo those pairs apart, here amid ordinary ones. (RGBA
// needs no such values: its special cases are decided per register, which the exhaustive test
// covers.)
void FillYuv(std::mt19937& rng, Bytes* y, Bytes* uv) {
    for (size_t i = 0; i < y->size(); ++i) {
        (*y)[i] = static_cast<unsigned char>(i % 3 == 0 ? 56 + rng() % 97 : rng());
    }
    for (size_t i = 0; i + 1 < uv->size(); i += 2) {
        const unsigned pick = rng() % 8;
        (*uv)[i] = static_cast<unsigned char>(pick < 2 ? cc::kGreenDips[pick].v + 128 : rng());
        (*uv)[i + 1] = static_cast<unsigned char>(pick < 2 ? cc::kGreenDips[pick].u + 128 : rng());
    }
}

// Widths 1..67 cover every SIMD tail; odd heights and odd chroma strides the odd-row
// addressing. Planes have exactly the documented size, so AddressSanitizer catches any access
// past them; pre-filled output planes show bytes written that should not be.
TEST_P(ColorConvertKernels, WholeImagesMatchReferenceInBothDirections) {
    std::mt19937 rng(1234);
    struct Shape {
        int width, height, yStride, uvStride;
    };
    // The last is past the streaming threshold, its rows 8200 bytes apart: every alignment.
    static_assert(size_t{2050} * 2047 * 4 >= cc::kStreamingOutputBytes);
    std::vector<Shape> shapes = {
        {256, 4, 256, 256}, {1000, 3, 1003, 1001}, {4000, 2, 4000, 4000}, {2050, 2047, 2050, 2050}};
    for (int width = 1; width <= 67; ++width) {
        for (int height : {1, 2, 3, 5, 6}) {
            shapes.push_back({width, height, width + static_cast<int>(rng() % 9),
                              width + (width & 1) + static_cast<int>(rng() % 9)});
        }
    }
    for (const Shape& s : shapes) {
        const size_t lumaBytes = static_cast<size_t>(s.height - 1) * s.yStride + s.width;
        Bytes y(lumaBytes), uv(ZOLYuv420spChromaBytes(s.uvStride, s.height));
        Bytes rgba(static_cast<size_t>(s.width) * s.height * 4), want(rgba.size());
        FillYuv(rng, &y, &uv);
        yuv420sp2rgba(y.data(), uv.data(), rgba.data(), s.yStride, s.uvStride, s.width, s.height);
        ref::Yuv420spToRgba(y.data(), uv.data(), want.data(), s.yStride, s.uvStride, s.width,
                            s.height);
        ASSERT_EQ(want, rgba) << s.width << "x" << s.height << " strides " << s.yStride << ", "
                              << s.uvStride;
        std::generate(rgba.begin(), rgba.end(), [&] { return static_cast<unsigned char>(rng()); });
        Bytes wantY = y, wantUv = uv;
        rgba2yuv420sp(y.data(), uv.data(), rgba.data(), s.yStride, s.uvStride, s.width, s.height);
        ref::RgbaToYuv420sp(wantY.data(), wantUv.data(), rgba.data(), s.yStride, s.uvStride,
                            s.width, s.height);
        ASSERT_TRUE(wantY == y && wantUv == uv)
            << s.width << "x" << s.height << " strides " << s.yStride << ", " << s.uvStride;
    }
}

// The streaming-store rows at every alignment of the output: the same bytes, nothing written
// outside the row.
TEST_P(ColorConvertKernels, StreamingRowsMatchReferenceAtEveryAlignment) {
    std::mt19937 rng(99);
    for (int width : {1, 2, 3, 15, 16, 17, 31, 33, 63, 64, 65, 100, 127, 128, 129, 257}) {
        Bytes y(width), uv(width + 1), want(4 * width + 128, 0x5a);
        FillYuv(rng, &y, &uv);
        for (int offset = 0; offset < 64; ++offset) {
            Bytes out(4 * width + 128, 0x5a);
            std::fill(want.begin(), want.end(), 0x5a);
            ref::Yuv420spToRgba(y.data(), uv.data(), want.data() + offset, width, 0, width, 1);
            Kernels()->yuvToRgbaStreaming(y.data(), uv.data(), out.data() + offset, width);
            ASSERT_EQ(want, out) << "width " << width << " offset " << offset;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(AllSupported, ColorConvertKernels,
                         testing::Range(0, cc::SupportedRowKernels().count),
                         [](const testing::TestParamInfo<int>& info) {
                             std::string name = cc::SupportedRowKernels().items[info.param]->name;
                             name.erase(std::remove(name.begin(), name.end(), '.'), name.end());
                             return name;  // "sse4.1" is "sse41"
                         });

// Documented pixels, which pin the reference itself to the equations: Y 0 with both chroma
// bytes 0 (R -145.898 and B -260.110 clamp, G 124.832 truncates); then Y 100, V 0, U 255 as row
// 1 of a height-2 image with chroma stride 8, whose pair is at byte 4, not at byte 8.
TEST(ColorConvert, DocumentedPixels) {
    unsigned char y[2] = {0, 100}, uv[10] = {0, 0, 0, 0, 0, 255, 0, 0, 9, 9}, rgba[8];
    yuv420sp2rgba(y, uv, rgba, 1, 8, 1, 2);
    EXPECT_EQ(0, std::memcmp(rgba, "\x00\x7c\x00\xff\x00\x7c\xff\xff", 8));
}

TEST(ColorConvert, EmptySizesTouchNothingAndChromaBytesCoverTheLastOddRow) {
    unsigned char y[4] = {1, 2, 3, 4}, uv[4] = {5, 6, 7, 8}, rgba[16] = {};
    const std::pair<int, int> empty[] = {{0, 2}, {2, 0}, {-1, 2}, {2, -5}};
    for (const auto& wh : empty) {
        yuv420sp2rgba(y, uv, rgba, 2, 2, wh.first, wh.second);
        rgba2yuv420sp(y, uv, rgba, 2, 2, wh.first, wh.second);
    }
    EXPECT_EQ(16, std::count(rgba, rgba + 16, 0));
    EXPECT_EQ(0, std::memcmp(y, "\x01\x02\x03\x04", 4));
    EXPECT_EQ(0, std::memcmp(uv, "\x05\x06\x07\x08", 4));
    const std::tuple<int, int, size_t> rows[] = {
        {4000, 3000, 6002000}, {1920, 1080, 1037760}, {7, 3, 14}, {7, 2, 10}, {8, 1, 8}, {8, 0, 0}};
    for (const auto& [uvStride, height, bytes] : rows) {
        EXPECT_EQ(bytes, ZOLYuv420spChromaBytes(uvStride, height)) << uvStride << "x" << height;
    }
}

TEST(ColorConvertDeathTest, RowProductOverflowAborts) {
    // Row 2's offset 2 * stride overflows int; nothing is touched before the check.
    EXPECT_DEATH(yuv420sp2rgba(nullptr, nullptr, nullptr, INT_MAX / 2 + 1, 8, 4, 3), "");
    EXPECT_DEATH(rgba2yuv420sp(nullptr, nullptr, nullptr, 8, INT_MAX / 2 + 1, 4, 3), "");
    EXPECT_DEATH(yuv420sp2rgba(nullptr, nullptr, nullptr, INT_MIN / 2 - 1, 8, 4, 3), "");
}

}  // namespace
