#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "zolpsi.h"
#include "zoltest.h"
#include "zoltoolsdef.h"

namespace {

constexpr char kKeyword[] = "some avg10=";
constexpr float kUntouched = -7.0f;

class PsiTest : public ::testing::Test {
protected:
    // A prepared file under a fresh temporary directory.
    std::string Prepare(const std::string& contents) {
        return m_root.WriteFile("/pressure/" + std::to_string(m_files++), contents);
    }
    // True when a captured line is "zolpsi.cpp:<line> <function>() [<this>] <message>".
    bool HasLine(const char* function, const std::string& message) const {
        return m_capture.HasSourceLine("zolpsi.cpp", " " + std::string(function) + "() [" +
                                                         zoltest::Address(&m_psi) + "] " + message);
    }

    zoltest::DeviceRoot m_root;
    zoltest::LogCapture m_capture;
    ZOLPSI m_psi;
    int m_files = 0;
};

TEST_F(PsiTest, ReadsTheNumberAfterTheKeyword) {
    const std::string path = Prepare(
        "some avg10=12.50 avg60=3.00 avg300=1.00 total=123456\n"
        "full avg10=0.75 avg60=0.50 avg300=0.25 total=4567\n");
    float value = kUntouched;
    EXPECT_TRUE(m_psi.GetDataByPathAndKeyword(path.c_str(), kKeyword, &value));
    EXPECT_FLOAT_EQ(12.5f, value);
    EXPECT_TRUE(m_psi.GetDataByPathAndKeyword(path.c_str(), "full avg10=", &value));
    EXPECT_FLOAT_EQ(0.75f, value);
    EXPECT_TRUE(m_psi.GetDataByPathAndKeyword(path.c_str(), "avg300=", &value));
    EXPECT_FLOAT_EQ(1.0f, value) << "the first line holding the keyword wins";
}

TEST_F(PsiTest, FindsTheKeywordOnALaterLineAnywhereInIt) {
    const std::string path = Prepare("header\nnothing here\n  xx some avg10=99.99 avg60=1\n");
    float value = kUntouched;
    EXPECT_TRUE(m_psi.GetDataByPathAndKeyword(path.c_str(), kKeyword, &value));
    EXPECT_FLOAT_EQ(99.99f, value);
}

TEST_F(PsiTest, TextThatIsNoNumberGivesZero) {
    const std::string path = Prepare("some avg10=n/a\n");
    float value = kUntouched;
    EXPECT_TRUE(m_psi.GetDataByPathAndKeyword(path.c_str(), kKeyword, &value));
    EXPECT_EQ(0.0f, value);
}

TEST_F(PsiTest, MissingKeywordFailsWithoutWriting) {
    const std::string path = Prepare("full avg10=1.00\nSOME AVG10=2.00\n");  // case-sensitive
    float value = kUntouched;
    EXPECT_FALSE(m_psi.GetDataByPathAndKeyword(path.c_str(), kKeyword, &value));
    EXPECT_EQ(kUntouched, value);
    EXPECT_FALSE(m_psi.GetDataByPathAndKeyword(Prepare("").c_str(), kKeyword, &value));
    EXPECT_EQ(kUntouched, value);
}

TEST_F(PsiTest, NullPathIsReported) {
    float value = kUntouched;
    EXPECT_FALSE(m_psi.GetDataByPathAndKeyword(nullptr, kKeyword, &value));
    EXPECT_EQ(kUntouched, value);
    EXPECT_TRUE(HasLine("GetDataByPathAndKeyword", "pPath is null"));
}

TEST_F(PsiTest, UnreadableFileIsReported) {
    const std::string path = m_root.Resolve("/no/such/file");
    float value = kUntouched;
    EXPECT_FALSE(m_psi.GetDataByPathAndKeyword(path.c_str(), kKeyword, &value));
    EXPECT_EQ(kUntouched, value);
    EXPECT_TRUE(HasLine("GetDataByPathAndKeyword", "failed open file path:" + path));
}

TEST_F(PsiTest, NoLinesBelowLevelI) {
    __atomic_store_n(&ZOLToolsLogLevel, 3, __ATOMIC_RELAXED);
    float value = kUntouched;
    EXPECT_FALSE(m_psi.GetDataByPathAndKeyword(nullptr, kKeyword, &value));
    EXPECT_FALSE(m_psi.GetDataByPathAndKeyword("/no/such/file", kKeyword, &value));
    EXPECT_EQ(0u, m_capture.Count("zolpsi.cpp"));
}

// The kernel's own files, where the machine has them.
TEST_F(PsiTest, ReadsTheKernelFiles) {
    if (access("/proc/pressure/cpu", R_OK) != 0) {
        GTEST_SKIP() << "no pressure stall information on this kernel";
    }
    float value = kUntouched;
    EXPECT_TRUE(m_psi.GetDataByPathAndKeyword("/proc/pressure/cpu", kKeyword, &value));
    EXPECT_GE(value, 0.0f);
    EXPECT_LE(value, 100.0f);
    for (float reading :
         {m_psi.GetPsiCpuSomeAvg10(), m_psi.GetPsiMemSomeAvg10(), m_psi.GetPsiIoSomeAvg10()}) {
        EXPECT_GE(reading, 0.0f);
        EXPECT_LE(reading, 100.0f);
    }
    EXPECT_EQ(0u, m_capture.Count("get data failed!"));
}

TEST_F(PsiTest, ReaderWithoutKernelFileReportsAndGivesZero) {
    if (access("/proc/pressure/io", R_OK) == 0) {
        GTEST_SKIP() << "this kernel has pressure stall information";
    }
    EXPECT_EQ(0.0f, m_psi.GetPsiIoSomeAvg10());
    EXPECT_TRUE(HasLine("GetDataByPathAndKeyword", "failed open file path:/proc/pressure/io"));
    EXPECT_TRUE(HasLine("GetPsiIoSomeAvg10", "get data failed!"));
}

}  // namespace
