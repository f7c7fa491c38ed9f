// PNG files to and from packed RGBA (libpng's simplified API).
#pragma once

#include <string>

#include "rawimage.h"

namespace zoltool {

// True when the file starts with the PNG signature.
bool LooksLikePng(const std::string& path);

// Writes an 8-bit RGBA PNG. False with `error` naming the file on failure.
bool WritePng(const std::string& path, const RgbaImage& image, std::string& error);

// Reads any PNG as 8-bit RGBA (palette, grey and 16-bit images are converted). False with
// `error` naming the file and the reason. The header's size is judged before any pixel memory
// is taken: larger than kMaxImageSide a side, or more than the file could hold compressed, and
// the file is refused.
bool ReadPng(const std::string& path, RgbaImage& image, std::string& error);

}  // namespace zoltool
