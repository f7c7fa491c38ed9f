// The predicates of DiagUtils.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>

#include "zoldiag.h"

namespace {

// Where CheckTuningParam reads: the sub-mode word of entry i lies at 8 + 8i.
constexpr size_t kSubModeOffset = 8;
constexpr size_t kSubModeStride = 8;
constexpr size_t kSubModeCount = 7;
static_assert(sizeof(ChiTuningModeParameter) >=
                  kSubModeOffset + kSubModeStride * (kSubModeCount - 1) + sizeof(uint16_t),
              "the tuning parameter holds at least seven entries");

uint16_t SubModeAt(ChiTuningModeParameter const& param, size_t i) {
    uint16_t value;
    std::memcpy(
        &value,
        reinterpret_cast<const unsigned char*>(&param) + kSubModeOffset + kSubModeStride * i,
        sizeof(value));
    return value;
}

}  // namespace

bool DiagUtils::CheckRetValue(int const& ret, int const& expected) {
    return ret == expected;
}

bool DiagUtils::CheckRetValue(int const& ret, std::list<int> const& expected) {
    return std::find(expected.begin(), expected.end(), ret) != expected.end();
}

bool DiagUtils::CheckRetValueNot(int const& ret, int const& rejected) {
    return ret != rejected;
}

bool DiagUtils::CheckRetValueNot(int const& ret, std::list<int> const& rejected) {
    return std::find(rejected.begin(), rejected.end(), ret) == rejected.end();
}

bool DiagUtils::CheckEValue(int const& ev, ZOLDiagAlgoType const& algoType, int const& mode,
                            int const& index) {
    std::pair<bool, int> const expected = GetEVInfo(algoType, mode, index);
    return expected.first && expected.second == ev;
}

bool DiagUtils::CheckTuningParam(ChiTuningModeParameter const& param,
                                 ZOLDiagAlgoType const& algoType, int const& mode) {
    std::pair<bool, _TuningMode> const expected = GetTunInfo(algoType, mode);
    if (!expected.first) {
        return false;
    }
    const _TuningMode& t = expected.second;
    const uint16_t subModes[kSubModeCount] = {t.subMode0, t.subMode1, t.subMode2, t.subMode3,
                                              t.subMode4, t.subMode5, t.subMode6};
    for (size_t i = 0; i < kSubModeCount; ++i) {
        if (SubModeAt(param, i) != subModes[i]) {
            return false;
        }
    }
    return true;
}

bool DiagUtils::CheckLumaRatio(float const& luma, float const& reference) {
    // The difference is taken in single precision, the bound in double: 110 against 100 passes
    // (10 <= 10.000000000000002) and 110.01 fails. NaN compares false and so fails.
    const double difference = static_cast<double>(std::fabs(luma - reference));
    const double bound = static_cast<double>(reference) * 0.1;
    return bound >= difference;
}
