// The debug log with the offline log on: what reaches the Android log (tag, priority, cut) and
// what reaches the offline log's files, including text that carries "%".
#include <gtest/gtest.h>

#include <android/log.h>

#include <algorithm>
#include <string>
#include <vector>

#include "../zolofflinelog/offlinelog_test_support.h"
#include "zoltest.h"
#include "zoltoolsdef.h"

namespace {

using offlinelogtest::LogRoot;
using offlinelogtest::MessageOf;
using offlinelogtest::SplitLines;

void WaitForFiles() {
    ASSERT_TRUE(ZOLOfflineLog::GetInstance()->WaitForQueuedLines());
}

TEST(DebugLog, EachSeverityHasItsPriorityTagAndLetter) {
    LogRoot root;
    zoltest::LogCapture capture;
    ZOLToolsLogLevel = 5;
    const struct {
        void (*log)(const char*, ...);
        int priority;
        const char* letter;
    } rows[] = {{ZOLDebugLogE, ANDROID_LOG_ERROR, "E"},
                {ZOLDebugLogW, ANDROID_LOG_WARN, "W"},
                {ZOLDebugLogD, ANDROID_LOG_DEBUG, "D"},
                {ZOLDebugLogI, ANDROID_LOG_INFO, "I"},
                {ZOLDebugLogV, ANDROID_LOG_VERBOSE, "V"}};
    for (const auto& row : rows) {
        row.log("row %s %d", row.letter, row.priority);
        WaitForFiles();
    }
    const std::vector<zoltest::LogLine> logged = capture.Lines();
    ASSERT_EQ(5u, logged.size());
    const std::vector<std::string> lines = SplitLines(root.ReadAll());
    ASSERT_EQ(5u, lines.size());
    for (size_t i = 0; i < 5; ++i) {
        const std::string text =
            std::string("row ") + rows[i].letter + " " + std::to_string(rows[i].priority);
        EXPECT_EQ(rows[i].priority, logged[i].priority);
        EXPECT_EQ("ZOL", logged[i].tag);
        EXPECT_EQ(text, logged[i].text);
        EXPECT_NE(std::string::npos, lines[i].find(std::string(" ") + rows[i].letter + " ZOL: "));
        EXPECT_EQ(text, MessageOf(lines[i]));
    }
}

TEST(DebugLog, MessageCutTo1023Characters) {
    LogRoot root;
    zoltest::LogCapture capture;
    const std::string longer(1500, 'z');
    ZOLDebugLogW("%s", longer.c_str());
    WaitForFiles();
    const std::vector<std::string> texts = capture.Texts(ANDROID_LOG_WARN);
    ASSERT_EQ(1u, texts.size());
    EXPECT_EQ(std::string(1023, 'z'), texts[0]);
    const std::vector<std::string> lines = SplitLines(root.ReadAll());
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ(std::string(1023, 'z'), MessageOf(lines[0]));
}

TEST(DebugLog, PercentSignsSurviveTheOfflineLogsSecondPass) {
    LogRoot root;
    zoltest::LogCapture capture;
    // "100%%" is what a caller gets from formatting "100%%%%": the second pass makes it "100%",
    // exactly as vsnprintf would.
    ZOLDebugLogI("progress 100%%%%, %s", "done");
    // A file name that carries conversions: the second pass copies them literally and reads no
    // argument for them ("%n" in particular writes nothing).
    ZOLDebugLogE("cannot open %s", "/data/dump_%s_%d_%n_%%.raw");
    ZOLDebugLogD("%s", "%%%");
    WaitForFiles();

    const std::vector<std::string> texts = capture.Texts();
    ASSERT_EQ(3u, texts.size());
    EXPECT_EQ("progress 100%%, done", texts[0]);
    EXPECT_EQ("cannot open /data/dump_%s_%d_%n_%%.raw", texts[1]);
    std::vector<std::string> messages;
    for (const std::string& line : SplitLines(root.ReadAll())) {
        messages.push_back(MessageOf(line));
    }
    std::sort(messages.begin(), messages.end());
    ASSERT_EQ(3u, messages.size());
    EXPECT_EQ("%%", messages[0]);
    EXPECT_EQ("cannot open /data/dump_%s_%d_%n_%.raw", messages[1]);
    EXPECT_EQ("progress 100%, done", messages[2]);
}

int g_evaluated = 0;
int Evaluated() {
    return ++g_evaluated;
}

TEST(DebugLog, GuardSkipsSuppressedMessagesWithoutEvaluatingArguments) {
    LogRoot root;
    zoltest::LogCapture capture;
    ZOLToolsLogLevel = 2;  // a write to the global takes effect at the next call site
    ZOL_LOGD("suppressed %d", Evaluated());
    ZOL_LOGI("suppressed %d", Evaluated());
    ZOL_LOGW("passed %d", Evaluated());
    EXPECT_EQ(1, g_evaluated);
    ZOLToolsLogLevel = 0;
    ZOL_LOGE("suppressed %d", Evaluated());
    ZOLToolsLogLevel = -7;
    ZOL_LOGE("suppressed %d", Evaluated());
    EXPECT_EQ(1, g_evaluated);
    ZOLToolsLogLevel = 3;
    ZOL_LOGD("passed %d", Evaluated());
    WaitForFiles();
    EXPECT_EQ(2, g_evaluated);
    EXPECT_EQ(0u, capture.Count("suppressed"));
    EXPECT_EQ(2u, capture.Count("passed"));
    EXPECT_EQ(2u, SplitLines(root.ReadAll()).size());
}

}  // namespace
