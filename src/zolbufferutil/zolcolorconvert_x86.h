// The x86-64 row kernels (one file per instruction set, each built with its own -m flags) and
// the block algorithm they share. Internal; included only by the x86-64 sources.
//
// A kernel converts blocks of 16 * kLanes pixels (kLanes 128-bit lanes per register) and hands
// the rest of a row to the next narrower kernel: AVX-512 -> AVX2 -> SSE4.1 -> scalar, so a CPU
// that runs one runs every narrower one.
#pragma once

#include <cstdint>

#include "zolbufferutil/zolcolorconvert_rows.h"

namespace zol::colorconvert {

void Sse41YuvToRgbaRow(const uint8_t* y, const uint8_t* uv, uint8_t* rgba, int width);
void Sse41RgbaToYuvRow(const uint8_t* rgba, uint8_t* y, uint8_t* uv, int width);
void Avx2YuvToRgbaRow(const uint8_t* y, const uint8_t* uv, uint8_t* rgba, int width);
void Avx2RgbaToYuvRow(const uint8_t* rgba, uint8_t* y, uint8_t* uv, int width);
void Avx512YuvToRgbaRow(const uint8_t* y, const uint8_t* uv, uint8_t* rgba, int width);
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

    // One block; false (nothing written) when a chroma pair of kGreenDips occurs.
    [[gnu::always_inline]] static inline bool YuvBlock(const uint8_t* y, const uint8_t* uv,
                                                       uint8_t* rgba) {
        const V yv = S::PermFwd(S::Load(y));
        const V uvv = S::PermFwd(S::Load(uv));
        if (S::AnyEq16(uvv, kGreenDips[0].pair, kGreenDips[1].pair)) {
            return false;
        }
        const V zero = S::Zero();
        const V c128 = S::Set16(128);
        // [1.13983, 2.03211] = [1, 2] + [redFrac, blueFrac] / 2^16, applied to each [v, u].
        const V rbFrac = S::Set32(Pair16(kRedV - 65536, kBlueU - 131072));
        const V uOnly = S::Set32(Pair16(0, 0xFFFF));
        // kGreenU / kGreenV split as hi * 256 + lo, both 16-bit: pmaddwd multiplies 16 by 16.
        constexpr int kGvHi = (kGreenV + 128) >> 8, kGvLo = kGreenV - kGvHi * 256;
        constexpr int kGuHi = (kGreenU + 128) >> 8, kGuLo = kGreenU - kGuHi * 256;
        const V greenLo = S::Set32(Pair16(kGvLo, kGuLo));
        const V greenHi = S::Set32(Pair16(kGvHi, kGuHi));
        const V greenBias = S::Set32(kGreenBias);
        const V dupLowWord = S::Pattern(0, 1, 0, 1, 4, 5, 4, 5, 8, 9, 8, 9, 12, 13, 12, 13);
        const V dupHighWord = S::Pattern(2, 3, 2, 3, 6, 7, 6, 7, 10, 11, 10, 11, 14, 15, 14, 15);

        V r16[2], g16[2], b16[2];
        for (int h = 0; h < 2; ++h) {
            // Pixels 0-7 (h 0) or 8-15 (h 1) of each lane, and their four chroma pairs.
            const V y16 = h ? S::UnpackHi8(yv, zero) : S::UnpackLo8(yv, zero);
            const V vu16 = S::Sub16(h ? S::UnpackHi8(uvv, zero) : S::UnpackLo8(uvv, zero), c128);
            // [floor(1.13983 v), floor(2.03211 u)] per pair: x + floor(x * frac / 2^16), plus u
            // once more for blue.
            const V rb = S::Add16(S::Add16(S::MulHi16(vu16, rbFrac), vu16), S::And(vu16, uOnly));
            r16[h] = S::Add16(y16, S::Shuffle8(rb, dupLowWord));
            b16[h] = S::Add16(y16, S::Shuffle8(rb, dupHighWord));
            const V t = S::Add32(
                S::Add32(S::Madd16(vu16, greenLo), S::template Slli32<8>(S::Madd16(vu16, greenHi))),
                greenBias);
            // The high word of t >> (shift - 16) is t >> shift, once per pixel of the pair.
            const V dg = S::Shuffle8(S::template Srai32<kGreenShift - 16>(t), dupHighWord);
            g16[h] = S::Add16(y16, dg);
        }
        const V r8 = S::PackUS16(r16[0], r16[1]);
        const V g8 = S::PackUS16(g16[0], g16[1]);
        const V b8 = S::PackUS16(b16[0], b16[1]);
        const V a8 = S::Set16(-1);
        const V rgLo = S::UnpackLo8(r8, g8), rgHi = S::UnpackHi8(r8, g8);
        const V baLo = S::UnpackLo8(b8, a8), baHi = S::UnpackHi8(b8, a8);
        constexpr int kStep = 16 * S::kLanes;  // bytes per register
        S::Store(rgba, S::UnpackLo16(rgLo, baLo));
        S::Store(rgba + kStep, S::UnpackHi16(rgLo, baLo));
        S::Store(rgba + 2 * kStep, S::UnpackLo16(rgHi, baHi));
        S::Store(rgba + 3 * kStep, S::UnpackHi16(rgHi, baHi));
        return true;
    }

    static void YuvToRgbaRow(const uint8_t* y, const uint8_t* uv, uint8_t* rgba, int width) {
        int k = 0;
        for (; k + kBlock <= width; k += kBlock) {
            if (!YuvBlock(y + k, uv + k, rgba + 4 * k)) {
                ScalarYuvToRgbaRow(y + k, uv + k, rgba + 4 * k, kBlock);
            }
        }
        if (k < width) {
            S::kNarrowerYuvToRgba(y + k, uv + k, rgba + 4 * k, width - k);
        }
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
    // 100000 (then *special is set and the result is not to be used).
    [[gnu::always_inline]] static inline V TruncDiv100000(V t, bool* special) {
        const typename S::F f = S::MulF(S::CvtF(t), S::SetF(1e-5f));
        const V nearest = S::CvtNearestF(f);
        *special = *special || S::AnyEqNonZero(t, S::Mullo32(nearest, S::Set32(100000)), nearest);
        return S::CvttF(f);
    }

    [[gnu::always_inline]] static inline void RgbaBlock(const uint8_t* rgba, uint8_t* y,
                                                        uint8_t* uv) {
        constexpr int kStep = 16 * S::kLanes;
        // 299 R + 587 G + 114 B = 256 (R + 2 G) + (43 R + 75 G + 114 B), from two pmaddubsw.
        static_assert(kLumaR == 256 + 43 && kLumaG == 512 + 75 && kLumaB == 114, "");
        const V lumaLow = S::Set32(43 | 75 << 8 | 114 << 16);
        const V lumaHigh = S::Set32(1 | 2 << 8);
        const V ones16 = S::Set16(1);
        const V thousand = S::Set32(1000);
        V px[4], luma[4];
        for (int i = 0; i < 4; ++i) {
            px[i] = S::Load(rgba + i * kStep);
            const V sum = S::Add32(S::Madd16(S::MaddUbs(px[i], lumaLow), ones16),
                                   S::template Slli32<8>(S::MaddUbs(px[i], lumaHigh)));
            // floor(sum / 1000): (sum + 0.5) / 1000 in float is exact for every sum up to
            // 255000; where sum is a multiple of 1000 the double formula decides.
            luma[i] = S::CvttF(S::MulF(S::AddF(S::CvtF(sum), S::SetF(0.5f)), S::SetF(0.001f)));
            if (S::AnyEq32(sum, S::Mullo32(luma[i], thousand))) {
                typename S::D lo[3], hi[3];
                RgbToDouble(px[i], lo, hi);
                luma[i] = S::TruncToInt(Luma(lo), Luma(hi));
            }
        }
        const V luma8 = S::PackUS16(S::PackS32(luma[0], luma[1]), S::PackS32(luma[2], luma[3]));
        S::Store(y, S::PermInv(luma8));
        if (uv == nullptr) {
            return;
        }
        // Chroma of the even pixels: the decimal sums
        //   U * 100000 = -14713 R - 28886 G + 43600 B,  V * 100000 = 61500 R - 51499 G - 10001 B
        // as 16-bit multiply-adds over [R, B] and [G, A] pairs, then divided in float.
        const V rbU = S::Set32(Pair16(-14713, 21800)), bU = S::Set32(Pair16(0, 21800));
        const V gU = S::Set32(Pair16(-28886, 0));
        const V rbV = S::Set32(Pair16(30750, -10001)), rV = S::Set32(Pair16(30750, 0));
        const V gV1 = S::Set32(Pair16(-25750, 0)), gV2 = S::Set32(Pair16(-25749, 0));
        const V lowBytes = S::Set32(0x00FF00FF);
        V u32[2], v32[2];
        for (int j = 0; j < 2; ++j) {
            const V even = S::EvenOfPairs(px[2 * j], px[2 * j + 1]);
            const V rb = S::And(even, lowBytes);       // R, B
            const V ga = S::template Srli16<8>(even);  // G, A
            const V tu =
                S::Add32(S::Add32(S::Madd16(rb, rbU), S::Madd16(rb, bU)), S::Madd16(ga, gU));
            const V tv = S::Add32(S::Add32(S::Madd16(rb, rbV), S::Madd16(rb, rV)),
                                  S::Add32(S::Madd16(ga, gV1), S::Madd16(ga, gV2)));
            bool special = false;
            u32[j] = TruncDiv100000(tu, &special);
            v32[j] = TruncDiv100000(tv, &special);
            if (special) {
                typename S::D lo[3], hi[3];
                RgbToDouble(even, lo, hi);
                u32[j] = S::TruncToInt(ChromaU(lo), ChromaU(hi));
                v32[j] = S::TruncToInt(ChromaV(lo), ChromaV(hi));
            }
        }
        const V c128 = S::Set16(128);
        const V u16 = S::Add16(S::PackS32(u32[0], u32[1]), c128);
        const V v16 = S::Add16(S::PackS32(v32[0], v32[1]), c128);
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
