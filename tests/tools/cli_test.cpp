// The zoltools program as a user meets it: what it prints for the golden inputs, for every
// mistake a message naming the file or option and what is wrong, and what inspect makes of
// damaged save folders.
#include <sys/stat.h>
#include <unistd.h>

#include "pngio.h"
#include "toolstest.h"

using namespace toolstest;

namespace {

// A run's exit status and a text it printed: on stdout for status 0, on stderr otherwise, on
// either when `anywhere`.
struct Expected {
    std::vector<std::string> args;
    int status;
    std::string said;
    bool anywhere = false;
};

void ExpectRuns(const std::vector<Expected>& runs) {
    for (const Expected& e : runs) {
        std::vector<std::string> argv = {kZoltools};  // empty ones included
        argv.insert(argv.end(), e.args.begin(), e.args.end());
        const RunResult run = Run(argv);
        EXPECT_EQ(e.status, run.status) << e.said << "\n" << run.err;
        const std::string said = e.anywhere ? run.out + run.err : e.status == 0 ? run.out : run.err;
        EXPECT_NE(std::string::npos, said.find(e.said)) << e.said << "\n" << said.substr(0, 2000);
        // It says what is wrong once, in its own words, escaped; whatever a file claims or
        // holds, it streams it or refuses it before taking the memory.
        EXPECT_EQ(std::string::npos, run.err.find("ZOL ")) << "a library line: " << run.err;
        EXPECT_EQ(std::string::npos, (run.out + run.err).find('\x1b')) << e.said;
        EXPECT_TRUE(kSanitized || run.maxRssKb < 64 * 1024) << e.said << run.maxRssKb;
    }
}

}  // namespace

// Run where golden/ is at hand as "golden": each expected file holds stdout then stderr, or
// the file the command writes, or the pixels of the PNG it writes. The pixels of frames
// converted as the library converts are worked out from its formulas in make-golden.py.
TEST(Cli, GoldenOutputs) {
    struct Case {
        std::vector<std::string> args;
        int status;
        std::string expected, written;
    } const cases[] = {
        // clang-format off
        {{"log", "golden/log"}, 1, "log-expected.txt", ""},
        {{"log", "golden/hostile"}, 1, "hostile-expected.txt", ""},
        // Which texts are lines; the year of a line is its file's, or the next one for a line
        // of an earlier month (a file opened in December that runs into January).
        {{"log", "golden/stamps"}, 1, "stamps-expected.txt", ""},
        {{"log", "golden/log", "--level", "d, w"}, 1, "log-level-dw.txt", ""},
        {{"log", "golden/log", "--pid", "777"}, 1, "log-pid.txt", ""},
        {{"log", "golden/log", "--tid", "4243", "--tid", "4250", "--grep", "AlgoWrapper"}, 1,
         "log-tid-grep.txt", ""},
        {{"log", "golden/log", "--level", "E", "--grep", "AlgoWrapper"}, 1, "log-none.txt", ""},
        {{"inspect", "golden/inspect/algosimulation", "--png", "png", "--as-library"}, 1,
         "inspect-expected.txt", ""},
        {{"inspect", "golden/inspect/algosimulation", "--png", "png", "--as-library"}, 1,
         "convert/frame_8x4.rgba",
         "png/SimulationIntputInfo_1121101500123/inputFrameInfo_8x4_0_.png"},
        {{"convert", "golden/convert/frame_8x4.nv21", "o.png", "--as-library"}, 0,
         "convert/frame_8x4.rgba", "o.png"},
        {{"convert", "golden/convert/frame_5x3.nv21", "o.png", "--as-library"}, 0,
         "convert/frame_5x3.rgba", "o.png"},
        {{"log", "golden/trace", "--trace", "t.json"}, 0, "trace-expected-EWDIV.json", "t.json"},
        {{"log", "golden/trace", "--trace", "t.json", "--level", "EW"}, 0,
         "trace-expected-EW.json", "t.json"},
        // The pool's stats lines as a table: a manager's column from its first line, "-" where
        // a line does not name it; a line that breaks the format gives no row.
        {{"log", "--stats", "golden/stats"}, 0, "stats-expected.txt", ""},
        // clang-format on
    };
    for (const Case& c : cases) {
        TempDir dir;
        symlink(kGolden.c_str(), (dir / "golden").c_str());
        const RunResult run = Tool(c.args, {{}, dir.path()});
        EXPECT_EQ(c.status, run.status) << c.expected << "\n" << run.err;
        std::string said = c.written.empty() ? run.out + run.err : ReadFile(dir / c.written);
        zoltool::RgbaImage png;
        std::string error;
        if (c.written.find(".png") != std::string::npos) {
            EXPECT_TRUE(zoltool::ReadPng(dir / c.written, png, error)) << error;
            said.assign(png.pixels.begin(), png.pixels.end());
        }
        EXPECT_EQ(ReadFile(kGolden + c.expected), said) << c.expected;
    }
}

TEST(Cli, SaysWhatIsWrong) {
    TempDir d;  // outputs, which every case refuses to write, and a FIFO
    mkfifo((d / "fifo").c_str(), 0600);
    ZolRoot root;  // 40 MB of zeros for a request file: a million records of size 0x0
    const std::string zeros =
        root.Save("0101000000000", {{"requestInfo.bin", std::string(40 << 20, 0)}});
    const std::string in = kGolden + "cli/", psi = kGolden + "psi/",
                      forged = kGolden + "convert/forged_";
    const std::string frame = kGolden + "convert/frame_8x4.nv21";
    const std::string limits = "width and height must each be 1 to 16384";
    const std::string before = ReadFile(frame);
    // clang-format off
    ExpectRuns({
        {{"--help"}, 0, "inspect"},
        {{"report", "--help"}, 0, "zoltools report"},
        {{"psi", "--dir", psi + "ok"}, 0, "12.50%  memory   0.25%  io 100.00%  (some avg10)\n"},
        {{}, 2, "A subcommand is required"},
        {{"frobnicate"}, 2, "frobnicate is not a command (the commands: inspect, convert, log"},
        {{"inspect", "/tmp", "--colour"}, 2, "--colour"},
        {{"log", kGolden + "log", "--level", ""}, 2, "--level needs at least one of E, W, D, I, V"},
        {{"log", kGolden + "log", "--level", "Q"}, 2, "'Q' is not a level"},
        {{"psi", "--interval", "nan"}, 2, "--interval nan: expected seconds, more than 0"},
        {{"psi", "--interval", "1e9"}, 2, "at most 86400"},
        {{"psi", "--count", "2"}, 2, "--count needs --interval"},
        {{"psi", "--interval", "1", "--count", "0"}, 2, "--count 0: expected at least 1"},
        {{"psi", "--dir", psi + "missing"}, 1, "missing/cpu: missing (a kernel without pressu"},
        {{"psi", "--dir", psi + "none"}, 1, "none/io: unreadable, or it has no \"some avg10=\""},
        {{"psi", "--dir", psi + "nan"}, 1, "nan/io: \"some avg10=\" is nan, not a percentage"},
        {{"psi", "--dir", psi + "negative"}, 1, "negative/io: \"some avg10=\" is -5, not a percen"},
        {{"psi", "--dir", psi + "huge"}, 1, "huge/io: \"some avg10=\" is 1e+20, not a percentage"},
        {{"inspect", d / "missing"}, 1, "missing: no such directory"},
        {{"inspect", d / "fifo"}, 1, "fifo: is a FIFO, not a directory"},
        {{"log", d / "missing"}, 1, "missing: no such file or directory"},
        {{"log", "--stats", kGolden + "stats", "--pid", "7"}, 0, "none of the 4 lines read is a "
         "pool stats line that passes the filters", true},
        {{"log", "/dev/zero"}, 1, "/dev/zero: is a character device, not a log file or folder"},
        {{"convert", d / "missing", d / "o.png"}, 1, "missing: no such file"},
        {{"convert", d.path(), d / "o.png"}, 1, ": is a directory"},
        {{"convert", "/dev/zero", d / "o.png"}, 1, "/dev/zero: is a character device, not a regu"},
        {{"convert", d / "fifo", d / "o.png"}, 1, "fifo: is a FIFO, not a regular file"},
        {{"convert", frame, frame}, 2, "frame_8x4.nv21 is the input itself: converting would ov"},
        {{"convert", frame, d / "o.nv21"}, 2, "o.nv21: the output of a raw NV21 frame is a PNG"},
        {{"convert", in + "picture.png", d / "o.png"}, 2, "output of a PNG is a raw NV21 frame"},
        {{"convert", in + "picture.png", d / "p_1920x1080.nv21"}, 2, "name says 1920x1080, but th"},
        {{"convert", frame, d / "o_640x480.png"}, 2, "its name says 640x480, but the frame is 8x4"},
        {{"convert", frame, d / "o.png", "--size", "2147483647x2"}, 2, "2147483647x2: width and h"},
        {{"convert", frame, d / "o.png", "--size", "0x0"}, 2, "--size 0x0: " + limits},
        {{"convert", frame, d / "o.png", "--size", "8by4"}, 2, "--size 8by4: expected WIDTHxHEI"},
        {{"convert", in + "f_0x0.nv21", d / "o.png"}, 1, "f_0x0.nv21: its name says 0x0, which is"},
        {{"convert", in + "noname.raw", d / "o.png"}, 1, "its name carries no WxH: give the size"},
        {{"convert", frame, d / "o_8x6.png", "--size", "8x6"}, 1, "8x4.nv21: 48 bytes, but an NV21 "
         "frame of 8x6 holds 72 (6 rows of luma and 3 rows of chroma, 8 bytes each)\n"},
        {{"convert", in + "2x2.nv21", d / "o.png"}, 1, "2x2.nv21: 1 byte, but an NV21 frame of 2x2 "
         "holds 6 (2 rows of luma and 1 row of chroma, 2 bytes each)\n"},
        {{"convert", in + "cut.png", d / "o.nv21"}, 1, "cut.png: "},
        {{"convert", forged + "huge.png", d / "o_1x1.nv21"}, 1, "huge.png: its header claims "
         "65534x32769, larger than the tool takes (" + limits + ")\n"},
        {{"convert", forged + "tiny.png", d / "o.nv21"}, 1, "16384x16384, which 69 bytes cannot"},
        {{"report", d.MakeDir("empty"), "-o", d / "r"}, 1, "empty is empty: no offline log files"},
        {{"report", d.path(), "-o", d / "fifo/r"}, 1, "cannot write the report: " + d / "fifo/r"},
        {{"report", d / "none", "-o", d / "r"}, 1, d / "none: no such file or directory"},
        {{"report", d.path(), "-o", d / "r", "--from", "25:00"}, 2, "\"25:00\" is not a time"},
        {{"inspect", zeros}, 1, "requestInfo.bin: 41943040 bytes, 1048576 records\n", true},
        {{"inspect", zeros}, 1, "  15  0 NV21          0      0      0      0      0  0 0 0 0\n"
                                "  ... 1048560 more records", true},
        {{"inspect", zeros}, 1, "1048568 more problems not shown"},
    });
    // clang-format on
    EXPECT_EQ(before, ReadFile(frame));
    EXPECT_EQ("", ReadFile(d / "o.png") + ReadFile(d / "o.nv21")) << "refused: nothing written";
}

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
