// End to end: the example wrapper saves, starts itself again in replay mode and compares every
// output (the suite's one save and replay across processes); zoltools reads what it left.
#include "toolstest.h"

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
    EXPECT_NE(frames[0], frames[1]) << "the library's odd rows take the chroma below: a tint";
    auto log = Tool({"log", root.path(), "--grep", "[AlgoWrapper]"});  // both processes wrote
    EXPECT_NE(std::string::npos, log.out.find("save frame 1 done")) << log.out;
    EXPECT_NE(std::string::npos, log.out.find("replay frame 1 done")) << log.out;
    run = zoltest::Run(
        {kAlgoWrapper, "--frames", "1", "--size", "16x8", "--root", root / "v", "--verbose"});
    EXPECT_NE(std::string::npos, run.err.find("ZOL V ")) << "--verbose: every library line";
}
