// What the end-to-end save and replay processes agree on.
#pragma once

#include <cstddef>
#include <cstdint>

namespace e2e {

constexpr uint32_t kInvocations = 3;
constexpr uint32_t kStride = 80;  // every buffer of a request shares the first one's layout

struct Geometry {
    uint32_t width;
    uint32_t height;
};
// Three NV21 frames per invocation, of different sizes.
constexpr Geometry kFrames[] = {{64, 48}, {40, 30}, {50, 20}};

// The paint of frame i of invocation id: different for every frame of every invocation.
constexpr uint32_t Seed(uint32_t id, size_t i) {
    return id * 10 + static_cast<uint32_t>(i) + 1;
}

}  // namespace e2e
