#include "trace.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <utility>

#include "platform/uniquefd.h"

namespace zoltool {

namespace {

// Days from 1970-01-01 to a civil date of the proleptic Gregorian calendar.
int64_t DaysFromCivil(int64_t year, int64_t month, int64_t day) {
    year -= month <= 2 ? 1 : 0;
    const int64_t era = (year >= 0 ? year : year - 399) / 400;
    const int64_t yearOfEra = year - era * 400;
    const int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

// The event name: the start of the message, cut on a character boundary.
constexpr size_t kNameBytes = 80;

std::string_view NamePart(std::string_view message) {
    size_t end = 0;
    while (end < message.size()) {
        const size_t length = std::max<size_t>(1, Utf8Length(message, end));
        if (end + length > kNameBytes) {
            break;
        }
        end += length;
    }
    return message.substr(0, end);
}

}  // namespace

int64_t StampNanos(const LogStamp& s) {
    const int64_t seconds =
        DaysFromCivil(s.year, s.month, s.day) * 86400 + s.hour * 3600 + s.minute * 60 + s.second;
    return seconds * 1000000000 + s.nanos;
}

size_t Utf8Length(std::string_view text, size_t pos) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(pos);
    if (lead < 0x80) {
        return 1;
    }
    size_t length;
    unsigned char low = 0x80, high = 0xBF;  // the range of the second byte
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        low = lead == 0xE0 ? 0xA0 : 0x80;   // no overlong forms
        high = lead == 0xED ? 0x9F : 0xBF;  // no surrogates
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        low = lead == 0xF0 ? 0x90 : 0x80;
        high = lead == 0xF4 ? 0x8F : 0xBF;
    } else {
        return 0;
    }
    if (pos + length > text.size() || byte(pos + 1) < low || byte(pos + 1) > high) {
        return 0;
    }
    for (size_t i = 2; i < length; ++i) {
        if ((byte(pos + i) & 0xC0) != 0x80) {
            return 0;
        }
    }
    return length;
}

void AppendJsonText(std::string& out, std::string_view text) {
    char escaped[8];
    for (size_t pos = 0; pos < text.size();) {
        const unsigned char c = static_cast<unsigned char>(text[pos]);
        const size_t length = Utf8Length(text, pos);
        if (length == 0) {
            std::snprintf(escaped, sizeof(escaped), "\\\\x%02X", c);
            out += escaped;
            ++pos;
            continue;
        }
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < 0x20 || c == 0x7F) {
            std::snprintf(escaped, sizeof(escaped), "\\u%04X", c);
            out += escaped;
        } else {
            out.append(text.substr(pos, length));
        }
        pos += length;
    }
}

bool WriteTrace(const std::string& path, const std::vector<LogLine>& lines, std::string& error) {
    zol::UniqueFile file(std::fopen(path.c_str(), "wb"));
    if (!file) {
        error = path + ": cannot create: " + std::strerror(errno);
        return false;
    }
    std::string out = "{\"displayTimeUnit\":\"ns\",\"traceEvents\":[\n";
    bool first = true;
    const auto separate = [&] {
        if (!first) {
            out += ",\n";
        }
        first = false;
    };
    // Tracks first: one process per pid and, inside it, one thread per tid, named by its id.
    std::set<std::pair<int, int>> threads;
    std::set<int> processes;
    for (const LogLine& line : lines) {
        threads.emplace(line.pid, line.tid);
        processes.insert(line.pid);
    }
    char head[160];
    // One metadata event naming a track: KIND is process_name or thread_name.
    const auto nameTrack = [&](const char* kind, int pid, int tid, const std::string& name) {
        separate();
        std::snprintf(head, sizeof(head),
                      "{\"ph\":\"M\",\"name\":\"%s\",\"pid\":%d,\"tid\":%d,"
                      "\"args\":{\"name\":\"%s\"}}",
                      kind, pid, tid, name.c_str());
        out += head;
    };
    for (int pid : processes) {
        nameTrack("process_name", pid, pid, "pid " + std::to_string(pid));
    }
    for (const auto& [pid, tid] : threads) {
        nameTrack("thread_name", pid, tid, std::to_string(tid));
    }
    const int64_t origin = lines.empty() ? 0 : StampNanos(lines.front().stamp);
    for (const LogLine& line : lines) {
        separate();
        // A stamp the parser let through but no calendar has (a 31st of February) may land
        // before the first line; it is kept at the start rather than given a negative time.
        const int64_t ns = std::max<int64_t>(0, StampNanos(line.stamp) - origin);
        std::snprintf(head, sizeof(head),
                      "{\"ph\":\"i\",\"s\":\"t\",\"cat\":\"%c\",\"pid\":%d,\"tid\":%d,"
                      "\"ts\":%" PRId64 ".%03d,\"name\":\"",
                      line.level, line.pid, line.tid, ns / 1000, static_cast<int>(ns % 1000));
        out += head;
        AppendJsonText(out, NamePart(line.message));
        out += "\",\"args\":{\"text\":\"";
        AppendJsonText(out, line.message);
        out += "\",\"file\":\"";
        AppendJsonText(out, line.file);
        out += "\",\"line\":" + std::to_string(line.lineNumber) + "}}";
        if (out.size() >= 65536) {
            std::fwrite(out.data(), 1, out.size(), file.get());
            out.clear();
        }
    }
    out += "\n]}\n";
    std::fwrite(out.data(), 1, out.size(), file.get());
    if (std::ferror(file.get()) != 0 || zol::CloseFile(file) != 0) {
        error = path + ": write error: " + std::strerror(errno);
        return false;
    }
    return true;
}

}  // namespace zoltool
