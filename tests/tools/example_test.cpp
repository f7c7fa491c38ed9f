// End to end: the example wrapper saves, starts itself again in replay mode and compares every
// output (the suite's one save and replay across processes); zoltools reads what it left; the
// README's commands run as written and their page opens in a real browser.
#include <unistd.h>

#include <cstdlib>
#include <sstream>

#include "pngio.h"
#include "toolstest.h"

using namespace toolstest;

// Mean absolute difference between each even row and the odd row below it over the right half
// of the colour bars (flat colours in the scene): a row-to-row tint when 2 or more.
static double RowPairTint(const std::string& png) {
    zoltool::RgbaImage image;
    std::string error;
    EXPECT_TRUE(zoltool::ReadPng(png, image, error)) << error;
    const size_t row = size_t{image.width} * 4;
    double sum = 0;
    for (size_t r = 0; r + 1 < image.height * 2 / 3; r += 2) {
        for (size_t at = r * row + row / 2; at < (r + 1) * row; ++at) {
            sum += at % 4 == 3 ? 0 : std::abs(image.pixels[at] - image.pixels[at + row]);
        }
    }
    return sum / (image.height * 2 / 3 / 2) / (image.width / 2 * 3);
}

TEST(Example, SavesReplaysAndShowsItsFrames) {
    TempDir root;
    auto run =
        zoltest::Run({kAlgoWrapper, "--frames", "2", "--size", "64x48", "--root", root.path()});
    ASSERT_EQ(0, run.status) << run.out << run.err;
    EXPECT_NE(std::string::npos, run.out.find("2 saved, 2 replayed: every output identical"));
    EXPECT_EQ("", run.err) << "only warnings and errors reach stderr by default";
    EXPECT_NE(std::string::npos, run.out.find(kZoltools + " inspect " + root.path()))
        << "the summary's commands name the tool as it can be run";
    for (int lib = 0; lib < 2; ++lib) {  // the standard rendering, then the library's
        const std::string dir = root / (lib ? "lib" : "std");
        auto inspect = Tool({"inspect", root.path(), "--png", dir, lib ? "--as-library" : ""});
        ASSERT_EQ(0, inspect.status) << inspect.out << inspect.err;
        EXPECT_NE(std::string::npos, inspect.out.find("2 save folders, 0 problems")) << inspect.out;
        const std::string first = inspect.out.substr(0, inspect.out.find('\n'));
        const double tint = RowPairTint(dir + "/" + first + "inputFrameInfo_64x48_0_.png");
        EXPECT_EQ(lib == 1, tint >= 2) << "odd rows take the chroma below as the library does";
    }
    auto log = Tool({"log", root.path(), "--grep", "[AlgoWrapper]"});  // both processes wrote
    EXPECT_NE(std::string::npos, log.out.find("save frame 1 done")) << log.out;
    EXPECT_NE(std::string::npos, log.out.find("replay frame 1 done")) << log.out;
    run = zoltest::Run(
        {kAlgoWrapper, "--frames", "1", "--size", "16x8", "--root", root / "v", "--verbose"});
    for (const char* level : {"ZOL D ", "ZOL V "}) {
        EXPECT_NE(std::string::npos, run.err.find(level)) << "--verbose: every library line";
    }
}

// The README's commands that run the example or the tool, in order, with both on PATH as the
// README says; then the page they wrote, as headless chromium builds it.
TEST(Example, ReadmeCommandsRunAsWrittenAndTheirPageShowsTheRun) {
    std::istringstream readme(ReadFile(ZOLTOOLS_README));
    TempDir dir;
    const auto dirOf = [](const std::string& p) { return p.substr(0, p.rfind('/')); };
    RunOptions inDir{
        {"PATH=" + dirOf(kZoltools) + ":" + dirOf(kAlgoWrapper) + ":" + getenv("PATH")},
        dir.path()};
    int commands = 0;
    for (std::string line; std::getline(readme, line);) {
        if (line.rfind("    zoltools ", 0) == 0 || line.rfind("    algo_wrapper ", 0) == 0) {
            auto run = zoltest::Run({"/bin/sh", "-c", line.substr(4)}, inDir);
            const bool noPsi = run.err.find("without pressure-stall") != std::string::npos;
            EXPECT_TRUE(run.status == 0 || (run.status == 1 && noPsi)) << line << "\n" << run.err;
            EXPECT_NE("", run.out) << line;
            ++commands;
        }
    }
    ASSERT_GE(commands, 7);
    if (access("/usr/bin/chromium", X_OK) != 0) {
        GTEST_SKIP() << "no /usr/bin/chromium (tools/install-deps.sh installs it)";
    }
    TempDir profile;
    auto dom = zoltest::Run({"/usr/bin/chromium", "--headless", "--no-sandbox", "--disable-gpu",
                             "--user-data-dir=" + profile.path(), "--dump-dom",
                             "file://" + dir / "zol-root/report/index.html"});
    ASSERT_EQ(0, dom.status) << dom.err;
    for (const char* shown : {"data-figure=\"lines\"", "<g class=\"lane\"", "<img class=\"thumb\"",
                              "id=\"problems\"", "id=\"chart-memory\""}) {
        EXPECT_NE(std::string::npos, dom.out.find(shown)) << shown;
    }
}
