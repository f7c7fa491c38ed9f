// The zoltools commands as plain functions: the command-line layer (tools/cli) only fills
// the option records and calls them, so tests can run a command and look at what it printed.
// Each prints its result to `out` and every complaint, naming the file and what is wrong, to
// `err`; the result is the process exit status.
#pragma once

#include <atomic>
#include <cstdio>
#include <string>
#include <vector>

#include "offlinelog.h"
#include "rawimage.h"

namespace zoltool {

constexpr int kExitOk = 0;
constexpr int kExitBadInput = 1;  // a file that is missing, damaged or not what it should be
constexpr int kExitUsage = 2;     // options that do not make sense

struct Streams {
    FILE* out = stdout;
    FILE* err = stderr;
    bool progress = false;  // draw a progress line on err (only for a terminal)
};

struct InspectOptions {
    std::string path;    // a save folder, the algosimulation folder or a device root
    std::string pngDir;  // render NV21 frames here when not empty
    RenderMode render = RenderMode::kStandard;
};
int RunInspect(const InspectOptions& options, const Streams& io);

// A PNG input becomes a raw NV21 frame, anything else is taken for one and becomes a PNG. The
// output's name must say what it holds: ".png" for a PNG, anything else for a raw frame, and a
// "WxH" in it must be the frame's size. Input and output must be different files.
struct ConvertOptions {
    std::string input;   // a PNG, or a raw NV21 frame
    std::string output;  // raw NV21 for a PNG input, PNG otherwise
    std::string size;    // "WxH" of a raw input; taken from its file name when empty
    RenderMode render = RenderMode::kStandard;
};
int RunConvert(const ConvertOptions& options, const Streams& io);

struct LogOptions {
    std::string path;  // a log folder, a device root or one log file
    LogFilter filter;
    bool withFile = false;  // prefix every line with its file name
    bool follow = false;    // then keep printing what is appended to the newest file
    int pollMilliseconds = 250;
    const std::atomic<bool>* stop = nullptr;  // ends --follow when it becomes true
    std::string trace;   // write the lines to this trace-event JSON file instead of printing
    bool stats = false;  // print the buffer pool's stats lines as a table instead
};
int RunLog(const LogOptions& options, const Streams& io);

// Validates and normalises a --level list ("E,W", "ew", "EWD"): upper-case letters of E W D I
// V. False with `error` for anything else.
bool ParseLevelList(const std::string& text, std::string& levels, std::string& error);

struct ReportOptions {
    std::string path;    // as for inspect; the offline log beside it is found too
    std::string outDir;  // index.html and its images go here
    std::string from;    // show only this time range: "[MM-DD ]hh:mm:ss[.fraction]"
    std::string to;
};
int RunReport(const ReportOptions& options, const Streams& io);

// Once, or every `intervalSeconds` (more than 0, at most a day) `count` times or until stopped.
// A value that is not a percentage is bad input: the files are not what the kernel writes.
struct PsiOptions {
    std::string dir = "/proc/pressure";  // where cpu, memory and io are read
    bool repeat = false;                 // --interval was given
    double intervalSeconds = 0;
    bool counted = false;  // --count was given (it needs --interval)
    long count = 0;        // at least 1
    const std::atomic<bool>* stop = nullptr;
};
int RunPsi(const PsiOptions& options, const Streams& io);

}  // namespace zoltool
