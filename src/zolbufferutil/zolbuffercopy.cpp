// Plane copy between two image buffers.
#include <cstddef>
#include <cstring>

#include "zolbufferutil.h"
#include "zolbufferutil/internal/zolbuffercopy_rows.h"
#include "zoltoolsdef/internal/zolfatal.h"

void ZOLBufferUtil::ZOLCopyPlane(unsigned char* dst, unsigned char* src, int rowBytes, int rows,
                                 int dstStride, int srcStride) {
    // A negative row size would become a huge memcpy length, and a null plane has nothing to
    // copy: both are treated as an empty plane rather than a crash.
    if (rows < 1 || rowBytes < 1 || dst == nullptr || src == nullptr) {
        return;
    }
    const auto bytes = static_cast<size_t>(rowBytes);
    const auto count = static_cast<size_t>(rows);
    // Rows without padding on either side: the plane is one span.
    if (dstStride == rowBytes && srcStride == rowBytes) {
        memcpy(dst, src, bytes * count);
        return;
    }
    // Strides in ptrdiff_t: rows x stride may exceed int for large planes.
    zol::buffercopy::CopyRows(dst, src, bytes, count, dstStride, srcStride);
}

bool ZOLBufferUtil::ZOLBufferCopy(ZOLImageBuffer* dst, ZOLImageBuffer* src) {
    // No buffer, nothing to copy: the incompatible-buffers result.
    if (dst == nullptr || src == nullptr) {
        return false;
    }
    const bool sameSize = src->width == dst->width && src->height == dst->height;
    // A transposed match is accepted but not rotated: the rows below still follow the source.
    const bool transposed = src->width == dst->height && src->height == dst->width;
    if (!sameSize && !transposed) {
        return false;
    }

    auto* const dst0 = static_cast<unsigned char*>(dst->Addr[0]);
    auto* const src0 = static_cast<unsigned char*>(src->Addr[0]);
    const int dstStride = static_cast<int>(dst->planeStride);
    const int srcStride = static_cast<int>(src->planeStride);
    const int rows = static_cast<int>(src->height);

    if (dst->format <= 1 || src->format <= 1) {
        const int rowBytes = static_cast<int>(src->width);
        ZOLCopyPlane(dst0, src0, rowBytes, rows, dstStride, srcStride);
        if (src->height >= 2) {
            ZOLCopyPlane(static_cast<unsigned char*>(dst->Addr[1]),
                         static_cast<unsigned char*>(src->Addr[1]), rowBytes,
                         static_cast<int>(src->height / 2), dstStride, srcStride);
        }
        return true;
    }
    if (dst->format == 5 || src->format == 5) {
        const int rowBytes = static_cast<int>(zol::CheckedMul<uint32_t>(src->width, 2));
        ZOLCopyPlane(dst0, src0, rowBytes, rows, dstStride, srcStride);
        return true;
    }
    return false;
}
