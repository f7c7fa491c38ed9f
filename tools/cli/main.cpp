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

// What the command line fills in, read by the callback of the command it names. It outlives
// the parser, which holds references into it.
struct CommandLine {
    zoltool::Streams io;
    int status = zoltool::kExitOk;
    zoltool::InspectOptions inspect;
    bool inspectAsLibrary = false;
    zoltool::ConvertOptions convert;
    bool convertAsLibrary = false;
    zoltool::LogOptions log;
    std::string levels;  // log --level, checked when the command runs
    zoltool::ReportOptions report;
    zoltool::PsiOptions psi;
};

zoltool::RenderMode RenderModeOf(bool asLibrary) {
    return asLibrary ? zoltool::RenderMode::kAsLibrary : zoltool::RenderMode::kStandard;
}

// A command that reads the files under one required PATH.
CLI::App* AddPathCommand(CLI::App& app, const char* name, const char* description,
                         std::string& path, const char* pathHelp) {
    CLI::App* command = app.add_subcommand(name, description);
    command->add_option("PATH", path, pathHelp)->required();
    return command;
}

void AddInspect(CLI::App& app, CommandLine& line) {
    CLI::App* inspectCmd = AddPathCommand(
        app, "inspect",
        "Show the request records, frame files (expected and actual size) and database "
        "of simulation save folders",
        line.inspect.path,
        "A save folder (SimulationIntputInfo_...), the algosimulation folder holding "
        "them, or a device root");
    inspectCmd->add_option("--png", line.inspect.pngDir,
                           "Render every frame of format 0 or 1 to PNG under this directory "
                           "(one subdirectory per save folder)");
    inspectCmd->add_flag("--as-library", line.inspectAsLibrary, kRenderingHelp);
    inspectCmd->callback([&line] {
        line.inspect.render = RenderModeOf(line.inspectAsLibrary);
        line.status = zoltool::RunInspect(line.inspect, line.io);
    });
}

void AddConvert(CLI::App& app, CommandLine& line) {
    CLI::App* convertCmd = app.add_subcommand(
        "convert",
        "Convert a raw NV21 frame to PNG, or a PNG to a raw NV21 frame (the direction "
        "follows the input: a PNG file or not). The output's name must say what it holds: "
        "<name>.png, or a raw name whose WxH, if any, is the frame's");
    convertCmd->add_option("INPUT", line.convert.input, "A raw NV21 frame or a PNG")->required();
    convertCmd->add_option("OUTPUT", line.convert.output, "The PNG or raw NV21 file to write")
        ->required();
    convertCmd->add_option("--size", line.convert.size,
                           "WIDTHxHEIGHT of a raw input, each 1 to 16384 (default: the WxH in its "
                           "file name)");
    convertCmd->add_flag(
        "--as-library", line.convertAsLibrary,
        std::string(kRenderingHelp) +
            "; a PNG is encoded with rgba2yuv420sp (chroma of the top-left pixel "
            "of each 2x2 block) instead of full-range BT.601 with averaged chroma");
    convertCmd->callback([&line] {
        line.convert.render = RenderModeOf(line.convertAsLibrary);
        line.status = zoltool::RunConvert(line.convert, line.io);
    });
}

void AddLog(CLI::App& app, CommandLine& line) {
    zoltool::LogOptions& log = line.log;
    CLI::App* logCmd = AddPathCommand(
        app, "log",
        "Merge the offline log files of a folder and print their lines in stamp order "
        "(date, time, nanoseconds, thread id)",
        log.path, "The offline log folder, a device root, or one ZOLOfflineLog_... file");
    CLI::Option* levelOption = logCmd->add_option("--level", line.levels,
                                                  "Only these levels, e.g. E,W or EWD (E W D I V)");
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
    logCmd->callback([&line, levelOption] {
        std::string error;
        if (levelOption->count() > 0 &&
            !zoltool::ParseLevelList(line.levels, line.log.filter.levels, error)) {
            std::fprintf(stderr, "zoltools log: %s\n", error.c_str());
            line.status = zoltool::kExitUsage;
            return;
        }
        line.log.stop = &g_stop;
        if (line.log.follow) {
            StopOnSignals();
        }
        line.status = zoltool::RunLog(line.log, line.io);
    });
}

void AddReport(CLI::App& app, CommandLine& line) {
    CLI::App* reportCmd = AddPathCommand(
        app, "report",
        "Write one HTML page of a device dump: summary, timeline of the log's threads, errors "
        "and warnings with context, save folders with their frames, counts, problems",
        line.report.path,
        "A device root, the algosimulation folder or a save folder (the offline log "
        "beside it is read too), or an offline log folder");
    reportCmd->add_option("-o,--output", line.report.outDir, "Write index.html and its images here")
        ->required();
    reportCmd->add_option("--from", line.report.from,
                          "Show only from this time: hh:mm:ss[.fff] (on the first line's day) "
                          "or MM-DD hh:mm:ss[.fff]");
    reportCmd->add_option("--to", line.report.to, "Show only up to this time (same forms)");
    reportCmd->callback([&line] { line.status = zoltool::RunReport(line.report, line.io); });
}

void AddPsi(CLI::App& app, CommandLine& line) {
    zoltool::PsiOptions& psi = line.psi;
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
    psiCmd->callback([&line, intervalOption, countOption] {
        line.psi.stop = &g_stop;
        line.psi.repeat = intervalOption->count() > 0;
        line.psi.counted = countOption->count() > 0;
        if (line.psi.repeat) {
            StopOnSignals();
        }
        line.status = zoltool::RunPsi(line.psi, line.io);
    });
}

}  // namespace

int main(int argc, char** argv) {
    // The commands report every failure themselves, naming the file; the library's own log
    // lines (which go to stderr on a host) would only repeat them.
    ZOLToolsLogLevel = 0;

    CommandLine line;
    line.io.progress = zoltool::Progress::StderrIsTerminal();
    CLI::App app{
        "zoltools: inspect simulation folders, convert raw frames, merge offline logs, "
        "report on a whole device dump, read pressure-stall averages"};
    app.require_subcommand(1);
    app.set_version_flag("--version", "zoltools 1.0");
    AddInspect(app, line);
    AddConvert(app, line);
    AddLog(app, line);
    AddReport(app, line);
    AddPsi(app, line);

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
    return line.status;
}
