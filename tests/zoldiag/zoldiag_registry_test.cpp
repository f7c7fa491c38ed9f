#include <gtest/gtest.h>

#include <set>
#include <tuple>

#include "zoldiag.h"

namespace {

const ZOLDiagAlgoType kTypeA = static_cast<ZOLDiagAlgoType>(7);
const ZOLDiagAlgoType kTypeB = static_cast<ZOLDiagAlgoType>(-3);

bool SameTuning(const _TuningMode& a, const _TuningMode& b) {
    return std::tie(a.subMode0, a.subMode1, a.subMode2, a.subMode3, a.subMode4, a.subMode5,
                    a.subMode6) == std::tie(b.subMode0, b.subMode1, b.subMode2, b.subMode3,
                                            b.subMode4, b.subMode5, b.subMode6);
}

_TuningMode Tuning(uint16_t first) {
    return {first, 2, 3, 4, 5, 6, 0xFFFF};
}

TEST(DiagRegistryTest, EVLookupHonoursTheListBounds) {
    DiagUtils::SetEVInfo(kTypeA, 1, {-2, 0, 2});
    EXPECT_EQ(std::make_pair(true, -2), DiagUtils::GetEVInfo(kTypeA, 1, 0));
    EXPECT_EQ(std::make_pair(true, 2), DiagUtils::GetEVInfo(kTypeA, 1, 2));
    EXPECT_EQ(std::make_pair(false, 0), DiagUtils::GetEVInfo(kTypeA, 1, 3));
    EXPECT_EQ(std::make_pair(false, 0), DiagUtils::GetEVInfo(kTypeA, 1, -1));
    EXPECT_EQ(std::make_pair(false, 0), DiagUtils::GetEVInfo(kTypeA, 2, 0)) << "unknown mode";
    EXPECT_EQ(std::make_pair(false, 0), DiagUtils::GetEVInfo(kTypeB, 1, 0)) << "unknown type";

    DiagUtils::SetEVInfo(kTypeA, 3, {});
    EXPECT_EQ(std::make_pair(false, 0), DiagUtils::GetEVInfo(kTypeA, 3, 0)) << "empty list";
}

TEST(DiagRegistryTest, SettingAnEntryAgainKeepsOnlyTheLastValue) {
    DiagUtils::SetEVInfo(kTypeA, 1, {1, 2, 3, 4});
    DiagUtils::SetEVInfo(_ZOLDIAG_EVINFO_ST{kTypeA, 1, {9}});
    EXPECT_EQ(std::make_pair(true, 9), DiagUtils::GetEVInfo(kTypeA, 1, 0));
    EXPECT_EQ(std::make_pair(false, 0), DiagUtils::GetEVInfo(kTypeA, 1, 1))
        << "whole list replaced";

    DiagUtils::SetTuningInfo(kTypeA, 1, Tuning(1));
    DiagUtils::SetTuningInfo(_ZOLDIAG_TUNINFO_ST{kTypeA, 1, Tuning(2)});
    const std::pair<bool, _TuningMode> found = DiagUtils::GetTunInfo(kTypeA, 1);
    EXPECT_TRUE(found.first);
    EXPECT_TRUE(SameTuning(Tuning(2), found.second));
}

TEST(DiagRegistryTest, SettingOneModeKeepsTheOthers) {
    DiagUtils::SetEVInfo(kTypeA, 1, {10});
    DiagUtils::SetEVInfo(kTypeA, 2, {20});
    DiagUtils::SetEVInfo(kTypeB, 1, {30});
    EXPECT_EQ(std::make_pair(true, 10), DiagUtils::GetEVInfo(kTypeA, 1, 0));
    EXPECT_EQ(std::make_pair(true, 20), DiagUtils::GetEVInfo(kTypeA, 2, 0));
    EXPECT_EQ(std::make_pair(true, 30), DiagUtils::GetEVInfo(kTypeB, 1, 0));
}

TEST(DiagRegistryTest, SettingFromAMapMerges) {
    DiagUtils::SetEVInfo(kTypeA, 1, {10});
    DiagUtils::SetEVInfo(kTypeA, 2, {20});
    DiagUtils::SetEVInfo(kTypeB, 1, {30});
    DiagUtils::SetEVInfo(DiagUtils::EVInfoMap{{kTypeA, {{2, {21, 22}}, {3, {31}}}}});
    EXPECT_EQ(std::make_pair(true, 10), DiagUtils::GetEVInfo(kTypeA, 1, 0)) << "not mentioned";
    EXPECT_EQ(std::make_pair(true, 22), DiagUtils::GetEVInfo(kTypeA, 2, 1)) << "overwritten";
    EXPECT_EQ(std::make_pair(true, 31), DiagUtils::GetEVInfo(kTypeA, 3, 0)) << "added";
    EXPECT_EQ(std::make_pair(true, 30), DiagUtils::GetEVInfo(kTypeB, 1, 0)) << "other type";

    DiagUtils::SetTuningInfo(kTypeA, 1, Tuning(1));
    DiagUtils::SetTuningInfo(kTypeB, 1, Tuning(5));
    DiagUtils::SetTuningInfo(
        DiagUtils::TunInfoMap{{kTypeA, {{2, Tuning(2)}}}, {kTypeB, {{1, Tuning(6)}}}});
    EXPECT_TRUE(SameTuning(Tuning(1), DiagUtils::GetTunInfo(kTypeA, 1).second));
    EXPECT_TRUE(SameTuning(Tuning(2), DiagUtils::GetTunInfo(kTypeA, 2).second));
    EXPECT_TRUE(SameTuning(Tuning(6), DiagUtils::GetTunInfo(kTypeB, 1).second));

    DiagUtils::SetEVInfo(DiagUtils::EVInfoMap{});  // an empty map changes nothing
    EXPECT_EQ(2u, DiagUtils::m_evInfo.size());
}

TEST(DiagRegistryTest, LookupsNeverCreateEntries) {
    DiagUtils::SetEVInfo(kTypeA, 1, {1});
    DiagUtils::SetTuningInfo(kTypeA, 1, Tuning(1));
    DiagUtils::GetEVInfo(kTypeB, 1, 0);
    DiagUtils::GetEVInfo(kTypeA, 5, 0);
    const std::pair<bool, _TuningMode> missingType = DiagUtils::GetTunInfo(kTypeB, 1);
    const std::pair<bool, _TuningMode> missingMode = DiagUtils::GetTunInfo(kTypeA, 5);
    EXPECT_FALSE(missingType.first);
    EXPECT_TRUE(SameTuning(_TuningMode{}, missingType.second)) << "all seven values zero";
    EXPECT_FALSE(missingMode.first);
    EXPECT_TRUE(SameTuning(_TuningMode{}, missingMode.second));

    EXPECT_EQ(1u, DiagUtils::m_evInfo.size());
    EXPECT_EQ(1u, DiagUtils::m_evInfo.at(kTypeA).size());
    EXPECT_EQ(1u, DiagUtils::m_tunInfo.size());
    EXPECT_EQ(1u, DiagUtils::m_tunInfo.at(kTypeA).size());
}

TEST(DiagRegistryTest, MapToListGivesOneRecordPerPairInIterationOrder) {
    const DiagUtils::EVInfoMap ev{{kTypeA, {{1, {1}}, {2, {2, 2}}}}, {kTypeB, {{1, {}}}}};
    const std::list<_ZOLDIAG_EVINFO_ST> evList = DiagUtils::EVInfoMap2List(ev);
    auto record = evList.begin();
    for (const auto& [type, modes] : ev) {
        for (const auto& [mode, values] : modes) {
            ASSERT_NE(evList.end(), record);
            EXPECT_EQ(type, record->algoType);
            EXPECT_EQ(mode, record->mode);
            EXPECT_EQ(values, record->evValues);
            ++record;
        }
    }
    EXPECT_EQ(evList.end(), record);

    const DiagUtils::TunInfoMap tun{{kTypeA, {{4, Tuning(4)}}}, {kTypeB, {{1, Tuning(1)}}}};
    std::set<std::pair<int, int>> pairs;
    for (const _ZOLDIAG_TUNINFO_ST& r : DiagUtils::TunInfoMap2List(tun)) {
        pairs.insert({r.algoType, r.mode});
        EXPECT_TRUE(SameTuning(tun.at(r.algoType).at(r.mode), r.tuningMode));
    }
    EXPECT_EQ((std::set<std::pair<int, int>>{{kTypeA, 4}, {kTypeB, 1}}), pairs);
    EXPECT_TRUE(DiagUtils::EVInfoMap2List({}).empty());
}

}  // namespace
