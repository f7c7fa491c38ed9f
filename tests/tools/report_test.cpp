// zoltools report: the page as a real browser reads it, bad input, and a large root.
// GCC 12 with -fsanitize=address warns, wrongly, that std::regex's internals may be used
// uninitialised: a known false positive.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"

#include <unistd.h>

#include <regex>
#include <set>

#include "toolstest.h"

namespace {

using namespace toolstest;

// "<group 1>/<group 2>" of every match of `pattern` in `text`.
std::set<std::string> Found(const std::string& text, const std::string& pattern) {
    std::set<std::string> found;
    const std::regex re(pattern);
    for (std::sregex_iterator m(text.begin(), text.end(), re), end; m != end; ++m) {
        found.insert((*m)[1].str() + "/" + (*m)[2].str());
    }
    return found;
}
const std::string kLane = R"re(<g class="lane" data-pid="(\d+)" data-tid="(\d+)")re";
const std::string kThumb = R"re(<img class="thumb" src="([^"]+)"())re";

TEST(Report, BrowserShowsTheExampleRunAndRunsNothingFromTheFiles) {
    if (access("/usr/bin/chromium", X_OK) != 0 || kAlgoWrapper.empty()) {
        GTEST_SKIP() << "needs Debian's chromium (tools/install-deps.sh) and the example";
    }
    ZolRoot root;
    ASSERT_EQ(
        0, zoltest::Run({kAlgoWrapper, "--frames", "3", "--size", "64x48", "--root", root.path()})
               .status);
    // The threads and lines of the log as `zoltools log` prints them, and one line more that a
    // viewer must show as text, stamped as the last one, and one that the log cannot read.
    auto log = Tool({"log", root.path()});
    std::set<std::string> threads = Found(log.out, R"(\S+ \S+ +(\d+) +(\d+) [EWDIV] ZOL: )");
    threads.insert("4242/4243");
    const std::string file = ZolRoot::kLogs + ListDir(root / ZolRoot::kLogs).back();
    root.WriteFile(file, ReadFile(root / file) +
                             log.out.substr(log.out.rfind('\n', log.out.size() - 2) + 1, 24) +
                             "  4242  4243 E ZOL: <script>alert(1)</script><img src=x "
                             "onerror=\"document.body.setAttribute('data-pwned',1)\">\n"
                             "not a line <b>x</b>\n");
    ASSERT_EQ(0, Tool({"report", root.path(), "-o", root / "report"}).status);

    TempDir profile;
    auto dom = zoltest::Run({"/usr/bin/chromium", "--user-data-dir=" + profile.path(), "--headless",
                             "--no-sandbox", "--disable-gpu", "--no-first-run", "--disable-sync",
                             "--disable-background-networking", "--disable-component-update",
                             "--dump-dom", "file://" + root / "report/index.html"});
    ASSERT_EQ(0, dom.status) << dom.err;
    const std::set<std::string> figures =
        Found(std::regex_replace(dom.out, std::regex("(\\d),(\\d)"), "$1$2"),
              R"re(data-figure="(\w+)"><div class="label">[^<]*</div><div class="value">(\d+)<)re");
    for (const std::string& figure : std::vector<std::string>{
             "processes/3", "folders/3", "problems/1", "threads/" + std::to_string(threads.size()),
             "lines/" + std::to_string(std::count(log.out.begin(), log.out.end(), '\n') + 1)}) {
        EXPECT_EQ(1u, figures.count(figure)) << figure;
    }
    EXPECT_EQ(threads, Found(dom.out, kLane));
    EXPECT_EQ(3u, Found(dom.out, kThumb).size());
    EXPECT_NE(std::string::npos, dom.out.find("class=\"event lv-E\""));
    EXPECT_NE(std::string::npos, dom.out.find("&lt;script&gt;alert(1)&lt;/script&gt;&lt;img"));
    EXPECT_NE(std::string::npos, dom.out.find("stamp at the start: \"not a line &lt;b&gt;x"));
    EXPECT_EQ(std::string::npos, dom.out.find("<script")) << "no element came from a file";
    EXPECT_EQ(std::string::npos, dom.out.find("data-pwned=")) << "no handler ran";
}

TEST(Report, BadInputIsNamedAndEscaped) {
    TempDir dir;
    const std::string empty = dir.MakeDir("empty"), file = dir.WriteFile("file", "");
    ZolRoot root;
    const std::string damaged = root.path();
    root.WriteFile(ZolRoot::kLogs + std::string("ZOLOfflineLog_2026-03-14--10-00-00-000000.txt"),
                   "03-14 10:00:00:000000000   100   101 I ZOL: fine\n<script>x</script>\n");
    root.Save("0314100000000");
    root.Save("0314100000500", {{"requestInfo.bin", std::string(41, '\0')}});
    struct Case {
        std::string path, out, from;
        int status;
        bool inPage;  // else on stderr
        std::string text;
    } const cases[] = {
        // clang-format off
        {empty, dir / "out1", "", 1, false, empty + " is empty: no offline log files and no"},
        {empty, dir / "out1", "", 1, true, "<p id=\"empty\" class=\"empty\">" + empty + " is em"},
        {empty, file + "/out", "", 1, false, "cannot write the report: " + file + "/out"},
        {dir / "none", dir / "out2", "", 1, false, dir / "none: no such file or directory"},
        {damaged, dir / "out3", "", 0, true, "start: &quot;&lt;script&gt;x&lt;/script&gt;&quot;"},
        {damaged, dir / "out3", "", 0, true, "41 bytes is not a whole number of 40-byte records"},
        {damaged, dir / "out3", "", 0, true, "class=\"card bad\" data-figure=\"problems\""},
        {damaged, dir / "out4", "10:00:01", 0, true, "Shown: 10:00:01.000 to"},
        {damaged, dir / "out4", "10:00:01", 0, true, "0 of 1 line."},
        {damaged, dir / "out5", "25:00", 2, false, "\"25:00\" is not a time"},
        // clang-format on
    };
    for (const Case& c : cases) {
        auto run = Tool({"report", c.path, "-o", c.out, c.from.empty() ? "" : "--from", c.from});
        EXPECT_EQ(c.status, run.status) << c.out << run.err;
        const std::string page = ReadFile(c.out + "/index.html");
        EXPECT_NE(std::string::npos, (c.inPage ? page : run.err).find(c.text)) << c.text;
        EXPECT_EQ(std::string::npos, page.find("<script>x"));
    }
}

TEST(Report, ThreeHundredLogFilesAndManyFramesStayBounded) {
    ZolRoot root;
    for (int f = 0; f < 300; ++f) {
        char name[128], line[160];
        std::snprintf(name, sizeof(name), "%sZOLOfflineLog_2026-03-14--10-%02d-%02d-000000.txt",
                      ZolRoot::kLogs, f / 60, f % 60);
        std::string text;
        for (int i = 0; i < 400; ++i) {  // 2.5 ms apart, 40 threads of 2 processes
            const uint64_t ms = (f * 400 + i) * 5 / 2;
            std::snprintf(line, sizeof(line),
                          "03-14 10:%02d:%02d:%03d000000  %4d  %4d %c ZOL: [Algo] frame %d\n",
                          int(ms / 60000), int(ms / 1000 % 60), int(ms % 1000), 1000 + i % 40 / 20,
                          2000 + i % 40, "EWDIV"[i % 5], f);
            text += line;
        }
        root.WriteFile(name, text);
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

}  // namespace
