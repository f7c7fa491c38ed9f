#include "scene.h"

#include <cstddef>
#include <cstdint>

namespace example {

namespace {

struct Yuv {
    uint8_t y, u, v;
};

uint8_t Clamp(double v) {
    return v < 0 ? 0 : v > 255 ? 255 : static_cast<uint8_t>(v);
}

// What a camera gives: full-range BT.601 (JPEG/JFIF), rounded.
Yuv FromRgb(double r, double g, double b) {
    return {Clamp(0.299 * r + 0.587 * g + 0.114 * b + 0.5),
            Clamp(-0.168736 * r - 0.331264 * g + 0.5 * b + 128.5),
            Clamp(0.5 * r - 0.418688 * g - 0.081312 * b + 128.5)};
}

// What the scene shows at pixel (x, y) of frame `frame`.
Yuv SceneAt(int x, int y, int width, int height, int frame) {
    static const Yuv kBars[8] = {
        FromRgb(235, 235, 235), FromRgb(235, 235, 16), FromRgb(16, 235, 235), FromRgb(16, 235, 16),
        FromRgb(235, 16, 235),  FromRgb(235, 16, 16),  FromRgb(16, 16, 235),  FromRgb(16, 16, 16),
    };
    // The disc: radius height/8, crossing the frame from left to right over 16 frames.
    const int radius = height / 8;
    const int cx = radius + (frame % 16) * (width - 2 * radius) / 15;
    const int cy = height / 2;
    const int dx = x - cx, dy = y - cy;
    if (dx * dx + dy * dy <= radius * radius) {
        return FromRgb(250, 140, 20);
    }
    if (y < height * 2 / 3) {
        return kBars[x * 8 / width];
    }
    return {static_cast<uint8_t>(x * 255 / (width > 1 ? width - 1 : 1)), 128, 128};
}

}  // namespace

void DrawScene(const ZOLImageBuffer& image, int frame) {
    const int width = static_cast<int>(image.width);
    const int height = static_cast<int>(image.height);
    uint8_t* luma = static_cast<uint8_t*>(image.Addr[0]);
    uint8_t* chroma = static_cast<uint8_t*>(image.Addr[1]);
    for (int y = 0; y < height; ++y) {
        uint8_t* row = luma + static_cast<size_t>(y) * image.planeStride;
        for (int x = 0; x < width; ++x) {
            row[x] = SceneAt(x, y, width, height, frame).y;
        }
    }
    // One V, U pair per 2 x 2 block, taken at its top-left pixel.
    for (int y = 0; y + 1 < height; y += 2) {
        uint8_t* row = chroma + static_cast<size_t>(y / 2) * image.planeStride;
        for (int x = 0; x + 1 < width; x += 2) {
            const Yuv c = SceneAt(x, y, width, height, frame);
            row[x] = c.v;
            row[x + 1] = c.u;
        }
    }
}

}  // namespace example
