// Kernel choice where the build has no SIMD kernels: the portable one.
#include "zolbufferutil/internal/zolcolorconvert_rows.h"

namespace zol::colorconvert {

RowKernelList SupportedRowKernels() {
    static const RowKernels* const items[] = {&kScalarRowKernels};
    return RowKernelList{items, 1};
}

}  // namespace zol::colorconvert
