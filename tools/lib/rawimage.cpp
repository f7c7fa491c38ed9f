#include "rawimage.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "zolbufferutil.h"

namespace zoltool {

uint64_t RawFrameBytes(uint32_t format, uint32_t width, uint32_t height) {
    const uint64_t w = width;
    const uint64_t h = height;
    const uint64_t halfRows = h >= 2 ? h / 2 : 0;
    switch (format) {
        case 0:
        case 1:
            return h * w + halfRows * w;
        case 3:
            return h * (w * 12 / 8);
        case 4:
            return h * (w * 14 / 8);
        case 6:
            return h * w * 2 + halfRows * w * 2;
        case 7:
            return h * w;
        case 5:
        case 8:
        case 9:
        case 10:
        case 11:
        case 12:
        case 13:
        case 14:
            return h * w * 2;
        default:
            return 0;
    }
}

const char* FormatName(uint32_t format) {
    switch (format) {
        case 0:
        case 1:
            return "NV21";
        case 3:
            return "RAW12";
        case 4:
            return "RAW14";
        case 5:
            return "16BIT";
        case 6:
            return "P010";
        case 7:
            return "Y8";
        default:
            return format >= 8 && format <= 14 ? "16BIT" : "unknown";
    }
}

namespace {

bool ParseDecimal(const std::string& text, uint32_t& value) {
    if (text.empty() || text.size() > 9) {
        return false;
    }
    uint32_t out = 0;
    for (char c : text) {
        if (c < '0' || c > '9') {
            return false;
        }
        out = out * 10 + static_cast<uint32_t>(c - '0');
    }
    value = out;
    return true;
}

}  // namespace

bool ParseSize(const std::string& text, uint32_t& width, uint32_t& height) {
    size_t x = text.find('x');
    uint32_t w, h;
    if (x == std::string::npos || !ParseDecimal(text.substr(0, x), w) ||
        !ParseDecimal(text.substr(x + 1), h) || w == 0 || h == 0) {
        return false;
    }
    width = w;
    height = h;
    return true;
}

bool SizeFromFileName(const std::string& path, uint32_t& width, uint32_t& height) {
    size_t slash = path.rfind('/');
    std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    // Split at separators and take the first token of the form <digits>x<digits>.
    std::string token;
    for (size_t i = 0; i <= name.size(); ++i) {
        char c = i < name.size() ? name[i] : '_';
        if (c == '_' || c == '.' || c == '-') {
            if (ParseSize(token, width, height)) {
                return true;
            }
            token.clear();
        } else {
            token += c;
        }
    }
    return false;
}

namespace {

Nv21Image EmptyNv21(uint32_t width, uint32_t height) {
    Nv21Image image;
    image.width = width;
    image.height = height;
    image.stride = width + (width & 1);
    image.y.assign(static_cast<size_t>(image.stride) * height, 0);
    // A whole extra chroma row: at least what the conversion reads (ZOLYuv420spChromaBytes),
    // and room for Nv21FromRaw to repeat the last row.
    const size_t chroma = static_cast<size_t>(image.stride) * (height / 2 + 1);
    image.uv.assign(std::max(chroma, ZOLYuv420spChromaBytes(static_cast<int>(image.stride),
                                                            static_cast<int>(height))),
                    128);
    return image;
}

}  // namespace

bool Nv21FromRaw(const std::vector<uint8_t>& raw, uint32_t width, uint32_t height,
                 const std::string& what, Nv21Image& image, std::string& error) {
    const uint64_t expected = RawFrameBytes(0, width, height);
    if (width == 0 || height == 0 || raw.size() != expected) {
        error = what + ": " + std::to_string(raw.size()) + " bytes, but an NV21 frame of " +
                std::to_string(width) + "x" + std::to_string(height) + " holds " +
                std::to_string(expected) + " (" + std::to_string(height) + " rows of luma and " +
                std::to_string(height >= 2 ? height / 2 : 0) + " rows of chroma, " +
                std::to_string(width) + " bytes each)";
        return false;
    }
    image = EmptyNv21(width, height);
    const uint8_t* in = raw.data();
    for (uint32_t r = 0; r < height; ++r, in += width) {
        std::memcpy(&image.y[static_cast<size_t>(r) * image.stride], in, width);
    }
    const uint32_t chromaRows = height >= 2 ? height / 2 : 0;
    for (uint32_t r = 0; r < chromaRows; ++r, in += width) {
        std::memcpy(&image.uv[static_cast<size_t>(r) * image.stride], in, width);
    }
    // The row past the file's chroma repeats the last one, so that the tail of the last odd
    // row (which the converter reads half a chroma row on) keeps a plausible colour.
    if (chromaRows > 0) {
        std::memcpy(&image.uv[static_cast<size_t>(chromaRows) * image.stride],
                    &image.uv[static_cast<size_t>(chromaRows - 1) * image.stride], image.stride);
    }
    return true;
}

std::vector<uint8_t> Nv21ToRaw(const Nv21Image& image) {
    std::vector<uint8_t> raw;
    raw.reserve(RawFrameBytes(0, image.width, image.height));
    for (uint32_t r = 0; r < image.height; ++r) {
        const uint8_t* row = &image.y[static_cast<size_t>(r) * image.stride];
        raw.insert(raw.end(), row, row + image.width);
    }
    const uint32_t chromaRows = image.height >= 2 ? image.height / 2 : 0;
    for (uint32_t r = 0; r < chromaRows; ++r) {
        const uint8_t* row = &image.uv[static_cast<size_t>(r) * image.stride];
        raw.insert(raw.end(), row, row + image.width);
    }
    return raw;
}

RgbaImage Nv21ToRgba(const Nv21Image& image) {
    RgbaImage rgba;
    rgba.width = image.width;
    rgba.height = image.height;
    rgba.pixels.assign(static_cast<size_t>(image.width) * image.height * 4, 0);
    // The converters take non-const planes but only read them in this direction.
    yuv420sp2rgba(const_cast<uint8_t*>(image.y.data()), const_cast<uint8_t*>(image.uv.data()),
                  rgba.pixels.data(), static_cast<int>(image.stride),
                  static_cast<int>(image.stride), static_cast<int>(image.width),
                  static_cast<int>(image.height));
    return rgba;
}

Nv21Image RgbaToNv21(const RgbaImage& rgba) {
    Nv21Image image = EmptyNv21(rgba.width, rgba.height);
    rgba2yuv420sp(image.y.data(), image.uv.data(), const_cast<uint8_t*>(rgba.pixels.data()),
                  static_cast<int>(image.stride), static_cast<int>(image.stride),
                  static_cast<int>(rgba.width), static_cast<int>(rgba.height));
    return image;
}

}  // namespace zoltool
