// Shared test support: capturing Android log lines, a fresh device root per test, and counting
// the process's descriptors and mappings.
#pragma once

#include <string>
#include <vector>

namespace zoltest {

struct LogLine {
    int priority;
    std::string tag;
    std::string text;
};

// Captures every Android log line written while it lives (all priorities), through the log
// library's logger hook. One at a time per process; thread-safe.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogLine> Lines() const;
    // Texts of the lines with this priority (any priority when priority < 0).
    std::vector<std::string> Texts(int priority = -1) const;
    // Number of lines whose text contains `needle`.
    size_t Count(const std::string& needle) const;
    bool Contains(const std::string& needle) const { return Count(needle) > 0; }
    // True when some line is exactly "<file>:<line number><rest>", whatever the line number:
    // HasSourceLine("zolpsi.cpp", " GetPsiIoSomeAvg10() [0x1234] get data failed!").
    bool HasSourceLine(const std::string& file, const std::string& rest) const;
    void Clear();
};

// A fresh, empty temporary directory set as ZOL_DEVICE_ROOT while it lives; removed with
// everything below it afterwards. Device paths the library names (/data/..., /vendor/...)
// resolve below it.
class DeviceRoot {
public:
    DeviceRoot();
    ~DeviceRoot();
    DeviceRoot(const DeviceRoot&) = delete;
    DeviceRoot& operator=(const DeviceRoot&) = delete;

    const std::string& path() const { return root_; }
    // Where a device path lies under this root: Resolve("/data/x") == path() + "/data/x".
    std::string Resolve(const std::string& devicePath) const { return root_ + devicePath; }
    // Creates a device directory with its parents (mkdir -p); returns its host path.
    std::string MakeDir(const std::string& devicePath) const;
    // Writes a device file (parents created); returns its host path.
    std::string WriteFile(const std::string& devicePath, const std::string& contents) const;

private:
    std::string root_;
    std::string previous_;
    bool had_previous_ = false;
};

// "%p" of an address, as the library prints it in its log lines.
std::string Address(const void* p);

// Removes a directory tree (rm -rf); missing paths are fine.
void RemoveTree(const std::string& path);
// Reads a whole file; empty when it cannot be read.
std::string ReadFile(const std::string& path);
// Entries of a directory (no "." / ".."), sorted.
std::vector<std::string> ListDir(const std::string& path);
// Open descriptors of this process (entries of /proc/self/fd).
int CountOpenFds();
// Mappings of this process (lines of /proc/self/maps).
int CountMappings();
// Shared mappings only (MAP_SHARED, as DMA buffers are mapped): unlike the total, they do not
// move when a sanitizer's allocator maps memory of its own.
int CountSharedMappings();

}  // namespace zoltest
