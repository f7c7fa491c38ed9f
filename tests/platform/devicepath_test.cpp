#include <gtest/gtest.h>

#include <cstdlib>

#include "platform/devicepath.h"
#include "zoltest.h"

namespace {

TEST(DevicePath, DataAndVendorPathsFollowTheDeviceRoot) {
    zoltest::DeviceRoot root;
    EXPECT_EQ(root.path() + "/data/vendor/camera/offlinelog/",
              zol::DevicePath("/data/vendor/camera/offlinelog/"));
    EXPECT_EQ(root.path() + "/vendor/etc/camera/camxoverridesettings.txt",
              zol::DevicePath("/vendor/etc/camera/camxoverridesettings.txt"));
    EXPECT_EQ(root.path() + "/data", zol::DevicePath("/data"));
}

TEST(DevicePath, OtherPathsStandAsTheyAre) {
    zoltest::DeviceRoot root;
    EXPECT_EQ("/proc/pressure/cpu", zol::DevicePath("/proc/pressure/cpu"));
    EXPECT_EQ("/database/x", zol::DevicePath("/database/x"));
    EXPECT_EQ("/vendorx", zol::DevicePath("/vendorx"));
    EXPECT_EQ("data/vendor", zol::DevicePath("data/vendor"));
    EXPECT_EQ("", zol::DevicePath(nullptr));
}

TEST(DevicePath, WithoutADeviceRootPathsAreReal) {
    unsetenv("ZOL_DEVICE_ROOT");
    EXPECT_EQ("/data/vendor/camera/", zol::DevicePath("/data/vendor/camera/"));
    setenv("ZOL_DEVICE_ROOT", "", 1);
    EXPECT_EQ("/data/vendor/camera/", zol::DevicePath("/data/vendor/camera/"));
    setenv("ZOL_DEVICE_ROOT", "/r//", 1);
    EXPECT_EQ("/r/vendor/x", zol::DevicePath("/vendor/x"));
}

}  // namespace
