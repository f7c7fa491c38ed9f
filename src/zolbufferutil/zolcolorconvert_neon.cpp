// The arm64 NEON row kernels: 16 pixels per block, the channels taken apart and put together by
// the structure loads and stores (vld2/vld4, vst2/vst4); the rest of a row, and the rare pixels
// the integer formulation does not decide, go to the scalar kernels.
//
// yuv420sp2rgba: the integer formulation of zolcolorconvert_rows.h, in 32-bit lanes, one lane
// per chroma pair, with the very expressions of the scalar kernel. A block holding a chroma pair
// of kGreenDips has those pairs redone by the scalar kernel, which applies the dip.
// rgba2yuv420sp: luma is floor((299 R + 587 G + 114 B) / 1000), the division a multiply and
// shifts; in a block where one of the sums is a multiple of 1000 the double formula gives the
// luma of the whole block. Chroma, one pixel in four, uses the double formulas as they stand,
// two lanes at a time: exact by construction. (No fused multiply-add: -ffp-contract=off.)
//
// NEON is part of every AArch64 CPU: no run-time check and no compiler flag. AArch64 has no
// streaming store that GCC's intrinsics reach, so the streaming variant is the plain kernel.
#include <arm_neon.h>

#include "zolbufferutil/internal/zolcolorconvert_neon.h"

namespace zol::colorconvert {
namespace {

constexpr int kBlock = 16;

// ---- yuv420sp2rgba ----

// What the pairs add to Y, per pair, for four pairs: the scalar kernel's expressions.
struct PairDeltas {
    int32x4_t r, g, b;
};

inline PairDeltas DeltasOf(int16x4_t u, int16x4_t v) {
    const int32x4_t u32 = vmovl_s16(u);
    const int32x4_t v32 = vmovl_s16(v);
    PairDeltas d;
    d.r = vshrq_n_s32(vmulq_n_s32(v32, kRedV), 16);
    d.b = vshrq_n_s32(vmulq_n_s32(u32, kBlueU), 16);
    const int32x4_t green =
        vmlaq_n_s32(vmlaq_n_s32(vdupq_n_s32(kGreenBias), u32, kGreenU), v32, kGreenV);
    d.g = vshrq_n_s32(green, kGreenShift);
    return d;
}

// One channel of 16 pixels: Y plus its pair's delta (pair j serves pixels 2j and 2j + 1),
// clamped to 0..255 by the saturating narrow.
inline uint8x16_t Channel(int16x8_t yLo, int16x8_t yHi, int32x4_t dLo, int32x4_t dHi) {
    const int16x8_t d = vcombine_s16(vmovn_s32(dLo), vmovn_s32(dHi));
    return vqmovun_high_s16(vqmovun_s16(vaddq_s16(yLo, vzip1q_s16(d, d))),
                            vaddq_s16(yHi, vzip2q_s16(d, d)));
}

// One block.
inline void YuvBlock(const uint8_t* y, const uint8_t* uv, uint8_t* rgba) {
    const uint8x8x2_t vu = vld2_u8(uv);  // val[0]: V of the 8 pairs, val[1]: U
    // V - 128 and U - 128: the 16-bit difference wraps, read as signed it is exact.
    const int16x8_t v = vreinterpretq_s16_u16(vsubl_u8(vu.val[0], vdup_n_u8(128)));
    const int16x8_t u = vreinterpretq_s16_u16(vsubl_u8(vu.val[1], vdup_n_u8(128)));
    const PairDeltas lo = DeltasOf(vget_low_s16(u), vget_low_s16(v));
    const PairDeltas hi = DeltasOf(vget_high_s16(u), vget_high_s16(v));

    const uint8x16_t luma = vld1q_u8(y);
    const int16x8_t yLo = vreinterpretq_s16_u16(vmovl_u8(vget_low_u8(luma)));
    const int16x8_t yHi = vreinterpretq_s16_u16(vmovl_high_u8(luma));
    uint8x16x4_t px;
    px.val[0] = Channel(yLo, yHi, lo.r, hi.r);
    px.val[1] = Channel(yLo, yHi, lo.g, hi.g);
    px.val[2] = Channel(yLo, yHi, lo.b, hi.b);
    px.val[3] = vdupq_n_u8(255);
    vst4q_u8(rgba, px);

    // Pairs of kGreenDips (rare): the scalar kernel redoes their two pixels, applying the dip.
    uint8x8_t dip = vdup_n_u8(0);
    for (const GreenDip& g : kGreenDips) {
        dip = vorr_u8(dip, vand_u8(vceq_u8(vu.val[0], vdup_n_u8(static_cast<uint8_t>(g.v + 128))),
                                   vceq_u8(vu.val[1], vdup_n_u8(static_cast<uint8_t>(g.u + 128)))));
    }
    if (vmaxv_u8(dip) != 0) {
        uint8_t isDip[8];
        vst1_u8(isDip, dip);
        for (int j = 0; j < 8; ++j) {
            if (isDip[j] != 0) {
                ScalarYuvToRgbaRow(y + 2 * j, uv + 2 * j, rgba + 8 * j, 2);
            }
        }
    }
}

void NeonYuvToRgbaRow(const uint8_t* y, const uint8_t* uv, uint8_t* rgba, int width) {
    int k = 0;
    for (; k + kBlock <= width; k += kBlock) {
        YuvBlock(y + k, uv + k, rgba + 4 * k);  // k is even: pixel k's pair starts at uv + k
    }
    if (k < width) {
        ScalarYuvToRgbaRow(y + k, uv + k, rgba + 4 * k, width - k);
    }
}

// ---- rgba2yuv420sp ----

// Eight values as doubles, two per register, in order. Plain members rather than an array, so
// that they stay in registers.
struct Doubles8 {
    float64x2_t d0, d1, d2, d3;
};

inline Doubles8 ToDouble(uint8x8_t bytes) {
    const uint16x8_t h = vmovl_u8(bytes);
    const uint32x4_t lo = vmovl_u16(vget_low_u16(h));
    const uint32x4_t hi = vmovl_high_u16(h);
    return {vcvtq_f64_u64(vmovl_u32(vget_low_u32(lo))), vcvtq_f64_u64(vmovl_high_u32(lo)),
            vcvtq_f64_u64(vmovl_u32(vget_low_u32(hi))), vcvtq_f64_u64(vmovl_high_u32(hi))};
}

// One of the double formulas, term order as written, over eight pixels.
template <class Formula>
inline Doubles8 Apply(Formula f, const Doubles8& r, const Doubles8& g, const Doubles8& b) {
    return {f(r.d0, g.d0, b.d0), f(r.d1, g.d1, b.d1), f(r.d2, g.d2, b.d2), f(r.d3, g.d3, b.d3)};
}
inline float64x2_t LumaD(float64x2_t r, float64x2_t g, float64x2_t b) {
    return vaddq_f64(vaddq_f64(vmulq_n_f64(r, 0.299), vmulq_n_f64(g, 0.587)),
                     vmulq_n_f64(b, 0.114));
}
inline float64x2_t ChromaUD(float64x2_t r, float64x2_t g, float64x2_t b) {
    return vaddq_f64(vaddq_f64(vmulq_n_f64(r, -0.14713), vmulq_n_f64(g, -0.28886)),
                     vmulq_n_f64(b, 0.436));
}
inline float64x2_t ChromaVD(float64x2_t r, float64x2_t g, float64x2_t b) {
    return vaddq_f64(vaddq_f64(vmulq_n_f64(r, 0.615), vmulq_n_f64(g, -0.51499)),
                     vmulq_n_f64(b, -0.10001));
}

// Truncated toward zero, plus `add`, clamped to 0..255. The values are far inside the int32
// range, so narrowing the 64-bit conversions loses nothing.
inline int32x4_t Trunc(float64x2_t lo, float64x2_t hi) {
    return vcombine_s32(vmovn_s64(vcvtq_s64_f64(lo)), vmovn_s64(vcvtq_s64_f64(hi)));
}
inline uint8x8_t TruncClamp(const Doubles8& d, int32_t add) {
    const int32x4_t a = vdupq_n_s32(add);
    return vqmovn_u16(vcombine_u16(vqmovun_s32(vaddq_s32(Trunc(d.d0, d.d1), a)),
                                   vqmovun_s32(vaddq_s32(Trunc(d.d2, d.d3), a))));
}

// Luma of 8 pixels by the double formula.
inline uint8x8_t LumaByDouble(uint8x8_t r, uint8x8_t g, uint8x8_t b) {
    return TruncClamp(Apply(LumaD, ToDouble(r), ToDouble(g), ToDouble(b)), 0);
}

// floor((299 R + 587 G + 114 B) / 1000) of 4 pixels; lanes whose sum is a multiple of 1000 are
// set in *onTheDot. The division is floor(floor(sum / 8) / 125), the latter (x * 33555) >> 22:
// exact for x < 2^15, as 33555 * 125 - 2^22 = 71 and 71 * 2^15 < 2^22 (sum <= 255000).
inline uint16x4_t LumaQuotient(uint16x4_t r, uint16x4_t g, uint16x4_t b, uint32x4_t* onTheDot) {
    const uint32x4_t sum = vmlal_n_u16(vmlal_n_u16(vmull_n_u16(r, kLumaR), g, kLumaG), b, kLumaB);
    const uint32x4_t q = vshrq_n_u32(vmulq_n_u32(vshrq_n_u32(sum, 3), 33555), 22);
    *onTheDot = vorrq_u32(*onTheDot, vceqq_u32(vmulq_n_u32(q, 1000), sum));
    return vmovn_u32(q);  // at most 255
}

inline void RgbaBlock(const uint8_t* rgba, uint8_t* y, uint8_t* uv) {
    const uint8x16x4_t px = vld4q_u8(rgba);  // R, G, B, A of 16 pixels
    const uint8x16_t r = px.val[0], g = px.val[1], b = px.val[2];
    const uint16x8_t rLo = vmovl_u8(vget_low_u8(r)), rHi = vmovl_high_u8(r);
    const uint16x8_t gLo = vmovl_u8(vget_low_u8(g)), gHi = vmovl_high_u8(g);
    const uint16x8_t bLo = vmovl_u8(vget_low_u8(b)), bHi = vmovl_high_u8(b);
    uint32x4_t onTheDot = vdupq_n_u32(0);
    const uint16x4_t q0 =
        LumaQuotient(vget_low_u16(rLo), vget_low_u16(gLo), vget_low_u16(bLo), &onTheDot);
    const uint16x4_t q1 =
        LumaQuotient(vget_high_u16(rLo), vget_high_u16(gLo), vget_high_u16(bLo), &onTheDot);
    const uint16x4_t q2 =
        LumaQuotient(vget_low_u16(rHi), vget_low_u16(gHi), vget_low_u16(bHi), &onTheDot);
    const uint16x4_t q3 =
        LumaQuotient(vget_high_u16(rHi), vget_high_u16(gHi), vget_high_u16(bHi), &onTheDot);
    uint8x16_t luma;
    if (vmaxvq_u32(onTheDot) != 0) {
        // A sum that is a multiple of 1000 (every grey pixel): the double sum may land just
        // below it.
        luma = vcombine_u8(LumaByDouble(vget_low_u8(r), vget_low_u8(g), vget_low_u8(b)),
                           LumaByDouble(vget_high_u8(r), vget_high_u8(g), vget_high_u8(b)));
    } else {
        luma = vcombine_u8(vmovn_u16(vcombine_u16(q0, q1)), vmovn_u16(vcombine_u16(q2, q3)));
    }
    vst1q_u8(y, luma);
    if (uv == nullptr) {
        return;
    }
    // The even pixels are the chroma samples.
    const Doubles8 rd = ToDouble(vget_low_u8(vuzp1q_u8(r, r)));
    const Doubles8 gd = ToDouble(vget_low_u8(vuzp1q_u8(g, g)));
    const Doubles8 bd = ToDouble(vget_low_u8(vuzp1q_u8(b, b)));
    uint8x8x2_t vu;
    vu.val[0] = TruncClamp(Apply(ChromaVD, rd, gd, bd), 128);
    vu.val[1] = TruncClamp(Apply(ChromaUD, rd, gd, bd), 128);
    vst2_u8(uv, vu);  // V, U of each pair
}

void NeonRgbaToYuvRow(const uint8_t* rgba, uint8_t* y, uint8_t* uv, int width) {
    int k = 0;
    for (; k + kBlock <= width; k += kBlock) {
        RgbaBlock(rgba + 4 * k, y + k, uv != nullptr ? uv + k : nullptr);
    }
    if (k < width) {
        ScalarRgbaToYuvRow(rgba + 4 * k, y + k, uv != nullptr ? uv + k : nullptr, width - k);
    }
}

}  // namespace

const RowKernels kNeonRowKernels = {"neon", NeonYuvToRgbaRow, NeonYuvToRgbaRow, NeonRgbaToYuvRow};

}  // namespace zol::colorconvert
