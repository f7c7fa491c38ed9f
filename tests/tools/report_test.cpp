// zoltools report: what the page shows, and a large root.
// GCC 12 with -fsanitize=address warns, wrongly, that std::regex's internals may be used
// uninitialised: a known false positive.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"

#include <regex>
#include <set>

#include "toolstest.h"

using namespace toolstest;

// "<group 1>/<group 2>" of every match of `pattern` in `text`.
static std::set<std::string> Found(const std::string& text, const std::string& pattern) {
    std::set<std::string> found;
    const std::regex re(pattern);
    for (std::sregex_iterator m(text.begin(), text.end(), re), end; m != end; ++m) {
        found.insert((*m)[1].str() + "/" + (*m)[2].str());
    }
    return found;
}
const std::string kLane = R"re(<g class="lane" data-pid="(\d+)" data-tid="(\d+)")re";
const std::string kThumb = R"re(<img class="thumb" src="([^"]+)"())re";

// A root with a hostile line, an unreadable one and a damaged save: the page names them and
// shows them as text, with its figures, lanes and thumbnails.
TEST(Report, ShowsDamagedAndHostileInputAsText) {
    ZolRoot root;
    root.WriteFile(ZolRoot::kLogs + std::string("ZOLOfflineLog_2026-03-14--10-00-00-000000.txt"),
                   "03-14 10:00:00:000000000   100   101 I ZOL: fine\n"
                   "03-14 10:00:00:500000000   100   102 E ZOL: <script>alert(1)</script><img "
                   "src=x onerror=\"document.body.setAttribute('data-pwned',1)\">\n"
                   "<script>x</script>\n"
                   "03-14 10:00:01:000000000   200   201 W ZOL: late\n");
    root.Save("0314100000000");
    root.Save("0314100000500", {{"requestInfo.bin", std::string(41, '\0')}});
    TempDir empty;
    struct Case {
        std::string path, from;
        int status;
        std::string text;  // in the page
    } const cases[] = {
        {empty.path(), "", 1, "<p id=\"empty\" class=\"empty\">" + empty.path() + " is empty: it"},
        {root.path(), "03-14 10:00:01", 0, "10:00:01.000 to 10:00:01.001 (--from / --to), 1 of 3"},
        {root.path(), "10:00:01", 0, "10:00:01.000 to 10:00:01.001 (--from / --to), 1 of 3"},
        {root.path(), "01-01 00:00:00", 0, "), 0 of 3 lines."},  // next year's: after them all
        {root.path(), "12-31 23:59:59", 0, "), 0 of 3 lines."},
        {root.path(), "", 0, "start: &quot;&lt;script&gt;x&lt;/script&gt;&quot;"},
        {root.path(), "", 0, "&lt;script&gt;alert(1)&lt;/script&gt;&lt;img"},
        {root.path(), "", 0, "41 bytes is not a whole number of 40-byte records"},
        {root.path(), "", 0, "class=\"card bad\" data-figure=\"problems\""},
    };
    for (const Case& c : cases) {
        auto run =
            Tool({"report", c.path, "-o", root / "out", c.from.empty() ? "" : "--from", c.from});
        EXPECT_EQ(c.status, run.status) << run.err;
        const std::string page = ReadFile(root / "out/index.html");
        EXPECT_NE(std::string::npos, page.find(c.text)) << c.text;
    }
    const std::string page = ReadFile(root / "out/index.html");  // the last case's, whole
    EXPECT_EQ(
        std::set<std::string>(
            {"files/1", "folders/2", "lines/3", "problems/4", "processes/2", "threads/3"}),
        Found(
            page,
            R"re(data-figure="(\w+)"><div class="label">[^<]*</div><div class="value">(\d+)<)re"));
    EXPECT_EQ(std::set<std::string>({"100/101", "100/102", "200/201"}), Found(page, kLane));
    EXPECT_EQ(1u, Found(page, kThumb).size());
    EXPECT_NE(std::string::npos, page.find("class=\"event lv-E\""));
    // The page runs no script, and no markup comes from a file.
    EXPECT_EQ(std::string::npos, page.find("<script"));
    EXPECT_EQ(std::string::npos, page.find("onerror=\""));
}

TEST(Report, ThreeHundredLogFilesAndManyFramesStayBounded) {
    ZolRoot root;
    for (int f = 0; f < 300; ++f) {
        std::string text;
        char line[128];
        for (int i = 0; i < 400; ++i) {  // 2.5 ms apart, 40 threads of 2 processes
            const int ms = (f * 400 + i) * 5 / 2;
            std::snprintf(line, sizeof(line), "03-14 10:%02d:%02d:%03d000000  %4d  %4d %c ZOL: x\n",
                          ms / 60000, ms / 1000 % 60, ms % 1000, 1000 + i % 40 / 20, 2000 + i % 40,
                          "EWDIV"[i % 5]);
            text += line;
        }
        std::snprintf(line, sizeof(line), "ZOLOfflineLog_2026-03-14--10-%02d-%02d-000000.txt",
                      f / 60, f % 60);
        root.WriteFile(ZolRoot::kLogs + std::string(line), text);
    }
    for (int s = 10000; s < 10050; ++s) {
        root.Save("03141000" + std::to_string(s));
    }
    auto run = Tool({"report", root.path(), "-o", root / "report"});
    ASSERT_EQ(0, run.status) << run.err;
    const std::string page = ReadFile(root / "report/index.html");
    EXPECT_LT(page.size(), 5u << 20);
    EXPECT_EQ(40u, Found(page, kLane + R"re( data-lines="3000" data-binned)re").size());
    EXPECT_EQ(48u, Found(page, kThumb).size());
    EXPECT_NE(std::string::npos,
              page.find("SimulationIntputInfo_0314100010048/inputFrameInfo_8x4_0_.yuv, "
                        "SimulationIntputInfo_0314100010049/inputFrameInfo_8x4_0_.yuv."));
}

// The pool's stats lines: one chart line of busy bytes per process and manager, named.
TEST(Report, DrawsBusyBytesPerManager) {
    TempDir dir;
    ASSERT_EQ(0, Tool({"report", kGolden + "stats", "-o", dir / "r"}).status);
    const std::string page = ReadFile(dir / "r/index.html");
    EXPECT_EQ(2u, Found(page, R"re(<(polyline) fill="none" stroke="([^"]+)")re").size());
    EXPECT_EQ(std::set<std::string>(
                  {"1234 \xC2\xB7 capture/0 bytes", "1234 \xC2\xB7 preview/4396 bytes"}),
              Found(page, R"re(<text x="\d+" y="\d+">([^<(]*) \(peak ([^)]*)\)</text>)re"));
}
