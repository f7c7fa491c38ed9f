// The zoltools program itself: help everywhere, and a clear message with a non-zero exit for
// bad input to every subcommand.
#include <gtest/gtest.h>

#include "fileio.h"
#include "toolstest.h"
#include "zoltest.h"

namespace {

using toolstest::Golden;
using toolstest::RunProgram;
using toolstest::ZoltoolsBinary;

TEST(Cli, HelpOnEverySubcommand) {
    auto top = RunProgram({ZoltoolsBinary(), "--help"});
    EXPECT_EQ(0, top.status);
    for (const char* sub : {"inspect", "convert", "log", "psi", "report"}) {
        EXPECT_NE(std::string::npos, top.out.find(sub)) << top.out;
        auto help = RunProgram({ZoltoolsBinary(), sub, "--help"});
        EXPECT_EQ(0, help.status) << sub;
        EXPECT_NE(std::string::npos, help.out.find(std::string("zoltools ") + sub)) << help.out;
    }
}

TEST(Cli, UsageErrorsExitWithTwo) {
    auto none = RunProgram({ZoltoolsBinary()});
    EXPECT_EQ(2, none.status);
    EXPECT_NE(std::string::npos, none.err.find("A subcommand is required")) << none.err;
    auto unknown = RunProgram({ZoltoolsBinary(), "inspect", "/tmp", "--colour"});
    EXPECT_EQ(2, unknown.status);
    auto noPath = RunProgram({ZoltoolsBinary(), "log"});
    EXPECT_EQ(2, noPath.status);
    EXPECT_NE(std::string::npos, noPath.err.find("PATH is required")) << noPath.err;
    auto badLevel = RunProgram({ZoltoolsBinary(), "log", Golden("log"), "--level", "Q"});
    EXPECT_EQ(2, badLevel.status);
    EXPECT_NE(std::string::npos, badLevel.err.find("'Q' is not a level")) << badLevel.err;
}

TEST(Cli, BadInputNamesTheFile) {
    toolstest::TempDir dir;
    const std::string missing = dir / "missing";
    struct Case {
        std::vector<std::string> args;
        std::string expected;
    };
    const Case cases[] = {
        {{"inspect", missing}, missing + ": no such directory"},
        {{"inspect", Golden("inspect/garbage")}, "is not a whole number of 40-byte records"},
        {{"convert", missing, dir / "x.png", "--size", "8x4"}, missing + ": no such file"},
        {{"convert", Golden("convert/frame_8x4.nv21"), dir / "x.png", "--size", "640x480"},
         "frame_8x4.nv21: 48 bytes, but an NV21 frame of 640x480 holds 460800"},
        {{"log", missing}, missing + ": no such file or directory"},
        {{"log", Golden("log")}, ":4: no \"MM-DD hh:mm:ss:nnnnnnnnn\" stamp"},
        {{"psi", "--dir", missing}, missing + "/cpu: missing"},
    };
    for (const Case& c : cases) {
        std::vector<std::string> argv = {ZoltoolsBinary()};
        argv.insert(argv.end(), c.args.begin(), c.args.end());
        auto result = RunProgram(argv);
        EXPECT_EQ(1, result.status) << c.args[0] << " " << c.args[1] << "\n" << result.err;
        EXPECT_NE(std::string::npos, result.err.find(c.expected))
            << c.args[0] << ": " << result.err;
        // The library's own log lines (stderr on a host) would only repeat the message.
        EXPECT_EQ(std::string::npos, result.err.find("failed open file path")) << result.err;
    }
}

TEST(Cli, PsiReadsTheThreeAverages) {
    zoltest::DeviceRoot root;
    const std::string dir = root.MakeDir("/pressure");
    root.WriteFile("/pressure/cpu", "some avg10=12.50 avg60=3.00 avg300=1.00 total=100\n");
    root.WriteFile("/pressure/memory",
                   "some avg10=0.25 avg60=0.00 avg300=0.00 total=1\n"
                   "full avg10=0.10 avg60=0.00 avg300=0.00 total=1\n");
    root.WriteFile("/pressure/io",
                   "full avg10=9.99 avg60=0 avg300=0 total=0\n"
                   "some avg10=1.50 avg60=0 avg300=0 total=0\n");
    auto once = RunProgram({ZoltoolsBinary(), "psi", "--dir", dir});
    ASSERT_EQ(0, once.status) << once.err;
    EXPECT_EQ("cpu  12.50%  memory   0.25%  io   1.50%  (some avg10)\n", once.out);

    auto twice =
        RunProgram({ZoltoolsBinary(), "psi", "--dir", dir, "--interval", "0.05", "-n", "2"});
    ASSERT_EQ(0, twice.status) << twice.err;
    EXPECT_EQ(2, std::count(twice.out.begin(), twice.out.end(), '\n')) << twice.out;

    root.WriteFile("/pressure/io", "nothing useful\n");
    auto noLine = RunProgram({ZoltoolsBinary(), "psi", "--dir", dir});
    EXPECT_EQ(1, noLine.status);
    EXPECT_NE(std::string::npos, noLine.err.find(dir + "/io: unreadable, or it has no"))
        << noLine.err;
}

TEST(Cli, ProgressLineOnlyOnATerminal) {
    toolstest::TempDir dir;
    auto result = RunProgram(
        {ZoltoolsBinary(), "inspect", Golden("inspect/algosimulation"), "--png", dir.path()});
    EXPECT_EQ(std::string::npos, result.err.find('\r')) << "stderr is a file here";
}

}  // namespace
