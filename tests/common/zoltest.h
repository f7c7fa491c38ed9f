// Shared test support, one helper per need.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "offlinelog.h"  // the parser of `zoltools log`
#include "zolimagebuffer.h"

namespace zoltest {

struct LogLine {
    int priority;
    std::string tag, text;
};

// Captures the Android log lines written while it lives, all priorities, through the log
// library's logger hook. One per process at a time; thread-safe.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogLine> Lines() const;
    std::vector<std::string> Texts(int priority = -1) const;  // priority < 0: any
    size_t Count(const std::string& needle) const;            // lines whose text contains `needle`
    bool Contains(const std::string& needle) const { return Count(needle) > 0; }
    // Lines of `priority` (< 0: any) whose whole text is `pattern`, each '#' standing for a run
    // of digits (a source line): Matching(ANDROID_LOG_ERROR, "zolpsi.cpp:# Get() failed!").
    size_t Matching(int priority, const std::string& pattern) const;
    void Clear();
};

bool MatchesPattern(const std::string& text, const std::string& pattern);  // as Matching

// A fresh temporary directory, removed with its contents at the end of the scope. Names are
// relative to it; a leading '/' is allowed ("/data/x" is "data/x").
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return m_path; }
    std::string operator/(const std::string& name) const {
        return !name.empty() && name[0] == '/' ? m_path + name : m_path + "/" + name;
    }
    std::string MakeDir(const std::string& name) const;  // mkdir -p; the full path
    // Writes a file, parents created; the full path.
    std::string WriteFile(const std::string& name, const std::string& contents) const;

private:
    std::string m_path;
};

// A TempDir that is ZOL_DEVICE_ROOT while it lives: the device paths the library names
// (/data/..., /vendor/...) lie below it.
class DeviceRoot : public TempDir {
public:
    DeviceRoot();
    ~DeviceRoot();
    std::string Resolve(const std::string& devicePath) const { return path() + devicePath; }

private:
    std::optional<std::string> m_previous;
};

// Two planes of `planeBytes` bytes wired into `buffer` (sliceHeight = height), filled with a
// pattern that differs per plane and per byte, padding included, so stray bytes show.
struct TestImage {
    TestImage(uint32_t format, uint32_t width, uint32_t height, uint32_t stride, size_t planeBytes,
              uint8_t seed);
    TestImage(const TestImage&) = delete;
    TestImage& operator=(const TestImage&) = delete;
    void Fill(uint8_t value);
    // `rows` rows of `rowBytes` of plane p, stride apart: what a raw file of the plane holds.
    std::string Rows(int p, int rows, int rowBytes) const;

    std::vector<uint8_t> planes[2];
    ZOLImageBuffer buffer;
};

// status: the exit status, 128 + the signal that ended the child, or 124 when it outlived its
// minute and its process group was killed.
struct RunResult {
    int status = -1;
    std::string out, err;
    long maxRssKb = 0;  // the child's peak, which starts from this process's size at fork
};

struct RunOptions {
    std::vector<std::string> env;  // "NAME=value", laid over this environment
    std::string cwd;               // the child's working directory when not empty
};

// Runs argv[0] (for a program built here, the path zol_test_program_path gives: it goes through
// the emulator when cross-compiling) in a process group of its own, stdin from /dev/null.
RunResult Run(const std::vector<std::string>& argv, const RunOptions& options = {});
// Forks a child that runs `body` and _exits with its result, so that process-wide state or a
// crash stays there; the status as Run gives it.
int RunInChild(const std::function<int()>& body, int timeoutSeconds = 60);

// Polls `done` every millisecond: true once it holds, false after `timeoutSeconds`.
bool WaitUntil(const std::function<bool()>& done, int timeoutSeconds = 30);

// The lines of the offline-log files in `dir` (a log folder or a device root), oldest file
// first, as `zoltools log` parses them; unparsable lines go to `damaged` when given.
std::vector<zoltool::LogLine> ReadOfflineLog(const std::string& dir,
                                             std::vector<zoltool::DamagedLine>* damaged = nullptr);

std::string Address(const void* p);                         // "%p", as the library logs addresses
void RemoveTree(const std::string& path);                   // rm -rf
std::string ReadFile(const std::string& path);              // empty when unreadable
std::vector<std::string> ListDir(const std::string& path);  // sorted, no "." and ".."
int CountOpenFds();
// Shared mappings (as DMA buffers are mapped): unlike all mappings, they do not move when a
// sanitizer's allocator maps memory of its own.
int CountSharedMappings();

}  // namespace zoltest
