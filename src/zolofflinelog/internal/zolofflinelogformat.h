// Internal: the offline log's line and file name, as the writer makes them and as the host
// tool (and the tests, through it) reads them back. Header-only, so that the tool needs no
// symbol of the library for it. A line is
//   "MM-DD hh:mm:ss:nnnnnnnnn  pppp  tttt L ZOL: <message>\n"
// with the process and thread ids right-aligned in at least four columns and L the level's
// letter. A line is kept to kLongestLine characters: a longer one loses its end, newline
// first, so the next line follows it directly in the file.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

namespace zol {
namespace offlinelog {

constexpr size_t kLineBlockSize = 2048;
constexpr size_t kLongestLine = kLineBlockSize - 1;  // the block's last byte stays zero

// Month, day, hour, minute, second, nanoseconds, process id, thread id, level letter.
constexpr char kStampFormat[] = "%02d-%02d %02d:%02d:%02d:%09ld  %4d  %4d %c ZOL: ";
// Where the parser finds the stamp's parts: the time is fixed-width, the ids follow it, and
// after them the level and the marker.
constexpr size_t kTimeLength = 24;  // "MM-DD hh:mm:ss:nnnnnnnnn"
constexpr size_t kIdGap = 2;        // blanks at least before each id
constexpr size_t kIdColumns = 4;    // an id's width at least
// What follows the level letter, up to the message.
constexpr std::string_view kMarker =
    std::string_view(kStampFormat).substr(std::string_view(kStampFormat).rfind("%c") + 2);

constexpr char kLevelLetters[] = "EWDIV";  // levels 1 to 5

// The letter of a level: E W D I V for 1 to 5, V for anything else.
constexpr char LevelLetter(int level) {
    return level >= 1 && level <= 5 ? kLevelLetters[level - 1] : 'V';
}

// "ZOLOfflineLog_YYYY-MM-DD--hh-mm-ss-uuuuuu.txt", named after the file's creation time.
constexpr char kFileNameFormat[] = "ZOLOfflineLog_%04d-%02d-%02d--%02d-%02d-%02d-%06ld.txt";
constexpr std::string_view kFileNamePrefix =
    std::string_view(kFileNameFormat).substr(0, std::string_view(kFileNameFormat).find('%'));

struct FileNameTime {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    long micros = 0;
};

// Reads a log file's name back; false for any other name (and a month outside 1 to 12).
inline bool ParseFileName(const std::string& name, FileNameTime& out) {
    FileNameTime t;
    int consumed = 0;
    if (name.compare(0, kFileNamePrefix.size(), kFileNamePrefix) != 0 ||
        std::sscanf(name.c_str() + kFileNamePrefix.size(), "%4d-%2d-%2d--%2d-%2d-%2d-%6ld.txt%n",
                    &t.year, &t.month, &t.day, &t.hour, &t.minute, &t.second, &t.micros,
                    &consumed) != 7 ||
        kFileNamePrefix.size() + static_cast<size_t>(consumed) != name.size() || t.month < 1 ||
        t.month > 12) {
        return false;
    }
    out = t;
    return true;
}

// When a line was written. The year is not in the line: it comes from the file's name.
struct StampTime {
    int year = 0, month = 0, day = 0;
    int hour = 0, minute = 0, second = 0;
    long nanos = 0;
};

// A line's stamp, read back.
struct Stamp {
    StampTime time;
    int pid = 0, tid = 0;
    char level = 'V';
    size_t messageAt = 0;  // where the message starts
};

// What ParseStamp found wrong first, in line order.
enum class StampFault { kNone, kNoTime, kNotADate, kNoIds, kNoLevel };

namespace detail {

inline bool Digits(std::string_view s, size_t pos, size_t count, long& value) {
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

// kIdGap blanks or more, then a number right-aligned in kIdColumns columns or more.
inline bool PaddedId(std::string_view s, size_t& pos, int& value) {
    const size_t start = pos;
    while (pos < s.size() && s[pos] == ' ') {
        ++pos;
    }
    const size_t digitsStart = pos;
    long v = 0;
    while (pos < s.size() && s[pos] >= '0' && s[pos] <= '9' && pos - digitsStart < 10) {
        v = v * 10 + (s[pos] - '0');
        ++pos;
    }
    if (digitsStart - start < kIdGap || pos == digitsStart || pos - start < kIdGap + kIdColumns ||
        v > 2147483647L) {
        return false;
    }
    value = static_cast<int>(v);
    return true;
}

constexpr bool IsLeapYear(int year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

}  // namespace detail

// Reads the stamp at the start of `text` (a line without its newline). `fileYear` and
// `fileMonth` come from the file's name: a line whose month is earlier than the file's belongs
// to the next year (a file opened in December runs into January); year 0 (unknown) lets 02-29
// through.
inline StampFault ParseStamp(std::string_view text, int fileYear, int fileMonth, Stamp& out) {
    long month, day, hour, minute, second, nanos;
    if (!detail::Digits(text, 0, 2, month) || text.size() < kTimeLength || text[2] != '-' ||
        !detail::Digits(text, 3, 2, day) || text[5] != ' ' || !detail::Digits(text, 6, 2, hour) ||
        text[8] != ':' || !detail::Digits(text, 9, 2, minute) || text[11] != ':' ||
        !detail::Digits(text, 12, 2, second) || text[14] != ':' ||
        !detail::Digits(text, 15, 9, nanos)) {
        return StampFault::kNoTime;
    }
    static const int kDays[13] = {0, 31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const int year = fileYear + (month < fileMonth ? 1 : 0);
    if (month < 1 || month > 12 || day < 1 || day > kDays[month] ||
        (month == 2 && day == 29 && year != 0 && !detail::IsLeapYear(year)) || hour > 23 ||
        minute > 59 || second > 60) {
        return StampFault::kNotADate;
    }
    size_t pos = kTimeLength;
    int pid, tid;
    if (!detail::PaddedId(text, pos, pid) || !detail::PaddedId(text, pos, tid)) {
        return StampFault::kNoIds;
    }
    constexpr size_t kMarkerLength = kMarker.size();
    if (pos + 2 + kMarkerLength > text.size() || text[pos] != ' ' ||
        std::string_view(kLevelLetters).find(text[pos + 1]) == std::string_view::npos ||
        text.compare(pos + 2, kMarkerLength, kMarker) != 0) {
        return StampFault::kNoLevel;
    }
    out.time = {year,
                static_cast<int>(month),
                static_cast<int>(day),
                static_cast<int>(hour),
                static_cast<int>(minute),
                static_cast<int>(second),
                nanos};
    out.pid = pid;
    out.tid = tid;
    out.level = text[pos + 1];
    out.messageAt = pos + 2 + kMarkerLength;
    return StampFault::kNone;
}

}  // namespace offlinelog
}  // namespace zol
