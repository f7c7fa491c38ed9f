// Following an offline log as it is written.
#include "offlinelog.h"
#include "toolstest.h"

using namespace toolstest;

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
