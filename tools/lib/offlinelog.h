// Reading offline log files: ZOLOfflineLog_<YYYY-MM-DD--hh-mm-ss-uuuuuu>.txt, whose lines each
// begin with the stamp "MM-DD hh:mm:ss:nnnnnnnnn  <pid>  <tid> <L> ZOL: " (pid and tid right-
// aligned in at least four columns, L one of E W D I V). Up to ten writer threads append to a
// file at once, so lines land out of order; the stamp orders them again.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "zolofflinelog/internal/zolofflinelogformat.h"

namespace zoltool {

// The year is not in the stamp: it comes from the name of the file the line was read from.
using LogStamp = zol::offlinelog::StampTime;

struct LogLine {
    LogStamp stamp;
    int pid = 0;
    int tid = 0;
    char level = 'V';
    std::string message;  // the text after "ZOL: "
    std::string text;     // the whole line as it was in the file, without its newline
    std::string file;     // where it came from, for messages
    size_t lineNumber = 0;
};

// Parses one line (without its newline). False with `reason` set when it is not an offline log
// line, or its stamp is not a date (02-30, 13-01, 24:00). `fileYear` and `fileMonth` come from
// the file name: a line whose month is earlier than the file's belongs to the next year (a
// file opened in December runs into January). Year 0 (unknown) lets 02-29 through.
bool ParseLogLine(std::string_view text, int fileYear, int fileMonth, LogLine& line,
                  std::string& reason);

// Parses a file name of the offline log ("ZOLOfflineLog_2026-11-21--13-54-15-123456.txt").
bool ParseLogFileName(const std::string& name, int& year, int& month);

// Orders lines by date, time (to the nanosecond), then thread id; lines that tie keep their
// order of reading.
void SortLogLines(std::vector<LogLine>& lines);

// Which lines to show. Empty sets let everything through.
struct LogFilter {
    std::string levels;  // level letters to keep, e.g. "EW"
    std::vector<int> pids;
    std::vector<int> tids;
    std::vector<std::string> texts;  // every one must occur in the message
    bool Matches(const LogLine& line) const;
};

// A line that could not be read: where, why, and what it looked like. Only the first
// kShownPerFile of a file are kept; the last of them counts the file's further ones in `more`,
// so a file of garbage costs a few lines of memory and of output.
struct DamagedLine {
    static constexpr size_t kShownPerFile = 10;
    std::string file;
    size_t lineNumber = 0;
    std::string reason;
    std::string text;   // the start of the line
    uint64_t more = 0;  // damaged lines of the same file after this one, not kept
    // "<file>:<line>: <reason>: "<start of the text>"", and how many more there were. Control
    // characters are left as they are: escape before printing.
    std::string Describe() const;
};

// The log files of a folder, oldest first (by the time in their names). PATH may also be a
// device root (data/vendor/camera/offlinelog below it) or one log file. False with `error`
// when there is nothing to read.
bool FindLogFiles(const std::string& path, std::vector<std::string>& files, std::string& error);

// Where reading a file stopped, for a LogFollower to go on from.
struct LogFilePosition {
    uint64_t offset = 0;    // bytes consumed: up to and including the last newline
    size_t lineNumber = 0;  // lines consumed
};

// Reads the lines of one file, in chunks (memory grows with the lines kept, not with the file);
// lines that do not parse go to `damaged`. A file that ends without a newline still gives its
// last line, unless `position` is given: then that line is left for a follower (it may still be
// being written) and `position` says where it starts.
bool ReadLogFile(const std::string& path, std::vector<LogLine>& lines,
                 std::vector<DamagedLine>& damaged, std::string& error,
                 LogFilePosition* position = nullptr);

// Follows the newest log file of a folder as it grows, moving on to a newer file when one
// appears (the writer starts a new file when the current one is full). Each Poll returns the
// complete lines added since the previous one; a line still being written is held back.
class LogFollower {
public:
    // `folder` is what FindLogFiles was given; reading goes on in `file` (the newest file it
    // found) from `position`, where ReadLogFile stopped.
    LogFollower(std::string folder, std::string file, LogFilePosition position);

    // New complete lines (already parsed or reported as damaged). False with `error` when the
    // folder can no longer be read.
    bool Poll(std::vector<LogLine>& lines, std::vector<DamagedLine>& damaged, std::string& error);

    const std::string& current() const { return m_current; }

private:
    friend bool ReadLogFile(const std::string&, std::vector<LogLine>&, std::vector<DamagedLine>&,
                            std::string&, LogFilePosition*);

    // Reads what `path` holds from the current offset on; complete lines go to `lines` or
    // `damaged`, an unfinished one waits in m_partial. False with `error` when it cannot be
    // opened.
    bool ReadFrom(const std::string& path, std::vector<LogLine>& lines,
                  std::vector<DamagedLine>& damaged, std::string& error);
    // The unfinished line at the end, taken as it is.
    void Finish(std::vector<LogLine>& lines, std::vector<DamagedLine>& damaged);
    LogFilePosition position() const { return {m_offset - m_partial.size(), m_lineNumber}; }

    std::string m_folder;
    std::string m_current;  // the file being followed
    uint64_t m_offset = 0;  // bytes of it already consumed
    size_t m_lineNumber = 0;
    std::string m_partial;  // bytes of a line whose newline has not arrived yet
};

}  // namespace zoltool
