// The conversions written the plain way, one pixel at a time in double precision: what the
// library's kernels must reproduce byte for byte. Build with -ffp-contract=off.
#pragma once

namespace colorconvert_reference {

inline unsigned char Clamp(int v) {
    return static_cast<unsigned char>(v < 0 ? 0 : (v >= 255 ? 255 : v));
}

inline void YuvToRgbaPixel(int yByte, int uByte, int vByte, unsigned char* out) {
    const double y = yByte, u = uByte - 128, v = vByte - 128;
    const double r = y + 1.13983 * v;
    const double g = (y + (-0.39465) * u) + (-0.5806) * v;
    const double b = 2.03211 * u + y;
    out[0] = Clamp(static_cast<int>(r));
    out[1] = Clamp(static_cast<int>(g));
    out[2] = Clamp(static_cast<int>(b));
    out[3] = 255;
}

inline unsigned char Luma(int rByte, int gByte, int bByte) {
    const double r = rByte, g = gByte, b = bByte;
    return Clamp(static_cast<int>((0.299 * r + 0.587 * g) + 0.114 * b));
}
inline unsigned char ChromaU(int rByte, int gByte, int bByte) {
    const double r = rByte, g = gByte, b = bByte;
    return Clamp(static_cast<int>((-0.14713 * r + (-0.28886) * g) + 0.436 * b) + 128);
}
inline unsigned char ChromaV(int rByte, int gByte, int bByte) {
    const double r = rByte, g = gByte, b = bByte;
    return Clamp(static_cast<int>((0.615 * r + (-0.51499) * g) + (-0.10001) * b) + 128);
}

inline void Yuv420spToRgba(const unsigned char* y, const unsigned char* uv, unsigned char* rgba,
                           int yStride, int uvStride, int width, int height) {
    for (int r = 0; r < height; ++r) {
        for (int k = 0; k < width; ++k) {
            const unsigned char* pair = uv + (r * uvStride) / 2 + 2 * (k / 2);
            YuvToRgbaPixel(y[r * yStride + k], pair[1], pair[0], rgba + (r * width + k) * 4);
        }
    }
}

inline void RgbaToYuv420sp(unsigned char* y, unsigned char* uv, const unsigned char* rgba,
                           int yStride, int uvStride, int width, int height) {
    for (int r = 0; r < height; ++r) {
        for (int k = 0; k < width; ++k) {
            const unsigned char* px = rgba + (r * width + k) * 4;
            y[r * yStride + k] = Luma(px[0], px[1], px[2]);
            if (r % 2 == 0 && k % 2 == 0) {
                unsigned char* pair = uv + (r * uvStride) / 2 + k;
                pair[0] = ChromaV(px[0], px[1], px[2]);
                pair[1] = ChromaU(px[0], px[1], px[2]);
            }
        }
    }
}

}  // namespace colorconvert_reference
