// The zoltools program as a user meets it: help everywhere; for every mistake a message naming
// the file or option and what is wrong, exit status 2 for options that make no sense and 1 for
// bad input; and bounded cost whatever a file claims or holds.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <functional>
#include <random>

#include "pngio.h"
#include "toolstest.h"

namespace {

using namespace toolstest;

void WritePressure(const std::string& dir, const std::string& io) {
    mkdir(dir.c_str(), 0755);
    WriteFile(dir + "/cpu", "some avg10=12.50 avg60=3.00 avg300=1.00 total=100\n");
    WriteFile(dir + "/memory", "some avg10=0.25 avg60=0 avg300=0 total=1\nfull avg10=0.10\n");
    WriteFile(dir + "/io", io);
}

TEST(Cli, SaysWhatIsWrong) {
    TempDir d;
    std::string error;
    ASSERT_TRUE(zoltool::WritePng(d / "picture.png", {8, 4, std::vector<uint8_t>(128, 90)}, error));
    WriteFile(d / "cut.png", ReadFile(d / "picture.png").substr(0, 40));
    WriteFile(d / "f_0x0.nv21", "");
    WriteFile(d / "noname.raw", "abc");
    WriteFile(d / "2x2.nv21", "y");
    mkfifo((d / "fifo").c_str(), 0600);
    WritePressure(d / "ok", "full avg10=9.99\nsome avg10=100.00 avg60=0 avg300=0 total=0\n");
    WritePressure(d / "none", "nothing useful\n");
    WritePressure(d / "nan", "some avg10=nan avg60=0\n");
    WritePressure(d / "negative", "some avg10=-5 avg60=0\n");
    WritePressure(d / "huge", "some avg10=1e20 avg60=0\n");
    const std::string frame = Golden("convert/frame_8x4.nv21");
    const std::string forged = Golden("convert/forged_");
    const std::string limits = "width and height must each be 1 to 16384";
    struct Case {
        std::vector<std::string> args;
        int status;
        std::string said;  // on stdout for status 0, on stderr otherwise
    } const cases[] = {
        {{"--help"}, 0, "inspect"},
        {{"--help"}, 0, "report"},
        {{"report", "--help"}, 0, "zoltools report"},
        {{"convert", "--help"}, 0, "--as-library"},
        {{"psi", "--dir", d / "ok"}, 0, "cpu  12.50%  memory   0.25%  io 100.00%  (some avg10)\n"},
        {{}, 2, "A subcommand is required"},
        {{"frobnicate"}, 2, "frobnicate is not a command (the commands: inspect, convert, log"},
        {{"inspect", "/tmp", "--colour"}, 2, "--colour"},
        {{"log", Golden("log"), "--level", ""}, 2, "--level needs at least one of E, W, D, I, V"},
        {{"log", Golden("log"), "--level", "Q"}, 2, "'Q' is not a level"},
        {{"psi", "--interval", "nan"}, 2, "--interval nan: expected seconds, more than 0"},
        {{"psi", "--interval", "0", "--count", "2"}, 2, "--interval 0: expected seconds"},
        {{"psi", "--interval", "1e9"}, 2, "at most 86400"},
        {{"psi", "--count", "2"}, 2, "--count needs --interval"},
        {{"psi", "--interval", "1", "--count", "0"}, 2, "--count 0: expected at least 1"},
        {{"psi", "--dir", d / "missing"}, 1, "missing/cpu: missing (a kernel without pressure-st"},
        {{"psi", "--dir", d / "none"}, 1, "none/io: unreadable, or it has no \"some avg10=\" line"},
        {{"psi", "--dir", d / "nan"}, 1, "nan/io: \"some avg10=\" is nan, not a percentage (0 to"},
        {{"psi", "--dir", d / "negative"}, 1, "negative/io: \"some avg10=\" is -5, not a percen"},
        {{"psi", "--dir", d / "huge"}, 1, "huge/io: \"some avg10=\" is 1e+20, not a percentage"},
        {{"inspect", d / "missing"}, 1, "missing: no such directory"},
        {{"inspect", d / "fifo"}, 1, "fifo: is a FIFO, not a directory"},
        {{"log", d / "missing"}, 1, "missing: no such file or directory"},
        {{"log", "/dev/zero"}, 1, "/dev/zero: is a character device, not a log file or folder"},
        {{"convert", d / "missing", d / "o.png"}, 1, "missing: no such file"},
        {{"convert", d.path(), d / "o.png"}, 1, ": is a directory"},
        {{"convert", "/dev/zero", d / "o.png"}, 1, "/dev/zero: is a character device, not a regu"},
        {{"convert", "/dev/stdin", d / "o.png"}, 1, "/dev/stdin: is a character device, not a re"},
        {{"convert", d / "fifo", d / "o.png"}, 1, "fifo: is a FIFO, not a regular file"},
        {{"convert", frame, frame}, 2, "frame_8x4.nv21 is the input itself: converting would ov"},
        {{"convert", frame, d / "o.nv21"}, 2, "o.nv21: the output of a raw NV21 frame is a PNG"},
        {{"convert", d / "picture.png", d / "o.png"}, 2, "output of a PNG is a raw NV21 frame"},
        {{"convert", d / "picture.png", d / "p_1920x1080.nv21"}, 2, "name says 1920x1080, but th"},
        {{"convert", frame, d / "o_640x480.png"}, 2, "its name says 640x480, but the frame is 8x4"},
        {{"convert", frame, d / "o.png", "--size", "2147483647x2"}, 2, "2147483647x2: width and h"},
        {{"convert", frame, d / "o.png", "--size", "0x0"}, 2, "--size 0x0: " + limits},
        {{"convert", frame, d / "o.png", "--size", "8by4"}, 2, "--size 8by4: expected WIDTHxHEI"},
        {{"convert", d / "f_0x0.nv21", d / "o.png"}, 1, "f_0x0.nv21: its name says 0x0, which is"},
        {{"convert", d / "noname.raw", d / "o.png"}, 1, "its name carries no WxH: give the size"},
        {{"convert", frame, d / "o.png", "--size", "8x6"}, 1, "48 bytes, but an NV21 frame of 8x6"},
        {{"convert", frame, d / "o_8x6.png", "--size", "8x6"},
         1,
         "72 (6 rows of luma and 3 rows of"},
        {{"convert", d / "2x2.nv21", d / "o.png"}, 1, "1 byte, but an NV21 frame of 2x2 holds 6"},
        {{"convert", d / "2x2.nv21", d / "o_2x2.png"}, 1, "(2 rows of luma and 1 row of chroma, 2"},
        {{"convert", d / "cut.png", d / "o.nv21"}, 1, "cut.png: "},
        {{"convert", forged + "huge.png", d / "o.nv21"}, 1, "claims 65534x32769, larger than the"},
        {{"convert", forged + "huge.png", d / "o_1x1.nv21"}, 1, "than the tool takes (" + limits},
        {{"convert", forged + "tiny.png", d / "o.nv21"}, 1, "16384x16384, which 69 bytes cannot"},
    };
    const std::string before = ReadFile(frame);
    for (const Case& c : cases) {
        std::vector<std::string> argv = {Zoltools()};
        argv.insert(argv.end(), c.args.begin(), c.args.end());
        auto run = RunProgram(argv);
        EXPECT_EQ(c.status, run.status) << c.said << "\n" << run.err;
        EXPECT_NE(std::string::npos, (c.status == 0 ? run.out : run.err).find(c.said)) << run.err;
        EXPECT_EQ(std::string::npos, run.err.find("ZOL ")) << "the library's lines repeat it";
    }
    EXPECT_EQ(before, ReadFile(frame));
    EXPECT_EQ("", ReadFile(d / "o.png") + ReadFile(d / "o.nv21")) << "refused: nothing written";
}

// A forged PNG header is refused before any pixel memory is taken (so with the address space
// capped at 250 MB too); 40 MB of garbage for a request file is streamed, and gets a
// screenful of output.
TEST(Cli, CostIsBoundedWhateverAFileClaimsOrHolds) {
    TempDir d;
    const std::string save = d / "SimulationIntputInfo_0101000000000";
    mkdir(save.c_str(), 0755);
    // Written a megabyte at a time: a child started by posix_spawn inherits this process's peak
    // memory in its figure.
    std::vector<uint64_t> words(1 << 17);
    std::mt19937_64 random(15);
    std::ofstream request(save + "/requestInfo.bin", std::ios::binary);
    for (int mb = 0; mb < 40; ++mb) {
        std::generate(words.begin(), words.end(), std::ref(random));
        request.write(reinterpret_cast<const char*>(words.data()), 1 << 20);
    }
    request.close();
    const std::string limit = kSanitized ? "" : "ulimit -v 250000 && ";
    auto png = RunProgram({"/bin/sh", "-c", limit + "exec \"$0\" \"$@\"", Zoltools(), "convert",
                           Golden("convert/forged_huge.png"), d / "out.nv21"});
    EXPECT_EQ(1, png.status) << png.err;
    EXPECT_NE(std::string::npos, png.err.find("larger than the tool takes")) << png.err;
    EXPECT_LT(png.cpuSeconds, 1.0);
    auto inspect = RunProgram({Zoltools(), "inspect", save});
    EXPECT_EQ(1, inspect.status);
    EXPECT_LE(CountLines(inspect.err), 11u) << inspect.err.substr(0, 2000);
    EXPECT_LE(CountLines(inspect.out), 25u) << inspect.out.substr(0, 2000);
    EXPECT_NE(std::string::npos, inspect.out.find("requestInfo.bin: 41943040 bytes, 1048576 re"));
    EXPECT_NE(std::string::npos, inspect.err.find("more problems not shown")) << inspect.err;
    for (long rssKb : {png.maxRssKb, inspect.maxRssKb}) {
        EXPECT_TRUE(kSanitized || rssKb < 64 * 1024) << rssKb << " KB";
    }
}

}  // namespace
