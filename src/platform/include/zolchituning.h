// Host stand-in for the camera platform's tuning-mode selection record, ChiTuningModeParameter.
// The layout is what matters: a 32-bit count of selection parameters followed by an array of
// entries, each a 32-bit mode type and a 32-bit sub-mode, so that the sub-mode of entry i lies
// at byte offset 8 + 8i. A device build puts a header of this name on its include path that
// brings in the platform's own definition instead.
#pragma once

#include <cstdint>

struct ChiTuningMode {
    uint32_t mode;     // mode type
    uint32_t subMode;  // sub-mode (its low 16 bits are what diagnostics compare)
};

struct ChiTuningModeParameter {
    uint32_t noOfSelectionParameter;
    ChiTuningMode TuningMode[10];
};
