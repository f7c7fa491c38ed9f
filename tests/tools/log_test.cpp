// Offline log lines: parsing the stamp, following.
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
