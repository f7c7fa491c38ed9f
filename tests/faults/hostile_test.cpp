// The library in a hostile process: the offline log when its directory or its file fails, buffer
// managers without descriptors or with a named pool destroyed under them, replays of hostile save
// folders. Every TEST is a process of its own (limits, the pool and the log are process-wide).
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "zolalgosimulation.h"
#include "zolbuffermanager.h"
#include "zolofflinelog.h"
#include "zoltest.h"
#include "zoltoolsdef.h"

namespace {

// Lowers a soft limit while it lives. No descriptor can be opened under an RLIMIT_NOFILE of 0,
// while those open stay usable.
struct Limit {
    Limit(decltype(RLIMIT_NOFILE) resource, rlim_t value) : resource(resource) {
        getrlimit(resource, &saved);
        const rlimit lowered = {value, saved.rlim_max};
        setrlimit(resource, &lowered);
    }
    ~Limit() { setrlimit(resource, &saved); }
    decltype(RLIMIT_NOFILE) resource;
    rlimit saved;
};

constexpr uint64_t kLines = 300;  // logged while the fault lasts: about 24 KB

void LogLines(const char* what, int count) {
    for (int i = 0; i < count; ++i) {
        ZOLOfflineLog::ZOLOfflineLogW("%s %d, a line of a few dozen bytes", what, i);
    }
}

struct Fault {
    std::string dir;  // the log directory
    std::optional<Limit> limit;

    void ForEachFile(void (*action)(const char* path)) const {
        for (const std::string& name : zoltest::ListDir(dir)) {
            action((dir + "/" + name).c_str());
        }
    }
};

// A tmpfs of `bytes` over `dir`, seen by this process only. Mount namespaces are unshared per
// process, so this runs before the log starts its workers. Empty when made, else why not.
std::string MountPrivateTmpfs(const std::string& dir, size_t bytes) {
    if (unshare(CLONE_NEWNS) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
        return std::string("no private mount namespace: ") + std::strerror(errno);
    }
    // Mounts made here must not propagate back to the machine's namespace.
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("zolfaults", dir.c_str(), "tmpfs", 0, ("size=" + std::to_string(bytes)).c_str())) {
        return std::string("cannot mount a private tmpfs: ") + std::strerror(errno);
    }
    return std::string();
}

struct FaultKind {
    const char* name;
    std::string (*prepare)(Fault&);  // before the log starts; a reason to skip when not empty
    void (*make)(Fault&);
    void (*clear)(Fault&);
    bool noSpace;  // lost lines count as DroppedLinesNoSpace (else DroppedLinesNoFile)
    bool allLost;  // false: the file takes lines until it is full
};

// An open that fails takes one road whatever the cause: a removed directory stands for all.
const FaultKind kFaults[] = {
    {"DirectoryRemoved", nullptr, [](Fault& f) { zoltest::RemoveTree(f.dir); },
     [](Fault& f) { mkdir(f.dir.c_str(), 0700); }, false, true},
    {"NoDescriptorsLeft", nullptr, [](Fault& f) { f.limit.emplace(RLIMIT_NOFILE, 0); },
     [](Fault& f) { f.limit.reset(); }, false, true},
    // Opened for writing, a FIFO without a reader would hold the worker for ever.
    {"FifoInPlaceOfTheCurrentFile", nullptr,
     [](Fault& f) {
         f.ForEachFile([](const char* path) {
             unlink(path);
             mkfifo(path, 0600);
         });
     },
     [](Fault& f) { f.ForEachFile([](const char* path) { unlink(path); }); }, false, true},
    {"FileSizeLimit", nullptr,
     [](Fault& f) {
         signal(SIGXFSZ, SIG_IGN);
         f.limit.emplace(RLIMIT_FSIZE, 8192);
     },
     [](Fault& f) { f.limit.reset(); }, true, false},
    // The file system fills up under the log (ENOSPC, where the size limit gives EFBIG).
    {"FullFileSystem", [](Fault& f) { return MountPrivateTmpfs(f.dir, 16 * 1024); }, [](Fault&) {},
     [](Fault& f) {
         ASSERT_EQ(0, mount(nullptr, f.dir.c_str(), nullptr, MS_REMOUNT, "size=1048576"));
     },
     true, false},
};

void PrintTo(const FaultKind& kind, std::ostream* os) {
    *os << kind.name;
}

class OfflineLogFault : public ::testing::TestWithParam<FaultKind> {};

TEST_P(OfflineLogFault, LinesLostAreCountedAndLoggingResumes) {
    const FaultKind& kind = GetParam();
    alarm(120);  // a worker stuck on the fault fails the test instead of hanging it
    zoltest::DeviceRoot root;
    Fault fault{root.MakeDir("/data/vendor/camera/offlinelog"), std::nullopt};
    const std::string skip = kind.prepare != nullptr ? kind.prepare(fault) : "";
    if (!skip.empty()) {
        GTEST_SKIP() << skip;
    }
    setenv("persist.vendor.camera.zoltools.offlinelog", "1", 1);  // read by the first line
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
    std::map<std::string, uint64_t> whole;  // by the word the line starts with
    for (const zoltool::LogLine& line : zoltest::ReadOfflineLog(fault.dir, &damaged)) {
        // A cut line, or one with the next glued to it, is not one whole message.
        const std::string what = line.message.substr(0, line.message.find(' '));
        ASSERT_TRUE(what == "before" || what == "during" || what == "after") << line.text;
        ASSERT_TRUE(zoltest::MatchesPattern(line.message, what + " #, a line of a few dozen bytes"))
            << line.text;
        ++whole[what];
    }
    EXPECT_TRUE(damaged.empty()) << damaged[0].Describe();
    EXPECT_EQ(kLines, whole["during"] + lost) << "each line in a file or counted";
    EXPECT_EQ(10u, whole["after"]);
}

INSTANTIATE_TEST_SUITE_P(Faults, OfflineLogFault, ::testing::ValuesIn(kFaults),
                         [](const auto& info) { return std::string(info.param.name); });

// With no descriptor left a manager keeps serving, and syncing, the sizes its pool holds, and
// leaks nothing.
TEST(BuffersHostile, NoDescriptorLeftManagerServesWhatThePoolHolds) {
    ZOLToolsLogLevel = ZOL_LOG_THRESHOLD_E;  // nothing else logs while descriptors are gone
    ZOLOfflineLog::GetInstance();            // nor starts threads then
    const int fds = zoltest::CountOpenFds();
    const int mappings = zoltest::CountSharedMappings();  // DMA buffers are the only ones
    {
        ZOLBufferManager manager("faults");
        void* raw = nullptr;
        int rawFd = 0;
        ASSERT_TRUE(manager.AllocBuffer(4096, &raw, rawFd, ZOL_BUFFER_TYPE_DMA));
        ZOLImageBuffer image = {};
        image.width = image.planeStride = 64;
        image.height = image.sliceHeight = 32;
        ASSERT_TRUE(manager.AllocBuffer(image, ZOL_BUFFER_TYPE_DMA));
        const ZOLImageBuffer first = image;
        manager.FreeBuffer(raw);
        manager.FreeBuffer(image);
        Limit noDescriptors(RLIMIT_NOFILE, 0);
        void* again = nullptr;
        int againFd = 0;
        EXPECT_TRUE(manager.AllocBuffer(4096, &again, againFd, ZOL_BUFFER_TYPE_DMA));
        EXPECT_TRUE(again == raw && againFd == rawFd);
        EXPECT_TRUE(manager.AllocBuffer(image, ZOL_BUFFER_TYPE_DMA));
        EXPECT_TRUE(image.Addr[0] == first.Addr[0] && image.Addr[1] == first.Addr[1]);
        EXPECT_TRUE(manager.StartCPUSync(image.fd[0], ZOL_CPU_SYNC_WRITE));
        EXPECT_TRUE(manager.EndCPUSync(image.fd[0]));
        EXPECT_TRUE(manager.FreeBuffer(again));
        manager.FreeBuffer(image);
    }
    // The manager was the last pool client: every pooled buffer went back to the system.
    EXPECT_EQ(fds, zoltest::CountOpenFds());
    EXPECT_EQ(mappings, zoltest::CountSharedMappings());
}

TEST(BuffersHostile, ANamedPoolDestroyedFirstLeavesItsBlocksRefused) {
    // A named pool is not counted as a client but leaves as one: its destruction runs the
    // last-client release, which gives back the lowest busy block, while the manager holds
    // both. The manager is then kept to the end: destroying it would take the count below zero.
    ZOLToolsLogLevel = ZOL_LOG_THRESHOLD_W;  // the refusal's level
    static ZOLBufferManager* held[2];
    for (ZOLBufferType type : {ZOL_BUFFER_TYPE_HEAP, ZOL_BUFFER_TYPE_DMA}) {
        held[type] = new ZOLBufferManager("Held");
        void* blocks[2] = {};
        int fd = 0;
        for (void*& block : blocks) {
            ASSERT_TRUE(held[type]->AllocBuffer(4096, &block, fd, type));
        }
        { ZOLBufferPool named("Named"); }
        const int lower = std::less<void*>()(blocks[0], blocks[1]) ? 0 : 1;
        zoltest::LogCapture log;
        EXPECT_FALSE(held[type]->FreeBuffer(blocks[lower])) << type;
        EXPECT_EQ(1u, log.Count("Free buffer failed, this buffer not alloced by this buffer "
                                "manager, pBuf: " +
                                zoltest::Address(blocks[lower]) + ", buffer manager name: Held"));
        EXPECT_TRUE(held[type]->FreeBuffer(blocks[1 - lower])) << type;
    }
}

// A mapping refused for want of address space fails the allocation, logged, and gives the
// descriptor back.
TEST(BuffersHostile, AMappingThatFailsIsAFailedAllocation) {
    if (access("/dev/dma_heap/system", R_OK) == 0 || ZOLTEST_EMULATED) {
        GTEST_SKIP() << "a real DMA heap fails before mapping; an emulator ignores RLIMIT_AS";
    }
    ZOLOfflineLog::GetInstance();  // its workers' stacks are mapped before the limit
    unsigned long pages = 0;
    ASSERT_TRUE(std::ifstream("/proc/self/statm") >> pages);
    ZOLBufferAllocator allocator;
    const int fds = zoltest::CountOpenFds();
    zoltest::LogCapture log;
    char* buffer = nullptr;
    int fd = -1;
    int result = 0;
    {
        // 256 MiB more than is mapped now (a sanitizer's shadow included): 1 GiB cannot be.
        Limit space(RLIMIT_AS, pages * sysconf(_SC_PAGESIZE) + (256ul << 20));
        result = allocator.AllocDMABuffer(1ul << 30, &buffer, fd);
    }
    EXPECT_EQ(-1, result);
    EXPECT_EQ(nullptr, buffer);
    EXPECT_EQ(fds, zoltest::CountOpenFds()) << "the descriptor is given back";
    EXPECT_EQ(1u, log.Count("Mmap DMA Buffer fail, pBuffer is nullptr"));
}

const std::string kBase = "/data/vendor/camera/algosimulation/";
constexpr const char* kNoData = "[algorithm simulation]: read data don't exit.";
constexpr uint8_t kUntouched = 0xEE;

// One 40-byte request record: format 0, the geometry, two planes, no descriptors.
std::string Record(uint32_t width, uint32_t height, uint32_t stride) {
    const uint32_t fields[10] = {0, width, height, stride, height, 2, 0, 0, 0, 0};
    return std::string(reinterpret_cast<const char*>(fields), sizeof(fields));
}

// A caller's format-0 image of side x side, planes exactly sized, from the heap or a manager.
struct Caller {
    Caller(uint32_t side, bool fromManager) : records(1) {
        ZOLImageBuffer& image = records[0];
        image.width = image.height = image.planeStride = image.sliceHeight = side;
        if (fromManager) {
            manager.AllocBuffer(image, ZOL_BUFFER_TYPE_HEAP);
        } else {
            planes[0].resize(side * side);
            planes[1].resize(side * side / 2);
            image.numberOfPlanes = 2;
            image.Addr[0] = planes[0].data();
            image.Addr[1] = planes[1].data();
        }
        luma = static_cast<uint8_t*>(image.Addr[0]);
        std::memset(luma, kUntouched, side * side);
    }
    ZOLBufferManager manager;
    std::vector<uint8_t> planes[2];
    std::vector<ZOLImageBuffer> records;
    uint8_t* luma;
};

// Each row saves one record and one frame and replays them twice with the same records: the
// first replay leaves the saved geometry in them, and the second must still be bounded by the
// 64x64 planes the caller made.
TEST(ReplayHostile, RecordsReusedAcrossReplaysStayWithinTheCallersPlanes) {
    const struct {
        const char* what;
        bool fromManager;
        uint32_t width, height, stride;  // saved
        uint8_t firstByte;               // of the luma plane after the second replay
    } kCases[] = {
        {"own planes, 256x256 saved", false, 256, 256, 256, kUntouched},
        {"manager's planes, 256x256 saved", true, 256, 256, 256, kUntouched},
        {"own planes, 32x32 saved", false, 32, 32, 32, 'F'},
        {"manager's planes, 64x64 saved", true, 64, 64, 64, 'F'},
        // 2^31 - 1 rows of 8 bytes, all at offset 0: refused before reading, not row by row.
        {"billions of rows", false, 8, 0xFFFFFFFEu, 0, kUntouched},
    };
    alarm(60);  // a replay that blocks or stalls ends the test
    for (const auto& c : kCases) {
        zoltest::DeviceRoot root;
        root.WriteFile(kBase + "A/requestInfo.bin", Record(c.width, c.height, c.stride));
        root.WriteFile(kBase + "A/inputFrameInfo_0_.yuv", std::string(256 * 256 * 3 / 2, 'F'));
        Caller caller(64, c.fromManager);
        ZOLAlgoSimulation simulation;
        ASSERT_TRUE(simulation.readSimulationInfo(caller.records, nullptr, 0)) << c.what;
        std::memset(caller.luma, kUntouched, 64 * 64);
        zoltest::LogCapture log;
        ASSERT_TRUE(simulation.readSimulationInfo(caller.records, nullptr, 0)) << c.what;
        EXPECT_EQ(c.firstByte == kUntouched ? 1u : 0u, log.Count(kNoData)) << c.what;
        EXPECT_EQ(c.firstByte, caller.luma[0]) << c.what;
    }
    alarm(0);
}

TEST(ReplayHostile, FilesThatAreNotRegularAreSkippedWithTheirLines) {
    const struct {
        const char* name;
        bool fifo;  // else a symbolic link to itself
        const char* line;
    } kCases[] = {
        {"inputFrameInfo_8x4_0_.yuv", true, kNoData},
        {"requestInfo.bin", true, kNoData},
        {"database.bin", true, "[algorithm simulation]: read database failed."},
        {"inputFrameInfo_8x4_0_.yuv", false, kNoData},
    };
    alarm(60);  // a replay that blocks or stalls ends the test
    for (const auto& c : kCases) {
        zoltest::DeviceRoot root;
        const std::string path = root.MakeDir(kBase + "A") + "/" + c.name;
        ASSERT_EQ(0, c.fifo ? mkfifo(path.c_str(), 0600) : symlink(c.name, path.c_str()));
        Caller caller(8, false);
        char database[4] = {};
        ZOLAlgoSimulation simulation;
        zoltest::LogCapture log;
        EXPECT_TRUE(simulation.readSimulationInfo(
            caller.records, reinterpret_cast<ZOLDatabaseBaseStruct*>(database), 4));
        EXPECT_EQ(1u, log.Count(c.line)) << c.name;
        EXPECT_EQ(kUntouched, caller.luma[0]) << c.name;
    }
    alarm(0);
}

TEST(ReplayHostile, BadBaseFolderEntriesAreSkippedInTurn) {
    zoltest::DeviceRoot root;
    root.WriteFile(kBase + "stray.txt", "x");
    ASSERT_EQ(0, symlink("loop", (root.MakeDir(kBase) + "loop").c_str()));
    root.WriteFile(kBase + "good/requestInfo.bin", Record(8, 8, 8));
    root.WriteFile(kBase + "good/inputFrameInfo_0_.yuv", std::string(96, 'F'));
    Caller caller(8, false);
    ZOLAlgoSimulation simulation;
    zoltest::LogCapture log;
    int replayed = 0;
    for (int i = 0; i < 6; ++i) {
        replayed += simulation.readSimulationInfo(caller.records, nullptr, 0) ? 1 : 0;
    }
    EXPECT_EQ(2, replayed);
    EXPECT_EQ(4u, log.Count("[algorithm simulation]: Current directory don't exit!"));
    EXPECT_EQ('F', caller.luma[0]);
}

}  // namespace
