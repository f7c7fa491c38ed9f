#include "toyalgo.h"

#include <cmath>
#include <cstring>

#include "zolbufferutil.h"

namespace example {

ToyAlgoDatabase MakeDatabase(uint32_t frame, uint32_t width, uint32_t height) {
    ToyAlgoDatabase db;
    std::memset(&db, 0, sizeof(db));
    std::memcpy(db.tag, "TOYALGO", 8);
    db.frameIndex = frame;
    db.width = width;
    db.height = height;
    // The parameters change a little per frame, as a tuning would from scene to scene.
    db.gamma = 0.80f + 0.05f * static_cast<float>(frame % 4);
    db.contrast = 0.30f + 0.10f * static_cast<float>(frame % 3);
    return db;
}

bool IsToyAlgoDatabase(const ToyAlgoDatabase& db) {
    return std::memcmp(db.tag, "TOYALGO", 8) == 0;
}

void RunToneCurve(const ToyAlgoDatabase& db, const ZOLImageBuffer& in, const ZOLImageBuffer& out,
                  uint8_t* rgba) {
    const int width = static_cast<int>(in.width);
    const int height = static_cast<int>(in.height);
    yuv420sp2rgba(static_cast<unsigned char*>(in.Addr[0]), static_cast<unsigned char*>(in.Addr[1]),
                  rgba, static_cast<int>(in.planeStride), static_cast<int>(in.planeStride), width,
                  height);

    uint8_t curve[256];
    for (int i = 0; i < 256; ++i) {
        const double x = std::pow(i / 255.0, static_cast<double>(db.gamma));
        const double s = x * x * (3 - 2 * x);  // smoothstep: the S
        const double y = x + static_cast<double>(db.contrast) * (s - x);
        curve[i] = static_cast<uint8_t>(std::lround(std::fmin(std::fmax(y, 0.0), 1.0) * 255));
    }
    const size_t pixels = static_cast<size_t>(width) * static_cast<size_t>(height);
    for (size_t p = 0; p < pixels; ++p) {
        uint8_t* px = rgba + 4 * p;
        px[0] = curve[px[0]];
        px[1] = curve[px[1]];
        px[2] = curve[px[2]];
    }

    rgba2yuv420sp(static_cast<unsigned char*>(out.Addr[0]),
                  static_cast<unsigned char*>(out.Addr[1]), rgba, static_cast<int>(out.planeStride),
                  static_cast<int>(out.planeStride), width, height);
}

}  // namespace example
