// Image planes with visible padding for the copy, dump and read tests.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "zolimagebuffer.h"

namespace bufferutiltest {

// Two planes of `planeBytes` each, filled with a byte pattern that differs per plane and per
// position (padding included), wired into a ZOLImageBuffer.
struct TestImage {
    TestImage(uint32_t format, uint32_t width, uint32_t height, uint32_t stride, size_t planeBytes,
              uint8_t seed) {
        for (int p = 0; p < 2; ++p) {
            planes[p].resize(planeBytes);
            for (size_t i = 0; i < planeBytes; ++i) {
                planes[p][i] = static_cast<uint8_t>(seed + p * 101 + i * 7 + i / 251);
            }
        }
        buffer = {};
        buffer.format = format;
        buffer.width = width;
        buffer.height = height;
        buffer.planeStride = stride;
        buffer.sliceHeight = height;
        buffer.numberOfPlanes = 2;
        buffer.Addr[0] = planes[0].data();
        buffer.Addr[1] = planes[1].data();
    }
    void Fill(uint8_t value) {
        for (auto& plane : planes) {
            plane.assign(plane.size(), value);
        }
    }
    // Rows x rowBytes of plane p, stride apart, as one string (what a raw file holds).
    std::string Rows(int p, int rows, int rowBytes) const {
        std::string out;
        for (int r = 0; r < rows; ++r) {
            out.append(reinterpret_cast<const char*>(planes[p].data()) + r * buffer.planeStride,
                       rowBytes);
        }
        return out;
    }

    std::vector<uint8_t> planes[2];
    ZOLImageBuffer buffer;
};

}  // namespace bufferutiltest
