// Request records, save folders and the inspect command.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "pngio.h"
#include "simfolder.h"
#include "toolstest.h"

namespace {

using namespace toolstest;

zoltool::RequestRecord Record(uint32_t format, uint32_t width, uint32_t height, uint32_t stride) {
    return {format, width, height, stride, height, format <= 1 ? 2u : 1u, {7, -1, 0, 0}};
}

std::string Encode(const std::vector<zoltool::RequestRecord>& records) {
    const std::vector<uint8_t> bytes = zoltool::EncodeRequestInfo(records);
    return std::string(bytes.begin(), bytes.end());
}

TEST(Inspect, GoldenBaseFolder) {
    auto result = RunProgram({Zoltools(), "inspect", Golden("inspect/algosimulation")});
    EXPECT_EQ(1, result.status) << "the second save is damaged";
    EXPECT_EQ(ReadFile(Golden("inspect-expected.txt")), result.out);
    const std::string bad = Golden("inspect/algosimulation/SimulationIntputInfo_1121101500456/");
    EXPECT_NE(std::string::npos,
              result.err.find(bad + "inputFrameInfo_8x4_0_.yuv: 45 bytes, but record 0 (format "
                                    "0 NV21, 8x4) needs 48"))
        << result.err;
    EXPECT_NE(std::string::npos,
              result.err.find(bad + "inputFrameInfo_8x4_1_.yuv: no record 1 in requestInfo.bin"))
        << result.err;
}

// PNGs of the whole frames only; --as-library renders as the library converts.
TEST(Inspect, PngRendersTheWholeFrames) {
    for (bool asLibrary : {false, true}) {
        TempDir dir;
        std::vector<std::string> args = {Zoltools(), "inspect", Golden("inspect/algosimulation"),
                                         "--png", dir.path()};
        if (asLibrary) {
            args.push_back("--as-library");
        }
        auto result = RunProgram(args);
        EXPECT_NE(std::string::npos, result.out.find("2 PNGs written under " + dir.path()));
        zoltool::RgbaImage image;
        std::string error;
        ASSERT_TRUE(zoltool::ReadPng(
            dir / "SimulationIntputInfo_1121101500123/inputFrameInfo_8x4_0_.png", image, error))
            << error;
        EXPECT_EQ(asLibrary, ReadFile(Golden("convert/frame_8x4.rgba")) ==
                                 std::string(image.pixels.begin(), image.pixels.end()));
        struct stat st;
        EXPECT_NE(0, stat((dir / "SimulationIntputInfo_1121101500456").c_str(), &st));
    }
}

// One save folder per case: what inspect says about it, and whether it trusts the request
// file enough to render its frames.
TEST(Inspect, SaveFolders) {
    const std::string frame(12, 'y'), big(460800, 'y'), name = "inputFrameInfo_4x2_0_.yuv";
    const auto x4 = Record(0, 4, 2, 4);
    struct Case {
        std::string request;
        std::vector<std::pair<std::string, std::string>> files;  // a trailing '/': a directory
        int status;
        bool rendered;
        std::string said;  // in stdout or stderr
    } const cases[] = {
        // clang-format off
        {Encode({x4, x4, x4, x4}), {{name, frame}, {"inputFrameInfo_4x2_1_.yuv", frame},
          {"inputFrameInfo_4x2_2_.yuv", frame}, {"inputFrameInfo_4x2_3_.yuv", frame}}, 0, true,
         "inputFrameInfo_4x2_3_.yuv                        12         12  ok, not replayed"},
        {"", {{"../notes.txt", "stray"}}, 0, false,
         "algosimulation/notes.txt is not a save folder, but a replay takes it in turn"},
        {"", {{"inputFrameInfo_\x1b[2J_0_.yuv", ""}}, 0, false,
         "other entry: inputFrameInfo_\\x1b[2J_0_.yuv"},
        {"", {{"requestInfo.bin/", ""}}, 1, false, "0000/requestInfo.bin: is a directory"},
        {Encode({x4}), {{name + "/", ""}}, 1, false, "inputFrameInfo_4x2_0_.yuv: is a directory"},
        {Encode({Record(0, 640, 480, 100)}), {{"inputFrameInfo_640x480_0_.yuv", big}}, 1, false,
         "record 0: stride 100 is shorter than a row (640 bytes at width 640, format 0 NV21)"},
        {Encode({Record(3, 640, 480, 640)}), {}, 1, false, "stride 640 is shorter than a row (960"},
        {Encode({x4, Record(0, 0, 0, 0)}), {{name, frame}}, 1, false, "record 1: size 0x0 is not"},
        {Encode({Record(99, 8, 8, 8)}), {}, 1, false, "format 99 is not a format code (0 to 14)"},
        {Encode({Record(5, 100000, 4, 8)}), {}, 1, false, "size 100000x4, stride 8, slice height"},
        {Encode({x4}) + "x", {{name, frame}}, 1, false, "41 bytes is not a whole number of 40-b"},
        // clang-format on
    };
    for (const Case& c : cases) {
        TempDir root;
        const std::string save = root / "algosimulation/SimulationIntputInfo_0101000000000/";
        mkdir((root / "algosimulation").c_str(), 0755);
        mkdir(save.c_str(), 0755);
        WriteFile(save + "database.bin", "db");
        WriteFile(save + "requestInfo.bin", c.request);
        for (const auto& [name, bytes] : c.files) {
            if (name.back() == '/') {
                const std::string path = save + name.substr(0, name.size() - 1);
                remove(path.c_str());
                mkdir(path.c_str(), 0755);
            } else {
                WriteFile(save + name, bytes);
            }
        }
        auto result =
            RunProgram({Zoltools(), "inspect", root / "algosimulation", "--png", root / "png"});
        const std::string said = result.out + result.err;
        EXPECT_EQ(c.status, result.status) << c.said << "\n" << said;
        EXPECT_NE(std::string::npos, said.find(c.said)) << said;
        EXPECT_EQ(std::string::npos, said.find('\x1b')) << said;
        struct stat st;
        EXPECT_EQ(c.rendered,
                  stat((root / "png/SimulationIntputInfo_0101000000000").c_str(), &st) == 0)
            << c.said;
    }
}

}  // namespace
