// Request records, save folders and the inspect command.
#include "toolstest.h"

using namespace toolstest;

// One save folder per case: what inspect says about it, and whether it trusts the request
// file enough to render its frames.
TEST(Inspect, SaveFolders) {
    const std::string frame(12, 'y'), big(460800, 'y'), name = "inputFrameInfo_4x2_0_.yuv";
    const auto x4 = Nv21Record(4, 2);
    struct Case {
        std::string request;
        std::vector<std::pair<std::string, std::string>> files;  // a trailing '/': a directory
        int status;
        bool rendered;
        std::string said;  // in stdout or stderr
    } const cases[] = {
        // clang-format off
        {Records({x4, x4, x4, x4}), {{name, frame}, {"inputFrameInfo_4x2_1_.yuv", frame},
          {"inputFrameInfo_4x2_2_.yuv", frame}, {"inputFrameInfo_4x2_3_.yuv", frame}}, 0, true,
         "inputFrameInfo_4x2_3_.yuv                        12         12  ok, not replayed"},
        {"", {{"../notes.txt", "stray"}}, 0, false,
         "algosimulation/notes.txt is not a save folder, but a replay takes it in turn"},
        {"", {{"inputFrameInfo_\x1b[2J_0_.yuv", ""}}, 0, false,
         "other entry: inputFrameInfo_\\x1b[2J_0_.yuv"},
        {"/", {}, 1, false, "0000/requestInfo.bin: is a directory"},
        {Records({x4}), {{name + "/", ""}}, 1, false, "inputFrameInfo_4x2_0_.yuv: is a directory"},
        {Records({Nv21Record(640, 480, 639)}), {{"inputFrameInfo_640x480_0_.yuv", big}}, 1, false,
         "record 0: stride 639 is shorter than a row (640 bytes at width 640, format 0 NV21)"},
        {Records({{3, 640, 480, 640, 480, 1, {}}}), {}, 1, false,
         "stride 640 is shorter than a row (960"},
        {Records({x4, Nv21Record(0, 0)}), {{name, frame}}, 1, false, "record 1: size 0x0 is not"},
        {Records({{99, 8, 8, 8, 8, 1, {}}}), {}, 1, false, "format 99 is not a format code (0"},
        {Records({{5, 100000, 4, 8, 4, 1, {}}}), {}, 1, false, "size 100000x4, stride 8, slice h"},
        {Records({x4}) + "x", {{name, frame}}, 1, false, "41 bytes is not a whole number of 40-b"},
        // clang-format on
    };
    for (const Case& c : cases) {
        ZolRoot root;
        auto files = c.files;
        files.emplace_back("database.bin", "db");
        files.emplace_back(c.request == "/" ? "requestInfo.bin/" : "requestInfo.bin", c.request);
        root.Save("0101000000000", files);
        auto result = Tool({"inspect", root.path(), "--png", root / "png"});
        const std::string said = result.out + result.err;
        EXPECT_EQ(c.status, result.status) << c.said << "\n" << said;
        EXPECT_NE(std::string::npos, said.find(c.said)) << said;
        EXPECT_EQ(std::string::npos, said.find('\x1b')) << said;
        EXPECT_EQ(c.rendered, !zoltest::ListDir(root / "png").empty()) << c.said;
    }
}
