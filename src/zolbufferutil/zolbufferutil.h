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
ZOL_EXPORT void yuv420sp2rgba(unsigned char* y, unsigned char* uv, unsigned char* rgba, int yStride,
                              int uvStride, int width, int height);
ZOL_EXPORT void rgba2yuv420sp(unsigned char* y, unsigned char* uv, unsigned char* rgba, int yStride,
                              int uvStride, int width, int height);
