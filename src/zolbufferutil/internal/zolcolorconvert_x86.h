// The x86-64 row kernels (one file per instruction set, each built with its own -m flags) and
// the block algorithm they share. Internal; included only by the x86-64 sources.
//
// A kernel converts blocks of 16 * kLanes pixels (kLanes 128-bit lanes per register) and hands
// the rest of a row to the next narrower kernel: AVX-512 -> AVX2 -> SSE4.1 -> scalar, so a CPU
// that runs one runs every narrower one.
#pragma once

#include <cstdint>

#include "zolbufferutil/internal/zolcolorconvert_rows.h"

namespace zol::colorconvert {

void Sse41YuvToRgbaRow(const uint8_t* y, const uint8_t* uv, uint8_t* rgba, int width);
void Sse41YuvToRgbaRowStreaming(const uint8_t* y, const uint8_t* uv, uint8_t* rgba, int width);
void Sse41RgbaToYuvRow(const uint8_t* rgba, uint8_t* y, uint8_t* uv, int width);
void Avx2YuvToRgbaRow(const uint8_t* y, const uint8_t* uv, uint8_t* rgba, int width);
void Avx2YuvToRgbaRowStreaming(const uint8_t* y, const uint8_t* uv, uint8_t* rgba, int width);
void Avx2RgbaToYuvRow(const uint8_t* rgba, uint8_t* y, uint8_t* uv, int width);
void Avx512YuvToRgbaRow(const uint8_t* y, const uint8_t* uv, uint8_t* rgba, int width);
void Avx512YuvToRgbaRowStreaming(const uint8_t* y, const uint8_t* uv, uint8_t* rgba, int width);
void Avx512RgbaToYuvRow(const uint8_t* rgba, uint8_t* y, uint8_t* uv, int width);

extern const RowKernels kSse41RowKernels;
extern const RowKernels kAvx2RowKernels;
extern const RowKernels kAvx512RowKernels;

// The block algorithm, written once over an instruction-set traits type S (see
// zolcolorconvert_sse41.cpp for the operations it provides). All operations work within 128-bit
// lanes; S::PermFwd / S::PermInv move 4-byte groups so that lane l handles groups l, L + l,
// 2L + l and 3L + l of a block, which makes the lane-local interleaving come out in memory order.
template <class S>
struct X86Rows {
    using V = typename S::V;
    static constexpr int kBlock = 16 * S::kLanes;

    // A 32-bit element holding two 16-bit values, lo first in memory.
    static constexpr int Pair16(int lo, int hi) {
        return static_cast<int>((static_cast<uint32_t>(hi) << 16) |
                                (static_cast<uint32_t>(lo) & 0xFFFF));
    }

    // R, G, B (16-bit, before clamping) of 8 pixels per lane: y16 their luma, vu16 their four
    // chroma pairs (zero-extended bytes).
    [[gnu::always_inline]] static inline void HalfToRgb(V y16, V vu16, V* r, V* g, V* b) {
        // [1.13983, 2.03211] = [1, 2] + [redFrac, blueFrac] / 2^16, applied to each [v, u].
        const V rbFrac = S::Set32(Pair16(kRedV - 65536, kBlueU - 131072));
        // kGreenU / kGreenV split as hi * 256 + lo, both 16-bit: pmaddwd multiplies 16 by 16.
        constexpr int kGvHi = (kGreenV + 128) >> 8, kGvLo = kGreenV - kGvHi * 256;
        constexpr int kGuHi = (kGreenU + 128) >> 8, kGuLo = kGreenU - kGuHi * 256;
        const V dupLowWord = S::Pattern(0, 1, 0, 1, 4, 5, 4, 5, 8, 9, 8, 9, 12, 13, 12, 13);
        const V dupHighWord = S::Pattern(2, 3, 2, 3, 6, 7, 6, 7, 10, 11, 10, 11, 14, 15, 14, 15);

        const V vu = S::Sub16(vu16, S::Set16(128));
        // [floor(1.13983 v), floor(2.03211 u)] per pair: [1, 2] * x + floor(x * frac / 2^16).
        const V rb = S::Add16(S::Mullo16(vu, S::Set32(Pair16(1, 2))), S::MulHi16(vu, rbFrac));
        *r = S::Add16(y16, S::Shuffle8(rb, dupLowWord));
        *b = S::Add16(y16, S::Shuffle8(rb, dupHighWord));
        const V t =
            S::MaddAdd16(S::MaddAdd16(S::Set32(kGreenBias), vu, S::Set32(Pair16(kGvLo, kGuLo))),
                         S::template Slli16<8>(vu), S::Set32(Pair16(kGvHi, kGuHi)));
        // The high word of t >> (shift - 16) is t >> shift, once per pixel of the pair.
        *g = S::Add16(y16, S::Shuffle8(S::template Srai32<kGreenShift - 16>(t), dupHighWord));
    }

    // One block, written in full; false when a chroma pair of kGreenDips occurs, whose pixels
    // FixGreenDips must then redo. kStream: rgba is register-aligned and written with streaming
    // stores.
    template <bool kStream>
    [[gnu::always_inline]] static inline bool YuvBlock(const uint8_t* y, const uint8_t* uv,
                                                       uint8_t* rgba) {
        const V yv = S::PermFwd(S::Load(y));
        const V uvv = S::PermFwd(S::Load(uv));
        const bool dips = S::AnyEq16(uvv, kGreenDips[0].pair, kGreenDips[1].pair);
        const V zero = S::Zero();
        V r16a, g16a, b16a, r16b, g16b, b16b;
        HalfToRgb(S::UnpackLo8(yv, zero), S::UnpackLo8(uvv, zero), &r16a, &g16a, &b16a);
        HalfToRgb(S::UnpackHi8(yv, zero), S::UnpackHi8(uvv, zero), &r16b, &g16b, &b16b);
        const V r8 = S::PackUS16(r16a, r16b);
        const V g8 = S::PackUS16(g16a, g16b);
        const V b8 = S::PackUS16(b16a, b16b);
        const V a8 = S::Set16(-1);
        const V rgLo = S::UnpackLo8(r8, g8), rgHi = S::UnpackHi8(r8, g8);
        const V baLo = S::UnpackLo8(b8, a8), baHi = S::UnpackHi8(b8, a8);
        constexpr int kStep = 16 * S::kLanes;  // bytes per register
        const auto store = kStream ? S::StoreStream : S::Store;
        store(rgba, S::UnpackLo16(rgLo, baLo));
        store(rgba + kStep, S::UnpackHi16(rgLo, baLo));
        store(rgba + 2 * kStep, S::UnpackLo16(rgHi, baHi));
        store(rgba + 3 * kStep, S::UnpackHi16(rgHi, baHi));
        return !dips;
    }

    // Redoes, with the scalar kernel, the pixel pairs of a block whose chroma pair is one of
    // kGreenDips (rare: two of 65536 pairs).
    static void FixGreenDips(const uint8_t* y, const uint8_t* uv, uint8_t* rgba) {
        for (int k = 0; k < kBlock; k += 2) {
            const int pair = uv[k] | uv[k + 1] << 8;
            if (pair == kGreenDips[0].pair || pair == kGreenDips[1].pair) {
                ScalarYuvToRgbaRow(y + k, uv + k, rgba + 4 * k, 2);
            }
        }
    }

    static void YuvToRgbaRow(const uint8_t* y, const uint8_t* uv, uint8_t* rgba, int width) {
        int k = 0;
        for (; k + kBlock <= width; k += kBlock) {
            if (!YuvBlock<false>(y + k, uv + k, rgba + 4 * k)) {
                FixGreenDips(y + k, uv + k, rgba + 4 * k);
            }
        }
        if (k < width) {
            S::kNarrowerYuvToRgba(y + k, uv + k, rgba + 4 * k, width - k);
        }
    }

    // As YuvToRgbaRow, with streaming stores from the first register-aligned pixel on. Blocks
    // must start at even pixels (whole chroma pairs), so rgba must be 8-byte aligned; if it is
    // not, the row is written with ordinary stores.
    static void YuvToRgbaRowStreaming(const uint8_t* y, const uint8_t* uv, uint8_t* rgba,
                                      int width) {
        constexpr uintptr_t kAlign = 16 * S::kLanes;
        const uintptr_t address = reinterpret_cast<uintptr_t>(rgba);
        int k = static_cast<int>(((kAlign - address % kAlign) % kAlign) / 4);
        if (address % 8 != 0 || k + kBlock > width) {
            YuvToRgbaRow(y, uv, rgba, width);
            return;
        }
        S::kNarrowerYuvToRgba(y, uv, rgba, k);
        for (; k + kBlock <= width; k += kBlock) {
            if (!YuvBlock<true>(y + k, uv + k, rgba + 4 * k)) {
                FixGreenDips(y + k, uv + k, rgba + 4 * k);
            }
        }
        if (k < width) {
            S::kNarrowerYuvToRgba(y + k, uv + k, rgba + 4 * k, width - k);
        }
        // Streaming stores are weakly ordered: make them visible before the caller hands the
        // image on.
        S::StoreFence();
    }

    // R, G and B of packed RGBA pixels, one per 32-bit element, as doubles (lo: the first half
    // of the elements, hi: the second).
    [[gnu::always_inline]] static inline void RgbToDouble(V px, typename S::D* lo,
                                                          typename S::D* hi) {
        const V byte = S::Set32(0xFF);
        S::ToDouble(S::And(px, byte), &lo[0], &hi[0]);
        S::ToDouble(S::And(S::template Srli32<8>(px), byte), &lo[1], &hi[1]);
        S::ToDouble(S::And(S::template Srli32<16>(px), byte), &lo[2], &hi[2]);
    }
    [[gnu::always_inline]] static inline typename S::D Luma(const typename S::D* rgb) {
        return S::AddD(S::AddD(S::MulD(S::SetD(0.299), rgb[0]), S::MulD(S::SetD(0.587), rgb[1])),
                       S::MulD(S::SetD(0.114), rgb[2]));
    }
    [[gnu::always_inline]] static inline typename S::D ChromaU(const typename S::D* rgb) {
        return S::AddD(
            S::AddD(S::MulD(S::SetD(-0.14713), rgb[0]), S::MulD(S::SetD(-0.28886), rgb[1])),
            S::MulD(S::SetD(0.436), rgb[2]));
    }
    [[gnu::always_inline]] static inline typename S::D ChromaV(const typename S::D* rgb) {
        return S::AddD(S::AddD(S::MulD(S::SetD(0.615), rgb[0]), S::MulD(S::SetD(-0.51499), rgb[1])),
                       S::MulD(S::SetD(-0.10001), rgb[2]));
    }

    // trunc(t / 100000) for |t| < 2^24, exact in float unless t is a non-zero multiple of
    // 100000 (then *special is set and the result is not to be used). The products compared
    // are exact in float too.
    [[gnu::always_inline]] static inline V TruncDiv100000(V t, bool* special) {
        const typename S::F ft = S::CvtF(t);
        const typename S::F f = S::MulF(ft, S::SetF(1e-5f));
        const V nearest = S::CvtNearestF(f);
        *special = *special ||
                   S::AnyEqNonZeroF(ft, S::MulF(S::CvtF(nearest), S::SetF(100000.0f)), nearest);
        return S::CvttF(f);
    }

    // Chroma (trunc, before the + 128) of one register of even pixels. The decimal sums
    //   U * 100000 = -14713 R - 28886 G + 43600 B,  V * 100000 = 61500 R - 51499 G - 10001 B
    // are 16-bit multiply-adds over [R, B] and [G, A] pairs, then divided in float. The pairs
    // read as 32-bit numbers are R + 65536 B and G + 65536 A; shifted left by 16, R << 16 and
    // G << 16. They make up the coefficients a 16-bit multiplier cannot hold:
    //   43600 B = -21936 B + 65536 B,  61500 R = -4036 R + 65536 R,  -51499 G = 14037 G - 65536 G.
    [[gnu::always_inline]] static inline void ChromaOf(V even, V* u, V* v) {
        const V rb = S::And(even, S::Set32(0x00FF00FF));  // R, B
        const V ga = S::template Srli16<8>(even);         // G, A
        const V tu = S::MaddAdd16(S::MaddAdd16(rb, rb, S::Set32(Pair16(-14714, -21936))), ga,
                                  S::Set32(Pair16(-28886, 0)));
        const V rMinusG = S::Sub32(S::template Slli32<16>(rb), S::template Slli32<16>(ga));
        const V tv = S::MaddAdd16(S::MaddAdd16(rMinusG, rb, S::Set32(Pair16(-4036, -10001))), ga,
                                  S::Set32(Pair16(14037, 0)));
        bool special = false;
        *u = TruncDiv100000(tu, &special);
        *v = TruncDiv100000(tv, &special);
        if (special) {
            typename S::D lo[3], hi[3];
            RgbToDouble(even, lo, hi);
            *u = S::TruncToInt(ChromaU(lo), ChromaU(hi));
            *v = S::TruncToInt(ChromaV(lo), ChromaV(hi));
        }
    }

    // Luma of one register of pixels.
    [[gnu::always_inline]] static inline V LumaOf(V px) {
        // 299 R + 587 G + 114 B = 256 (R + 2 G) + (43 R + 75 G + 114 B): byte multipliers.
        static_assert(kLumaR == 256 + 43 && kLumaG == 512 + 75 && kLumaB == 114, "");
        const V sum = S::DotBytesAdd(S::template Slli32<8>(S::DotBytes2(px, S::Set32(1 | 2 << 8))),
                                     px, S::Set32(43 | 75 << 8 | 114 << 16));
        // floor(sum / 1000) is sum * 0.001f truncated, for every sum up to 255000 (0.001f is a
        // little above 0.001, so multiples of 1000 do not fall below their quotient). Where sum
        // is a multiple of 1000 the double formula decides; those are exactly the sums whose
        // product has a fractional part below 0.0005 (it is 0.00098 or more for the others).
        const typename S::F quotient = S::MulF(S::CvtF(sum), S::SetF(0.001f));
        const V q = S::CvttF(quotient);
        if (S::AnyFractionBelow(quotient, 0.0005f)) {
            typename S::D lo[3], hi[3];
            RgbToDouble(px, lo, hi);
            return S::TruncToInt(Luma(lo), Luma(hi));
        }
        return q;
    }

    [[gnu::always_inline]] static inline void RgbaBlock(const uint8_t* rgba, uint8_t* y,
                                                        uint8_t* uv) {
        constexpr int kStep = 16 * S::kLanes;
        const V px0 = S::Load(rgba), px1 = S::Load(rgba + kStep);
        const V px2 = S::Load(rgba + 2 * kStep), px3 = S::Load(rgba + 3 * kStep);
        const V luma0 = LumaOf(px0), luma1 = LumaOf(px1), luma2 = LumaOf(px2), luma3 = LumaOf(px3);
        const V luma8 = S::PackUS16(S::PackS32(luma0, luma1), S::PackS32(luma2, luma3));
        S::Store(y, S::PermInv(luma8));
        if (uv == nullptr) {
            return;
        }
        V u01, v01, u23, v23;
        ChromaOf(S::EvenOfPairs(px0, px1), &u01, &v01);
        ChromaOf(S::EvenOfPairs(px2, px3), &u23, &v23);
        const V c128 = S::Set16(128);
        const V u16 = S::Add16(S::PackS32(u01, u23), c128);
        const V v16 = S::Add16(S::PackS32(v01, v23), c128);
        const V vu = S::Shuffle8(S::PackUS16(v16, u16),
                                 S::Pattern(0, 8, 1, 9, 2, 10, 3, 11, 4, 12, 5, 13, 6, 14, 7, 15));
        S::Store(uv, S::PermInv(vu));
    }

    static void RgbaToYuvRow(const uint8_t* rgba, uint8_t* y, uint8_t* uv, int width) {
        int k = 0;
        for (; k + kBlock <= width; k += kBlock) {
            RgbaBlock(rgba + 4 * k, y + k, uv != nullptr ? uv + k : nullptr);
        }
        if (k < width) {
            S::kNarrowerRgbaToYuv(rgba + 4 * k, y + k, uv != nullptr ? uv + k : nullptr, width - k);
        }
    }
};

}  // namespace zol::colorconvert
