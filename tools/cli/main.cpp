// zoltools: looks at what the library left on a device (simulation folders, raw frames,
// offline logs) and at the machine's pressure-stall averages. The commands themselves live in
// tools/lib; this file only maps the command line onto them.
#include <CLI/CLI.hpp>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <new>
#include <string>
#include <vector>

#include "commands.h"
#include "progress.h"
#include "zoltoolsdef.h"

namespace {

std::atomic<bool> g_stop{false};

void OnSignal(int) {
    g_stop = true;
}

// Ctrl-C ends a command that runs until stopped (log --follow, psi --interval) cleanly, with
// its exit status; every other command is simply interrupted.
void StopOnSignals() {
    std::signal(SIGINT, OnSignal);
    std::signal(SIGTERM, OnSignal);
}

// "zoltools frobnicate" is a mistyped command, not a missing one: say so, with the real ones.
bool IsKnownCommandOrOption(CLI::App& app, const char* arg) {
    if (arg[0] == '-') {
        return true;
    }
    std::string names;
    for (const CLI::App* sub : app.get_subcommands([](CLI::App*) { return true; })) {
        if (sub->get_name() == arg) {
            return true;
        }
        names += (names.empty() ? "" : ", ") + sub->get_name();
    }
    std::fprintf(stderr, "zoltools: %s is not a command (the commands: %s; zoltools --help)\n", arg,
                 names.c_str());
    return false;
}

constexpr char kRenderingHelp[] =
    "Render as the library converts (yuv420sp2rgba: its analogue BT.601 coefficients, and odd "
    "rows reading their chroma half a chroma row further on) instead of the standard full-range "
    "BT.601 of a camera's NV21";

}  // namespace

int main(int argc, char** argv) {
    // The commands report every failure themselves, naming the file; the library's own log
    // lines (which go to stderr on a host) would only repeat them.
    ZOLToolsLogLevel = 0;

    CLI::App app{
        "zoltools: inspect simulation folders, convert raw frames, merge offline logs, "
        "report on a whole device dump, read pressure-stall averages"};
    app.require_subcommand(1);
    app.set_version_flag("--version", "zoltools 1.0");

    zoltool::Streams io;
    io.progress = zoltool::Progress::StderrIsTerminal();
    int status = zoltool::kExitOk;

    zoltool::InspectOptions inspect;
    CLI::App* inspectCmd = app.add_subcommand(
        "inspect",
        "Show the request records, frame files (expected and actual size) and database "
        "of simulation save folders");
    inspectCmd
        ->add_option("PATH", inspect.path,
                     "A save folder (SimulationIntputInfo_...), the algosimulation folder holding "
                     "them, or a device root")
        ->required();
    inspectCmd->add_option("--png", inspect.pngDir,
                           "Render every frame of format 0 or 1 to PNG under this directory "
                           "(one subdirectory per save folder)");
    bool inspectAsLibrary = false;
    inspectCmd->add_flag("--as-library", inspectAsLibrary, kRenderingHelp);
    inspectCmd->callback([&] {
        inspect.render =
            inspectAsLibrary ? zoltool::RenderMode::kAsLibrary : zoltool::RenderMode::kStandard;
        status = zoltool::RunInspect(inspect, io);
    });

    zoltool::ConvertOptions convert;
    CLI::App* convertCmd = app.add_subcommand(
        "convert",
        "Convert a raw NV21 frame to PNG, or a PNG to a raw NV21 frame (the direction "
        "follows the input: a PNG file or not). The output's name must say what it holds: "
        "<name>.png, or a raw name whose WxH, if any, is the frame's");
    convertCmd->add_option("INPUT", convert.input, "A raw NV21 frame or a PNG")->required();
    convertCmd->add_option("OUTPUT", convert.output, "The PNG or raw NV21 file to write")
        ->required();
    convertCmd->add_option("--size", convert.size,
                           "WIDTHxHEIGHT of a raw input, each 1 to 16384 (default: the WxH in its "
                           "file name)");
    bool convertAsLibrary = false;
    convertCmd->add_flag(
        "--as-library", convertAsLibrary,
        std::string(kRenderingHelp) +
            "; a PNG is encoded with rgba2yuv420sp (chroma of the top-left pixel "
            "of each 2x2 block) instead of full-range BT.601 with averaged chroma");
    convertCmd->callback([&] {
        convert.render =
            convertAsLibrary ? zoltool::RenderMode::kAsLibrary : zoltool::RenderMode::kStandard;
        status = zoltool::RunConvert(convert, io);
    });

    zoltool::LogOptions log;
    std::string levels;
    CLI::App* logCmd = app.add_subcommand(
        "log",
        "Merge the offline log files of a folder and print their lines in stamp order "
        "(date, time, nanoseconds, thread id)");
    logCmd
        ->add_option("PATH", log.path,
                     "The offline log folder, a device root, or one ZOLOfflineLog_... file")
        ->required();
    CLI::Option* levelOption =
        logCmd->add_option("--level", levels, "Only these levels, e.g. E,W or EWD (E W D I V)");
    logCmd->add_option("--pid", log.filter.pids, "Only lines of this process id (repeatable)");
    logCmd->add_option("--tid", log.filter.tids, "Only lines of this thread id (repeatable)");
    logCmd->add_option("--grep", log.filter.texts,
                       "Only lines whose message contains this text (repeatable: all must occur)");
    logCmd->add_flag("--with-file", log.withFile, "Prefix each line with its file name");
    CLI::Option* followOption = logCmd->add_flag(
        "-f,--follow", log.follow, "Then follow the newest file as it grows (Ctrl-C ends)");
    logCmd
        ->add_option("--trace", log.trace,
                     "Write the lines to this file as trace-event JSON (opens in Perfetto's UI "
                     "and chrome://tracing) instead of printing them")
        ->excludes(followOption);
    logCmd
        ->add_flag("--stats", log.stats,
                   "Print the buffer pool's stats lines (\"pool stats: ...\") as a table over "
                   "time: the pool's busy, free and peak bytes per type and its counts, then the "
                   "bytes each manager holds")
        ->excludes(followOption)
        ->excludes("--trace");
    logCmd->callback([&] {
        std::string error;
        if (levelOption->count() > 0 &&
            !zoltool::ParseLevelList(levels, log.filter.levels, error)) {
            std::fprintf(stderr, "zoltools log: %s\n", error.c_str());
            status = zoltool::kExitUsage;
            return;
        }
        log.stop = &g_stop;
        if (log.follow) {
            StopOnSignals();
        }
        status = zoltool::RunLog(log, io);
    });

    zoltool::ReportOptions report;
    CLI::App* reportCmd = app.add_subcommand(
        "report",
        "Write one HTML page of a device dump: summary, timeline of the log's threads, errors "
        "and warnings with context, save folders with their frames, counts, problems");
    reportCmd
        ->add_option("PATH", report.path,
                     "A device root, the algosimulation folder or a save folder (the offline log "
                     "beside it is read too), or an offline log folder")
        ->required();
    reportCmd->add_option("-o,--output", report.outDir, "Write index.html and its images here")
        ->required();
    reportCmd->add_option("--from", report.from,
                          "Show only from this time: hh:mm:ss[.fff] (on the first line's day) "
                          "or MM-DD hh:mm:ss[.fff]");
    reportCmd->add_option("--to", report.to, "Show only up to this time (same forms)");
    reportCmd->callback([&] { status = zoltool::RunReport(report, io); });

    zoltool::PsiOptions psi;
    CLI::App* psiCmd = app.add_subcommand(
        "psi", "Print the ten-second \"some\" pressure-stall averages of CPU, memory and I/O");
    CLI::Option* intervalOption =
        psiCmd->add_option("-i,--interval", psi.intervalSeconds,
                           "Print again every this many seconds, more than 0 and at most 86400 "
                           "(default: once); without --count, until Ctrl-C");
    CLI::Option* countOption = psiCmd->add_option(
        "-n,--count", psi.count, "With --interval: stop after this many readings (1 or more)");
    psiCmd->add_option("--dir", psi.dir, "Read cpu, memory and io from this directory")
        ->capture_default_str();
    psiCmd->callback([&] {
        psi.stop = &g_stop;
        psi.repeat = intervalOption->count() > 0;
        psi.counted = countOption->count() > 0;
        if (psi.repeat) {
            StopOnSignals();
        }
        status = zoltool::RunPsi(psi, io);
    });

    if (argc > 1 && !IsKnownCommandOrOption(app, argv[1])) {
        return zoltool::kExitUsage;
    }
    try {
        app.parse(argc, argv);
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "zoltools: out of memory\n");
        return zoltool::kExitBadInput;
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForVersion& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        app.exit(e);
        return zoltool::kExitUsage;
    }
    return status;
}
