// Colour conversion: every kernel set this CPU can run, against the plain double formulas of
// colorconvert_reference.h, exhaustively over all pixel values and on whole random images.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "colorconvert_reference.h"
#include "zolbufferutil.h"
#include "zolbufferutil/zolcolorconvert_rows.h"

namespace cc = zol::colorconvert;
namespace ref = colorconvert_reference;

namespace {

using Bytes = std::vector<unsigned char>;

// The parameter is a kernel set's index in SupportedRowKernels(); its name names the test.
struct KernelSet {
    int index;
    const cc::RowKernels* get() const { return cc::SupportedRowKernels().items[index]; }
    friend std::ostream& operator<<(std::ostream& os, const KernelSet& set) {
        return os << set.get()->name;
    }
};

std::vector<KernelSet> KernelSets() {
    std::vector<KernelSet> sets;
    for (int i = 0; i < cc::SupportedRowKernels().count; ++i) {
        sets.push_back({i});
    }
    return sets;
}

std::string KernelName(const testing::TestParamInfo<KernelSet>& info) {
    std::string name = info.param.get()->name;
    for (char& c : name) {
        if (!isalnum(static_cast<unsigned char>(c))) {
            c = '_';
        }
    }
    return name;
}

// Runs each test once per kernel set, with that set forced on the public functions.
class ColorConvertKernels : public testing::TestWithParam<KernelSet> {
protected:
    void SetUp() override { cc::OverrideRowKernelsForTest(Kernels()); }
    void TearDown() override { cc::OverrideRowKernelsForTest(nullptr); }
    const cc::RowKernels* Kernels() const { return GetParam().get(); }
};

// All 2^24 (Y, U, V): one 256-pixel row per chroma pair, Y running 0..255.
TEST_P(ColorConvertKernels, YuvToRgbaMatchesReferenceForEveryYuv) {
    Bytes y(256), uv(256), out(1024), want(1024);
    for (int i = 0; i < 256; ++i) {
        y[i] = static_cast<unsigned char>(i);
    }
    long bad = 0;
    std::string first;
    for (int u = 0; u < 256; ++u) {
        for (int v = 0; v < 256; ++v) {
            for (int j = 0; j < 128; ++j) {
                uv[2 * j] = static_cast<unsigned char>(v);
                uv[2 * j + 1] = static_cast<unsigned char>(u);
            }
            Kernels()->yuvToRgba(y.data(), uv.data(), out.data(), 256);
            for (int i = 0; i < 256; ++i) {
                ref::YuvToRgbaPixel(i, u, v, &want[4 * i]);
            }
            if (out != want) {
                for (int i = 0; i < 256 && first.empty(); ++i) {
                    if (std::memcmp(&out[4 * i], &want[4 * i], 4) != 0) {
                        first = "Y " + std::to_string(i) + " U " + std::to_string(u) + " V " +
                                std::to_string(v);
                    }
                }
                ++bad;
            }
        }
    }
    EXPECT_EQ(bad, 0) << "first wrong pixel: " << first;
}

// All 2^24 (R, G, B): per (R, G) one row with B = k (luma of every B, chroma of even B) and one
// with B = k ^ 1 (chroma of odd B). Alpha varies and must not matter.
TEST_P(ColorConvertKernels, RgbaToYuvMatchesReferenceForEveryRgb) {
    Bytes rgba(1024), y(256), uv(256);
    long bad = 0;
    std::string first;
    auto report = [&](const char* what, int r, int g, int b) {
        if (first.empty()) {
            first = std::string(what) + " of R " + std::to_string(r) + " G " + std::to_string(g) +
                    " B " + std::to_string(b);
        }
        ++bad;
    };
    for (int r = 0; r < 256; ++r) {
        for (int g = 0; g < 256; ++g) {
            for (int flip = 0; flip < 2; ++flip) {
                for (int k = 0; k < 256; ++k) {
                    rgba[4 * k] = static_cast<unsigned char>(r);
                    rgba[4 * k + 1] = static_cast<unsigned char>(g);
                    rgba[4 * k + 2] = static_cast<unsigned char>(k ^ flip);
                    rgba[4 * k + 3] = static_cast<unsigned char>(k * 37 + r);
                }
                Kernels()->rgbaToYuv(rgba.data(), y.data(), uv.data(), 256);
                for (int k = 0; k < 256; ++k) {
                    const int b = k ^ flip;
                    if (flip == 0 && y[k] != ref::Luma(r, g, b)) {
                        report("luma", r, g, b);
                    }
                    if (k % 2 == 0 && uv[k] != ref::ChromaV(r, g, b)) {
                        report("V", r, g, b);
                    }
                    if (k % 2 == 0 && uv[k + 1] != ref::ChromaU(r, g, b)) {
                        report("U", r, g, b);
                    }
                }
            }
        }
    }
    EXPECT_EQ(bad, 0) << "first wrong value: " << first;
}

// Random bytes, laced with the values the fast paths treat specially: the chroma pairs whose
// green term is an integer (with luma in the range where it matters), grey pixels and pixels
// whose luma or chroma sum lands exactly on an integer.
void FillYuv(std::mt19937& rng, Bytes* y, Bytes* uv) {
    for (auto& b : *y) {
        b = static_cast<unsigned char>(rng());
    }
    for (size_t i = 0; i + 1 < uv->size(); i += 2) {
        const unsigned pick = rng() % 8;
        if (pick < 2) {
            const auto& dip = cc::kGreenDips[pick];
            (*uv)[i] = static_cast<unsigned char>(dip.v + 128);
            (*uv)[i + 1] = static_cast<unsigned char>(dip.u + 128);
        } else {
            (*uv)[i] = static_cast<unsigned char>(rng());
            (*uv)[i + 1] = static_cast<unsigned char>(rng());
        }
    }
    for (size_t i = 0; i < y->size(); i += 3) {
        (*y)[i] = static_cast<unsigned char>(56 + rng() % 97);  // across both dip ranges
    }
}

void FillRgba(std::mt19937& rng, Bytes* rgba) {
    // Luma sums that are multiples of 1000 (grey, and (6, 126, 46) whose double luma is one
    // lower), chroma sums that are non-zero multiples of 100000.
    static const unsigned char kOnTheDot[][3] = {
        {100, 100, 100}, {1, 1, 1},      {255, 255, 255}, {82, 69, 211}, {118, 231, 108},
        {203, 3, 3},     {174, 83, 116}, {0, 0, 0},       {6, 126, 46},  {254, 243, 249}};
    for (size_t i = 0; i < rgba->size(); i += 4) {
        const unsigned pick = rng() % 16;
        unsigned char* px = &(*rgba)[i];
        if (pick < 10) {
            std::memcpy(px, kOnTheDot[pick], 3);
        } else if (pick < 12) {
            px[0] = px[1] = px[2] = static_cast<unsigned char>(rng());
        } else {
            px[0] = static_cast<unsigned char>(rng());
            px[1] = static_cast<unsigned char>(rng());
            px[2] = static_cast<unsigned char>(rng());
        }
        px[3] = static_cast<unsigned char>(rng());
    }
}

struct Shape {
    int width, height, yStride, uvStride;
};

// Widths 1..67 cover every SIMD tail; odd heights and odd chroma strides the odd-row
// addressing; planes are allocated at exactly the documented size so that a read or write past
// them is caught under AddressSanitizer.
std::vector<Shape> Shapes(std::mt19937& rng) {
    std::vector<Shape> shapes;
    const int heights[] = {1, 2, 3, 5, 6};
    for (int width = 1; width <= 67; ++width) {
        for (int height : heights) {
            const int evenWidth = width + (width & 1);
            shapes.push_back({width, height, width + static_cast<int>(rng() % 9),
                              evenWidth + static_cast<int>(rng() % 9)});
        }
    }
    shapes.push_back({256, 4, 256, 256});
    shapes.push_back({1000, 3, 1003, 1001});
    shapes.push_back({4000, 2, 4000, 4000});
    return shapes;
}

size_t LumaBytes(const Shape& s) {
    return static_cast<size_t>(s.height - 1) * s.yStride + s.width;
}

TEST_P(ColorConvertKernels, YuvToRgbaMatchesReferenceOnRandomImages) {
    std::mt19937 rng(1234);
    for (const Shape& s : Shapes(rng)) {
        Bytes y(LumaBytes(s)), uv(ZOLYuv420spChromaBytes(s.uvStride, s.height));
        FillYuv(rng, &y, &uv);
        Bytes out(static_cast<size_t>(s.width) * s.height * 4), want(out.size());
        yuv420sp2rgba(y.data(), uv.data(), out.data(), s.yStride, s.uvStride, s.width, s.height);
        ref::Yuv420spToRgba(y.data(), uv.data(), want.data(), s.yStride, s.uvStride, s.width,
                            s.height);
        ASSERT_EQ(out, want) << s.width << "x" << s.height << " strides " << s.yStride << ", "
                             << s.uvStride;
    }
}

TEST_P(ColorConvertKernels, RgbaToYuvMatchesReferenceOnRandomImages) {
    std::mt19937 rng(5678);
    for (const Shape& s : Shapes(rng)) {
        Bytes rgba(static_cast<size_t>(s.width) * s.height * 4);
        FillRgba(rng, &rgba);
        // Pre-filled planes: bytes the conversion must leave alone (padding, odd columns of
        // chroma rows never written) are compared too.
        Bytes y(LumaBytes(s)), uv(ZOLYuv420spChromaBytes(s.uvStride, s.height));
        FillYuv(rng, &y, &uv);
        Bytes wantY = y, wantUv = uv;
        rgba2yuv420sp(y.data(), uv.data(), rgba.data(), s.yStride, s.uvStride, s.width, s.height);
        ref::RgbaToYuv420sp(wantY.data(), wantUv.data(), rgba.data(), s.yStride, s.uvStride,
                            s.width, s.height);
        ASSERT_EQ(y, wantY) << s.width << "x" << s.height << " stride " << s.yStride;
        ASSERT_EQ(uv, wantUv) << s.width << "x" << s.height << " stride " << s.uvStride;
    }
}

// The streaming-store variant at every alignment of the output: same bytes, nothing written
// outside the row.
TEST_P(ColorConvertKernels, StreamingRowsMatchReferenceAtEveryAlignment) {
    std::mt19937 rng(99);
    const int widths[] = {1, 2, 3, 15, 16, 17, 31, 33, 63, 64, 65, 100, 127, 128, 129, 257};
    for (int width : widths) {
        Bytes y(width), uv(width + 1);
        FillYuv(rng, &y, &uv);
        Bytes want(4 * width);
        ref::Yuv420spToRgba(y.data(), uv.data(), want.data(), width, 0, width, 1);
        for (int offset = 0; offset < 64; ++offset) {
            Bytes out(4 * width + 128, 0x5a);
            Kernels()->yuvToRgbaStreaming(y.data(), uv.data(), out.data() + offset, width);
            ASSERT_TRUE(std::equal(want.begin(), want.end(), out.begin() + offset))
                << "width " << width << " offset " << offset;
            ASSERT_EQ(std::count(out.begin(), out.end(), 0x5a) -
                          std::count(want.begin(), want.end(), 0x5a),
                      static_cast<long>(out.size() - want.size()));
        }
    }
}

// An output past the streaming threshold, rows at every alignment (row pitch 8200 bytes).
TEST_P(ColorConvertKernels, LargeImageMatchesReference) {
    const Shape s{2050, 2047, 2050, 2050};
    ASSERT_GE(static_cast<size_t>(s.width) * s.height * 4, cc::kStreamingOutputBytes);
    std::mt19937 rng(7);
    Bytes y(LumaBytes(s)), uv(ZOLYuv420spChromaBytes(s.uvStride, s.height));
    FillYuv(rng, &y, &uv);
    Bytes out(static_cast<size_t>(s.width) * s.height * 4), want(out.size());
    yuv420sp2rgba(y.data(), uv.data(), out.data(), s.yStride, s.uvStride, s.width, s.height);
    ref::Yuv420spToRgba(y.data(), uv.data(), want.data(), s.yStride, s.uvStride, s.width, s.height);
    EXPECT_TRUE(out == want);
}

INSTANTIATE_TEST_SUITE_P(AllSupported, ColorConvertKernels, testing::ValuesIn(KernelSets()),
                         KernelName);

TEST(ColorConvert, KnownValues) {
    unsigned char y[4] = {0, 255, 0, 0};
    unsigned char uv[4] = {128, 128, 0, 0};
    unsigned char rgba[16];
    yuv420sp2rgba(y, uv, rgba, 4, 4, 2, 1);
    EXPECT_EQ(0, std::memcmp(rgba, "\x00\x00\x00\xff\xff\xff\xff\xff", 8));
    // Y 0 with both chroma bytes 0: R -145.898 and B -260.110 clamp, G 124.832 truncates.
    yuv420sp2rgba(y, uv + 2, rgba, 4, 4, 1, 1);
    EXPECT_EQ(0, std::memcmp(rgba, "\x00\x7c\x00\xff", 4));

    // White: luma 255, chroma sums within 1e-13 of zero truncate to 0.
    unsigned char white[8] = {255, 255, 255, 255, 255, 255, 255, 255};
    unsigned char outY[2] = {}, outUv[2] = {};
    rgba2yuv420sp(outY, outUv, white, 2, 2, 2, 1);
    EXPECT_EQ(outY[0], 255);
    EXPECT_EQ(outY[1], 255);
    EXPECT_EQ(outUv[0], 128);
    EXPECT_EQ(outUv[1], 128);
}

TEST(ColorConvert, OddRowsReadChromaHalfARowOn) {
    // Height 2, chroma stride 8: row 1 reads its pair from byte 4, not from byte 8.
    unsigned char y[2] = {100, 100};
    unsigned char uv[12] = {128, 128, 0, 0, 0, 255, 0, 0, 200, 200, 0, 0};
    ASSERT_EQ(ZOLYuv420spChromaBytes(8, 2), 12u);
    unsigned char rgba[8];
    yuv420sp2rgba(y, uv, rgba, 1, 8, 1, 2);
    unsigned char want[4];
    ref::YuvToRgbaPixel(100, 128, 128, want);
    EXPECT_EQ(0, std::memcmp(rgba, want, 4));
    ref::YuvToRgbaPixel(100, 255, 0, want);  // bytes 4, 5: V 0, U 255
    EXPECT_EQ(0, std::memcmp(rgba + 4, want, 4));
}

TEST(ColorConvert, WidthOneUsesTheRowsFirstPair) {
    unsigned char y[3] = {50, 60, 70};
    unsigned char uv[4] = {10, 240, 99, 99};
    unsigned char rgba[12], want[12];
    yuv420sp2rgba(y, uv, rgba, 1, 2, 1, 3);
    ref::Yuv420spToRgba(y, uv, want, 1, 2, 1, 3);
    EXPECT_EQ(0, std::memcmp(rgba, want, sizeof(want)));
    // Rows 0, 1, 2 read pairs at 0, 1 and 2: the odd row's pair straddles two chroma pairs.
    ref::YuvToRgbaPixel(60, 99, 240, want);
    EXPECT_EQ(0, std::memcmp(rgba + 4, want, 4));
}

TEST(ColorConvert, EmptySizesTouchNothing) {
    unsigned char y[4] = {1, 2, 3, 4}, uv[4] = {5, 6, 7, 8}, rgba[16] = {};
    const int sizes[][2] = {{0, 2}, {2, 0}, {-1, 2}, {2, -5}};
    for (const auto& wh : sizes) {
        yuv420sp2rgba(y, uv, rgba, 2, 2, wh[0], wh[1]);
        rgba2yuv420sp(y, uv, rgba, 2, 2, wh[0], wh[1]);
    }
    const unsigned char zeros[16] = {};
    EXPECT_EQ(0, std::memcmp(rgba, zeros, 16));
    EXPECT_EQ(0, std::memcmp(y, "\x01\x02\x03\x04", 4));
    EXPECT_EQ(0, std::memcmp(uv, "\x05\x06\x07\x08", 4));
}

TEST(ColorConvert, ChromaBytesCoverTheLastOddRow) {
    EXPECT_EQ(ZOLYuv420spChromaBytes(4000, 3000), 6002000u);
    EXPECT_EQ(ZOLYuv420spChromaBytes(1920, 1080), 1920u * 540 + 960);
    EXPECT_EQ(ZOLYuv420spChromaBytes(7, 3), 14u);  // odd height: (h + 1) / 2 full rows
    EXPECT_EQ(ZOLYuv420spChromaBytes(7, 2), 10u);  // (1 * 7) / 2 + 7
    EXPECT_EQ(ZOLYuv420spChromaBytes(8, 1), 8u);
    EXPECT_EQ(ZOLYuv420spChromaBytes(8, 0), 0u);
}

TEST(ColorConvertDeathTest, RowProductOverflowAborts) {
    // Row 2's offset 2 * yStride overflows int; nothing is touched before the check.
    EXPECT_DEATH(yuv420sp2rgba(nullptr, nullptr, nullptr, INT_MAX / 2 + 1, 8, 4, 3), "");
    EXPECT_DEATH(rgba2yuv420sp(nullptr, nullptr, nullptr, 8, INT_MAX / 2 + 1, 4, 3), "");
    EXPECT_DEATH(yuv420sp2rgba(nullptr, nullptr, nullptr, INT_MIN / 2 - 1, 8, 4, 3), "");
}

}  // namespace
