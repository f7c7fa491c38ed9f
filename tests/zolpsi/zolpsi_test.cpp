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
// and, for a missing path or file, say so at level I (the binary runs at level 4), not below.
TEST(Psi, ReadsTheNumberAfterTheFirstKeyword) {
    zoltest::TempDir dir;
    zoltest::LogCapture log;
    ZOLPSI psi;
    const std::string says =
        "zolpsi.cpp:# GetDataByPathAndKeyword() [" + zoltest::Address(&psi) + "] ";
    const std::string missing = dir / "-";
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
        {nullptr, "some avg10=", false, kUntouched, says + "pPath is null"},
        {"-", "some avg10=", false, kUntouched, says + "failed open file path:" + missing},
    };
    for (const int level : {4, 3}) {
        ZOLToolsLogLevel = level;
        for (const auto& row : rows) {
            const bool given = row.contents != nullptr && row.contents != std::string("-");
            const std::string file = dir.WriteFile("pressure", given ? row.contents : "");
            log.Clear();
            float value = kUntouched;
            EXPECT_EQ(row.found, psi.GetDataByPathAndKeyword(given          ? file.c_str()
                                                             : row.contents ? missing.c_str()
                                                                            : nullptr,
                                                             row.keyword, &value));
            EXPECT_EQ(row.value, value) << row.keyword << " in " << (given ? row.contents : "");
            const size_t lines = row.line.empty() || level < 4 ? 0 : 1;
            EXPECT_EQ(lines, log.Matching(ANDROID_LOG_INFO, row.line));
            EXPECT_EQ(lines, log.Lines().size());
        }
    }
}

// The kernel's files, where the machine has them (the soak reads them under load too).
TEST(Psi, ReadersGiveTheKernelsValuesOrZeroAndALine) {
    zoltest::LogCapture log;
    ZOLPSI psi;
    const bool readable = access("/proc/pressure/cpu", R_OK) == 0;
    for (const float value :
         {psi.GetPsiCpuSomeAvg10(), psi.GetPsiMemSomeAvg10(), psi.GetPsiIoSomeAvg10()}) {
        EXPECT_TRUE(readable ? value >= 0.0f && value <= 100.0f : value == 0.0f) << value;
    }
    EXPECT_EQ(readable ? 0u : 3u,
              log.Count("SomeAvg10() [" + zoltest::Address(&psi) + "] get data failed!"));
    EXPECT_EQ(readable ? 0u : 6u, log.Lines().size());
}

}  // namespace
