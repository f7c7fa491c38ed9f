// The tool's library: frames rendered both ways and back from RGBA, and the log follower.
#include "offlinelog.h"
#include "rawimage.h"
#include "toolstest.h"

using namespace toolstest;
using zoltool::RenderMode;

// Flat colours through the standard decoding: the JPEG/JFIF full-range BT.601 values (within
// libyuv's fixed-point rounding), not the library's analogue coefficients, not video range.
TEST(Render, StandardIsFullRangeBt601) {
    struct Case {
        uint8_t y, v, u;
        int r, g, b;
    } const cases[] = {
        {0, 128, 128, 0, 0, 0},       {255, 128, 128, 255, 255, 255}, {16, 128, 128, 16, 16, 16},
        {76, 255, 85, 254, 0, 0},     {150, 21, 44, 0, 255, 1},       {29, 107, 255, 0, 0, 254},
        {180, 200, 60, 255, 153, 59},
    };
    for (const Case& c : cases) {
        zoltool::Nv21Image frame;
        std::string error;
        const std::vector<uint8_t> raw = {c.y, c.y, c.y, c.y, c.v, c.u};  // a flat 2x2 frame
        ASSERT_TRUE(zoltool::Nv21FromRaw(raw, 2, 2, "f", frame, error)) << error;
        const auto rgba = zoltool::RenderNv21(frame, RenderMode::kStandard);
        const int want[4] = {c.r, c.g, c.b, 255};
        for (size_t i = 0; i < 16; ++i) {  // four pixels of R, G, B, A
            EXPECT_NEAR(want[i % 4], rgba.pixels[i], 2) << +c.y << " " << +c.v << " " << +c.u;
        }
    }
}

// RGBA -> NV21 file -> RGBA loses at most the rounding of each direction, either way. The colours
// repeat every half width, where the library's odd rows read their chroma.
TEST(Render, RoundTripEitherWay) {
    zoltool::RgbaImage original{16, 8, {}};
    const uint8_t colours[4][3] = {{200, 60, 60}, {60, 180, 80}, {50, 80, 200}, {128, 128, 128}};
    for (uint32_t i = 0; i < 16 * 8; ++i) {
        const uint8_t* c = colours[(i % 8) / 2];
        original.pixels.insert(original.pixels.end(), {c[0], c[1], c[2], 255});
    }
    for (RenderMode mode : {RenderMode::kStandard, RenderMode::kAsLibrary}) {
        const std::vector<uint8_t> raw = zoltool::Nv21ToRaw(zoltool::EncodeNv21(original, mode));
        zoltool::Nv21Image frame;  // as a file holds it
        std::string error;
        ASSERT_TRUE(zoltool::Nv21FromRaw(raw, 16, 8, "f", frame, error)) << error;
        const auto back = zoltool::RenderNv21(frame, mode);
        ASSERT_EQ(original.pixels.size(), back.pixels.size());
        for (size_t i = 0; i < back.pixels.size(); ++i) {
            ASSERT_NEAR(original.pixels[i], back.pixels[i], 4) << int(mode) << " byte " << i;
        }
    }
}

// The follower reads complete lines only, as they are appended, then moves to the next file.
TEST(LogFollower, NewCompleteLinesThenTheNextFile) {
    TempDir dir;
    const std::string first = "ZOLOfflineLog_2026-11-21--10-00-00-000000.txt";
    const std::string second = "ZOLOfflineLog_2026-11-21--10-05-00-000000.txt";
    std::string text = "11-21 10:00:00:000000000  1000  1001 I ZOL: before\n11-21 10:00:0";
    std::vector<zoltool::LogLine> lines;
    std::vector<zoltool::DamagedLine> damaged;
    std::string error;
    zoltool::LogFilePosition position;
    ASSERT_TRUE(zoltool::ReadLogFile(dir.WriteFile(first, text), lines, damaged, error, &position));
    zoltool::LogFollower follower(dir.path(), dir / first, position);
    struct Step {
        std::string file, append, read;  // the messages read, and a '?' per damaged line
    } const steps[] = {
        {first, "", ""},
        {first, "1:000000000  1000  1001 I ZOL: one\n11-21 10:00:02:0000", "one,"},
        {first, "00000  1000  1001 I ZOL: two\nnot a line\n", "two,?"},
        // The writer starts a new file: the follower moves to it and reads it from the start.
        {second, "11-21 10:05:00:000000000  1000  1001 I ZOL: three\n", "three,"},
    };
    for (const Step& step : steps) {
        dir.WriteFile(step.file, text = (step.file == first ? text : "") + step.append);
        lines.clear();
        damaged.clear();
        ASSERT_TRUE(follower.Poll(lines, damaged, error)) << error;
        std::string read;
        for (const zoltool::LogLine& line : lines) {
            read += line.message + ",";
        }
        EXPECT_EQ(step.read, read + std::string(damaged.size(), '?'));
    }
    EXPECT_EQ(dir / second, follower.current());
}
