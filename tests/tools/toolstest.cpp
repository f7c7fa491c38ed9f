#include "toolstest.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace toolstest {

RunResult Tool(std::vector<std::string> args, const zoltest::RunOptions& options) {
    args.erase(std::remove(args.begin(), args.end(), ""), args.end());
    args.insert(args.begin(), kZoltools);
    return zoltest::Run(args, options);
}

size_t CountLines(const std::string& text) {
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

void ExpectRuns(const std::string& program, const std::vector<Expected>& runs) {
    for (const Expected& e : runs) {
        std::vector<std::string> argv = {program};
        argv.insert(argv.end(), e.args.begin(), e.args.end());
        zoltest::RunOptions options;
        options.env = e.env;
        const RunResult run = zoltest::Run(argv, options);
        EXPECT_EQ(e.status, run.status) << e.said << "\n" << run.err;
        const std::string said = e.anywhere ? run.out + run.err : e.status == 0 ? run.out : run.err;
        EXPECT_NE(std::string::npos, said.find(e.said)) << e.said << "\n" << said.substr(0, 2000);
        EXPECT_TRUE(e.lines < 0 || CountLines(run.out) == size_t(e.lines)) << e.said << "\n"
                                                                           << run.out;
        if (program == kZoltools) {  // it says what is wrong once, in its own words, escaped
            EXPECT_EQ(std::string::npos, run.err.find("ZOL ")) << "a library line: " << run.err;
            EXPECT_EQ(std::string::npos, (run.out + run.err).find('\x1b')) << e.said;
        }
    }
}

std::string ZolRoot::Save(const std::string& stamp,
                          const std::vector<std::pair<std::string, std::string>>& files) const {
    const std::string folder = "data/vendor/camera/algosimulation/SimulationIntputInfo_" + stamp;
    for (const auto& [name, bytes] : files) {
        name.back() == '/' ? MakeDir(folder + "/" + name) : WriteFile(folder + "/" + name, bytes);
    }
    if (files.empty()) {
        WriteFile(folder + "/requestInfo.bin", Records({Nv21Record(8, 4)}));
        WriteFile(folder + "/inputFrameInfo_8x4_0_.yuv", std::string(48, '\x80'));
        WriteFile(folder + "/database.bin", "db");
    }
    return *this / folder;
}

std::string Records(const std::vector<zoltool::RequestRecord>& records) {
    const std::vector<uint8_t> bytes = zoltool::EncodeRequestInfo(records);
    return std::string(bytes.begin(), bytes.end());
}

}  // namespace toolstest
