// zoltools report (the page, read back by a real browser) and log --trace (read back by a
// JSON parser).
// GCC 12 with -fsanitize=address warns, wrongly, that std::regex's internals may be used
// uninitialised: a known false positive.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <iterator>
#include <regex>
#include <sstream>
#include <set>

#include "commands.h"
#include "fileio.h"
#include "pngio.h"
#include "simfolder.h"
#include "toolstest.h"
#include "zoltest.h"

namespace {

using toolstest::Capture;
using toolstest::RunProgram;
using toolstest::TempDir;

const char* kLogDir = "data/vendor/camera/offlinelog/";

void WriteText(const std::string& path, const std::string& text) {
    std::string error;
    ASSERT_TRUE(zoltool::MakeDirectories(path.substr(0, path.rfind('/')), error)) << error;
    ASSERT_TRUE(zoltool::WriteWholeFile(path, {text.begin(), text.end()}, error)) << error;
}

// A save folder of one 8x4 NV21 frame.
void WriteSaveFolder(const std::string& folder) {
    zoltool::RequestRecord r;
    r.width = 8, r.height = 4, r.planeStride = 8, r.sliceHeight = 4, r.numberOfPlanes = 2;
    const std::vector<uint8_t> records = zoltool::EncodeRequestInfo({r});
    WriteText(folder + "/requestInfo.bin", std::string(records.begin(), records.end()));
    WriteText(folder + "/inputFrameInfo_8x4_0_.yuv", std::string(48, '\x80'));
    WriteText(folder + "/database.bin", "db");
}

// "<group 1>/<group 2>" of every match of `pattern` in `text`.
std::set<std::string> Found(const std::string& text, const std::string& pattern) {
    std::set<std::string> found;
    const std::regex re(pattern);
    for (std::sregex_iterator m(text.begin(), text.end(), re), end; m != end; ++m) {
        found.insert((*m)[1].str() + "/" + (*m)[2].str());
    }
    return found;
}

// Debian's chromium, installed through tools/install-deps.sh when missing; empty when that fails.
std::string Chromium() {
    if (access("/usr/bin/chromium", X_OK) != 0) {
        auto install = RunProgram({"/bin/bash", ZOLTOOLS_INSTALL_DEPS, "chromium"});
        std::printf("installing chromium: exit %d\n%s", install.status, install.err.c_str());
    }
    return access("/usr/bin/chromium", X_OK) == 0 ? "/usr/bin/chromium" : "";
}

toolstest::Output Headless(const std::string& chromium, const std::vector<std::string>& args) {
    TempDir profile;
    std::vector<std::string> argv = {chromium, "--user-data-dir=" + profile.path()};
    std::istringstream flags(
        "--headless --no-sandbox --disable-gpu --disable-quic --no-first-run "
        "--disable-background-networking --disable-component-update --disable-sync");
    argv.insert(argv.end(), std::istream_iterator<std::string>(flags), {});
    argv.insert(argv.end(), args.begin(), args.end());
    return RunProgram(argv);
}

TEST(Report, BrowserShowsTheExampleRunAndRunsNothingFromTheFiles) {
    const std::string chromium = Chromium();
    if (chromium.empty()) {
        GTEST_SKIP() << "chromium is missing and tools/install-deps.sh could not install it";
    }
    if (toolstest::AlgoWrapper().empty()) {
        GTEST_SKIP() << "built without the example";
    }
    TempDir root;
    const std::string example = toolstest::AlgoWrapper();
    ASSERT_EQ(
        0, RunProgram({example, "--frames", "3", "--size", "64x48", "--root", root.path()}).status);
    // The threads and lines of the log as `zoltools log` prints them, and one line more that a
    // viewer must show as text, stamped as the last one, and one that the log cannot read.
    auto log = RunProgram({toolstest::Zoltools(), "log", root.path()});
    std::set<std::string> threads = Found(log.out, R"(\S+ \S+ +(\d+) +(\d+) [EWDIV] ZOL: )");
    threads.insert("4242/4243");
    const std::string logDir = root / kLogDir;
    const std::string file = logDir + zoltest::ListDir(logDir).back();
    WriteText(file, zoltest::ReadFile(file) +
                        log.out.substr(log.out.rfind('\n', log.out.size() - 2) + 1, 24) +
                        "  4242  4243 E ZOL: <script>alert(1)</script><img src=x "
                        "onerror=\"document.body.setAttribute('data-pwned',1)\">\n"
                        "not a line <b>x</b>\n");
    auto report =
        RunProgram({toolstest::Zoltools(), "report", root.path(), "-o", root / "report"});
    ASSERT_EQ(0, report.status) << report.err;

    auto dom = Headless(chromium, {"--dump-dom", "file://" + root / "report/index.html"});
    ASSERT_EQ(0, dom.status) << dom.err;
    const std::set<std::string> figures =
        Found(std::regex_replace(dom.out, std::regex("(\\d),(\\d)"), "$1$2"),
              R"re(data-figure="(\w+)"><div class="label">[^<]*</div><div class="value">(\d+)<)re");
    const std::set<std::string> expected = {
        "processes/3", "folders/3", "problems/1", "threads/" + std::to_string(threads.size()),
        "lines/" + std::to_string(std::count(log.out.begin(), log.out.end(), '\n') + 1)};
    for (const std::string& figure : expected) {
        EXPECT_EQ(1u, figures.count(figure)) << figure;
    }
    EXPECT_EQ(threads, Found(dom.out, R"re(<g class="lane" data-pid="(\d+)" data-tid="(\d+)")re"));
    EXPECT_EQ(3u, Found(dom.out, R"re(<img class="thumb" src="([^"]+)"())re").size());
    EXPECT_NE(std::string::npos, dom.out.find("class=\"event lv-E\""));
    EXPECT_NE(std::string::npos, dom.out.find("&lt;script&gt;alert(1)&lt;/script&gt;&lt;img"));
    EXPECT_NE(std::string::npos, dom.out.find("stamp at the start: \"not a line &lt;b&gt;x"));
    EXPECT_EQ(std::string::npos, dom.out.find("<script")) << "no element came from a file";
    EXPECT_EQ(std::string::npos, dom.out.find("data-pwned=")) << "no handler ran";

    const std::string shot = root / "shot.png";
    Headless(chromium, {"--screenshot=" + shot, "--window-size=1280,1400",
                        "file://" + root / "report/index.html"});
    zoltool::RgbaImage image;
    std::string error;
    ASSERT_TRUE(zoltool::ReadPng(shot, image, error)) << error;
    std::set<uint32_t> colours;
    for (size_t i = 0; i + 3 < image.pixels.size(); i += 4) {
        colours.insert(image.pixels[i] << 16 | image.pixels[i + 1] << 8 | image.pixels[i + 2]);
    }
    EXPECT_GT(colours.size(), 200u) << "text, marks and thumbnails, not a blank page";
}

TEST(Report, TraceIsOneEventPerLineOnItsThreadsTrack) {
    TempDir dir;
    WriteText(dir / "ZOLOfflineLog_2026-03-14--10-00-00-000000.txt",
              "03-14 10:00:00:000000000   100   101 I ZOL: start\n"
              "03-14 10:00:00:000002500   100   102 W ZOL: \"q\" \\ \t \xff<\n");
    WriteText(dir / "ZOLOfflineLog_2026-03-14--10-00-01-000000.txt",
              "03-14 10:00:01:000000000   200   201 E ZOL: late\n"
              "03-14 10:00:00:000001000   100   101 D ZOL: middle\n");
    // Each record as "<ph> <cat or name> <pid>/<tid> <ts> <text>" (tracks: "=<their name>").
    struct Case {
        std::string levels;
        std::vector<std::string> records;
    };
    const Case cases[] = {
        {"",
         {"M process_name 100/100=pid 100", "M process_name 200/200=pid 200",
          "M thread_name 100/101=101", "M thread_name 100/102=102", "M thread_name 200/201=201",
          "i I 100/101 0.0 start", "i D 100/101 1.0 middle", "i W 100/102 2.5 \"q\" \\ \t \\xFF<",
          "i E 200/201 1000000.0 late"}},
        {"EW",
         {"M process_name 100/100=pid 100", "M process_name 200/200=pid 200",
          "M thread_name 100/102=102", "M thread_name 200/201=201",
          "i W 100/102 0.0 \"q\" \\ \t \\xFF<", "i E 200/201 999997.5 late"}},
    };
    for (const Case& c : cases) {
        zoltool::LogOptions options;
        options.path = dir.path();
        options.filter.levels = c.levels;
        options.trace = dir / "t.json";
        auto run =
            Capture([&](const zoltool::Streams& io) { return zoltool::RunLog(options, io); });
        ASSERT_EQ(0, run.status) << run.err;
        std::vector<std::string> records;
        const auto json = nlohmann::json::parse(zoltest::ReadFile(options.trace));
        for (const auto& e : json.at("traceEvents")) {
            const std::string where = e["pid"].dump() + "/" + e["tid"].dump();
            records.push_back(e["ph"] == "M"
                                  ? "M " + e["name"].get<std::string>() + " " + where + "=" +
                                        e["args"]["name"].get<std::string>()
                                  : e["ph"].get<std::string>() + " " + e["cat"].get<std::string>() +
                                        " " + where + " " + e["ts"].dump() + " " +
                                        e["args"]["text"].get<std::string>());
        }
        EXPECT_EQ(c.records, records) << c.levels;
    }
}

TEST(Report, BadInputIsNamedAndEscaped) {
    TempDir dir;
    const std::string empty = dir / "empty", damaged = dir / "root";
    ASSERT_EQ(0, mkdir(empty.c_str(), 0755));
    WriteText(dir / "file", "");
    WriteText(damaged + "/" + kLogDir + "ZOLOfflineLog_2026-03-14--10-00-00-000000.txt",
              "03-14 10:00:00:000000000   100   101 I ZOL: fine\n<script>x</script>\n");
    const std::string base = damaged + "/data/vendor/camera/algosimulation/";
    WriteSaveFolder(base + "SimulationIntputInfo_0314100000000");
    WriteText(base + "SimulationIntputInfo_0314100000500/requestInfo.bin", std::string(41, '\0'));
    struct Case {
        std::string path, out, from;
        int status;
        bool inPage;  // else on stderr
        std::string text;
    };
    const Case cases[] = {
        {empty, dir / "out1", "", 1, false, empty + " is empty: no offline log files and no"},
        {empty, dir / "out1", "", 1, true,
         "<p id=\"empty\" class=\"empty\">" + empty + " is empty"},
        {empty, dir / "file/out", "", 1, false, "cannot write the report: " + dir / "file/out"},
        {dir / "none", dir / "out2", "", 1, false, dir / "none: no such file or directory"},
        {damaged, dir / "out3", "", 0, true,
         ":2: no &quot;MM-DD hh:mm:ss:nnnnnnnnn&quot; stamp at the "
         "start: &quot;&lt;script&gt;x&lt;/script&gt;&quot;"},
        {damaged, dir / "out3", "", 0, true, "41 bytes is not a whole number of 40-byte records"},
        {damaged, dir / "out3", "", 0, true, "0314100000500/database.bin: no such file"},
        {damaged, dir / "out3", "", 0, true, "class=\"card bad\" data-figure=\"problems\""},
        {damaged, dir / "out4", "10:00:01", 0, true, "Shown: 10:00:01.000 to"},
        {damaged, dir / "out4", "10:00:01", 0, true, "0 of 1 line."},
        {damaged, dir / "out5", "25:00", 2, false, "\"25:00\" is not a time"},
    };
    for (const Case& c : cases) {
        auto run = Capture([&](const zoltool::Streams& io) {
            return zoltool::RunReport({c.path, c.out, c.from, ""}, io);
        });
        EXPECT_EQ(c.status, run.status) << c.out << run.err;
        const std::string page = zoltest::ReadFile(c.out + "/index.html");
        EXPECT_NE(std::string::npos, (c.inPage ? page : run.err).find(c.text)) << c.text;
        EXPECT_EQ(std::string::npos, page.find("<script>x"));
    }
}

TEST(Report, ThreeHundredLogFilesAndManyFramesStayBounded) {
    TempDir root;
    for (int f = 0; f < 300; ++f) {
        char name[64], line[160];
        std::snprintf(name, sizeof(name), "ZOLOfflineLog_2026-03-14--10-%02d-%02d-000000.txt",
                      f / 60, f % 60);
        std::string text;
        for (int i = 0; i < 400; ++i) {  // 2.5 ms apart, 40 threads of 2 processes
            const uint64_t ms = (f * 400 + i) * 5 / 2;
            const char level = "EWDIV"[i % 97 == 0 ? 0 : i % 31 == 0 ? 1 : 2 + i % 3];
            std::snprintf(line, sizeof(line),
                          "03-14 10:%02d:%02d:%03d000000  %4d  %4d %c ZOL: [Algo] frame %d\n",
                          int(ms / 60000), int(ms / 1000 % 60), int(ms % 1000), 1000 + i % 40 / 20,
                          2000 + i % 40, level, f);
            text += line;
        }
        WriteText(root / kLogDir + name, text);
    }
    for (int s = 0; s < 50; ++s) {
        WriteSaveFolder(root / "data/vendor/camera/algosimulation/SimulationIntputInfo_03141000" +
                        std::to_string(10000 + s).substr(0, 5));
    }
    auto run = Capture([&](const zoltool::Streams& io) {
        return zoltool::RunReport({root.path(), root / "report", "", ""}, io);
    });
    ASSERT_EQ(0, run.status) << run.err;
    const std::string page = zoltest::ReadFile(root / "report/index.html");
    EXPECT_LT(page.size(), 5u << 20);
    EXPECT_EQ(
        40u,
        Found(
            page,
            R"re(<g class="lane" data-pid="(\d+)" data-tid="(\d+)" data-lines="3000" data-binned)re")
            .size());
    EXPECT_EQ(48u, Found(page, R"re(<img class="thumb" src="([^"]+)"())re").size());
    EXPECT_NE(std::string::npos,
              page.find("SimulationIntputInfo_0314100010048/inputFrameInfo_8x4_0_.yuv, "
                        "SimulationIntputInfo_0314100010049/inputFrameInfo_8x4_0_.yuv."));
}

}  // namespace
