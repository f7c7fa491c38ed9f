// Helpers of the zoltools tests: running a command in-process or the built programs as child
// processes, with their output captured, and where the golden files are.
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
};

// Runs a command function with its output and error streams captured.
Output Capture(const std::function<int(const zoltool::Streams&)>& command);

// Runs a program (argv[0] is its path) with `env` added to this process's environment; waits
// for it. status is the exit status, or 128 + the signal that ended it.
Output RunProgram(const std::vector<std::string>& argv, const std::vector<std::string>& env = {});

// A golden file or folder of tests/tools/golden.
std::string Golden(const std::string& relative);

// The built programs.
std::string ZoltoolsBinary();
std::string AlgoWrapperBinary();

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
