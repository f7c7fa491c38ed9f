// Portable row kernels: the integer formulation of zolcolorconvert_rows.h, one pixel at a time.
// They also convert the SIMD kernels' row tails and the rare pixel pairs those hand back.
#include "zolbufferutil/internal/zolcolorconvert_rows.h"

namespace zol::colorconvert {
namespace {

// The shifts below floor negative values: arithmetic right shift, which every supported
// compiler gives (and C++20 requires).
static_assert((-3 >> 1) == -2, "arithmetic right shift expected");

inline uint8_t Clamp255(int v) {
    return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
}

inline int GreenDip(int u, int v, int y) {
    for (const auto& dip : kGreenDips) {
        if (u == dip.u && v == dip.v && y >= dip.yLo && y <= dip.yHi) {
            return 1;
        }
    }
    return 0;
}

inline void PutPixel(uint8_t* out, int y, int dr, int dg, int db, bool dips, int u, int v) {
    out[0] = Clamp255(y + dr);
    out[1] = Clamp255(y + dg - (dips ? GreenDip(u, v, y) : 0));
    out[2] = Clamp255(y + db);
    out[3] = 255;
}

// The chroma formulas are used as they stand: cheap at one pixel in four, and exact by
// construction.
inline uint8_t ChromaU(double r, double g, double b) {
    return Clamp255(static_cast<int>((-0.14713 * r + (-0.28886) * g) + 0.436 * b) + 128);
}
inline uint8_t ChromaV(double r, double g, double b) {
    return Clamp255(static_cast<int>((0.615 * r + (-0.51499) * g) + (-0.10001) * b) + 128);
}

}  // namespace

void ScalarYuvToRgbaRow(const uint8_t* y, const uint8_t* uv, uint8_t* rgba, int width) {
    for (int k = 0; k < width; k += 2) {
        const int v = uv[k] - 128;
        const int u = uv[k + 1] - 128;
        const int dr = (kRedV * v) >> 16;
        const int db = (kBlueU * u) >> 16;
        const int dg = (kGreenU * u + kGreenV * v + kGreenBias) >> kGreenShift;
        const bool dips = (u == kGreenDips[0].u && v == kGreenDips[0].v) ||
                          (u == kGreenDips[1].u && v == kGreenDips[1].v);
        PutPixel(rgba + 4 * k, y[k], dr, dg, db, dips, u, v);
        if (k + 1 < width) {
            PutPixel(rgba + 4 * (k + 1), y[k + 1], dr, dg, db, dips, u, v);
        }
    }
}

void ScalarRgbaToYuvRow(const uint8_t* rgba, uint8_t* y, uint8_t* uv, int width) {
    for (int k = 0; k < width; ++k) {
        const uint8_t* px = rgba + 4 * k;
        const int r = px[0], g = px[1], b = px[2];
        const int sum = kLumaR * r + kLumaG * g + kLumaB * b;
        int luma = sum / 1000;
        if (sum % 1000 == 0) {
            luma = static_cast<int>((0.299 * r + 0.587 * g) + 0.114 * b);
        }
        y[k] = Clamp255(luma);
        if (uv != nullptr && (k & 1) == 0) {
            uv[k] = ChromaV(r, g, b);
            uv[k + 1] = ChromaU(r, g, b);
        }
    }
}

const RowKernels kScalarRowKernels = {"scalar", ScalarYuvToRgbaRow, ScalarYuvToRgbaRow,
                                      ScalarRgbaToYuvRow};

}  // namespace zol::colorconvert
