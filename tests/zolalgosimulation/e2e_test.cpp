// End to end across processes: one process saves three invocations, a second one (same device
// root, replay mode) replays them in listing order, wrapping around. The mode is read when the
// library loads, so each side is a fresh process of the helper built beside this test, started
// with the property in its environment (and through the cross-compiling emulator, if any).
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "algosim_test_support.h"
#include "e2e_geometry.h"
#include "zoltest.h"

extern char** environ;

namespace {

constexpr const char* kModeProperty = "persist.vendor.camera.capture.algosimulation.dump";

std::vector<std::string> Split(const std::string& text, char separator) {
    std::vector<std::string> out;
    size_t start = 0;
    while (start <= text.size()) {
        const size_t end = std::min(text.find(separator, start), text.size());
        if (end > start) {
            out.push_back(text.substr(start, end - start));
        }
        start = end + 1;
    }
    return out;
}

// Runs the helper with `command` and the mode property at `mode`; its exit status, or -1.
int RunHelper(const char* command, const char* mode) {
    std::vector<std::string> args = Split(ZOL_E2E_EMULATOR, '|');
    args.push_back(ZOL_E2E_HELPER);
    args.push_back(command);
    std::vector<std::string> env;
    const std::string prefix = std::string(kModeProperty) + "=";
    for (char** e = environ; *e != nullptr; ++e) {
        if (strncmp(*e, prefix.c_str(), prefix.size()) != 0) {
            env.push_back(*e);
        }
    }
    env.push_back(prefix + mode);

    std::vector<char*> argv;
    for (std::string& a : args) {
        argv.push_back(&a[0]);
    }
    argv.push_back(nullptr);
    std::vector<char*> envp;
    for (std::string& e : env) {
        envp.push_back(&e[0]);
    }
    envp.push_back(nullptr);

    pid_t pid;
    if (posix_spawn(&pid, argv[0], nullptr, nullptr, argv.data(), envp.data()) != 0) {
        return -1;
    }
    int status = 0;
    if (waitpid(pid, &status, 0) != pid) {
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(SimulationEndToEnd, ASecondProcessReplaysTheSavedInvocationsInListingOrder) {
    zoltest::DeviceRoot root;
    root.MakeDir("/data/vendor/camera");
    ASSERT_EQ(0, RunHelper("save", "1"));

    // Three complete folders, one per invocation.
    const std::string base = root.Resolve(algosimtest::kBaseFolder);
    const auto folders = zoltest::ListDir(base);
    ASSERT_EQ(3u, folders.size());
    std::set<uint32_t> ids;
    for (const std::string& folder : folders) {
        EXPECT_TRUE(algosimtest::IsSaveFolderName(folder)) << folder;
        const std::string dir = base + folder + "/";
        EXPECT_EQ(std::vector<std::string>({"database.bin", "inputFrameInfo_40x30_1_.yuv",
                                            "inputFrameInfo_50x20_2_.yuv",
                                            "inputFrameInfo_64x48_0_.yuv", "requestInfo.bin"}),
                  zoltest::ListDir(dir));
        EXPECT_EQ(120u, zoltest::ReadFile(dir + "requestInfo.bin").size());
        const std::string db = zoltest::ReadFile(dir + "database.bin");
        for (uint32_t id = 0; id < e2e::kInvocations; ++id) {
            if (db != algosimtest::DatabaseFor(id)) {
                continue;
            }
            ids.insert(id);
            for (size_t i = 0; i < 3; ++i) {
                const e2e::Geometry& g = e2e::kFrames[i];
                const std::string name = "inputFrameInfo_" + std::to_string(g.width) + "x" +
                                         std::to_string(g.height) + "_" + std::to_string(i) +
                                         "_.yuv";
                EXPECT_EQ(algosimtest::Frame::Payload(g.width, g.height, e2e::Seed(id, i)),
                          zoltest::ReadFile(dir + name))
                    << folder << "/" << name;
            }
        }
    }
    EXPECT_EQ(std::set<uint32_t>({0, 1, 2}), ids);

    ASSERT_EQ(0, RunHelper("replay", "2"));
}

}  // namespace
