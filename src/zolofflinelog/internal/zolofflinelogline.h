// The offline log's texts: the line stamp, the line block a worker receives, and the file names
// (their layout is zolofflinelogformat.h's). Internal to zolofflinelog.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <ctime>
#include <string>

#include "zolofflinelog/internal/zolofflinelogformat.h"

namespace zol {
namespace offlinelog {

constexpr size_t kStampSize = 128;

// The process id and the calling thread's kernel id (gettid), each read by its system call
// once per thread and kept; a forked child reads them afresh.
pid_t ProcessId();
pid_t ThreadId();

// localtime_r, remembering the last second broken down on this thread: lines logged within the
// same second (nearly all of them) do not break the time down again. Same result as
// localtime_r for as long as the process's time zone stays as it was first read.
void LocalTime(time_t seconds, struct tm* out);

// Formats the stamp (kStampFormat) into out (kStampSize bytes); returns its length.
size_t FormatStamp(char* out, const struct timespec& now, pid_t pid, pid_t tid, char letter);

// Fills a zeroed kLineBlockSize block with stamp, message and "\n", keeping at most
// kLongestLine characters: a line too long for the block loses its end, newline first.
void ComposeLine(char* block, const char* stamp, size_t stampLen, const char* msg);

// The path of a log file created now: the device path of "/data/vendor/camera/offlinelog/"
// and a kFileNameFormat name.
std::string NewLogFilePath();

}  // namespace offlinelog
}  // namespace zol
