// The offline log when its directory or its file system fails: a missing, unwritable or
// vanishing directory, no descriptors, a file size limit and a full file system. In every case
// the caller never notices, lines that cannot be written are dropped, and logging resumes by
// itself once the fault is gone.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include "fault_support.h"
#include "zolofflinelog.h"
#include "zoltest.h"

namespace {

constexpr const char* kLogDir = "/data/vendor/camera/offlinelog";

ZOLOfflineLog* Log() {
    return ZOLOfflineLog::GetInstance();
}

void LogLines(const char* what, int count) {
    for (int i = 0; i < count; ++i) {
        ZOLOfflineLog::ZOLOfflineLogI("%s %d", what, i);
    }
}

size_t CountContaining(const std::vector<std::string>& lines, const std::string& needle) {
    size_t n = 0;
    for (const std::string& line : lines) {
        n += line.find(needle) != std::string::npos;
    }
    return n;
}

// Polls `done` every millisecond for up to a minute; false if it never held.
template <typename F>
bool Eventually(F done) {
    for (int i = 0; i < 60000; ++i) {
        if (done()) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

TEST(OfflineLogFaults, MissingDirectoryDropsLinesUntilItExists) {
    zoltest::DeviceRoot root;
    ZOLOfflineLog* log = Log();
    LogLines("before", 50);
    ASSERT_TRUE(log->WaitForQueuedLines());
    EXPECT_EQ(50u, log->DroppedLinesNoFile());
    EXPECT_EQ(0u, log->DroppedLinesNoMemory());

    const std::string dir = root.MakeDir(kLogDir);
    LogLines("after", 50);
    ASSERT_TRUE(log->WaitForQueuedLines());
    const std::vector<std::string> lines = faults::ReadLines(dir);
    EXPECT_EQ(50u, lines.size());
    EXPECT_EQ(50u, CountContaining(lines, " ZOL: after "));
    EXPECT_EQ(50u, log->DroppedLinesNoFile()) << "nothing more was dropped";
}

TEST(OfflineLogFaults, UnwritableDirectoryDropsLinesUntilWritable) {
    zoltest::DeviceRoot root;
    const std::string dir = root.MakeDir(kLogDir);
    ZOLOfflineLog* log = Log();
    // Root ignores permission bits: it gives up its effective identity for the duration
    // instead (the workers share it), which makes the root-only temporary tree unreachable.
    const bool asRoot = geteuid() == 0;
    if (asRoot) {
        ASSERT_EQ(0, seteuid(65534));
    } else {
        ASSERT_EQ(0, chmod(dir.c_str(), 0500));
    }
    LogLines("refused", 30);
    ASSERT_TRUE(log->WaitForQueuedLines());
    if (asRoot) {
        ASSERT_EQ(0, seteuid(0));
    } else {
        ASSERT_EQ(0, chmod(dir.c_str(), 0700));
    }
    EXPECT_EQ(30u, log->DroppedLinesNoFile());
    EXPECT_TRUE(zoltest::ListDir(dir).empty());

    LogLines("accepted", 30);
    ASSERT_TRUE(log->WaitForQueuedLines());
    EXPECT_EQ(30u, CountContaining(faults::ReadLines(dir), " ZOL: accepted "));
}

TEST(OfflineLogFaults, FileWhereTheDirectoryShouldBe) {
    zoltest::DeviceRoot root;
    root.WriteFile(kLogDir, "not a directory");
    ZOLOfflineLog* log = Log();
    LogLines("refused", 10);
    ASSERT_TRUE(log->WaitForQueuedLines());
    EXPECT_EQ(10u, log->DroppedLinesNoFile());

    ASSERT_EQ(0, unlink(root.Resolve(kLogDir).c_str()));
    const std::string dir = root.MakeDir(kLogDir);
    LogLines("accepted", 10);
    ASSERT_TRUE(log->WaitForQueuedLines());
    EXPECT_EQ(10u, CountContaining(faults::ReadLines(dir), " ZOL: accepted "));
}

// Writers log without pause while the directory is removed and made again.
TEST(OfflineLogFaults, DirectoryRemovedWhileLinesAreWritten) {
    zoltest::DeviceRoot root;
    const std::string dir = root.MakeDir(kLogDir);
    ZOLOfflineLog* log = Log();

    std::atomic<bool> stop{false};
    std::atomic<uint64_t> logged{0};
    std::vector<std::thread> writers;
    // Joins the writers however the test ends (a failed assertion returns early).
    struct JoinWriters {
        std::atomic<bool>& stop;
        std::vector<std::thread>& threads;
        ~JoinWriters() {
            stop = true;
            for (std::thread& thread : threads) {
                if (thread.joinable()) {
                    thread.join();
                }
            }
        }
    } joinWriters{stop, writers};
    for (int t = 0; t < 3; ++t) {
        writers.emplace_back([&, t] {
            for (int i = 0; !stop.load(); ++i) {
                ZOLOfflineLog::ZOLOfflineLogW("writer %d line %d", t, i);
                logged.fetch_add(1);
            }
        });
    }
    ASSERT_TRUE(Eventually([&] { return faults::DirBytes(dir) > 0; }));
    // Move the directory away in one step, then delete it: removed file by file, a worker's next
    // append could create the current file again before the directory itself goes, and then
    // the directory would stay.
    const std::string gone = dir + ".gone";
    ASSERT_EQ(0, rename(dir.c_str(), gone.c_str()));
    zoltest::RemoveTree(gone);
    // Lines are being dropped now: the directory is gone while the writers go on.
    ASSERT_TRUE(Eventually([&] { return log->DroppedLinesNoFile() > 0; }));
    root.MakeDir(kLogDir);
    ASSERT_TRUE(Eventually([&] { return faults::DirBytes(dir) > 0; }))
        << "logging resumed by itself in the new directory";
    stop = true;
    for (std::thread& w : writers) {
        w.join();
    }
    ZOLOfflineLog::ZOLOfflineLogE("marker after the fault");
    ASSERT_TRUE(log->WaitForQueuedLines());

    const std::vector<std::string> lines = faults::ReadLines(dir);
    EXPECT_EQ(1u, CountContaining(lines, " ZOL: marker after the fault"));
    for (const std::string& line : lines) {
        ASSERT_TRUE(faults::IsWholeLogLine(line)) << line;
    }
    // Lines written before the removal went with the directory; none is counted twice.
    EXPECT_LE(lines.size() + log->DroppedLinesNoFile(), logged.load() + 1);
    RecordProperty("linesLogged", std::to_string(logged.load()));
    RecordProperty("linesDropped", std::to_string(log->DroppedLinesNoFile()));
}

TEST(OfflineLogFaults, NoDescriptorsLeftDropsLinesUntilOneIsFree) {
    zoltest::DeviceRoot root;
    const std::string dir = root.MakeDir(kLogDir);
    ZOLOfflineLog* log = Log();
    ASSERT_TRUE(log->WaitForQueuedLines());  // the workers are up before the descriptors go
    {
        faults::NoMoreDescriptors none;
        LogLines("refused", 20);
        ASSERT_TRUE(log->WaitForQueuedLines());
    }
    EXPECT_EQ(20u, log->DroppedLinesNoFile());
    LogLines("accepted", 20);
    ASSERT_TRUE(log->WaitForQueuedLines());
    EXPECT_EQ(20u, CountContaining(faults::ReadLines(dir), " ZOL: accepted "));
}

// What a full disk does to a file: the write that crosses the limit is cut, the later ones
// fail, and none of it reaches the caller. The cut line's tail is lost and the next line that
// fits is appended right behind it.
void ExpectLogSurvivesFullFile(const std::string& dir, size_t limit) {
    ZOLOfflineLog* log = Log();
    const int count = static_cast<int>(limit / 30);  // about three times what fits
    for (int i = 0; i < count; ++i) {
        ZOLOfflineLog::ZOLOfflineLogD("filling the file with line %d of a few dozen bytes", i);
    }
    ASSERT_TRUE(log->WaitForQueuedLines());
    EXPECT_LE(faults::DirBytes(dir), limit);
    EXPECT_GT(faults::DirBytes(dir), limit / 2);
    EXPECT_EQ(0u, log->DroppedLinesNoFile()) << "the file opens; only its writes fail";
}

// The line that met the limit lost its tail and the first line written after the fault follows
// it on the same text line; every other line is whole.
void ExpectAtMostOneCutLine(const std::vector<std::string>& lines) {
    size_t cut = 0;
    for (const std::string& line : lines) {
        if (!faults::IsWholeLogLine(line) || line.find(" ZOL: ", 30) != line.rfind(" ZOL: ")) {
            ++cut;
        }
    }
    EXPECT_LE(cut, 1u);
    ::testing::Test::RecordProperty("cutLines", static_cast<int>(cut));
}

TEST(OfflineLogFaults, FileSizeLimitCutsTheFileAndLoggingGoesOn) {
    zoltest::DeviceRoot root;
    const std::string dir = root.MakeDir(kLogDir);
    signal(SIGXFSZ, SIG_IGN);
    {
        faults::ScopedLimit limit(RLIMIT_FSIZE, 8192);
        ExpectLogSurvivesFullFile(dir, 8192);
    }
    ZOLOfflineLog::ZOLOfflineLogE("marker after the limit");
    ASSERT_TRUE(Log()->WaitForQueuedLines());
    const std::vector<std::string> lines = faults::ReadLines(dir);
    EXPECT_EQ(1u, CountContaining(lines, " ZOL: marker after the limit"));
    EXPECT_GT(faults::DirBytes(dir), 8192u);
    ExpectAtMostOneCutLine(lines);
}

TEST(OfflineLogFaults, FullFileSystemCutsTheFileAndLoggingGoesOn) {
    zoltest::DeviceRoot root;
    const std::string dir = root.MakeDir(kLogDir);
    // Before the first log call: the workers it starts must share the new mount namespace.
    const std::string why = faults::MountPrivateTmpfs(dir, 64 * 1024);
    if (!why.empty()) {
        GTEST_SKIP() << why;
    }
    ExpectLogSurvivesFullFile(dir, 64 * 1024);
    // Room again: the following lines land in the same file.
    ASSERT_TRUE(faults::ResizeTmpfs(dir, 1024 * 1024));
    ZOLOfflineLog::ZOLOfflineLogE("marker after the disk had room again");
    ASSERT_TRUE(Log()->WaitForQueuedLines());
    const std::vector<std::string> lines = faults::ReadLines(dir);
    EXPECT_EQ(1u, CountContaining(lines, " ZOL: marker after the disk had room again"));
    EXPECT_EQ(1u, zoltest::ListDir(dir).size());
    ExpectAtMostOneCutLine(lines);
}

}  // namespace
