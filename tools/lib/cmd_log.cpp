// zoltools log: the offline log files of a folder merged into one stream ordered by stamp,
// filtered, and optionally followed as the newest file grows, written as a trace, or reduced to
// the buffer pool's stats lines as a table.
#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <thread>

#include "commands.h"
#include "fileio.h"
#include "poolstats.h"
#include "text.h"
#include "trace.h"
#include "zolofflinelog/internal/zolofflinelogformat.h"

namespace zoltool {

namespace {

// Prints the line when it passes the filter; true when it did. Text from the file is escaped:
// a damaged line must not drive the terminal, and a NUL in it must not cut it short.
bool Print(const LogOptions& options, const Streams& io, const LogLine& line) {
    if (!options.filter.Matches(line)) {
        return false;
    }
    std::string shown;
    if (options.withFile) {
        size_t slash = line.file.rfind('/');
        shown = (slash == std::string::npos ? line.file : line.file.substr(slash + 1)) + ": ";
    }
    shown = EscapeControls(shown + line.text) + "\n";
    std::fwrite(shown.data(), 1, shown.size(), io.out);
    return true;
}

// Reports the damaged lines; returns how many there were (those only counted included).
size_t Report(const Streams& io, const std::vector<DamagedLine>& damaged) {
    size_t count = 0;
    for (const DamagedLine& d : damaged) {
        std::fprintf(io.err, "zoltools log: skipped %s\n", EscapeControls(d.Describe()).c_str());
        count += 1 + d.more;
    }
    return count;
}

// The exit status, after saying how many lines were skipped: any is bad input.
int Finish(const Streams& io, size_t damagedCount) {
    if (damagedCount > 0) {
        std::fprintf(io.err, "zoltools log: %zu line%s could not be read and %s skipped\n",
                     damagedCount, damagedCount == 1 ? "" : "s",
                     damagedCount == 1 ? "was" : "were");
        return kExitBadInput;
    }
    return kExitOk;
}

// The stats lines that pass the filter as a table, one row per line: time, process, the pool's
// figures, then a column per manager name met in any line ("-" where a line does not name it).
// Columns are right-aligned to their widest cell. The number of rows.
size_t PrintStatsTable(const LogOptions& options, const Streams& io,
                       const std::vector<LogLine>& lines) {
    std::vector<std::vector<std::string>> rows;
    rows.push_back({"time", "pid", "busy-heap", "busy-dma", "free-heap", "free-dma", "peak-heap",
                    "peak-dma", "allocs", "reuses", "releases"});
    const size_t fixed = rows[0].size();
    for (const LogLine& line : lines) {
        PoolStats stats;
        if (!options.filter.Matches(line) || !ParsePoolStats(line.message, stats)) {
            continue;
        }
        char time[32];
        std::snprintf(time, sizeof(time), "%02d-%02d %02d:%02d:%02d.%03ld", line.stamp.month,
                      line.stamp.day, line.stamp.hour, line.stamp.minute, line.stamp.second,
                      line.stamp.nanos / 1000000);
        std::vector<std::string> row = {time, std::to_string(line.pid)};
        for (uint64_t value :
             {stats.busy[0], stats.busy[1], stats.free[0], stats.free[1], stats.peak[0],
              stats.peak[1], stats.allocations, stats.reuses, stats.releases}) {
            row.push_back(std::to_string(value));
        }
        row.resize(rows[0].size(), "-");
        for (const auto& [name, bytes] : stats.managers) {
            // Names come from the file: escaped, so a column header cannot drive the terminal.
            const std::string header = EscapeControls(name);
            const auto found = std::find(rows[0].begin() + static_cast<std::ptrdiff_t>(fixed),
                                         rows[0].end(), header);
            const auto column = static_cast<size_t>(found - rows[0].begin());
            if (column == rows[0].size()) {
                rows[0].push_back(header);
                row.push_back("-");
            }
            row[column] = std::to_string(bytes);
        }
        rows.push_back(std::move(row));
    }
    if (rows.size() == 1) {
        return 0;
    }
    std::vector<size_t> widths(rows[0].size(), 1);
    for (std::vector<std::string>& row : rows) {
        row.resize(rows[0].size(), "-");
        for (size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], row[i].size());
        }
    }
    for (const std::vector<std::string>& row : rows) {
        std::string text;
        for (size_t i = 0; i < row.size(); ++i) {
            text += (i == 0 ? "" : "  ") + std::string(widths[i] - row[i].size(), ' ') + row[i];
        }
        text += "\n";
        std::fwrite(text.data(), 1, text.size(), io.out);
    }
    return rows.size() - 1;
}

}  // namespace

bool ParseLevelList(const std::string& text, std::string& levels, std::string& error) {
    levels.clear();
    for (char c : text) {
        if (c == ',' || c == ' ') {
            continue;
        }
        char upper = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        if (std::string(zol::offlinelog::kLevelLetters).find(upper) == std::string::npos) {
            error = "--level " + text + ": '" + std::string(1, c) +
                    "' is not a level (E, W, D, I or V)";
            return false;
        }
        if (levels.find(upper) == std::string::npos) {
            levels += upper;
        }
    }
    if (levels.empty()) {
        error = "--level needs at least one of E, W, D, I, V";
        return false;
    }
    return true;
}

int RunLog(const LogOptions& options, const Streams& io) {
    std::vector<std::string> files;
    std::string error;
    if (!FindLogFiles(options.path, files, error)) {
        std::fprintf(io.err, "zoltools log: %s\n", error.c_str());
        return kExitBadInput;
    }
    std::vector<LogLine> lines;
    std::vector<DamagedLine> damaged;
    LogFilePosition newest;
    for (const std::string& file : files) {
        const bool last = &file == &files.back();
        if (!ReadLogFile(file, lines, damaged, error, options.follow && last ? &newest : nullptr)) {
            std::fprintf(io.err, "zoltools log: %s\n", error.c_str());
            return kExitBadInput;
        }
    }
    SortLogLines(lines);
    size_t damagedCount = Report(io, damaged);
    if (options.stats) {
        if (PrintStatsTable(options, io, lines) == 0 && !lines.empty()) {
            std::fprintf(io.err,
                         "zoltools log: none of the %s read is a pool stats line that passes "
                         "the filters\n",
                         Count(lines.size(), "line").c_str());
        }
        std::fflush(io.out);
        return Finish(io, damagedCount);
    }
    size_t printed = 0;
    if (!options.trace.empty()) {
        lines.erase(
            std::remove_if(lines.begin(), lines.end(),
                           [&](const LogLine& line) { return !options.filter.Matches(line); }),
            lines.end());
        if (!WriteTrace(options.trace, lines, error)) {
            std::fprintf(io.err, "zoltools log: %s\n", error.c_str());
            return kExitBadInput;
        }
        std::fprintf(io.out, "%zu lines written to %s as trace events\n", lines.size(),
                     options.trace.c_str());
        printed = lines.size();
    } else {
        for (const LogLine& line : lines) {
            printed += Print(options, io, line) ? 1U : 0U;
        }
    }
    std::fflush(io.out);
    if (printed == 0 && !lines.empty()) {
        std::fprintf(io.err, "zoltools log: none of the %s read matches the filters\n",
                     Count(lines.size(), "line").c_str());
    }

    if (options.follow) {
        LogFollower follower(options.path, files.back(), newest);
        while (options.stop == nullptr || !options.stop->load()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(options.pollMilliseconds));
            std::vector<LogLine> more;
            damaged.clear();
            if (!follower.Poll(more, damaged, error)) {
                std::fprintf(io.err, "zoltools log: %s\n", error.c_str());
                return kExitBadInput;
            }
            // Lines that arrive in one poll are ordered among themselves; across polls they
            // are printed as they come.
            SortLogLines(more);
            damagedCount += Report(io, damaged);
            for (const LogLine& line : more) {
                Print(options, io, line);
            }
            std::fflush(io.out);
        }
    }
    return Finish(io, damagedCount);
}

}  // namespace zoltool
