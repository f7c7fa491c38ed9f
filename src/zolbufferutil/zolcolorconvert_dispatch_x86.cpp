// Kernel choice on x86-64: the widest instruction set the CPU reports, asked once.
#include "zolbufferutil/internal/zolcolorconvert_x86.h"

namespace zol::colorconvert {

RowKernelList SupportedRowKernels() {
    static const RowKernelList list = [] {
        static const RowKernels* items[4];
        int n = 0;
        __builtin_cpu_init();
        if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
            __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vnni")) {
            items[n++] = &kAvx512RowKernels;
        }
        if (__builtin_cpu_supports("avx2")) {
            items[n++] = &kAvx2RowKernels;
        }
        if (__builtin_cpu_supports("sse4.1")) {
            items[n++] = &kSse41RowKernels;
        }
        items[n++] = &kScalarRowKernels;
        return RowKernelList{items, n};
    }();
    return list;
}

}  // namespace zol::colorconvert
