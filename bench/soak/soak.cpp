// zol_soak: N threads for T seconds mixing buffer managers (heap and DMA, raw and image), debug
// and offline logging, signal tasks, thread-pool work and pressure readings, with invariants
// checked as it goes (soak_workload.cpp). It samples its resident memory and open descriptors,
// reports operations, RSS and descriptors at the start and end of the measured phase, and exits
// non-zero on a broken invariant (a block in two holders' hands, a block lost or counted busy
// after its free, more than ten free blocks of a size), descriptors that grow (or, with
// mappings, are not all given back once every manager is gone), steady RSS growth, or
// offline-log lines that did not reach their file, or reached it twice or torn. ctest runs it
// for a few seconds, with lines long enough to cross file rotations.
//
//   zol_soak [--threads N] [--seconds T] [--warmup S] [--max-rss-growth-mib M] [--log-level L]
//            [--line-bytes B]
//
// Offline log files go to a temporary device root (ZOL_DEVICE_ROOT), removed at the end.
#include <android/log.h>
#include <dirent.h>
#include <stdlib.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/uniquefd.h"
#include "soak_process.h"
#include "soak_workload.h"
#include "zolofflinelog.h"
#include "zolsignaltask.h"
#include "zoltoolsdef.h"

namespace {

struct Options {
    int threads = 4;
    double seconds = 10;
    double warmup = -1;  // default: a tenth of the run, at least one second
    long maxRssGrowthMiB = 32;
    int logLevel = 2;
    long lineBytes = 0;  // padding added to every soak line
};

bool ParseOptions(int argc, char** argv, Options* out) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (i + 1 >= argc) {
            return false;
        }
        const char* value = argv[++i];
        if (arg == "--threads") {
            out->threads = std::atoi(value);
        } else if (arg == "--seconds") {
            out->seconds = std::atof(value);
        } else if (arg == "--warmup") {
            out->warmup = std::atof(value);
        } else if (arg == "--max-rss-growth-mib") {
            out->maxRssGrowthMiB = std::atol(value);
        } else if (arg == "--log-level") {
            out->logLevel = std::atoi(value);
        } else if (arg == "--line-bytes") {
            out->lineBytes = std::atol(value);
        } else {
            return false;
        }
    }
    if (out->warmup < 0) {
        out->warmup = std::max(1.0, out->seconds / 10);
    }
    return out->threads > 0 && out->seconds > 0 && out->lineBytes >= 0 && out->lineBytes < 1900;
}

// Descriptors in use swing by dozens while the soak runs (held DMA buffers, the pool's free
// ones, log files open for a line); a leak grows without bound. The strict check is the one
// after the managers are gone, where every descriptor must be back.
constexpr long kMaxFdGrowth = 64;

std::atomic<uint64_t> g_androidLines{0};
void CountAndroidLine(const struct __android_logger_data*, const char*) {
    g_androidLines.fetch_add(1, std::memory_order_relaxed);
}

// Lines of the files in `dir` that carry the soak's mark, whole; `files` is how many there are.
uint64_t CountMarkedLines(const std::string& dir, size_t* files) {
    std::vector<std::string> names;
    if (const zol::UniqueDir listing{opendir(dir.c_str())}) {
        while (const dirent* entry = readdir(listing.get())) {
            if (entry->d_name[0] != '.') {
                names.emplace_back(entry->d_name);
            }
        }
    }
    *files = names.size();
    uint64_t count = 0;
    for (const std::string& name : names) {
        std::ifstream file(dir + "/" + name);
        for (std::string line; std::getline(file, line);) {
            // A line cut short, or two run together, loses its end mark or holds two.
            const size_t mark = line.find(soak::Workload::kLineMark);
            count += mark != std::string::npos && line.rfind(soak::Workload::kLineMark) == mark &&
                     line.size() > 4 && line.compare(line.size() - 4, 4, " end") == 0;
        }
    }
    return count;
}

double MiB(long kib) {
    return static_cast<double>(kib) / 1024.0;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!ParseOptions(argc, argv, &options)) {
        std::fprintf(stderr,
                     "usage: %s [--threads N] [--seconds T] [--warmup S] "
                     "[--max-rss-growth-mib M] [--log-level L] [--line-bytes B]\n",
                     argv[0]);
        return 2;
    }

    // The device root and the offline log's switch, before anything reads them.
    const char* tmp = getenv("TMPDIR");
    std::string root =
        std::string(tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp") + "/zol-soak-XXXXXX";
    if (mkdtemp(&root[0]) == nullptr) {
        std::perror("mkdtemp");
        return 2;
    }
    const std::string logDir = root + "/data/vendor/camera/offlinelog";
    if (std::system(("mkdir -p '" + logDir + "'").c_str()) != 0) {
        return 2;
    }
    setenv("ZOL_DEVICE_ROOT", root.c_str(), 1);
    setenv("persist.vendor.camera.zoltools.offlinelog", "1", 1);
    __android_log_set_logger(CountAndroidLine);
    ZOLToolsLogLevel = options.logLevel;

    // The process-wide parts that live until exit, before the first descriptor count.
    ZOLOfflineLog* log = ZOLOfflineLog::GetInstance();
    ZOLSignalTask::instance();
    const int fdsBeforeManagers = soak::OpenDescriptors();
    const int mapsBeforeManagers = soak::SharedMappings();

    std::printf("zol_soak: %d threads, %.0f s (warm-up %.0f s), log level %d\n", options.threads,
                options.seconds, options.warmup, options.logLevel);
    std::vector<long> rss;
    std::vector<long> fds;
    uint64_t logged = 0;
    uint64_t operations = 0;
    int failures = 0;
    std::string firstViolation;
    double opsPerSecond = 0;
    {
        soak::Workload workload(static_cast<size_t>(options.lineBytes));
        std::atomic<bool> stop{false};
        std::vector<std::thread> threads;
        for (int i = 0; i < options.threads; ++i) {
            threads.emplace_back([&workload, &stop, i] { workload.Run(i, stop); });
        }
        using Clock = std::chrono::steady_clock;
        const auto start = Clock::now();
        std::this_thread::sleep_for(std::chrono::duration<double>(options.warmup));
        const uint64_t opsAtWarmup = workload.counts().Operations();
        const auto measured = Clock::now();
        while (Clock::now() - start < std::chrono::duration<double>(options.seconds)) {
            rss.push_back(soak::ResidentKiB());
            fds.push_back(soak::OpenDescriptors());
            std::this_thread::sleep_for(std::chrono::milliseconds(250));
        }
        opsPerSecond = static_cast<double>(workload.counts().Operations() - opsAtWarmup) /
                       std::chrono::duration<double>(Clock::now() - measured).count();
        stop = true;
        for (std::thread& t : threads) {
            t.join();
        }
        workload.DrainPool();
        // Every block is back: the only descriptors added are those of the free DMA blocks.
        const size_t freeDma = workload.CheckPool();
        if (!log->WaitForQueuedLines() ||
            soak::OpenDescriptors() != fdsBeforeManagers + static_cast<int>(freeDma)) {
            workload.Violation("descriptors other than those of the free DMA blocks are open");
        }
        soak::Counts& c = workload.counts();
        operations = c.Operations();
        logged = c.debugLines + c.offlineLines;
        std::printf(
            "operations: %llu in all (%.0f/s measured): raw buffers %llu, images %llu, debug "
            "lines %llu, offline lines %llu, signal tasks %llu (+%llu disconnected), pool tasks "
            "%llu, PSI reads %llu, short-lived managers %llu\n",
            static_cast<unsigned long long>(operations), opsPerSecond,
            static_cast<unsigned long long>(c.rawBuffers.load()),
            static_cast<unsigned long long>(c.images.load()),
            static_cast<unsigned long long>(c.debugLines.load()),
            static_cast<unsigned long long>(c.offlineLines.load()),
            static_cast<unsigned long long>(c.signalTasks.load()),
            static_cast<unsigned long long>(c.disconnected.load()),
            static_cast<unsigned long long>(c.poolTasksRun.load()),
            static_cast<unsigned long long>(c.psiReads.load()),
            static_cast<unsigned long long>(c.shortManagers.load()));
        if (c.violations != 0) {
            firstViolation = workload.FirstViolation();
            std::printf("invariants: %llu violations, the first: %s\n",
                        static_cast<unsigned long long>(c.violations.load()),
                        firstViolation.c_str());
            ++failures;
        } else {
            std::printf("invariants: all held\n");
        }
    }
    // Every manager is gone (the last one released the pool): every descriptor is back.
    if (!log->WaitForQueuedLines()) {
        ++failures;
    }
    const int fdsAfter = soak::OpenDescriptors();
    const int mapsAfter = soak::SharedMappings();

    const long rssGrowth = soak::SteadyGrowthKiB(rss);
    const long fdGrowth = soak::SteadyGrowthKiB(std::vector<long>(fds.begin(), fds.end()));
    std::printf("rss: start %.1f MiB, end %.1f MiB, steady growth %.1f MiB (limit %ld MiB)\n",
                MiB(rss.empty() ? 0 : rss.front()), MiB(rss.empty() ? 0 : rss.back()),
                MiB(rssGrowth), options.maxRssGrowthMiB);
    std::printf(
        "fds: start %ld, end %ld, steady growth %ld; %d before the managers, %d after them; "
        "shared mappings %d before, %d after\n",
        fds.empty() ? 0L : fds.front(), fds.empty() ? 0L : fds.back(), fdGrowth, fdsBeforeManagers,
        fdsAfter, mapsBeforeManagers, mapsAfter);
    if (rssGrowth > options.maxRssGrowthMiB * 1024) {
        std::printf("FAIL: resident memory keeps growing\n");
        ++failures;
    }
    if (fdGrowth > kMaxFdGrowth || fdsAfter != fdsBeforeManagers ||
        mapsAfter != mapsBeforeManagers) {
        std::printf("FAIL: descriptors or mappings grow or were not all given back\n");
        ++failures;
    }

    size_t files = 0;
    const uint64_t written = CountMarkedLines(logDir, &files);
    std::printf(
        "offline log: %llu lines logged, %llu whole in %zu files, dropped %llu (no memory) and "
        "%llu (no file); %llu Android log lines\n",
        static_cast<unsigned long long>(logged), static_cast<unsigned long long>(written), files,
        static_cast<unsigned long long>(log->DroppedLinesNoMemory()),
        static_cast<unsigned long long>(log->DroppedLinesNoFile()),
        static_cast<unsigned long long>(g_androidLines.load()));
    if (written != logged) {
        std::printf("FAIL: offline-log lines lost or repeated\n");
        ++failures;
    }
    std::system(("rm -rf '" + root + "'").c_str());
    std::printf("result: %s\n", failures == 0 ? "PASS" : "FAIL");
    return failures == 0 ? 0 : 1;
}
