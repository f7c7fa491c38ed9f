// The offline log, switched on by its property (CMakeLists.txt) unless a test says otherwise:
// the lines as `zoltools log` reads them, cuts, files, rotation, the file cap, the memory pool,
// the switch, exit with lines queued. Many threads at once across rotations are the soak's
// (bench/soak). Every TEST is a process of its own.
#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "failing_new.h"
#include "zolofflinelog.h"
#include "zolofflinelog/internal/zolofflinelogline.h"
#include "zolthreadcontextmanager.h"
#include "zoltest.h"

// This program's operator new (failing_new.cpp) fails on every thread but the test's while
// g_failOnWorkers is set.
static std::atomic<bool> g_failOnWorkers{false};
static std::atomic<pid_t> g_testThread{0};
bool zoltest::AllocationFails() {
    return g_failOnWorkers && gettid() != g_testThread;
}

namespace {

using L = ZOLOfflineLog;
constexpr const char* kLogDir = "/data/vendor/camera/offlinelog";
constexpr const char* kSettings = "/vendor/etc/camera/camxoverridesettings.txt";

L* Log() {
    return L::GetInstance();
}

// A device root with the log directory. Nothing writes below it any more when it goes.
struct LogRoot : zoltest::DeviceRoot {
    LogRoot() { MakeDir(kLogDir); }
    ~LogRoot() { Log()->WaitForQueuedLines(); }
    std::string Dir() const { return Resolve(kLogDir); }
    std::vector<std::string> Files() const { return zoltest::ListDir(Dir()); }
    std::string File(size_t i) const { return zoltest::ReadFile(Dir() + "/" + Files().at(i)); }
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
        L::ZOLOfflineLogE,        L::ZOLOfflineLogW,        L::ZOLOfflineLogD,
        L::ZOLOfflineLogI,        L::ZOLOfflineLogV,        L::ZOLOfflineLogECapture,
        L::ZOLOfflineLogWCapture, L::ZOLOfflineLogDCapture, L::ZOLOfflineLogICapture,
        L::ZOLOfflineLogVCapture};
    const time_t before = time(nullptr);
    for (size_t i = 0; i < 10; ++i) {
        entries[i]("row %zu", i);
        ASSERT_TRUE(Log()->WaitForQueuedLines());
    }
    int row = 10;
    for (const int level : {1, 4, 5, 0, 6, -1}) {  // given to PushLogToLogPool
        LogInOrder("row " + std::to_string(row++), level);
    }
    pid_t otherTid = 0;
    std::thread([&] {
        otherTid = gettid();
        L::ZOLOfflineLogI("row 16");
    }).join();
    ASSERT_TRUE(Log()->WaitForQueuedLines());
    const time_t after = time(nullptr) + 1;  // time() reads a clock that may lag a tick behind
    const std::vector<zoltool::LogLine> lines = root.Lines();
    ASSERT_EQ(17u, lines.size());
    for (size_t i = 0; i < 17; ++i) {
        const zoltool::LogLine& line = lines[i];
        EXPECT_EQ("row " + std::to_string(i), line.message);
        EXPECT_EQ("EWDIVEWDIVEIVVVVI"[i], line.level) << i;
        EXPECT_EQ(getpid(), line.pid);
        EXPECT_EQ(i < 16 ? gettid() : otherTid, line.tid);
        const zoltool::LogStamp& s = line.stamp;  // its year comes from the file's name
        const time_t t = Seconds(s.year, s.month, s.day, s.hour, s.minute, s.second);
        EXPECT_TRUE(before <= t && t <= after) << line.text;
    }
    // One file, named after the time the first line made it.
    ASSERT_EQ(1u, root.Files().size());
    zol::offlinelog::FileNameTime f;
    ASSERT_TRUE(zol::offlinelog::ParseFileName(root.Files()[0], f)) << root.Files()[0];
    const time_t made = Seconds(f.year, f.month, f.day, f.hour, f.minute, f.second);
    EXPECT_TRUE(before <= made && made <= after) << root.Files()[0];
    // A thread keeps the last second it broke down; another second is broken down anew.
    for (const time_t t : {before + 61, before + 61, before, before + 3600}) {
        struct tm got;
        zol::offlinelog::LocalTime(t, &got);
        EXPECT_EQ(t, mktime(&got));
    }
}

// A line is cut to 2,047 characters and keeps its newline only when that fits too; the cut
// lines run into the next one, which the reader takes apart again.
TEST(OfflineLog, LongLinesAreCutTo2047Characters) {
    LogRoot root;
    LogInOrder("x");
    const size_t stamp = root.Lines().at(0).text.size() - 1;  // this thread's stamp
    const std::string a(2046 - stamp, 'a'), b(2047 - stamp, 'b'), c(2047 - stamp, 'c');
    LogInOrder(a);  // with its newline: 2,047
    LogInOrder(b);  // the newline is cut
    LogInOrder(std::string(3000, 'c'));
    L::ZOLOfflineLogI("%s", std::string(5000, 'm').c_str());  // cut when formatted
    ASSERT_TRUE(Log()->WaitForQueuedLines());
    LogInOrder("after");
    std::vector<std::string> messages;
    for (const zoltool::LogLine& line : root.Lines()) {
        messages.push_back(line.message);
    }
    const std::string m(2047 - stamp, 'm');
    EXPECT_EQ((std::vector<std::string>{"x", a, b, c, m, "after"}), messages);
    EXPECT_EQ(stamp + 2 + 4 * 2047 + stamp + 6, root.File(0).size());
}

TEST(OfflineLog, LineThatWouldReachTheSizeLimitStartsANewFile) {
    LogRoot root;
    // A block holding a line of `len` bytes, newline included.
    auto line = [](size_t len, char fill) {
        ZOLOfflineLogParameter param = {};
        std::string(len - 1, fill).append("\n").copy(param.logLine, len);
        return param;
    };
    constexpr uint32_t kLimit = L::kMaxLogFileSize;
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
    ASSERT_EQ(2u, root.Files().size());
    EXPECT_EQ(kLimit - 1, root.File(0).size());
    EXPECT_EQ("\n", root.File(1));
}

// Files are named to the microsecond: the next one must wait for the clock to move on.
void NextMicrosecond() {
    const std::string now = zol::offlinelog::NewLogFilePath();
    zoltest::WaitUntil([&] { return zol::offlinelog::NewLogFilePath() != now; });
}

// The memory pool goes to a file of its own, all or nothing, and is emptied; its files count
// with the lines' files: the 301st file of the log, whichever made it, deletes the first.
TEST(OfflineLog, PoolFilesAndLineFilesShareTheCapOf300) {
    LogRoot root;
    const std::string big(L::kLogPoolSize - 1 - 13, 'p');  // one byte stays for the zero
    const struct {
        std::string text;
        bool taken;
    } rows[] = {{"pool one\n", true}, {big, true},  {"12345", false},
                {"1234", true},       {"x", false}, {"", true}};
    for (const auto& row : rows) {
        EXPECT_EQ(row.taken, Log()->AppendToLogPool(row.text.data(), row.text.size()))
            << row.text.size();
    }
    ASSERT_TRUE(Log()->FlushLogPoolToFile());
    EXPECT_TRUE(Log()->AppendToLogPool("x", 1)) << "room again after the flush";
    for (int i = 1; i < 300; ++i) {
        NextMicrosecond();
        ASSERT_TRUE(Log()->FlushLogPoolToFile());
    }
    const std::vector<std::string> files = root.Files();
    ASSERT_EQ(300u, files.size());
    EXPECT_EQ("pool one\n" + big + "1234", root.File(0));
    EXPECT_EQ("x", root.File(1));
    EXPECT_EQ("", root.File(2));
    NextMicrosecond();
    LogInOrder("a line's new file counts as well");
    const std::vector<std::string> after = root.Files();
    ASSERT_EQ(300u, after.size());
    EXPECT_EQ(files[1], after[0]);
}

// The switch: the property, and else the settings file (nullptr: none; "/": a directory in its
// place), whose last qualifying line decides; a long line costs no stack. Rows without a
// property read the file alone; the others build a log in a child: decided once, when it is
// built. Off, the workers run all the same, no memory pool exists, and a pool flush still
// makes an (empty) file. On, lines carry the child's own ids.
TEST(OfflineLog, SwitchedByThePropertyElseTheSettingsFile) {
    // Far longer than any thread's stack could recurse through, a frame per character.
    const std::string longLines = "ZOLOfflineLog" + std::string(2000000, 'x') + "=true\n" +
                                  "ZOLOfflineLog=" + std::string(2000000, 'y') + "\n";
    const struct {
        const char* property;  // nullptr: the file alone; "": unset
        const char* settings;
        bool on;
    } rows[] = {
        {nullptr, nullptr, false},
        {nullptr, "/", false},
        {nullptr, "ZOLOfflineLog=tRuE\n", true},
        {nullptr, "ZOLOfflineLogEnable = TRUE", true},  // a last line without newline counts
        {nullptr, "overrideLogLevels=0x1F\nZOLOfflineLog=TRUE\nfoo=false\n", true},
        {nullptr, "ZOLOfflineLogTrue=0\n", true},  // the words are looked for anywhere
        {nullptr, "ZOLOfflineLogFalse=0\n", false},
        {nullptr, "ZOLOfflineLogFalse=true\n", true},  // true first
        {nullptr, "ZOLOfflineLog=true\nZOLOfflineLog=1\nZOLOfflineLog=0\n", true},
        {nullptr, "ZOLOfflineLog=true\nZOLOfflineLog=false\n", false},
        {nullptr, "ZOLOfflineLog=true\nZOLOfflineLog=FALSE\n", false},  // A to Z lowered
        {nullptr, "ZOLOfflineLog= rue\n", false},                       // every letter compared
        {nullptr, "ZOLOfflineLog=true\n ZOLOfflineLog=false\n", true},  // the key starts a line
        {nullptr, "zolofflinelog=true\n", false},                       // in exact case
        {nullptr, "ZOLOfflineLog true\n", false},
        {nullptr, "ZOLOfflineLog=true\r\n", false},  // a carriage return never qualifies
        {nullptr, "ZOLOfflineLog=true\nZOLOfflineLog=false\r\n", true},
        {nullptr, longLines.c_str(), true},
        {"", nullptr, false},
        {"", "ZOLOfflineLog=TRUE\n", true},
        {"-1", "ZOLOfflineLog=false\n", false},
        {"-1", "ZOLOfflineLog=true\n", true},
        {"on", "ZOLOfflineLog=true\n", true},  // not a number: as unset
        {"0", "ZOLOfflineLog=true\n", false},
        {"-2", "ZOLOfflineLog=true\n", false},
        {"5", "ZOLOfflineLog=false\n", true},
        {"1", nullptr, true},
    };
    zol::offlinelog::ProcessId();  // kept once read: a child must read its own again
    zol::offlinelog::ThreadId();
    for (const auto& row : rows) {
        const std::string what = std::string(row.property ? row.property : "(file)") + " " +
                                 (row.settings ? std::string(row.settings, 0, 60) : "(none)");
        zoltest::DeviceRoot root;
        const std::string dir = root.MakeDir(kLogDir);
        if (row.settings != nullptr && std::string(row.settings) == "/") {
            root.MakeDir(kSettings);
        } else if (row.settings != nullptr) {
            root.WriteFile(kSettings, row.settings);
        }
        if (row.property == nullptr) {
            bool on = !row.on;
            std::thread([&] { on = L::ReadEnableFromOverrideSettingsFile(); }).join();
            EXPECT_EQ(row.on, on) << what;
            continue;
        }
        const int status = zoltest::RunInChild([&] {
            const char* name = "persist.vendor.camera.zoltools.offlinelog";
            *row.property ? setenv(name, row.property, 1) : unsetenv(name);
            Log();
            root.WriteFile(kSettings, row.on ? "ZOLOfflineLog=false\n" : "ZOLOfflineLog=true\n");
            L::ZOLOfflineLogD("plain");
            L::ZOLOfflineLogDCapture("capture");
            const bool waited = Log()->WaitForQueuedLines();
            const std::vector<zoltool::LogLine> lines = zoltest::ReadOfflineLog(dir);
            bool ownIds = true;
            for (const zoltool::LogLine& line : lines) {
                ownIds = ownIds && line.pid == getpid() && line.tid == gettid();
            }
            const bool pooled = Log()->AppendToLogPool("x", 1);
            const bool flushed = Log()->FlushLogPoolToFile();
            return (waited ? 0 : 1) | (lines.size() == (row.on ? 2u : 0u) ? 0 : 2) |
                   (pooled == row.on ? 0 : 4) | (ownIds ? 0 : 8) |
                   (flushed && zoltest::ListDir(dir).size() == (row.on ? 2u : 1u) ? 0 : 16);
        });
        EXPECT_EQ(0, status) << what;
    }
}

// A worker that cannot allocate, neither to take on the logging thread's context nor for the
// file's path, drops the line it was writing and counts it instead of ending the process;
// writing goes on once memory is back.
TEST(OfflineLog, WorkerOutOfMemoryDropsTheLineItCannotWrite) {
    g_testThread = gettid();
    LogRoot root;
    LogInOrder("before");
    g_failOnWorkers = true;
    for (int i = 0; i < 10; ++i) {
        L::ZOLOfflineLogI("lost %d", i);
    }
    ASSERT_TRUE(Log()->WaitForQueuedLines());
    g_failOnWorkers = false;
    EXPECT_EQ(10u, Log()->DroppedLinesNoFile());
    LogInOrder("after");
    const std::vector<zoltool::LogLine> lines = root.Lines();
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ("before", lines[0].message);
    EXPECT_EQ("after", lines[1].message);
}

// Lines still queued at exit are dropped; what was written is whole lines. Logging after the
// log is gone (from a static destructor, say) does nothing.
TEST(OfflineLog, ProcessExitingWithLinesQueuedExitsCleanly) {
    LogRoot root;
    const int status = zoltest::RunInChild([] {
        std::atexit([] {  // before the log exists, so it runs after its destructor
            L::ZOLOfflineLogE("too late");
            L::ZOLOfflineLogVCapture("too late");
            ZOLOfflineLogParameter param = {};
            L::SaveLog(&param, sizeof(param));
        });
        Log();
        // Workers take on the submitter's context under this lock before each line: holding
        // it keeps them from writing, so nearly every line is still queued at the exit.
        {
            std::lock_guard<std::mutex> hold(ZOLThreadContextManager::m_threadIdToContextMapLock);
            for (int i = 0; i < 20000; ++i) {
                L::ZOLOfflineLogD("queued %d %s", i, std::string(200, 'q').c_str());
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
        ASSERT_TRUE(zoltest::MatchesPattern(line.message, "queued # " + std::string(200, 'q')));
    }
}

}  // namespace
