// End to end: the example wrapper saves and replays in a temporary device root, and zoltools
// reads what it left there.
#include <gtest/gtest.h>

#include <set>

#include "offlinelog.h"
#include "pngio.h"
#include "toolstest.h"
#include "zoltest.h"

namespace {

using toolstest::RunProgram;

TEST(Example, SavesReplaysAndIsReadableByTheTool) {
    toolstest::TempDir root;
    auto run = RunProgram({toolstest::AlgoWrapperBinary(), "--frames", "3", "--size", "64x48",
                           "--root", root.path()});
    ASSERT_EQ(0, run.status) << run.out << run.err;
    EXPECT_NE(std::string::npos, run.out.find("3 saved, 3 replayed: every output identical"))
        << run.out;
    const std::string outputs = root / "data/vendor/camera/algo_wrapper";
    for (const char* name : {"output_00_64x48.nv21", "replay_02_64x48.nv21"}) {
        EXPECT_EQ(64u * 48 * 3 / 2, zoltest::ReadFile(outputs + "/" + name).size()) << name;
    }

    auto inspect =
        RunProgram({toolstest::ZoltoolsBinary(), "inspect", root.path(), "--png", root / "png"});
    ASSERT_EQ(0, inspect.status) << inspect.out << inspect.err;
    EXPECT_NE(std::string::npos, inspect.out.find("3 save folders, 0 problems")) << inspect.out;
    EXPECT_NE(std::string::npos, inspect.out.find("database.bin: 64 bytes")) << inspect.out;
    EXPECT_NE(std::string::npos, inspect.out.find("3 PNGs written")) << inspect.out;
    std::vector<std::string> folders = zoltest::ListDir(root / "png");
    ASSERT_EQ(3u, folders.size());
    zoltool::RgbaImage image;
    std::string error;
    ASSERT_TRUE(
        zoltool::ReadPng(root / "png/" + folders[0] + "/inputFrameInfo_64x48_0_.png", image, error))
        << error;
    EXPECT_EQ(64u, image.width);
    EXPECT_EQ(48u, image.height);

    // Both processes wrote to the offline log; the merged lines come out in stamp order.
    auto log =
        RunProgram({toolstest::ZoltoolsBinary(), "log", root.path(), "--grep", "[AlgoWrapper]"});
    ASSERT_EQ(0, log.status) << log.err;
    std::set<int> pids;
    std::vector<zoltool::LogLine> lines;
    size_t start = 0;
    while (start < log.out.size()) {
        size_t end = log.out.find('\n', start);
        zoltool::LogLine line;
        std::string reason;
        ASSERT_TRUE(
            zoltool::ParseLogLine(log.out.substr(start, end - start), 2026, 1, line, reason))
            << reason;
        pids.insert(line.pid);
        lines.push_back(line);
        start = end + 1;
    }
    EXPECT_EQ(2u, pids.size()) << log.out;
    std::vector<zoltool::LogLine> sorted = lines;
    zoltool::SortLogLines(sorted);
    for (size_t i = 0; i < lines.size(); ++i) {
        EXPECT_EQ(sorted[i].text, lines[i].text);
    }
}

TEST(Example, BadOptionsAndAForeignModeAreRefused) {
    toolstest::TempDir root;
    auto bad = RunProgram({toolstest::AlgoWrapperBinary(), "--size", "63x48"});
    EXPECT_EQ(2, bad.status);
    EXPECT_NE(std::string::npos, bad.err.find("usage:")) << bad.err;

    auto replayMode = RunProgram({toolstest::AlgoWrapperBinary(), "--root", root.path()},
                                 {"persist.vendor.camera.capture.algosimulation.dump=2"});
    EXPECT_EQ(2, replayMode.status);
    EXPECT_NE(std::string::npos, replayMode.err.find("the first run saves")) << replayMode.err;
}

}  // namespace
