// Small file helpers shared by the zoltools commands. Every failure comes back as a message
// that names the file and says what is wrong with it, ready to print.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zoltool {

// Reads the whole file into `bytes`. False with `error` set when it cannot be opened or read.
bool ReadWholeFile(const std::string& path, std::vector<uint8_t>& bytes, std::string& error);

// Writes `bytes` to `path` (created or truncated). False with `error` set on failure.
bool WriteWholeFile(const std::string& path, const std::vector<uint8_t>& bytes, std::string& error);

// Size of a regular file, or -1 when it does not exist or is not a regular file.
int64_t FileSize(const std::string& path);

bool IsDirectory(const std::string& path);

// What `path` is, looked up without opening anything (so a FIFO or a device is never read
// from): "a regular file", "a directory", "a FIFO", "a character device", ...; "" when there
// is nothing there, "" with errno set when it cannot be looked at.
std::string FileKind(const std::string& path);

// Why `path` cannot be read as a file: "" for a regular file (or a link to one), otherwise
// "no such file", "is a directory", "is a FIFO, not a regular file", ...
std::string WhyNotAFile(const std::string& path);

// True when both paths exist and name the same file (links and hard links included).
bool SameFile(const std::string& a, const std::string& b);

// Names of a directory's entries (no "." or ".."), sorted. False with `error` set when the
// directory cannot be opened.
bool ListDirectory(const std::string& path, std::vector<std::string>& names, std::string& error);

// mkdir -p. False with `error` set when a component cannot be created.
bool MakeDirectories(const std::string& path, std::string& error);

// "a" + "b" -> "a/b", without doubling a slash already at the end of `dir`.
std::string JoinPath(const std::string& dir, const std::string& name);

// strerror(errno) for the current errno.
std::string ErrnoText();

}  // namespace zoltool
