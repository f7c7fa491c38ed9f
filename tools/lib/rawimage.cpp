#include "rawimage.h"

#include <libyuv/convert_argb.h>
#include <libyuv/convert_from_argb.h>
#include <libyuv/planar_functions.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "fileio.h"
#include "platform/uniquefd.h"
#include "text.h"
#include "zolbufferutil.h"
#include "zolbufferutil/internal/zolplanegeometry.h"

namespace zoltool {

std::string ImageSideLimits() {
    return "width and height must each be 1 to " + std::to_string(kMaxImageSide);
}

uint64_t RawRowBytes(uint32_t format, uint32_t width) {
    const zol::RawFormat f = zol::RawFormatOf(format);
    return f.planes > 0 ? uint64_t{width} * f.num / f.den : 0;
}

uint64_t RawFrameBytes(uint32_t format, uint32_t width, uint32_t height) {
    const zol::RawFormat f = zol::RawFormatOf(format);
    return RawRowBytes(format, width) *
           (uint64_t{zol::RawPlaneRows(f, 0, height)} + zol::RawPlaneRows(f, 1, height));
}

const char* FormatName(uint32_t format) {
    return zol::RawFormatOf(format).name;
}

namespace {

// Up to 9 decimal digits, saturating above that (so "99999999999" is out of range, not wrapped).
bool ParseSide(const std::string& text, uint32_t& value) {
    if (text.empty()) {
        return false;
    }
    uint64_t v = 0;
    for (char c : text) {
        if (c < '0' || c > '9') {
            return false;
        }
        v = std::min<uint64_t>(v * 10 + static_cast<uint64_t>(c - '0'), UINT32_MAX);
    }
    value = static_cast<uint32_t>(v);
    return true;
}

}  // namespace

SizeText ParseSize(const std::string& text, uint32_t& width, uint32_t& height) {
    const size_t x = text.find('x');
    uint32_t w = 0, h = 0;
    if (x == std::string::npos || !ParseSide(text.substr(0, x), w) ||
        !ParseSide(text.substr(x + 1), h)) {
        return SizeText::kNotASize;
    }
    width = w;
    height = h;
    return w >= 1 && h >= 1 && w <= kMaxImageSide && h <= kMaxImageSide ? SizeText::kOk
                                                                        : SizeText::kOutOfRange;
}

SizeText SizeFromFileName(const std::string& path, uint32_t& width, uint32_t& height) {
    const size_t slash = path.rfind('/');
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    std::string token;
    for (size_t i = 0; i <= name.size(); ++i) {
        const char c = i < name.size() ? name[i] : '_';
        if (c != '_' && c != '.' && c != '-') {
            token += c;
            continue;
        }
        const SizeText found = ParseSize(token, width, height);
        if (found != SizeText::kNotASize) {
            return found;
        }
        token.clear();
    }
    return SizeText::kNotASize;
}

namespace {

Nv21Image EmptyNv21(uint32_t width, uint32_t height) {
    Nv21Image image;
    image.width = width;
    image.height = height;
    image.stride = width + (width & 1);
    image.y.assign(static_cast<size_t>(image.stride) * height, 0);
    const size_t chroma = static_cast<size_t>(image.stride) * (height / 2 + 1);
    image.uv.assign(std::max(chroma, ZOLYuv420spChromaBytes(static_cast<int>(image.stride),
                                                            static_cast<int>(height))),
                    128);
    return image;
}

uint32_t ChromaRows(uint32_t height) {
    return height >= 2 ? height / 2 : 0;
}

// The row past the file's chroma repeats the last one, so that the rows that read it (the
// library's last odd row, the standard last row of an odd height) keep a plausible colour.
void RepeatLastChromaRow(Nv21Image& image) {
    const uint32_t rows = ChromaRows(image.height);
    if (rows > 0) {
        std::memcpy(&image.uv[static_cast<size_t>(rows) * image.stride],
                    &image.uv[static_cast<size_t>(rows - 1) * image.stride], image.stride);
    }
}

std::string SizeMismatch(const std::string& what, uint64_t actual, uint32_t width,
                         uint32_t height) {
    return what + ": " + Count(actual, "byte") + ", but an NV21 frame of " + std::to_string(width) +
           "x" + std::to_string(height) + " holds " +
           std::to_string(RawFrameBytes(0, width, height)) + " (" + Count(height, "row") +
           " of luma and " + Count(ChromaRows(height), "row") + " of chroma, " +
           Count(width, "byte") + " each)";
}

}  // namespace

bool ReadNv21File(const std::string& path, uint32_t width, uint32_t height, Nv21Image& image,
                  std::string& error) {
    const std::string why = WhyNotAFile(path);
    if (!why.empty()) {
        error = path + ": " + why;
        return false;
    }
    if (width < 1 || height < 1 || width > kMaxImageSide || height > kMaxImageSide) {
        error = path + ": " + std::to_string(width) + "x" + std::to_string(height) +
                " is not a frame size the tool takes (" + ImageSideLimits() + ")";
        return false;
    }
    const int64_t actual = FileSize(path);
    if (actual < 0 || static_cast<uint64_t>(actual) != RawFrameBytes(0, width, height)) {
        error =
            SizeMismatch(path, static_cast<uint64_t>(std::max<int64_t>(actual, 0)), width, height);
        return false;
    }
    zol::UniqueFile file(std::fopen(path.c_str(), "rb"));
    if (!file) {
        error = path + ": cannot open: " + ErrnoText();
        return false;
    }
    image = EmptyNv21(width, height);
    bool whole = true;
    for (uint32_t r = 0; r < height && whole; ++r) {
        whole = std::fread(&image.y[static_cast<size_t>(r) * image.stride], 1, width, file.get()) ==
                width;
    }
    for (uint32_t r = 0; r < ChromaRows(height) && whole; ++r) {
        whole = std::fread(&image.uv[static_cast<size_t>(r) * image.stride], 1, width,
                           file.get()) == width;
    }
    if (!whole) {
        error = path + ": cannot read (it shrank while being read?): " + ErrnoText();
        return false;
    }
    RepeatLastChromaRow(image);
    return true;
}

bool Nv21FromRaw(const std::vector<uint8_t>& raw, uint32_t width, uint32_t height,
                 const std::string& what, Nv21Image& image, std::string& error) {
    if (width < 1 || height < 1 || width > kMaxImageSide || height > kMaxImageSide ||
        raw.size() != RawFrameBytes(0, width, height)) {
        error = SizeMismatch(what, raw.size(), width, height);
        return false;
    }
    image = EmptyNv21(width, height);
    const uint8_t* in = raw.data();
    for (uint32_t r = 0; r < height; ++r, in += width) {
        std::memcpy(&image.y[static_cast<size_t>(r) * image.stride], in, width);
    }
    for (uint32_t r = 0; r < ChromaRows(height); ++r, in += width) {
        std::memcpy(&image.uv[static_cast<size_t>(r) * image.stride], in, width);
    }
    RepeatLastChromaRow(image);
    return true;
}

std::vector<uint8_t> Nv21ToRaw(const Nv21Image& image) {
    std::vector<uint8_t> raw;
    raw.reserve(RawFrameBytes(0, image.width, image.height));
    for (uint32_t r = 0; r < image.height; ++r) {
        const uint8_t* row = &image.y[static_cast<size_t>(r) * image.stride];
        raw.insert(raw.end(), row, row + image.width);
    }
    for (uint32_t r = 0; r < ChromaRows(image.height); ++r) {
        const uint8_t* row = &image.uv[static_cast<size_t>(r) * image.stride];
        raw.insert(raw.end(), row, row + image.width);
    }
    return raw;
}

RgbaImage RenderNv21(const Nv21Image& frame, RenderMode mode) {
    RgbaImage rgba;
    rgba.width = frame.width;
    rgba.height = frame.height;
    rgba.pixels.assign(static_cast<size_t>(frame.width) * frame.height * 4, 0);
    const int stride = static_cast<int>(frame.stride);
    const int width = static_cast<int>(frame.width);
    const int height = static_cast<int>(frame.height);
    if (mode == RenderMode::kAsLibrary) {
        // The converters take non-const planes but only read them in this direction.
        yuv420sp2rgba(const_cast<uint8_t*>(frame.y.data()), const_cast<uint8_t*>(frame.uv.data()),
                      rgba.pixels.data(), stride, stride, width, height);
    } else {
        // libyuv's "ABGR" is R, G, B, A in memory; the JPEG constants are full-range BT.601.
        libyuv::NV21ToABGRMatrix(frame.y.data(), stride, frame.uv.data(), stride,
                                 rgba.pixels.data(), width * 4, &libyuv::kYuvJPEGConstants, width,
                                 height);
    }
    return rgba;
}

Nv21Image EncodeNv21(const RgbaImage& rgba, RenderMode mode) {
    Nv21Image image = EmptyNv21(rgba.width, rgba.height);
    const int stride = static_cast<int>(image.stride);
    const int width = static_cast<int>(rgba.width);
    const int height = static_cast<int>(rgba.height);
    if (mode == RenderMode::kAsLibrary) {
        rgba2yuv420sp(image.y.data(), image.uv.data(), const_cast<uint8_t*>(rgba.pixels.data()),
                      stride, stride, width, height);
        return image;
    }
    const int chromaWidth = (width + 1) / 2;
    const int chromaHeight = (height + 1) / 2;
    std::vector<uint8_t> u(static_cast<size_t>(chromaWidth) * static_cast<size_t>(chromaHeight));
    std::vector<uint8_t> v(u.size());
    libyuv::ABGRToJ420(rgba.pixels.data(), width * 4, image.y.data(), stride, u.data(), chromaWidth,
                       v.data(), chromaWidth, width, height);
    // Interleaved V first: NV21.
    libyuv::MergeUVPlane(v.data(), chromaWidth, u.data(), chromaWidth, image.uv.data(), stride,
                         chromaWidth, chromaHeight);
    return image;
}

}  // namespace zoltool
