// The row loop of a strided plane copy, one implementation per target architecture (the build
// picks the file: zolbuffercopy_rows_x86.cpp or zolbuffercopy_rows_generic.cpp, beside
// zolbuffercopy.cpp).
#pragma once

#include <cstddef>

namespace zol::buffercopy {

// Copies `rows` rows of `rowBytes` bytes, row r from src + r * srcStride to dst + r * dstStride.
// rows and rowBytes are at least 1; the planes do not overlap.
void CopyRows(unsigned char* dst, const unsigned char* src, size_t rowBytes, size_t rows,
              ptrdiff_t dstStride, ptrdiff_t srcStride);

}  // namespace zol::buffercopy
