// AVX-512 (F, BW, DQ and VNNI) row kernels: the block algorithm of zolcolorconvert_x86.h on
// 512-bit registers. Built with -mavx512f -mavx512bw -mavx512dq -mavx512vnni; run only where
// the CPU has all four (VNNI fuses the multiply-adds with their sums; every CPU with VNNI has
// DQ).
#include <immintrin.h>

#include "zolbufferutil/internal/zolcolorconvert_x86.h"

namespace zol::colorconvert {
namespace {

// The operations X86Rows needs (see zolcolorconvert_sse41.cpp), on four 128-bit lanes.
struct Avx512 {
    using V = __m512i;
    using D = __m512d;
    using F = __m512;
    static constexpr int kLanes = 4;
    static constexpr YuvToRgbaRowFn kNarrowerYuvToRgba = Avx2YuvToRgbaRow;
    static constexpr RgbaToYuvRowFn kNarrowerRgbaToYuv = Avx2RgbaToYuvRow;

    static V Load(const void* p) { return _mm512_loadu_si512(p); }
    static void Store(void* p, V v) { _mm512_storeu_si512(p, v); }
    // 4-byte group g of lane l moves to / from element 4 l + g: a 4 x 4 transpose, its own
    // inverse.
    static V PermFwd(V v) {
        return _mm512_permutexvar_epi32(
            _mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15), v);
    }
    static V PermInv(V v) { return PermFwd(v); }
    // p register-aligned.
    static void StoreStream(void* p, V v) { _mm512_stream_si512(static_cast<__m512i*>(p), v); }
    static void StoreFence() { _mm_sfence(); }
    static V Zero() { return _mm512_setzero_si512(); }
    static V Set16(int x) { return _mm512_set1_epi16(static_cast<short>(x)); }
    static V Set32(int x) { return _mm512_set1_epi32(x); }
    static V Pattern(char b0, char b1, char b2, char b3, char b4, char b5, char b6, char b7,
                     char b8, char b9, char b10, char b11, char b12, char b13, char b14, char b15) {
        return _mm512_broadcast_i32x4(
            _mm_setr_epi8(b0, b1, b2, b3, b4, b5, b6, b7, b8, b9, b10, b11, b12, b13, b14, b15));
    }
    static V Shuffle8(V v, V pattern) { return _mm512_shuffle_epi8(v, pattern); }
    static V UnpackLo8(V a, V b) { return _mm512_unpacklo_epi8(a, b); }
    static V UnpackHi8(V a, V b) { return _mm512_unpackhi_epi8(a, b); }
    static V UnpackLo16(V a, V b) { return _mm512_unpacklo_epi16(a, b); }
    static V UnpackHi16(V a, V b) { return _mm512_unpackhi_epi16(a, b); }
    static V And(V a, V b) { return _mm512_and_si512(a, b); }
    static V Add16(V a, V b) { return _mm512_add_epi16(a, b); }
    static V Sub16(V a, V b) { return _mm512_sub_epi16(a, b); }
    static V Mullo16(V a, V b) { return _mm512_mullo_epi16(a, b); }
    static V MulHi16(V a, V b) { return _mm512_mulhi_epi16(a, b); }
    static V MaddUbs(V a, V b) { return _mm512_maddubs_epi16(a, b); }
    static V Madd16(V a, V b) { return _mm512_madd_epi16(a, b); }
    // The multiply-adds fused with the accumulation (AVX-512 VNNI).
    static V MaddAdd16(V acc, V a, V b) { return _mm512_dpwssd_epi32(acc, a, b); }
    static V DotBytes2(V a, V b) { return _mm512_dpbusd_epi32(Zero(), a, b); }
    static V DotBytesAdd(V acc, V a, V b) { return _mm512_dpbusd_epi32(acc, a, b); }
    static V Sub32(V a, V b) { return _mm512_sub_epi32(a, b); }
    static V Add32(V a, V b) { return _mm512_add_epi32(a, b); }
    template <int N>
    static V Slli32(V a) {
        return _mm512_slli_epi32(a, N);
    }
    template <int N>
    static V Slli16(V a) {
        return _mm512_slli_epi16(a, N);
    }
    template <int N>
    static V Srli16(V a) {
        return _mm512_srli_epi16(a, N);
    }
    template <int N>
    static V Srli32(V a) {
        return _mm512_srli_epi32(a, N);
    }
    template <int N>
    static V Srai32(V a) {
        return _mm512_srai_epi32(a, N);
    }
    static V PackUS16(V a, V b) { return _mm512_packus_epi16(a, b); }
    static V PackS32(V a, V b) { return _mm512_packs_epi32(a, b); }
    static bool AnyEq16(V a, int x, int y) {
        return !_kortestz_mask32_u8(_mm512_cmpeq_epi16_mask(a, Set16(x)),
                                    _mm512_cmpeq_epi16_mask(a, Set16(y)));
    }
    // vreduceps (AVX-512 DQ) gives x - trunc(x) in one instruction.
    static bool AnyFractionBelow(F x, float limit) {
        const F fraction = _mm512_reduce_ps(x, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
        return _mm512_cmp_ps_mask(fraction, _mm512_set1_ps(limit), _CMP_LT_OQ) != 0;
    }
    static bool AnyEqNonZeroF(F a, F b, V n) {
        return _mm512_mask_cmp_ps_mask(_mm512_test_epi32_mask(n, n), a, b, _CMP_EQ_OQ) != 0;
    }
    static V EvenOfPairs(V a, V b) {
        return _mm512_castps_si512(_mm512_shuffle_ps(_mm512_castsi512_ps(a), _mm512_castsi512_ps(b),
                                                     _MM_SHUFFLE(2, 0, 2, 0)));
    }
    static F CvtF(V x) { return _mm512_cvtepi32_ps(x); }
    static V CvttF(F x) { return _mm512_cvttps_epi32(x); }
    static V CvtNearestF(F x) { return _mm512_cvtps_epi32(x); }
    static F SetF(float x) { return _mm512_set1_ps(x); }
    static F AddF(F a, F b) { return _mm512_add_ps(a, b); }
    static F MulF(F a, F b) { return _mm512_mul_ps(a, b); }
    static void ToDouble(V x, D* lo, D* hi) {
        *lo = _mm512_cvtepi32_pd(_mm512_castsi512_si256(x));
        *hi = _mm512_cvtepi32_pd(_mm512_extracti64x4_epi64(x, 1));
    }
    static V TruncToInt(D lo, D hi) {
        return _mm512_inserti64x4(_mm512_castsi256_si512(_mm512_cvttpd_epi32(lo)),
                                  _mm512_cvttpd_epi32(hi), 1);
    }
    static D SetD(double x) { return _mm512_set1_pd(x); }
    static D AddD(D a, D b) { return _mm512_add_pd(a, b); }
    static D MulD(D a, D b) { return _mm512_mul_pd(a, b); }
};

}  // namespace

void Avx512YuvToRgbaRow(const uint8_t* y, const uint8_t* uv, uint8_t* rgba, int width) {
    X86Rows<Avx512>::YuvToRgbaRow(y, uv, rgba, width);
}
void Avx512YuvToRgbaRowStreaming(const uint8_t* y, const uint8_t* uv, uint8_t* rgba, int width) {
    X86Rows<Avx512>::YuvToRgbaRowStreaming(y, uv, rgba, width);
}
void Avx512RgbaToYuvRow(const uint8_t* rgba, uint8_t* y, uint8_t* uv, int width) {
    X86Rows<Avx512>::RgbaToYuvRow(rgba, y, uv, width);
}
const RowKernels kAvx512RowKernels = {"avx512", Avx512YuvToRgbaRow, Avx512YuvToRgbaRowStreaming,
                                      Avx512RgbaToYuvRow};

}  // namespace zol::colorconvert
