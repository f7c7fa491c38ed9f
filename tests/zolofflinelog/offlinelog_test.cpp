// The offline log switched on by its property: line layout, cuts, files, rotation, the file
// cap, a missing directory, the memory pool and exit with lines queued.
// GCC 12 with -fsanitize=address warns, wrongly, that std::regex's internals may be used
// uninitialised: a known false positive.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"

#include <gtest/gtest.h>

#include <sys/time.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <ctime>
#include <regex>
#include <string>
#include <vector>

#include "offlinelog_test_support.h"
#include "zolofflinelog.h"
#include "zolthreadcontextmanager.h"

namespace {

using offlinelogtest::LogRoot;
using offlinelogtest::MessageOf;
using offlinelogtest::SplitLines;

ZOLOfflineLog* Log() {
    return ZOLOfflineLog::GetInstance();
}

// Queues one line and waits until it is in its file, so that lines land in order.
void LogInOrder(const char* msg, ZOLOfflineLogLevel level = ZOL_OFFLINE_LOG_D) {
    Log()->PushLogToLogPool(msg, level, false);
    ASSERT_TRUE(Log()->WaitForQueuedLines());
}

// Length of the stamp this thread's lines carry (constant within one thread).
size_t StampLength(const LogRoot& root) {
    LogInOrder("x");
    const std::vector<std::string> lines = SplitLines(root.ReadAll());
    return lines.empty() ? 0 : lines.back().size() - 1;
}

TEST(OfflineLog, LineStampLayout) {
    LogRoot root;
    struct tm before;
    const time_t t0 = time(nullptr);
    localtime_r(&t0, &before);
    ZOLOfflineLog::ZOLOfflineLogD("hello %d", 42);
    ASSERT_TRUE(Log()->WaitForQueuedLines());
    struct tm after;
    const time_t t1 = time(nullptr);
    localtime_r(&t1, &after);

    const std::string text = root.ReadAll();
    std::smatch m;
    const std::regex layout(
        "(\\d\\d)-(\\d\\d) (\\d\\d):(\\d\\d):(\\d\\d):(\\d{9})  ( *\\d{4,})  ( *\\d{4,}) D ZOL: "
        "hello 42\n");
    ASSERT_TRUE(std::regex_match(text, m, layout)) << text;
    const int month = std::stoi(m[1]);
    const int day = std::stoi(m[2]);
    EXPECT_TRUE((month == before.tm_mon + 1 && day == before.tm_mday) ||
                (month == after.tm_mon + 1 && day == after.tm_mday))
        << "month is 1-based, day of the month";
    EXPECT_EQ(getpid(), std::stoi(m[7]));
    EXPECT_EQ(gettid(), std::stoi(m[8]));
}

TEST(OfflineLog, FileNamedAfterItsCreationAndLaterLinesAppended) {
    LogRoot root;
    const time_t t0 = time(nullptr);
    struct tm now;
    localtime_r(&t0, &now);
    LogInOrder("first");
    LogInOrder("second");
    ZOLOfflineLog::ZOLOfflineLogE("third");
    ASSERT_TRUE(Log()->WaitForQueuedLines());

    const std::vector<std::string> files = root.Files();
    ASSERT_EQ(1u, files.size());
    std::smatch m;
    ASSERT_TRUE(std::regex_match(
        files[0], m,
        std::regex("ZOLOfflineLog_(\\d{4})-(\\d\\d)-\\d\\d--\\d\\d-\\d\\d-\\d\\d-\\d{6}\\.txt")))
        << files[0];
    EXPECT_EQ(now.tm_year + 1900, std::stoi(m[1]));
    EXPECT_EQ(now.tm_mon + 1, std::stoi(m[2]));
    const std::vector<std::string> lines = SplitLines(root.Read(files[0]));
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ("first", MessageOf(lines[0]));
    EXPECT_EQ("second", MessageOf(lines[1]));
    EXPECT_EQ("third", MessageOf(lines[2]));
    EXPECT_EQ(0u, Log()->DroppedLinesNoFile());
}

TEST(OfflineLog, LevelLetters) {
    LogRoot root;
    const struct {
        int level;
        const char* letter;
    } rows[] = {{1, "E"}, {2, "W"}, {3, "D"}, {4, "I"}, {5, "V"}, {0, "V"}, {6, "V"}, {-1, "V"}};
    for (const auto& row : rows) {
        const std::string msg = "level " + std::to_string(row.level);
        LogInOrder(msg.c_str(), static_cast<ZOLOfflineLogLevel>(row.level));
    }
    const std::vector<std::string> lines = SplitLines(root.ReadAll());
    ASSERT_EQ(8u, lines.size());
    for (size_t i = 0; i < lines.size(); ++i) {
        const std::string expected =
            std::string(" ") + rows[i].letter + " ZOL: level " + std::to_string(rows[i].level);
        EXPECT_NE(std::string::npos, lines[i].find(expected)) << lines[i];
    }
}

TEST(OfflineLog, EntryPointsAndCaptureEntryPointsCarryTheirLetter) {
    LogRoot root;
    void (*const entries[])(const char*, ...) = {
        ZOLOfflineLog::ZOLOfflineLogE,        ZOLOfflineLog::ZOLOfflineLogW,
        ZOLOfflineLog::ZOLOfflineLogD,        ZOLOfflineLog::ZOLOfflineLogI,
        ZOLOfflineLog::ZOLOfflineLogV,        ZOLOfflineLog::ZOLOfflineLogECapture,
        ZOLOfflineLog::ZOLOfflineLogWCapture, ZOLOfflineLog::ZOLOfflineLogDCapture,
        ZOLOfflineLog::ZOLOfflineLogICapture, ZOLOfflineLog::ZOLOfflineLogVCapture};
    const char letters[] = "EWDIVEWDIV";
    for (size_t i = 0; i < 10; ++i) {
        entries[i]("entry %zu of %s", i, "ten");
        ASSERT_TRUE(Log()->WaitForQueuedLines());
    }
    const std::vector<std::string> lines = SplitLines(root.ReadAll());
    ASSERT_EQ(10u, lines.size());
    for (size_t i = 0; i < 10; ++i) {
        EXPECT_NE(std::string::npos, lines[i].find(std::string(" ") + letters[i] + " ZOL: entry " +
                                                   std::to_string(i) + " of ten"))
            << lines[i];
    }
}

TEST(OfflineLog, LineCutAt2047CharactersLosesItsNewline) {
    LogRoot root;
    const size_t stamp = StampLength(root);
    ASSERT_GT(stamp, 30u);
    // stamp + message + newline == 2,047: kept whole.
    const std::string fits(2047 - stamp - 1, 'a');
    // stamp + message == 2,047: the newline is what gets cut.
    const std::string noNewline(2047 - stamp, 'b');
    // Longer still: cut to 2,047 characters.
    const std::string longer(3000, 'c');
    LogInOrder(fits.c_str());
    LogInOrder(noNewline.c_str());
    LogInOrder(longer.c_str());
    LogInOrder("after");

    const std::vector<std::string> lines = SplitLines(root.ReadAll());
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ(fits, MessageOf(lines[1]));
    // The cut lines run straight into the next one.
    const std::string joined = lines[2];
    EXPECT_EQ(2047u * 2 + stamp + 5, joined.size());
    EXPECT_EQ(noNewline, MessageOf(joined.substr(0, 2047)));
    EXPECT_EQ(std::string(2047 - stamp, 'c'), MessageOf(joined.substr(2047, 2047)));
    EXPECT_EQ("after", MessageOf(joined.substr(2 * 2047)));
}

TEST(OfflineLog, EntryPointCutsItsMessageTo2047Characters) {
    LogRoot root;
    const size_t stamp = StampLength(root);
    const std::string huge(5000, 'm');
    ZOLOfflineLog::ZOLOfflineLogI("%s", huge.c_str());
    ASSERT_TRUE(Log()->WaitForQueuedLines());
    const std::string all = root.ReadAll();
    EXPECT_EQ(stamp + 2 + 2047, all.size());
}

// A parameter block holding a line of exactly len bytes (len <= 2,047).
ZOLOfflineLogParameter Line(size_t len, char fill) {
    ZOLOfflineLogParameter param;
    std::memset(&param, 0, sizeof(param));
    std::memset(param.logLine, fill, len);
    if (len > 0) {
        param.logLine[len - 1] = '\n';
    }
    return param;
}

TEST(OfflineLog, LineThatWouldReachTheSizeLimitStartsANewFile) {
    LogRoot root;
    // Bring the first file to 10,485,760 - 10 bytes.
    const uint32_t limit = ZOLOfflineLog::kMaxLogFileSize;
    ZOLOfflineLogParameter full = Line(2000, 'a');
    uint32_t written = 0;
    while (limit - 10 - written >= 2000) {
        ASSERT_TRUE(Log()->FlushLogPoolToFile2(&full));
        written += 2000;
    }
    ZOLOfflineLogParameter rest = Line(limit - 10 - written, 'b');
    ASSERT_TRUE(Log()->FlushLogPoolToFile2(&rest));
    ASSERT_EQ(1u, root.Files().size());

    // 9 bytes still fit (10,485,759); then a single byte would reach the limit.
    ZOLOfflineLogParameter nine = Line(9, 'c');
    ASSERT_TRUE(Log()->FlushLogPoolToFile2(&nine));
    std::vector<std::string> files = root.Files();
    ASSERT_EQ(1u, files.size());
    EXPECT_EQ(limit - 1, root.Read(files[0]).size());

    ZOLOfflineLogParameter one = Line(1, 'd');
    ASSERT_TRUE(Log()->FlushLogPoolToFile2(&one));
    files = root.Files();
    ASSERT_EQ(2u, files.size());
    EXPECT_EQ(limit - 1, root.Read(files[0]).size());
    EXPECT_EQ("\n", root.Read(files[1]));
}

// Waits until gettimeofday's microseconds move on, so that two files made one after the other
// get different names.
void NextMicrosecond() {
    struct timeval start;
    gettimeofday(&start, nullptr);
    struct timeval now;
    do {
        gettimeofday(&now, nullptr);
    } while (now.tv_sec == start.tv_sec && now.tv_usec == start.tv_usec);
}

TEST(OfflineLog, The301stFileDeletesTheFirst) {
    LogRoot root;
    std::vector<std::string> first;
    for (int i = 0; i < 300; ++i) {
        NextMicrosecond();
        ASSERT_TRUE(Log()->FlushLogPoolToFile());
        if (i == 0) {
            first = root.Files();
        }
    }
    ASSERT_EQ(1u, first.size());
    ASSERT_EQ(300u, root.Files().size());
    NextMicrosecond();
    ASSERT_TRUE(Log()->AppendToLogPool("last\n", 5));
    ASSERT_TRUE(Log()->FlushLogPoolToFile());
    const std::vector<std::string> files = root.Files();
    ASSERT_EQ(300u, files.size());
    EXPECT_NE(first[0], files.front()) << "the first file is gone from disk";
    EXPECT_EQ("last\n", root.Read(files.back()));

    // Files created for lines count towards the same cap: the line's new file is the 302nd, so
    // the second file goes.
    const std::string second = files.front();
    NextMicrosecond();
    LogInOrder("a line");
    const std::vector<std::string> after = root.Files();
    EXPECT_EQ(300u, after.size());
    EXPECT_NE(second, after.front());
}

TEST(OfflineLog, MissingDirectoryDropsLinesUntilItExists) {
    LogRoot root(/*makeLogDir=*/false);
    for (int i = 0; i < 5; ++i) {
        ZOLOfflineLog::ZOLOfflineLogW("lost %d", i);
    }
    ASSERT_TRUE(Log()->WaitForQueuedLines());
    EXPECT_EQ(5u, Log()->DroppedLinesNoFile());
    EXPECT_TRUE(root.Files().empty());
    EXPECT_FALSE(Log()->FlushLogPoolToFile());

    root.root.MakeDir(offlinelogtest::kLogDir);
    ZOLOfflineLog::ZOLOfflineLogW("kept");
    ZOLOfflineLog::ZOLOfflineLogW("kept too");
    ASSERT_TRUE(Log()->WaitForQueuedLines());
    const std::vector<std::string> files = root.Files();
    ASSERT_EQ(1u, files.size());
    const std::vector<std::string> lines = SplitLines(root.Read(files[0]));
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ(5u, Log()->DroppedLinesNoFile());
    EXPECT_EQ(0u, Log()->DroppedLinesNoMemory());
}

TEST(OfflineLog, MemoryPoolIsWrittenToAFileOfItsOwn) {
    LogRoot root;
    LogInOrder("a queued line");
    ASSERT_TRUE(Log()->AppendToLogPool("pool one\n", 9));
    ASSERT_TRUE(Log()->AppendToLogPool("pool two\n", 9));
    NextMicrosecond();
    ASSERT_TRUE(Log()->FlushLogPoolToFile());
    std::vector<std::string> files = root.Files();
    ASSERT_EQ(2u, files.size());
    EXPECT_EQ("pool one\npool two\n", root.Read(files[1]));

    // The pool is empty afterwards, and lines still go to the current file.
    NextMicrosecond();
    ASSERT_TRUE(Log()->FlushLogPoolToFile());
    LogInOrder("another queued line");
    files = root.Files();
    ASSERT_EQ(3u, files.size());
    EXPECT_EQ("", root.Read(files[2]));
    EXPECT_EQ(2u, SplitLines(root.Read(files[0])).size());
}

TEST(OfflineLog, MemoryPoolTakesTextWholeOrNotAtAll) {
    LogRoot root;
    const uint32_t room = ZOLOfflineLog::kLogPoolSize - 1;  // one byte stays for the zero
    std::string big(room - 4, 'p');
    ASSERT_TRUE(Log()->AppendToLogPool(big.data(), static_cast<uint32_t>(big.size())));
    EXPECT_FALSE(Log()->AppendToLogPool("12345", 5));
    EXPECT_TRUE(Log()->AppendToLogPool("1234", 4));
    EXPECT_FALSE(Log()->AppendToLogPool("x", 1));
    EXPECT_TRUE(Log()->AppendToLogPool("", 0));
    ASSERT_TRUE(Log()->FlushLogPoolToFile());
    const std::vector<std::string> files = root.Files();
    ASSERT_EQ(1u, files.size());
    EXPECT_EQ(big + "1234", root.Read(files[0]));
    EXPECT_TRUE(Log()->AppendToLogPool("x", 1)) << "room again after the flush";
}

// Stands in for a static destructor that logs after the offline log is gone.
void LogDuringExit() {
    ZOLOfflineLog::ZOLOfflineLogE("too late");
    ZOLOfflineLog::ZOLOfflineLogVCapture("too late");
    ZOLOfflineLogParameter param = {};
    ZOLOfflineLog::SaveLog(&param, sizeof(param));
}

void ExitWithLinesQueued() {
    // Registered before the log exists, so it runs after the log's destructor.
    std::atexit(LogDuringExit);
    ZOLOfflineLog::GetInstance();
    const std::string pad(200, 'q');
    {
        // Workers adopt the submitter's context under this lock before each line: holding it
        // keeps them from writing, so nearly every line is still queued at the exit below.
        std::lock_guard<std::mutex> hold(ZOLThreadContextManager::m_threadIdToContextMapLock);
        for (int i = 0; i < 20000; ++i) {
            ZOLOfflineLog::ZOLOfflineLogD("queued %d %s", i, pad.c_str());
        }
    }
    std::exit(0);
}

TEST(OfflineLogDeathTest, ProcessExitingWithLinesQueuedExitsCleanly) {
    // The log is not built yet, so this process has no threads of its own and the child is a
    // plain fork that writes below the same device root.
    LogRoot root;
    EXPECT_EXIT(ExitWithLinesQueued(), testing::ExitedWithCode(0), "");
    // What was written before the exit is whole lines; the rest was discarded.
    const std::vector<std::string> lines = SplitLines(root.ReadAll());
    EXPECT_LT(lines.size(), 20000u);
    const std::regex line(".* D ZOL: queued \\d+ q{200}");
    for (const std::string& l : lines) {
        ASSERT_TRUE(std::regex_match(l, line)) << l;
    }
}

}  // namespace
