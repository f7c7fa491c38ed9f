// Stateless image-buffer utilities: plane copy, raw dump and read-back, a shallow directory
// walk, and colour conversion between NV21 (YUV 4:2:0 semi-planar, V then U) and packed RGBA.
// (Being written: the buffer-utility and colour-conversion work complete the comments.)
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "zolexport.h"
#include "zolimagebuffer.h"

class ZOL_EXPORT ZOLBufferUtil {
public:
    static void ZOLCopyPlane(unsigned char* dst, unsigned char* src, int rowBytes, int rows,
                             int dstStride, int srcStride);
    static bool ZOLBufferCopy(ZOLImageBuffer* dst, ZOLImageBuffer* src);
    static void ZOLDumpPlane(FILE* file, unsigned char* src, int rowBytes, int rows, int stride);
    static void ZOLReadPlane(FILE* file, unsigned char* dst, int rowBytes, int rows, int stride);
    static bool ZOLBufferDump(ZOLImageBuffer* buffer, const char* path);
    static bool ZOLReadBuffer(ZOLImageBuffer* buffer, char* path);
    static int traveDir(const char* path, int depth, std::vector<std::string>& names);
};

// A pointer into path just behind its last '/', or path itself when it has none.
ZOL_EXPORT const char* ZOLGetFileName(const char* path);

// ---- Colour conversion ----
//
// NV21 (a luma plane of one byte per pixel and a chroma plane of interleaved V, U byte pairs,
// one pair per 2 x 2 pixels) to and from packed RGBA (R, G, B, A bytes, `width` * 4 bytes per
// row, rows back to back, no stride). Both functions take the luma plane, the chroma plane, the
// RGBA image, the luma and chroma row pitches in bytes, and the size in pixels. They allocate
// nothing, check no pointer, log nothing and return nothing; a width or height below 1 does
// nothing. The planes must not overlap the RGBA image. Any thread may call them.
//
// Results are those of the BT.601 analogue equations in double precision, truncated toward zero
// and then clamped to 0..255, with u = U - 128, v = V - 128:
//   yuv420sp2rgba  R = Y + 1.13983 v,  G = (Y - 0.39465 u) - 0.5806 v,  B = 2.03211 u + Y,
//                  alpha 255;
//   rgba2yuv420sp  luma = (0.299 R + 0.587 G) + 0.114 B for every pixel;
//                  U = trunc((-0.14713 R - 0.28886 G) + 0.436 B) + 128 and
//                  V = trunc((0.615 R - 0.51499 G) - 0.10001 B) + 128, point-sampled at even
//                  rows and columns (no averaging); alpha is ignored.
// (The fast paths reach these bytes by exact integer and SIMD arithmetic; the output never
// depends on the CPU.)
//
// Addressing of row r, column k: luma at y + r * yStride + k; chroma pair at
// uv + (r * uvStride) / 2 + 2 * (k / 2), V first. The chroma row of an odd row therefore starts
// half a chroma row after that of the row above it, not at the same place:
// yuv420sp2rgba reads rows 0 and 1 from chroma offsets 0 and uvStride / 2. rgba2yuv420sp writes
// chroma only from even rows, at row r / 2. The products r * yStride and r * uvStride are int;
// sizes for which the last row's product overflows abort the process.
//
// Chroma plane size: on the last row, yuv420sp2rgba reads from ((height - 1) * uvStride) / 2 up
// to 2 * ((width + 1) / 2) bytes, which is half a chroma row past a plane of height / 2 rows
// when height is even (for 4000 x 3000 with uvStride 4000: 6,002,000 bytes, not 6,000,000).
// A chroma plane of ZOLYuv420spChromaBytes(uvStride, height) bytes serves both functions
// whenever uvStride >= 2 * ((width + 1) / 2).
inline std::size_t ZOLYuv420spChromaBytes(int uvStride, int height) {
    if (uvStride <= 0 || height <= 0) {
        return 0;
    }
    return static_cast<std::size_t>(height - 1) * static_cast<std::size_t>(uvStride) / 2 +
           static_cast<std::size_t>(uvStride);
}

ZOL_EXPORT void yuv420sp2rgba(unsigned char* y, unsigned char* uv, unsigned char* rgba, int yStride,
                              int uvStride, int width, int height);
ZOL_EXPORT void rgba2yuv420sp(unsigned char* y, unsigned char* uv, unsigned char* rgba, int yStride,
                              int uvStride, int width, int height);
