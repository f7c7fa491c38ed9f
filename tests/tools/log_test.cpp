// Offline log lines: parsing the stamp, merging files in stamp order, filters, damaged and
// hostile lines, following.
#include <gtest/gtest.h>

#include <fstream>

#include "commands.h"
#include "offlinelog.h"
#include "toolstest.h"

namespace {

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

toolstest::Output RunLog(std::vector<std::string> args) {
    args.insert(args.begin(), {Zoltools(), "log"});
    return RunProgram(args);
}

TEST(Log, FilesMergeInStampOrderAndDamagedLinesAreSkipped) {
    auto result = RunLog({Golden("log")});
    EXPECT_EQ(1, result.status) << "a skipped line fails the run";
    EXPECT_EQ(ReadFile(Golden("log-expected.txt")), result.out);
    EXPECT_NE(std::string::npos,
              result.err.find("ZOLOfflineLog_2026-11-21--10-15-00-000050.txt:4: no "
                              "\"MM-DD hh:mm:ss:nnnnnnnnn\" stamp at the start: \"garbage that "
                              "is not a log line\""))
        << result.err;
    EXPECT_NE(std::string::npos, result.err.find("1 line could not be read and was skipped"));
}

TEST(Log, Filters) {
    struct Case {
        std::vector<std::string> args;
        size_t lines;
        std::string note;
    } const cases[] = {
        {{"--level", "d, w"}, 3, ""},
        {{"--pid", "777"}, 1, ""},
        {{"--tid", "4243", "--tid", "4250", "--grep", "AlgoWrapper"}, 2, ""},
        {{"--level", "E", "--grep", "AlgoWrapper"},
         0,
         "none of the 6 lines read matches the filters"},
    };
    for (const Case& c : cases) {
        std::vector<std::string> args = c.args;
        args.insert(args.begin(), Golden("log"));
        auto result = RunLog(args);
        EXPECT_EQ(c.lines, CountLines(result.out)) << result.out;
        const size_t note = result.err.find("none of the");
        EXPECT_EQ(c.note, note == std::string::npos ? "" : result.err.substr(note, c.note.size()));
    }
}

// Whatever a damaged line holds reaches the terminal escaped and whole; a file of garbage
// gives a few lines and a count; a line the writer cut at 2,047 characters (losing its newline)
// is split from the one glued to it, and only there is a stamp taken for a new line.
TEST(Log, HostileCutAndDamagedLines) {
    TempDir dir;
    const std::string stamp = "11-21 10:00:00:000000001  1000  1001 I ZOL: ";
    const std::string cut = stamp + std::string(2047 - stamp.size(), 'x');
    const std::string next = "11-21 10:00:00:000000000  1000  1002 W ZOL: next\n";
    const std::string notCut = stamp + "mentions 11-21 10:00:00:000000000  1000  1002 W ZOL: x\n";
    std::string garbage;
    for (int i = 0; i < 1000; ++i) {
        garbage += "garbage\x1b[2J line\n";
    }
    WriteFile(dir / "ZOLOfflineLog_2026-11-21--10-00-00-000000.txt",
              stamp + "clear \x1b[2J, bell \a, NUL " + std::string(1, '\0') + " kept\"\n" + cut +
                  next + notCut + garbage);
    auto result = RunLog({dir.path()});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ(next + stamp + "clear \\x1b[2J, bell \\x07, NUL \\x00 kept\"\n" + cut + "\n" + notCut,
              result.out);
    EXPECT_EQ(std::string::npos, result.err.find('\x1b'));
    EXPECT_EQ(11u, CountLines(result.err)) << result.err;
    EXPECT_NE(std::string::npos,
              result.err.find(":13: no \"MM-DD hh:mm:ss:nnnnnnnnn\" stamp at the "
                              "start: \"garbage\\x1b[2J line\"; and 990 more "
                              "damaged lines in this file"))
        << result.err;
    EXPECT_NE(std::string::npos, result.err.find("1000 lines could not be read")) << result.err;
}

void Append(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::app) << text;
}

TEST(LogFollower, NewCompleteLinesThenTheNextFile) {
    TempDir dir;
    const std::string first = dir / "ZOLOfflineLog_2026-11-21--10-00-00-000000.txt";
    Append(first, "11-21 10:00:00:000000000  1000  1001 I ZOL: before\n11-21 10:00:0");
    std::vector<zoltool::LogLine> lines;
    std::vector<zoltool::DamagedLine> damaged;
    std::string error;
    zoltool::LogFilePosition position;
    ASSERT_TRUE(zoltool::ReadLogFile(first, lines, damaged, error, &position));
    ASSERT_EQ(1u, lines.size()) << "a line still being written is left to the follower";
    zoltool::LogFollower follower(dir.path(), first, position);
    struct Step {
        std::string file, append;
        std::vector<std::string> messages;
        size_t damaged;
    } const steps[] = {
        {first, "", {}, 0},
        {first, "1:000000000  1000  1001 I ZOL: one\n11-21 10:00:02:0000", {"one"}, 0},
        {first, "00000  1000  1001 I ZOL: two\nnot a line\n", {"two"}, 1},
        // The writer starts a new file: the follower moves to it and reads it from the start.
        {dir / "ZOLOfflineLog_2026-11-21--10-05-00-000000.txt",
         "11-21 10:05:00:000000000  1000  1001 I ZOL: three\n",
         {"three"},
         0},
    };
    for (const Step& step : steps) {
        Append(step.file, step.append);
        lines.clear();
        damaged.clear();
        ASSERT_TRUE(follower.Poll(lines, damaged, error)) << error;
        std::vector<std::string> messages;
        for (const zoltool::LogLine& line : lines) {
            messages.push_back(line.message);
        }
        EXPECT_EQ(step.messages, messages);
        EXPECT_EQ(step.damaged, damaged.size());
    }
    EXPECT_NE(std::string::npos, follower.current().find("10-05-00"));
}

}  // namespace
