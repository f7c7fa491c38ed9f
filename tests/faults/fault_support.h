// Helpers of the fault-injection tests: resource limits set for a scope, a private tmpfs, and
// reading back what the offline log wrote.
#pragma once

#include <sys/resource.h>

#include <string>
#include <vector>

namespace faults {

// Sets the soft limit of `resource` for the scope and restores the previous limits after.
class ScopedLimit {
public:
    ScopedLimit(int resource, rlim_t soft);
    ~ScopedLimit();
    ScopedLimit(const ScopedLimit&) = delete;
    ScopedLimit& operator=(const ScopedLimit&) = delete;

private:
    int m_resource;
    rlimit m_saved;
};

// Makes sure no further descriptor can be opened: RLIMIT_NOFILE drops to just above the highest
// descriptor now open and the free numbers below it are taken (duplicates of stdin). Both are
// undone at the end of the scope.
class NoMoreDescriptors {
public:
    NoMoreDescriptors();
    ~NoMoreDescriptors();
    NoMoreDescriptors(const NoMoreDescriptors&) = delete;
    NoMoreDescriptors& operator=(const NoMoreDescriptors&) = delete;

private:
    rlimit m_saved;
    std::vector<int> m_fill;  // descriptors taken to fill the gaps below the limit
};

// Moves the calling thread into a mount namespace of its own (threads it starts afterwards
// follow it) and mounts a tmpfs of `bytes` bytes on `dir`. Empty on success, else why not
// (no privilege to make a namespace or mount: the caller skips).
std::string MountPrivateTmpfs(const std::string& dir, size_t bytes);
// Resizes that tmpfs; false on failure.
bool ResizeTmpfs(const std::string& dir, size_t bytes);

// The lines of every file in `dir`, oldest file first ("\n" removed; a last piece without
// newline is kept as a line).
std::vector<std::string> ReadLines(const std::string& dir);
// Total bytes of the regular files in `dir`.
size_t DirBytes(const std::string& dir);

// True when `line` looks like a whole offline-log line: "MM-DD hh:mm:ss:nnnnnnnnn", the two
// ids, a level letter and " ZOL: ".
bool IsWholeLogLine(const std::string& line);

}  // namespace faults
