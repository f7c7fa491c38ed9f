// The two registries of DiagUtils: setting (a merge, entry by entry), listing and lookups.
#include <cstddef>

#include "zoldiag.h"

DiagUtils::EVInfoMap DiagUtils::m_evInfo;
DiagUtils::TunInfoMap DiagUtils::m_tunInfo;

namespace {

// Sets exactly the entry (algoType, mode) of `registry`; other modes and types are kept.
template <typename Registry, typename Value>
void SetEntry(Registry& registry, ZOLDiagAlgoType algoType, int mode, Value const& value) {
    auto outer = registry.find(algoType);
    if (outer != registry.end()) {
        outer->second[mode] = value;
        return;
    }
    typename Registry::mapped_type inner;
    inner.emplace(mode, value);
    registry.emplace(algoType, std::move(inner));
}

// The entry (algoType, mode) of `registry`, or null; never creates one.
template <typename Registry>
auto FindEntry(Registry const& registry, ZOLDiagAlgoType algoType, int mode)
    -> decltype(&registry.begin()->second.begin()->second) {
    auto outer = registry.find(algoType);
    if (outer == registry.end()) {
        return nullptr;
    }
    auto inner = outer->second.find(mode);
    if (inner == outer->second.end()) {
        return nullptr;
    }
    return &inner->second;
}

}  // namespace

void DiagUtils::SetEVInfo(ZOLDiagAlgoType const& algoType, int const& mode,
                          std::vector<int> const& evValues) {
    SetEntry(m_evInfo, algoType, mode, evValues);
}

void DiagUtils::SetEVInfo(_ZOLDIAG_EVINFO_ST const& info) {
    SetEVInfo(info.algoType, info.mode, info.evValues);
}

void DiagUtils::SetEVInfo(EVInfoMap const& info) {
    for (_ZOLDIAG_EVINFO_ST const& record : EVInfoMap2List(info)) {
        SetEVInfo(record);
    }
}

void DiagUtils::SetTuningInfo(ZOLDiagAlgoType const& algoType, int const& mode,
                              _TuningMode const& tuningMode) {
    SetEntry(m_tunInfo, algoType, mode, tuningMode);
}

void DiagUtils::SetTuningInfo(_ZOLDIAG_TUNINFO_ST const& info) {
    SetTuningInfo(info.algoType, info.mode, info.tuningMode);
}

void DiagUtils::SetTuningInfo(TunInfoMap const& info) {
    for (_ZOLDIAG_TUNINFO_ST const& record : TunInfoMap2List(info)) {
        SetTuningInfo(record);
    }
}

std::list<_ZOLDIAG_EVINFO_ST> DiagUtils::EVInfoMap2List(EVInfoMap const& info) {
    std::list<_ZOLDIAG_EVINFO_ST> records;
    for (auto const& [algoType, modes] : info) {
        for (auto const& [mode, evValues] : modes) {
            records.push_back({algoType, mode, evValues});
        }
    }
    return records;
}

std::list<_ZOLDIAG_TUNINFO_ST> DiagUtils::TunInfoMap2List(TunInfoMap const& info) {
    std::list<_ZOLDIAG_TUNINFO_ST> records;
    for (auto const& [algoType, modes] : info) {
        for (auto const& [mode, tuningMode] : modes) {
            records.push_back({algoType, mode, tuningMode});
        }
    }
    return records;
}

std::pair<bool, int> DiagUtils::GetEVInfo(ZOLDiagAlgoType const& algoType, int const& mode,
                                          int const& index) {
    std::vector<int> const* evValues = FindEntry(m_evInfo, algoType, mode);
    if (evValues == nullptr || index < 0 || static_cast<std::size_t>(index) >= evValues->size()) {
        return {false, 0};
    }
    return {true, (*evValues)[static_cast<std::size_t>(index)]};
}

std::pair<bool, _TuningMode> DiagUtils::GetTunInfo(ZOLDiagAlgoType const& algoType,
                                                   int const& mode) {
    _TuningMode const* tuningMode = FindEntry(m_tunInfo, algoType, mode);
    if (tuningMode == nullptr) {
        return {false, _TuningMode{}};
    }
    return {true, *tuningMode};
}
