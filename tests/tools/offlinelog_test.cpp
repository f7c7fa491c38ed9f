// Offline log lines: parsing the stamp, merging files in stamp order, filters, following.
#include <gtest/gtest.h>

#include <fstream>

#include "commands.h"
#include "fileio.h"
#include "offlinelog.h"
#include "toolstest.h"
#include "zoltest.h"

namespace {

using toolstest::Capture;
using toolstest::Golden;

TEST(LogLine, StampFieldsAndMessage) {
    zoltool::LogLine line;
    std::string reason;
    ASSERT_TRUE(zoltool::ParseLogLine(
        "03-07 09:05:07:042000123    77  12345 W ZOL: [pool] a: b ZOL: c", 2026, 3, line, reason))
        << reason;
    EXPECT_EQ(2026, line.stamp.year);
    EXPECT_EQ(3, line.stamp.month);
    EXPECT_EQ(7, line.stamp.day);
    EXPECT_EQ(9, line.stamp.hour);
    EXPECT_EQ(5, line.stamp.minute);
    EXPECT_EQ(7, line.stamp.second);
    EXPECT_EQ(42000123, line.stamp.nanos);
    EXPECT_EQ(77, line.pid);
    EXPECT_EQ(12345, line.tid);
    EXPECT_EQ('W', line.level);
    EXPECT_EQ("[pool] a: b ZOL: c", line.message);
    // An empty message is still a line.
    EXPECT_TRUE(zoltool::ParseLogLine("03-07 09:05:07:042000123  1234  1235 E ZOL: ", 2026, 3, line,
                                      reason));
    EXPECT_EQ("", line.message);
}

TEST(LogLine, DamagedLinesSayWhy) {
    zoltool::LogLine line;
    std::string reason;
    const char* bad[] = {
        "",
        "03-07 09:05:07:04200012  1234  1235 E ZOL: eight-digit nanoseconds",
        "13-07 09:05:07:042000123  1234  1235 E ZOL: month 13",
        "03-07 24:05:07:042000123  1234  1235 E ZOL: hour 24",
        "03-07 09:05:07:042000123 1234  1235 E ZOL: one blank before the pid",
        "03-07 09:05:07:042000123  1234  1235 X ZOL: level X",
        "03-07 09:05:07:042000123  1234  1235 E LOG: another tag",
        "03-07 09:05:07:042000123  1234",
    };
    for (const char* text : bad) {
        EXPECT_FALSE(zoltool::ParseLogLine(text, 2026, 3, line, reason)) << text;
        EXPECT_FALSE(reason.empty());
    }
}

TEST(LogLine, FileNamesGiveTheYear) {
    int year = 0, month = 0;
    EXPECT_TRUE(
        zoltool::ParseLogFileName("ZOLOfflineLog_2026-12-31--23-59-59-999999.txt", year, month));
    EXPECT_EQ(2026, year);
    EXPECT_EQ(12, month);
    EXPECT_FALSE(zoltool::ParseLogFileName("ZOLOfflineLog_2026-12-31.txt", year, month));
    EXPECT_FALSE(
        zoltool::ParseLogFileName("ZOLOfflineLog_2026-12-31--23-59-59-999999.txt.gz", year, month));

    // A file opened on New Year's Eve runs into January: those lines sort after December.
    std::vector<zoltool::LogLine> lines(2);
    std::string reason;
    ASSERT_TRUE(zoltool::ParseLogLine("01-01 00:00:00:000000001  1000  1001 I ZOL: new year", 2026,
                                      12, lines[0], reason));
    ASSERT_TRUE(zoltool::ParseLogLine("12-31 23:59:59:999999999  1000  1001 I ZOL: old year", 2026,
                                      12, lines[1], reason));
    EXPECT_EQ(2027, lines[0].stamp.year);
    zoltool::SortLogLines(lines);
    EXPECT_EQ("old year", lines[0].message);
}

TEST(Log, FilesMergeInStampOrderAndDamagedLinesAreSkipped) {
    auto result = Capture([](const zoltool::Streams& io) {
        zoltool::LogOptions options;
        options.path = Golden("log");
        return zoltool::RunLog(options, io);
    });
    EXPECT_EQ(zoltool::kExitBadInput, result.status) << "a skipped line fails the run";
    EXPECT_EQ(zoltest::ReadFile(Golden("log-expected.txt")), result.out);
    EXPECT_NE(std::string::npos,
              result.err.find("ZOLOfflineLog_2026-11-21--10-15-00-000050.txt:4: no "
                              "\"MM-DD hh:mm:ss:nnnnnnnnn\" stamp at the start: \"garbage that "
                              "is not a log line\""))
        << result.err;
    EXPECT_NE(std::string::npos, result.err.find("1 line could not be read and was skipped"));
}

TEST(Log, ALineCutAtTheWritersLimitIsSplitFromTheNextOne) {
    toolstest::TempDir dir;
    const std::string stamp = "11-21 10:00:00:000000001  1000  1001 I ZOL: ";
    const std::string cut = stamp + std::string(2047 - stamp.size(), 'x');  // no newline
    const std::string next = "11-21 10:00:00:000000000  1000  1002 W ZOL: next\n";
    // Only at exactly 2,047 characters is a stamp taken for the start of another line.
    const std::string notCut = stamp + "mentions 11-21 10:00:00:000000000  1000  1002 W ZOL: x\n";
    std::string error;
    const std::string text = cut + next + notCut;
    ASSERT_TRUE(zoltool::WriteWholeFile(dir / "ZOLOfflineLog_2026-11-21--10-00-00-000000.txt",
                                        std::vector<uint8_t>(text.begin(), text.end()), error));
    std::vector<zoltool::LogLine> lines;
    std::vector<zoltool::DamagedLine> damaged;
    ASSERT_TRUE(zoltool::ReadLogFile(dir / "ZOLOfflineLog_2026-11-21--10-00-00-000000.txt", lines,
                                     damaged, error));
    EXPECT_TRUE(damaged.empty());
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ(cut, lines[0].text);
    EXPECT_EQ("next", lines[1].message);
    EXPECT_EQ(1u, lines[1].lineNumber);
    EXPECT_EQ(2u, lines[2].lineNumber);
    zoltool::SortLogLines(lines);
    EXPECT_EQ("next", lines[0].message);
}

TEST(Log, Filters) {
    auto run = [](const zoltool::LogFilter& filter) {
        return Capture([&](const zoltool::Streams& io) {
            zoltool::LogOptions options;
            options.path = Golden("log");
            options.filter = filter;
            return zoltool::RunLog(options, io);
        });
    };
    auto lineCount = [](const std::string& text) {
        return std::count(text.begin(), text.end(), '\n');
    };
    zoltool::LogFilter levels;
    std::string error;
    ASSERT_TRUE(zoltool::ParseLevelList("d, w", levels.levels, error));
    EXPECT_EQ("DW", levels.levels);
    auto byLevel = run(levels);
    EXPECT_EQ(3, lineCount(byLevel.out)) << byLevel.out;

    zoltool::LogFilter pid;
    pid.pids = {777};
    auto byPid = run(pid);
    EXPECT_EQ(1, lineCount(byPid.out));
    EXPECT_NE(std::string::npos, byPid.out.find("sixth"));

    zoltool::LogFilter tidAndText;
    tidAndText.tids = {4243, 4250};
    tidAndText.texts = {"AlgoWrapper"};
    auto both = run(tidAndText);
    EXPECT_EQ(2, lineCount(both.out)) << both.out;

    EXPECT_FALSE(zoltool::ParseLevelList("EX", levels.levels, error));
    EXPECT_NE(std::string::npos, error.find("'X' is not a level")) << error;
    EXPECT_FALSE(zoltool::ParseLevelList(",", levels.levels, error));
}

TEST(Log, MissingFolderOrNoLogFiles) {
    toolstest::TempDir dir;
    auto run = [](const std::string& path) {
        return Capture([&](const zoltool::Streams& io) {
            zoltool::LogOptions options;
            options.path = path;
            return zoltool::RunLog(options, io);
        });
    };
    auto missing = run(dir / "nothing");
    EXPECT_EQ(zoltool::kExitBadInput, missing.status);
    EXPECT_EQ("zoltools log: " + dir / "nothing" + ": no such file or directory\n", missing.err);
    auto empty = run(dir.path());
    EXPECT_EQ(zoltool::kExitBadInput, empty.status);
    EXPECT_NE(std::string::npos, empty.err.find("no offline log files")) << empty.err;
}

void Append(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::app) << text;
}

TEST(LogFollower, NewCompleteLinesThenTheNextFile) {
    toolstest::TempDir dir;
    const std::string first = dir / "ZOLOfflineLog_2026-11-21--10-00-00-000000.txt";
    Append(first, "11-21 10:00:00:000000000  1000  1001 I ZOL: before\n11-21 10:00:0");
    std::vector<std::string> files;
    std::string error;
    ASSERT_TRUE(zoltool::FindLogFiles(dir.path(), files, error)) << error;
    std::vector<zoltool::LogLine> lines;
    std::vector<zoltool::DamagedLine> damaged;
    zoltool::LogFilePosition position;
    ASSERT_TRUE(zoltool::ReadLogFile(files.back(), lines, damaged, error, &position));
    ASSERT_EQ(1u, lines.size()) << "a line still being written is left to the follower";
    EXPECT_TRUE(damaged.empty());
    zoltool::LogFollower follower(dir.path(), files.back(), position);

    lines.clear();
    ASSERT_TRUE(follower.Poll(lines, damaged, error));
    EXPECT_TRUE(lines.empty()) << "what was read before is not repeated";

    Append(first, "1:000000000  1000  1001 I ZOL: one\n11-21 10:00:02:0000");
    ASSERT_TRUE(follower.Poll(lines, damaged, error));
    ASSERT_EQ(1u, lines.size()) << "the unfinished line is held back";
    EXPECT_EQ("one", lines[0].message);
    EXPECT_EQ(2u, lines[0].lineNumber);

    lines.clear();
    Append(first, "00000  1000  1001 I ZOL: two\nnot a line\n");
    ASSERT_TRUE(follower.Poll(lines, damaged, error));
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ("two", lines[0].message);
    ASSERT_EQ(1u, damaged.size());
    EXPECT_EQ(4u, damaged[0].lineNumber);

    // The writer starts a new file: the follower moves to it and reads it from the start.
    lines.clear();
    Append(dir / "ZOLOfflineLog_2026-11-21--10-05-00-000000.txt",
           "11-21 10:05:00:000000000  1000  1001 I ZOL: three\n");
    ASSERT_TRUE(follower.Poll(lines, damaged, error));
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ("three", lines[0].message);
    EXPECT_NE(std::string::npos, follower.current().find("10-05-00"));
}

}  // namespace
