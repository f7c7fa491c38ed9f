// algo_wrapper: one camera algorithm wrapped the way a vendor process wraps it, using zoltools
// for buffers, colour conversion, the debug and offline logs, save-and-replay of the
// algorithm's inputs, and the pressure-stall probe.
//
//   algo_wrapper [--frames N] [--size WxH] [--root DIR] [--verbose] [--help]
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
#include <limits.h>
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

constexpr char kLogPriorityVariable[] = "ZOL_HOST_LOG_PRIORITY";

void Usage(FILE* to) {
    std::fprintf(to,
                 "usage: algo_wrapper [--frames N] [--size WxH] [--root DIR] [--verbose]\n"
                 "  --frames N   invocations to save and replay (1 to 100, default 4)\n"
                 "  --size WxH   image size (even, 2 to 8192 each, default 640x480)\n"
                 "  --root DIR   device root (default $ZOL_DEVICE_ROOT, else ./zol-root)\n"
                 "  --verbose    every library log line on stderr too, D and V included (the\n"
                 "               same as running it with %s=V); by default only\n"
                 "               warnings and errors show, and the offline log gets everything\n",
                 kLogPriorityVariable);
}

// False with `error` saying which argument is wrong and why; `help` for --help.
bool ParseOptions(int argc, char** argv, Options& options, bool& help, std::string& error) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const bool takesValue = arg == "--frames" || arg == "--size" || arg == "--root";
        if (takesValue && i + 1 >= argc) {
            error = arg + " needs a value";
            return false;
        }
        const std::string value = takesValue ? argv[++i] : "";
        if (arg == "--frames") {
            char* end = nullptr;
            const unsigned long n = std::strtoul(value.c_str(), &end, 10);
            if (value.empty() || *end != '\0' || value[0] == '-' || n < 1 || n > 100) {
                error = "--frames " + value + ": expected 1 to 100";
                return false;
            }
            options.frames = static_cast<uint32_t>(n);
        } else if (arg == "--size") {
            unsigned w = 0, h = 0;
            char extra;
            if (std::sscanf(value.c_str(), "%ux%u%c", &w, &h, &extra) != 2 || w < 2 || h < 2 ||
                w > 8192 || h > 8192 || w % 2 != 0 || h % 2 != 0) {
                error =
                    "--size " + value + ": expected WxH, each even and 2 to 8192 (e.g. 640x480)";
                return false;
            }
            options.width = w;
            options.height = h;
        } else if (arg == "--root") {
            options.root = value;
        } else if (arg == "--replay") {
            options.replay = true;
        } else if (arg == "--verbose") {
            options.verbose = true;
        } else if (arg == "--help" || arg == "-h") {
            help = true;
        } else {
            error = arg + ": not an option";
            return false;
        }
    }
    return true;
}

// --verbose is the library's host log switch: it is read when the library loads, so the
// program starts itself again with it set. False when that could not be done (then liblog is
// told directly, as the switch would have).
bool RestartWithEveryLogLine(char** argv) {
    setenv(kLogPriorityVariable, "V", 1);
    execv("/proc/self/exe", argv);
    std::perror("algo_wrapper: cannot restart with every log line");
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    return false;
}

// The zoltools beside this program (installed, both are in <prefix>/bin; in the build tree it
// is tools/zoltools), so that the commands in the summary work as they are printed.
std::string ZoltoolsCommand() {
    char self[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", self, sizeof(self) - 1);
    if (n > 0) {
        self[n] = '\0';
        std::string dir(self);
        dir.erase(dir.rfind('/'));
        for (const char* relative : {"/zoltools", "/../../tools/zoltools"}) {
            char resolved[PATH_MAX];
            if (realpath((dir + relative).c_str(), resolved) != nullptr &&
                access(resolved, X_OK) == 0) {
                return resolved;
            }
        }
    }
    return "zoltools";
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

// Takes in the command line and sets the console's log level. False when the program is to
// end at once with `exitStatus` (a wrong argument, --help). With --verbose the program starts
// itself again from here.
bool ApplyCommandLine(int argc, char** argv, Options& options, int& exitStatus) {
    bool help = false;
    std::string error;
    if (!ParseOptions(argc, argv, options, help, error)) {
        std::fprintf(stderr, "algo_wrapper: %s\n", error.c_str());
        Usage(stderr);
        exitStatus = 2;
        return false;
    }
    if (help) {
        Usage(stdout);
        exitStatus = 0;
        return false;
    }
    const char* priority = std::getenv(kLogPriorityVariable);
    if (options.verbose && (priority == nullptr || std::strcmp(priority, "V") != 0)) {
        RestartWithEveryLogLine(argv);
    }
    if (options.root.empty()) {
        const char* env = std::getenv("ZOL_DEVICE_ROOT");
        options.root = env != nullptr && *env != '\0' ? env : "zol-root";
    }
    // Keep the console to warnings and errors, unless the user chose otherwise; every line
    // still goes to the offline log.
    if (!options.verbose && priority == nullptr) {
        __android_log_set_minimum_priority(ANDROID_LOG_WARN);
    }
    return true;
}

// The second process: replays what the first saved and compares the outputs.
int RunReplay(const Options& options, const example::DeviceSandbox& sandbox) {
    Totals totals;
    int status = RunInvocations(options, sandbox, totals);
    std::printf("  replay: %.1f ms per read-back, %.1f ms per algorithm run\n",
                totals.simulationMs / options.frames, totals.algorithmMs / options.frames);
    FlushOfflineLog();
    return status;
}

struct Pressure {
    float cpu, memory, io;
};

// The pressure-stall averages now, logged as well.
Pressure ReadPressure() {
    ZOLPSI psi;
    const Pressure now = {psi.GetPsiCpuSomeAvg10(), psi.GetPsiMemSomeAvg10(),
                          psi.GetPsiIoSomeAvg10()};
    ZOL_LOGI("[AlgoWrapper] %s:%d %s() pressure: cpu %.2f memory %.2f io %.2f", ZOL_FILE, __LINE__,
             "main", static_cast<double>(now.cpu), static_cast<double>(now.memory),
             static_cast<double>(now.io));
    return now;
}

// The names in `now` that are not in `before`.
std::vector<std::string> NewNames(const std::vector<std::string>& now,
                                  const std::vector<std::string>& before) {
    std::vector<std::string> added;
    for (const std::string& name : now) {
        bool old = false;
        for (const std::string& earlier : before) {
            old = old || earlier == name;
        }
        if (!old) {
            added.push_back(name);
        }
    }
    return added;
}

// What the summary reports of a save run and its replay.
struct Outcome {
    Totals totals;
    int replayStatus = 0;
    size_t saves = 0;  // save folders
    Pressure pressure = {};
    std::vector<std::string> newLogs;  // offline log files this run created
};

void PrintSummary(const Options& options, const example::DeviceSandbox& sandbox,
                  const Outcome& outcome) {
    const Totals& totals = outcome.totals;
    const Pressure& pressure = outcome.pressure;
    std::printf("\nsummary\n");
    std::printf("  frames           %u saved, %u replayed: %s\n", options.frames, options.frames,
                outcome.replayStatus == 0               ? "every output identical"
                : outcome.replayStatus == kExitMismatch ? "OUTPUTS DIFFER"
                                                        : "REPLAY FAILED");
    std::printf("  timings (save)   scene %.1f ms, save %.1f ms, algorithm %.1f ms per frame\n",
                totals.prepareMs / options.frames, totals.simulationMs / options.frames,
                totals.algorithmMs / options.frames);
    std::printf("  pressure         cpu %.2f%%  memory %.2f%%  io %.2f%%  (some avg10%s)\n",
                static_cast<double>(pressure.cpu), static_cast<double>(pressure.memory),
                static_cast<double>(pressure.io),
                access("/proc/pressure/cpu", R_OK) == 0 ? "" : "; no /proc/pressure here");
    std::printf("  simulation       %s (%zu save folders)\n", sandbox.SimulationBase().c_str(),
                outcome.saves);
    std::printf("  outputs          %s (output_*: first run, replay_*: second run)\n",
                sandbox.OutputDir().c_str());
    std::printf("  offline log      %s", sandbox.OfflineLogDir().c_str());
    const std::vector<std::string>& newLogs = outcome.newLogs;
    for (const std::string& name : newLogs) {
        std::printf("%s%s", &name == &newLogs.front() ? "\n                     " : ", ",
                    name.c_str());
    }
    const char* root = sandbox.root().c_str();
    const std::string zoltools = ZoltoolsCommand();
    std::printf("\n  PNGs             %s inspect %s --png %s/png\n", zoltools.c_str(), root, root);
    std::printf("  merged log       %s log %s\n", zoltools.c_str(), root);
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    int exitStatus = 0;
    if (!ApplyCommandLine(argc, argv, options, exitStatus)) {
        return exitStatus;
    }
    example::DeviceSandbox sandbox(options.root);

    const char* mode = std::getenv(kModeProperty);
    const bool modeIsSave = mode == nullptr || std::atoi(mode) == 1;
    if (options.replay) {
        return RunReplay(options, sandbox);
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

    Outcome outcome;
    const int status = RunInvocations(options, sandbox, outcome.totals);
    if (status != 0) {
        FlushOfflineLog();
        return status;
    }
    outcome.saves = sandbox.List(sandbox.SimulationBase()).size();
    std::printf("replaying in a second process (%s=2):\n", kModeProperty);
    outcome.replayStatus = RunReplayProcess(options, sandbox);
    outcome.pressure = ReadPressure();
    FlushOfflineLog();
    outcome.newLogs = NewNames(sandbox.List(sandbox.OfflineLogDir()), logsBefore);
    PrintSummary(options, sandbox, outcome);
    return outcome.replayStatus;
}
