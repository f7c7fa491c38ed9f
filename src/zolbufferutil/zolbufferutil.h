// Stateless image-buffer utilities: plane copy, raw dump and read-back, a shallow directory
// walk, and colour conversion between NV21 (YUV 4:2:0 semi-planar, V then U) and packed RGBA.
//
// Nothing here keeps state or allocates (apart from the names traveDir appends): every call may
// run on any thread, as long as calls on the same buffer or file are serialised by the caller.
// The caller owns every buffer, FILE and path passed in. Cache synchronisation of DMA buffers
// around these calls is the caller's duty (ZOLBufferManager::StartCPUSync / EndCPUSync).
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "zolexport.h"
#include "zolimagebuffer.h"

// ---- Copy, dump and read ----
//
// Only `format`, `width`, `height`, `planeStride`, `Addr[0]` and `Addr[1]` of a ZOLImageBuffer
// are used; plane 1 is always found through Addr[1], and both planes advance `planeStride`
// bytes per row. Raw files hold the payload of each row only (no stride padding, no header),
// plane 0 rows first, then plane 1 rows. Row bytes come from `width`, rows from `height`
// (integer division):
//
//   format  plane 0 rows x bytes     plane 1 rows x bytes         dump  read back
//   0, 1    height x width           height/2 x width   (h >= 2)  yes   yes
//   2       -                        -                            no    no
//   3       height x width*12/8      -                            yes   yes
//   4       height x width*14/8      -                            yes   no
//   5       height x width*2         -                            yes   yes
//   6       height x width*2         height/2 x width*2 (h >= 2)  yes   yes
//   7       height x width           -                            yes   yes
//   8..14   height x width*2         -                            yes   no
//   >= 15   -                        -                            no    no
//
// A dump of format 4 or 8..14 therefore cannot be read back. Where a format is not handled the
// error line "unknow format: %d" is written whatever ZOLToolsLogLevel says, and the result is
// still true. A row size that does not fit in 32 bits (width x 2, x 12, x 14) aborts the
// process. Every row moves straight between the plane and its destination: nothing is staged.
// ZOLBufferCopy copies a row with one memcpy; ZOLBufferDump and ZOLReadBuffer gather up to 128
// rows into one vectored system call (a plane without stride padding is one span) and use under
// 4 KiB of the calling thread's stack, so they suit the small stacks of algorithm threads.
class ZOL_EXPORT ZOLBufferUtil {
public:
    // Copies `rows` rows of `rowBytes` bytes, `dst` advancing `dstStride` and `src` advancing
    // `srcStride` bytes per row. Nothing happens when rows (or rowBytes) is below 1.
    static void ZOLCopyPlane(unsigned char* dst, unsigned char* src, int rowBytes, int rows,
                             int dstStride, int srcStride);

    // Copies the pixels of `src` into `dst`. The sizes must match, or match transposed (src
    // width == dst height and src height == dst width); a transposed match does not rotate:
    // the source's rows still land row by row in the destination's rows. If either buffer has
    // format 0 or 1, plane 0 (height rows of width bytes) and plane 1 (height/2 rows, only when
    // height >= 2) are copied; otherwise, if either has format 5, plane 0 with width*2 bytes
    // per row. Row sizes always come from `src`, strides from each buffer. False, with nothing
    // copied and nothing logged, for other sizes or formats (and for a null buffer).
    static bool ZOLBufferCopy(ZOLImageBuffer* dst, ZOLImageBuffer* src);

    // Writes `rows` rows of `rowBytes` bytes from `src` (advancing `stride` per row) to `file`,
    // one fwrite per row. Write errors are not checked.
    static void ZOLDumpPlane(FILE* file, unsigned char* src, int rowBytes, int rows, int stride);

    // The mirror of ZOLDumpPlane: one fread per row into `dst`. Short reads are not checked.
    static void ZOLReadPlane(FILE* file, unsigned char* dst, int rowBytes, int rows, int stride);

    // Writes the buffer's planes to `path` (created or truncated) per the table above. False,
    // with no log line, only when the file cannot be opened; an unknown format leaves it empty.
    static bool ZOLBufferDump(ZOLImageBuffer* buffer, const char* path);

    // Fills the buffer's planes from `path`, interpreted entirely through the buffer's own
    // geometry; the planes must be allocated by the caller. Before anything else the first
    // eight bytes of Addr[0] and of Addr[1] are set to zero, whatever the format, so both
    // pointers must be valid for eight bytes (a null plane pointer is left alone). A short file
    // leaves the rows it does not reach as they were. False, with no log line, only when the
    // file cannot be opened or is not a regular file (a FIFO is refused without blocking).
    static bool ZOLReadBuffer(ZOLImageBuffer* buffer, char* path);

    // Appends to `names` the entries of the directory `path` that do not begin with '.', as
    // bare names in directory-stream order (unsorted). Each name is then stat()ed as it stands,
    // that is relative to the current working directory, not to `path`; when that finds a
    // directory and depth <= 1, the walk descends into it with depth + 1 and its names follow
    // its own. So only depth >= 2 lists exactly one level, and depth 0 or 1 descends only when
    // the working directory is `path`. Returns 0, or -1 when `path` cannot be opened (nothing
    // is appended then); callers need not look at it.
    static int traveDir(const char* path, int depth, std::vector<std::string>& names);
};

// A pointer into `path` just behind its last '/', or `path` itself when it has none ("a/b/c.yuv"
// gives "c.yuv", "a/" gives ""). Nothing is copied.
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
// depends on the CPU. On x86-64, RGBA outputs of 16 MiB or more are written with streaming
// stores, which bypass the caches: such an image would not stay cached anyway.)
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
