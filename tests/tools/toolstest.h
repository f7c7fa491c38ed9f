// What the zoltools tests share beyond tests/common: where the programs and golden files are,
// a table of program runs and a small device root.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "simfolder.h"
#include "zoltest.h"

namespace toolstest {

using namespace zoltest;

inline const std::string kZoltools = ZOLTOOLS_BINARY;
inline const std::string kAlgoWrapper = ALGO_WRAPPER_BINARY;  // empty: built without the example
inline const std::string kGolden = ZOLTOOLS_GOLDEN_DIR "/";   // tests/tools/golden/
// Sanitizers' shadow memory makes address-space limits and memory figures meaningless.
constexpr bool kSanitized = ZOLTOOLS_SANITIZED != 0;

// zoltools with `args`, less the empty ones (so that a table can leave an option out).
RunResult Tool(std::vector<std::string> args, const zoltest::RunOptions& options = {});
size_t CountLines(const std::string& text);

// A run's exit status and a text it printed: on stdout for status 0, on stderr otherwise, on
// either when `anywhere`; and how many lines it printed on stdout, unless `lines` is -1.
struct Expected {
    std::vector<std::string> args;
    int status;
    std::string said;
    int lines = -1;
    std::vector<std::string> env = {};
    bool anywhere = false;
};
void ExpectRuns(const std::string& program, const std::vector<Expected>& runs);

// A device root holding what the library leaves behind, as few files as a case needs.
struct ZolRoot : TempDir {
    static constexpr const char* kLogs = "data/vendor/camera/offlinelog/";
    // Save folder SimulationIntputInfo_<stamp> holding `files` (a name ending in '/' is made a
    // directory); without any, one 8x4 NV21 frame with its record, and database.bin.
    std::string Save(const std::string& stamp,
                     const std::vector<std::pair<std::string, std::string>>& files = {}) const;
};

std::string Records(const std::vector<zoltool::RequestRecord>& records);  // requestInfo.bin
inline zoltool::RequestRecord Nv21Record(uint32_t width, uint32_t height, uint32_t stride = 0) {
    return {0, width, height, stride != 0 ? stride : width, height, 2, {7, -1, 0, 0}};
}

}  // namespace toolstest
