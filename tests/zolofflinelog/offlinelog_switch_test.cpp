// The constructor's decision for one combination of property and settings file, given to each
// binary built from this file by its environment:
//   ZOLTEST_SETTINGS   "absent", "true" or "false": what the settings file says
//   ZOLTEST_EXPECT_ON  "1" when the log must come out enabled
// (the property itself, persist.vendor.camera.zoltools.offlinelog, is set or not beside them).
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "offlinelog_test_support.h"
#include "zolofflinelog.h"

namespace {

std::string Env(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

TEST(OfflineLogSwitch, DecidedWhenTheLogIsBuilt) {
    offlinelogtest::LogRoot root;
    const std::string settings = Env("ZOLTEST_SETTINGS");
    if (settings == "true") {
        root.root.WriteFile("/vendor/etc/camera/camxoverridesettings.txt", "ZOLOfflineLog=TRUE\n");
    } else if (settings == "false") {
        root.root.WriteFile("/vendor/etc/camera/camxoverridesettings.txt", "ZOLOfflineLog=false\n");
    } else {
        ASSERT_EQ("absent", settings);
    }
    const bool on = Env("ZOLTEST_EXPECT_ON") == "1";

    ZOLOfflineLog* log = ZOLOfflineLog::GetInstance();
    ZOLOfflineLog::ZOLOfflineLogD("plain");
    ASSERT_TRUE(log->WaitForQueuedLines());
    ZOLOfflineLog::ZOLOfflineLogDCapture("capture");
    ASSERT_TRUE(log->WaitForQueuedLines());
    const std::vector<std::string> lines = offlinelogtest::SplitLines(root.ReadAll());
    if (on) {
        ASSERT_EQ(2u, lines.size());
        EXPECT_EQ("plain", offlinelogtest::MessageOf(lines[0]));
        EXPECT_EQ("capture", offlinelogtest::MessageOf(lines[1]));
    } else {
        EXPECT_TRUE(lines.empty());
    }
    EXPECT_EQ(on, log->AppendToLogPool("x", 1)) << "the memory pool exists only when on";

    // The decision is not taken again: the settings file changing later has no effect.
    root.root.WriteFile("/vendor/etc/camera/camxoverridesettings.txt",
                        on ? "ZOLOfflineLog=false\n" : "ZOLOfflineLog=true\n");
    ZOLOfflineLog::ZOLOfflineLogD("again");
    ASSERT_TRUE(log->WaitForQueuedLines());
    EXPECT_EQ(on ? 3u : 0u, offlinelogtest::SplitLines(root.ReadAll()).size());
}

}  // namespace
