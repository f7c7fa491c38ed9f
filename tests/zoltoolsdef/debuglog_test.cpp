// The debug log, with the offline log on: the level read at load, which severities it lets
// through, and what reaches the Android log (tag, priority, cut) and the offline log's files,
// where the text is formatted a second time; and the host log switch. Built once per
// environment (CMakeLists.txt); ZOLTEST_EXPECTED_LEVEL and ZOLTEST_EXPECTED_PRIORITY are what
// the binary's environment must give.
#include <android/log.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "zolofflinelog.h"
#include "zoltest.h"
#include "zoltoolsdef.h"

namespace {

// The level, and the host log switch (ZOL_HOST_LOG_PRIORITY: one letter sets liblog's minimum
// priority, anything else leaves it), are read when the library loads.
TEST(DebugLog, LevelAndHostLogPriorityAreReadWhenTheLibraryLoads) {
    const char* level = std::getenv("ZOLTEST_EXPECTED_LEVEL");
    const char* priority = std::getenv("ZOLTEST_EXPECTED_PRIORITY");
    ASSERT_TRUE(level != nullptr && priority != nullptr);
    EXPECT_EQ(std::atoi(level), ZOLToolsLogLevel);
    EXPECT_EQ(std::atoi(priority), __android_log_get_minimum_priority());
}

TEST(DebugLog, EachSeverityReachesBothLogsWithItsPriorityAndLetter) {
    zoltest::DeviceRoot root;
    root.MakeDir("/data/vendor/camera/offlinelog");
    zoltest::LogCapture capture;
    const std::string longer(1500, 'z');
    const struct {
        std::function<void()> log;
        int priority;
        char letter;
        std::string android, offline;
    } rows[] = {
        {[] { ZOLDebugLogE("row %s %d", "E", 6); }, ANDROID_LOG_ERROR, 'E', "row E 6", "row E 6"},
        {[] { ZOLDebugLogW("row W"); }, ANDROID_LOG_WARN, 'W', "row W", "row W"},
        {[] { ZOLDebugLogD("row D"); }, ANDROID_LOG_DEBUG, 'D', "row D", "row D"},
        {[] { ZOLDebugLogI("row I"); }, ANDROID_LOG_INFO, 'I', "row I", "row I"},
        {[] { ZOLDebugLogV("row V"); }, ANDROID_LOG_VERBOSE, 'V', "row V", "row V"},
        {[&] { ZOLDebugLogW("%s", longer.c_str()); }, ANDROID_LOG_WARN, 'W', std::string(1023, 'z'),
         std::string(1023, 'z')},
        // The offline log formats the text again: "%%" becomes "%", and conversions a file name
        // carries are copied as they stand, reading no argument ("%n" writes nothing).
        {[] { ZOLDebugLogI("progress 100%%%%, %s", "done"); }, ANDROID_LOG_INFO, 'I',
         "progress 100%%, done", "progress 100%, done"},
        {[] { ZOLDebugLogE("cannot open %s", "/data/dump_%s_%d_%n_%%.raw"); }, ANDROID_LOG_ERROR,
         'E', "cannot open /data/dump_%s_%d_%n_%%.raw", "cannot open /data/dump_%s_%d_%n_%.raw"},
        {[] { ZOLDebugLogD("%s", "%%%"); }, ANDROID_LOG_DEBUG, 'D', "%%%", "%%"},
    };
    for (const auto& row : rows) {
        row.log();
        ASSERT_TRUE(ZOLOfflineLog::GetInstance()->WaitForQueuedLines());  // keeps the file order
    }
    const std::vector<zoltest::LogLine> logged = capture.Lines();
    const std::vector<zoltool::LogLine> written = zoltest::ReadOfflineLog(root.path());
    ASSERT_EQ(std::size(rows), logged.size());
    ASSERT_EQ(std::size(rows), written.size());
    for (size_t i = 0; i < std::size(rows); ++i) {
        EXPECT_EQ(rows[i].priority, logged[i].priority) << i;
        EXPECT_EQ("ZOL", logged[i].tag);
        EXPECT_EQ(rows[i].android, logged[i].text);
        EXPECT_EQ(rows[i].letter, written[i].level);
        EXPECT_EQ(rows[i].offline, written[i].message);
    }
}

int g_evaluated = 0;
int Evaluated() {
    return ++g_evaluated;
}

// A severity passes from its threshold up, whatever the level read at load: a write to the
// global takes effect at the next call site. A suppressed message costs no formatting, nor the
// evaluation of its arguments.
TEST(DebugLog, GuardSkipsSuppressedMessagesWithoutEvaluatingArguments) {
    zoltest::LogCapture capture;
    const struct {
        int threshold;
        std::function<void()> log;
    } rows[] = {{1, [] { ZOL_LOGE("%d", Evaluated()); }},
                {2, [] { ZOL_LOGW("%d", Evaluated()); }},
                {3, [] { ZOL_LOGD("%d", Evaluated()); }},
                {4, [] { ZOL_LOGI("%d", Evaluated()); }},
                {5, [] { ZOL_LOGV("%d", Evaluated()); }}};
    for (const auto& row : rows) {
        for (const int level : {-7, row.threshold - 1, row.threshold, 5}) {
            ZOLToolsLogLevel = level;
            const int before = g_evaluated;
            capture.Clear();
            row.log();
            const bool passes = level >= row.threshold;
            EXPECT_EQ(passes, g_evaluated == before + 1) << row.threshold << " at " << level;
            EXPECT_EQ(passes ? 1u : 0u, capture.Lines().size());
        }
    }
}

}  // namespace
