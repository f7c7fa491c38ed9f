// Strided row copy on x86-64. Two images of one size usually sit at the same page offset (pool
// blocks are page-aligned), so with a 2 KiB stride every destination row has the same low 12
// address bits as the source rows two further on. memcpy's vector loop then loads from
// addresses that seem to match stores still queued for the row before last (4K aliasing), and
// a 1080p NV21 copy takes up to twice as long as one memcpy of its bytes.
//
// With AVX2 each row goes through a loop of four 32-byte loads then four stores, 128 bytes a
// step, the last step overlapping the one before instead of a tail loop. It does not stall on
// aliasing and, measured on 1080p NV21 with 128 bytes of padding, takes 13-19 % less time than
// the CPU's string copy (4-11 % less at 12 MP), level with one memcpy of the payload.
// Rows under 128 bytes, and every row on a CPU without AVX2, stay with memcpy.
#include <immintrin.h>

#include <cstring>

#include "zolbufferutil/internal/zolbuffercopy_rows.h"

namespace zol::buffercopy {
namespace {

constexpr size_t kVectorStep = 128;

bool HasAvx2() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") != 0;
}

// One 128-byte step: every load before any store.
__attribute__((target("avx2"))) inline void Step128(unsigned char* dst, const unsigned char* src) {
    const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src));
    const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + 32));
    const __m256i c = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + 64));
    const __m256i d = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + 96));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst), a);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 32), b);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 64), c);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 96), d);
}

// Rows of at least kVectorStep bytes.
__attribute__((target("avx2"))) void VectorCopyRows(unsigned char* dst, const unsigned char* src,
                                                    size_t rowBytes, size_t rows,
                                                    ptrdiff_t dstStride, ptrdiff_t srcStride) {
    const size_t last = rowBytes - kVectorStep;
    for (size_t r = 0; r < rows; ++r) {
        const auto at = static_cast<ptrdiff_t>(r);
        unsigned char* const d = dst + at * dstStride;
        const unsigned char* const s = src + at * srcStride;
        for (size_t i = 0; i < last; i += kVectorStep) {
            Step128(d + i, s + i);
        }
        Step128(d + last, s + last);  // the row's last 128 bytes, over the step before if short
    }
}

}  // namespace

void CopyRows(unsigned char* dst, const unsigned char* src, size_t rowBytes, size_t rows,
              ptrdiff_t dstStride, ptrdiff_t srcStride) {
    static const bool avx2 = HasAvx2();
    if (avx2 && rowBytes >= kVectorStep) {
        VectorCopyRows(dst, src, rowBytes, rows, dstStride, srcStride);
        return;
    }
    for (size_t r = 0; r < rows; ++r) {
        const auto at = static_cast<ptrdiff_t>(r);
        memcpy(dst + at * dstStride, src + at * srcStride, rowBytes);
    }
}

}  // namespace zol::buffercopy
