// Raw frames as the library dumps them (rows without stride padding, plane 0 then plane 1, no
// header), and NV21 frames rendered to packed RGBA and back in one of two ways:
//
//   RenderMode::kStandard   how a camera's NV21 is meant to be seen: full-range BT.601 (the
//                           JPEG/JFIF matrix that Android's own YUV-to-JPEG path assumes), rows
//                           2k and 2k+1 sharing chroma row k, done by libyuv.
//   RenderMode::kAsLibrary  through the library's yuv420sp2rgba / rgba2yuv420sp, exactly what an
//                           algorithm that uses them gets: analogue BT.601 coefficients, and odd
//                           rows reading their chroma half a chroma row further on (so a flat
//                           colour shows tinted alternate rows and a ghost of coloured shapes).
//
// The tool takes images of at most kMaxImageSide pixels a side; every size is checked against
// that before anything is allocated for it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zoltool {

constexpr uint32_t kMaxImageSide = 16384;

// "width and height must each be 1 to 16384", for messages.
std::string ImageSideLimits();

// Bytes a dump of an image with this format code and size holds: the library's plane table
// (formats 0 and 1: height rows of width bytes, then height/2 rows of width bytes when height
// is 2 or more; format 3: width*12/8 bytes a row; ...). Formats 2 and 15 or more are dumped as
// empty files, so they expect 0. Computed in 64 bits.
uint64_t RawFrameBytes(uint32_t format, uint32_t width, uint32_t height);

// Bytes of one plane-0 row of this format and width (what a row stride must hold at least); 0
// for codes with no plane rule.
uint64_t RawRowBytes(uint32_t format, uint32_t width);

// A short name for a format code ("NV21", "RAW12", ...), "unknown" for codes it has no plane
// rule for.
const char* FormatName(uint32_t format);

// True for the two YUV 4:2:0 semi-planar codes, the ones that can be rendered.
inline bool IsNv21Format(uint32_t format) {
    return format == 0 || format == 1;
}

enum class SizeText {
    kOk,          // a size within the limits
    kNotASize,    // not <digits>x<digits>
    kOutOfRange,  // <digits>x<digits>, but a side is 0 or larger than kMaxImageSide
};

// "640x480" -> 640, 480. `width` and `height` are set for kOk and kOutOfRange (saturated).
SizeText ParseSize(const std::string& text, uint32_t& width, uint32_t& height);

// The first "<W>x<H>" between separators (_ . -) of a file name ("inputFrameInfo_640x480_0_.yuv",
// "out_03_1920x1080.nv21"); the directory part is not looked at.
SizeText SizeFromFileName(const std::string& path, uint32_t& width, uint32_t& height);

// An NV21 image in memory, laid out for both renderings: both planes share `stride` (the width
// rounded up to even, so the last chroma pair of an odd width is addressable), and the chroma
// plane has height/2 + 1 rows, the extra one repeating the last. The library's addressing
// reads up to half a chroma row past height/2 rows (ZOLYuv420spChromaBytes) and the standard
// one reads (height+1)/2 rows; the extra row keeps both inside the buffer.
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

// Reads a raw NV21 frame of width x height. The file's size is checked against the frame's
// before anything is read or allocated; false with `error` naming the file and what is wrong.
bool ReadNv21File(const std::string& path, uint32_t width, uint32_t height, Nv21Image& image,
                  std::string& error);

// Unpacks a raw NV21 frame held in memory; false with `error` (about `what`) when its size is
// not the frame's.
bool Nv21FromRaw(const std::vector<uint8_t>& raw, uint32_t width, uint32_t height,
                 const std::string& what, Nv21Image& image, std::string& error);

// Packs an NV21 image into the raw frame layout.
std::vector<uint8_t> Nv21ToRaw(const Nv21Image& image);

enum class RenderMode { kStandard, kAsLibrary };

// The frame as RGBA (opaque), rendered as `mode` says.
RgbaImage RenderNv21(const Nv21Image& frame, RenderMode mode);

// The other way: standard full-range BT.601 with each chroma pair the mean of its 2x2 block, or
// the library's rgba2yuv420sp (chroma taken from the top-left pixel of each block).
Nv21Image EncodeNv21(const RgbaImage& rgba, RenderMode mode);

}  // namespace zoltool
