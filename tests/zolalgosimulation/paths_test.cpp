// Names in the simulation dump tree, and the mode read at load.
#include <gtest/gtest.h>

#include <ctime>
#include <string>

#include "zolalgosimulation/zolalgosimulationinternal.h"
#include "zoltest.h"

namespace {

TEST(SimulationPaths, SaveFolderIsNamedFromTheLocalTimeWithMilliseconds) {
    zoltest::DeviceRoot root;
    struct tm local = {};
    local.tm_mon = 2;  // March
    local.tm_mday = 3;
    local.tm_hour = 9;
    local.tm_min = 5;
    local.tm_sec = 7;
    char folder[zol::algosim::kFolderPathBytes];
    zol::algosim::SaveFolderPath(folder, local, 42999);  // 42.999 ms: truncated to 042
    EXPECT_EQ(
        root.path() + "/data/vendor/camera/algosimulation/SimulationIntputInfo_0303090507042/",
        folder);

    local.tm_mon = 11;
    local.tm_mday = 31;
    local.tm_hour = 23;
    local.tm_min = 59;
    local.tm_sec = 59;
    zol::algosim::SaveFolderPath(folder, local, 999999);
    EXPECT_EQ(
        root.path() + "/data/vendor/camera/algosimulation/SimulationIntputInfo_1231235959999/",
        folder);
}

TEST(SimulationPaths, BaseFolderFollowsTheDeviceRootAndEndsInASlash) {
    zoltest::DeviceRoot root;
    char base[zol::algosim::kFolderPathBytes];
    zol::algosim::BaseFolderPath(base);
    EXPECT_EQ(root.path() + "/data/vendor/camera/algosimulation/", base);
}

TEST(SimulationPaths, FrameFilesCarryWidthHeightAndIndex) {
    char path[zol::algosim::kFilePathBytes];
    zol::algosim::FrameFilePath(path, "/f/", 4000, 3000, 1);
    EXPECT_STREQ("/f/inputFrameInfo_4000x3000_1_.yuv", path);
    zol::algosim::FrameFilePath(path, "", 1, 2, 0);
    EXPECT_STREQ("inputFrameInfo_1x2_0_.yuv", path);
}

TEST(SimulationPaths, LongPathsAreCutToTheirBuffers) {
    const std::string folder(600, 'd');
    char path[zol::algosim::kFilePathBytes];
    zol::algosim::FrameFilePath(path, folder.c_str(), 1, 1, 0);
    EXPECT_EQ(folder.substr(0, zol::algosim::kFilePathBytes - 1), path);
}

TEST(SimulationMode, SavingIsTheDefault) {
    // This binary runs without the property.
    EXPECT_EQ(1, ZOLAlgoSimulationMode);
}

}  // namespace
