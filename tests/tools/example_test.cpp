// End to end: the example wrapper saves, starts itself again in replay mode and compares every
// output (the suite's one save and replay across processes); zoltools reads what it left; and
// every README command that runs either of them runs as written.
#include <cstdlib>
#include <sstream>

#include "pngio.h"
#include "toolstest.h"

namespace {

using namespace toolstest;

// Mean absolute difference between each even row and the odd row below it, over the right half
// of the colour bars (the disc stays on the left in the first frames): 0 where a row pair shows
// the same flat colour, as it does in the scene.
double RowPairTint(const zoltool::RgbaImage& image) {
    const size_t row = size_t{image.width} * 4;
    double sum = 0;
    for (size_t r = 0; r + 1 < image.height * 2 / 3; r += 2) {
        for (size_t at = r * row + row / 2; at < (r + 1) * row; ++at) {
            sum += at % 4 == 3 ? 0 : std::abs(image.pixels[at] - image.pixels[at + row]);
        }
    }
    return sum / (image.height * 2 / 3 / 2) / (image.width / 2 * 3);
}

TEST(Example, SavesReplaysAndShowsItsFramesAsTheyAre) {
    TempDir root;
    auto run =
        zoltest::Run({kAlgoWrapper, "--frames", "2", "--size", "64x48", "--root", root.path()});
    ASSERT_EQ(0, run.status) << run.out << run.err;
    EXPECT_NE(std::string::npos, run.out.find("2 saved, 2 replayed: every output identical"));
    EXPECT_EQ("", run.err) << "only warnings and errors reach stderr by default";
    EXPECT_NE(std::string::npos, run.out.find(kZoltools + " inspect " + root.path()))
        << "the summary's commands name the tool as it can be run";
    for (auto [dir, tinted] : {std::pair{"std", false}, {"lib", true}}) {
        auto inspect =
            Tool({"inspect", root.path(), "--png", root / dir, tinted ? "--as-library" : ""});
        ASSERT_EQ(0, inspect.status) << inspect.out << inspect.err;
        EXPECT_NE(std::string::npos, inspect.out.find("2 save folders, 0 problems")) << inspect.out;
        const std::string first = inspect.out.substr(0, inspect.out.find('\n'));
        zoltool::RgbaImage image;
        std::string error;
        ASSERT_TRUE(zoltool::ReadPng(root / dir + "/" + first + "inputFrameInfo_64x48_0_.png",
                                     image, error))
            << error;
        EXPECT_EQ(tinted, RowPairTint(image) >= 2) << dir << " " << RowPairTint(image);
    }
    auto log = Tool({"log", root.path(), "--grep", "[AlgoWrapper]"});  // both processes wrote
    EXPECT_NE(std::string::npos, log.out.find("save frame 1 done")) << log.out;
    EXPECT_NE(std::string::npos, log.out.find("replay frame 1 done")) << log.out;
}

// Options, and --verbose: every library line on stderr, D and V included (through the host log
// switch).
TEST(Example, Options) {
    TempDir root;
    const std::vector<std::string> verbose = {"--frames", "1",         "--size",   "16x8",
                                              "--root",   root.path(), "--verbose"};
    // clang-format off
    ExpectRuns(kAlgoWrapper, {
        {{"--help"}, 0, "usage: algo_wrapper"},
        {verbose, 0, "ZOL D ", -1, {}, true},
        {verbose, 0, "ZOL V ", -1, {}, true},
        {{"--size", "321x241"}, 2, "--size 321x241: expected WxH, each even and 2 to 8192"},
        {{"--frames", "0"}, 2, "--frames 0: expected 1 to 100"},
        {{"--frames"}, 2, "--frames needs a value"},
        {{"--bogus"}, 2, "--bogus: not an option"},
        {{"--root", root.path()}, 2, "the first run saves", -1,
         {"persist.vendor.camera.capture.algosimulation.dump=2"}},
    });
    // clang-format on
}

// The README's commands that run the example or the tool, in order, in a fresh directory with
// both on PATH as the README says to put them.
TEST(Example, ReadmeCommandsRunAsWritten) {
    std::vector<std::string> commands;
    std::istringstream readme(ReadFile(ZOLTOOLS_README));
    for (std::string line; std::getline(readme, line);) {
        if (line.rfind("    zoltools ", 0) == 0 || line.rfind("    algo_wrapper ", 0) == 0) {
            commands.push_back(line.substr(4));
        }
    }
    ASSERT_GE(commands.size(), 5u);
    EXPECT_EQ(0u, commands[0].rfind("algo_wrapper", 0)) << "the example makes what the rest reads";
    TempDir dir;
    const auto dirOf = [](const std::string& p) { return p.substr(0, p.rfind('/')); };
    zoltest::RunOptions inDir;
    inDir.env = {"PATH=" + dirOf(kZoltools) + ":" + dirOf(kAlgoWrapper) + ":" + getenv("PATH")};
    inDir.cwd = dir.path();
    for (const std::string& command : commands) {
        auto run = zoltest::Run({"/bin/sh", "-c", command}, inDir);
        const bool noPressure =
            run.err.find("without pressure-stall information") != std::string::npos;
        EXPECT_TRUE(run.status == 0 || (run.status == 1 && noPressure)) << command << "\n"
                                                                        << run.err;
        EXPECT_NE("", run.out) << command;
    }
}

}  // namespace
