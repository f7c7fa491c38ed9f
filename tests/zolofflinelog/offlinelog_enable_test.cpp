// The settings file's say on the offline log (ReadEnableFromOverrideSettingsFile), and the
// decision of a log built with the property unset.
#include <gtest/gtest.h>
#include <pthread.h>

#include <string>

#include "offlinelog_test_support.h"
#include "zolofflinelog.h"
#include "zoltest.h"

namespace {

constexpr const char* kSettings = "/vendor/etc/camera/camxoverridesettings.txt";

bool EnabledBy(const std::string& contents) {
    zoltest::DeviceRoot root;
    root.WriteFile(kSettings, contents);
    return ZOLOfflineLog::ReadEnableFromOverrideSettingsFile();
}

TEST(OfflineLogSettingsFile, AbsentOrUnreadableMeansOff) {
    {
        zoltest::DeviceRoot root;
        EXPECT_FALSE(ZOLOfflineLog::ReadEnableFromOverrideSettingsFile());
    }
    zoltest::DeviceRoot root;
    root.MakeDir(kSettings);  // a directory where the file should be
    EXPECT_FALSE(ZOLOfflineLog::ReadEnableFromOverrideSettingsFile());
}

TEST(OfflineLogSettingsFile, ValueTrueInAnyCaseSwitchesOn) {
    EXPECT_TRUE(EnabledBy("ZOLOfflineLog=TRUE\n"));
    EXPECT_TRUE(EnabledBy("ZOLOfflineLog=true\n"));
    EXPECT_TRUE(EnabledBy("ZOLOfflineLog=tRuE\n"));
    EXPECT_TRUE(EnabledBy("ZOLOfflineLog = True\n"));
    EXPECT_TRUE(EnabledBy("ZOLOfflineLogEnable=TRUE\n"));
    EXPECT_TRUE(EnabledBy("ZOLOfflineLog=true"));  // a last line without newline counts
    EXPECT_TRUE(EnabledBy("overrideLogLevels=0x1F\nZOLOfflineLog=TRUE\nfoo=bar\n"));
}

TEST(OfflineLogSettingsFile, TheWordIsSearchedForAnywhereInTheLine) {
    EXPECT_TRUE(EnabledBy("ZOLOfflineLog=untrue\n"));
    EXPECT_TRUE(EnabledBy("ZOLOfflineLogTrue=0\n")) << "the key itself may carry the word";
    EXPECT_FALSE(EnabledBy("ZOLOfflineLogFalse=0\n"));
    EXPECT_TRUE(EnabledBy("ZOLOfflineLogFalse=true\n")) << "true is looked for first";
    EXPECT_FALSE(EnabledBy("ZOLOfflineLog=1\n")) << "1 and 0 are neither true nor false";
    EXPECT_TRUE(EnabledBy("ZOLOfflineLog=true\nZOLOfflineLog=1\nZOLOfflineLog=0\n"));
}

TEST(OfflineLogSettingsFile, LastQualifyingLineDecides) {
    EXPECT_FALSE(EnabledBy("ZOLOfflineLog=true\nZOLOfflineLog=false\n"));
    EXPECT_TRUE(EnabledBy("ZOLOfflineLog=false\nZOLOfflineLog=TRUE\n"));
    EXPECT_TRUE(EnabledBy("ZOLOfflineLog=true\nZOLOfflineLog=maybe\nother=false\n"));
    EXPECT_TRUE(EnabledBy("ZOLOfflineLog=true\n ZOLOfflineLog=false\n"))
        << "an indented line does not qualify, so it cannot switch off either";
}

TEST(OfflineLogSettingsFile, KeyMustStartTheLineInExactCase) {
    EXPECT_FALSE(EnabledBy(" ZOLOfflineLog=true\n"));
    EXPECT_FALSE(EnabledBy("\tZOLOfflineLog=true\n"));
    EXPECT_FALSE(EnabledBy("#ZOLOfflineLog=true\n"));
    EXPECT_FALSE(EnabledBy("zolofflinelog=true\n"));
    EXPECT_FALSE(EnabledBy("ZOLOFFLINELOG=true\n"));
    EXPECT_FALSE(EnabledBy("ZOLOfflineLog true\n")) << "no equals sign";
    EXPECT_FALSE(EnabledBy("true=ZOLOfflineLog\n"));
}

TEST(OfflineLogSettingsFile, CarriageReturnLineEndsNeverQualify) {
    EXPECT_FALSE(EnabledBy("ZOLOfflineLog=true\r\n"));
    EXPECT_FALSE(EnabledBy("ZOLOfflineLog=TRUE\r\nZOLOfflineLog=true\r\n"));
    EXPECT_TRUE(EnabledBy("ZOLOfflineLog=true\nZOLOfflineLog=false\r\n"))
        << "the carriage-return line is skipped, the earlier one stands";
}

// The decision is made on whichever thread logs first, which may have a small stack: a long line
// in the settings file must not cost stack in proportion to its length.
TEST(OfflineLogSettingsFile, LongLineIsDecidedOnASmallStack) {
    zoltest::DeviceRoot root;
    root.WriteFile(kSettings, "ZOLOfflineLog" + std::string(200000, 'x') + "=true\n" +
                                  "ZOLOfflineLog=" + std::string(200000, 'y') + "\n");
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstacksize(&attr, 256 * 1024);
    bool enabled = false;
    pthread_t thread;
    ASSERT_EQ(0, pthread_create(
                     &thread, &attr,
                     [](void* out) -> void* {
                         *static_cast<bool*>(out) =
                             ZOLOfflineLog::ReadEnableFromOverrideSettingsFile();
                         return nullptr;
                     },
                     &enabled));
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attr);
    EXPECT_TRUE(enabled);
}

TEST(OfflineLogSettingsFile, LogBuiltWithPropertyUnsetAndNoFileIsOff) {
    offlinelogtest::LogRoot root;
    ZOLOfflineLog* log = ZOLOfflineLog::GetInstance();
    ZOLOfflineLog::ZOLOfflineLogE("not taken");
    ZOLOfflineLog::ZOLOfflineLogECapture("not taken");
    ASSERT_TRUE(log->WaitForQueuedLines()) << "the workers run all the same";
    EXPECT_TRUE(root.Files().empty());
    EXPECT_FALSE(log->AppendToLogPool("x", 1)) << "no memory pool";
    // No pool to write, but the file is still created and listed.
    EXPECT_TRUE(log->FlushLogPoolToFile());
    const std::vector<std::string> files = root.Files();
    ASSERT_EQ(1u, files.size());
    EXPECT_EQ("", root.Read(files[0]));
}

}  // namespace
