// Offline log lines as trace-event JSON, the format that trace viewers open (Perfetto's UI,
// chrome://tracing): one track per process and thread, each line an instant event on its
// thread's track. Also the two pieces that the report page shares with it: a time scale for
// stamps and a walk over UTF-8 that survives bytes which are not.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "offlinelog.h"

namespace zoltool {

// A stamp on one continuous nanosecond scale (days from a fixed civil date, the stamp's local
// time taken as it stands), so that two stamps subtract to the time between them.
int64_t StampNanos(const LogStamp& stamp);

// Length (1 to 4) of the well-formed UTF-8 sequence at text[pos], 0 when the bytes there are
// not one (a stray continuation byte, an overlong form, a surrogate, a cut sequence).
size_t Utf8Length(std::string_view text, size_t pos);

// Appends `text` as the inside of a JSON string: quote, backslash and control characters
// escaped; a byte that is not UTF-8 becomes the visible text \xNN, so that the result is
// always valid JSON whatever the file held.
void AppendJsonText(std::string& out, std::string_view text);

// Writes `lines` (merged, filtered and in stamp order) as a trace to `path`: first a
// process_name ("pid N") and a thread_name (the thread id) record for every process and
// thread, then one event per line with ph "i" (instant, thread scope), cat the level letter,
// name the start of the message, ts in microseconds from the first line (to the nanosecond),
// and args holding the whole message and the file and line it came from. False with `error`
// when the file cannot be written.
bool WriteTrace(const std::string& path, const std::vector<LogLine>& lines, std::string& error);

}  // namespace zoltool
