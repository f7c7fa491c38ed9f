#include "offlinelog.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <tuple>

#include "fileio.h"

namespace zoltool {

namespace {

bool Digits(const std::string& s, size_t pos, size_t count, long& value) {
    if (pos + count > s.size()) {
        return false;
    }
    long v = 0;
    for (size_t i = pos; i < pos + count; ++i) {
        if (s[i] < '0' || s[i] > '9') {
            return false;
        }
        v = v * 10 + (s[i] - '0');
    }
    value = v;
    return true;
}

// "  %4d": at least two blanks, then the number right-aligned in four or more columns.
bool PaddedNumber(const std::string& s, size_t& pos, int& value) {
    size_t start = pos;
    while (pos < s.size() && s[pos] == ' ') {
        ++pos;
    }
    size_t digitsStart = pos;
    long v = 0;
    while (pos < s.size() && s[pos] >= '0' && s[pos] <= '9' && pos - digitsStart < 10) {
        v = v * 10 + (s[pos] - '0');
        ++pos;
    }
    if (digitsStart - start < 2 || pos == digitsStart || pos - start < 6 || v > INT32_MAX) {
        return false;
    }
    value = static_cast<int>(v);
    return true;
}

constexpr char kFilePrefix[] = "ZOLOfflineLog_";
constexpr char kLogFolder[] = "data/vendor/camera/offlinelog";

std::string BaseName(const std::string& path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// The writer cuts a line to 2,047 characters, and a cut line has lost its newline: the next
// line follows it directly in the file. Where a stamp starts right at the cut, the text is two
// lines.
constexpr size_t kCutLineLength = 2047;

void Consume(const std::string& text, const std::string& file, size_t lineNumber, int year,
             int month, std::vector<LogLine>& lines, std::vector<DamagedLine>& damaged) {
    size_t start = 0;
    for (;;) {
        LogLine line;
        std::string reason;
        size_t length = std::string::npos;
        if (text.size() - start > kCutLineLength &&
            ParseLogLine(text.substr(start + kCutLineLength), year, month, line, reason)) {
            length = kCutLineLength;
        }
        const std::string piece = text.substr(start, length);
        if (ParseLogLine(piece, year, month, line, reason)) {
            line.file = file;
            line.lineNumber = lineNumber;
            lines.push_back(std::move(line));
        } else {
            damaged.push_back({file, lineNumber, reason, piece});
        }
        if (length == std::string::npos) {
            return;
        }
        start += length;
    }
}

}  // namespace

bool ParseLogLine(const std::string& text, int fileYear, int fileMonth, LogLine& line,
                  std::string& reason) {
    long month, day, hour, minute, second, nanos;
    if (!Digits(text, 0, 2, month) || text.size() < 24 || text[2] != '-' ||
        !Digits(text, 3, 2, day) || text[5] != ' ' || !Digits(text, 6, 2, hour) || text[8] != ':' ||
        !Digits(text, 9, 2, minute) || text[11] != ':' || !Digits(text, 12, 2, second) ||
        text[14] != ':' || !Digits(text, 15, 9, nanos)) {
        reason = "no \"MM-DD hh:mm:ss:nnnnnnnnn\" stamp at the start";
        return false;
    }
    if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60) {
        reason = "the stamp is not a valid date and time";
        return false;
    }
    size_t pos = 24;
    int pid, tid;
    if (!PaddedNumber(text, pos, pid) || !PaddedNumber(text, pos, tid)) {
        reason = "no process and thread id after the time";
        return false;
    }
    static const char kLevels[] = "EWDIV";
    if (pos + 7 > text.size() || text[pos] != ' ' ||
        std::strchr(kLevels, text[pos + 1]) == nullptr || text[pos + 1] == '\0' ||
        text.compare(pos + 2, 6, " ZOL: ") != 0) {
        reason = "no \"<level> ZOL: \" after the thread id";
        return false;
    }
    line.stamp.year = fileYear + (month < fileMonth ? 1 : 0);
    line.stamp.month = static_cast<int>(month);
    line.stamp.day = static_cast<int>(day);
    line.stamp.hour = static_cast<int>(hour);
    line.stamp.minute = static_cast<int>(minute);
    line.stamp.second = static_cast<int>(second);
    line.stamp.nanos = nanos;
    line.pid = pid;
    line.tid = tid;
    line.level = text[pos + 1];
    line.message = text.substr(pos + 8);
    line.text = text;
    return true;
}

bool ParseLogFileName(const std::string& name, int& year, int& month) {
    int y, mo, d, h, mi, s, consumed = 0;
    long us;
    if (std::sscanf(name.c_str(), "ZOLOfflineLog_%4d-%2d-%2d--%2d-%2d-%2d-%6ld.txt%n", &y, &mo, &d,
                    &h, &mi, &s, &us, &consumed) != 7 ||
        static_cast<size_t>(consumed) != name.size() || mo < 1 || mo > 12) {
        return false;
    }
    year = y;
    month = mo;
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
    return file + ":" + std::to_string(lineNumber) + ": " + reason + ": \"" + shown + "\"";
}

bool FindLogFiles(const std::string& path, std::vector<std::string>& files, std::string& error) {
    files.clear();
    if (FileSize(path) >= 0) {
        files.push_back(path);
        return true;
    }
    if (!IsDirectory(path)) {
        error = path + ": no such file or directory";
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
        error = folder + ": no offline log files (" + kFilePrefix + "....txt)";
        return false;
    }
    return true;
}

bool ReadLogFile(const std::string& path, std::vector<LogLine>& lines,
                 std::vector<DamagedLine>& damaged, std::string& error, LogFilePosition* position) {
    std::vector<uint8_t> bytes;
    if (!ReadWholeFile(path, bytes, error)) {
        return false;
    }
    int year = 0, month = 1;
    ParseLogFileName(BaseName(path), year, month);
    size_t lineNumber = 0;
    size_t start = 0;
    while (start < bytes.size()) {
        const uint8_t* nl = static_cast<const uint8_t*>(
            std::memchr(bytes.data() + start, '\n', bytes.size() - start));
        size_t end = nl != nullptr ? static_cast<size_t>(nl - bytes.data()) : bytes.size();
        if (nl == nullptr && position != nullptr) {
            break;  // unfinished: the follower reads it once its newline is there
        }
        ++lineNumber;
        std::string text(reinterpret_cast<const char*>(bytes.data()) + start, end - start);
        Consume(text, path, lineNumber, year, month, lines, damaged);
        start = end + 1;
    }
    if (position != nullptr) {
        position->offset = std::min<uint64_t>(start, bytes.size());
        position->lineNumber = lineNumber;
    }
    return true;
}

LogFollower::LogFollower(std::string folder, std::string file, LogFilePosition position)
    : m_folder(std::move(folder)),
      m_current(std::move(file)),
      m_offset(position.offset),
      m_lineNumber(position.lineNumber) {}

void LogFollower::ReadFrom(const std::string& path, std::vector<LogLine>& lines,
                           std::vector<DamagedLine>& damaged) {
    struct Closer {
        void operator()(FILE* f) const { std::fclose(f); }
    };
    std::unique_ptr<FILE, Closer> file(std::fopen(path.c_str(), "rb"));
    if (!file || std::fseek(file.get(), static_cast<long>(m_offset), SEEK_SET) != 0) {
        return;
    }
    int year = 0, month = 1;
    ParseLogFileName(BaseName(path), year, month);
    char chunk[65536];
    size_t got;
    while ((got = std::fread(chunk, 1, sizeof(chunk), file.get())) > 0) {
        m_offset += got;
        for (size_t i = 0; i < got; ++i) {
            if (chunk[i] == '\n') {
                ++m_lineNumber;
                Consume(m_partial, path, m_lineNumber, year, month, lines, damaged);
                m_partial.clear();
            } else {
                m_partial += chunk[i];
            }
        }
    }
}

bool LogFollower::Poll(std::vector<LogLine>& lines, std::vector<DamagedLine>& damaged,
                       std::string& error) {
    if (!m_current.empty()) {
        ReadFrom(m_current, lines, damaged);
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
            damaged.push_back(
                {m_current, m_lineNumber, "unfinished when the file was closed", m_partial});
            m_partial.clear();
        }
        m_current = files.back();
        m_offset = 0;
        m_lineNumber = 0;
        ReadFrom(m_current, lines, damaged);
    }
    return true;
}

}  // namespace zoltool
