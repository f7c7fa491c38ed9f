#include "pngio.h"

#include <png.h>

#include <cstdio>
#include <cstring>

namespace zoltool {

bool LooksLikePng(const std::string& path) {
    FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) {
        return false;
    }
    unsigned char signature[8] = {};
    size_t got = std::fread(signature, 1, sizeof(signature), file);
    std::fclose(file);
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
    png.format = PNG_FORMAT_RGBA;
    image.width = png.width;
    image.height = png.height;
    image.pixels.assign(PNG_IMAGE_SIZE(png), 0);
    if (!png_image_finish_read(&png, nullptr, image.pixels.data(), 0, nullptr)) {
        error = path + ": damaged PNG: " + png.message;
        png_image_free(&png);
        return false;
    }
    return true;
}

}  // namespace zoltool
