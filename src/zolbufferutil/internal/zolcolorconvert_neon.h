// The arm64 NEON row kernels (zolcolorconvert_neon.cpp). Internal; included only by the arm64
// sources.
#pragma once

#include "zolbufferutil/internal/zolcolorconvert_rows.h"

namespace zol::colorconvert {

extern const RowKernels kNeonRowKernels;

}  // namespace zol::colorconvert
