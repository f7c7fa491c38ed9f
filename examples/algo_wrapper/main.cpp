// algo_wrapper: one camera algorithm wrapped the way a vendor process wraps it, using zoltools
// for buffers, colour conversion, the debug and offline logs, save-and-replay of the
// algorithm's inputs, and the pressure-stall probe.
//
//   algo_wrapper [--frames N] [--size WxH] [--root DIR] [--verbose]
//
// It works under a device root (default ./zol-root; $ZOL_DEVICE_ROOT when set), creating what
// the library expects there. The first process runs N invocations in save mode: each draws a
// scene into the input, saves input and database through ZOLAlgoSimulation, runs the algorithm
// and dumps the output. It then starts itself again as a second process in replay mode
// (persist.vendor.camera.capture.algosimulation.dump=2, read by the library when it loads),
// which feeds the saved inputs back in and checks that every output is byte for byte the one
// the first run produced. Last come the pressure-stall averages and a summary of where things
// are. Exit status: 0 when the replay reproduced every output.
#include <android/log.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "devicesandbox.h"
#include "wrapper.h"
#include "zolofflinelog.h"
#include "zolpsi.h"
#include "zoltoolsdef.h"

extern char** environ;

namespace {

constexpr char kModeProperty[] = "persist.vendor.camera.capture.algosimulation.dump";
constexpr int kExitMismatch = 3;

struct Options {
    uint32_t frames = 4;
    uint32_t width = 640;
    uint32_t height = 480;
    std::string root;
    bool replay = false;  // set for the second process
    bool verbose = false;
};

void Usage(FILE* to) {
    std::fprintf(to,
                 "usage: algo_wrapper [--frames N] [--size WxH] [--root DIR] [--verbose]\n"
                 "  --frames N   invocations to save and replay (1 to 100, default 4)\n"
                 "  --size WxH   image size (even, default 640x480)\n"
                 "  --root DIR   device root (default $ZOL_DEVICE_ROOT, else ./zol-root)\n"
                 "  --verbose    show every library log line on stderr too\n");
}

bool ParseOptions(int argc, char** argv, Options& options) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const bool hasValue = i + 1 < argc;
        if (arg == "--frames" && hasValue) {
            options.frames = static_cast<uint32_t>(std::strtoul(argv[++i], nullptr, 10));
        } else if (arg == "--size" && hasValue) {
            unsigned w = 0, h = 0;
            char extra;
            if (std::sscanf(argv[++i], "%ux%u%c", &w, &h, &extra) != 2) {
                return false;
            }
            options.width = w;
            options.height = h;
        } else if (arg == "--root" && hasValue) {
            options.root = argv[++i];
        } else if (arg == "--replay") {
            options.replay = true;
        } else if (arg == "--verbose") {
            options.verbose = true;
        } else {
            return false;
        }
    }
    return options.frames >= 1 && options.frames <= 100 && options.width >= 2 &&
           options.width <= 8192 && options.height >= 2 && options.height <= 8192 &&
           options.width % 2 == 0 && options.height % 2 == 0;
}

std::string OutputName(const char* kind, uint32_t frame, const Options& options) {
    char name[96];
    std::snprintf(name, sizeof(name), "%s_%02u_%ux%u.nv21", kind, frame, options.width,
                  options.height);
    return name;
}

std::vector<char> ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

struct Totals {
    double prepareMs = 0, simulationMs = 0, algorithmMs = 0;
};

// Runs the invocations of one process. In replay mode each output is compared with the saving
// run's output of the same frame (the replay walks the saved folders in directory order, so
// the frame index comes from the replayed database, not from the loop).
int RunInvocations(const Options& options, const example::DeviceSandbox& sandbox, Totals& totals) {
    const char* who = options.replay ? "replay" : "save";
    example::AlgoWrapper wrapper(options.width, options.height);
    std::string error;
    if (!wrapper.Init(error)) {
        std::fprintf(stderr, "algo_wrapper (%s): %s\n", who, error.c_str());
        return 1;
    }
    uint32_t identical = 0;
    for (uint32_t i = 0; i < options.frames; ++i) {
        example::Invocation inv;
        if (!wrapper.Invoke(i, options.replay, inv, error)) {
            std::fprintf(stderr, "algo_wrapper (%s): invocation %u: %s\n", who, i, error.c_str());
            return 1;
        }
        totals.prepareMs += inv.prepareMs;
        totals.simulationMs += inv.simulationMs;
        totals.algorithmMs += inv.algorithmMs;
        const uint32_t frame = inv.db.frameIndex;
        const std::string out =
            sandbox.OutputDir() + OutputName(options.replay ? "replay" : "output", frame, options);
        if (!wrapper.DumpOutput(out)) {
            std::fprintf(stderr, "algo_wrapper (%s): cannot write %s\n", who, out.c_str());
            return 1;
        }
        std::string verdict;
        if (options.replay) {
            const std::string saved = sandbox.OutputDir() + OutputName("output", frame, options);
            const std::vector<char> a = ReadAll(saved), b = ReadAll(out);
            const bool same = !a.empty() && a == b;
            identical += same ? 1 : 0;
            verdict = same ? "  output identical" : "  OUTPUT DIFFERS from " + saved;
        }
        std::printf(
            "  %s frame %u: gamma %.2f contrast %.2f  simulation %.1f ms  algorithm "
            "%.1f ms%s\n",
            who, frame, static_cast<double>(inv.db.gamma), static_cast<double>(inv.db.contrast),
            inv.simulationMs, inv.algorithmMs, verdict.c_str());
        ZOL_LOGI("[AlgoWrapper] %s:%d %s() %s frame %u done", ZOL_FILE, __LINE__, "main", who,
                 frame);
    }
    std::fflush(stdout);
    if (options.replay && identical != options.frames) {
        std::printf("  replay: %u of %u outputs identical\n", identical, options.frames);
        return kExitMismatch;
    }
    return 0;
}

// Starts this program again in replay mode, with the simulation property set for the new
// process's library; returns its exit status.
int RunReplayProcess(const Options& options, const example::DeviceSandbox& sandbox) {
    std::vector<std::string> args = {
        "/proc/self/exe", "--replay",
        "--frames",       std::to_string(options.frames),
        "--size",         std::to_string(options.width) + "x" + std::to_string(options.height),
        "--root",         sandbox.root()};
    if (options.verbose) {
        args.push_back("--verbose");
    }
    std::vector<std::string> env;
    for (char** e = environ; *e != nullptr; ++e) {
        if (std::strncmp(*e, kModeProperty, sizeof(kModeProperty) - 1) != 0) {
            env.emplace_back(*e);
        }
    }
    env.push_back(std::string(kModeProperty) + "=2");
    std::vector<char*> argv, envp;
    for (std::string& a : args) {
        argv.push_back(a.data());
    }
    argv.push_back(nullptr);
    for (std::string& e : env) {
        envp.push_back(e.data());
    }
    envp.push_back(nullptr);
    std::fflush(stdout);
    pid_t pid;
    if (posix_spawn(&pid, argv[0], nullptr, nullptr, argv.data(), envp.data()) != 0) {
        std::perror("algo_wrapper: cannot start the replay process");
        return 1;
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Queued offline log lines are discarded at exit: let the workers write them first.
void FlushOfflineLog() {
    ZOLOfflineLog::GetInstance()->WaitForQueuedLines();
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!ParseOptions(argc, argv, options)) {
        Usage(stderr);
        return 2;
    }
    if (options.root.empty()) {
        const char* env = std::getenv("ZOL_DEVICE_ROOT");
        options.root = env != nullptr && *env != '\0' ? env : "zol-root";
    }
    // Keep the console to warnings and errors; every line still goes to the offline log.
    if (!options.verbose) {
        __android_log_set_minimum_priority(ANDROID_LOG_WARN);
    }
    example::DeviceSandbox sandbox(options.root);

    const char* mode = std::getenv(kModeProperty);
    const bool modeIsSave = mode == nullptr || std::atoi(mode) == 1;
    if (options.replay) {
        Totals totals;
        int status = RunInvocations(options, sandbox, totals);
        std::printf("  replay: %.1f ms per read-back, %.1f ms per algorithm run\n",
                    totals.simulationMs / options.frames, totals.algorithmMs / options.frames);
        FlushOfflineLog();
        return status;
    }
    if (!modeIsSave) {
        std::fprintf(stderr,
                     "algo_wrapper: %s=%s: the first run saves; unset it (the replay process "
                     "sets it to 2 itself)\n",
                     kModeProperty, mode);
        return 2;
    }

    std::string error;
    if (!sandbox.Prepare(error)) {
        std::fprintf(stderr, "algo_wrapper: cannot prepare the device root: %s\n", error.c_str());
        return 1;
    }
    const int cleared = sandbox.ClearEarlierSaves();
    const std::vector<std::string> logsBefore = sandbox.List(sandbox.OfflineLogDir());
    std::printf("algo_wrapper: %u frames of %ux%u NV21 under %s%s\n", options.frames, options.width,
                options.height, sandbox.root().c_str(),
                cleared > 0 ? " (earlier saves removed)" : "");

    Totals totals;
    int status = RunInvocations(options, sandbox, totals);
    if (status != 0) {
        FlushOfflineLog();
        return status;
    }
    const size_t saves = sandbox.List(sandbox.SimulationBase()).size();
    std::printf("replaying in a second process (%s=2):\n", kModeProperty);
    const int replayStatus = RunReplayProcess(options, sandbox);

    ZOLPSI psi;
    const float cpu = psi.GetPsiCpuSomeAvg10();
    const float memory = psi.GetPsiMemSomeAvg10();
    const float io = psi.GetPsiIoSomeAvg10();
    ZOL_LOGI("[AlgoWrapper] %s:%d %s() pressure: cpu %.2f memory %.2f io %.2f", ZOL_FILE, __LINE__,
             "main", static_cast<double>(cpu), static_cast<double>(memory),
             static_cast<double>(io));
    FlushOfflineLog();

    std::vector<std::string> newLogs;
    for (const std::string& name : sandbox.List(sandbox.OfflineLogDir())) {
        bool old = false;
        for (const std::string& before : logsBefore) {
            old = old || before == name;
        }
        if (!old) {
            newLogs.push_back(name);
        }
    }

    std::printf("\nsummary\n");
    std::printf("  frames           %u saved, %u replayed: %s\n", options.frames, options.frames,
                replayStatus == 0               ? "every output identical"
                : replayStatus == kExitMismatch ? "OUTPUTS DIFFER"
                                                : "REPLAY FAILED");
    std::printf("  timings (save)   scene %.1f ms, save %.1f ms, algorithm %.1f ms per frame\n",
                totals.prepareMs / options.frames, totals.simulationMs / options.frames,
                totals.algorithmMs / options.frames);
    std::printf("  pressure         cpu %.2f%%  memory %.2f%%  io %.2f%%  (some avg10%s)\n",
                static_cast<double>(cpu), static_cast<double>(memory), static_cast<double>(io),
                access("/proc/pressure/cpu", R_OK) == 0 ? "" : "; no /proc/pressure here");
    std::printf("  simulation       %s (%zu save folders)\n", sandbox.SimulationBase().c_str(),
                saves);
    std::printf("  outputs          %s (output_*: first run, replay_*: second run)\n",
                sandbox.OutputDir().c_str());
    std::printf("  offline log      %s", sandbox.OfflineLogDir().c_str());
    for (const std::string& name : newLogs) {
        std::printf("%s%s", &name == &newLogs.front() ? "\n                     " : ", ",
                    name.c_str());
    }
    const char* root = sandbox.root().c_str();
    std::printf("\n  PNGs             %s/png/, made by: zoltools inspect --png %s/png %s\n", root,
                root, root);
    std::printf("  merged log       zoltools log %s\n", root);
    return replayStatus;
}
