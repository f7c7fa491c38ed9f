// Strided row copy where nothing better is known: one memcpy per row.
#include <cstring>

#include "zolbufferutil/internal/zolbuffercopy_rows.h"

namespace zol::buffercopy {

void CopyRows(unsigned char* dst, const unsigned char* src, size_t rowBytes, size_t rows,
              ptrdiff_t dstStride, ptrdiff_t srcStride) {
    for (size_t r = 0; r < rows; ++r) {
        const auto at = static_cast<ptrdiff_t>(r);
        memcpy(dst + at * dstStride, src + at * srcStride, rowBytes);
    }
}

}  // namespace zol::buffercopy
