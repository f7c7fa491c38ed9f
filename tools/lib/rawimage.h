// Raw frames as the library dumps them (rows without stride padding, plane 0 then plane 1, no
// header) and their conversion to and from packed RGBA through the library's own colour
// functions, yuv420sp2rgba and rgba2yuv420sp.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zoltool {

// Bytes a dump of an image with this format code and size holds: the library's plane table
// (formats 0 and 1: height rows of width bytes, then height/2 rows of width bytes when height
// is 2 or more; format 3: width*12/8 bytes a row; ...). Formats 2 and 15 or more are dumped as
// empty files, so they expect 0. Computed in 64 bits.
uint64_t RawFrameBytes(uint32_t format, uint32_t width, uint32_t height);

// A short name for a format code ("NV21", "RAW12", ...), "unknown" for codes it has no plane
// rule for.
const char* FormatName(uint32_t format);

// True for the two YUV 4:2:0 semi-planar codes, the ones that can be rendered.
inline bool IsNv21Format(uint32_t format) {
    return format == 0 || format == 1;
}

// "640x480" -> 640, 480. False for anything else (zero included).
bool ParseSize(const std::string& text, uint32_t& width, uint32_t& height);

// The "<W>x<H>" of a simulation frame file name ("inputFrameInfo_640x480_0_.yuv") or of any
// name that carries "_<W>x<H>" or "<W>x<H>" between separators. False when there is none.
bool SizeFromFileName(const std::string& path, uint32_t& width, uint32_t& height);

// An NV21 image in memory, laid out for the library's converters: both planes share `stride`
// (the width rounded up to even, so the last chroma pair of an odd width is addressable), and
// the chroma plane has height/2 + 1 rows. The converters address chroma row r at
// (r * stride) / 2, so the last odd row of an image reads up to half a chroma row past
// height/2 rows (ZOLYuv420spChromaBytes); the extra row keeps that read inside the buffer.
struct Nv21Image {
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t stride = 0;
    std::vector<uint8_t> y;   // height rows of stride bytes
    std::vector<uint8_t> uv;  // height/2 + 1 rows of stride bytes
};

// A packed RGBA image: width * 4 bytes a row, no padding.
struct RgbaImage {
    uint32_t width = 0;
    uint32_t height = 0;
    std::vector<uint8_t> pixels;
};

// Unpacks a raw NV21 frame (RawFrameBytes(0, width, height) bytes). False with `error` when
// the size does not match; `what` names the data in the message (usually the file path).
bool Nv21FromRaw(const std::vector<uint8_t>& raw, uint32_t width, uint32_t height,
                 const std::string& what, Nv21Image& image, std::string& error);

// Packs an NV21 image into the raw frame layout.
std::vector<uint8_t> Nv21ToRaw(const Nv21Image& image);

// yuv420sp2rgba over the whole image.
RgbaImage Nv21ToRgba(const Nv21Image& image);

// rgba2yuv420sp over the whole image (chroma is taken from the top-left pixel of each 2x2
// block, as the library does).
Nv21Image RgbaToNv21(const RgbaImage& rgba);

}  // namespace zoltool
