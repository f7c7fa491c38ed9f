// yuv420sp2rgba / rgba2yuv420sp: the row walk and its addressing; the per-row work is done by
// the kernels of zolcolorconvert_rows.h.
#include <atomic>
#include <cstddef>

#include "zolbufferutil.h"
#include "zolbufferutil/internal/zolcolorconvert_rows.h"
#include "zoltoolsdef/internal/zolfatal.h"

namespace zol::colorconvert {
namespace {

std::atomic<const RowKernels*> g_override{nullptr};

// Row r's luma and chroma offsets are r * stride in int; the largest r decides whether any of
// them overflows, so one check per call aborts exactly when a row's product would.
void CheckRowProducts(int yStride, int uvStride, int height) {
    (void)CheckedMul(height - 1, yStride);
    (void)CheckedMul(height - 1, uvStride);
}

}  // namespace

const RowKernels& ActiveRowKernels() {
    const RowKernels* forced = g_override.load(std::memory_order_relaxed);
    if (forced != nullptr) {
        return *forced;
    }
    static const RowKernels* const chosen = SupportedRowKernels().items[0];
    return *chosen;
}

void OverrideRowKernelsForTest(const RowKernels* kernels) {
    g_override.store(kernels, std::memory_order_relaxed);
}

}  // namespace zol::colorconvert

using zol::colorconvert::ActiveRowKernels;
using zol::colorconvert::CheckRowProducts;
using zol::colorconvert::RowKernels;

void yuv420sp2rgba(unsigned char* y, unsigned char* uv, unsigned char* rgba, int yStride,
                   int uvStride, int width, int height) {
    if (width <= 0 || height <= 0) {
        return;
    }
    CheckRowProducts(yStride, uvStride, height);
    const size_t rgbaRow = static_cast<size_t>(width) * 4;
    const RowKernels& kernels = ActiveRowKernels();
    const auto row =
        rgbaRow * static_cast<size_t>(height) >= zol::colorconvert::kStreamingOutputBytes
            ? kernels.yuvToRgbaStreaming
            : kernels.yuvToRgba;
    for (int r = 0; r < height; ++r) {
        // Odd rows start half a chroma row further on: (r * uvStride) / 2, truncated.
        row(y + r * yStride, uv + (r * uvStride) / 2, rgba + static_cast<size_t>(r) * rgbaRow,
            width);
    }
}

void rgba2yuv420sp(unsigned char* y, unsigned char* uv, unsigned char* rgba, int yStride,
                   int uvStride, int width, int height) {
    if (width <= 0 || height <= 0) {
        return;
    }
    CheckRowProducts(yStride, uvStride, height);
    const auto row = ActiveRowKernels().rgbaToYuv;
    const size_t rgbaRow = static_cast<size_t>(width) * 4;
    for (int r = 0; r < height; ++r) {
        // Chroma is point-sampled at even rows and columns; even row r writes chroma row r / 2.
        unsigned char* chroma = (r & 1) == 0 ? uv + (r * uvStride) / 2 : nullptr;
        row(rgba + static_cast<size_t>(r) * rgbaRow, y + r * yStride, chroma, width);
    }
}
