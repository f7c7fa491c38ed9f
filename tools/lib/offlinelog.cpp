#include "offlinelog.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>
#include <tuple>

#include "fileio.h"
#include "platform/uniquefd.h"
#include "text.h"
#include "zolofflinelog/internal/zolofflinelogformat.h"

namespace zoltool {

namespace {

constexpr char kLogFolder[] = "data/vendor/camera/offlinelog";

std::string BaseName(const std::string& path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// The writer cuts a line to kLongestLine characters, and a cut line has lost its newline: the
// next line follows it directly in the file. Where a stamp starts right at the cut, the text is
// two lines.
constexpr size_t kCutLineLength = zol::offlinelog::kLongestLine;

// A "line" that has gone on this long without a newline is not waited for any longer: it is
// taken in pieces of this size (whole cut lengths, so a run of cut lines still splits right).
constexpr size_t kLongestPending = kCutLineLength * 512;

void AddDamaged(std::vector<DamagedLine>& damaged, const std::string& file, size_t lineNumber,
                const std::string& reason, std::string_view text) {
    size_t sameFile = 0;
    for (auto it = damaged.rbegin(); it != damaged.rend() && it->file == file; ++it) {
        if (++sameFile == DamagedLine::kShownPerFile) {
            ++damaged.back().more;
            return;
        }
    }
    damaged.push_back({file, lineNumber, reason, std::string(text.substr(0, 61)), 0});
}

void Consume(std::string_view text, const std::string& file, size_t lineNumber, int year, int month,
             std::vector<LogLine>& lines, std::vector<DamagedLine>& damaged) {
    for (;;) {
        LogLine line;
        std::string reason;
        size_t length = std::string_view::npos;
        if (text.size() > kCutLineLength &&
            ParseLogLine(text.substr(kCutLineLength), year, month, line, reason)) {
            length = kCutLineLength;
        }
        const std::string_view piece = text.substr(0, length);
        if (ParseLogLine(piece, year, month, line, reason)) {
            line.file = file;
            line.lineNumber = lineNumber;
            lines.push_back(std::move(line));
        } else {
            AddDamaged(damaged, file, lineNumber, reason, piece);
        }
        if (length == std::string_view::npos) {
            return;
        }
        text.remove_prefix(length);
    }
}

}  // namespace

bool ParseLogLine(std::string_view text, int fileYear, int fileMonth, LogLine& line,
                  std::string& reason) {
    // By zol::offlinelog::StampFault.
    static const char* const kFaults[] = {
        "",
        "no \"MM-DD hh:mm:ss:nnnnnnnnn\" stamp at the start",
        "the stamp is not a valid date and time",
        "no process and thread id after the time",
        "no \"<level> ZOL: \" after the thread id",
    };
    zol::offlinelog::Stamp stamp;
    const auto fault = zol::offlinelog::ParseStamp(text, fileYear, fileMonth, stamp);
    if (fault != zol::offlinelog::StampFault::kNone) {
        reason = kFaults[static_cast<int>(fault)];
        return false;
    }
    line.stamp = stamp.time;
    line.pid = stamp.pid;
    line.tid = stamp.tid;
    line.level = stamp.level;
    line.message = std::string(text.substr(stamp.messageAt));
    line.text = std::string(text);
    return true;
}

bool ParseLogFileName(const std::string& name, int& year, int& month) {
    zol::offlinelog::FileNameTime time;
    if (!zol::offlinelog::ParseFileName(name, time)) {
        return false;
    }
    year = time.year;
    month = time.month;
    return true;
}

void SortLogLines(std::vector<LogLine>& lines) {
    auto key = [](const LogLine& l) {
        return std::make_tuple(l.stamp.year, l.stamp.month, l.stamp.day, l.stamp.hour,
                               l.stamp.minute, l.stamp.second, l.stamp.nanos, l.tid);
    };
    std::stable_sort(lines.begin(), lines.end(),
                     [&](const LogLine& a, const LogLine& b) { return key(a) < key(b); });
}

bool LogFilter::Matches(const LogLine& line) const {
    if (!levels.empty() && levels.find(line.level) == std::string::npos) {
        return false;
    }
    if (!pids.empty() && std::find(pids.begin(), pids.end(), line.pid) == pids.end()) {
        return false;
    }
    if (!tids.empty() && std::find(tids.begin(), tids.end(), line.tid) == tids.end()) {
        return false;
    }
    for (const std::string& t : texts) {
        if (line.message.find(t) == std::string::npos) {
            return false;
        }
    }
    return true;
}

std::string DamagedLine::Describe() const {
    std::string shown = text.size() > 60 ? text.substr(0, 60) + "..." : text;
    return file + ":" + std::to_string(lineNumber) + ": " + reason + ": \"" + shown + "\"" +
           (more > 0 ? "; and " + Count(more, "more damaged line") + " in this file" : "");
}

bool FindLogFiles(const std::string& path, std::vector<std::string>& files, std::string& error) {
    files.clear();
    if (FileSize(path) >= 0) {
        files.push_back(path);
        return true;
    }
    if (!IsDirectory(path)) {
        const std::string kind = FileKind(path);
        error = path + (kind.empty() ? ": no such file or directory"
                                     : ": is " + kind + ", not a log file or folder");
        return false;
    }
    std::string folder = path;
    if (IsDirectory(JoinPath(path, kLogFolder))) {
        folder = JoinPath(path, kLogFolder);
    }
    std::vector<std::string> names;
    if (!ListDirectory(folder, names, error)) {
        return false;
    }
    // The names carry the creation time with microseconds, so name order is age order.
    for (const std::string& name : names) {
        int year, month;
        if (ParseLogFileName(name, year, month)) {
            files.push_back(JoinPath(folder, name));
        }
    }
    if (files.empty()) {
        error = folder + ": no offline log files (" +
                std::string(zol::offlinelog::kFileNamePrefix) + "....txt)";
        return false;
    }
    return true;
}

bool ReadLogFile(const std::string& path, std::vector<LogLine>& lines,
                 std::vector<DamagedLine>& damaged, std::string& error, LogFilePosition* position) {
    LogFollower reader(std::string(), path, LogFilePosition());
    if (!reader.ReadFrom(path, lines, damaged, error)) {
        return false;
    }
    if (position != nullptr) {
        *position = reader.position();  // an unfinished last line is left to the follower
    } else {
        reader.Finish(lines, damaged);
    }
    return true;
}

LogFollower::LogFollower(std::string folder, std::string file, LogFilePosition position)
    : m_folder(std::move(folder)),
      m_current(std::move(file)),
      m_offset(position.offset),
      m_lineNumber(position.lineNumber) {}

bool LogFollower::ReadFrom(const std::string& path, std::vector<LogLine>& lines,
                           std::vector<DamagedLine>& damaged, std::string& error) {
    const std::string why = WhyNotAFile(path);
    zol::UniqueFile file(why.empty() ? std::fopen(path.c_str(), "rb") : nullptr);
    if (!file) {
        error = path + ": " + (why.empty() ? "cannot open: " + ErrnoText() : why);
        return false;
    }
    if (std::fseek(file.get(), static_cast<long>(m_offset), SEEK_SET) != 0) {
        error = path + ": cannot seek: " + ErrnoText();
        return false;
    }
    int year = 0, month = 1;
    ParseLogFileName(BaseName(path), year, month);
    char chunk[65536];
    size_t got;
    while ((got = std::fread(chunk, 1, sizeof(chunk), file.get())) > 0) {
        m_offset += got;
        const char* end = chunk + got;
        for (const char* p = chunk; p < end;) {
            const char* nl =
                static_cast<const char*>(std::memchr(p, '\n', static_cast<size_t>(end - p)));
            m_partial.append(p, nl != nullptr ? nl : end);
            if (nl != nullptr) {
                ++m_lineNumber;
                Consume(m_partial, path, m_lineNumber, year, month, lines, damaged);
                m_partial.clear();
            } else if (m_partial.size() >= kLongestPending) {
                Consume(m_partial, path, m_lineNumber + 1, year, month, lines, damaged);
                m_partial.clear();
            }
            p = nl != nullptr ? nl + 1 : end;
        }
    }
    if (std::ferror(file.get())) {
        error = path + ": read error: " + ErrnoText();
        return false;
    }
    return true;
}

void LogFollower::Finish(std::vector<LogLine>& lines, std::vector<DamagedLine>& damaged) {
    if (!m_partial.empty()) {
        int year = 0, month = 1;
        ParseLogFileName(BaseName(m_current), year, month);
        ++m_lineNumber;
        Consume(m_partial, m_current, m_lineNumber, year, month, lines, damaged);
        m_partial.clear();
    }
}

bool LogFollower::Poll(std::vector<LogLine>& lines, std::vector<DamagedLine>& damaged,
                       std::string& error) {
    // A file that has gone (or cannot be read for the moment) is looked for again below.
    std::string unread;
    if (!m_current.empty()) {
        ReadFrom(m_current, lines, damaged, unread);
    }
    std::vector<std::string> files;
    if (!FindLogFiles(m_folder, files, error)) {
        // An emptied folder is not an error while following: keep waiting for a file.
        if (IsDirectory(m_folder)) {
            error.clear();
            return true;
        }
        return false;
    }
    if (files.back() != m_current) {
        // The writer moved on. A line it left unfinished in the old file is finished there or
        // never; it is given up on.
        if (!m_partial.empty()) {
            ++m_lineNumber;
            AddDamaged(damaged, m_current, m_lineNumber, "unfinished when the file was closed",
                       m_partial);
            m_partial.clear();
        }
        m_current = files.back();
        m_offset = 0;
        m_lineNumber = 0;
        ReadFrom(m_current, lines, damaged, unread);
    }
    return true;
}

}  // namespace zoltool
