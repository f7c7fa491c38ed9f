// The constructor's decision for one combination of property and settings file, given to each
// binary built from this file by its environment (CMakeLists.txt): ZOLTEST_SETTINGS is
// "absent", "true" or "false", ZOLTEST_EXPECT_ON "1" when the log must come out on.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "zolofflinelog.h"
#include "zoltest.h"

TEST(OfflineLogSwitch, DecidedOnceWhenTheLogIsBuilt) {
    const std::string settings = std::getenv("ZOLTEST_SETTINGS");
    const bool on = std::string(std::getenv("ZOLTEST_EXPECT_ON")) == "1";
    zoltest::DeviceRoot root;
    const std::string dir = root.MakeDir("/data/vendor/camera/offlinelog");
    const std::string file = "/vendor/etc/camera/camxoverridesettings.txt";
    if (settings != "absent") {
        root.WriteFile(file, "ZOLOfflineLog=" + settings + "\n");
    }
    ZOLOfflineLog* log = ZOLOfflineLog::GetInstance();
    root.WriteFile(file, on ? "ZOLOfflineLog=false\n" : "ZOLOfflineLog=true\n");  // too late
    ZOLOfflineLog::ZOLOfflineLogD("plain");
    ASSERT_TRUE(log->WaitForQueuedLines()) << "the workers run either way";
    ZOLOfflineLog::ZOLOfflineLogDCapture("capture");
    ASSERT_TRUE(log->WaitForQueuedLines());
    const std::vector<zoltool::LogLine> lines = zoltest::ReadOfflineLog(dir);
    ASSERT_EQ(on ? 2u : 0u, lines.size());
    if (on) {
        EXPECT_EQ("plain", lines[0].message);
        EXPECT_EQ("capture", lines[1].message);
    }
    EXPECT_EQ(on, log->AppendToLogPool("x", 1)) << "the memory pool exists only when on";
    EXPECT_TRUE(log->FlushLogPoolToFile()) << "a file is made even without a pool";
    EXPECT_EQ(on ? 2u : 1u, zoltest::ListDir(dir).size());
}
