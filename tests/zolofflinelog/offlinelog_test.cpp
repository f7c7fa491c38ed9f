// The offline log switched on by its property: the lines as `zoltools log` reads them, cuts,
// files, rotation, the file cap, the memory pool, the settings file, exit with lines queued.
// Every TEST is a process of its own, with a log of its own.
#include <gtest/gtest.h>

#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "zolofflinelog.h"
#include "zolofflinelog/zolofflinelogline.h"
#include "zolthreadcontextmanager.h"
#include "zoltest.h"

namespace {

constexpr const char* kLogDir = "/data/vendor/camera/offlinelog";

ZOLOfflineLog* Log() {
    return ZOLOfflineLog::GetInstance();
}

// A device root with the log directory. Nothing writes below it any more when it goes.
struct LogRoot : zoltest::DeviceRoot {
    LogRoot() { MakeDir(kLogDir); }
    ~LogRoot() { Log()->WaitForQueuedLines(); }
    std::string Dir() const { return Resolve(kLogDir); }
    std::vector<std::string> Files() const { return zoltest::ListDir(Dir()); }
    std::vector<zoltool::LogLine> Lines() const { return zoltest::ReadOfflineLog(Dir()); }
};

// Queues one line and waits until it is written, so that lines land in order.
void LogInOrder(const std::string& msg, int level = ZOL_OFFLINE_LOG_D) {
    Log()->PushLogToLogPool(msg.c_str(), static_cast<ZOLOfflineLogLevel>(level), false);
    ASSERT_TRUE(Log()->WaitForQueuedLines());
}

// A local time as printed (month 1 to 12) in seconds since the epoch.
time_t Seconds(int year, int month, int day, int hour, int minute, int second) {
    struct tm t = {second, minute, hour, day, month - 1, year - 1900, 0, 0, -1, 0, nullptr};
    return mktime(&t);
}

TEST(OfflineLog, LinesCarryLevelLocalTimeAndIds) {
    LogRoot root;
    void (*const entries[])(const char*, ...) = {
        ZOLOfflineLog::ZOLOfflineLogE,        ZOLOfflineLog::ZOLOfflineLogW,
        ZOLOfflineLog::ZOLOfflineLogD,        ZOLOfflineLog::ZOLOfflineLogI,
        ZOLOfflineLog::ZOLOfflineLogV,        ZOLOfflineLog::ZOLOfflineLogECapture,
        ZOLOfflineLog::ZOLOfflineLogWCapture, ZOLOfflineLog::ZOLOfflineLogDCapture,
        ZOLOfflineLog::ZOLOfflineLogICapture, ZOLOfflineLog::ZOLOfflineLogVCapture};
    const int levels[] = {1, 4, 5, 0, 6, -1};         // given to PushLogToLogPool after them
    const std::string letters = "EWDIVEWDIVEIVVVVI";  // the last: a line of another thread
    const time_t before = time(nullptr);
    for (size_t i = 0; i < 16; ++i) {
        if (i < 10) {
            entries[i]("row %zu%s", i, "");
            ASSERT_TRUE(Log()->WaitForQueuedLines());
        } else {
            LogInOrder("row " + std::to_string(i), levels[i - 10]);
        }
    }
    pid_t otherTid = 0;
    std::thread([&] {
        otherTid = gettid();
        ZOLOfflineLog::ZOLOfflineLogI("row 16");
    }).join();
    ASSERT_TRUE(Log()->WaitForQueuedLines());
    const time_t after = time(nullptr);
    const std::vector<zoltool::LogLine> lines = root.Lines();
    ASSERT_EQ(17u, lines.size());
    for (size_t i = 0; i < 17; ++i) {
        const zoltool::LogLine& line = lines[i];
        EXPECT_EQ("row " + std::to_string(i), line.message);
        EXPECT_EQ(letters[i], line.level) << i;
        EXPECT_EQ(getpid(), line.pid);
        EXPECT_EQ(i < 16 ? gettid() : otherTid, line.tid);
        const zoltool::LogStamp& s = line.stamp;  // its year comes from the file's name
        const time_t t = Seconds(s.year, s.month, s.day, s.hour, s.minute, s.second);
        EXPECT_TRUE(before <= t && t <= after) << line.text;
    }
    // One file, named after the time the first line made it.
    const std::vector<std::string> files = root.Files();
    ASSERT_EQ(1u, files.size());
    int f[6];
    long micros;
    ASSERT_EQ(7, sscanf(files[0].c_str(), "ZOLOfflineLog_%4d-%2d-%2d--%2d-%2d-%2d-%6ld.txt", &f[0],
                        &f[1], &f[2], &f[3], &f[4], &f[5], &micros));
    const time_t made = Seconds(f[0], f[1], f[2], f[3], f[4], f[5]);
    EXPECT_TRUE(before <= made && made <= after) << files[0];
}

// A line is cut to 2,047 characters and keeps its newline only when that fits too; the cut
// lines run into the next one, which the reader takes apart again.
TEST(OfflineLog, LongLinesAreCutTo2047Characters) {
    LogRoot root;
    LogInOrder("x");
    const size_t stamp = root.Lines().at(0).text.size() - 1;  // this thread's stamp
    const struct {
        size_t message, kept;
    } rows[] = {
        {2046 - stamp, 2046 - stamp},  // with its newline: 2,047
        {2047 - stamp, 2047 - stamp},  // the newline is cut
        {3000, 2047 - stamp},
    };
    for (size_t i = 0; i < 3; ++i) {
        LogInOrder(std::string(rows[i].message, static_cast<char>('a' + i)));
    }
    ZOLOfflineLog::ZOLOfflineLogI("%s", std::string(5000, 'm').c_str());  // cut when formatted
    ASSERT_TRUE(Log()->WaitForQueuedLines());
    LogInOrder("after");
    const std::vector<zoltool::LogLine> lines = root.Lines();
    ASSERT_EQ(6u, lines.size());
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(std::string(rows[i].kept, static_cast<char>('a' + i)), lines[i + 1].message);
    }
    EXPECT_EQ(std::string(2047 - stamp, 'm'), lines[4].message);
    EXPECT_EQ("after", lines[5].message);
    EXPECT_EQ(stamp + 2 + 4 * 2047 + stamp + 6,
              zoltest::ReadFile(root.Dir() + "/" + root.Files().at(0)).size());
}

TEST(OfflineLog, LineThatWouldReachTheSizeLimitStartsANewFile) {
    LogRoot root;
    // A block holding a line of `len` bytes, newline included.
    auto line = [](size_t len, char fill) {
        ZOLOfflineLogParameter param = {};
        std::string(len - 1, fill).append("\n").copy(param.logLine, len);
        return param;
    };
    constexpr uint32_t kLimit = ZOLOfflineLog::kMaxLogFileSize;
    ZOLOfflineLogParameter full = line(2000, 'a');
    uint32_t written = 0;
    for (; kLimit - 10 - written >= 2000; written += 2000) {
        ASSERT_TRUE(Log()->FlushLogPoolToFile2(&full));
    }
    ZOLOfflineLogParameter rest = line(kLimit - 10 - written, 'b');
    ZOLOfflineLogParameter nine = line(9, 'c'), one = line(1, 'd');
    ASSERT_TRUE(Log()->FlushLogPoolToFile2(&rest));  // the file holds the limit minus 10
    ASSERT_TRUE(Log()->FlushLogPoolToFile2(&nine));  // 9 more still fit
    ASSERT_EQ(1u, root.Files().size());
    ASSERT_TRUE(Log()->FlushLogPoolToFile2(&one));  // a single byte more would reach it
    const std::vector<std::string> files = root.Files();
    ASSERT_EQ(2u, files.size());
    EXPECT_EQ(kLimit - 1, zoltest::ReadFile(root.Dir() + "/" + files[0]).size());
    EXPECT_EQ("\n", zoltest::ReadFile(root.Dir() + "/" + files[1]));
}

// Files are named to the microsecond: the next one must wait for the clock to move on.
void NextMicrosecond() {
    const std::string now = zol::offlinelog::NewLogFilePath();
    zoltest::WaitUntil([&] { return zol::offlinelog::NewLogFilePath() != now; });
}

TEST(OfflineLog, The301stFileDeletesTheFirst) {
    LogRoot root;
    ASSERT_TRUE(Log()->FlushLogPoolToFile());
    const std::vector<std::string> first = root.Files();
    for (int i = 1; i < 300; ++i) {
        NextMicrosecond();
        ASSERT_TRUE(Log()->FlushLogPoolToFile());
    }
    std::vector<std::string> files = root.Files();
    ASSERT_EQ(300u, files.size());
    ASSERT_EQ(first[0], files[0]);
    NextMicrosecond();
    LogInOrder("a line's new file counts as well");
    files = root.Files();
    EXPECT_EQ(300u, files.size());
    EXPECT_NE(first[0], files[0]);
}

TEST(OfflineLog, MemoryPoolIsWrittenToAFileOfItsOwn) {
    LogRoot root;
    LogInOrder("queued");
    const uint32_t room = ZOLOfflineLog::kLogPoolSize - 1;  // one byte stays for the zero
    const std::string big(room - 13, 'p');
    const struct {
        std::string text;
        bool taken;
    } rows[] = {{"pool one\n", true}, {big, true},  {"12345", false},
                {"1234", true},       {"x", false}, {"", true}};
    for (const auto& row : rows) {
        EXPECT_EQ(row.taken, Log()->AppendToLogPool(row.text.data(), row.text.size()))
            << row.text.size();
    }
    NextMicrosecond();
    ASSERT_TRUE(Log()->FlushLogPoolToFile());
    NextMicrosecond();
    ASSERT_TRUE(Log()->FlushLogPoolToFile());  // emptied by the first flush
    LogInOrder("queued too");
    const std::vector<std::string> files = root.Files();
    ASSERT_EQ(3u, files.size());
    EXPECT_EQ("pool one\n" + big + "1234", zoltest::ReadFile(root.Dir() + "/" + files[1]));
    EXPECT_EQ("", zoltest::ReadFile(root.Dir() + "/" + files[2]));
    EXPECT_EQ(2u, root.Lines().size()) << "lines go on in the current file";
    EXPECT_TRUE(Log()->AppendToLogPool("x", 1)) << "room again after the flush";
}

// Run on a small stack, as on whichever thread logs first: a long line costs no stack.
TEST(OfflineLog, SettingsFileSwitch) {
    static const struct {
        const char* contents;  // nullptr: no file; "/": a directory in its place
        bool on;
    } rows[] = {
        {nullptr, false},
        {"/", false},
        {"ZOLOfflineLog=tRuE\n", true},
        {"ZOLOfflineLogEnable = TRUE", true},  // a last line without newline counts
        {"overrideLogLevels=0x1F\nZOLOfflineLog=TRUE\nfoo=false\n", true},
        {"ZOLOfflineLogTrue=0\n", true},  // the words are looked for anywhere in the line
        {"ZOLOfflineLogFalse=0\n", false},
        {"ZOLOfflineLogFalse=true\n", true},  // true first
        {"ZOLOfflineLog=true\nZOLOfflineLog=1\nZOLOfflineLog=0\n", true},
        {"ZOLOfflineLog=true\nZOLOfflineLog=false\n", false},  // the last qualifying line decides
        {"ZOLOfflineLog=true\n ZOLOfflineLog=false\n", true},  // the key starts the line
        {"zolofflinelog=true\n", false},                       // in exact case
        {"ZOLOfflineLog true\n", false},
        {"ZOLOfflineLog=true\r\n", false},  // a carriage return never qualifies
        {"ZOLOfflineLog=true\nZOLOfflineLog=false\r\n", true},
    };
    static const std::string longLines = "ZOLOfflineLog" + std::string(200000, 'x') + "=true\n" +
                                         "ZOLOfflineLog=" + std::string(200000, 'y') + "\n";
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstacksize(&attr, 256 * 1024);
    pthread_t thread;
    ASSERT_EQ(0, pthread_create(
                     &thread, &attr,
                     [](void*) -> void* {
                         for (const auto& row : rows) {
                             zoltest::DeviceRoot root;
                             const std::string file = "/vendor/etc/camera/camxoverridesettings.txt";
                             if (row.contents != nullptr && std::string(row.contents) == "/") {
                                 root.MakeDir(file);
                             } else if (row.contents != nullptr) {
                                 root.WriteFile(file, row.contents);
                             }
                             EXPECT_EQ(row.on, ZOLOfflineLog::ReadEnableFromOverrideSettingsFile())
                                 << (row.contents ? row.contents : "(none)");
                         }
                         zoltest::DeviceRoot root;
                         root.WriteFile("/vendor/etc/camera/camxoverridesettings.txt", longLines);
                         EXPECT_TRUE(ZOLOfflineLog::ReadEnableFromOverrideSettingsFile());
                         return nullptr;
                     },
                     nullptr));
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attr);
}

// The ids a line carries are kept once read, and read again in a forked child.
TEST(OfflineLog, ForkedChildStampsItsOwnIds) {
    ASSERT_EQ(getpid(), zol::offlinelog::ProcessId());
    ASSERT_EQ(gettid(), zol::offlinelog::ThreadId());
    EXPECT_EQ(0, zoltest::RunInChild([] {
                  return zol::offlinelog::ProcessId() == getpid() &&
                                 zol::offlinelog::ThreadId() == gettid()
                             ? 0
                             : 1;
              }));
}

// Stands in for a static destructor that logs after the offline log is gone.
void LogDuringExit() {
    ZOLOfflineLog::ZOLOfflineLogE("too late");
    ZOLOfflineLog::ZOLOfflineLogVCapture("too late");
    ZOLOfflineLogParameter param = {};
    ZOLOfflineLog::SaveLog(&param, sizeof(param));
}

// Lines still queued at exit are dropped; what was written is whole lines.
TEST(OfflineLog, ProcessExitingWithLinesQueuedExitsCleanly) {
    LogRoot root;
    const int status = zoltest::RunInChild([] {
        std::atexit(LogDuringExit);  // before the log exists, so it runs after its destructor
        ZOLOfflineLog::GetInstance();
        const std::string pad(200, 'q');
        // Workers take on the submitter's context under this lock before each line: holding
        // it keeps them from writing, so nearly every line is still queued at the exit.
        {
            std::lock_guard<std::mutex> hold(ZOLThreadContextManager::m_threadIdToContextMapLock);
            for (int i = 0; i < 20000; ++i) {
                ZOLOfflineLog::ZOLOfflineLogD("queued %d %s", i, pad.c_str());
            }
        }
        std::exit(0);
        return 1;
    });
    EXPECT_EQ(0, status);
    std::vector<zoltool::DamagedLine> damaged;
    const std::vector<zoltool::LogLine> lines = zoltest::ReadOfflineLog(root.Dir(), &damaged);
    EXPECT_LT(lines.size(), 20000u);
    EXPECT_TRUE(damaged.empty());
    for (const zoltool::LogLine& line : lines) {
        ASSERT_TRUE(zoltest::MatchesPattern(line.message, "queued # " + std::string(200, 'q')))
            << line.text;
    }
}

}  // namespace
