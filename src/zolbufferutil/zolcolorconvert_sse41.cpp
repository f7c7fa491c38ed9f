// SSE4.1 row kernels: the block algorithm of zolcolorconvert_x86.h on 128-bit registers.
// Built with -msse4.1; run only where the CPU has it.
#include <immintrin.h>

#include "zolbufferutil/internal/zolcolorconvert_x86.h"

namespace zol::colorconvert {
namespace {

// The operations X86Rows needs, on one 128-bit lane.
struct Sse41 {
    using V = __m128i;
    using D = __m128d;
    using F = __m128;
    static constexpr int kLanes = 1;
    static constexpr YuvToRgbaRowFn kNarrowerYuvToRgba = ScalarYuvToRgbaRow;
    static constexpr RgbaToYuvRowFn kNarrowerRgbaToYuv = ScalarRgbaToYuvRow;

    static V Load(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
    static void Store(void* p, V v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }
    static V PermFwd(V v) { return v; }
    static V PermInv(V v) { return v; }
    // p register-aligned.
    static void StoreStream(void* p, V v) { _mm_stream_si128(static_cast<__m128i*>(p), v); }
    static void StoreFence() { _mm_sfence(); }
    static V Zero() { return _mm_setzero_si128(); }
    static V Set16(int x) { return _mm_set1_epi16(static_cast<short>(x)); }
    static V Set32(int x) { return _mm_set1_epi32(x); }
    // A pshufb control, the same in every lane; -1 gives a zero byte.
    static V Pattern(char b0, char b1, char b2, char b3, char b4, char b5, char b6, char b7,
                     char b8, char b9, char b10, char b11, char b12, char b13, char b14, char b15) {
        return _mm_setr_epi8(b0, b1, b2, b3, b4, b5, b6, b7, b8, b9, b10, b11, b12, b13, b14, b15);
    }
    static V Shuffle8(V v, V pattern) { return _mm_shuffle_epi8(v, pattern); }
    static V UnpackLo8(V a, V b) { return _mm_unpacklo_epi8(a, b); }
    static V UnpackHi8(V a, V b) { return _mm_unpackhi_epi8(a, b); }
    static V UnpackLo16(V a, V b) { return _mm_unpacklo_epi16(a, b); }
    static V UnpackHi16(V a, V b) { return _mm_unpackhi_epi16(a, b); }
    static V And(V a, V b) { return _mm_and_si128(a, b); }
    static V Add16(V a, V b) { return _mm_add_epi16(a, b); }
    static V Sub16(V a, V b) { return _mm_sub_epi16(a, b); }
    static V Mullo16(V a, V b) { return _mm_mullo_epi16(a, b); }
    static V MulHi16(V a, V b) { return _mm_mulhi_epi16(a, b); }
    static V MaddUbs(V a, V b) { return _mm_maddubs_epi16(a, b); }
    static V Madd16(V a, V b) { return _mm_madd_epi16(a, b); }
    // acc + the pmaddwd of a and b.
    static V MaddAdd16(V acc, V a, V b) { return Add32(acc, Madd16(a, b)); }
    // The sum of each 4 bytes' products, the first two only (the others' multipliers are 0):
    // pmaddubsw leaves it in the low word, with zero above.
    static V DotBytes2(V a, V b) { return MaddUbs(a, b); }
    // acc + the sum of each 4 bytes' products (unsigned a, signed b; pair sums within int16).
    static V DotBytesAdd(V acc, V a, V b) { return Add32(acc, Madd16(MaddUbs(a, b), Set16(1))); }
    static V Sub32(V a, V b) { return _mm_sub_epi32(a, b); }
    static V Add32(V a, V b) { return _mm_add_epi32(a, b); }
    template <int N>
    static V Slli32(V a) {
        return _mm_slli_epi32(a, N);
    }
    template <int N>
    static V Slli16(V a) {
        return _mm_slli_epi16(a, N);
    }
    template <int N>
    static V Srli16(V a) {
        return _mm_srli_epi16(a, N);
    }
    template <int N>
    static V Srli32(V a) {
        return _mm_srli_epi32(a, N);
    }
    template <int N>
    static V Srai32(V a) {
        return _mm_srai_epi32(a, N);
    }
    static V PackUS16(V a, V b) { return _mm_packus_epi16(a, b); }
    static V PackS32(V a, V b) { return _mm_packs_epi32(a, b); }
    static bool AnyEq16(V a, int x, int y) {
        const V eq = _mm_or_si128(_mm_cmpeq_epi16(a, Set16(x)), _mm_cmpeq_epi16(a, Set16(y)));
        return !_mm_testz_si128(eq, eq);
    }
    // Whether x - trunc(x) < limit in some element (x >= 0).
    static bool AnyFractionBelow(F x, float limit) {
        const F fraction = _mm_sub_ps(x, _mm_round_ps(x, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC));
        return _mm_movemask_ps(_mm_cmplt_ps(fraction, _mm_set1_ps(limit))) != 0;
    }
    // Whether a and b are equal in an element where n is not zero.
    static bool AnyEqNonZeroF(F a, F b, V n) {
        const V eq =
            _mm_andnot_si128(_mm_cmpeq_epi32(n, Zero()), _mm_castps_si128(_mm_cmpeq_ps(a, b)));
        return !_mm_testz_si128(eq, eq);
    }
    // Elements 0 and 2 of a, then of b.
    static V EvenOfPairs(V a, V b) {
        return _mm_castps_si128(
            _mm_shuffle_ps(_mm_castsi128_ps(a), _mm_castsi128_ps(b), _MM_SHUFFLE(2, 0, 2, 0)));
    }
    static F CvtF(V x) { return _mm_cvtepi32_ps(x); }
    static V CvttF(F x) { return _mm_cvttps_epi32(x); }
    static V CvtNearestF(F x) { return _mm_cvtps_epi32(x); }
    static F SetF(float x) { return _mm_set1_ps(x); }
    static F AddF(F a, F b) { return _mm_add_ps(a, b); }
    static F MulF(F a, F b) { return _mm_mul_ps(a, b); }
    static void ToDouble(V x, D* lo, D* hi) {
        *lo = _mm_cvtepi32_pd(x);
        *hi = _mm_cvtepi32_pd(_mm_unpackhi_epi64(x, x));
    }
    static V TruncToInt(D lo, D hi) {
        return _mm_unpacklo_epi64(_mm_cvttpd_epi32(lo), _mm_cvttpd_epi32(hi));
    }
    static D SetD(double x) { return _mm_set1_pd(x); }
    static D AddD(D a, D b) { return _mm_add_pd(a, b); }
    static D MulD(D a, D b) { return _mm_mul_pd(a, b); }
};

}  // namespace

void Sse41YuvToRgbaRow(const uint8_t* y, const uint8_t* uv, uint8_t* rgba, int width) {
    X86Rows<Sse41>::YuvToRgbaRow(y, uv, rgba, width);
}
void Sse41YuvToRgbaRowStreaming(const uint8_t* y, const uint8_t* uv, uint8_t* rgba, int width) {
    X86Rows<Sse41>::YuvToRgbaRowStreaming(y, uv, rgba, width);
}
void Sse41RgbaToYuvRow(const uint8_t* rgba, uint8_t* y, uint8_t* uv, int width) {
    X86Rows<Sse41>::RgbaToYuvRow(rgba, y, uv, width);
}
const RowKernels kSse41RowKernels = {"sse4.1", Sse41YuvToRgbaRow, Sse41YuvToRgbaRowStreaming,
                                     Sse41RgbaToYuvRow};

}  // namespace zol::colorconvert
