// Row kernels behind yuv420sp2rgba() and rgba2yuv420sp(), and the choice among them. Internal.
//
// The public functions walk the rows (and own the row addressing); a kernel converts one row of
// `width` pixels. Every kernel produces, byte for byte, what the double-precision formulas give
// (see zolbufferutil.h); the SIMD ones get there through the integer formulation below, which is
// exact for every input, and fall back to the double formulas where it is not decisive.
//
// Kernel sets per target, as sibling files picked by the build:
//   every target   zolcolorconvert_scalar.cpp (portable integer formulation)
//   x86-64         zolcolorconvert_{sse41,avx2,avx512}.cpp, chosen at run time by
//                  zolcolorconvert_dispatch_x86.cpp
//   arm64          zolcolorconvert_neon.cpp, always, by zolcolorconvert_dispatch_arm64.cpp
//   other targets  zolcolorconvert_dispatch_generic.cpp (scalar only)
#pragma once

#include <cstddef>
#include <cstdint>

namespace zol::colorconvert {

// One row: y and uv point at the row's luma and chroma start, rgba at its packed pixels. Chroma
// pair k/2 (bytes 2*(k/2): V, 2*(k/2)+1: U) serves pixels k and k+1; for an odd width the last
// pair's U byte is read too. RgbaToYuvRow writes chroma only when uv is not null.
using YuvToRgbaRowFn = void (*)(const uint8_t* y, const uint8_t* uv, uint8_t* rgba, int width);
using RgbaToYuvRowFn = void (*)(const uint8_t* rgba, uint8_t* y, uint8_t* uv, int width);

struct RowKernels {
    const char* name;
    YuvToRgbaRowFn yuvToRgba;
    // The same output, written with streaming stores where the kernel has them: for images
    // too large to stay cached, where they save the read of every destination line.
    YuvToRgbaRowFn yuvToRgbaStreaming;
    RgbaToYuvRowFn rgbaToYuv;
};

// RGBA outputs from this size on are written with streaming stores (kernels that have them).
constexpr size_t kStreamingOutputBytes = size_t{16} << 20;

// ---- The integer formulation of yuv420sp2rgba (u = U - 128, v = V - 128) ----
// R = clamp(Y + floor(1.13983 v)), B = clamp(Y + floor(2.03211 u)): the decimal product is an
// integer only at 0, so the double sum truncates exactly where the decimal one floors. Both
// floors are (c * x) >> 16 for the constants below (checked for all 256 inputs).
constexpr int kRedV = 74697;    // 1.13983 * 2^16, rounded so the floor is exact
constexpr int kBlueU = 133170;  // 2.03211 * 2^16, likewise
// G = clamp(Y + floor(-0.39465 u - 0.5806 v)) = clamp(Y + ((kGreenU u + kGreenV v + 4) >> 18)),
// exact for all 65536 (u, v) except where the chroma term is itself an integer, which happens
// for five pairs; for two of them the double sum lands just below the integer for some Y and
// truncates one lower. kGreenDips lists those cases.
constexpr int kGreenU = -103455;
constexpr int kGreenV = -152201;
constexpr int kGreenBias = 4;
constexpr int kGreenShift = 18;

struct GreenDip {
    int u, v;       // the chroma pair, minus 128
    int yLo, yHi;   // luma range over which the double G is one lower
    uint16_t pair;  // the pair as stored, V | U << 8
};
constexpr GreenDip kGreenDips[] = {
    {60, 35, 56, 76, (35 + 128) | (60 + 128) << 8},
    {120, 70, 112, 152, (70 + 128) | (120 + 128) << 8},
};

// ---- The integer formulation of rgba2yuv420sp ----
// Luma = floor((299 R + 587 G + 114 B) / 1000) unless that sum is a multiple of 1000, where the
// double sum may land just below the integer: there the double formula decides. Chroma uses the
// double formulas directly.
constexpr int kLumaR = 299;
constexpr int kLumaG = 587;
constexpr int kLumaB = 114;

// Portable kernels; also the tails and fix-ups of the SIMD ones.
void ScalarYuvToRgbaRow(const uint8_t* y, const uint8_t* uv, uint8_t* rgba, int width);
void ScalarRgbaToYuvRow(const uint8_t* rgba, uint8_t* y, uint8_t* uv, int width);
extern const RowKernels kScalarRowKernels;

// The kernel sets of this build that this CPU can run, fastest first; the last is always
// kScalarRowKernels.
struct RowKernelList {
    const RowKernels* const* items;
    int count;
};
RowKernelList SupportedRowKernels();

// The set the conversions use: the first supported one, chosen once.
const RowKernels& ActiveRowKernels();

// Test hook: makes `kernels` (one of SupportedRowKernels()) the active set; nullptr restores
// the choice made for this CPU.
void OverrideRowKernelsForTest(const RowKernels* kernels);

}  // namespace zol::colorconvert
