// End to end: the example wrapper saves, starts itself again in replay mode and compares every
// output (the suite's one save and replay across processes); zoltools reads what it left; and
// every README command that runs either of them runs as written.
#include <gtest/gtest.h>

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
    double sum = 0;
    size_t n = 0;
    for (uint32_t r = 0; r + 1 < image.height * 2 / 3; r += 2) {
        for (uint32_t k = image.width / 2; k < image.width; ++k) {
            for (uint32_t c = 0; c < 3; ++c) {
                const size_t at = (size_t{r} * image.width + k) * 4 + c;
                sum += std::abs(image.pixels[at] - image.pixels[at + size_t{image.width} * 4]);
                ++n;
            }
        }
    }
    return sum / static_cast<double>(n);
}

TEST(Example, SavesReplaysAndShowsItsFramesAsTheyAre) {
    TempDir root;
    auto run =
        RunProgram({AlgoWrapper(), "--frames", "2", "--size", "64x48", "--root", root.path()});
    ASSERT_EQ(0, run.status) << run.out << run.err;
    EXPECT_NE(std::string::npos, run.out.find("2 saved, 2 replayed: every output identical"))
        << run.out;
    EXPECT_EQ("", run.err) << "only warnings and errors reach stderr by default";
    EXPECT_NE(std::string::npos, run.out.find(Zoltools() + " inspect " + root.path()))
        << "the summary's commands name the tool as it can be run";

    for (auto [dir, tinted] : {std::pair{"std", false}, {"lib", true}}) {
        std::vector<std::string> argv = {Zoltools(), "inspect", root.path(), "--png", root / dir};
        if (tinted) {
            argv.push_back("--as-library");
        }
        auto inspect = RunProgram(argv);
        ASSERT_EQ(0, inspect.status) << inspect.out << inspect.err;
        EXPECT_NE(std::string::npos, inspect.out.find("2 save folders, 0 problems")) << inspect.out;
        const std::string folder = inspect.out.substr(0, inspect.out.find('\n'));  // the first
        zoltool::RgbaImage image;
        std::string error;
        ASSERT_TRUE(zoltool::ReadPng(root / dir + "/" + folder + "inputFrameInfo_64x48_0_.png",
                                     image, error))
            << error;
        EXPECT_EQ(tinted, RowPairTint(image) >= 2) << dir << " " << RowPairTint(image);
    }

    // Both processes wrote to the offline log.
    auto log = RunProgram({Zoltools(), "log", root.path(), "--grep", "[AlgoWrapper]"});
    ASSERT_EQ(0, log.status) << log.err;
    for (const char* who : {"save frame 1 done", "replay frame 1 done"}) {
        EXPECT_NE(std::string::npos, log.out.find(who)) << log.out;
    }
}

// Options, and --verbose: every library line on stderr, D and V included (through the host log
// switch).
TEST(Example, Options) {
    TempDir root;
    const std::vector<std::string> verbose = {"--frames", "1",         "--size",   "16x8",
                                              "--root",   root.path(), "--verbose"};
    struct Case {
        std::vector<std::string> args;
        std::string env;
        int status;
        std::string said;  // on stdout or stderr
    } const cases[] = {
        {{"--help"}, "", 0, "usage: algo_wrapper"},
        {verbose, "", 0, "ZOL D "},
        {verbose, "", 0, "ZOL V "},
        {{"--size", "321x241"}, "", 2, "--size 321x241: expected WxH, each even and 2 to 8192"},
        {{"--frames", "0"}, "", 2, "--frames 0: expected 1 to 100"},
        {{"--frames"}, "", 2, "--frames needs a value"},
        {{"--bogus"}, "", 2, "--bogus: not an option"},
        {{"--root", root.path()},
         "persist.vendor.camera.capture.algosimulation.dump=2",
         2,
         "the first run saves"},
    };
    for (const Case& c : cases) {
        std::vector<std::string> argv = {AlgoWrapper()};
        argv.insert(argv.end(), c.args.begin(), c.args.end());
        if (!c.env.empty()) {
            argv.insert(argv.begin(), {"/usr/bin/env", c.env});
        }
        auto run = RunProgram(argv);
        EXPECT_EQ(c.status, run.status) << c.said << "\n" << run.err;
        EXPECT_NE(std::string::npos, (run.out + run.err).find(c.said)) << run.err;
    }
}

// The README's commands that run the example or the tool, in order, in a fresh directory with
// both on PATH as the README says to put them.
TEST(Example, ReadmeCommandsRunAsWritten) {
    std::vector<std::string> commands;
    std::istringstream readme(ReadFile(ZOLTOOLS_README));
    for (std::string line; std::getline(readme, line);) {
        for (const char* program : {"    zoltools ", "    algo_wrapper "}) {
            if (line.rfind(program, 0) == 0) {
                commands.push_back(line.substr(4));
            }
        }
    }
    ASSERT_GE(commands.size(), 5u);
    EXPECT_EQ(0u, commands[0].rfind("algo_wrapper", 0)) << "the example makes what the rest reads";
    TempDir dir;
    const auto dirOf = [](const std::string& p) { return p.substr(0, p.rfind('/')); };
    const std::string path =
        "PATH=" + dirOf(Zoltools()) + ":" + dirOf(AlgoWrapper()) + ":" + std::getenv("PATH");
    for (const std::string& command : commands) {
        auto run = RunProgram({"/usr/bin/env", path, "/bin/sh", "-c", command}, dir.path());
        const bool noPressure =
            run.err.find("without pressure-stall information") != std::string::npos;
        EXPECT_TRUE(run.status == 0 || (run.status == 1 && noPressure)) << command << "\n"
                                                                        << run.err;
        EXPECT_NE("", run.out) << command;
    }
}

}  // namespace
