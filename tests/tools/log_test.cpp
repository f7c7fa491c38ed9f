// Offline log lines: parsing the stamp, merging files in stamp order, filters, damaged and
// hostile lines, following.
#include <gtest/gtest.h>

#include "offlinelog.h"
#include "toolstest.h"

using namespace toolstest;

// Which texts are lines, and the year of those that are (the file's, or the next one for a
// file opened in December that runs into January).
TEST(LogLine, WhatIsALine) {
    struct Case {
        std::string text;
        int fileYear, fileMonth;
        int year;  // 0: not a line
    } const cases[] = {
        {"03-07 09:05:07:042000123  1234  1235 E ZOL: ", 2026, 3, 2026},
        {"01-01 00:00:00:000000001  1000  1001 I ZOL: new year", 2026, 12, 2027},
        {"", 2026, 3, 0},
        {"03-07 09:05:07:04200012  1234  1235 E ZOL: eight-digit nanoseconds", 2026, 3, 0},
        {"13-07 09:05:07:042000123  1234  1235 E ZOL: month 13", 2026, 3, 0},
        {"03-07 24:05:07:042000123  1234  1235 E ZOL: hour 24", 2026, 3, 0},
        {"03-07 09:05:07:042000123 1234  1235 E ZOL: one blank before the pid", 2026, 3, 0},
        {"03-07 09:05:07:042000123  1234  1235 X ZOL: level X", 2026, 3, 0},
        {"03-07 09:05:07:042000123  1234  1235 E LOG: another tag", 2026, 3, 0},
        {"03-07 09:05:07:042000123  1234", 2026, 3, 0},
        {"02-30 10:00:00:000000000  1234  1235 I ZOL: no 30 February", 2026, 2, 0},
        {"04-31 10:00:00:000000000  1234  1235 I ZOL: no 31 April", 2026, 4, 0},
        {"02-29 10:00:00:000000000  1234  1235 I ZOL: 2026 is no leap year", 2026, 2, 0},
        {"02-29 10:00:00:000000000  1234  1235 I ZOL: 2028 is", 2028, 2, 2028},
        {"02-29 10:00:00:000000000  1234  1235 I ZOL: from 2027-12: 2028", 2027, 12, 2028},
        {"12-31 23:59:60:999999999  1234  1235 I ZOL: leap second", 2026, 12, 2026},
    };
    for (const Case& c : cases) {
        zoltool::LogLine line;
        std::string reason;
        EXPECT_EQ(c.year != 0, zoltool::ParseLogLine(c.text, c.fileYear, c.fileMonth, line, reason))
            << c.text;
        EXPECT_EQ(c.year, c.year != 0 ? line.stamp.year : 0) << c.text;
        EXPECT_EQ(c.year != 0, reason.empty()) << c.text;
    }
}

// Two files merged in stamp order, the filters, and damaged lines named and counted (a skipped
// line fails the run); hostile ones (golden/hostile) escaped and whole, cut ones split, and a
// file of garbage shown as a few lines and a count.
TEST(Log, MergeFiltersAndDamagedLines) {
    const std::string g = kGolden + "log", h = kGolden + "hostile";
    // clang-format off
    ExpectRuns(kZoltools, {
        {{"log", g}, 1, "txt:4: no \"MM-DD hh:mm:ss:nnnnnnnnn\" stamp at the start: \"garbage", 6},
        {{"log", g}, 1, "1 line could not be read and was skipped"},
        {{"log", g, "--level", "d, w"}, 1, "1 line could not", 3},
        {{"log", g, "--pid", "777"}, 1, "1 line could not", 1},
        {{"log", g, "--tid", "4243", "--tid", "4250", "--grep", "AlgoWrapper"}, 1, "1 line", 2},
        {{"log", g, "--level", "E", "--grep", "AlgoWrapper"}, 1, "none of the 6 lines read", 0},
        {{"log", h}, 1, ":13: no \"MM-DD hh:mm:ss:nnnnnnnnn\" stamp at the start: "
                        "\"garbage\\x1b[2J line\"; and 990 more damaged lines in this file", 4},
        {{"log", h}, 1, "1000 lines could not be read"},
    });
    // clang-format on
    EXPECT_EQ(ReadFile(kGolden + "log-expected.txt"), Tool({"log", g}).out);
    const RunResult hostile = Tool({"log", h});
    EXPECT_EQ(ReadFile(kGolden + "hostile-expected.txt"), hostile.out);
    EXPECT_EQ(11u, CountLines(hostile.err)) << hostile.err;
}

// The follower reads complete lines only, as they are appended, then moves to the next file.
TEST(LogFollower, NewCompleteLinesThenTheNextFile) {
    TempDir dir;
    const std::string first = "ZOLOfflineLog_2026-11-21--10-00-00-000000.txt";
    const std::string second = "ZOLOfflineLog_2026-11-21--10-05-00-000000.txt";
    std::string text = "11-21 10:00:00:000000000  1000  1001 I ZOL: before\n11-21 10:00:0";
    std::vector<zoltool::LogLine> lines;
    std::vector<zoltool::DamagedLine> damaged;
    std::string error;
    zoltool::LogFilePosition position;
    ASSERT_TRUE(zoltool::ReadLogFile(dir.WriteFile(first, text), lines, damaged, error, &position));
    ASSERT_EQ(1u, lines.size()) << "a line still being written is left to the follower";
    zoltool::LogFollower follower(dir.path(), dir / first, position);
    struct Step {
        std::string file, append, read;  // the messages read, and a '?' per damaged line
    } const steps[] = {
        {first, "", ""},
        {first, "1:000000000  1000  1001 I ZOL: one\n11-21 10:00:02:0000", "one,"},
        {first, "00000  1000  1001 I ZOL: two\nnot a line\n", "two,?"},
        // The writer starts a new file: the follower moves to it and reads it from the start.
        {second, "11-21 10:05:00:000000000  1000  1001 I ZOL: three\n", "three,"},
    };
    for (const Step& step : steps) {
        dir.WriteFile(step.file, text = (step.file == first ? text : "") + step.append);
        lines.clear();
        damaged.clear();
        ASSERT_TRUE(follower.Poll(lines, damaged, error)) << error;
        std::string read;
        for (const zoltool::LogLine& line : lines) {
            read += line.message + ",";
        }
        EXPECT_EQ(step.read, read + std::string(damaged.size(), '?'));
    }
    EXPECT_EQ(dir / second, follower.current());
}
