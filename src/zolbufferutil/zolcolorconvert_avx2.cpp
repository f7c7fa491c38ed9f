// AVX2 row kernels: the block algorithm of zolcolorconvert_x86.h on 256-bit registers.
// Built with -mavx2; run only where the CPU has it.
#include <immintrin.h>

#include "zolbufferutil/internal/zolcolorconvert_x86.h"

namespace zol::colorconvert {
namespace {

// The operations X86Rows needs (see zolcolorconvert_sse41.cpp), on two 128-bit lanes.
struct Avx2 {
    using V = __m256i;
    using D = __m256d;
    using F = __m256;
    static constexpr int kLanes = 2;
    static constexpr YuvToRgbaRowFn kNarrowerYuvToRgba = Sse41YuvToRgbaRow;
    static constexpr RgbaToYuvRowFn kNarrowerRgbaToYuv = Sse41RgbaToYuvRow;

    static V Load(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
    static void Store(void* p, V v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }
    // 4-byte group g of lane l moves to / from element 4 l + g.
    static V PermFwd(V v) {
        return _mm256_permutevar8x32_epi32(v, _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7));
    }
    static V PermInv(V v) {
        return _mm256_permutevar8x32_epi32(v, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
    }
    // p register-aligned.
    static void StoreStream(void* p, V v) { _mm256_stream_si256(static_cast<__m256i*>(p), v); }
    static void StoreFence() { _mm_sfence(); }
    static V Zero() { return _mm256_setzero_si256(); }
    static V Set16(int x) { return _mm256_set1_epi16(static_cast<short>(x)); }
    static V Set32(int x) { return _mm256_set1_epi32(x); }
    static V Pattern(char b0, char b1, char b2, char b3, char b4, char b5, char b6, char b7,
                     char b8, char b9, char b10, char b11, char b12, char b13, char b14, char b15) {
        return _mm256_broadcastsi128_si256(
            _mm_setr_epi8(b0, b1, b2, b3, b4, b5, b6, b7, b8, b9, b10, b11, b12, b13, b14, b15));
    }
    static V Shuffle8(V v, V pattern) { return _mm256_shuffle_epi8(v, pattern); }
    static V UnpackLo8(V a, V b) { return _mm256_unpacklo_epi8(a, b); }
    static V UnpackHi8(V a, V b) { return _mm256_unpackhi_epi8(a, b); }
    static V UnpackLo16(V a, V b) { return _mm256_unpacklo_epi16(a, b); }
    static V UnpackHi16(V a, V b) { return _mm256_unpackhi_epi16(a, b); }
    static V And(V a, V b) { return _mm256_and_si256(a, b); }
    static V Add16(V a, V b) { return _mm256_add_epi16(a, b); }
    static V Sub16(V a, V b) { return _mm256_sub_epi16(a, b); }
    static V Mullo16(V a, V b) { return _mm256_mullo_epi16(a, b); }
    static V MulHi16(V a, V b) { return _mm256_mulhi_epi16(a, b); }
    static V MaddUbs(V a, V b) { return _mm256_maddubs_epi16(a, b); }
    static V Madd16(V a, V b) { return _mm256_madd_epi16(a, b); }
    // acc + the pmaddwd of a and b.
    static V MaddAdd16(V acc, V a, V b) { return Add32(acc, Madd16(a, b)); }
    // The sum of each 4 bytes' products, the first two only (the others' multipliers are 0):
    // pmaddubsw leaves it in the low word, with zero above.
    static V DotBytes2(V a, V b) { return MaddUbs(a, b); }
    // acc + the sum of each 4 bytes' products (unsigned a, signed b; pair sums within int16).
    static V DotBytesAdd(V acc, V a, V b) { return Add32(acc, Madd16(MaddUbs(a, b), Set16(1))); }
    static V Sub32(V a, V b) { return _mm256_sub_epi32(a, b); }
    static V Add32(V a, V b) { return _mm256_add_epi32(a, b); }
    template <int N>
    static V Slli32(V a) {
        return _mm256_slli_epi32(a, N);
    }
    template <int N>
    static V Slli16(V a) {
        return _mm256_slli_epi16(a, N);
    }
    template <int N>
    static V Srli16(V a) {
        return _mm256_srli_epi16(a, N);
    }
    template <int N>
    static V Srli32(V a) {
        return _mm256_srli_epi32(a, N);
    }
    template <int N>
    static V Srai32(V a) {
        return _mm256_srai_epi32(a, N);
    }
    static V PackUS16(V a, V b) { return _mm256_packus_epi16(a, b); }
    static V PackS32(V a, V b) { return _mm256_packs_epi32(a, b); }
    static bool AnyEq16(V a, int x, int y) {
        const V eq =
            _mm256_or_si256(_mm256_cmpeq_epi16(a, Set16(x)), _mm256_cmpeq_epi16(a, Set16(y)));
        return !_mm256_testz_si256(eq, eq);
    }
    static bool AnyFractionBelow(F x, float limit) {
        const F fraction =
            _mm256_sub_ps(x, _mm256_round_ps(x, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC));
        return _mm256_movemask_ps(_mm256_cmp_ps(fraction, _mm256_set1_ps(limit), _CMP_LT_OQ)) != 0;
    }
    static bool AnyEqNonZeroF(F a, F b, V n) {
        const V eq = _mm256_andnot_si256(_mm256_cmpeq_epi32(n, Zero()),
                                         _mm256_castps_si256(_mm256_cmp_ps(a, b, _CMP_EQ_OQ)));
        return !_mm256_testz_si256(eq, eq);
    }
    static V EvenOfPairs(V a, V b) {
        return _mm256_castps_si256(_mm256_shuffle_ps(_mm256_castsi256_ps(a), _mm256_castsi256_ps(b),
                                                     _MM_SHUFFLE(2, 0, 2, 0)));
    }
    static F CvtF(V x) { return _mm256_cvtepi32_ps(x); }
    static V CvttF(F x) { return _mm256_cvttps_epi32(x); }
    static V CvtNearestF(F x) { return _mm256_cvtps_epi32(x); }
    static F SetF(float x) { return _mm256_set1_ps(x); }
    static F AddF(F a, F b) { return _mm256_add_ps(a, b); }
    static F MulF(F a, F b) { return _mm256_mul_ps(a, b); }
    static void ToDouble(V x, D* lo, D* hi) {
        *lo = _mm256_cvtepi32_pd(_mm256_castsi256_si128(x));
        *hi = _mm256_cvtepi32_pd(_mm256_extracti128_si256(x, 1));
    }
    static V TruncToInt(D lo, D hi) {
        return _mm256_setr_m128i(_mm256_cvttpd_epi32(lo), _mm256_cvttpd_epi32(hi));
    }
    static D SetD(double x) { return _mm256_set1_pd(x); }
    static D AddD(D a, D b) { return _mm256_add_pd(a, b); }
    static D MulD(D a, D b) { return _mm256_mul_pd(a, b); }
};

}  // namespace

void Avx2YuvToRgbaRow(const uint8_t* y, const uint8_t* uv, uint8_t* rgba, int width) {
    X86Rows<Avx2>::YuvToRgbaRow(y, uv, rgba, width);
}
void Avx2YuvToRgbaRowStreaming(const uint8_t* y, const uint8_t* uv, uint8_t* rgba, int width) {
    X86Rows<Avx2>::YuvToRgbaRowStreaming(y, uv, rgba, width);
}
void Avx2RgbaToYuvRow(const uint8_t* rgba, uint8_t* y, uint8_t* uv, int width) {
    X86Rows<Avx2>::RgbaToYuvRow(rgba, y, uv, width);
}
const RowKernels kAvx2RowKernels = {"avx2", Avx2YuvToRgbaRow, Avx2YuvToRgbaRowStreaming,
                                    Avx2RgbaToYuvRow};

}  // namespace zol::colorconvert
