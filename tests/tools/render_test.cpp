// Frames rendered both ways, and PNG -> NV21 -> PNG through the convert command.
#include <gtest/gtest.h>

#include "pngio.h"
#include "rawimage.h"
#include "toolstest.h"

namespace {

using namespace toolstest;
using zoltool::RenderMode;

zoltool::Nv21Image Frame(const std::string& path, uint32_t width, uint32_t height) {
    zoltool::Nv21Image image;
    std::string error;
    EXPECT_TRUE(zoltool::ReadNv21File(path, width, height, image, error)) << error;
    return image;
}

// Flat colours through the standard decoding: the JPEG/JFIF full-range BT.601 values (within
// libyuv's fixed-point rounding), not the library's analogue coefficients, not video range.
TEST(Render, StandardIsFullRangeBt601) {
    struct Case {
        int y, v, u, r, g, b;
    } const cases[] = {
        {0, 128, 128, 0, 0, 0},       {255, 128, 128, 255, 255, 255}, {16, 128, 128, 16, 16, 16},
        {76, 255, 85, 254, 0, 0},     {150, 21, 44, 0, 255, 1},       {29, 107, 255, 0, 0, 254},
        {180, 200, 60, 255, 153, 59},
    };
    TempDir dir;
    for (const Case& c : cases) {
        WriteFile(dir / "f", std::string(4, char(c.y)) + char(c.v) + char(c.u));
        const auto rgba = zoltool::RenderNv21(Frame(dir / "f", 2, 2), RenderMode::kStandard);
        for (size_t p = 0; p < 16; p += 4) {
            EXPECT_NEAR(c.r, rgba.pixels[p], 2) << c.y << " " << c.v << " " << c.u;
            EXPECT_NEAR(c.g, rgba.pixels[p + 1], 2) << c.y << " " << c.v << " " << c.u;
            EXPECT_NEAR(c.b, rgba.pixels[p + 2], 2) << c.y << " " << c.v << " " << c.u;
            EXPECT_EQ(255, rgba.pixels[p + 3]);
        }
    }
}

// --as-library gives exactly what the library's conversion gives over the tool's buffer (the
// expected pixels are worked out from its formulas in golden/make-golden.py), odd sizes too.
TEST(Render, AsLibraryIsTheLibrarysConversion) {
    for (auto [name, w, h] : {std::tuple{"frame_8x4", 8u, 4u}, std::tuple{"frame_5x3", 5u, 3u}}) {
        const auto rgba = zoltool::RenderNv21(Frame(Golden("convert/") + name + ".nv21", w, h),
                                              RenderMode::kAsLibrary);
        EXPECT_EQ(ReadFile(Golden("convert/") + name + ".rgba"),
                  std::string(rgba.pixels.begin(), rgba.pixels.end()))
            << name;
    }
}

// PNG -> NV21 -> PNG loses at most the rounding of each direction, either way. The colours
// repeat every half width, where the library's odd rows read their chroma.
TEST(Render, PngRoundTripEitherWay) {
    zoltool::RgbaImage original{16, 8, {}};
    const uint8_t colours[4][3] = {{200, 60, 60}, {60, 180, 80}, {50, 80, 200}, {128, 128, 128}};
    for (uint32_t i = 0; i < 16 * 8; ++i) {
        const uint8_t* c = colours[(i % 8) / 2];
        original.pixels.insert(original.pixels.end(), {c[0], c[1], c[2], 255});
    }
    TempDir dir;
    std::string error;
    ASSERT_TRUE(zoltool::WritePng(dir / "in.png", original, error)) << error;
    for (RenderMode mode : {RenderMode::kStandard, RenderMode::kAsLibrary}) {
        for (auto [in, out] :
             {std::pair{"in.png", "mid_16x8.nv21"}, {"mid_16x8.nv21", "back.png"}}) {
            std::vector<std::string> args = {Zoltools(), "convert", dir / in, dir / out};
            if (mode == RenderMode::kAsLibrary) {
                args.push_back("--as-library");
            }
            auto run = RunProgram(args);
            ASSERT_EQ(0, run.status) << run.err;
        }
        zoltool::RgbaImage back;
        ASSERT_TRUE(zoltool::ReadPng(dir / "back.png", back, error)) << error;
        ASSERT_EQ(original.pixels.size(), back.pixels.size());
        for (size_t i = 0; i < back.pixels.size(); ++i) {
            ASSERT_NEAR(original.pixels[i], back.pixels[i], 4) << "byte " << i;
        }
    }
}

}  // namespace
