// The offline log when its directory, its file or its file system fails. In every case the
// caller never notices, every line that does not reach a file is counted, the files hold whole
// lines only (none cut, none glued to another), and logging resumes once the fault is gone.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <optional>
#include <string>

#include "fault_support.h"
#include "zolofflinelog.h"
#include "zoltest.h"

namespace {

constexpr uint64_t kLines = 300;  // logged while the fault lasts: about 24 KB

void LogLines(const char* what, uint64_t count) {
    for (uint64_t i = 0; i < count; ++i) {
        ZOLOfflineLog::ZOLOfflineLogW("%s %d, a line of a few dozen bytes", what,
                                      static_cast<int>(i));
    }
}

struct Fault {
    std::string dir;  // the log directory
    std::optional<faults::NoMoreDescriptors> noDescriptors;
    rlimit savedLimit;
};

void ForEachFile(Fault& f, void (*action)(const char* path)) {
    for (const std::string& name : zoltest::ListDir(f.dir)) {
        action((f.dir + "/" + name).c_str());
    }
}

struct FaultKind {
    const char* name;
    std::string (*prepare)(Fault&);  // before the log's first line; a text: skip, and why
    void (*make)(Fault&);
    void (*clear)(Fault&);
    bool noSpace;  // lost lines count as DroppedLinesNoSpace (else DroppedLinesNoFile)
    bool allLost;  // false: the file takes lines until it is full
};

void PrintTo(const FaultKind& kind, std::ostream* os) {
    *os << kind.name;
}

void MakeDir(Fault& f) {
    mkdir(f.dir.c_str(), 0700);
}

const FaultKind kFaults[] = {
    {"DirectoryRemoved", nullptr, [](Fault& f) { zoltest::RemoveTree(f.dir); }, MakeDir, false,
     true},
    // Root ignores permission bits: it gives up its identity instead (the workers share it).
    {"DirectoryAndFileUnwritable", nullptr,
     [](Fault& f) {
         ForEachFile(f, [](const char* path) { chmod(path, 0400); });
         chmod(f.dir.c_str(), 0500);
         ASSERT_TRUE(geteuid() != 0 || seteuid(65534) == 0);
     },
     [](Fault& f) {
         ASSERT_TRUE(getuid() != 0 || seteuid(0) == 0);
         chmod(f.dir.c_str(), 0700);
         ForEachFile(f, [](const char* path) { chmod(path, 0600); });
     },
     false, true},
    {"FileWhereTheDirectoryShouldBe", nullptr,
     [](Fault& f) {
         zoltest::RemoveTree(f.dir);
         close(open(f.dir.c_str(), O_CREAT | O_WRONLY, 0600));
     },
     [](Fault& f) {
         unlink(f.dir.c_str());
         MakeDir(f);
     },
     false, true},
    {"NoDescriptorsLeft", nullptr, [](Fault& f) { f.noDescriptors.emplace(); },
     [](Fault& f) { f.noDescriptors.reset(); }, false, true},
    // Opened for writing, a FIFO without a reader would hold the worker for ever.
    {"FifoInPlaceOfTheCurrentFile", nullptr,
     [](Fault& f) {
         ForEachFile(f, [](const char* path) {
             unlink(path);
             mkfifo(path, 0600);
         });
     },
     [](Fault& f) { ForEachFile(f, [](const char* path) { unlink(path); }); }, false, true},
    {"FileSizeLimit", nullptr,
     [](Fault& f) {
         signal(SIGXFSZ, SIG_IGN);
         getrlimit(RLIMIT_FSIZE, &f.savedLimit);
         rlimit limit = f.savedLimit;
         limit.rlim_cur = 8192;
         setrlimit(RLIMIT_FSIZE, &limit);
     },
     [](Fault& f) { setrlimit(RLIMIT_FSIZE, &f.savedLimit); }, true, false},
    // Mounted before the log's first line: the workers it starts share the mount namespace.
    {"FullFileSystem", [](Fault& f) { return faults::MountPrivateTmpfs(f.dir, 16 * 1024); },
     [](Fault&) {}, [](Fault& f) { ASSERT_TRUE(faults::ResizeTmpfs(f.dir, 1024 * 1024)); }, true,
     false},
};

class OfflineLogFault : public ::testing::TestWithParam<FaultKind> {};

TEST_P(OfflineLogFault, LinesLostAreCountedAndLoggingResumes) {
    const FaultKind& kind = GetParam();
    alarm(120);  // a worker stuck on the fault fails the test instead of hanging it
    zoltest::DeviceRoot root;
    Fault fault{root.MakeDir(faults::kLogDir), std::nullopt, {}};
    const std::string skip = kind.prepare != nullptr ? kind.prepare(fault) : "";
    if (!skip.empty()) {
        GTEST_SKIP() << skip;
    }
    ZOLOfflineLog* log = ZOLOfflineLog::GetInstance();
    LogLines("before", 1);
    ASSERT_TRUE(log->WaitForQueuedLines());
    kind.make(fault);
    LogLines("during", kLines);
    ASSERT_TRUE(log->WaitForQueuedLines());
    kind.clear(fault);
    const uint64_t lost = kind.noSpace ? log->DroppedLinesNoSpace() : log->DroppedLinesNoFile();
    EXPECT_EQ(0u, kind.noSpace ? log->DroppedLinesNoFile() : log->DroppedLinesNoSpace());
    EXPECT_TRUE(kind.allLost ? lost == kLines : lost > 0 && lost < kLines) << lost;

    LogLines("after", 10);
    ASSERT_TRUE(log->WaitForQueuedLines());
    std::vector<zoltool::DamagedLine> damaged;
    size_t during = 0;
    size_t after = 0;
    for (const zoltool::LogLine& line : zoltest::ReadOfflineLog(fault.dir, &damaged)) {
        // A cut line, or one with the next glued to it, is not one whole message.
        ASSERT_TRUE(zoltest::MatchesPattern(line.message, "before 0, a line of a few dozen bytes") ||
                    zoltest::MatchesPattern(line.message, "during #, a line of a few dozen bytes") ||
                    zoltest::MatchesPattern(line.message, "after #, a line of a few dozen bytes"))
            << line.text;
        during += line.message.rfind("during ", 0) == 0;
        after += line.message.rfind("after ", 0) == 0;
    }
    EXPECT_TRUE(damaged.empty()) << damaged[0].Describe();
    EXPECT_EQ(10u, after);
    EXPECT_EQ(kLines, during + lost) << "each line in a file or counted";
    RecordProperty("linesLost", std::to_string(lost));
}

INSTANTIATE_TEST_SUITE_P(Faults, OfflineLogFault, ::testing::ValuesIn(kFaults),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
