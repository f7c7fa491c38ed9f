#include "pngio.h"

#include <png.h>

#include <cstdio>
#include <cstring>

#include "fileio.h"
#include "platform/uniquefd.h"

namespace zoltool {

bool LooksLikePng(const std::string& path) {
    const zol::UniqueFile file(std::fopen(path.c_str(), "rb"));
    if (!file) {
        return false;
    }
    unsigned char signature[8] = {};
    const size_t got = std::fread(signature, 1, sizeof(signature), file.get());
    return got == sizeof(signature) && png_sig_cmp(signature, 0, sizeof(signature)) == 0;
}

bool WritePng(const std::string& path, const RgbaImage& image, std::string& error) {
    png_image png;
    std::memset(&png, 0, sizeof(png));
    png.version = PNG_IMAGE_VERSION;
    png.width = image.width;
    png.height = image.height;
    png.format = PNG_FORMAT_RGBA;
    if (!png_image_write_to_file(&png, path.c_str(), 0, image.pixels.data(), 0, nullptr)) {
        error = path + ": cannot write PNG: " + png.message;
        png_image_free(&png);
        return false;
    }
    return true;
}

bool ReadPng(const std::string& path, RgbaImage& image, std::string& error) {
    png_image png;
    std::memset(&png, 0, sizeof(png));
    png.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&png, path.c_str())) {
        error = path + ": not a readable PNG: " + png.message;
        png_image_free(&png);
        return false;
    }
    const std::string claimed = std::to_string(png.width) + "x" + std::to_string(png.height);
    if (png.width < 1 || png.height < 1 || png.width > kMaxImageSide ||
        png.height > kMaxImageSide) {
        error = path + ": its header claims " + claimed + ", larger than the tool takes (" +
                ImageSideLimits() + ")";
        png_image_free(&png);
        return false;
    }
    // Deflate packs at most 1032 bytes into one, and the smallest pixel is one bit with a
    // filter byte a row: a file shorter than that cannot hold the image, whatever it claims.
    const uint64_t leastPixelBytes = uint64_t{png.height} * (1 + (uint64_t{png.width} + 7) / 8);
    const int64_t fileBytes = FileSize(path);
    if (fileBytes >= 0 && static_cast<uint64_t>(fileBytes) < leastPixelBytes / 1032) {
        error = path + ": its header claims " + claimed + ", which " + std::to_string(fileBytes) +
                " bytes cannot hold";
        png_image_free(&png);
        return false;
    }
    png.format = PNG_FORMAT_RGBA;
    image.width = png.width;
    image.height = png.height;
    image.pixels.assign(size_t{4} * png.width * png.height, 0);
    if (!png_image_finish_read(&png, nullptr, image.pixels.data(), 0, nullptr)) {
        error = path + ": damaged PNG: " + png.message;
        png_image_free(&png);
        return false;
    }
    return true;
}

}  // namespace zoltool
