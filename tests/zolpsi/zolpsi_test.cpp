#include <android/log.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "zolpsi.h"
#include "zoltest.h"
#include "zoltoolsdef.h"

namespace {

constexpr float kUntouched = -7.0f;
const char kTwoLines[] =
    "some avg10=12.50 avg60=3.00 avg300=1.00 total=123456\n"
    "full avg10=0.75 avg60=0.50 avg300=0.25 total=4567\n";

// The number right after the first occurrence of the keyword; failures leave the value alone
// and, for a missing path or file, say so at level I (the binary runs at level 4).
TEST(Psi, ReadsTheNumberAfterTheFirstKeyword) {
    zoltest::TempDir dir;
    zoltest::LogCapture log;
    ZOLPSI psi;
    const std::string prefix =
        "zolpsi.cpp:# GetDataByPathAndKeyword() [" + zoltest::Address(&psi) + "] ";
    const struct {
        const char* contents;  // null: no path; "-": no such file
        const char* keyword;
        bool found;
        float value;
        std::string line;
    } rows[] = {
        {kTwoLines, "some avg10=", true, 12.5f, ""},
        {kTwoLines, "full avg10=", true, 0.75f, ""},
        {kTwoLines, "avg300=", true, 1.0f, ""},
        {"header\n\n  xx some avg10=99.99 avg60=1\n", "some avg10=", true, 99.99f, ""},
        {"some avg10=n/a\n", "some avg10=", true, 0.0f, ""},
        {"full avg10=1.00\nSOME AVG10=2.00\n", "some avg10=", false, kUntouched, ""},
        {"", "some avg10=", false, kUntouched, ""},
        {nullptr, "some avg10=", false, kUntouched, prefix + "pPath is null"},
        {"-", "some avg10=", false, kUntouched, prefix + "failed open file path:" + (dir / "-")},
    };
    for (const auto& row : rows) {
        const std::string path = dir / "-";
        if (row.contents != nullptr && row.contents != std::string("-")) {
            dir.WriteFile("pressure", row.contents);
        }
        log.Clear();
        float value = kUntouched;
        EXPECT_EQ(row.found, psi.GetDataByPathAndKeyword(row.contents == nullptr ? nullptr
                                                         : row.contents == std::string("-")
                                                             ? path.c_str()
                                                             : (dir / "pressure").c_str(),
                                                         row.keyword, &value));
        EXPECT_EQ(row.value, value) << row.keyword << " in " << (row.contents ? row.contents : "");
        EXPECT_EQ(row.line.empty() ? 0u : 1u, log.Matching(ANDROID_LOG_INFO, row.line));
        EXPECT_EQ(row.line.empty() ? 0u : 1u, log.Lines().size());
    }
    ZOLToolsLogLevel = 3;  // below I: no line
    log.Clear();
    float value = kUntouched;
    EXPECT_FALSE(psi.GetDataByPathAndKeyword(nullptr, "some avg10=", &value));
    EXPECT_FALSE(psi.GetDataByPathAndKeyword("/no/such/file", "some avg10=", &value));
    EXPECT_TRUE(log.Lines().empty());
}

TEST(Psi, ReadersGiveTheKernelsValuesOrZeroAndALine) {
    zoltest::LogCapture log;
    ZOLPSI psi;
    const std::string address = zoltest::Address(&psi);
    const struct {
        float (ZOLPSI::*read)();
        const char *path, *function;
    } rows[] = {{&ZOLPSI::GetPsiCpuSomeAvg10, "/proc/pressure/cpu", "GetPsiCpuSomeAvg10"},
                {&ZOLPSI::GetPsiMemSomeAvg10, "/proc/pressure/memory", "GetPsiMemSomeAvg10"},
                {&ZOLPSI::GetPsiIoSomeAvg10, "/proc/pressure/io", "GetPsiIoSomeAvg10"}};
    for (const auto& row : rows) {
        log.Clear();
        const float value = (psi.*row.read)();
        if (access(row.path, R_OK) == 0) {
            EXPECT_TRUE(value >= 0.0f && value <= 100.0f) << row.path;
            EXPECT_TRUE(log.Lines().empty());
        } else {
            EXPECT_EQ(0.0f, value);
            EXPECT_EQ(1u, log.Matching(ANDROID_LOG_INFO,
                                       "zolpsi.cpp:# GetDataByPathAndKeyword() [" + address +
                                           "] failed open file path:" + row.path));
            EXPECT_EQ(1u,
                      log.Matching(ANDROID_LOG_INFO, std::string("zolpsi.cpp:# ") + row.function +
                                                         "() [" + address + "] get data failed!"));
        }
    }
}

}  // namespace
