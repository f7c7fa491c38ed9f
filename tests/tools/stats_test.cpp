// The buffer pool's stats lines of a log: a table over time (`zoltools log --stats`) and a chart
// in the report.
#include <gtest/gtest.h>

#include "toolstest.h"

using namespace toolstest;

// Lines that are not stats lines, or break the format, give no row; a manager gets its column
// when first met and "-" where a line does not name it. The report draws a line per manager.
TEST(LogStats, StatsLinesBecomeATableAndAChart) {
    TempDir dir;
    const std::string stamp = "11-21 10:00:0";
    const std::string pool =
        "  1234  1235 I ZOL: [BufferPool] zolbuffermanager.cpp:143 LogStats() "
        "pool stats: busy heap=";
    dir.WriteFile("ZOLOfflineLog_2026-11-21--10-00-00-000000.txt",
                  stamp + "2:500000000" + pool +
                      "300 dma=4096; free heap=0 dma=0; peak heap=300 dma=4096; allocs=2 "
                      "reuses=0 releases=0; managers preview=4396\n" +
                      stamp + "1:000000000  1234  1235 I ZOL: [AlgoWrapper] frame 1\n" + stamp +
                      "3:000000000" + pool +
                      "0 dma=0; free heap=300 dma=4096; peak heap=300 dma=4096; allocs=2 "
                      "reuses=0 releases=0; managers capture=0 preview=0 +3\n" +
                      stamp + "4:000000000" + pool + "0 dma=0; free heap=300 dma=x\n");
    const RunResult run = Tool({"log", "--stats", dir.path()});
    EXPECT_EQ(0, run.status) << run.err;
    EXPECT_EQ(
        "              time   pid  busy-heap  busy-dma  free-heap  free-dma  peak-heap  peak-dma  "
        "allocs  reuses  releases  preview  capture\n"
        "11-21 10:00:02.500  1234        300      4096          0         0        300      4096  "
        "     2       0         0     4396        -\n"
        "11-21 10:00:03.000  1234          0         0        300      4096        300      4096  "
        "     2       0         0        0        0\n",
        run.out);
    ExpectRuns(kZoltools, {{{"log", "--stats", dir.path(), "--pid", "7"},
                            0,
                            "none of the 4 lines read is a pool stats line that passes the filters",
                            0,
                            {},
                            true}});
    ASSERT_EQ(0, Tool({"report", dir.path(), "-o", dir / "report"}).status);
    const std::string page = ReadFile(dir / "report/index.html");
    size_t lines = 0;
    for (size_t at = page.find("<polyline"); at != std::string::npos;
         at = page.find("<polyline", at + 1)) {
        ++lines;
    }
    EXPECT_EQ(2u, lines);
    EXPECT_NE(std::string::npos, page.find("1234 \xC2\xB7 preview (peak 4396 bytes)"));
}
