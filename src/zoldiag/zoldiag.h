// DiagUtils: process-wide registries of expected values per algorithm type, and the small
// checks with which algorithm wrapper code compares what an algorithm did against them.
//
// Two registries, both keyed by algorithm type and then by an integer mode:
//   m_evInfo   the list of expected EV (exposure value) integers;
//   m_tunInfo  the expected tuning-mode signature (seven 16-bit sub-modes).
// Setting merges: exactly the entry named is inserted or overwritten and nothing else changes;
// setting from a whole map sets each of its entries that way. Nothing ever removes an entry,
// and the lookups never create one.
//
// All members are static; the registries are created empty when the library is loaded and
// live until it is unloaded. No lock guards them: fill them before use and read them
// afterwards, or serialise the callers yourself.
//
// The checks return true when they pass and write nothing.
#pragma once

#include <cstdint>
#include <list>
#include <unordered_map>
#include <utility>
#include <vector>

#include "zolchituning.h"
#include "zolexport.h"

// Identifies an algorithm. The types are the callers' to define: any 32-bit value is a valid
// key, the named ones are only a convenience.
enum ZOLDiagAlgoType : int32_t {
    ZOL_DIAG_ALGO_UNKNOWN = 0,
};

// The expected sub-modes of the first seven entries of a ChiTuningModeParameter.
struct _TuningMode {
    uint16_t subMode0;
    uint16_t subMode1;
    uint16_t subMode2;
    uint16_t subMode3;
    uint16_t subMode4;
    uint16_t subMode5;
    uint16_t subMode6;
};

struct _ZOLDIAG_EVINFO_ST {
    ZOLDiagAlgoType algoType;
    int32_t mode;
    std::vector<int> evValues;
};

struct _ZOLDIAG_TUNINFO_ST {
    ZOLDiagAlgoType algoType;
    int32_t mode;
    _TuningMode tuningMode;
};

class ZOL_EXPORT DiagUtils {
public:
    using EVInfoMap =
        std::unordered_map<ZOLDiagAlgoType, std::unordered_map<int, std::vector<int>>>;
    using TunInfoMap = std::unordered_map<ZOLDiagAlgoType, std::unordered_map<int, _TuningMode>>;

    // Registry setters: the entry under (algoType, mode) becomes the value given.
    static void SetEVInfo(ZOLDiagAlgoType const& algoType, int const& mode,
                          std::vector<int> const& evValues);
    static void SetEVInfo(_ZOLDIAG_EVINFO_ST const& info);
    static void SetEVInfo(EVInfoMap const& info);  // merges every entry of `info`
    static void SetTuningInfo(ZOLDiagAlgoType const& algoType, int const& mode,
                              _TuningMode const& tuningMode);
    static void SetTuningInfo(_ZOLDIAG_TUNINFO_ST const& info);
    static void SetTuningInfo(TunInfoMap const& info);  // merges every entry of `info`

    // One record per (algorithm type, mode) pair, in the maps' iteration order (not sorted).
    static std::list<_ZOLDIAG_EVINFO_ST> EVInfoMap2List(EVInfoMap const& info);
    static std::list<_ZOLDIAG_TUNINFO_ST> TunInfoMap2List(TunInfoMap const& info);

    // (true, element `index` of the registered EV list), or (false, 0) when the type, the mode
    // or the index is not there.
    static std::pair<bool, int> GetEVInfo(ZOLDiagAlgoType const& algoType, int const& mode,
                                          int const& index);
    // (true, the registered tuning mode), or (false, all zero).
    static std::pair<bool, _TuningMode> GetTunInfo(ZOLDiagAlgoType const& algoType,
                                                   int const& mode);

    // ret == expected / ret is one of `expected` (an empty list never matches).
    static bool CheckRetValue(int const& ret, int const& expected);
    static bool CheckRetValue(int const& ret, std::list<int> const& expected);
    // ret != rejected / ret is none of `rejected` (an empty list always passes).
    static bool CheckRetValueNot(int const& ret, int const& rejected);
    static bool CheckRetValueNot(int const& ret, std::list<int> const& rejected);
    // The registered EV value at `index` exists and equals `ev`.
    static bool CheckEValue(int const& ev, ZOLDiagAlgoType const& algoType, int const& mode,
                            int const& index);
    // A tuning mode is registered and, for i = 0..6, the 16-bit value at byte offset 8 + 8i of
    // `param` (the low half of entry i's sub-mode) equals its subMode<i>. Nothing else of
    // `param` is looked at.
    static bool CheckTuningParam(ChiTuningModeParameter const& param,
                                 ZOLDiagAlgoType const& algoType, int const& mode);
    // |luma - reference| (in single precision) is at most reference * 0.1 (in double). The
    // bound is deliberately not taken of |reference|: a negative reference never passes, a
    // zero one only for a zero luma. Any NaN fails.
    static bool CheckLumaRatio(float const& luma, float const& reference);

    static EVInfoMap m_evInfo;
    static TunInfoMap m_tunInfo;
};
