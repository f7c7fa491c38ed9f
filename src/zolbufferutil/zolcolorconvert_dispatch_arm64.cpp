// Kernel choice on arm64: NEON, which every AArch64 CPU has, so nothing is asked at run time.
// The scalar set stays on the list: the tests run every set the CPU supports.
#include "zolbufferutil/internal/zolcolorconvert_neon.h"

namespace zol::colorconvert {

RowKernelList SupportedRowKernels() {
    static const RowKernels* const items[] = {&kNeonRowKernels, &kScalarRowKernels};
    return RowKernelList{items, 2};
}

}  // namespace zol::colorconvert
