#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "zoldiag.h"

namespace {

const ZOLDiagAlgoType kType = static_cast<ZOLDiagAlgoType>(2);

TEST(DiagChecksTest, ReturnValues) {
    EXPECT_TRUE(DiagUtils::CheckRetValue(0, 0));
    EXPECT_FALSE(DiagUtils::CheckRetValue(-1, 0));
    EXPECT_TRUE(DiagUtils::CheckRetValue(3, std::list<int>{1, 2, 3}));
    EXPECT_FALSE(DiagUtils::CheckRetValue(4, std::list<int>{1, 2, 3}));
    EXPECT_FALSE(DiagUtils::CheckRetValue(0, std::list<int>{}));

    EXPECT_TRUE(DiagUtils::CheckRetValueNot(-1, 0));
    EXPECT_FALSE(DiagUtils::CheckRetValueNot(0, 0));
    EXPECT_TRUE(DiagUtils::CheckRetValueNot(4, std::list<int>{1, 2, 3}));
    EXPECT_FALSE(DiagUtils::CheckRetValueNot(2, std::list<int>{1, 2, 3}));
    EXPECT_TRUE(DiagUtils::CheckRetValueNot(0, std::list<int>{}));
}

TEST(DiagChecksTest, EValueMustBeRegisteredAndEqual) {
    DiagUtils::SetEVInfo(kType, 1, {-6, 0, 6});
    EXPECT_TRUE(DiagUtils::CheckEValue(6, kType, 1, 2));
    EXPECT_FALSE(DiagUtils::CheckEValue(0, kType, 1, 2));
    EXPECT_FALSE(DiagUtils::CheckEValue(0, kType, 1, 3)) << "past the end, even for 0";
    EXPECT_FALSE(DiagUtils::CheckEValue(0, kType, 2, 0)) << "unregistered mode";
}

// A parameter built byte by byte: the sub-mode word of entry i at offset 8 + 8i.
class TuningParamTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::memset(&m_param, 0, sizeof(m_param));
        for (int i = 0; i < 7; ++i) {
            SetWord(8 + 8 * i, 0x100u + i);
        }
        DiagUtils::SetTuningInfo(kType, 1, {0x100, 0x101, 0x102, 0x103, 0x104, 0x105, 0x106});
    }
    void SetWord(size_t offset, uint32_t value) {
        std::memcpy(reinterpret_cast<unsigned char*>(&m_param) + offset, &value, sizeof(value));
    }
    bool Check() const { return DiagUtils::CheckTuningParam(m_param, kType, 1); }

    ChiTuningModeParameter m_param;
};

TEST_F(TuningParamTest, SevenLowSubModeHalvesMustMatch) {
    EXPECT_TRUE(Check());
    for (int i = 0; i < 7; ++i) {
        SetUp();
        SetWord(8 + 8 * i, 0x100u + i + 1);
        EXPECT_FALSE(Check()) << "entry " << i;
    }
}

TEST_F(TuningParamTest, EverythingElseIsIgnored) {
    SetWord(0, 12345);  // the count
    for (int i = 0; i < 7; ++i) {
        SetWord(4 + 8 * i, 0xDEADBEEF);                  // the mode type
        SetWord(8 + 8 * i, 0xABCD0000u | (0x100u + i));  // the upper half of the sub-mode
    }
    for (size_t offset = 64; offset + 4 <= sizeof(m_param); offset += 4) {
        SetWord(offset, 0xFFFFFFFF);  // entries 7 onwards
    }
    EXPECT_TRUE(Check());
}

TEST_F(TuningParamTest, UnregisteredNeverPasses) {
    std::memset(&m_param, 0, sizeof(m_param));
    EXPECT_FALSE(DiagUtils::CheckTuningParam(m_param, kType, 2));
    EXPECT_FALSE(DiagUtils::CheckTuningParam(m_param, static_cast<ZOLDiagAlgoType>(9), 1));
}

TEST(DiagChecksTest, LumaRatioWithinTenPercentOfTheReference) {
    EXPECT_TRUE(DiagUtils::CheckLumaRatio(110.0f, 100.0f)) << "10 is exactly the bound";
    EXPECT_TRUE(DiagUtils::CheckLumaRatio(90.0f, 100.0f));
    EXPECT_FALSE(DiagUtils::CheckLumaRatio(110.01f, 100.0f));
    EXPECT_FALSE(DiagUtils::CheckLumaRatio(89.99f, 100.0f));
    EXPECT_TRUE(DiagUtils::CheckLumaRatio(100.0f, 100.0f));
}

TEST(DiagChecksTest, LumaRatioZeroAndNegativeReferences) {
    EXPECT_TRUE(DiagUtils::CheckLumaRatio(0.0f, 0.0f));
    for (float luma : {1.0f, -1.0f, 1e-30f, std::numeric_limits<float>::denorm_min()}) {
        EXPECT_FALSE(DiagUtils::CheckLumaRatio(luma, 0.0f)) << luma;
    }
    // The bound is not taken of |reference|: a negative reference never passes.
    EXPECT_FALSE(DiagUtils::CheckLumaRatio(-100.0f, -100.0f));
    EXPECT_FALSE(DiagUtils::CheckLumaRatio(-105.0f, -100.0f));
}

TEST(DiagChecksTest, LumaRatioNaNAndInfinityFail) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    EXPECT_FALSE(DiagUtils::CheckLumaRatio(nan, 100.0f));
    EXPECT_FALSE(DiagUtils::CheckLumaRatio(100.0f, nan));
    EXPECT_FALSE(DiagUtils::CheckLumaRatio(nan, nan));
    EXPECT_FALSE(DiagUtils::CheckLumaRatio(inf, inf)) << "inf - inf is NaN";
    EXPECT_FALSE(DiagUtils::CheckLumaRatio(inf, 100.0f));
}

}  // namespace
