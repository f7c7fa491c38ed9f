// The registries of expected EV values and tuning modes, and the checks against them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>

#include "zoldiag.h"

namespace {

const ZOLDiagAlgoType kA = static_cast<ZOLDiagAlgoType>(7);
const ZOLDiagAlgoType kB = static_cast<ZOLDiagAlgoType>(-3);
const ZOLDiagAlgoType kC = static_cast<ZOLDiagAlgoType>(9);  // never registered

_TuningMode Tuning(uint16_t first) {
    return {first, 2, 3, 4, 5, 6, 0xFFFF};
}

// Setting one entry, a record or a whole map (through its list of records) sets exactly those
// entries; a lookup outside the registered entries and list bounds finds nothing and creates
// nothing.
TEST(DiagRegistry, SettersMergeAndLookupsHonourEveryBound) {
    DiagUtils::SetEVInfo(kA, 1, {1, 2, 3, 4});
    DiagUtils::SetEVInfo(_ZOLDIAG_EVINFO_ST{kA, 1, {-2, 0, 2}});  // replaces the whole list
    DiagUtils::SetEVInfo(kA, 2, {20});
    DiagUtils::SetEVInfo(kA, 3, {});
    DiagUtils::SetEVInfo(kB, 1, {30});
    DiagUtils::SetEVInfo(DiagUtils::EVInfoMap{{kA, {{2, {21, 22}}, {4, {41}}}}});
    DiagUtils::SetEVInfo(DiagUtils::EVInfoMap{});
    const struct {
        ZOLDiagAlgoType type;
        int mode, index;
        std::pair<bool, int> found;
    } rows[] = {{kA, 1, 0, {true, -2}},  {kA, 1, 2, {true, 2}},  {kA, 1, 3, {false, 0}},
                {kA, 1, -1, {false, 0}}, {kA, 2, 1, {true, 22}}, {kA, 3, 0, {false, 0}},
                {kA, 4, 0, {true, 41}},  {kA, 5, 0, {false, 0}}, {kB, 1, 0, {true, 30}},
                {kB, 2, 0, {false, 0}},  {kC, 1, 0, {false, 0}}};
    for (const auto& row : rows) {
        EXPECT_EQ(row.found, DiagUtils::GetEVInfo(row.type, row.mode, row.index))
            << row.type << " " << row.mode << " " << row.index;
        EXPECT_EQ(row.found.first,
                  DiagUtils::CheckEValue(row.found.second, row.type, row.mode, row.index));
    }
    EXPECT_FALSE(DiagUtils::CheckEValue(1, kA, 1, 1));  // found, but another value
    EXPECT_EQ(2u, DiagUtils::m_evInfo.size());
    EXPECT_EQ(4u, DiagUtils::m_evInfo.at(kA).size());

    DiagUtils::SetTuningInfo(kA, 1, Tuning(1));
    DiagUtils::SetTuningInfo(_ZOLDIAG_TUNINFO_ST{kA, 1, Tuning(2)});
    DiagUtils::SetTuningInfo(kB, 1, Tuning(5));
    DiagUtils::SetTuningInfo(DiagUtils::TunInfoMap{{kA, {{3, Tuning(3)}}}, {kB, {{1, Tuning(6)}}}});
    const struct {
        ZOLDiagAlgoType type;
        int mode;
        bool found;
        _TuningMode tuning;
    } tunings[] = {{kA, 1, true, Tuning(2)},
                   {kA, 3, true, Tuning(3)},
                   {kB, 1, true, Tuning(6)},
                   {kA, 2, false, {}},
                   {kB, 3, false, {}}};
    for (const auto& row : tunings) {
        const std::pair<bool, _TuningMode> found = DiagUtils::GetTunInfo(row.type, row.mode);
        EXPECT_EQ(row.found, found.first) << row.type << " " << row.mode;
        EXPECT_EQ(0, std::memcmp(&row.tuning, &found.second, sizeof(_TuningMode)));
    }
    EXPECT_EQ(2u, DiagUtils::m_tunInfo.size());
    EXPECT_EQ(2u, DiagUtils::m_tunInfo.at(kA).size());
}

TEST(DiagChecks, ReturnValueAgainstAListOfCodes) {
    const std::list<int> some{1, 2, 3}, none;
    EXPECT_TRUE(DiagUtils::CheckRetValue(1, some) && DiagUtils::CheckRetValue(3, some));
    EXPECT_FALSE(DiagUtils::CheckRetValue(4, some) || DiagUtils::CheckRetValue(0, none));
    EXPECT_TRUE(DiagUtils::CheckRetValueNot(4, some) && DiagUtils::CheckRetValueNot(0, none));
    EXPECT_FALSE(DiagUtils::CheckRetValueNot(1, some) || DiagUtils::CheckRetValueNot(3, some));
    EXPECT_TRUE(DiagUtils::CheckRetValueNot(4, 3) && !DiagUtils::CheckRetValueNot(3, 3));
}

// The low halves of the sub-mode words of the first seven entries (offsets 8, 16, ... 56) are
// compared, and nothing else: not their high halves, the count, the mode types, entries 7 on.
TEST(DiagChecks, TuningParamComparesSevenLowSubModeHalves) {
    DiagUtils::SetTuningInfo(kA, 1, {0x100, 0x101, 0x102, 0x103, 0x104, 0x105, 0x106});
    for (int wrong = -2; wrong < 7; ++wrong) {  // -2: all match; -1: all match, other bits set
        uint32_t words[sizeof(ChiTuningModeParameter) / 4];
        std::fill(std::begin(words), std::end(words), wrong == -1 ? 0xDEADBEEF : 0);
        for (int i = 0; i < 7; ++i) {
            words[2 + 2 * i] = (wrong == -1 ? 0xABCD0000u : 0) | (0x100u + i + (i == wrong));
        }
        ChiTuningModeParameter param;
        std::memcpy(&param, words, sizeof(words));
        EXPECT_EQ(wrong < 0, DiagUtils::CheckTuningParam(param, kA, 1)) << "entry " << wrong;
    }
    ChiTuningModeParameter zero = {};
    EXPECT_FALSE(DiagUtils::CheckTuningParam(zero, kA, 2));
    EXPECT_FALSE(DiagUtils::CheckTuningParam(zero, kB, 1));
}

TEST(DiagChecks, LumaWithinATenthOfAPositiveReference) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    const struct {
        float luma, reference;
        bool passes;
    } rows[] = {{110.0f, 100.0f, true},    {90.0f, 100.0f, true},
                {100.0f, 100.0f, true},    {110.01f, 100.0f, false},
                {89.99f, 100.0f, false},   {0.0f, 0.0f, true},
                {1.0f, 0.0f, false},       {-1.0f, 0.0f, false},
                {1e-30f, 0.0f, false},     {std::numeric_limits<float>::denorm_min(), 0.0f, false},
                {-100.0f, -100.0f, false}, {-105.0f, -100.0f, false},
                {nan, 100.0f, false},      {100.0f, nan, false},
                {nan, nan, false},         {inf, inf, false},
                {inf, 100.0f, false}};
    for (const auto& row : rows) {
        EXPECT_EQ(row.passes, DiagUtils::CheckLumaRatio(row.luma, row.reference))
            << row.luma << " against " << row.reference;
    }
}

}  // namespace
