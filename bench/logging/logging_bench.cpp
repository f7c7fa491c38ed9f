// The logging road's costs, beside spdlog's asynchronous logger with a rotating file sink in the
// same run and the same directory:
//  - a suppressed log call (the level guard alone);
//  - the caller's latency for one enabled message (median, p99, p99.9), through the debug log
//    (Android log + offline log), through the offline log's entry point alone, and through
//    spdlog;
//  - what the caller's time is made of (stamp, block, queue, wake-up, Android log);
//  - lines per second that the workers get into the files.
// The Android log goes to stderr on the host; stderr is pointed at /dev/null while this runs.
// Logs go below a fresh directory in $TMPDIR (or /tmp), removed at the end.
// ZOL_BENCH_HOG=n runs n threads that spin at normal priority for the whole run, as a busy
// camera process's other threads would.
#include <benchmark/benchmark.h>
#include <spdlog/async.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>

#include <fcntl.h>
#include <ftw.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "zolofflinelog.h"
#include "zolofflinelog/internal/zolofflinelogline.h"
#include "zoltoolsdef.h"

namespace {

std::string g_root;       // ZOL_DEVICE_ROOT of the run
std::string g_spdlogDir;  // the same log directory, for spdlog's files

constexpr int kLatencyLines = 20000;
constexpr int kThroughputLines = 100000;

// A typical library line.
#define BENCH_MESSAGE                                                                   \
    "[%s] %s:%d %s() Free buffer: %p size %u", "capture-mgr", "zolbench.cpp", __LINE__, \
        "FreeBuffer", static_cast<void*>(&g_root), 4096u

// spdlog's asynchronous logger: one worker thread, a bounded queue (the caller blocks when it is
// full), a rotating file sink with the offline log's size limit and file count.
struct SpdlogAsync {
    std::shared_ptr<spdlog::details::thread_pool> pool;
    std::shared_ptr<spdlog::logger> logger;

    // Until the worker has taken everything queued so far, then a flush.
    void Drain() {
        while (pool->queue_size() != 0) {
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
        logger->flush();
    }
};

SpdlogAsync MakeSpdlog(const std::string& name, size_t queue) {
    auto pool = std::make_shared<spdlog::details::thread_pool>(queue, 1);
    auto sink = std::make_shared<spdlog::sinks::rotating_file_sink_mt>(
        g_spdlogDir + "/" + name + ".txt", ZOLOfflineLog::kMaxLogFileSize,
        ZOLOfflineLog::kMaxLogFiles);
    auto logger = std::make_shared<spdlog::async_logger>(name, sink, pool,
                                                         spdlog::async_overflow_policy::block);
    logger->set_pattern("%m-%d %H:%M:%S:%F  %P  %t %L ZOL: %v");
    logger->set_level(spdlog::level::trace);
    return {pool, logger};
}

void ReportPercentiles(benchmark::State& state, std::vector<int64_t>& ns) {
    std::sort(ns.begin(), ns.end());
    auto at = [&](double q) {
        return static_cast<double>(ns[std::min(ns.size() - 1, static_cast<size_t>(q * ns.size()))]);
    };
    state.counters["p50_ns"] = at(0.5);
    state.counters["p99_ns"] = at(0.99);
    state.counters["p999_ns"] = at(0.999);
    state.counters["max_ns"] = static_cast<double>(ns.back());
}

int64_t Ns(const struct timespec& a, const struct timespec& b) {
    return (b.tv_sec - a.tv_sec) * 1000000000LL + (b.tv_nsec - a.tv_nsec);
}

// Times each call of `one` on its own; between runs the queue is left to drain untimed. Beside
// the wall-clock latency, the calling thread's own CPU time per call ("cpu_" counters): the
// difference is time the caller spent not running (preempted by the workers, or waiting).
template <typename F, typename Drain>
void Latency(benchmark::State& state, F one, Drain drain) {
    std::vector<int64_t> wall;
    std::vector<int64_t> cpu;
    wall.reserve(kLatencyLines * 4);
    cpu.reserve(kLatencyLines * 4);
    struct rusage r0;
    getrusage(RUSAGE_THREAD, &r0);
    for (auto _ : state) {
        for (int i = 0; i < kLatencyLines; ++i) {
            struct timespec c0, w0, w1, c1;
            clock_gettime(CLOCK_THREAD_CPUTIME_ID, &c0);
            clock_gettime(CLOCK_MONOTONIC, &w0);
            one(i);
            clock_gettime(CLOCK_MONOTONIC, &w1);
            clock_gettime(CLOCK_THREAD_CPUTIME_ID, &c1);
            wall.push_back(Ns(w0, w1));
            cpu.push_back(Ns(c0, c1));
        }
        state.PauseTiming();
        drain();
        state.ResumeTiming();
    }
    struct rusage r1;
    getrusage(RUSAGE_THREAD, &r1);
    // Minor page faults the caller took per line (fresh heap touched for the first time).
    state.counters["faults_per_line"] = static_cast<double>(r1.ru_minflt - r0.ru_minflt) /
                                        static_cast<double>(state.iterations() * kLatencyLines);
    ReportPercentiles(state, wall);
    std::sort(cpu.begin(), cpu.end());
    state.counters["cpu_p50_ns"] = static_cast<double>(cpu[cpu.size() / 2]);
    state.counters["cpu_p99_ns"] = static_cast<double>(cpu[cpu.size() * 99 / 100]);
    state.SetItemsProcessed(state.iterations() * kLatencyLines);
}

// ---- the suppressed call -------------------------------------------------------------------

void BM_SuppressedGuard(benchmark::State& state) {
    const int32_t saved = ZOLToolsLogLevel;
    ZOLToolsLogLevel = 0;
    for (auto _ : state) {
        ZOL_LOGD(BENCH_MESSAGE);
    }
    ZOLToolsLogLevel = saved;
}
BENCHMARK(BM_SuppressedGuard);

void BM_SuppressedSpdlog(benchmark::State& state) {
    SpdlogAsync spd = MakeSpdlog("suppressed", 8192);
    spd.logger->set_level(spdlog::level::off);
    for (auto _ : state) {
        spd.logger->debug("[{}] {}:{} {}() Free buffer: {} size {}", "capture-mgr", "zolbench.cpp",
                          __LINE__, "FreeBuffer", static_cast<void*>(&g_root), 4096u);
    }
}
BENCHMARK(BM_SuppressedSpdlog);

// ---- caller latency --------------------------------------------------------------------------

void WaitForZol() {
    ZOLOfflineLog::GetInstance()->WaitForQueuedLines();
}

void BM_LatencyDebugLog(benchmark::State& state) {
    Latency(
        state, [](int) { ZOLDebugLogD(BENCH_MESSAGE); }, WaitForZol);
}
BENCHMARK(BM_LatencyDebugLog)->Iterations(3)->Unit(benchmark::kMillisecond);

void BM_LatencyOfflineEntry(benchmark::State& state) {
    Latency(
        state, [](int) { ZOLOfflineLog::ZOLOfflineLogD(BENCH_MESSAGE); }, WaitForZol);
}
BENCHMARK(BM_LatencyOfflineEntry)->Iterations(3)->Unit(benchmark::kMillisecond);

void BM_LatencySpdlogAsync(benchmark::State& state) {
    // A queue deep enough for a whole run, like the offline log's unbounded one.
    SpdlogAsync spd = MakeSpdlog("latency", 32768);
    Latency(
        state,
        [&](int) {
            spd.logger->debug("[{}] {}:{} {}() Free buffer: {} size {}", "capture-mgr",
                              "zolbench.cpp", __LINE__, "FreeBuffer", static_cast<void*>(&g_root),
                              4096u);
        },
        [&] { spd.Drain(); });
}
BENCHMARK(BM_LatencySpdlogAsync)->Iterations(3)->Unit(benchmark::kMillisecond);

// Paced: one line every 50 us, as a capture thread logs between frames' work. The workers are
// asleep when a line comes, so each line pays for waking one.
template <typename F>
void Paced(benchmark::State& state, F one) {
    std::vector<int64_t> ns;
    for (auto _ : state) {
        for (int i = 0; i < 5000; ++i) {
            const auto t0 = std::chrono::steady_clock::now();
            one(i);
            const auto t1 = std::chrono::steady_clock::now();
            ns.push_back(std::chrono::duration_cast<std::chrono::nanoseconds>(t1 - t0).count());
            while (std::chrono::steady_clock::now() - t1 < std::chrono::microseconds(50)) {
            }
        }
    }
    ReportPercentiles(state, ns);
}

void BM_PacedOfflineEntry(benchmark::State& state) {
    Paced(state, [](int) { ZOLOfflineLog::ZOLOfflineLogD(BENCH_MESSAGE); });
    WaitForZol();
}
BENCHMARK(BM_PacedOfflineEntry)->Iterations(2)->Unit(benchmark::kMillisecond);

void BM_PacedSpdlogAsync(benchmark::State& state) {
    SpdlogAsync spd = MakeSpdlog("paced", 32768);
    Paced(state, [&](int) {
        spd.logger->debug("[{}] {}:{} {}() Free buffer: {} size {}", "capture-mgr", "zolbench.cpp",
                          __LINE__, "FreeBuffer", static_cast<void*>(&g_root), 4096u);
    });
}
BENCHMARK(BM_PacedSpdlogAsync)->Iterations(2)->Unit(benchmark::kMillisecond);

// ---- where the caller's time goes ----------------------------------------------------------

void BM_PartFormat1024(benchmark::State& state) {
    for (auto _ : state) {
        char buffer[1024] = {};
        snprintf(buffer, sizeof(buffer), BENCH_MESSAGE);
        benchmark::DoNotOptimize(buffer);
    }
}
BENCHMARK(BM_PartFormat1024);

void BM_PartAndroidLog(benchmark::State& state) {
    for (auto _ : state) {
        __android_log_write(ANDROID_LOG_DEBUG, "ZOL", "[capture-mgr] zolbench.cpp:1 FreeBuffer()");
    }
}
BENCHMARK(BM_PartAndroidLog);

void BM_PartStamp(benchmark::State& state) {
    for (auto _ : state) {
        struct timespec now;
        clock_gettime(CLOCK_REALTIME, &now);
        char stamp[zol::offlinelog::kStampSize];
        benchmark::DoNotOptimize(zol::offlinelog::FormatStamp(
            stamp, now, zol::offlinelog::ProcessId(), zol::offlinelog::ThreadId(), 'D'));
    }
}
BENCHMARK(BM_PartStamp);

// What the stamp's ids would cost read afresh each time, and the clock alone.
void BM_PartGettidGetpidSyscalls(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(gettid());
        benchmark::DoNotOptimize(getpid());
    }
}
BENCHMARK(BM_PartGettidGetpidSyscalls);

void BM_PartClock(benchmark::State& state) {
    for (auto _ : state) {
        struct timespec now;
        clock_gettime(CLOCK_REALTIME, &now);
        benchmark::DoNotOptimize(now);
    }
}
BENCHMARK(BM_PartClock);

void BM_PartLocaltimeR(benchmark::State& state) {
    for (auto _ : state) {
        const time_t now = time(nullptr);
        struct tm local;
        benchmark::DoNotOptimize(localtime_r(&now, &local));
    }
}
BENCHMARK(BM_PartLocaltimeR);

void BM_PartBlock(benchmark::State& state) {
    const char stamp[] = "11-21 14:00:00:123456789  1234  1234 D ZOL: ";
    for (auto _ : state) {
        char* block = static_cast<char*>(calloc(1, 2048));
        zol::offlinelog::ComposeLine(block, stamp, sizeof(stamp) - 1,
                                     "[capture-mgr] zolbench.cpp:1 FreeBuffer() Free buffer");
        benchmark::DoNotOptimize(block);
        free(block);
    }
}
BENCHMARK(BM_PartBlock);

// The submission protocol with nobody waiting (workers busy), and with a worker asleep on the
// condition variable that the notify has to wake.
void BM_PartQueueNoWaiter(benchmark::State& state) {
    std::mutex mutex;
    std::condition_variable cond;
    std::list<ZOLThreadPoolTask> list;
    for (auto _ : state) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            list.push_back(ZOLThreadPoolTask{0, nullptr, nullptr, 0, 0});
        }
        cond.notify_one();
        if (list.size() > 4096) {
            list.clear();
        }
    }
}
BENCHMARK(BM_PartQueueNoWaiter);

void BM_PartQueueWakeSleeper(benchmark::State& state) {
    std::mutex mutex;
    std::condition_variable cond;
    std::list<ZOLThreadPoolTask> list;
    bool stop = false;
    std::thread worker([&] {
        std::unique_lock<std::mutex> lock(mutex);
        for (;;) {
            cond.wait(lock, [&] { return stop || !list.empty(); });
            if (stop) {
                return;
            }
            list.clear();
        }
    });
    std::vector<int64_t> ns;
    for (auto _ : state) {
        // Let the worker fall asleep again first.
        state.PauseTiming();
        std::this_thread::sleep_for(std::chrono::microseconds(100));
        state.ResumeTiming();
        const auto t0 = std::chrono::steady_clock::now();
        {
            std::lock_guard<std::mutex> lock(mutex);
            list.push_back(ZOLThreadPoolTask{0, nullptr, nullptr, 0, 0});
        }
        cond.notify_one();
        ns.push_back(std::chrono::duration_cast<std::chrono::nanoseconds>(
                         std::chrono::steady_clock::now() - t0)
                         .count());
    }
    {
        std::lock_guard<std::mutex> lock(mutex);
        stop = true;
    }
    cond.notify_one();
    worker.join();
    ReportPercentiles(state, ns);
}
BENCHMARK(BM_PartQueueWakeSleeper)->Iterations(5000);

// ---- worker throughput -----------------------------------------------------------------------

void BM_ThroughputOfflineLog(benchmark::State& state) {
    for (auto _ : state) {
        for (int i = 0; i < kThroughputLines; ++i) {
            ZOLOfflineLog::ZOLOfflineLogD(BENCH_MESSAGE);
        }
        WaitForZol();
    }
    state.SetItemsProcessed(state.iterations() * kThroughputLines);
}
BENCHMARK(BM_ThroughputOfflineLog)->Iterations(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ThroughputSpdlogAsync(benchmark::State& state) {
    for (auto _ : state) {
        SpdlogAsync spd = MakeSpdlog("throughput", 8192);
        for (int i = 0; i < kThroughputLines; ++i) {
            spd.logger->debug("[{}] {}:{} {}() Free buffer: {} size {}", "capture-mgr",
                              "zolbench.cpp", __LINE__, "FreeBuffer", static_cast<void*>(&g_root),
                              4096u);
        }
        spd.logger.reset();
        spd.pool.reset();  // its destructor lets the worker take the whole queue, then joins it
    }
    state.SetItemsProcessed(state.iterations() * kThroughputLines);
}
BENCHMARK(BM_ThroughputSpdlogAsync)->Iterations(2)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp != nullptr ? tmp : "/tmp") + "/zolbench-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        return 1;
    }
    g_root = pattern;
    const std::string logDir = g_root + "/data/vendor/camera/offlinelog";
    for (const char* dir :
         {"/data", "/data/vendor", "/data/vendor/camera", "/data/vendor/camera/offlinelog"}) {
        mkdir((g_root + dir).c_str(), 0755);
    }
    g_spdlogDir = logDir;
    setenv("ZOL_DEVICE_ROOT", g_root.c_str(), 1);
    setenv("persist.vendor.camera.zoltools.offlinelog", "1", 1);

    // The Android log writes every priority (to stderr, here /dev/null), as on a device.
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    const int err = dup(STDERR_FILENO);
    const int null = open("/dev/null", O_WRONLY);
    dup2(null, STDERR_FILENO);

    std::atomic<bool> hogging{true};
    std::vector<std::thread> hogs;
    const char* hogCount = std::getenv("ZOL_BENCH_HOG");
    for (int i = 0; hogCount != nullptr && i < std::atoi(hogCount); ++i) {
        hogs.emplace_back([&] {
            while (hogging.load(std::memory_order_relaxed)) {
            }
        });
    }

    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    hogging = false;
    for (std::thread& hog : hogs) {
        hog.join();
    }
    benchmark::Shutdown();

    ZOLOfflineLog::GetInstance()->WaitForQueuedLines();
    dup2(err, STDERR_FILENO);
    nftw(
        g_root.c_str(),
        [](const char* p, const struct stat*, int, struct FTW*) { return remove(p); }, 16,
        FTW_DEPTH | FTW_PHYS);
    return 0;
}
