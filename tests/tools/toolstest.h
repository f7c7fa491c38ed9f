// What the zoltools tests share beyond tests/common: where the programs and golden files are,
// and a small device root.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
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
constexpr bool kSanitized = ZOLTOOLS_SANITIZED != 0;          // memory figures mean nothing then

// zoltools with `args`, less the empty ones (so that a table can leave an option out).
inline RunResult Tool(std::vector<std::string> args, const RunOptions& options = {}) {
    args.erase(std::remove(args.begin(), args.end(), ""), args.end());
    args.insert(args.begin(), kZoltools);
    return Run(args, options);
}

inline std::string Records(const std::vector<zoltool::RequestRecord>& records) {
    const std::vector<uint8_t> bytes = zoltool::EncodeRequestInfo(records);
    return std::string(bytes.begin(), bytes.end());
}

inline zoltool::RequestRecord Nv21Record(uint32_t width, uint32_t height, uint32_t stride = 0) {
    return {0, width, height, stride != 0 ? stride : width, height, 2, {7, -1, 0, 0}};
}

// A device root holding what the library leaves behind, as few files as a case needs.
struct ZolRoot : TempDir {
    static constexpr const char* kLogs = "data/vendor/camera/offlinelog/";

    // Save folder SimulationIntputInfo_<stamp> holding `files` (a name ending in '/' is made a
    // directory); without any, one 8x4 NV21 frame with its record, and database.bin.
    std::string Save(const std::string& stamp,
                     const std::vector<std::pair<std::string, std::string>>& files = {}) const {
        const std::string folder =
            "data/vendor/camera/algosimulation/SimulationIntputInfo_" + stamp;
        for (const auto& [name, bytes] : files) {
            name.back() == '/' ? MakeDir(folder + "/" + name)
                               : WriteFile(folder + "/" + name, bytes);
        }
        if (files.empty()) {
            WriteFile(folder + "/requestInfo.bin", Records({Nv21Record(8, 4)}));
            WriteFile(folder + "/inputFrameInfo_8x4_0_.yuv", std::string(48, '\x80'));
            WriteFile(folder + "/database.bin", "db");
        }
        return *this / folder;
    }
};

}  // namespace toolstest
