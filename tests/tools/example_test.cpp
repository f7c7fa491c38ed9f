// End to end: the example wrapper saves, starts itself again in replay mode and compares every
// output (the suite's one save and replay across processes); zoltools reads what it left; and
// every README command that runs either of them runs as written.
#include <cstdlib>
#include <sstream>

#include "toolstest.h"

namespace {

using namespace toolstest;

TEST(Example, SavesReplaysAndShowsItsFrames) {
    TempDir root;
    auto run =
        zoltest::Run({kAlgoWrapper, "--frames", "2", "--size", "64x48", "--root", root.path()});
    ASSERT_EQ(0, run.status) << run.out << run.err;
    EXPECT_NE(std::string::npos, run.out.find("2 saved, 2 replayed: every output identical"));
    EXPECT_EQ("", run.err) << "only warnings and errors reach stderr by default";
    EXPECT_NE(std::string::npos, run.out.find(kZoltools + " inspect " + root.path()))
        << "the summary's commands name the tool as it can be run";
    std::string frames[2];  // the first frame rendered in the standard way, then as the library
    for (int lib = 0; lib < 2; ++lib) {
        const std::string dir = root / (lib ? "lib" : "std");
        auto inspect = Tool({"inspect", root.path(), "--png", dir, lib ? "--as-library" : ""});
        ASSERT_EQ(0, inspect.status) << inspect.out << inspect.err;
        EXPECT_NE(std::string::npos, inspect.out.find("2 save folders, 0 problems")) << inspect.out;
        const std::string first = inspect.out.substr(0, inspect.out.find('\n'));
        frames[lib] = ReadFile(dir + "/" + first + "inputFrameInfo_64x48_0_.png");
    }
    EXPECT_NE("", frames[0]);
    EXPECT_NE(frames[0], frames[1]) << "the library's odd rows take the chroma below: a tint";
    auto log = Tool({"log", root.path(), "--grep", "[AlgoWrapper]"});  // both processes wrote
    EXPECT_NE(std::string::npos, log.out.find("save frame 1 done")) << log.out;
    EXPECT_NE(std::string::npos, log.out.find("replay frame 1 done")) << log.out;
}

// Options, and --verbose: every library line on stderr, V included (through the host log
// switch).
TEST(Example, Options) {
    TempDir root;
    const std::vector<std::string> verbose = {"--frames", "1",         "--size",   "16x8",
                                              "--root",   root.path(), "--verbose"};
    // clang-format off
    ExpectRuns(kAlgoWrapper, {
        {{"--help"}, 0, "usage: algo_wrapper"},
        {verbose, 0, "ZOL V ", {}, true},
        {{"--size", "321x241"}, 2, "--size 321x241: expected WxH, each even and 2 to 8192"},
        {{"--frames", "0"}, 2, "--frames 0: expected 1 to 100"},
        {{"--frames"}, 2, "--frames needs a value"},
        {{"--bogus"}, 2, "--bogus: not an option"},
        {{"--root", root.path()}, 2, "the first run saves",
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
