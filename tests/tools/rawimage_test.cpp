// Raw frame geometry, and the convert command through the library's colour conversion.
#include <gtest/gtest.h>

#include <cstdlib>

#include "fileio.h"
#include "pngio.h"
#include "rawimage.h"
#include "toolstest.h"
#include "zolbufferutil.h"

namespace {

using toolstest::Capture;
using toolstest::Golden;

std::vector<uint8_t> Load(const std::string& path) {
    std::vector<uint8_t> bytes;
    std::string error;
    EXPECT_TRUE(zoltool::ReadWholeFile(path, bytes, error)) << error;
    return bytes;
}

TEST(RawFrame, BytesFollowTheDumpTable) {
    EXPECT_EQ(640u * 480 + 640 * 240, zoltool::RawFrameBytes(0, 640, 480));
    EXPECT_EQ(zoltool::RawFrameBytes(0, 640, 480), zoltool::RawFrameBytes(1, 640, 480));
    EXPECT_EQ(12u + 4, zoltool::RawFrameBytes(0, 4, 3));  // 3 / 2 = one chroma row
    EXPECT_EQ(4u, zoltool::RawFrameBytes(0, 4, 1));       // no chroma below two rows
    EXPECT_EQ(0u, zoltool::RawFrameBytes(2, 640, 480));   // dumped as an empty file
    EXPECT_EQ(0u, zoltool::RawFrameBytes(15, 640, 480));
    EXPECT_EQ(480u * (640 * 12 / 8), zoltool::RawFrameBytes(3, 640, 480));
    EXPECT_EQ(480u * (640 * 14 / 8), zoltool::RawFrameBytes(4, 640, 480));
    EXPECT_EQ(480u * 640 * 2 + 240 * 640 * 2, zoltool::RawFrameBytes(6, 640, 480));
    EXPECT_EQ(480u * 640, zoltool::RawFrameBytes(7, 640, 480));
    EXPECT_EQ(480u * 640 * 2, zoltool::RawFrameBytes(14, 640, 480));
    // No 32-bit wrap for absurd sizes.
    EXPECT_EQ(uint64_t{4000000000u} * 2 * 65536, zoltool::RawFrameBytes(5, 4000000000u, 65536));
}

TEST(RawFrame, SizesFromTextAndFileNames) {
    uint32_t w = 0, h = 0;
    EXPECT_TRUE(zoltool::ParseSize("640x480", w, h));
    EXPECT_EQ(640u, w);
    EXPECT_EQ(480u, h);
    for (const char* bad : {"640", "640x", "x480", "0x480", "640x0", "64a0x480", "-1x5", ""}) {
        EXPECT_FALSE(zoltool::ParseSize(bad, w, h)) << bad;
    }
    EXPECT_TRUE(zoltool::SizeFromFileName("/a/b/inputFrameInfo_4000x3000_1_.yuv", w, h));
    EXPECT_EQ(4000u, w);
    EXPECT_EQ(3000u, h);
    EXPECT_TRUE(zoltool::SizeFromFileName("out_03_1920x1080.nv21", w, h));
    EXPECT_EQ(1920u, w);
    EXPECT_FALSE(zoltool::SizeFromFileName("/data/640x480/frame.nv21", w, h));
}

TEST(RawFrame, ChromaPlaneHoldsWhatTheConversionReads) {
    std::string error;
    for (uint32_t w : {1u, 2u, 3u, 8u, 641u}) {
        for (uint32_t h : {1u, 2u, 3u, 4u, 481u}) {
            std::vector<uint8_t> raw(zoltool::RawFrameBytes(0, w, h), 16);
            zoltool::Nv21Image image;
            ASSERT_TRUE(zoltool::Nv21FromRaw(raw, w, h, "raw", image, error)) << error;
            EXPECT_GE(image.stride, 2 * ((w + 1) / 2));
            EXPECT_GE(image.uv.size(),
                      ZOLYuv420spChromaBytes(static_cast<int>(image.stride), static_cast<int>(h)))
                << w << "x" << h;
            EXPECT_EQ(raw, zoltool::Nv21ToRaw(image)) << w << "x" << h;
        }
    }
}

TEST(Convert, Nv21ToPngMatchesTheGoldenPixels) {
    toolstest::TempDir dir;
    const std::string png = dir / "frame.png";
    auto result = Capture([&](const zoltool::Streams& io) {
        return zoltool::RunConvert({Golden("convert/frame_8x4.nv21"), png, ""}, io);
    });
    ASSERT_EQ(0, result.status) << result.err;
    EXPECT_NE(std::string::npos, result.out.find("NV21 8x4"));

    zoltool::RgbaImage image;
    std::string error;
    ASSERT_TRUE(zoltool::ReadPng(png, image, error)) << error;
    EXPECT_EQ(8u, image.width);
    EXPECT_EQ(4u, image.height);
    EXPECT_EQ(Load(Golden("convert/frame_8x4.rgba")), image.pixels);
}

// What a PNG -> NV21 -> PNG trip may lose: the chroma of a 2x2 block comes from its top-left
// pixel, and each direction truncates (luma by under 1, each chroma term by under 1, then
// R = Y + 1.14 V, B = Y + 2.03 U, G = Y - 0.39 U - 0.58 V each truncate again). For blocks of
// one colour, inside the chroma range, that adds up to at most 4 per channel. Odd rows read their
// chroma half a chroma row on, so colours are laid out to repeat every half width.
TEST(Convert, PngRoundTripStaysWithinTheConversionLoss) {
    toolstest::TempDir dir;
    const uint32_t w = 16, h = 8;
    zoltool::RgbaImage original;
    original.width = w;
    original.height = h;
    // Colours whose chroma stays inside 0..255 (a saturated red would clamp V, a real loss
    // but not this one).
    const uint8_t colours[4][3] = {{200, 60, 60}, {60, 180, 80}, {50, 80, 200}, {128, 128, 128}};
    for (uint32_t r = 0; r < h; ++r) {
        for (uint32_t k = 0; k < w; ++k) {
            const uint8_t* c = colours[(k % (w / 2)) / 2];
            original.pixels.insert(original.pixels.end(), {c[0], c[1], c[2], 255});
        }
    }
    std::string error;
    const std::string png = dir / "in.png", raw = dir / "mid.nv21", back = dir / "back.png";
    ASSERT_TRUE(zoltool::WritePng(png, original, error)) << error;

    auto toRaw = Capture([&](const zoltool::Streams& io) {
        return zoltool::RunConvert({png, raw, ""}, io);
    });
    ASSERT_EQ(0, toRaw.status) << toRaw.err;
    EXPECT_EQ(static_cast<int64_t>(zoltool::RawFrameBytes(0, w, h)), zoltool::FileSize(raw));
    auto toPng = Capture([&](const zoltool::Streams& io) {
        return zoltool::RunConvert({raw, back, "16x8"}, io);
    });
    ASSERT_EQ(0, toPng.status) << toPng.err;

    zoltool::RgbaImage result;
    ASSERT_TRUE(zoltool::ReadPng(back, result, error)) << error;
    ASSERT_EQ(original.pixels.size(), result.pixels.size());
    int worst = 0;
    for (size_t i = 0; i < result.pixels.size(); ++i) {
        worst = std::max(worst, std::abs(int(result.pixels[i]) - int(original.pixels[i])));
    }
    EXPECT_LE(worst, 4);
}

TEST(Convert, BadInputIsNamedWithWhatIsWrong) {
    toolstest::TempDir dir;
    auto run = [&](const std::string& in, const std::string& size) {
        return Capture([&](const zoltool::Streams& io) {
            return zoltool::RunConvert({in, dir / "out.png", size}, io);
        });
    };
    auto missing = run(dir / "nothing_8x4.nv21", "");
    EXPECT_EQ(zoltool::kExitBadInput, missing.status);
    EXPECT_NE(std::string::npos, missing.err.find(dir / "nothing_8x4.nv21")) << missing.err;

    // 48 bytes are an 8x4 frame, not 8x6.
    auto wrongSize = run(Golden("convert/frame_8x4.nv21"), "8x6");
    EXPECT_EQ(zoltool::kExitBadInput, wrongSize.status);
    EXPECT_NE(std::string::npos, wrongSize.err.find("frame_8x4.nv21: 48 bytes, but an NV21 frame "
                                                    "of 8x6 holds 72"))
        << wrongSize.err;

    auto badSize = run(Golden("convert/frame_8x4.nv21"), "8by4");
    EXPECT_EQ(zoltool::kExitUsage, badSize.status);
    EXPECT_NE(std::string::npos, badSize.err.find("--size 8by4")) << badSize.err;

    std::string error;
    ASSERT_TRUE(zoltool::WriteWholeFile(dir / "noname.raw", {1, 2, 3}, error));
    auto noSize = run(dir / "noname.raw", "");
    EXPECT_EQ(zoltool::kExitBadInput, noSize.status);
    EXPECT_NE(std::string::npos, noSize.err.find("--size")) << noSize.err;

    // A file that claims to be a PNG and is cut short.
    std::vector<uint8_t> png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n', 0, 0, 0, 13};
    ASSERT_TRUE(zoltool::WriteWholeFile(dir / "cut.png", png, error));
    auto cut = run(dir / "cut.png", "");
    EXPECT_EQ(zoltool::kExitBadInput, cut.status);
    EXPECT_NE(std::string::npos, cut.err.find("cut.png")) << cut.err;
}

}  // namespace
