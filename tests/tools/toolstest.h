// Helpers of the zoltools tests: a built program run as a child process, with its output, peak
// memory and CPU time captured; files in a temporary directory; where the programs and the
// golden files are.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "commands.h"

namespace toolstest {

struct Output {
    int status = -1;
    std::string out;
    std::string err;
    long maxRssKb = 0;      // of a child process, which counts this process's peak too
    double cpuSeconds = 0;  // of a child process, user + system
};

// Runs a program (args[0] is its path; "/usr/bin/env" with VAR=value first to set variables)
// in `cwd` when not empty, stdin from /dev/null. status is the exit status, or 128 + signal.
Output RunProgram(std::vector<std::string> args, const std::string& cwd = "");
// Runs a command function in this process with its output and error streams captured.
Output Capture(const std::function<int(const zoltool::Streams&)>& command);

inline std::string Zoltools() {
    return ZOLTOOLS_BINARY;
}
inline std::string AlgoWrapper() {
    return ALGO_WRAPPER_BINARY;
}
std::string Golden(const std::string& relative);  // a file of tests/tools/golden

// Sanitizers' shadow memory makes address-space limits and memory figures meaningless.
constexpr bool kSanitized = ZOLTOOLS_SANITIZED != 0;

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& bytes);
size_t CountLines(const std::string& text);

// A fresh temporary directory, removed with its contents on destruction.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return m_path; }
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

}  // namespace toolstest
